// Which proxy text and which bypass list go with one URL, under a session's
// working record. Static operations only.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <string>

#include "settings/config_data.h"
#include "web/process_monitor.h"

class CVnProxyConfigHelper {
public:
    // 0 with a proxy to use, 1 for a direct connection. A failure of
    // discovery is logged and also ends in 1: a request never fails for want
    // of a proxy.
    static HRESULT GetProxyAddress(const CConfigData& record, std::string& proxy, std::string& bypass,
                                   VnProcessMonitor& monitor, const std::string& url);
    static HRESULT GetProxyAuto(std::string& proxy, VnProcessMonitor& monitor, const std::string& url);
    static HRESULT GetProxyJS(const CConfigData& record, std::string& proxy, const std::string& url,
                              VnProcessMonitor& monitor);
    // Reads a script's answer: "PROXY " cut out at its first place (0), or
    // DIRECT (1), or neither (0x8004020D).
    static HRESULT GetProxyFromString(const std::string& answer, std::string& proxy);
    // Splits an HTTP or HTTPS URL; the query stays with the path.
    static HRESULT GetUrlParts(const std::string& url, std::string& host, std::string& path, INTERNET_PORT& port,
                               INTERNET_SCHEME& scheme);
    static HRESULT GetHostByUrl(const std::string& url, std::string& host);
};
