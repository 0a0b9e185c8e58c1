// CVnProxyServerSocket: the local proxy's listener with what its thread needs
// besides CSocketServer: the event registration and the reading of its status.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <memory>

#include "proxy/sockets/sockets.h"
#include "vfc/unique_resource.h"

class CVnProxyServerSocket {
public:
    // Listens on 127.0.0.1 at a port that the system picks, for accepts and
    // the close. Throws what CSocketServer throws.
    CVnProxyServerSocket();
    ~CVnProxyServerSocket();
    CVnProxyServerSocket(const CVnProxyServerSocket&) = delete;
    CVnProxyServerSocket& operator=(const CVnProxyServerSocket&) = delete;

    // FD_ACCEPT, FD_CLOSE, or 0 when no network event is there (what the
    // destroying proxy's wake-up looks like) or one came with an error.
    int GetEventStatus();
    // The connection, or E_FAIL (logged) when none could be accepted.
    HRESULT Accept(std::unique_ptr<CSocket>& socket);
    // Leaves only the close registered and wakes the listener thread, which
    // then finds no network event and ends.
    void Stop();
    // Whether Stop was called: only then does a wake-up without a network
    // event mean the end.
    bool IsStopping() const { return m_bStopping; }
    WSAEVENT GetEvent() const { return m_hEvent.get(); }
    unsigned short GetPort() const { return static_cast<unsigned short>(m_port); }
    SOCKET GetSocket() const { return m_pSocket->GetSocket(); }

private:
    std::unique_ptr<CSocketServer> m_pSocket;
    DWORD m_port;
    vfc::TWsaEvent m_hEvent;
    WSANETWORKEVENTS m_networkEvents = {};
    std::atomic<bool> m_bStopping{false};
};
