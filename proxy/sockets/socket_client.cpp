// CSocketClient and CSocketSelect: the rest of the family, used by the
// tunnel's direct path alone or by nobody.
#include "proxy/sockets/sockets.h"

#include <cstring>

CSocketClient::CSocketClient(const std::string& host, unsigned short port)
{
    const hostent* entry = ::gethostbyname(host.c_str());
    if (!entry || !entry->h_addr_list || !entry->h_addr_list[0])
        throw static_cast<int>(::WSAGetLastError());
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(port);
    std::memcpy(&address.sin_addr, entry->h_addr_list[0], sizeof address.sin_addr);
    if (::connect(GetSocket(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw static_cast<int>(::WSAGetLastError());
}

CSocketSelect::CSocketSelect(const CSocket* s1, const CSocket* s2, DWORD mode)
{
    FD_ZERO(&m_fds);
    if (s1)
        FD_SET(s1->GetSocket(), &m_fds);
    if (s2)
        FD_SET(s2->GetSocket(), &m_fds);
    timeval brief = {0, 1};
    if (::select(0, &m_fds, nullptr, nullptr, mode == 1 ? &brief : nullptr) == SOCKET_ERROR)
        throw "Error in select";
}

bool CSocketSelect::Readable(const CSocket& s) const
{
    return __WSAFDIsSet(s.GetSocket(), const_cast<fd_set*>(&m_fds)) != 0;
}
