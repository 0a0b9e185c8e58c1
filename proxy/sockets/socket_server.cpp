// CSocketServer: a listener on the loopback address.
#include "proxy/sockets/sockets.h"

CSocketServer::CSocketServer(unsigned short port, int backlog, int nonBlocking)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(port);
    address.sin_addr.s_addr = ::inet_addr("127.0.0.1");
    // The listener is a second handle; the one that the base made stays open
    // beside it for the life of the process, one for each listener.
    const SOCKET s = ::socket(AF_INET, SOCK_STREAM, 0);
    if (s == INVALID_SOCKET)
        throw "INVALID_SOCKET";
    _replaceHandle(s);
    if (nonBlocking == 1) {
        u_long on = 1;
        ::ioctlsocket(s, FIONBIO, &on);
    }
    if (::bind(s, reinterpret_cast<const sockaddr*>(&address), sizeof address) == SOCKET_ERROR) {
        Close();
        throw "INVALID_SOCKET";
    }
    ::listen(s, backlog);
}

std::unique_ptr<CSocket> CSocketServer::Accept()
{
    const SOCKET s = ::accept(GetSocket(), nullptr, nullptr);
    if (s == INVALID_SOCKET) {
        if (::WSAGetLastError() == WSAEWOULDBLOCK)
            return nullptr;
        throw "Invalid Socket";
    }
    return std::unique_ptr<CSocket>(new CSocket(s));
}

unsigned short CSocketServer::GetPort() const
{
    sockaddr_in address = {};
    int length = sizeof address;
    if (::getsockname(GetSocket(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return 0;
    return ::ntohs(address.sin_port);
}
