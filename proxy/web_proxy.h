// CVnWebProxy: an HTTP proxy on the loopback address, made by a session. Each
// request that arrives is carried out by the web request pipeline with the
// session's settings.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <memory>
#include <vector>

#include "proxy/object_manager.h"
#include "proxy/proxy_server_socket.h"
#include "proxy/proxy_socket.h"
#include "proxy/thread_proxy_manager.h"
#include "settings/config_data.h"
#include "vfc/bstr.h"
#include "vfc/com_object.h"
#include "vfc/critical_section.h"
#include "vfc/dispatch.h"
#include "vfc/thread.h"
#include "vnlinkhost.h"

// Owns the listening socket, the client connections, one listener thread and
// a pool of workers. The listener thread waits on one array of events (the
// listener's at index 0, then one for each connection), accepts, and turns
// each read or write event into a job for a worker. A wait takes at most 64
// events, so at most 63 connections are accepted; a further client waits in
// the backlog until one of them has gone.
//
// Threads: the session's caller (creation, Init, the getters, FinalRelease),
// the listener thread, and the workers, which touch only their connection.
// m_sockets and m_events change only on the listener thread, or after it has
// ended, under m_socketsLock.
class CVnWebProxy : public vfc::TComObject<CVnWebProxy, vfc::TDispatchImpl<IVnWebProxy>>, public CVnObjectManager {
public:
    // Binds and listens already, so the port is there before Init; throws
    // what the socket layer throws (see CreateInstance).
    CVnWebProxy();
    // Creates a proxy with one reference for the caller; a failure of the
    // socket layer is logged and gives E_FAIL.
    static HRESULT CreateInstance(vfc::TComPtr<CVnWebProxy>& proxy) noexcept;
    void FinalRelease();

    // Copies the session's settings, keeps its window and starts the thread.
    HRESULT Init(const CConfigData& configData, HWND hWindow);
    // E_FAIL for a flag of 0, a thread that already runs, or none started.
    HRESULT StartThread(int start);
    static unsigned __stdcall StartProxy(void* param);

    // IVnWebProxy
    STDMETHODIMP get_LocalHost(BSTR* localHost) override;
    STDMETHODIMP get_LocalPort(LONG* localPort) override;

private:
    HRESULT _run();
    // Accepts a waiting client while fewer than 63 are connected.
    void _acceptClient(const VnProcessMonitor& monitor);
    void _onSocketEvent(size_t index, const VnProcessMonitor& monitor);
    void AddSocket(std::unique_ptr<CVnProxySocket> socket);
    void RemoveProxySocket(CVnProxySocket*& socket);
    CVnProxySocket* GetSocketAt(size_t index);
    void RebuildEvents();

    vfc::TBstr m_bstrLocalHost;
    LONG m_localPort = 0;
    std::unique_ptr<CVnProxyServerSocket> m_pServerSocket;
    std::unique_ptr<CConfigData> m_pConfigData;
    HWND m_hWindow = nullptr;
    vfc::TThreadT<true, vfc::TCRTThreadTraits> m_proxyThread;
    std::vector<std::unique_ptr<CVnProxySocket>> m_sockets;  // in order of acceptance
    vfc::TCriticalSection m_socketsLock;
    std::vector<WSAEVENT> m_events;
    CVnThreadProxyManager m_threadManager;
    // An accept was held back at the limit: the next client that goes makes room.
    bool m_bAcceptDeferred = false;
};
