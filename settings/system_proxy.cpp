#include "settings/system_proxy.h"

#include <shlwapi.h>
#include <wininet.h>

namespace vn_settings {

namespace {

const char kLocal[] = "<local>";
constexpr size_t kLocalLength = sizeof kLocal - 1;

// Takes over a text that the platform allocated for the caller.
void TakeText(LPSTR text, bool& present, std::string& target)
{
    present = text != nullptr;
    target = present ? text : "";
    if (text)
        ::GlobalFree(text);
}

const char* Bool(bool value) { return value ? "true" : "false"; }

std::string WithoutLocal(std::string bypass)
{
    size_t at = bypass.find(kLocal);
    if (at != std::string::npos)
        bypass.erase(at, kLocalLength);
    return bypass;
}

}  // namespace

bool QuerySystemProxySettings(TSystemProxySettings& settings, DWORD& error)
{
    INTERNET_PER_CONN_OPTIONA options[5] = {};
    options[0].dwOption = INTERNET_PER_CONN_AUTOCONFIG_URL;
    options[1].dwOption = INTERNET_PER_CONN_AUTODISCOVERY_FLAGS;
    options[2].dwOption = INTERNET_PER_CONN_FLAGS;
    options[3].dwOption = INTERNET_PER_CONN_PROXY_BYPASS;
    options[4].dwOption = INTERNET_PER_CONN_PROXY_SERVER;

    INTERNET_PER_CONN_OPTION_LISTA list = {};
    list.dwSize = sizeof list;
    list.pszConnection = nullptr;  // the LAN settings
    list.dwOptionCount = 5;
    list.pOptions = options;
    DWORD size = sizeof list;
    if (!::InternetQueryOptionA(nullptr, INTERNET_OPTION_PER_CONNECTION_OPTION, &list, &size)) {
        error = ::GetLastError();
        return false;
    }
    error = 0;
    settings = TSystemProxySettings();
    TakeText(options[0].Value.pszValue, settings.m_bHasScript, settings.m_strScript);
    settings.m_dwDiscoveryFlags = options[1].Value.dwValue;
    settings.m_dwFlags = options[2].Value.dwValue;
    TakeText(options[3].Value.pszValue, settings.m_bHasBypass, settings.m_strBypass);
    TakeText(options[4].Value.pszValue, settings.m_bHasServer, settings.m_strServer);
    return true;
}

void ApplySystemProxySettings(const TSystemProxySettings& settings, CConfigData& data)
{
    // One mode only, in this order: the fallbacks a browser would try after
    // a failed script or detection are not tried by this system.
    data.m_ProxyMode = ProxyNone;
    if (settings.m_dwFlags & kProxyTypeManual)
        data.m_ProxyMode = ProxyManual;
    else if (settings.m_dwFlags & kProxyTypeScript)
        data.m_ProxyMode = ProxyScript;
    else if (settings.m_dwFlags & kProxyTypeAuto)
        data.m_ProxyMode = ProxyAuto;

    data.m_ProxyScript = settings.m_bHasScript ? settings.m_strScript : std::string();

    if (settings.m_bHasBypass) {
        data.m_ProxyNoLocal = settings.m_strBypass.find(kLocal) != std::string::npos;
        data.m_ProxyExclude = WithoutLocal(settings.m_strBypass);
    } else {
        data.m_ProxyNoLocal = false;
        data.m_ProxyExclude.clear();
    }

    // A per-scheme list is not taken apart: it goes through the same cut.
    if (settings.m_bHasServer) {
        data.m_ProxyAddress = settings.m_strServer;
        size_t colon = data.m_ProxyAddress.find(':');
        if (colon != std::string::npos) {
            data.m_ProxyPort = ::StrToIntA(data.m_ProxyAddress.c_str() + colon + 1);
            data.m_ProxyAddress.erase(colon);
        }
    } else {
        data.m_ProxyAddress.clear();
        data.m_ProxyPort = 0;
    }
}

std::string SystemProxyKeyText(const TSystemProxySettings& settings, const std::string& key)
{
    if (key == "ie/proxy/mode-auto")
        return Bool(settings.m_dwFlags & kProxyTypeAuto);
    if (key == "ie/proxy/mode-script")
        return Bool(settings.m_dwFlags & kProxyTypeScript);
    if (key == "ie/proxy/mode-manual")
        return Bool(settings.m_dwFlags & kProxyTypeManual);
    if (key == "ie/proxy/script")
        return settings.m_bHasScript ? settings.m_strScript : std::string();
    if (key == "ie/proxy/exclude")
        return settings.m_bHasBypass ? WithoutLocal(settings.m_strBypass) : std::string();
    if (key == "ie/proxy/noLocal") {
        if (!settings.m_bHasBypass)
            return std::string();
        return Bool(settings.m_strBypass.find(kLocal) != std::string::npos);
    }
    if (key == "ie/proxy/address" || key == "ie/proxy/port") {
        if (!settings.m_bHasServer)
            return std::string();
        size_t colon = settings.m_strServer.find(':');
        if (colon == std::string::npos)
            return settings.m_strServer;  // for the port too: then it is the host
        return key == "ie/proxy/address" ? settings.m_strServer.substr(0, colon) : settings.m_strServer.substr(colon + 1);
    }
    return std::string();
}

}  // namespace vn_settings
