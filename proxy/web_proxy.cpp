#include "proxy/web_proxy.h"

#include <new>

#include "host/log.h"

namespace {

const char* const kSource = "WebProxy";
const char* const kThreadMethod = "CVnWebProxy::StartProxy";

int AddressOf(const void* object) { return static_cast<int>(reinterpret_cast<INT_PTR>(object)); }

}  // namespace

CVnWebProxy::CVnWebProxy() : m_bstrLocalHost(L"127.0.0.1"), m_pConfigData(new CConfigData)
{
    m_pServerSocket.reset(new CVnProxyServerSocket);
    m_localPort = m_pServerSocket->GetPort();
    m_events.assign(1, m_pServerSocket->GetEvent());
    // The clients that fit in one wait beside the listener.
    m_threadManager.SetMaxThreads(63);
}

HRESULT CVnWebProxy::CreateInstance(vfc::TComPtr<CVnWebProxy>& proxy) noexcept
{
    return CatchSocketErrors("CVnWebProxy::CVnWebProxy", [&] { proxy = vfc::TComPtr<CVnWebProxy>(new CVnWebProxy); });
}

HRESULT CVnWebProxy::Init(const CConfigData& configData, HWND hWindow)
{
    *m_pConfigData = configData;
    m_hWindow = hWindow;
    return StartThread(1);
}

HRESULT CVnWebProxy::StartThread(int start)
{
    if (start == 0 || m_proxyThread.GetHandle())
        return E_FAIL;
    return m_proxyThread.Create(StartProxy, this) ? S_OK : E_FAIL;
}

STDMETHODIMP CVnWebProxy::get_LocalHost(BSTR* localHost)
{
    if (!localHost)
        return E_POINTER;
    *localHost = ::SysAllocStringLen(m_bstrLocalHost.get(), m_bstrLocalHost.length());
    return S_OK;
}

STDMETHODIMP CVnWebProxy::get_LocalPort(LONG* localPort)
{
    if (!localPort)
        return E_POINTER;
    *localPort = m_localPort;
    return S_OK;
}

unsigned __stdcall CVnWebProxy::StartProxy(void* param)
{
    // Nothing thrown leaves the thread: a heap that ran out ends the listener
    // as an event error would.
    try {
        return static_cast<unsigned>(static_cast<CVnWebProxy*>(param)->_run());
    } catch (...) {
        LogLine(vn_log::kError, kThreadMethod, "Event error.");
        return static_cast<unsigned>(E_FAIL);
    }
}

HRESULT CVnWebProxy::_run()
{
    VnProcessMonitor monitor(::GetCurrentProcessId());
    TraceLine(vn_log::kInfoStatus, kSource, "Enter proxy thread.", static_cast<int>(::GetCurrentThreadId()));
    HRESULT result = S_OK;
    for (;;) {
        const DWORD count = static_cast<DWORD>(m_sockets.size());
        const DWORD index = ::WSAWaitForMultipleEvents(count + 1, m_events.data(), FALSE, WSA_INFINITE, FALSE);
        if (index == WSA_WAIT_FAILED) {
            LogLine(vn_log::kError, kThreadMethod, "Event error.");
            result = E_FAIL;
            break;
        }
        if (index == WSA_WAIT_TIMEOUT)
            continue;
        if (index - WSA_WAIT_EVENT_0 != 0) {
            _onSocketEvent(index - WSA_WAIT_EVENT_0 - 1, monitor);
            continue;
        }
        const int status = m_pServerSocket->GetEventStatus();
        if (status == FD_ACCEPT) {
            _acceptClient(monitor);
            continue;
        }
        // An accepted socket shares the listener's event registration until
        // its connection object gives it its own: a client that left before
        // that signals this event with nothing recorded on the listener.
        // Only the destructor's wake-up ends the thread.
        if (status == 0 && !m_pServerSocket->IsStopping())
            continue;
        TraceLine(vn_log::kInfo, kSource, " Socket Events Were Closed From Destructor");
        break;
    }
    TraceLine(vn_log::kInfoStatus, kSource, "Exit proxy thread.", static_cast<int>(::GetCurrentThreadId()));
    return result;
}

void CVnWebProxy::_acceptClient(const VnProcessMonitor& monitor)
{
    if (m_sockets.size() + 1 >= 64) {
        // Not accepted and not refused: the client waits in the backlog.
        LogLine(vn_log::kInfo, kSource, "Count of sockets will be > 64");
        m_bAcceptDeferred = true;
        return;
    }
    std::unique_ptr<CSocket> client;
    if (FAILED(m_pServerSocket->Accept(client)))
        return;
    std::unique_ptr<CVnProxySocket> socket;
    try {
        socket.reset(new CVnProxySocket(std::move(client), m_pConfigData.get(), m_hWindow, monitor));
    } catch (const std::bad_alloc&) {
        LogLine(vn_log::kError, kThreadMethod, "CVnProxySocket constructor failed.");
        return;
    }
    if (socket->HasLeft())
        return;
    TraceLine(vn_log::kInfoStatus, kSource, "Socket Was Created", AddressOf(socket.get()));
    AddSocket(std::move(socket));
    RebuildEvents();
}

void CVnWebProxy::_onSocketEvent(size_t index, const VnProcessMonitor& monitor)
{
    CVnProxySocket* socket = GetSocketAt(index);
    if (!socket) {
        LogLine(vn_log::kError, kThreadMethod, "Incorrect CVnProxySocket object.");
        return;
    }
    switch (socket->GetReadEventStatus()) {
    case FD_READ:
        TraceLine(vn_log::kInfoStatus, kSource, "ProxySocket Read", AddressOf(socket));
        m_threadManager.ExecuteSocket(socket);
        break;
    case FD_WRITE:
        TraceLine(vn_log::kInfoStatus, kSource, "ProxySocket Write", AddressOf(socket));
        m_threadManager.ExecuteSocket(socket);
        break;
    case FD_CLOSE:
        TraceLine(vn_log::kInfoStatus, kSource, "ProxySocket Close", AddressOf(socket));
        // Waits for a job of this connection that still runs.
        m_threadManager.RemoveSocket(socket);
        RemoveProxySocket(socket);
        TraceLine(vn_log::kInfo, kSource, "Socket Was Removed");
        RebuildEvents();
        // The listener's accept event is not raised again for a client that
        // was left in the backlog, so the room made here is offered now.
        if (m_bAcceptDeferred) {
            m_bAcceptDeferred = false;
            _acceptClient(monitor);
        }
        break;
    default:
        break;
    }
}

void CVnWebProxy::AddSocket(std::unique_ptr<CVnProxySocket> socket)
{
    vfc::TLock lock(m_socketsLock);
    m_sockets.push_back(std::move(socket));
}

void CVnWebProxy::RemoveProxySocket(CVnProxySocket*& socket)
{
    vfc::TLock lock(m_socketsLock);
    for (auto it = m_sockets.begin(); it != m_sockets.end(); ++it) {
        if (it->get() == socket) {
            m_sockets.erase(it);  // destroys the connection, under the lock
            socket = nullptr;
            return;
        }
    }
}

CVnProxySocket* CVnWebProxy::GetSocketAt(size_t index)
{
    // No lock: the vector changes only on this thread.
    return index < m_sockets.size() ? m_sockets[index].get() : nullptr;
}

void CVnWebProxy::RebuildEvents()
{
    vfc::TLock lock(m_socketsLock);
    m_events.clear();
    m_events.push_back(m_pServerSocket->GetEvent());
    for (const auto& socket : m_sockets)
        m_events.push_back(socket->GetEvent());
}

void CVnWebProxy::FinalRelease()
{
    LogLine(vn_log::kInfo, kSource, " WebProxy Destructor is started");
    // A response that streams is finished first.
    m_threadManager.WaitAll(INFINITE);
    {
        vfc::TLock lock(m_socketsLock);
        for (const auto& socket : m_sockets)
            socket->SetTerminate(true);
    }
    if (m_pServerSocket)
        m_pServerSocket->Stop();
    if (m_proxyThread.GetHandle()) {
        if (!m_proxyThread.WaitFor(INFINITE))
            LogLine(vn_log::kError, "CVnWebProxy::FinalRelease", "WAIT_TIMEOUT");
        m_proxyThread.Close();
    }
    // Jobs that the listener handed out after the first wait.
    m_threadManager.WaitAll(INFINITE);
    while (!m_sockets.empty()) {
        std::unique_ptr<CVnProxySocket> socket = std::move(m_sockets.front());
        m_sockets.erase(m_sockets.begin());
    }
    m_events.clear();
    m_pServerSocket.reset();
    m_pConfigData.reset();
    LogLine(vn_log::kInfo, kSource, " WebProxy Destructor is finished");
}
