// The two proxy modes that run a proxy script through the platform's script
// library: automatic detection (WPAD) and a configured script.
#include "settings/proxy_config_helper.h"

#include <wininet.h>

#include <vector>

#include "host/log.h"
#include "host/platform_seams.h"
#include "host/status.h"
#include "settings/auto_proxy_helper.h"
#include "vfc/unique_resource.h"

namespace {

constexpr DWORD kUrlBuffer = 2084;

// JSPROXY.DLL, loaded for one call, and its three functions.
class TScriptEngine {
public:
    explicit TScriptEngine(const char* method) : m_method(method)
    {
        m_dll.reset(::LoadLibraryA("JSPROXY.DLL"));
        if (m_dll) {
            m_init = reinterpret_cast<pfnInternetInitializeAutoProxyDll>(
                ::GetProcAddress(m_dll.get(), "InternetInitializeAutoProxyDll"));
            m_deinit = reinterpret_cast<pfnInternetDeInitializeAutoProxyDll>(
                ::GetProcAddress(m_dll.get(), "InternetDeInitializeAutoProxyDll"));
            m_getInfo = reinterpret_cast<pfnInternetGetProxyInfo>(::GetProcAddress(m_dll.get(), "InternetGetProxyInfo"));
        }
    }
    ~TScriptEngine()
    {
        if (m_initialised)
            DeInit();
    }
    bool Loaded() const { return m_init && m_deinit && m_getInfo; }
    bool Init(const std::string& file)
    {
        m_initialised = m_init(0, const_cast<LPSTR>(file.c_str()), nullptr, ScriptHostFunctions(), nullptr) != FALSE;
        return m_initialised;
    }
    bool DeInit()
    {
        m_initialised = false;
        if (m_deinit(nullptr, 0))
            return true;
        LogLine(vn_log::kError, m_method, "InternetDeInitializeAutoProxyDll failed.");
        return false;
    }
    // The script's answer for the URL; false when the engine refused.
    bool Ask(const std::string& url, const std::string& host, std::string& answer)
    {
        std::vector<char> buffer(kUrlBuffer, '\0');
        LPSTR out = buffer.data();
        DWORD length = kUrlBuffer;
        if (!m_getInfo(url.c_str(), static_cast<DWORD>(url.size()), const_cast<LPSTR>(host.c_str()),
                       static_cast<DWORD>(host.size()), &out, &length))
            return false;
        answer.assign(out ? out : "");
        if (out && out != buffer.data())
            ::GlobalFree(out);
        return true;
    }

private:
    const char* m_method;
    vfc::TModule m_dll;
    pfnInternetInitializeAutoProxyDll m_init = nullptr;
    pfnInternetDeInitializeAutoProxyDll m_deinit = nullptr;
    pfnInternetGetProxyInfo m_getInfo = nullptr;
    bool m_initialised = false;
};

// A new empty file in the temporary folder.
std::string MakeTempFile()
{
    char folder[MAX_PATH] = {}, file[MAX_PATH] = {};
    ::GetTempPathA(MAX_PATH, folder);
    ::GetTempFileNameA(folder, "", 0, file);
    return file;
}

// Asks the initialised engine and reads its answer. A failing engine leaves
// the status at hand, which is success: the caller gets what the proxy text held.
HRESULT AskEngine(TScriptEngine& engine, const char* method, const std::string& url, std::string& proxy)
{
    std::string host;
    HRESULT hr = CVnProxyConfigHelper::GetHostByUrl(url, host);
    if (hr != S_OK) {
        LogLine(vn_log::kError, method, "GetHostByUrl failed.");
        return hr;
    }
    std::string answer;
    if (!engine.Ask(url, host, answer)) {
        LogLine(vn_log::kError, method, "InternetGetProxyInfo failed.");
        return hr;
    }
    hr = CVnProxyConfigHelper::GetProxyFromString(answer, proxy);
    if (hr != S_OK) {
        LogLine(vn_log::kError, method, "GetProxyFromString error.");
        return hr;
    }
    engine.DeInit();
    return S_OK;
}

const char* const kLoadFailure =
    "InternetInitializeAutoProxyDll or InternetDeInitializeAutoProxyDll or InternetGetProxyInfo initialization failed.";

}  // namespace

HRESULT CVnProxyConfigHelper::GetProxyAuto(std::string& proxy, VnProcessMonitor& monitor, const std::string& url)
{
    const char* const method = "CVnProxyConfigHelper::GetProxyAuto";
    TScriptEngine engine(method);
    if (!engine.Loaded()) {
        LogLine(vn_log::kError, method, kLoadFailure);
        return VN_E_NOT_AVAILABLE;
    }
    std::vector<char> location(kUrlBuffer, '\0');
    if (!PlatformSeams().DetectAutoProxyUrl(location.data(), kUrlBuffer, PROXY_AUTO_DETECT_TYPE_DHCP | PROXY_AUTO_DETECT_TYPE_DNS_A)) {
        LogLine(vn_log::kError, method, "WPAD Location is not found.");
        return VN_E_WPAD_NOT_FOUND;
    }
    const std::string script = MakeTempFile();
    if (CVnAutoProxyHelper::URLDownloadToFileEx(location.data(), script, monitor, false) != S_OK) {
        ::DeleteFileA(script.c_str());
        LogLine(vn_log::kError, method, "URLDownloadToFile failed.");
        return VN_E_SCRIPT_DOWNLOAD_FAILED;
    }
    if (!engine.Init(script)) {
        // The temporary file stays behind in this one case.
        LogLine(vn_log::kError, method, "InternetInitializeAutoProxyDll failed.");
        return VN_E_SCRIPT_INIT_FAILED;
    }
    ::DeleteFileA(script.c_str());
    return AskEngine(engine, method, url, proxy);
}

HRESULT CVnProxyConfigHelper::GetProxyJS(const CConfigData& record, std::string& proxy, const std::string& url,
                                         VnProcessMonitor& monitor)
{
    const char* const method = "CVnProxyConfigHelper::GetProxyJS";
    TScriptEngine engine(method);
    if (!engine.Loaded()) {
        LogLine(vn_log::kError, method, (std::string(kLoadFailure, 60) + (kLoadFailure + 60)).c_str());
        return VN_E_NOT_AVAILABLE;
    }
    std::string location = record.m_ProxyScript;
    if (location.find("http://") != std::string::npos || location.find("https://") != std::string::npos) {
        // A script of this mode is fetched anew for every request.
        const std::string script = MakeTempFile();
        if (CVnAutoProxyHelper::URLDownloadToFileEx(location, script, monitor, true) != S_OK) {
            ::DeleteFileA(script.c_str());
            LogLine(vn_log::kError, method, "URLDownloadToFile failed.");
            return VN_E_SCRIPT_DOWNLOAD_FAILED;
        }
        const bool initialised = engine.Init(script);
        ::DeleteFileA(script.c_str());
        if (!initialised) {
            LogLine(vn_log::kError, method, "InternetInitializeAutoProxyDll failed.");
            return VN_E_SCRIPT_INIT_FAILED;
        }
    } else {
        const size_t scheme = location.find("file://");
        if (scheme != std::string::npos)
            location.erase(scheme, 7);
        if (!engine.Init(location)) {
            LogLine(vn_log::kError, method, "InternetInitializeAutoProxyDll failed.");
            return VN_E_SCRIPT_INIT_FAILED;
        }
    }
    return AskEngine(engine, method, url, proxy);
}
