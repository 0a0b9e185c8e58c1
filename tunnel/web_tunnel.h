// CVnWebTunnel: the object a client holds for a tunnel, made by a session. Its
// local end listens from construction on; Init asks the session's settings
// for the proxy of the remote host and hands the tunnel to the pump.
#pragma once

#include <memory>
#include <string>

#include "settings/config_data.h"
#include "tunnel/wininet_tunnel.h"
#include "vfc/com_object.h"
#include "vfc/dispatch.h"
#include "vnlinkhost.h"
#include "web/process_monitor.h"

// Threads: Init on the session's caller; the getters on any client thread;
// the pump works on the local end, never on this object. No lock of its own:
// after Init nothing here changes.
class CVnWebTunnel : public vfc::TComObject<CVnWebTunnel, vfc::TDispatchImpl<IVnWebTunnel>> {
public:
    // Listens already; throws what the socket layer throws (see CreateInstance).
    CVnWebTunnel();
    // Creates a tunnel with one reference for the caller; a failure of the
    // socket layer is logged and gives E_FAIL.
    static HRESULT CreateInstance(vfc::TComPtr<CVnWebTunnel>& tunnel) noexcept;

    // Keeps the session's settings, window and client, then Start. 1 when the
    // settings give no proxy decision for the host: the port listens, but
    // nothing is pumped.
    HRESULT Init(BSTR remoteHost, LONG remotePort, const CConfigData& configData, HWND hWindow,
                 const VnProcessMonitor& monitor);
    HRESULT Start(const std::string& remoteHost, LONG remotePort);

    // IVnWebTunnel
    STDMETHODIMP get_LocalHost(BSTR* localHost) override;
    STDMETHODIMP get_LocalPort(LONG* localPort) override;
    STDMETHODIMP get_remoteHost(BSTR* remoteHost) override;
    STDMETHODIMP get_remotePort(LONG* remotePort) override;

private:
    // Destroyed in reverse: the local end, whose teardown waits for the pump
    // to let go of it, before the record.
    std::unique_ptr<CConfigData> m_pConfigData;
    std::unique_ptr<CVnLinkhostWinInetTunnel> m_pTunnel;
    HWND m_hWindow = nullptr;
    VnProcessMonitor m_monitor;
};
