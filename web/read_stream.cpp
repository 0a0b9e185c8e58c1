// The read side of the queue streams: a response body on its way from the
// receive thread to the client.
#include "web/streams.h"

#include <algorithm>

#include "host/log.h"
#include "host/status.h"

namespace {

// About as long as a wait and its wake-up cost; on a single processor the
// writer can't run while the reader looks, so it does not look at all.
int SpinsBeforeWait() noexcept
{
    static const int spins = [] {
        SYSTEM_INFO info;
        ::GetSystemInfo(&info);
        return info.dwNumberOfProcessors > 1 ? 500 : 0;
    }();
    return spins;
}

}  // namespace

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
    // First the receive callback learns that nobody reads any more, then a
    // thread blocked on the full queue is freed, and only then is it joined:
    // joining first would wait for ever on a thread that waits for room.
    if (m_spReceiveThread)
        m_spReceiveThread->ReleaseDoneable();
    SetDone(true);
    if (m_pBuffer)
        m_pBuffer->Drain();
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
    const DWORD size = m_pBuffer->GetSize();
    // -1 tells the client that nothing more will come.
    *count = (size == 0 && bDone) ? -1 : static_cast<LONG>(size);
    return S_OK;
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
        CVnQueueCustomStream::WriteToQueue(data, iStartIndex + done, piece);
        _wakeReader();
        done += piece;
    }
    return iWriteCount;
}

std::unique_ptr<BYTE[]> CVnQueueReadStream::ReadFromQueue(LONG iMaximumCount, LONG* pCount, DWORD dwTimeout)
{
    LONG localCount = 0;
    if (!pCount)
        pCount = &localCount;
    *pCount = 0;

    LONG available = 0;
    get_AvailableBytes(&available);
    while (available == 0 && !bDone) {
        // Announce the wait, then look once more: a write that queued its
        // bytes before the announcement is seen here, and one that queued
        // them after it sees the announcement and sets the event.
        // The receive thread usually brings the next chunk within
        // microseconds; a short look before the wait saves the two calls to
        // the server that a wait and its wake-up cost under Wine.
        for (int spin = 0; spin < SpinsBeforeWait() && available == 0 && !bDone; ++spin) {
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
    // The event is not reset here: a set left over from a write whose bytes
    // this read takes costs the next wait one more look at the queue, while
    // a reset would cost every read a call to the server under Wine.

    std::unique_ptr<BYTE[]> block = CVnQueueCustomStream::ReadFromQueue(iMaximumCount, pCount, dwTimeout);
    // The body ended before its Content-Length: the bytes missing will never come.
    if (*pCount == 0 && bDone && static_cast<LONG>(GetPosition()) < iExpectedLength)
        *pCount = -1;
    return block;
}

void CVnQueueReadStream::_wakeReader() noexcept
{
    if (m_cReadersWaiting > 0)
        ::SetEvent(hDataReadyEvent.get());
}

void CVnQueueReadStream::SetDone(bool done)
{
    bDone = done;
    if (done)
        ::SetEvent(hDataReadyEvent.get());
}

void CVnQueueReadStream::SetMonitor(const VnProcessMonitor& monitor) noexcept
{
    m_monitor = monitor;
    CVnQueueCustomStream::SetMonitor(monitor);
}
