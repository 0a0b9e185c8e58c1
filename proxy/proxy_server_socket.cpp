#include "proxy/proxy_server_socket.h"

#include "host/log.h"

CVnProxyServerSocket::CVnProxyServerSocket()
    : m_pSocket(new CSocketServer(0, 0x7FFFFFFF, 0)),
      m_port(m_pSocket->GetPort() & 0xFFFF),
      m_hEvent(::WSACreateEvent())
{
    ::WSAEventSelect(m_pSocket->GetSocket(), m_hEvent.get(), FD_ACCEPT | FD_CLOSE);
}

CVnProxyServerSocket::~CVnProxyServerSocket()
{
    Stop();
    m_pSocket.reset();
    m_hEvent.reset();
}

void CVnProxyServerSocket::Stop()
{
    m_bStopping = true;
    // A new registration also clears the events recorded so far.
    ::WSAEventSelect(m_pSocket->GetSocket(), m_hEvent.get(), FD_CLOSE);
    ::WSASetEvent(m_hEvent.get());
}

int CVnProxyServerSocket::GetEventStatus()
{
    if (::WSAEnumNetworkEvents(m_pSocket->GetSocket(), m_hEvent.get(), &m_networkEvents) == SOCKET_ERROR)
        LogLine(vn_log::kErrorDec, "CVnProxyServerSocket::GetEventStatus", "Event error.",
                static_cast<int>(::WSAGetLastError()));
    if (m_networkEvents.lNetworkEvents == 0) {
        LogLine(vn_log::kInfo, "CVnProxyServerSocket::GetEventStatus", "lNetworkEvents == 0");
        return 0;
    }
    if ((m_networkEvents.lNetworkEvents & FD_ACCEPT) && m_networkEvents.iErrorCode[FD_ACCEPT_BIT] == 0)
        return FD_ACCEPT;
    if ((m_networkEvents.lNetworkEvents & FD_CLOSE) && m_networkEvents.iErrorCode[FD_CLOSE_BIT] == 0)
        return FD_CLOSE;
    LogLine(vn_log::kInfo, "CVnProxyServerSocket::GetEventStatus", "Event == 0");
    return 0;
}

HRESULT CVnProxyServerSocket::Accept(std::unique_ptr<CSocket>& socket)
{
    socket.reset();
    try {
        socket = m_pSocket->Accept();
    } catch (const char*) {
        // A failed accept leaves the listener usable.
    }
    if (!socket || socket->GetSocket() == INVALID_SOCKET) {
        LogLine(vn_log::kError, "CVnProxyServerSocket::Accept", "Invalid socket.");
        socket.reset();
        return E_FAIL;
    }
    return S_OK;
}
