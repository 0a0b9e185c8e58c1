#include "web/interlocked_buffer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "host/log.h"

namespace {

const char kNullData[] = "InterlockedBuffer::Write called with pbData == NULL";

// The buffer's lock as Write and Read hold it: left around every wait and
// re-entered after, and left for sure when an exception unwinds.
class TBufferLock {
public:
    explicit TBufferLock(vfc::TCriticalSection& cs) noexcept : m_cs(cs) { Enter(); }
    ~TBufferLock()
    {
        if (m_held)
            m_cs.Leave();
    }
    TBufferLock(const TBufferLock&) = delete;
    TBufferLock& operator=(const TBufferLock&) = delete;

    void Enter() noexcept
    {
        m_cs.Enter();
        m_held = true;
    }
    void Leave() noexcept
    {
        m_held = false;
        m_cs.Leave();
    }

private:
    vfc::TCriticalSection& m_cs;
    bool m_held = false;
};

// The log prints the buffer's address as its number, as far as it fits.
int AddressForLog(const void* p) noexcept { return static_cast<int>(reinterpret_cast<std::intptr_t>(p)); }

}  // namespace

InterlockedBuffer::InterlockedBuffer(DWORD dwMaxSize_, bool bWaitWhenFull_, bool bWaitWhenEmpty_,
                                     DWORD maxChunkSize_)
    : maxChunkSize(maxChunkSize_),
      dwMaxSize(dwMaxSize_),
      bWaitWhenFull(bWaitWhenFull_),
      bWaitWhenEmpty(bWaitWhenEmpty_)
{
    if (maxChunkSize == 0 || maxChunkSize > dwMaxSize)
        throw std::range_error("InterlockedBuffer::ctor: maxChunkSize must be != 0 and <= dwMaxSize");
    // Auto-reset and unset: each set wakes one wait of the other side.
    hSpaceEvent.reset(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
    hDataEvent.reset(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
}

InterlockedBuffer::~InterlockedBuffer() = default;

bool InterlockedBuffer::Write(const BYTE* pbData, DWORD cb)
{
    if (!pbData)
        throw std::invalid_argument(kNullData);
    TBufferLock lock(m_cs);
    if (cb == 0)
        return cbQueued < dwMaxSize;

    DWORD take = std::min(maxChunkSize, cb);
    while (cb > 0) {
        if (bWaitWhenFull && cbQueued + take > dwMaxSize) {
            if (m_bWriterReleased)
                return false;
            // The reset and the flag happen under the lock, so the read that
            // makes room after this point sets the event and the wait sees it.
            ::ResetEvent(hSpaceEvent.get());
            ++m_cWritersWaiting;
            const bool wakeReader = m_cReadersWaiting > 0;
            lock.Leave();
            if (wakeReader)
                ::SetEvent(hDataEvent.get());
            const bool goOn = _waitForSpace();
            lock.Enter();
            --m_cWritersWaiting;
            if (!goOn || m_bWriterReleased)
                return false;
            continue;
        }
        Chunk chunk{std::unique_ptr<BYTE[]>(new BYTE[take]), take};
        std::memcpy(chunk.pbData.get(), pbData, take);
        m_chunks.push_back(std::move(chunk));
        cbQueued += take;
        pbData += take;
        cb -= take;
        take = std::min(maxChunkSize, cb);
    }
    const bool belowLimit = cbQueued < dwMaxSize;
    const bool wakeReader = m_cReadersWaiting > 0;
    lock.Leave();
    if (wakeReader)
        ::SetEvent(hDataEvent.get());
    return belowLimit;
}

bool InterlockedBuffer::_waitForSpace()
{
    TraceLine(vn_log::kInfoStatus, "InterlockedBuffer::Write", "WaitForSingleObject ... Start", AddressForLog(this));
    // No time-out: a client that does not read holds the writer until it reads,
    // drains the queue on release, or dies.
    const DWORD result = m_monitor.Wait(hSpaceEvent.get(), INFINITE);
    if (result == WAIT_OBJECT_0 + 1) {
        LogLine(vn_log::kError, "InterlockedBuffer::Write", "Process closed WAIT_TIMEOUT");
        return false;
    }
    if (result == WAIT_TIMEOUT)
        LogLine(vn_log::kError, "InterlockedBuffer::Write", "WAIT_TIMEOUT");
    if (result == WAIT_FAILED) {
        // A wait that can't be made would spin for ever; the writer gives up
        // as it does for a dead client.
        LogLine(vn_log::kErrorDec, "InterlockedBuffer::Write", "WaitForMultipleObjects failed.",
                static_cast<int>(::GetLastError()));
        return false;
    }
    TraceLine(vn_log::kInfoStatus, "InterlockedBuffer::Write", "WaitForSingleObject ... End", AddressForLog(this));
    return true;
}

DWORD InterlockedBuffer::Read(BYTE* pb, DWORD cb)
{
    if (!pb)
        throw std::invalid_argument(kNullData);
    if (cb == 0)
        return 0;
    TBufferLock lock(m_cs);
    if (!bWaitWhenEmpty && cbQueued == 0)
        return 0;
    while (cbQueued == 0) {
        ::ResetEvent(hDataEvent.get());
        ++m_cReadersWaiting;
        lock.Leave();
        TraceLine(vn_log::kInfo, "InterlockedBuffer::Read", "WaitForSingleObject ... Start");
        // The streams never let a reader wait here, so it needs no monitor.
        const DWORD result = ::WaitForSingleObject(hDataEvent.get(), INFINITE);
        if (result == WAIT_TIMEOUT)
            LogLine(vn_log::kError, "InterlockedBuffer::Read", "WAIT_TIMEOUT");
        TraceLine(vn_log::kInfo, "InterlockedBuffer::Read", "WaitForSingleObject ... End");
        lock.Enter();
        --m_cReadersWaiting;
        if (result == WAIT_FAILED)
            return 0;
    }

    const DWORD n = std::min(cb, cbQueued);
    DWORD done = 0;
    while (done < n) {
        Chunk& front = m_chunks.front();
        const DWORD part = std::min(front.cb - cbFrontConsumed, n - done);
        std::memcpy(pb + done, front.pbData.get() + cbFrontConsumed, part);
        done += part;
        cbQueued -= part;
        if (cbFrontConsumed + part == front.cb) {
            m_chunks.pop_front();
            cbFrontConsumed = 0;
        } else {
            cbFrontConsumed += part;
        }
    }
    const bool wakeWriter = m_cWritersWaiting > 0;
    lock.Leave();
    if (wakeWriter)
        ::SetEvent(hSpaceEvent.get());
    return n;
}

DWORD InterlockedBuffer::GetSize()
{
    vfc::TLock lock(m_cs);
    return cbQueued;
}

void InterlockedBuffer::ReleaseWriter(bool release)
{
    bool wakeWriter;
    {
        vfc::TLock lock(m_cs);
        m_bWriterReleased = release;
        wakeWriter = release && m_cWritersWaiting > 0;
    }
    if (wakeWriter)
        ::SetEvent(hSpaceEvent.get());
}

void InterlockedBuffer::Drain()
{
    // The chunks are dropped where they stand rather than copied out first:
    // the result is the same empty queue, and it needs no memory on the way,
    // which matters since destructors drain.
    {
        vfc::TLock lock(m_cs);
        m_chunks.clear();
        cbQueued = 0;
        cbFrontConsumed = 0;
    }
    ::SetEvent(hSpaceEvent.get());
}
