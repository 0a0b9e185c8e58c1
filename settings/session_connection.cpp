#include "settings/session_connection.h"

#include <shlwapi.h>

#include <vector>

#include "host/log.h"
#include "host/status.h"
#include "settings/connection_manager.h"
#include "settings/connection_state.h"
#include "settings/network_alive.h"
#include "settings/registry_text.h"
#include "settings/system_proxy.h"

namespace {

const char kInternetSettings[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

const char* Bool(bool value) { return value ? "true" : "false"; }
const char* TextOrEmpty(bool present, const std::string& text) { return present ? text.c_str() : ""; }

// Where this platform version keeps the name of the default dial-up entry,
// all under HKEY_CURRENT_USER; null on versions that keep it nowhere this
// system knows (6.1 and later among them).
struct TDefaultEntryPlace {
    const char* key;
    const char* value;
};

TDefaultEntryPlace DefaultEntryPlace(const OSVERSIONINFOEXA& version)
{
    const TDefaultEntryPlace remoteAccess = {"RemoteAccess", "InternetProfile"};
    const TDefaultEntryPlace autoDial = {"Software\\Microsoft\\RAS AutoDial\\Default", "DefaultInternet"};
    const DWORD major = version.dwMajorVersion, minor = version.dwMinorVersion;
    if (version.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS) {
        if (major == 4 && (minor == 10 || minor == 90))
            return remoteAccess;
    } else if (version.dwPlatformId == VER_PLATFORM_WIN32_NT) {
        if (major == 6 && minor == 0)
            return autoDial;
        if (major == 5)
            return minor > 0 ? autoDial : remoteAccess;
        if (major < 5)
            return remoteAccess;
    }
    return {nullptr, nullptr};
}

// GetVersionExA, first with the extended structure and then with the plain one.
bool PlatformVersion(OSVERSIONINFOEXA& version)
{
    ZeroMemory(&version, sizeof version);
    version.dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXA);
    if (::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&version)))
        return true;
    ZeroMemory(&version, sizeof version);
    version.dwOSVersionInfoSize = sizeof(OSVERSIONINFOA);
    return ::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&version)) != FALSE;
}

}  // namespace

HRESULT CVnSessionConnection::PrepareConfigData(const CConfigData& record)
{
    if (!m_pWorkData)
        return E_POINTER;
    *m_pWorkData = record;
    HRESULT status = S_OK;
    if (m_pWorkData->m_UseSystemProxy)
        status = GetProxyDefault();
    // The dial settings' status replaces the proxy's: a failed proxy query
    // then leaves the record's proxy values in force without failing the
    // session.
    if (m_pWorkData->m_UseSystemConnection)
        status = GetRASDefault();
    return status;
}

HRESULT CVnSessionConnection::GetProxyDefault()
{
    static const char kMethod[] = "CVnSessionConnection::GetProxyDefault";
    if (!m_pWorkData)
        return E_POINTER;
    vn_settings::TSystemProxySettings system;
    DWORD error = 0;
    if (!vn_settings::QuerySystemProxySettings(system, error)) {
        LogLine(vn_log::kErrorDec, kMethod, "InternetQueryOption failed.", static_cast<int>(error));
        return E_FAIL;
    }

    // What the system said and what the working record became are traced,
    // never written to the log.
    TraceLine("Info about method [%s]. IE Settings [Proxy mode]: \n %s = %s;\n %s = %s;\n %s = %s;\n", kMethod,
              "ProxyManual", Bool(system.m_dwFlags & vn_settings::kProxyTypeManual),
              "ProxyScript", Bool(system.m_dwFlags & vn_settings::kProxyTypeScript),
              "ProxyAuto", Bool(system.m_dwFlags & vn_settings::kProxyTypeAuto));
    TraceLine("Info about method [%s]. IE Settings [Proxy Script]: %s", kMethod,
              TextOrEmpty(system.m_bHasScript, system.m_strScript));
    TraceLine("Info about method [%s]. IE Settings [Proxy Exclude]: %s", kMethod,
              TextOrEmpty(system.m_bHasBypass, system.m_strBypass));
    TraceLine("Info about method [%s]. IE Settings [Proxy Address]: %s", kMethod,
              TextOrEmpty(system.m_bHasServer, system.m_strServer));

    CConfigData& data = *m_pWorkData;
    vn_settings::ApplySystemProxySettings(system, data);

    TraceLine("Info about method [%s]. cdAWorkData structure [Proxy settings]: "
              "\n %s = %s;\n %s = %d;\n %s = %s;\n %s = %d;\n %s = %s;\n %s = %s;\n %s = %s;\n",
              kMethod, "m_UseSystemProxy", Bool(data.m_UseSystemProxy),
              "m_ProxyMode (ProxyNone-0,ProxyAuto-1,ProxyManual-2,ProxyScript-3)", data.m_ProxyMode,
              "m_ProxyAddress", data.m_ProxyAddress.c_str(), "m_ProxyPort", data.m_ProxyPort,
              "m_ProxyExclude", data.m_ProxyExclude.c_str(), "m_ProxyNoLocal", Bool(data.m_ProxyNoLocal),
              "m_ProxyScript", data.m_ProxyScript.c_str());
    return S_OK;
}

HRESULT CVnSessionConnection::GetRASDefault()
{
    if (!m_pWorkData)
        return E_POINTER;
    CConfigData& data = *m_pWorkData;
    GetIEDialMode(data.m_DialMode);
    data.m_DefaultConnection.clear();
    std::string entry;
    if (SUCCEEDED(GetIEDefConnection(entry)))
        data.m_DefaultConnection = entry;
    TraceLine("Info about method [%s]. cdAWorkData structure[RAS settings]: \n %s = %s;\n %s = %d;\n %s = %s;\n %s = %d;\n",
              "CVnSessionConnection::GetRASDefault", "m_UseSystemConnection", Bool(data.m_UseSystemConnection),
              "m_DialMode (DialNever-0,DialRequired-1,DialAlways-2)", data.m_DialMode,
              "m_DefaultConnection", data.m_DefaultConnection.c_str(), "m_SessionFlags", data.m_SessionFlags);
    return S_OK;
}

HRESULT CVnSessionConnection::GetIEDialMode(int& mode)
{
    // Which of the two values is set does not matter, only their sum.
    const int sum = ::StrToIntA(vn_settings::RegistryValueText(HKEY_CURRENT_USER, kInternetSettings, "EnableAutodial").c_str()) +
                    ::StrToIntA(vn_settings::RegistryValueText(HKEY_CURRENT_USER, kInternetSettings, "NoNetAutodial").c_str());
    const char* word = "DialNever";
    mode = DialNever;
    if (sum == 1) {
        mode = DialAlways;
        word = "DialAlways";
    } else if (sum == 2) {
        mode = DialRequired;
        word = "DialRequired";
    }
    TraceLine("Info about method [%s]. IE Settings [Ras Mode]: %s", "CVnSessionConnection::GetIEDialMode", word);
    return S_OK;
}

HRESULT CVnSessionConnection::GetIEDefConnection(std::string& entry)
{
    static const char kMethod[] = "CVnSessionConnection::GetIEDefConnection";
    entry.clear();
    std::vector<std::string> entries;
    CVnLinkhostConnectionManager().GetConnections(entries);
    if (entries.empty())
        return S_OK;

    OSVERSIONINFOEXA version;
    if (!PlatformVersion(version)) {
        LogLine(vn_log::kErrorDec, kMethod, "GetVersionEx failed.", static_cast<int>(::GetLastError()));
        return E_FAIL;
    }
    std::string name;
    TDefaultEntryPlace place = DefaultEntryPlace(version);
    if (place.key)
        name = vn_settings::RegistryValueText(HKEY_CURRENT_USER, place.key, place.value);
    TraceLine("Info about method [%s]. IE Settings [Ras DefaultConnection]: %s, May be you don't have such connection",
              kMethod, name.c_str());

    // A name left behind by a deleted entry is not used.
    for (const std::string& known : entries) {
        if (known == name) {
            entry = name;
            break;
        }
    }
    return S_OK;
}

std::string CVnSessionConnection::GetIEProxy(const std::string& key)
{
    vn_settings::TSystemProxySettings system;
    DWORD error = 0;
    if (!vn_settings::QuerySystemProxySettings(system, error)) {
        LogLine(vn_log::kErrorDec, "CVnSessionConnection::GetIEProxy", "InternetQueryOption failed.", static_cast<int>(error));
        return std::string();
    }
    return vn_settings::SystemProxyKeyText(system, key);
}

std::string CVnSessionConnection::GetIEDialUp(const std::string& key)
{
    if (key == "ie/dialup/mode") {
        int mode = DialNever;
        GetIEDialMode(mode);
        if (mode == DialRequired)
            return "required";
        if (mode == DialAlways)
            return "always";
        return "never";
    }
    if (key == "ie/dialup/dialConnectionName") {
        std::string entry;
        if (FAILED(GetIEDefConnection(entry)))
            return std::string();
        return entry;
    }
    return std::string();
}

namespace {

// The network test as a status: 0 with the platform's flags when the
// network is alive, VN_E_NOT_CONNECTED when it is down, VN_E_NOT_AVAILABLE
// without the library.
HRESULT AskNetwork(DWORD& flags)
{
    switch (vn_network::AskNetworkAlive(flags)) {
    case vn_network::TNetworkAnswer::NotAvailable:
        return VN_E_NOT_AVAILABLE;
    case vn_network::TNetworkAnswer::Down:
        return VN_E_NOT_CONNECTED;
    case vn_network::TNetworkAnswer::Alive:
        break;
    }
    return S_OK;
}

}  // namespace

HRESULT CVnSessionConnection::NetworkTest()
{
    DWORD flags = 0;
    const HRESULT hr = AskNetwork(flags);
    if (hr != S_OK)
        return hr;
    // A wide link alone is a connection that somebody else dialled; it is
    // treated like our own: no proxy.
    if ((flags & vn_network::kNetworkAliveWan) && !(flags & vn_network::kNetworkAliveLan))
        CVnConnectionState::getInstance()->m_DirectDial = 1;
    return S_OK;
}

HRESULT CVnSessionConnection::IsDialUpActive()
{
    DWORD flags = 0;
    const HRESULT hr = AskNetwork(flags);
    if (hr != S_OK)
        return hr;
    return (flags & vn_network::kNetworkAliveWan) ? S_OK : S_FALSE;
}

HRESULT CVnSessionConnection::_dialDefault(const CConfigData& workData, HWND hwndClient)
{
    const bool bInteractive = (workData.m_SessionFlags & 1) != 0;
    HRESULT status = CVnLinkhostConnectionManager().Connect(workData.m_DefaultConnection, hwndClient, bInteractive, false);
    if (status == S_OK) {
        CVnConnectionState* state = CVnConnectionState::getInstance();
        state->m_DirectDial = 1;
        state->m_strEntry = workData.m_DefaultConnection;
        state->m_bDialed = true;
    }
    return status;
}

HRESULT CVnSessionConnection::CheckConnection(const CConfigData& workData, HWND hwndClient)
{
    CVnConnectionState::getInstance()->m_DirectDial = 0;
    HRESULT result = E_FAIL;

    if (workData.m_DialMode == DialAlways) {
        if (!workData.m_DefaultConnection.empty()) {
            result = _dialDefault(workData, hwndClient);
            if (result == S_OK)
                return S_OK;
        }
        if (result == VN_E_DIAL_CANCELLED)
            return result;
        result = NetworkTest();
        if (FAILED(result))
            return result;
    }

    result = NetworkTest();
    if (result != VN_E_NOT_CONNECTED || workData.m_DialMode != DialRequired)
        return result;

    // DialRequired, and the network is down.
    if (!workData.m_DefaultConnection.empty()) {
        result = _dialDefault(workData, hwndClient);
        if (result == S_OK)
            return S_OK;
    }
    return FAILED(result) ? result : VN_E_NOT_CONNECTED;
}
