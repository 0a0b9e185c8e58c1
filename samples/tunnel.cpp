// Opens a tunnel through VnLinkhost: a port on 127.0.0.1 whose connections
// lead to HOST:PORT the way VnLinkhost reaches the internet (through the
// proxy the settings give for HOST). Point a program that speaks any TCP
// protocol at the local port printed.
//
//   tunnel [--set KEY=VALUE]... HOST PORT
//
// --set changes a configuration key of the running server first (see the
// keys of GetConfigurationValue); sessions made afterwards take the change.
// With proxy/mode=0 no proxy decision is made and the port listens without
// leading anywhere (CreateTunnel gives 1).
//
// Prints "Result: <status of CreateTunnel>", "LocalHost: <host>", "LocalPort:
// <port>", "RemoteHost: <host>" and "RemotePort: <port>", then holds the
// tunnel until a line "stop" or the end of its input. The exit code is 0 when
// the tunnel still answered at the end, else the failing status.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sample_support.h"
#include "vnlinkhost.h"

namespace {

using namespace vn_sample;

// Prints what the tunnel says of its two ends.
HRESULT PrintEnds(IVnWebTunnel* tunnel, LONG& localPort)
{
    BSTR localHost = nullptr, remoteHost = nullptr;
    LONG remotePort = 0;
    HRESULT hr = tunnel->get_LocalHost(&localHost);
    if (SUCCEEDED(hr))
        hr = tunnel->get_LocalPort(&localPort);
    if (SUCCEEDED(hr))
        hr = tunnel->get_remoteHost(&remoteHost);
    if (SUCCEEDED(hr))
        hr = tunnel->get_remotePort(&remotePort);
    if (SUCCEEDED(hr))
        std::printf("LocalHost: %ls\nLocalPort: %ld\nRemoteHost: %ls\nRemotePort: %ld\n", localHost ? localHost : L"",
                    static_cast<long>(localPort), remoteHost ? remoteHost : L"", static_cast<long>(remotePort));
    std::fflush(stdout);
    SysFreeString(localHost);
    SysFreeString(remoteHost);
    return hr;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: tunnel [--set KEY=VALUE]... HOST PORT\n");
        return 2;
    }
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    IVnLinkhost* host = nullptr;
    IVnWebSession* session = nullptr;
    IVnWebTunnel* tunnel = nullptr;
    HRESULT hr = CoCreateInstance(CLSID_VnLinkhostObject, nullptr, CLSCTX_LOCAL_SERVER, IID_IVnLinkhost,
                                  reinterpret_cast<void**>(&host));
    if (FAILED(hr))
        return Fail("CoCreateInstance", hr);
    for (int i = 1; i < argc - 2 && SUCCEEDED(hr); ++i) {
        if (std::strcmp(argv[i], "--set") == 0 && i + 1 < argc - 2 && FAILED(hr = SetKey(host, argv[++i])))
            Fail(argv[i], hr);
    }
    if (SUCCEEDED(hr))
        hr = host->CreateSession(static_cast<LONG>(GetCurrentProcessId()), 0, 0, &session);
    BSTR remote = Text(argv[argc - 2]);
    if (SUCCEEDED(hr)) {
        // 1 is no failure: the tunnel exists but leads nowhere.
        hr = session->CreateTunnel(remote, std::atol(argv[argc - 1]), &tunnel);
        std::printf("Result: %ld\n", static_cast<long>(hr));
    }
    SysFreeString(remote);
    LONG port = 0;
    if (SUCCEEDED(hr))
        hr = PrintEnds(tunnel, port);
    if (SUCCEEDED(hr)) {
        WaitForStop();
        // The server still holds this tunnel.
        LONG again = 0;
        hr = tunnel->get_LocalPort(&again);
        if (SUCCEEDED(hr) && again != port)
            hr = E_UNEXPECTED;
    }
    if (FAILED(hr))
        Fail("Tunnel", hr);
    if (tunnel)
        tunnel->Release();
    if (session)
        session->Release();
    host->Release();
    CoUninitialize();
    return SUCCEEDED(hr) ? 0 : hr;
}
