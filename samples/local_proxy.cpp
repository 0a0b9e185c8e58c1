// Runs a local HTTP proxy through VnLinkhost, for programs that cannot use
// the component themselves: point their proxy setting at the address printed,
// and their requests go out the way VnLinkhost reaches the internet.
//
//   local_proxy [--set KEY=VALUE]...
//
// --set changes a configuration key of the running server first (see the
// keys of GetConfigurationValue), e.g. --set proxy/mode=0 for direct
// connections; sessions made afterwards take the change.
//
// Prints "LocalHost: <host>" and "LocalPort: <port>", then holds the proxy
// until a line "stop" or the end of its input. The exit code is 0 when the
// proxy still answered at the end, else the failing status.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "sample_support.h"
#include "vnlinkhost.h"

using namespace vn_sample;

int main(int argc, char** argv)
{
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    IVnLinkhost* host = nullptr;
    IVnWebSession* session = nullptr;
    IVnWebProxy* proxy = nullptr;
    HRESULT hr = CoCreateInstance(CLSID_VnLinkhostObject, nullptr, CLSCTX_LOCAL_SERVER, IID_IVnLinkhost,
                                  reinterpret_cast<void**>(&host));
    if (FAILED(hr))
        return Fail("CoCreateInstance", hr);
    for (int i = 1; i < argc && SUCCEEDED(hr); ++i) {
        if (std::strcmp(argv[i], "--set") == 0 && i + 1 < argc && FAILED(hr = SetKey(host, argv[++i])))
            Fail(argv[i], hr);
    }
    if (SUCCEEDED(hr))
        hr = host->CreateSession(static_cast<LONG>(GetCurrentProcessId()), 0, 0, &session);
    if (SUCCEEDED(hr))
        hr = session->CreateProxy(&proxy);
    BSTR localHost = nullptr;
    LONG port = 0;
    if (SUCCEEDED(hr))
        hr = proxy->get_LocalHost(&localHost);
    if (SUCCEEDED(hr))
        hr = proxy->get_LocalPort(&port);
    if (SUCCEEDED(hr)) {
        std::printf("LocalHost: %ls\nLocalPort: %ld\n", localHost, static_cast<long>(port));
        std::fflush(stdout);
        WaitForStop();
        // The server still serves this proxy.
        LONG again = 0;
        hr = proxy->get_LocalPort(&again);
        if (SUCCEEDED(hr) && again != port)
            hr = E_UNEXPECTED;
    }
    if (FAILED(hr))
        Fail("Proxy", hr);
    SysFreeString(localHost);
    if (proxy)
        proxy->Release();
    if (session)
        session->Release();
    host->Release();
    CoUninitialize();
    return SUCCEEDED(hr) ? 0 : hr;
}
