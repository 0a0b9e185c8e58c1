#include "tunnel/wininet_tunnel.h"

#include <algorithm>

#include "host/log.h"
#include "tunnel/tunnel_manager.h"

namespace {

const char* const kPairMethod = "CVnTunnelSocket::tor";
const char* const kTransferSource = "TM:Lnk";
const char* const kTunnelDtor = "~CVnLinkhostWinInetTunnel";

// Each side of a pair reports what it can read, what it can take again after
// a send that would have blocked, and its close.
constexpr long kPairEvents = FD_READ | FD_WRITE | FD_CLOSE;

// The pump reads a side in pieces into one buffer, and at most a few pieces
// in one pass, so that a busy pair lets the others have their turn: it is
// read again at once when more is there.
constexpr int kPiece = 256 * 1024;
constexpr DWORD kPassBudget = 4 * kPiece;

// Pairs are served by the one pump thread alone, so one buffer does.
char* PumpBuffer()
{
    static char* buffer = new char[kPiece];
    return buffer;
}

// Sends from `data` on; `sent` tells how far it got. 1 when the socket took
// everything, 0 when it would block, -1 when it failed.
int SendSome(CSocket& to, const char* data, size_t size, size_t& sent)
{
    sent = 0;
    while (sent < size) {
        const int n = to.SendBytes(data + sent, static_cast<int>(std::min<size_t>(size - sent, kPiece)));
        if (n == SOCKET_ERROR)
            return ::WSAGetLastError() == WSAEWOULDBLOCK ? 0 : -1;
        sent += static_cast<size_t>(n);
    }
    return 1;
}

}  // namespace

CVnTunnelSocket::CVnTunnelSocket(std::unique_ptr<CSocket> client, const CVnTunnelParams& params, BYTE interactive)
    : m_pClientSocket(std::move(client)), m_params(params)
{
    LONG code = 0;
    try {
        code = m_connect.Connect(m_params);
    } catch (int error) {
        code = error;
    } catch (const char* text) {
        LogLine(vn_log::kError, kPairMethod, text);
        code = -1;
    }
    if (code != 0) {
        LogLine(vn_log::kErrorDec, kPairMethod, "INTERNET CONNECTION ERROR", static_cast<int>(code));
        return;
    }
    if (!m_connect.GetRemoteSocket()) {
        LogLine(vn_log::kError, kPairMethod, "The internet client handed out no socket.");
        return;
    }
    m_connect.SetInteractive(interactive);
    CVnIdGenerator* ids = CVnIdGenerator::getInstance();
    m_clientEventId = ids->GetNext();
    m_remoteEventId = ids->GetNext();
    m_hRemoteEvent.reset(::WSACreateEvent());
    ::WSAEventSelect(m_connect.GetRemoteSocket()->GetSocket(), m_hRemoteEvent.get(), kPairEvents);
    m_hClientEvent.reset(::WSACreateEvent());
    ::WSAEventSelect(m_pClientSocket->GetSocket(), m_hClientEvent.get(), kPairEvents);
}

CVnTunnelSocket::~CVnTunnelSocket()
{
    LogLine(vn_log::kInfo, "CVnTunnelSocket::~CVnTunnelSocket", "TunnelSocket destroying");
    m_hRemoteEvent.reset();
    m_hClientEvent.reset();
    m_pClientSocket.reset();
    m_connect.Disconnect();
    LogLine(vn_log::kInfo, "CVnTunnelSocket::~CVnTunnelSocket", "TunnelSocket has been destroyed");
}

void CVnTunnelSocket::HandOverEvents(std::vector<vfc::TWsaEvent>& to)
{
    for (vfc::TWsaEvent* event : {&m_hClientEvent, &m_hRemoteEvent})
        if (event->valid())
            to.emplace_back(event->detach());
}

CSocket* CVnTunnelSocket::GetSocket(int side) const
{
    return side == TunnelSideClient ? m_pClientSocket.get() : m_connect.GetRemoteSocket();
}

bool CVnTunnelSocket::OnNetworkEvents(int side)
{
    const WSANETWORKEVENTS& events = NetworkEvents(side);
    const int other = 1 - side;
    if ((events.lNetworkEvents & FD_WRITE) && _isWaiting(other)) {
        // The peer's bytes held back for this side can go now; the peer was
        // not read meanwhile, so what it sent since is read here.
        if (_flush(other))
            _pass(other, false);
    }
    if (events.lNetworkEvents & FD_READ)
        Transfer(side);
    if (events.lNetworkEvents & FD_CLOSE) {
        m_bClosed[side] = true;
        // What the side sent before its close still goes to the other side,
        // unless the connection was reset.
        if (events.iErrorCode[FD_CLOSE_BIT] != 0)
            m_bBroken = true;
        else
            _pass(side, true);
    }
    return m_bBroken || (m_bClosed[0] && !_isWaiting(0)) || (m_bClosed[1] && !_isWaiting(1));
}

bool CVnTunnelSocket::Transfer(int side)
{
    // While the other side has not taken the last piece, this side waits:
    // its read event comes again once it is read.
    if (_isWaiting(side))
        return true;
    if (_pass(side, false) == 0) {
        LogLine(vn_log::kError, kTransferSource, "Empty buffer. Continue");
        return false;
    }
    return !m_bBroken;
}

DWORD CVnTunnelSocket::_pass(int side, bool whole)
{
    CSocket* from = GetSocket(side);
    char* buffer = PumpBuffer();
    DWORD total = 0;
    while (!m_bBroken && (whole || (total < kPassBudget && !_isWaiting(side)))) {
        // A would-block, the close or a failure ends the reading; the
        // events tell the close and the failure.
        const int got = from->Receive(buffer, kPiece);
        if (got <= 0)
            break;
        _forward(side, buffer, static_cast<size_t>(got));
        total += static_cast<DWORD>(got);
    }
    return total;
}

void CVnTunnelSocket::_forward(int side, const char* data, size_t size)
{
    if (_isWaiting(side)) {
        m_waiting[side].append(data, size);
        return;
    }
    size_t sent = 0;
    const int outcome = SendSome(*GetSocket(1 - side), data, size, sent);
    if (outcome == 0) {
        m_waiting[side].assign(data + sent, size - sent);
        m_waitingFrom[side] = 0;
    } else if (outcome < 0) {
        LogLine(vn_log::kError, kTransferSource, "Socket ERROR");
        m_bBroken = true;
    }
}

bool CVnTunnelSocket::_flush(int side)
{
    std::string& waiting = m_waiting[side];
    size_t sent = 0;
    const int outcome = SendSome(*GetSocket(1 - side), waiting.data() + m_waitingFrom[side],
                                 waiting.size() - m_waitingFrom[side], sent);
    m_waitingFrom[side] += sent;
    if (outcome < 0) {
        LogLine(vn_log::kError, kTransferSource, "Socket ERROR");
        m_bBroken = true;
    }
    if (outcome <= 0)
        return false;
    waiting.clear();
    m_waitingFrom[side] = 0;
    return true;
}

CVnLinkhostWinInetTunnel::CVnLinkhostWinInetTunnel() : m_strLocalHost("127.0.0.1")
{
    m_pServerSocket.reset(new CSocketServer(0, 0x7FFFFFFF, 1));
    m_localPort = m_pServerSocket->GetPort();
    if (m_localPort != 0)
        m_flags |= kLocalKnown;
    m_hServerEvent.reset(::WSACreateEvent());
    ::WSAEventSelect(m_pServerSocket->GetSocket(), m_hServerEvent.get(), FD_ACCEPT);
}

CVnLinkhostWinInetTunnel::~CVnLinkhostWinInetTunnel()
{
    // The whole teardown holds the manager's lifetime lock, so the manager
    // can't go while this tunnel still hands it events.
    vfc::TLock life(CVnLinkhostTunnelManagerEx::Lifetime());
    LogLine(vn_log::kInfo, kTunnelDtor, "WinInetSocket destroing (Before GetInstance()) ....");
    CVnLinkhostTunnelManagerEx* manager = CVnLinkhostTunnelManagerEx::Existing();
    LogLine(vn_log::kInfo, kTunnelDtor, "WinInetSocket destroing (After GetInstance()) ....");
    if (manager) {
        manager->GetStorage()->Remove(this);
        LogLine(vn_log::kInfo, kTunnelDtor, "Self removed from queue");
    }
    std::vector<vfc::TWsaEvent> events;
    {
        // The pump may be handling an event of this tunnel; it finishes first.
        vfc::TLock own(m_hMutex);
        events.emplace_back(m_hServerEvent.detach());
        for (const auto& pair : m_sockets)
            pair->HandOverEvents(events);
        m_pServerSocket.reset();
        LogLine(vn_log::kInfo, kTunnelDtor, "Server socket removed");
        m_sockets.clear();
        LogLine(vn_log::kInfo, kTunnelDtor, "Clear TunnelSockets queue");
    }
    if (manager) {
        manager->GetStorage()->Retire(events);
        manager->NotifiyTunnelRemoved();
    }
    LogLine(vn_log::kInfo, kTunnelDtor, "WinInetSocket destroyed");
}

LONG CVnLinkhostWinInetTunnel::Connect(const CVnTunnelParams& params)
{
    m_params = params;
    m_flags |= kRemoteKnown;
    return 0;
}

LONG CVnLinkhostWinInetTunnel::Start()
{
    if ((m_flags & (kRemoteKnown | kLocalKnown)) == 0)
        return -1;
    vfc::TLock life(CVnLinkhostTunnelManagerEx::Lifetime());
    CVnLinkhostTunnelManagerEx* manager = CVnLinkhostTunnelManagerEx::GetInstance();
    LogLine(vn_log::kInfo, "Start", "Before added tunnel socket to queue");
    m_serverEventId = CVnIdGenerator::getInstance()->GetNext();
    const bool idle = manager->GetStorage()->Add(this);
    LogLine(vn_log::kInfo, "Start", "After added tunnel socket to queue");
    if (!idle)
        return 0;
    LogLine(vn_log::kInfo, "Start", "Start WORKED THREAD");
    return manager->StartThread() ? 0 : -1;
}

bool CVnLinkhostWinInetTunnel::AcceptClient()
{
    std::unique_ptr<CSocket> client;
    try {
        client = m_pServerSocket->Accept();
    } catch (const char* text) {
        LogLine(vn_log::kError, "CVnLinkhostWinInetTunnel::AcceptClient", text);
    }
    if (!client)
        return false;
    std::unique_ptr<CVnTunnelSocket> pair(new CVnTunnelSocket(std::move(client), m_params, m_bInteractive));
    // A client without a remote side is let go: its connection closes.
    if (!pair->IsConnected())
        return false;
    m_sockets.push_back(std::move(pair));
    return true;
}

bool CVnLinkhostWinInetTunnel::DeleteSocket(CVnTunnelSocket* socket)
{
    auto it = std::find_if(m_sockets.begin(), m_sockets.end(), [socket](const auto& pair) { return pair.get() == socket; });
    if (it == m_sockets.end())
        return false;
    m_sockets.erase(it);
    return true;
}
