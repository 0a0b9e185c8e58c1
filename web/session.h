// CVnWebSession: one client of the system, its process, its window, and the
// connection settings worked out for it when it came. Requests, proxies and
// tunnels made from it each get a copy of what it knows.
#pragma once

#include <memory>

#include "host/counters.h"
#include "settings/config_data.h"
#include "settings/session_connection.h"
#include "vfc/com_object.h"
#include "vfc/dispatch.h"
#include "vnlinkhost.h"
#include "web/process_monitor.h"

class CVnWebSession : public vfc::TComObject<CVnWebSession, vfc::TDispatchImpl<IVnWebSession>> {
public:
    CVnWebSession();
    HRESULT FinalConstruct();
    void FinalRelease();

    // Settles the session's settings once: the working record from the root
    // object's record, then the check that may dial.
    HRESULT SetParams(const CConfigData& configuration, DWORD processId, HWND hWnd, LONG flags);

    // IVnWebSession
    STDMETHODIMP get_ProcessHandle(LONG* processId) override;
    STDMETHODIMP get_WindowHandle(LONG* hWnd) override;
    STDMETHODIMP CreateWebRequest(BSTR url, BSTR method, IVnWebRequest** object) override;
    STDMETHODIMP CreateProxy(IVnWebProxy** object) override;
    STDMETHODIMP CreateTunnel(BSTR remoteHost, LONG remotePort, IVnWebTunnel** object) override;

    const CConfigData& WorkData() const { return *m_pWorkData; }

private:
    std::unique_ptr<CConfigData> m_pWorkData;  // cdAWorkData
    CVnSessionConnection m_sessionConnection;
    VnProcessMonitor m_monitor;
    HWND m_hWnd = nullptr;
    TLiveObject<kLiveSessions> m_live;
};
