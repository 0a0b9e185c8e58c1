// CSocket: the handle, its sharing between copies, and the socket library's
// start and stop by instance count.
#include "proxy/sockets/sockets.h"

#include <cstring>
#include <new>

#include "host/log.h"

std::atomic<unsigned> g_socketInstances{0};

void CSocket::Start()
{
    if (g_socketInstances == 0) {
        WSADATA data;
        if (::WSAStartup(0x0202, &data) != 0)
            throw "Could not start WSA";
    }
    ++g_socketInstances;
}

void CSocket::End() { ::WSACleanup(); }

CSocket::CSocket()
{
    Start();
    const SOCKET s = ::socket(AF_INET, SOCK_STREAM, 0);
    if (s == INVALID_SOCKET) {
        // No object comes of it, so its share of the library goes again.
        if (g_socketInstances.fetch_sub(1) == 1)
            End();
        throw "INVALID_SOCKET";
    }
    m_spSocket = std::make_shared<vfc::TSocket>(s);
}

CSocket::CSocket(SOCKET s) : m_spSocket(std::make_shared<vfc::TSocket>(s)) { Start(); }

CSocket::CSocket(const CSocket& other) : m_spSocket(other.m_spSocket) { ++g_socketInstances; }

CSocket& CSocket::operator=(const CSocket& other)
{
    // The number of objects stays; the left side's own handle goes with its
    // last holder like any other.
    m_spSocket = other.m_spSocket;
    return *this;
}

CSocket::~CSocket()
{
    m_spSocket.reset();
    if (g_socketInstances.fetch_sub(1) == 1)
        End();
}

void CSocket::Close()
{
    if (m_spSocket)
        m_spSocket->reset();
}

SOCKET CSocket::GetSocket() const
{
    if (g_socketInstances == 0 || !m_spSocket)
        return 0;
    return m_spSocket->get();
}

void CSocket::_replaceHandle(SOCKET s)
{
    m_spSocket->detach();
    m_spSocket->reset(s);
}

void CSocket::ReceiveBytes(std::unique_ptr<char[]>& buffer, DWORD& size)
{
    buffer.reset();
    size = 0;
    DWORD total = 0;
    const SOCKET s = GetSocket();
    for (;;) {
        u_long count = 0;
        if (::ioctlsocket(s, FIONREAD, &count) != 0 || count == 0)
            return;
        std::unique_ptr<char[]> grown(new char[count + total]);
        if (total != 0)
            std::memcpy(grown.get(), buffer.get(), total);
        buffer = std::move(grown);
        const int got = ::recv(s, buffer.get() + total, static_cast<int>(count), 0);
        if (got < 1)
            return;
        total += static_cast<DWORD>(got);
        size = total;
    }
}

std::string CSocket::ReceiveLine()
{
    std::string line;
    for (;;) {
        char c = 0;
        const int got = ::recv(GetSocket(), &c, 1, 0);
        if (got == SOCKET_ERROR && ::WSAGetLastError() == WSAEWOULDBLOCK)
            return line;
        if (got < 1)
            return std::string();
        line += c;
        if (c == '\n')
            return line;
    }
}

int CSocket::SendLine(std::string line)
{
    line += '\n';
    return ::send(GetSocket(), line.data(), static_cast<int>(line.size()), 0);
}

void CSocket::SendBytes(const std::string& text)
{
    ::send(GetSocket(), text.data(), static_cast<int>(text.size()), 0);
}

int CSocket::SendBytes(const char* buffer, int len) { return ::send(GetSocket(), buffer, len, 0); }

int CSocket::Receive(char* buffer, int len) { return ::recv(GetSocket(), buffer, len, 0); }

HRESULT CatchSocketErrors(const char* method, const std::function<void()>& make) noexcept
{
    try {
        make();
        return S_OK;
    } catch (const char* text) {
        LogLine(vn_log::kError, method, text);
    } catch (int code) {
        LogLine(vn_log::kErrorDec, method, "Socket error.", code);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return E_FAIL;
}
