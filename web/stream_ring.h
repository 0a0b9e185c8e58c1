// CVnStreamRing: a response body's bytes in a section shared by the server
// and the client's process, so that a client's Read takes them from its own
// memory instead of asking the server over a cross-process call.
//
// The ring keeps the rules of the read stream's InterlockedBuffer: the one
// writer (the receive thread) queues blocks of at most kRingChunk bytes and
// waits until a block fits whole, so no more than kRingCapacity bytes are
// ever queued; a read takes what is queued up to its maximum (0: all of it)
// without waiting for more, waits only while nothing is queued and the body
// has not ended, and a read that runs out of time ends the body for good.
// Each side sets the other's event only when the other has said that it
// waits, since under Wine every set and every wait is a call to the server.
//
// The same code runs in the server and in the client's in-process
// unmarshaller, which may be of the other bitness: the header has fields of
// fixed size only. Readers in several threads or processes take turns
// through a lock word in the header that names the thread inside; a lock
// whose owner has died is taken over.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "vfc/unique_resource.h"

constexpr DWORD kRingCapacity = 0x40000;  // the read side's bound, a power of two
constexpr DWORD kRingChunk = 4096;
constexpr DWORD kRingMagic = 0x676E5256;  // "VRng"

// The results of a read besides a count of bytes.
constexpr LONG kRingBroken = -1;     // the other side died, or the wait failed
constexpr LONG kRingTimedOut = -258; // the time-out ran out; the body has ended

class CVnStreamRing {
public:
    // The start of the section. Counts run on modulo 2^32; the bytes queued
    // are dwWritten - dwRead.
    struct Header {
        DWORD dwMagic;
        DWORD dwServerPid;
        volatile LONG lExpectedLength;  // the body's Content-Length, 0 when unknown
        volatile LONG lDone;            // the body ended, or a reader ended it
        volatile LONG lReadersWaiting;
        volatile LONG lWriterWaiting;
        volatile LONG lReadLock;        // id of the thread reading, 0 when free
        volatile LONG lClosed;          // the server's stream is gone
        DWORD dwReserved[8];
        volatile DWORD dwWritten;       // on a cache line of its own, written by the writer
        DWORD dwReserved2[15];
        volatile DWORD dwRead;          // written by readers, under the lock
        DWORD dwReserved3[15];
    };

    CVnStreamRing() = default;

    // About as long as a wait and its wake-up cost, in looks at the count
    // before a reader waits; on a single processor the other side can't run
    // while this one looks, so it does not look at all.
    static int SpinsBeforeWait() noexcept;
    CVnStreamRing(const CVnStreamRing&) = delete;
    CVnStreamRing& operator=(const CVnStreamRing&) = delete;

    // The server's side: makes the section and its two events under a new
    // unguessable name. The counts start at `position`, the bytes the stream
    // has handed out before, so that the position stays what a read knows.
    bool Create(DWORD position, LONG expectedLength);
    // The client's side: opens what Create made, by its name, and the server
    // process, whose death ends a waiting read.
    bool Open(const char* name, DWORD serverPid);
    const std::string& Name() const noexcept { return m_name; }

    // Writer. Queues cb bytes block by block, waiting for room while
    // watching `client` (which may be null). A body that was ended meanwhile
    // takes no more bytes: nobody will read them.
    enum WriteResult { kWritten, kEnded, kClientGone };
    WriteResult Write(const BYTE* data, DWORD cb, HANDLE client);
    // Drops all that is queued and frees a writer waiting for room.
    void Drain();

    // The server's side, when its stream goes: a reader that still holds
    // the ring finds the body broken once the queue is empty, as a call to
    // the gone stream would fail, rather than ended.
    void Close() noexcept;

    // Either side.
    void SetDone(bool done);
    bool IsDone() const noexcept { return m_pHeader->lDone != 0; }
    DWORD Queued() const noexcept { return m_pHeader->dwWritten - m_pHeader->dwRead; }
    DWORD Position() const noexcept { return m_pHeader->dwRead; }
    void SetExpectedLength(LONG length) noexcept { ::InterlockedExchange(&m_pHeader->lExpectedLength, length); }
    // The stream's AvailableBytes: what is queued, or -1 when nothing is and
    // nothing more will come.
    LONG Available() const noexcept;

    // Reader. Waits up to `timeout` ms (INFINITE for ever) while nothing is
    // queued and the body goes on, watching `other` (the process on the
    // other side, or null) as well; then gives what `take` stored of the
    // queued bytes (see below), 0 at the end of a whole body, or
    // kRingBroken for a body that ended short of its Content-Length, a dead
    // other side or a failed wait, or kRingTimedOut, which also ends the body.
    // `take(source1, n1, source2, n2)` copies the n1 + n2 bytes of the read
    // (two pieces where the ring wraps) and gives false when it can't, in
    // which case nothing is taken from the ring.
    template <typename Take>
    LONG Read(LONG maximum, DWORD timeout, HANDLE other, Take take);

private:
    // The reader's lock; ends only when it is held.
    void _lockReaders() noexcept;
    void _unlockReaders() noexcept { ::InterlockedExchange(&m_pHeader->lReadLock, 0); }
    // Waits until something is queued or the body ended: 0, or a negative result.
    LONG _waitForData(DWORD timeout, HANDLE other);
    // Wakes one more reader when readers wait: each one woken passes the
    // news of an ended body on, since the event wakes one at a time.
    void _wakeReader() noexcept;
    BYTE* _data() const noexcept { return reinterpret_cast<BYTE*>(m_pHeader + 1); }

    struct TUnmap {
        void operator()(Header* view) const noexcept { ::UnmapViewOfFile(view); }
    };

    std::string m_name;
    vfc::THandle m_hSection;
    vfc::THandle m_hDataEvent;   // a reader waits on it; auto-reset
    vfc::THandle m_hSpaceEvent;  // the writer waits on it; auto-reset
    vfc::THandle m_hServer;      // the client's side only
    std::unique_ptr<Header, TUnmap> m_view;
    Header* m_pHeader = nullptr;  // m_view, for short
};

template <typename Take>
LONG CVnStreamRing::Read(LONG maximum, DWORD timeout, HANDLE other, Take take)
{
    const LONG waited = _waitForData(timeout, other);
    if (waited < 0)
        return waited;
    _lockReaders();
    const DWORD queued = Queued();
    const DWORD n = maximum > 0 && static_cast<DWORD>(maximum) <= queued ? static_cast<DWORD>(maximum) : queued;
    const DWORD at = m_pHeader->dwRead & (kRingCapacity - 1);
    const DWORD first = n < kRingCapacity - at ? n : kRingCapacity - at;
    if (!take(_data() + at, first, _data(), n - first)) {
        _unlockReaders();
        return kRingBroken;
    }
    // The bytes are copied before the count frees their room.
    ::InterlockedExchangeAdd(reinterpret_cast<volatile LONG*>(&m_pHeader->dwRead), static_cast<LONG>(n));
    const LONG position = static_cast<LONG>(m_pHeader->dwRead);
    _unlockReaders();
    if (n > 0 && m_pHeader->lWriterWaiting > 0)
        ::SetEvent(m_hSpaceEvent.get());
    // A body that ended before its Content-Length, or whose stream went
    // before it ended: the missing bytes will never come.
    if (n == 0 && IsDone() && (position < m_pHeader->lExpectedLength || m_pHeader->lClosed))
        return kRingBroken;
    return static_cast<LONG>(n);
}
