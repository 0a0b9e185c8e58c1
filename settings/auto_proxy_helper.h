// Fetches a proxy script with the system's own web request, forced direct
// so that the download can't ask for the proxy that it is there to find.
#pragma once

#include <windows.h>

#include <string>

#include "web/process_monitor.h"

class CVnAutoProxyHelper {
public:
    // With bForce the script goes straight to `destination`; without, the
    // process's cache file "VnLinkhost.tmp" is filled once and copied there.
    // 0, 1 when nothing came (or the copy failed), or a failure status.
    static HRESULT URLDownloadToFileEx(const std::string& url, const std::string& destination,
                                       VnProcessMonitor& monitor, bool bForce);
};

// The script engine's host functions (is resolvable, own address, resolve,
// is in net), for the platform's script library.
struct AutoProxyHelperFunctions;
AutoProxyHelperFunctions* ScriptHostFunctions();
