// Prints the network events of VnLinkhost as they come: the timer monitor's
// changes of the local (type 1) and the wide (type 2) network, the SENS
// monitor's connections made and lost, and the WMI monitor's status of the
// whole machine. Status 1 is up, 0 is down.
//
//   network_events [SECONDS]
//
// Listens for SECONDS, or until Enter is pressed when none are given, then
// unregisters its sinks. The exit code is 0, or the failing status.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>

#include "vnlinkhost.h"

// One object that is all three sinks. The server calls it on threads of the
// multithreaded apartment while main waits. It lives as long as main, so its
// count only keeps COM's books.
class NetworkEvents : public IVnLinkhostNetworkEventSink,
                      public IVnLinkhostSensEventSink,
                      public IVnLinkhostWMINetworkEventSink {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        if (iid == IID_IUnknown || iid == IID_IVnLinkhostNetworkEventSink)
            *ppv = static_cast<IVnLinkhostNetworkEventSink*>(this);
        else if (iid == IID_IVnLinkhostSensEventSink)
            *ppv = static_cast<IVnLinkhostSensEventSink*>(this);
        else if (iid == IID_IVnLinkhostWMINetworkEventSink)
            *ppv = static_cast<IVnLinkhostWMINetworkEventSink*>(this);
        else
            return *ppv = nullptr, E_NOINTERFACE;
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }

    // The timer monitor.
    STDMETHODIMP NetworkStatusChanged(ULONG status, ULONG type) override
    {
        return Print("timer: status %lu, type %lu\n", status, type);
    }
    // The SENS monitor: the platform's name of the connection and its type.
    STDMETHODIMP NetworkStatusChanged(ULONG status, BSTR connection, ULONG type) override
    {
        return Print("sens: status %lu, connection \"%ls\", type %lu\n", status, connection ? connection : L"", type);
    }
    // The WMI monitor.
    STDMETHODIMP NetworkStatusChanged(ULONG status) override { return Print("wmi: status %lu\n", status); }

private:
    template <typename... Args>
    static HRESULT Print(const char* format, Args... args)
    {
        std::printf(format, args...);
        std::fflush(stdout);
        return S_OK;
    }
};

int main(int argc, char** argv)
{
    HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(hr))
        return hr;
    IVnLinkhost* host = nullptr;
    hr = CoCreateInstance(CLSID_VnLinkhostObject, nullptr, CLSCTX_LOCAL_SERVER, IID_IVnLinkhost,
                          reinterpret_cast<void**>(&host));
    if (SUCCEEDED(hr)) {
        NetworkEvents sink;
        hr = host->RegisterNetworkEventSink(&sink);
        if (SUCCEEDED(hr))
            hr = host->RegisterSensEventSink(&sink);
        if (SUCCEEDED(hr))
            hr = host->RegisterWMINetworkEventSink(&sink);
        if (SUCCEEDED(hr)) {
            VARIANT_BOOL alive = VARIANT_FALSE;
            host->CheckNetworkAlive(&alive);
            std::printf("Listening; the network is %s now.\n", alive ? "alive" : "down");
            std::fflush(stdout);
            if (argc > 1)
                Sleep(std::strtoul(argv[1], nullptr, 10) * 1000);
            else
                std::getchar();
        }
        // Until the sinks are unregistered, the server keeps calling them.
        host->UnRegisterNetworkEventSink(&sink);
        host->UnRegisterSensEventSink(&sink);
        host->UnRegisterWMINetworkEventSink(&sink);
        host->Release();
    } else {
        std::fprintf(stderr, "CoCreateInstance failed: 0x%08lX\n", static_cast<unsigned long>(hr));
    }
    CoUninitialize();
    return SUCCEEDED(hr) ? 0 : hr;
}
