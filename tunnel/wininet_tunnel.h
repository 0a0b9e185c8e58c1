// The local end of a tunnel and its connections. A CVnLinkhostWinInetTunnel
// listens on 127.0.0.1; each client it accepts becomes a CVnTunnelSocket, the
// pair of that client's socket and the remote socket of a CWinInetConnect.
// The one pump thread of the process (tunnel_manager.h) moves their bytes.
//
// Threads: a tunnel is made, started and destroyed on its client's threads;
// everything else, accepting and connecting included, runs on the pump
// thread with the tunnel's lock held. A pair belongs to its tunnel and is
// only touched under that lock.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "proxy/sockets/sockets.h"
#include "tunnel/wininet_connect.h"
#include "vfc/critical_section.h"
#include "vfc/unique_resource.h"

// Sides of a pair; the listener's events count as a third.
enum VnTunnelSide { TunnelSideClient = 0, TunnelSideRemote = 1, TunnelSideListener = 2 };

class CVnTunnelSocket {
public:
    // Takes over the accepted client and connects the remote side, which
    // blocks the calling thread for the whole handshake. A pair whose connect
    // failed has no events; IsConnected tells.
    CVnTunnelSocket(std::unique_ptr<CSocket> client, const CVnTunnelParams& params, BYTE interactive);
    ~CVnTunnelSocket();
    CVnTunnelSocket(const CVnTunnelSocket&) = delete;
    CVnTunnelSocket& operator=(const CVnTunnelSocket&) = delete;

    bool IsConnected() const { return m_hClientEvent.valid(); }
    CSocket* GetSocket(int side) const;
    WSAEVENT GetEvent(int side) const { return side == TunnelSideClient ? m_hClientEvent.get() : m_hRemoteEvent.get(); }
    unsigned GetEventId(int side) const { return side == TunnelSideClient ? m_clientEventId : m_remoteEventId; }
    // Where the pump puts what WSAEnumNetworkEvents found on a side.
    WSANETWORKEVENTS& NetworkEvents(int side)
    {
        return side == TunnelSideClient ? m_clientNetworkEvents : m_remoteNetworkEvents;
    }
    // Gives up the two events without closing them: the pump may still wait
    // on them, and closes them itself when it builds its next array.
    void HandOverEvents(std::vector<vfc::TWsaEvent>& to);

    // Handles the network events recorded for `side`: what it may write now,
    // what it has to read, its close (after which what it still had is read
    // whole). True when the pair is done: a side has
    // closed and all it had sent has reached the other side, or a side broke.
    bool OnNetworkEvents(int side);
    // Reads what `side` has and sends it to the other side. What the other
    // side can't take now waits in this pair, and `side` is not read again
    // until it has gone. False when nothing was read or a send failed.
    bool Transfer(int side);

private:
    // Reads `side` and forwards what came; the number of bytes read. Stops
    // when nothing more is there, or (unless `whole`) when the other side
    // can't take more or the pass has read its share.
    DWORD _pass(int side, bool whole);
    // Sends what `side` read to the other side, after whatever still waits.
    void _forward(int side, const char* data, size_t size);
    // Sends what waits from `side`; true when nothing waits any more.
    bool _flush(int side);
    bool _isWaiting(int side) const { return m_waitingFrom[side] < m_waiting[side].size(); }

    std::unique_ptr<CSocket> m_pClientSocket;
    WSANETWORKEVENTS m_clientNetworkEvents = {}, m_remoteNetworkEvents = {};
    vfc::TWsaEvent m_hRemoteEvent, m_hClientEvent;
    unsigned m_clientEventId = 0, m_remoteEventId = 0;
    CWinInetConnect m_connect;
    CVnTunnelParams m_params;
    // Bytes read from a side that the other side has not taken yet, from
    // m_waitingFrom on; indexed by the side they came from.
    std::string m_waiting[2];
    size_t m_waitingFrom[2] = {0, 0};
    bool m_bClosed[2] = {false, false};
    bool m_bBroken = false;
};

class CVnLinkhostWinInetTunnel {
public:
    // Listens at once, so the local port is known before anything else.
    // Throws what CSocketServer throws.
    CVnLinkhostWinInetTunnel();
    // Leaves the pump's storage, waits for the pump to let go of this tunnel,
    // closes the listener and every pair, and ends the pump thread and the
    // manager when it was the last tunnel.
    ~CVnLinkhostWinInetTunnel();
    CVnLinkhostWinInetTunnel(const CVnLinkhostWinInetTunnel&) = delete;
    CVnLinkhostWinInetTunnel& operator=(const CVnLinkhostWinInetTunnel&) = delete;

    void SetInteractive(BYTE interactive) { m_bInteractive = interactive; }
    // Keeps where each connection goes; the remote side is known from now on.
    LONG Connect(const CVnTunnelParams& params);
    // Hands the tunnel to the pump, starting its thread if none runs. -1 when
    // neither the remote side nor the local port is known.
    LONG Start();
    // On the pump thread: accepts one client and connects it. A client whose
    // connect failed is let go again, which closes its connection.
    bool AcceptClient();
    // On the pump thread: destroys a pair of this tunnel; false if it has none such.
    bool DeleteSocket(CVnTunnelSocket* socket);

    void Lock() { m_hMutex.Enter(); }
    void Unlock() { m_hMutex.Leave(); }

    // "127.0.0.1" and the port, or null and -1 while the port is not known.
    const char* GetLocalHost() const { return (m_flags & kLocalKnown) ? m_strLocalHost.c_str() : nullptr; }
    LONG GetLocalPort() const { return (m_flags & kLocalKnown) ? m_localPort : -1; }
    // The remote host and port once Connect has run, else null and -1.
    const char* GetRemoteHost() const { return (m_flags & kRemoteKnown) ? m_params.strRemoteHost.c_str() : nullptr; }
    LONG GetRemotePort() const { return (m_flags & kRemoteKnown) ? m_params.remotePort : -1; }

    // For the pump, under this tunnel's lock or the storage's.
    CSocketServer* GetServerSocket() const { return m_pServerSocket.get(); }
    WSAEVENT GetServerEvent() const { return m_hServerEvent.get(); }
    unsigned GetServerEventId() const { return m_serverEventId; }
    std::vector<std::unique_ptr<CVnTunnelSocket>>& Sockets() { return m_sockets; }

private:
    static constexpr DWORD kRemoteKnown = 1, kLocalKnown = 2;

    DWORD m_flags = 0;
    vfc::TCriticalSection m_hMutex;
    std::string m_strLocalHost;
    LONG m_localPort = 0;
    std::unique_ptr<CSocketServer> m_pServerSocket;
    vfc::TWsaEvent m_hServerEvent;
    unsigned m_serverEventId = 0;
    CVnTunnelParams m_params;
    std::vector<std::unique_ptr<CVnTunnelSocket>> m_sockets;
    BYTE m_bInteractive = 0;
};
