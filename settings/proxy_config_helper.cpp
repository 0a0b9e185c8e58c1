#include "settings/proxy_config_helper.h"

#include "host/log.h"
#include "host/status.h"
#include "settings/connection_state.h"
#include "settings/proxy_answer.h"

HRESULT CVnProxyConfigHelper::GetProxyAddress(const CConfigData& record, std::string& proxy, std::string& bypass,
                                              VnProcessMonitor& monitor, const std::string& url)
{
    // A connection over dial-up never uses a proxy, whatever the mode.
    if (CVnConnectionState::getInstance()->m_DirectDial == 1) {
        proxy.clear();
        bypass.clear();
        return S_FALSE;
    }
    HRESULT hr = S_OK;
    const char* failure = nullptr;
    switch (record.m_ProxyMode) {
    case ProxyNone:
        proxy.clear();
        bypass.clear();
        return S_FALSE;
    case ProxyManual:
        proxy = record.m_ProxyAddress + ":" + std::to_string(record.m_ProxyPort);
        bypass = record.m_ProxyExclude;
        return S_OK;
    case ProxyAuto:
        bypass.clear();
        hr = GetProxyAuto(proxy, monitor, url);
        failure = "GetProxyAuto failed.";
        break;
    case ProxyScript:
        bypass.clear();
        hr = GetProxyJS(record, proxy, url, monitor);
        failure = "GetProxyJS failed.";
        break;
    default:
        return S_FALSE;
    }
    if (hr == S_OK)
        return S_OK;
    LogLine(vn_log::kErrorHex, "CVnProxyConfigHelper::GetProxyAddress", failure, static_cast<unsigned>(hr));
    proxy.clear();
    return S_FALSE;
}

HRESULT CVnProxyConfigHelper::GetProxyFromString(const std::string& answer, std::string& proxy)
{
    switch (vn_proxy::ReadScriptAnswer(answer, proxy)) {
    case vn_proxy::TScriptAnswer::Proxy: return S_OK;
    case vn_proxy::TScriptAnswer::Direct: return S_FALSE;
    case vn_proxy::TScriptAnswer::Bad: break;
    }
    return VN_E_BAD_SCRIPT_ANSWER;
}

namespace {

// Whether the port written behind the host, if any, fits in 16 bits. The
// platform keeps the port in 16 bits and wraps a larger number, so that
// 84936 would reach port 19400: the digits are read here.
bool PortInRange(const std::string& url, const URL_COMPONENTSA& parts)
{
    if (!parts.lpszHostName || parts.lpszHostName < url.c_str() || parts.lpszHostName > url.c_str() + url.size())
        return true;
    size_t at = static_cast<size_t>(parts.lpszHostName - url.c_str()) + parts.dwHostNameLength;
    if (at < url.size() && url[at] == ']')
        ++at;
    if (at >= url.size() || url[at] != ':')
        return true;
    unsigned long port = 0;
    for (++at; at < url.size() && url[at] >= '0' && url[at] <= '9'; ++at) {
        port = port * 10 + static_cast<unsigned long>(url[at] - '0');
        if (port > 65535)
            return false;
    }
    return true;
}

}  // namespace

HRESULT CVnProxyConfigHelper::GetUrlParts(const std::string& url, std::string& host, std::string& path,
                                          INTERNET_PORT& port, INTERNET_SCHEME& scheme)
{
    const char* const method = "CVnProxyConfigHelper::GetUrlParts";
    host = url;
    path.clear();
    // The platform escapes blanks in a path but sends line ends as they
    // stand, so that one URL holding them would go out as two requests.
    if (url.find_first_of("\r\n") != std::string::npos) {
        LogLine(vn_log::kError, method, "URL holds a line break.");
        return VN_E_BAD_URL;
    }
    URL_COMPONENTSA parts = {};
    parts.dwStructSize = sizeof parts;
    // Non-zero lengths with null pointers ask for pointers into the URL.
    parts.dwSchemeLength = parts.dwHostNameLength = parts.dwUserNameLength = parts.dwPasswordLength =
        parts.dwUrlPathLength = parts.dwExtraInfoLength = 1;
    if (!::InternetCrackUrlA(url.c_str(), static_cast<DWORD>(::lstrlenA(url.c_str())), 0, &parts)) {
        LogLine(vn_log::kErrorDec, method, "InternetCrackUrl failed.",
                static_cast<int>(::GetLastError()));
        return VN_E_BAD_URL;
    }
    if (parts.nScheme != INTERNET_SCHEME_HTTP && parts.nScheme != INTERNET_SCHEME_HTTPS)
        return VN_E_BAD_URL;
    if (!PortInRange(url, parts)) {
        LogLine(vn_log::kError, method, "Port is out of range.");
        return VN_E_BAD_URL;
    }
    if (parts.lpszHostName && parts.dwHostNameLength)
        host.assign(parts.lpszHostName, parts.dwHostNameLength);
    port = parts.nPort;
    if (parts.lpszUrlPath && parts.dwUrlPathLength)
        path.assign(parts.lpszUrlPath, parts.dwUrlPathLength);
    if (parts.lpszExtraInfo && parts.dwExtraInfoLength)
        path.append(parts.lpszExtraInfo, parts.dwExtraInfoLength);
    scheme = parts.nScheme;
    return S_OK;
}

HRESULT CVnProxyConfigHelper::GetHostByUrl(const std::string& url, std::string& host)
{
    // An address without "http://" anywhere gets it in front, an "https://" one too.
    const std::string full = url.find("http://") == std::string::npos ? "http://" + url : url;
    std::string path;
    INTERNET_PORT port = 0;
    INTERNET_SCHEME scheme = INTERNET_SCHEME_HTTP;
    return GetUrlParts(full, host, path, port, scheme);
}
