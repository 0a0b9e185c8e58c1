// The socket family of the local proxy and the tunnels: IPv4 stream sockets
// over Winsock, knowing nothing of HTTP. Failures are thrown, as a text
// (const char*) or as the platform's error number (int); the proxy and the
// tunnel catch them where they make their objects. Event registration is not
// here: its users call the platform on the handle that GetSocket gives.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "vfc/unique_resource.h"

// How many socket objects exist in the process. The first one starts the
// socket library and the last one stops it, so the library may start and stop
// many times in one run. Objects come and go on several threads (listeners,
// workers, client calls), hence the atomic count.
extern std::atomic<unsigned> g_socketInstances;

class CSocket {
public:
    // WSAStartup (version 2.2) when no socket object exists yet; throws
    // "Could not start WSA" and leaves the count as it was when that fails.
    static void Start();
    static void End();

    // A new stream socket; throws "INVALID_SOCKET".
    CSocket();
    // Takes over a handle that the caller had, such as an accepted one.
    explicit CSocket(SOCKET s);
    // Copies share the handle; it is closed when the last of them goes.
    CSocket(const CSocket& other);
    CSocket& operator=(const CSocket& other);
    virtual ~CSocket();

    // Closes the handle for every copy. Afterwards GetSocket gives
    // INVALID_SOCKET, which the platform refuses as no socket (10038): the
    // platform reuses a freed handle value at once, so the old value would
    // name another connection.
    void Close();
    // 0 when no socket object exists in the process at all.
    SOCKET GetSocket() const;

    // Drains what can be read now, without waiting: made for sockets in
    // non-blocking mode. `buffer` is empty when nothing was read, but may hold
    // a block while `size` is 0 (a recv that failed after the count).
    void ReceiveBytes(std::unique_ptr<char[]>& buffer, DWORD& size);
    // Reads byte by byte up to and with a line feed. A would-block gives what
    // stands so far; another error or the peer's close gives an empty text.
    std::string ReceiveLine();
    // Appends a line feed and sends; what send gave.
    int SendLine(std::string line);
    void SendBytes(const std::string& text);
    // send as the platform does it: SOCKET_ERROR or the count sent.
    int SendBytes(const char* buffer, int len);
    // recv as the platform does it: SOCKET_ERROR, 0 at the peer's close, or
    // the count read. For a caller that reads into a buffer of its own.
    int Receive(char* buffer, int len);

protected:
    // A new handle for this object; the old one is left open (the listener's).
    void _replaceHandle(SOCKET s);

private:
    std::shared_ptr<vfc::TSocket> m_spSocket;
};

// A listener on 127.0.0.1. Port 0 lets the system pick one.
class CSocketServer : public CSocket {
public:
    // Throws "INVALID_SOCKET" when no socket can be made or bound.
    CSocketServer(unsigned short port, int backlog, int nonBlocking);
    // The connection accepted, or null when none is pending (10035); any
    // other failure throws "Invalid Socket", and the listener stays usable.
    std::unique_ptr<CSocket> Accept();
    // The port bound; 0 only when the platform can't say.
    unsigned short GetPort() const;
};

// A connection to a host by name; the tunnel's direct path.
class CSocketClient : public CSocket {
public:
    // Throws the platform's error number (int) when the name can't be
    // resolved or the connection fails.
    CSocketClient(const std::string& host, unsigned short port);
};

// Runs `make`, which builds an object over the socket layer: what the layer
// throws is logged under `method` and gives E_FAIL, a heap that ran out
// E_OUTOFMEMORY; S_OK when `make` returned.
HRESULT CatchSocketErrors(const char* method, const std::function<void()>& make) noexcept;

// Waits until one or two sockets are readable: with mode 1 it only looks,
// with any other mode it waits without limit. Throws "Error in select".
class CSocketSelect {
public:
    CSocketSelect(const CSocket* s1, const CSocket* s2, DWORD mode);
    bool Readable(const CSocket& s) const;

private:
    fd_set m_fds;
};
