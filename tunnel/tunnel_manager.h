// The pump of all tunnels of the process: one thread that builds one array of
// socket events for every listener and every pair, waits on it for at most
// 500 ms, handles the one event that fired, and starts over. Building the
// array afresh on each pass is how tunnels and pairs that other threads made
// or removed are noticed. A wait takes at most 64 events: more (one listener
// and 32 pairs, or 65 listeners) fail the wait, and that ends the pump.
//
// Locks, in the order they are taken: the manager's lifetime lock (held by
// whoever makes, uses from a client thread, or destroys the manager), the
// storage's lock, then one tunnel's lock. The pump looks up the owner of an
// event and locks its tunnel under the storage's lock, so a tunnel that left
// the storage is never touched again; a tunnel's destructor leaves the
// storage first and only then waits for its own lock. The pump thread never
// takes the lifetime lock, and takes no lock while it holds a tunnel's.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <memory>
#include <vector>

#include "tunnel/wininet_tunnel.h"
#include "vfc/critical_section.h"
#include "vfc/thread.h"

// Ids for the events of the array, unique for the life of one manager, which
// destroys the generator; the next manager's ids start at 1 again.
class CVnIdGenerator {
public:
    static CVnIdGenerator* getInstance();
    static void Destroy();
    unsigned GetNext();

private:
    unsigned m_count = 0;
    vfc::TCriticalSection m_lock;
};

// What a pass of the pump found.
struct CVnTunnelStatus {
    enum {
        Nothing = 0,
        EmptyArray = 1,
        IoCompletion = 2,
        TimeOut = 3,
        WaitFailed = 4,  // error: WSAGetLastError
        NoOwner = 5,
        NetworkError = 6,  // VN_NETWORK_SOCKET_ERROR: WSAEnumNetworkEvents failed
        Read = 7,          // error: the event's error slot, as for the next three
        Accept = 8,
        Close = 9,
        Write = 10,  // the other side may take what waited for it
    };
    int status = Nothing;
    int error = 0;
};

// Who owns the event that fired.
struct CVnEventOwner {
    CVnTunnelSocket* pSocket = nullptr;  // null for the listener
    WSAEVENT hEvent = nullptr;
    int side = TunnelSideClient;
    CVnLinkhostWinInetTunnel* pTunnel = nullptr;
    DWORD index = 0;
};

// The tunnels that the pump serves, and the array of the current pass.
class TunnelStorage {
public:
    // Adds a tunnel; true when no thread pumps (the caller starts one, and
    // from now on one counts as pumping).
    bool Add(CVnLinkhostWinInetTunnel* tunnel);
    void Remove(CVnLinkhostWinInetTunnel* tunnel);
    size_t GetCount();

    // Builds the array: each tunnel's listener, then each of its pairs'
    // client and remote events. With no tunnel left, the pump counts as
    // stopped from here on, so that the next Add starts a thread again.
    void Freeze();
    void Unfreeze();
    DWORD GetEventCount() const { return static_cast<DWORD>(m_events.size()); }
    const WSAEVENT* GetEvents() const { return m_events.data(); }
    // Takes the events of a tunnel that left, and of its pairs: the array
    // of the current pass may hold them, and a closed handle in a wait fails
    // it (or, taken again by the platform for another object, waits on
    // that). They are closed when the next array is built.
    void Retire(std::vector<vfc::TWsaEvent>& events);
    // The owner of the array's entry `index`, with its tunnel locked; false
    // when nothing in the storage owns it any more.
    bool FindOwnerAndLock(DWORD index, CVnEventOwner& owner);
    // The pump ended with tunnels still here: the next Add starts a thread.
    void PumpStopped();

private:
    std::vector<CVnLinkhostWinInetTunnel*> m_tunnels;
    std::vector<WSAEVENT> m_events;
    std::vector<unsigned> m_eventIds;
    std::vector<vfc::TWsaEvent> m_retired;
    bool m_bPumping = false;
    vfc::TCriticalSection m_hMutex;
};

class CVnLinkhostTunnelManagerEx {
public:
    // The manager, made at first use. The caller holds Lifetime() for as
    // long as it uses the pointer.
    static CVnLinkhostTunnelManagerEx* GetInstance();
    // The manager if there is one, without making it.
    static CVnLinkhostTunnelManagerEx* Existing();
    static vfc::TCriticalSection& Lifetime();

    TunnelStorage* GetStorage() const { return m_pStorage.get(); }
    // Starts the pump thread, after the previous one (which has decided to
    // end) is gone.
    bool StartThread();

    // The thread's body.
    HRESULT Execute();
    void WaitEvents(CVnTunnelStatus& status, CVnEventOwner& owner);
    void WaitNetworkEvent(CVnTunnelStatus& status, CVnEventOwner& owner);
    // Called by a destroyed tunnel: when no tunnel is left, waits for the
    // thread to end and destroys the manager. Under Lifetime().
    void NotifiyTunnelRemoved();

private:
    CVnLinkhostTunnelManagerEx();
    ~CVnLinkhostTunnelManagerEx();
    static unsigned __stdcall ThreadProc(void* param);
    // Handles the event of a pass; false ends the pump.
    bool _dispatch(CVnEventOwner& owner, HRESULT& result);

    std::unique_ptr<TunnelStorage> m_pStorage;
    vfc::TThreadT<true, vfc::TCRTThreadTraits> m_hTreadHandle;
};
