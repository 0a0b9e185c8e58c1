#include "web/stream_ring.h"

#include <objbase.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr DWORD kSectionSize = sizeof(CVnStreamRing::Header) + kRingCapacity;

// Whether the thread that holds a lock is gone. Only a thread that does not
// exist any more counts: one that can't be opened for want of rights lives.
bool ThreadGone(DWORD id) noexcept
{
    vfc::THandle thread(::OpenThread(SYNCHRONIZE, FALSE, id));
    if (!thread)
        return ::GetLastError() == ERROR_INVALID_PARAMETER;
    return ::WaitForSingleObject(thread.get(), 0) == WAIT_OBJECT_0;
}

// Copies n bytes into the ring at a count, in two pieces where it wraps.
void CopyIn(BYTE* ring, DWORD count, const BYTE* data, DWORD n) noexcept
{
    const DWORD at = count & (kRingCapacity - 1);
    const DWORD first = n < kRingCapacity - at ? n : kRingCapacity - at;
    std::memcpy(ring + at, data, first);
    std::memcpy(ring, data + first, n - first);
}

}  // namespace

int CVnStreamRing::SpinsBeforeWait() noexcept
{
    static const int spins = [] {
        SYSTEM_INFO info;
        ::GetSystemInfo(&info);
        return info.dwNumberOfProcessors > 1 ? 500 : 0;
    }();
    return spins;
}

bool CVnStreamRing::Create(DWORD position, LONG expectedLength)
{
    GUID unique;
    if (FAILED(::CoCreateGuid(&unique)))
        return false;
    char name[128];
    std::snprintf(name, sizeof name, "Local\\VnLinkhost.Ring.%lu.%08lX%04X%04X%02X%02X%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned long>(::GetCurrentProcessId()), static_cast<unsigned long>(unique.Data1),
                  unique.Data2, unique.Data3, unique.Data4[0], unique.Data4[1], unique.Data4[2], unique.Data4[3],
                  unique.Data4[4], unique.Data4[5], unique.Data4[6], unique.Data4[7]);
    m_name = name;
    m_hSection.reset(::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, kSectionSize, name));
    m_hDataEvent.reset(::CreateEventA(nullptr, FALSE, FALSE, (m_name + ".Data").c_str()));
    m_hSpaceEvent.reset(::CreateEventA(nullptr, FALSE, FALSE, (m_name + ".Space").c_str()));
    if (!m_hSection || !m_hDataEvent || !m_hSpaceEvent)
        return false;
    m_view.reset(static_cast<Header*>(::MapViewOfFile(m_hSection.get(), FILE_MAP_WRITE, 0, 0, kSectionSize)));
    m_pHeader = m_view.get();
    if (!m_pHeader)
        return false;
    m_pHeader->dwServerPid = ::GetCurrentProcessId();
    m_pHeader->lExpectedLength = expectedLength;
    m_pHeader->dwWritten = position;
    m_pHeader->dwRead = position;
    ::InterlockedExchange(reinterpret_cast<volatile LONG*>(&m_pHeader->dwMagic), static_cast<LONG>(kRingMagic));
    return true;
}

bool CVnStreamRing::Open(const char* name, DWORD serverPid)
{
    m_name = name;
    m_hSection.reset(::OpenFileMappingA(FILE_MAP_WRITE, FALSE, name));
    m_hDataEvent.reset(::OpenEventA(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, (m_name + ".Data").c_str()));
    m_hSpaceEvent.reset(::OpenEventA(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, (m_name + ".Space").c_str()));
    m_hServer.reset(::OpenProcess(SYNCHRONIZE, FALSE, serverPid));
    if (!m_hSection || !m_hDataEvent || !m_hSpaceEvent || !m_hServer)
        return false;
    m_view.reset(static_cast<Header*>(::MapViewOfFile(m_hSection.get(), FILE_MAP_WRITE, 0, 0, kSectionSize)));
    m_pHeader = m_view.get();
    return m_pHeader && m_pHeader->dwMagic == kRingMagic && m_pHeader->dwServerPid == serverPid;
}

CVnStreamRing::WriteResult CVnStreamRing::Write(const BYTE* data, DWORD cb, HANDLE client)
{
    while (cb > 0) {
        const DWORD take = cb < kRingChunk ? cb : kRingChunk;
        // A block waits until it fits whole.
        while (kRingCapacity - Queued() < take) {
            if (IsDone())
                return kEnded;
            // Announce the wait, then look once more: a read that freed room
            // before the announcement is seen here, one after it sets the event.
            ::InterlockedIncrement(&m_pHeader->lWriterWaiting);
            if (kRingCapacity - Queued() >= take || IsDone()) {
                ::InterlockedDecrement(&m_pHeader->lWriterWaiting);
                continue;
            }
            const HANDLE handles[2] = {m_hSpaceEvent.get(), client};
            const DWORD result = ::WaitForMultipleObjects(client ? 2 : 1, handles, FALSE, INFINITE);
            ::InterlockedDecrement(&m_pHeader->lWriterWaiting);
            if (result != WAIT_OBJECT_0)
                return kClientGone;
        }
        if (IsDone())
            return kEnded;
        CopyIn(_data(), m_pHeader->dwWritten, data, take);
        // The bytes are in place before the count shows them.
        ::InterlockedExchangeAdd(reinterpret_cast<volatile LONG*>(&m_pHeader->dwWritten), static_cast<LONG>(take));
        if (m_pHeader->lReadersWaiting > 0)
            ::SetEvent(m_hDataEvent.get());
        data += take;
        cb -= take;
    }
    return kWritten;
}

void CVnStreamRing::Drain()
{
    _lockReaders();
    ::InterlockedExchange(reinterpret_cast<volatile LONG*>(&m_pHeader->dwRead),
                          static_cast<LONG>(m_pHeader->dwWritten));
    _unlockReaders();
    ::SetEvent(m_hSpaceEvent.get());
}

void CVnStreamRing::Close() noexcept
{
    ::InterlockedExchange(&m_pHeader->lClosed, 1);
    SetDone(true);
}

void CVnStreamRing::SetDone(bool done)
{
    ::InterlockedExchange(&m_pHeader->lDone, done ? 1 : 0);
    if (!done)
        return;
    _wakeReader();
    if (m_pHeader->lWriterWaiting > 0)
        ::SetEvent(m_hSpaceEvent.get());
}

LONG CVnStreamRing::Available() const noexcept
{
    const DWORD queued = Queued();
    return queued == 0 && IsDone() ? -1 : static_cast<LONG>(queued);
}

void CVnStreamRing::_wakeReader() noexcept
{
    if (m_pHeader->lReadersWaiting > 0)
        ::SetEvent(m_hDataEvent.get());
}

void CVnStreamRing::_lockReaders() noexcept
{
    const LONG self = static_cast<LONG>(::GetCurrentThreadId());
    for (int spins = 0;; ++spins) {
        const LONG owner = ::InterlockedCompareExchange(&m_pHeader->lReadLock, self, 0);
        if (owner == 0)
            return;
        if (spins < 1000) {
            YieldProcessor();
            continue;
        }
        // A reader holds the lock only while it copies; one that holds it
        // this long may have died inside.
        if (ThreadGone(static_cast<DWORD>(owner)))
            ::InterlockedCompareExchange(&m_pHeader->lReadLock, 0, owner);
        else
            ::Sleep(0);
        spins = 0;
    }
}

LONG CVnStreamRing::_waitForData(DWORD timeout, HANDLE other)
{
    for (;;) {
        for (int spin = 0; spin < SpinsBeforeWait() && Queued() == 0 && !IsDone(); ++spin)
            YieldProcessor();
        // Announce the wait, then look once more: a write that queued its
        // bytes before the announcement is seen here, one after it sets the event.
        ::InterlockedIncrement(&m_pHeader->lReadersWaiting);
        if (Queued() != 0 || IsDone()) {
            ::InterlockedDecrement(&m_pHeader->lReadersWaiting);
            if (Queued() == 0)
                _wakeReader();
            return 0;
        }
        const HANDLE server = m_hServer ? m_hServer.get() : other;
        const HANDLE handles[2] = {m_hDataEvent.get(), server};
        const DWORD result = ::WaitForMultipleObjects(server ? 2 : 1, handles, FALSE, timeout);
        ::InterlockedDecrement(&m_pHeader->lReadersWaiting);
        if (result == WAIT_OBJECT_0)
            continue;
        // A read that ran out of time ends the body for good: the writer
        // stops at its next block, and later reads do not resume.
        SetDone(true);
        return result == WAIT_TIMEOUT ? kRingTimedOut : kRingBroken;
    }
}
