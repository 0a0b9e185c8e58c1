#include "tunnel/tunnel_manager.h"

#include <algorithm>

#include "host/log.h"

namespace {

const char* const kExecute = "Execute";
const char* const kExecuteError = "TunnelManager::Execute";
const char* const kWaitNetworkEvent = "TunnelManager::WaitNetworkEvent";
const char* const kNotify = "NotifiyTunnelRemoved";
const char* const kManager = "CVnLinkhostTunnelManagerEx";

// The pump wakes at least this often to build its array afresh.
constexpr DWORD kPassMs = 500;
// How long a tunnel that was the last one waits for the pump to end.
constexpr DWORD kThreadEndMs = 60000;

// The pump's account of each single event.
void PumpLine(const char* source, const char* text) { TraceLine(vn_log::kInfo, source, text); }

// Made and destroyed under the lifetime lock. The pump thread is started
// after both exist and ends before either goes; it reads only the generator.
CVnLinkhostTunnelManagerEx* s_pManager = nullptr;
CVnIdGenerator* s_pIdGenerator = nullptr;

}  // namespace

CVnIdGenerator* CVnIdGenerator::getInstance()
{
    if (!s_pIdGenerator)
        s_pIdGenerator = new CVnIdGenerator;
    return s_pIdGenerator;
}

void CVnIdGenerator::Destroy()
{
    delete s_pIdGenerator;
    s_pIdGenerator = nullptr;
}

unsigned CVnIdGenerator::GetNext()
{
    vfc::TLock lock(m_lock);
    return ++m_count;
}

bool TunnelStorage::Add(CVnLinkhostWinInetTunnel* tunnel)
{
    vfc::TLock lock(m_hMutex);
    m_tunnels.push_back(tunnel);
    const bool idle = !m_bPumping;
    m_bPumping = true;
    return idle;
}

void TunnelStorage::Remove(CVnLinkhostWinInetTunnel* tunnel)
{
    vfc::TLock lock(m_hMutex);
    m_tunnels.erase(std::remove(m_tunnels.begin(), m_tunnels.end(), tunnel), m_tunnels.end());
}

size_t TunnelStorage::GetCount()
{
    vfc::TLock lock(m_hMutex);
    return m_tunnels.size();
}

void TunnelStorage::Freeze()
{
    Unfreeze();
    vfc::TLock lock(m_hMutex);
    // Nothing waits on the last array any more.
    m_retired.clear();
    // The decision to end is taken here, under the lock that Add takes, so
    // a tunnel added from now on starts a new thread.
    if (m_tunnels.empty())
        m_bPumping = false;
    for (CVnLinkhostWinInetTunnel* tunnel : m_tunnels) {
        m_events.push_back(tunnel->GetServerEvent());
        m_eventIds.push_back(tunnel->GetServerEventId());
        for (const auto& pair : tunnel->Sockets()) {
            for (int side : {TunnelSideClient, TunnelSideRemote}) {
                m_events.push_back(pair->GetEvent(side));
                m_eventIds.push_back(pair->GetEventId(side));
            }
        }
    }
}

void TunnelStorage::Unfreeze()
{
    vfc::TLock lock(m_hMutex);
    m_events.clear();
    m_eventIds.clear();
}

void TunnelStorage::Retire(std::vector<vfc::TWsaEvent>& events)
{
    vfc::TLock lock(m_hMutex);
    for (vfc::TWsaEvent& event : events)
        m_retired.push_back(std::move(event));
    events.clear();
}

bool TunnelStorage::FindOwnerAndLock(DWORD index, CVnEventOwner& owner)
{
    vfc::TLock lock(m_hMutex);
    if (index >= m_eventIds.size())
        return false;
    const unsigned id = m_eventIds[index];
    for (CVnLinkhostWinInetTunnel* tunnel : m_tunnels) {
        if (tunnel->GetServerEventId() == id) {
            owner = {nullptr, tunnel->GetServerEvent(), TunnelSideListener, tunnel, index};
            tunnel->Lock();
            return true;
        }
        for (const auto& pair : tunnel->Sockets()) {
            for (int side : {TunnelSideClient, TunnelSideRemote}) {
                if (pair->GetEventId(side) == id) {
                    owner = {pair.get(), pair->GetEvent(side), side, tunnel, index};
                    tunnel->Lock();
                    return true;
                }
            }
        }
    }
    return false;
}

void TunnelStorage::PumpStopped()
{
    vfc::TLock lock(m_hMutex);
    m_bPumping = false;
}

vfc::TCriticalSection& CVnLinkhostTunnelManagerEx::Lifetime()
{
    static vfc::TCriticalSection* lock = new vfc::TCriticalSection;  // never destroyed: tunnels may outlive statics
    return *lock;
}

CVnLinkhostTunnelManagerEx* CVnLinkhostTunnelManagerEx::GetInstance()
{
    if (!s_pManager)
        s_pManager = new CVnLinkhostTunnelManagerEx;
    return s_pManager;
}

CVnLinkhostTunnelManagerEx* CVnLinkhostTunnelManagerEx::Existing() { return s_pManager; }

CVnLinkhostTunnelManagerEx::CVnLinkhostTunnelManagerEx() : m_pStorage(new TunnelStorage)
{
    LogLine(vn_log::kInfo, kManager, "Create!!!");
}

CVnLinkhostTunnelManagerEx::~CVnLinkhostTunnelManagerEx()
{
    m_pStorage.reset();
    CVnIdGenerator::Destroy();
    m_hTreadHandle.Close();
    LogLine(vn_log::kInfo, kManager, "Shutdown!!!");
}

bool CVnLinkhostTunnelManagerEx::StartThread()
{
    // A thread that is still there has decided to end and touches nothing
    // of the tunnels any more.
    if (m_hTreadHandle.GetHandle())
        m_hTreadHandle.WaitFor(INFINITE);
    if (m_hTreadHandle.Create(ThreadProc, this))
        return true;
    m_pStorage->PumpStopped();
    return false;
}

unsigned __stdcall CVnLinkhostTunnelManagerEx::ThreadProc(void* param)
{
    HRESULT result = E_FAIL;
    // Nothing thrown leaves the thread.
    try {
        result = static_cast<CVnLinkhostTunnelManagerEx*>(param)->Execute();
    } catch (...) {
        LogLine(vn_log::kError, kExecuteError, "Unknown exception.");
        static_cast<CVnLinkhostTunnelManagerEx*>(param)->m_pStorage->PumpStopped();
    }
    LogLine(vn_log::kInfo, kExecute, "WORKED THREAD FINISHED");
    return static_cast<unsigned>(result);
}

HRESULT CVnLinkhostTunnelManagerEx::Execute()
{
    LogLine(vn_log::kInfo, kExecute, "====== Thread begin running ...");
    HRESULT result = S_OK;
    for (bool running = true; running;) {
        m_pStorage->Freeze();
        CVnTunnelStatus status;
        CVnEventOwner owner;
        WaitEvents(status, owner);
        switch (status.status) {
        case CVnTunnelStatus::EmptyArray:
            LogLine(vn_log::kInfo, kExecute, "EVENT ARRAY EMPTY! Break!");
            running = false;
            continue;
        case CVnTunnelStatus::WaitFailed:
            LogLine(vn_log::kErrorDec, kExecuteError, "WaitEvents failed with error: ", status.error);
            result = E_FAIL;
            running = false;
            continue;
        case CVnTunnelStatus::Nothing:
            break;
        default:  // time-out, I/O completion, an event nobody owns any more: a new array
            continue;
        }
        PumpLine(kExecute, "!Lock WinInetTunnel");
        try {
            running = _dispatch(owner, result);
        } catch (...) {
            // A heap that ran out ends the pump, the tunnel's lock let go first.
            LogLine(vn_log::kError, kExecuteError, "Unknown exception.");
            result = E_FAIL;
            running = false;
        }
        owner.pTunnel->Unlock();
        PumpLine(kExecute, "!UnLock WinInetTunnel");
    }
    m_pStorage->Unfreeze();
    if (FAILED(result))
        m_pStorage->PumpStopped();
    LogLine(vn_log::kInfo, kExecute, "====== Thread finished running ...");
    return result;
}

void CVnLinkhostTunnelManagerEx::WaitEvents(CVnTunnelStatus& status, CVnEventOwner& owner)
{
    status = CVnTunnelStatus();
    const DWORD count = m_pStorage->GetEventCount();
    if (count == 0) {
        status.status = CVnTunnelStatus::EmptyArray;
        return;
    }
    const DWORD result = ::WSAWaitForMultipleEvents(count, m_pStorage->GetEvents(), FALSE, kPassMs, FALSE);
    if (result == WSA_WAIT_TIMEOUT) {
        status.status = CVnTunnelStatus::TimeOut;
    } else if (result == WSA_WAIT_FAILED) {
        status.status = CVnTunnelStatus::WaitFailed;
        status.error = ::WSAGetLastError();
    } else if (result == WSA_WAIT_IO_COMPLETION) {
        status.status = CVnTunnelStatus::IoCompletion;
    } else if (!m_pStorage->FindOwnerAndLock(result - WSA_WAIT_EVENT_0, owner)) {
        status.status = CVnTunnelStatus::NoOwner;
    }
}

void CVnLinkhostTunnelManagerEx::WaitNetworkEvent(CVnTunnelStatus& status, CVnEventOwner& owner)
{
    PumpLine(kWaitNetworkEvent, ">Try to Execute WaitNetworkEvent");
    status = CVnTunnelStatus();
    WSANETWORKEVENTS listenerEvents = {};
    WSANETWORKEVENTS* events = &listenerEvents;
    SOCKET socket;
    if (owner.side == TunnelSideListener) {
        PumpLine(kWaitNetworkEvent, ">Try to Get WinSocket from ServerSocket");
        socket = owner.pTunnel->GetServerSocket()->GetSocket();
        PumpLine(kWaitNetworkEvent, ">Success!");
    } else {
        PumpLine(kWaitNetworkEvent, ">Try to Get WinSocket from m_tunnelSocket");
        socket = owner.pSocket->GetSocket(owner.side)->GetSocket();
        events = &owner.pSocket->NetworkEvents(owner.side);
        PumpLine(kWaitNetworkEvent, "Success!");
    }
    if (::WSAEnumNetworkEvents(socket, owner.hEvent, events) == SOCKET_ERROR) {
        status.status = CVnTunnelStatus::NetworkError;
        status.error = ::WSAGetLastError();
        LogLine(vn_log::kError, kWaitNetworkEvent, ">VN_NETWORK_SOCKET_ERROR");
        return;
    }
    const struct {
        long bit;
        int slot, status;
    } precedence[] = {{FD_READ, FD_READ_BIT, CVnTunnelStatus::Read},
                      {FD_ACCEPT, FD_ACCEPT_BIT, CVnTunnelStatus::Accept},
                      {FD_CLOSE, FD_CLOSE_BIT, CVnTunnelStatus::Close},
                      {FD_WRITE, FD_WRITE_BIT, CVnTunnelStatus::Write}};
    for (const auto& entry : precedence) {
        if (events->lNetworkEvents & entry.bit) {
            status.status = entry.status;
            status.error = events->iErrorCode[entry.slot];
            break;
        }
    }
    PumpLine(kWaitNetworkEvent, ">Finished");
}

bool CVnLinkhostTunnelManagerEx::_dispatch(CVnEventOwner& owner, HRESULT& result)
{
    CVnTunnelStatus status;
    WaitNetworkEvent(status, owner);
    switch (status.status) {
    case CVnTunnelStatus::NetworkError:
        LogLine(vn_log::kError, kExecuteError, "NETWORK ERROR Occupied");
        result = E_FAIL;
        return false;
    case CVnTunnelStatus::Accept:
        owner.pTunnel->AcceptClient();
        return true;
    default:
        break;
    }
    // A pair handles every event of the record at once: what can be written,
    // what was read, and the close.
    if (owner.pSocket && owner.pSocket->OnNetworkEvents(owner.side)) {
        if (owner.pTunnel->DeleteSocket(owner.pSocket))
            LogLine(vn_log::kInfo, kExecuteError, "Socket delete successfully");
        else
            LogLine(vn_log::kError, kExecuteError, "TunnelSocket not found");
        owner.pSocket = nullptr;
    }
    return true;
}

void CVnLinkhostTunnelManagerEx::NotifiyTunnelRemoved()
{
    LogLine(vn_log::kInfo, kNotify, "Begin Notify");
    const size_t count = m_pStorage->GetCount();
    LogLine(vn_log::kInfo, kNotify, "Tunnel Socket was getted");
    if (count == 0) {
        bool ended = true;
        if (m_hTreadHandle.GetHandle()) {
            LogLine(vn_log::kInfo, kNotify, "Before WaitForSingleObject(m_hTreadHandle)");
            ended = m_hTreadHandle.WaitFor(kThreadEndMs);
            LogLine(vn_log::kInfo, kNotify, "After WaitForSingleObject(m_hTreadHandle)");
            LogLine(vn_log::kError, kNotify,
                    ended ? "Worked Thread shutdowned correctly!" : "Worked Thread doesn't shutdown correctly!");
        }
        // A thread that did not end still uses the manager: it stays.
        if (ended) {
            s_pManager = nullptr;
            delete this;
        }
    }
    LogLine(vn_log::kInfo, kNotify, "End Notify");
}
