// The read side of the queue streams: a response body on its way from the
// receive thread to the client.
#include "web/streams.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "host/log.h"
#include "host/status.h"

CVnQueueReadStream::CVnQueueReadStream()
{
    TraceLine("%s", "CVnQueueReadStream::CVnQueueReadStream() started");
    // Auto-reset and unset: set by every write and by the end of the body.
    hDataReadyEvent.reset(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
    TraceLine("%s", "CVnQueueReadStream::CVnQueueReadStream() done");
}

HRESULT CVnQueueReadStream::FinalConstruct() noexcept
{
    if (!hDataReadyEvent)
        return HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY);
    // The receive thread waits for room, so a client that reads slowly
    // bounds what is held for it.
    return CVnQueueCustomStream::FinalConstruct(true);
}

CVnQueueReadStream::~CVnQueueReadStream()
{
    TraceLine("%s", "CVnQueueReadStream::~CVnQueueReadStream() started");
    // A reader in the client's process learns that the stream is gone, so
    // that it does not take the end that follows for the body's. Then the
    // receive callback learns that nobody reads any more, then a thread
    // blocked on the full queue is freed, and only then is it joined:
    // joining first would wait for ever on a thread that waits for room.
    if (CVnStreamRing* ring = m_pRing.load())
        ring->Close();
    if (m_spReceiveThread)
        m_spReceiveThread->ReleaseDoneable();
    SetDone(true);
    if (m_pBuffer)
        m_pBuffer->Drain();
    if (CVnStreamRing* ring = m_pRing.load())
        ring->Drain();
    if (m_spReceiveThread)
        m_spReceiveThread->StopReceiveThread();
    hDataReadyEvent.reset();
    TraceLine("%s", "CVnQueueReadStream::~CVnQueueReadStream() done");
}

STDMETHODIMP CVnQueueReadStream::get_CanRead(VARIANT_BOOL* canRead)
{
    if (!canRead)
        return E_POINTER;
    *canRead = VARIANT_TRUE;
    return S_OK;
}

STDMETHODIMP CVnQueueReadStream::get_CanWrite(VARIANT_BOOL* canWrite)
{
    if (!canWrite)
        return E_POINTER;
    *canWrite = VARIANT_FALSE;
    return S_OK;
}

STDMETHODIMP CVnQueueReadStream::get_AvailableBytes(LONG* count)
{
    if (!count)
        return E_POINTER;
    if (CVnStreamRing* ring = m_pRing.load()) {
        *count = ring->Available();
        return S_OK;
    }
    const DWORD size = m_pBuffer->GetSize();
    // -1 tells the client that nothing more will come.
    *count = (size == 0 && bDone) ? -1 : static_cast<LONG>(size);
    return S_OK;
}

DWORD CVnQueueReadStream::QueuedBytes()
{
    CVnStreamRing* ring = m_pRing.load();
    return ring ? ring->Queued() : m_pBuffer->GetSize();
}

STDMETHODIMP CVnQueueReadStream::Write(SAFEARRAY*, LONG, LONG, LONG* count)
{
    if (count)
        *count = 0;
    return VN_E_STREAM_NOT_WRITABLE;
}

LONG CVnQueueReadStream::WriteToQueue(const BYTE* data, LONG iStartIndex, LONG iWriteCount)
{
    if (!data || iStartIndex < 0 || iWriteCount <= 0) {
        const LONG refused = CVnQueueCustomStream::WriteToQueue(data, iStartIndex, iWriteCount);
        _wakeReader();
        return refused;
    }
    // The reader waits on hDataReadyEvent, and a writer waits for room inside
    // the buffer. Were a write longer than one chunk queued in one piece, the
    // writer could fill the queue and wait for room while the reader, which
    // found the queue empty a moment before, waits for an event that comes
    // only at the end of the write. Chunk by chunk, every byte in the queue
    // has been announced before the writer can wait. The receive thread
    // writes one chunk at a time anyway.
    for (LONG done = 0; done < iWriteCount;) {
        const LONG piece = std::min(static_cast<LONG>(kStreamChunkSize), iWriteCount - done);
        if (CVnStreamRing* ring = m_pRing.load()) {
            _writeToRing(ring, data + iStartIndex + done, static_cast<DWORD>(piece));
        } else {
            CVnQueueCustomStream::WriteToQueue(data, iStartIndex + done, piece);
            _flushToRing();
            _wakeReader();
        }
        done += piece;
    }
    return iWriteCount;
}

void CVnQueueReadStream::_writeToRing(CVnStreamRing* ring, const BYTE* data, DWORD cb)
{
    if (ring->Write(data, cb, m_writerMonitor.GetProcess()) == CVnStreamRing::kClientGone)
        LogLine(vn_log::kError, "InterlockedBuffer::Write", "Process closed WAIT_TIMEOUT");
}

void CVnQueueReadStream::_flushToRing()
{
    // Under the lock this comes wholly before the ring's start, which then
    // moves the piece just written, or wholly after it.
    vfc::TLock lock(m_csRing);
    CVnStreamRing* ring = m_pRing.load();
    BYTE block[kStreamChunkSize];
    while (ring && m_pBuffer->GetSize() > 0)
        _writeToRing(ring, block, m_pBuffer->Read(block, sizeof block));
}

CVnStreamRing* CVnQueueReadStream::StartRing()
{
    if (CVnStreamRing* ring = m_pRing.load())
        return ring;
    vfc::TLock lock(m_csRing);
    if (CVnStreamRing* ring = m_pRing.load())
        return ring;
    std::unique_ptr<CVnStreamRing> ring(new (std::nothrow) CVnStreamRing);
    if (!ring || !ring->Create(GetPosition(), iExpectedLength))
        return nullptr;
    // What the buffer holds now fits without a wait: the ring is as large as
    // the buffer's bound. What the receive thread adds meanwhile is its own
    // flush's, which waits for this lock; moving it here could fill the ring
    // before the client has it, and wait for ever.
    BYTE block[kStreamChunkSize];
    for (DWORD left = std::min<DWORD>(m_pBuffer->GetSize(), kRingCapacity), moved = 0; left > 0; left -= moved) {
        moved = m_pBuffer->Read(block, std::min<DWORD>(left, sizeof block));
        if (moved == 0)
            break;
        ring->Write(block, moved, nullptr);
    }
    m_spRing = std::move(ring);
    {
        // The bytes are in before the ring can say that the body is done.
        vfc::TLock done(m_csDone);
        m_spRing->SetDone(bDone);
        m_pRing.store(m_spRing.get());
    }
    // A reader waiting on the buffer looks again, at the ring.
    ::SetEvent(hDataReadyEvent.get());
    return m_spRing.get();
}

std::unique_ptr<BYTE[]> CVnQueueReadStream::ReadFromQueue(LONG iMaximumCount, LONG* pCount, DWORD dwTimeout)
{
    LONG localCount = 0;
    if (!pCount)
        pCount = &localCount;
    *pCount = 0;
    if (CVnStreamRing* ring = m_pRing.load())
        return _readFromRing(ring, iMaximumCount, pCount, dwTimeout);

    LONG available = 0;
    get_AvailableBytes(&available);
    while (available == 0 && !bDone) {
        // Announce the wait, then look once more: a write that queued its
        // bytes before the announcement is seen here, and one that queued
        // them after it sees the announcement and sets the event.
        // The receive thread usually brings the next chunk within
        // microseconds; a short look before the wait saves the two calls to
        // the server that a wait and its wake-up cost under Wine.
        for (int spin = 0; spin < CVnStreamRing::SpinsBeforeWait() && available == 0 && !bDone; ++spin) {
            YieldProcessor();
            get_AvailableBytes(&available);
        }
        if (available != 0 || bDone)
            break;
        ++m_cReadersWaiting;
        get_AvailableBytes(&available);
        if (available != 0 || bDone) {
            --m_cReadersWaiting;
            break;
        }
        const DWORD result = m_monitor.Wait(hDataReadyEvent.get(), dwTimeout);
        --m_cReadersWaiting;
        if (CVnStreamRing* ring = m_pRing.load())
            return _readFromRing(ring, iMaximumCount, pCount, dwTimeout);
        if (result == WAIT_TIMEOUT) {
            // A read that ran out of time ends the body for good: the receive
            // thread stops at its next block, and later reads do not resume.
            LogLine(vn_log::kError, "CVnQueueReadStream::ReadFromQueue", "WAIT_TIMEOUT");
            SetDone(true);
            *pCount = -static_cast<LONG>(WAIT_TIMEOUT);
            ::ResetEvent(hDataReadyEvent.get());
            return nullptr;
        }
        if (result != WAIT_OBJECT_0) {
            // The client died, or the wait could not be made at all; either
            // way no data will reach this reader.
            if (result == WAIT_OBJECT_0 + 1)
                LogLine(vn_log::kError, "CVnQueueReadStream::ReadFromQueue", "Process closed WAIT_TIMEOUT");
            else
                LogLine(vn_log::kErrorDec, "CVnQueueReadStream::ReadFromQueue", "WaitForMultipleObjects failed.",
                        static_cast<int>(::GetLastError()));
            SetDone(true);
            *pCount = -1;
            return nullptr;
        }
        get_AvailableBytes(&available);
    }
    if (CVnStreamRing* ring = m_pRing.load())  // it came while this read looked
        return _readFromRing(ring, iMaximumCount, pCount, dwTimeout);
    // The event is not reset here: a set left over from a write whose bytes
    // this read takes costs the next wait one more look at the queue, while
    // a reset would cost every read a call to the server under Wine.

    std::unique_ptr<BYTE[]> block = CVnQueueCustomStream::ReadFromQueue(iMaximumCount, pCount, dwTimeout);
    // The body ended before its Content-Length: the bytes missing will never come.
    if (*pCount == 0 && bDone && static_cast<LONG>(GetPosition()) < iExpectedLength)
        *pCount = -1;
    return block;
}

std::unique_ptr<BYTE[]> CVnQueueReadStream::_readFromRing(CVnStreamRing* ring, LONG iMaximumCount, LONG* pCount,
                                                          DWORD dwTimeout)
{
    std::unique_ptr<BYTE[]> block;
    const LONG result = ring->Read(iMaximumCount, dwTimeout, m_monitor.GetProcess(),
                                   [&](const BYTE* first, DWORD n1, const BYTE* second, DWORD n2) {
                                       if (n1 + n2 == 0)
                                           return true;
                                       block.reset(new BYTE[n1 + n2 + 1]);
                                       std::memcpy(block.get(), first, n1);
                                       std::memcpy(block.get() + n1, second, n2);
                                       block[n1 + n2] = 0;
                                       return true;
                                   });
    if (result == kRingTimedOut)
        LogLine(vn_log::kError, "CVnQueueReadStream::ReadFromQueue", "WAIT_TIMEOUT");
    else if (result < 0 && ::WaitForSingleObject(m_monitor.GetProcess(), 0) == WAIT_OBJECT_0)
        LogLine(vn_log::kError, "CVnQueueReadStream::ReadFromQueue", "Process closed WAIT_TIMEOUT");
    *pCount = result;
    return result > 0 ? std::move(block) : nullptr;
}

void CVnQueueReadStream::_wakeReader() noexcept
{
    if (m_cReadersWaiting > 0)
        ::SetEvent(hDataReadyEvent.get());
}

void CVnQueueReadStream::SetDone(bool done)
{
    {
        vfc::TLock lock(m_csDone);
        bDone = done;
        if (CVnStreamRing* ring = m_pRing.load())
            ring->SetDone(done);
    }
    // A receive thread waiting for room stops as well: once the stream is
    // done nobody empties the queue for it, and the next Execute joins it.
    if (m_pBuffer)
        m_pBuffer->ReleaseWriter(done);
    if (done)
        ::SetEvent(hDataReadyEvent.get());
}

bool CVnQueueReadStream::IsDone() const noexcept
{
    CVnStreamRing* ring = m_pRing.load();
    return ring ? ring->IsDone() : bDone.load();
}

void CVnQueueReadStream::SetExpectedLength(LONG length) noexcept
{
    iExpectedLength = length;
    if (CVnStreamRing* ring = m_pRing.load())
        ring->SetExpectedLength(length);
}

void CVnQueueReadStream::SetMonitor(const VnProcessMonitor& monitor) noexcept
{
    m_monitor = monitor;
    m_writerMonitor = monitor;
    CVnQueueCustomStream::SetMonitor(monitor);
}

void* CVnQueueReadStream::QueryInterfaceExtra(REFIID iid) noexcept
{
    return iid == IID_IMarshal && !CVnStreamMarshaler::IsHidden() ? static_cast<IMarshal*>(&m_marshaler) : nullptr;
}
