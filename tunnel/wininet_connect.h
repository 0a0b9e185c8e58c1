// CWinInetConnect: the remote side of one tunnel connection. Through a proxy,
// the platform's internet client sends CONNECT, the proxy's login challenge is
// answered from the stored logins (or the user), and once the proxy has said
// 200 the raw socket under the request is taken over; without a proxy it is a
// plain TCP connection.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <wininet.h>

#include <memory>
#include <string>

#include "proxy/sockets/sockets.h"
#include "vfc/unique_resource.h"

// What a tunnel gives each of its connections.
struct CVnTunnelParams {
    std::string strProxy;           // the proxy to use; empty for a direct connection
    std::string strUser;            // always empty
    std::string strProxyBypassArg;  // always empty: the bypass list InternetOpenA gets
    std::string strProxyBypass;     // the bypass list of the proxy decision; nothing reads it
    std::string strRemoteHost;
    LONG remotePort = 0;
    HWND hWindow = nullptr;  // owner of a login dialog
};

// Lives inside one tunnel connection and is used by the pump thread alone.
class CWinInetConnect {
public:
    CWinInetConnect() = default;
    ~CWinInetConnect() { Disconnect(); }
    CWinInetConnect(const CWinInetConnect&) = delete;
    CWinInetConnect& operator=(const CWinInetConnect&) = delete;

    // Blocks for the whole handshake, a login dialog included. 0 when the
    // proxy said 200 (GetRemoteSocket may still be null if the platform handed
    // out no socket); a platform error of the step that failed; -1 for any
    // other status, including a login the proxy kept refusing. On the direct
    // path it throws what CSocketClient throws.
    LONG Connect(const CVnTunnelParams& params);
    // Whether a login may be asked for. The tunnel sets it only after a
    // successful Connect, so Connect itself always runs as interactive.
    void SetInteractive(BYTE interactive) { m_bInteractive = interactive; }

    CSocket* GetRemoteSocket() const { return (m_flags & kConnected) ? m_pRemoteSocket.get() : nullptr; }
    const char* GetRemoteHost() const { return (m_flags & kConnected) ? m_strRemoteHost.c_str() : nullptr; }
    LONG GetRemotePort() const { return (m_flags & kConnected) ? m_remotePort : -1; }

    // Closes the internet client's handles, which the socket belonged to,
    // and then the socket.
    void Disconnect();

private:
    static constexpr DWORD kConnected = 1;

    LONG _initonnection(const CVnTunnelParams& params);
    LONG CheckStatus(DWORD& code);
    LONG SaveSocket();

    DWORD m_flags = 0;
    vfc::TInternetHandle m_hInternet, m_hConnect, m_hRequest;
    DWORD m_sourcePort = 0, m_destPort = 0;
    std::unique_ptr<CSocket> m_pRemoteSocket;
    std::string m_strRemoteHost;
    LONG m_remotePort = 0;
    BYTE m_bInteractive = 1;
};
