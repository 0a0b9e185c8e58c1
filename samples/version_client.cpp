// The smallest client of VnLinkhost: creates the root object in the server
// process, asks for its version and prints it.
//
//   version_client [--hold MS] [--check-shutdown]
//
// --hold keeps the root object for MS milliseconds before releasing it;
// --check-shutdown tells the server to end as soon as its last client goes.
// The exit code is 0, or the failing status.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vnlinkhost.h"

int main(int argc, char** argv)
{
    DWORD holdMs = 0;
    bool checkShutdown = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--hold") == 0 && i + 1 < argc)
            holdMs = std::strtoul(argv[++i], nullptr, 10);
        else if (std::strcmp(argv[i], "--check-shutdown") == 0)
            checkShutdown = true;
    }

    HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(hr))
        return hr;
    IVnLinkhost* host = nullptr;
    hr = CoCreateInstance(CLSID_VnLinkhostObject, nullptr, CLSCTX_LOCAL_SERVER, IID_IVnLinkhost,
                          reinterpret_cast<void**>(&host));
    if (SUCCEEDED(hr)) {
        VARIANT query, version;
        VariantInit(&query);
        VariantInit(&version);
        query.vt = VT_BSTR;
        query.bstrVal = SysAllocString(L"Version");
        hr = host->GetInfo(query, &version);
        if (SUCCEEDED(hr) && version.vt == VT_BSTR)
            std::printf("VnLinkhost version %ls\n", version.bstrVal);
        std::fflush(stdout);
        VariantClear(&query);
        VariantClear(&version);
        if (SUCCEEDED(hr) && checkShutdown) {
            VARIANT_BOOL inUse = VARIANT_FALSE;
            hr = host->CheckShutdown(&inUse);
        }
        Sleep(holdMs);
        host->Release();
    } else {
        std::fprintf(stderr, "CoCreateInstance failed: 0x%08lX\n", static_cast<unsigned long>(hr));
    }
    CoUninitialize();
    return SUCCEEDED(hr) ? 0 : hr;
}
