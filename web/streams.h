// The byte streams of the web pipeline: a body travels between a client's
// calls and the host's threads through an InterlockedBuffer behind IVnStream.
// CVnQueueReadStream is the side from which a client reads a response body,
// CVnQueueWriteStream the side into which it writes a request body.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <atomic>
#include <memory>

#include "host/counters.h"
#include "vnlinkhost.h"

#include "vfc/com_object.h"
#include "vfc/critical_section.h"
#include "vfc/dispatch.h"
#include "vfc/unique_resource.h"
#include "web/interlocked_buffer.h"
#include "web/process_monitor.h"
#include "web/stream_marshal.h"
#include "web/stream_ring.h"

// The size limit of every stream's buffer and the size of its chunks.
constexpr DWORD kStreamQueueLimit = 0x40000;
constexpr DWORD kStreamChunkSize = 4096;

// Whoever needs to know that a body has ended, or must end.
class IDoneable {
public:
    virtual void SetDone(bool bDone) = 0;

protected:
    ~IDoneable() = default;
};

// The parameter block of an after-write callback. The stream owns the block
// it is given and deletes it through this base when the callback is replaced
// or cleared, or when the stream goes.
struct AfterWriteParam {
    virtual ~AfterWriteParam() = default;
};
using AfterWriteCallback = void (*)(AfterWriteParam* pParam);

// What a read stream needs from the owner of its receive thread (the
// ReceiveThreadWrapper that the request and the read stream share) when the
// stream goes away. The stream holds the owner shared, so that the owner and
// its transceiver live while a body still arrives for a dropped request.
class IReceiveThreadOwner {
public:
    virtual ~IReceiveThreadOwner() = default;
    // Calls SetDone(true) on the IDoneable that the owner was given and
    // forgets it, so that the receive callback stops at its next block.
    virtual void ReleaseDoneable() = 0;
    // Closes the internet handles while there is a transceiver, joins the
    // receive thread, and deletes the transceiver. Called after the stream
    // has drained, so a thread blocked on the full queue can end.
    virtual void StopReceiveThread() = 0;
};

// The part common to both sides: one buffer, the after-write callback and the
// count of bytes read. The interface operations here are those of a stream
// that can do everything; each side refuses what it does not do.
//
// Threading: on the read side the receive thread writes while a client call
// reads, and the buffer's own lock suffices, so Lock and Unlock are empty.
// On the write side every queue operation runs under a re-entrant critical
// section, held across the after-write callback, whose own reads take it
// again on the same thread.
class CVnQueueCustomStream : public vfc::TDispatchImpl<IVnStream> {
public:
    // IVnStream.
    STDMETHODIMP get_AvailableBytes(LONG* count) override;
    STDMETHODIMP get_Position(LONG* position) override;
    STDMETHODIMP Read(LONG maximumCount, SAFEARRAY** data) override;
    STDMETHODIMP Write(SAFEARRAY* data, LONG startIndex, LONG writeCount, LONG* count) override;
    STDMETHODIMP ReadWithTimeout(LONG maximumCount, LONG millisecondsTimeout, SAFEARRAY** data) override;
    STDMETHODIMP ReadString(BSTR* text) override;
    STDMETHODIMP ReadStringWithTimeout(LONG millisecondsTimeout, BSTR* text) override;

    // Queues iWriteCount bytes from data + iStartIndex, then runs the
    // after-write callback. Gives iWriteCount, or 0 for invalid parameters.
    // The read side queues chunk by chunk, waiting while the queue is full
    // and waking the reader after each chunk.
    virtual LONG WriteToQueue(const BYTE* data, LONG iStartIndex, LONG iWriteCount);
    // Takes up to iMaximumCount bytes (0, or more than is queued, means all
    // that is queued) into a block with one zero byte behind them. The count
    // goes to *pCount; null and a count of 0 when nothing is queued. The
    // read side waits up to dwTimeout ms for data and gives a negative count
    // when the stream broke (-1) or the time ran out (-258).
    virtual std::unique_ptr<BYTE[]> ReadFromQueue(LONG iMaximumCount, LONG* pCount, DWORD dwTimeout);
    virtual void Lock() = 0;
    virtual void Unlock() = 0;
    // Bytes queued, whatever holds them.
    virtual DWORD QueuedBytes() { return m_pBuffer->GetSize(); }

    // Sets a new callback and block, deleting the old block first; gives the
    // old callback.
    AfterWriteCallback SetAfterWriteCallback(AfterWriteCallback pfn, std::unique_ptr<AfterWriteParam> pParam);
    void ClearAfterWriteCallback() { SetAfterWriteCallback(nullptr, nullptr); }
    bool IsEmpty();
    DWORD GetPosition();
    // The client whose death frees a writer waiting for room.
    void SetMonitor(const VnProcessMonitor& monitor) noexcept { m_pBuffer->SetMonitor(monitor); }

protected:
    CVnQueueCustomStream() noexcept = default;
    ~CVnQueueCustomStream();
    // Makes the buffer; each side says whether its writer waits for room.
    // The object template constructs this base without arguments, so the
    // buffer comes here, where a failure can still be answered with a status.
    HRESULT FinalConstruct(bool bWaitWhenFull) noexcept;

    // Present from FinalConstruct on, which runs before anyone else holds the object.
    std::unique_ptr<InterlockedBuffer> m_pBuffer;

private:
    // Lock and Unlock as a scope.
    class TStreamLock;

    AfterWriteCallback pfnAfterWrite = nullptr;
    std::unique_ptr<AfterWriteParam> pAfterWriteParam;
    std::atomic<DWORD> cbPosition{0};
    TLiveObject<kLiveStreams> m_live;
};

// The side into which a client writes a request body. Its buffer never makes
// the writer wait, so a body of any size can be cached in it.
class CVnQueueWriteStream : public vfc::TComObject<CVnQueueWriteStream, CVnQueueCustomStream> {
public:
    CVnQueueWriteStream() = default;

    STDMETHODIMP get_CanRead(VARIANT_BOOL* canRead) override;
    STDMETHODIMP get_CanWrite(VARIANT_BOOL* canWrite) override;
    STDMETHODIMP Read(LONG maximumCount, SAFEARRAY** data) override;
    STDMETHODIMP ReadWithTimeout(LONG maximumCount, LONG millisecondsTimeout, SAFEARRAY** data) override;
    STDMETHODIMP ReadString(BSTR* text) override;
    STDMETHODIMP ReadStringWithTimeout(LONG millisecondsTimeout, BSTR* text) override;

    void Lock() override { m_cs.Enter(); }
    void Unlock() override { m_cs.Leave(); }

    HRESULT FinalConstruct() noexcept { return CVnQueueCustomStream::FinalConstruct(false); }

private:
    vfc::TCriticalSection m_cs;
};

// The side from which a client reads a response body. The receive thread
// writes into it and sets it done at the end of the body; a client read
// waits for data through the client's monitor.
//
// The first marshalling towards a client's process whose unmarshaller DLL
// can read it moves the body into a ring shared with that process (see
// CVnStreamMarshaler): what the buffer holds goes into the ring, and from
// then on the receive thread writes there, every read of this object reads
// there, and whether the body is done is the ring's word, since a reader in
// the client's process may end it too. The buffer stays empty.
class CVnQueueReadStream : public vfc::TComObject<CVnQueueReadStream, CVnQueueCustomStream>, public IDoneable {
public:
    CVnQueueReadStream();
    ~CVnQueueReadStream() override;

    STDMETHODIMP get_CanRead(VARIANT_BOOL* canRead) override;
    STDMETHODIMP get_CanWrite(VARIANT_BOOL* canWrite) override;
    STDMETHODIMP get_AvailableBytes(LONG* count) override;
    STDMETHODIMP Write(SAFEARRAY* data, LONG startIndex, LONG writeCount, LONG* count) override;

    LONG WriteToQueue(const BYTE* data, LONG iStartIndex, LONG iWriteCount) override;
    std::unique_ptr<BYTE[]> ReadFromQueue(LONG iMaximumCount, LONG* pCount, DWORD dwTimeout) override;
    void Lock() override {}
    void Unlock() override {}
    DWORD QueuedBytes() override;

    // IMarshal, while it is not hidden (see CVnStreamMarshaler).
    void* QueryInterfaceExtra(REFIID iid) noexcept;
    // The ring, made on the first call, with what the buffer holds moved
    // into it; null when it can't be made.
    CVnStreamRing* StartRing();
    DWORD ClientProcessId() const noexcept { return m_monitor.GetProcessId(); }

    // IDoneable: true also wakes a reader; the event is never reset here.
    void SetDone(bool bDone) override;
    bool IsDone() const noexcept;
    void SetReceiveThread(std::shared_ptr<IReceiveThreadOwner> receiveThread) noexcept
    {
        m_spReceiveThread = std::move(receiveThread);
    }
    // The response's Content-Length; 0 when unknown.
    void SetExpectedLength(LONG length) noexcept;
    // The client whose death ends a waiting read and a waiting write.
    void SetMonitor(const VnProcessMonitor& monitor) noexcept;

    HRESULT FinalConstruct() noexcept;

private:
    // Sets hDataReadyEvent when a reader waits for it.
    void _wakeReader() noexcept;
    // The receive thread's side in ring mode.
    void _writeToRing(CVnStreamRing* ring, const BYTE* data, DWORD cb);
    // After a write into the buffer: moves it into the ring, if the ring was
    // made meanwhile.
    void _flushToRing();
    std::unique_ptr<BYTE[]> _readFromRing(CVnStreamRing* ring, LONG iMaximumCount, LONG* pCount, DWORD dwTimeout);

    std::shared_ptr<IReceiveThreadOwner> m_spReceiveThread;
    VnProcessMonitor m_monitor;
    // The receive thread's own copy, for its waits for room in the ring.
    VnProcessMonitor m_writerMonitor;
    CVnStreamMarshaler m_marshaler{*this};
    // Set once by StartRing, last, under m_csRing, which the receive
    // thread's flush after each write into the buffer takes too, so that
    // bytes reach the ring in their order.
    std::unique_ptr<CVnStreamRing> m_spRing;
    std::atomic<CVnStreamRing*> m_pRing{nullptr};
    vfc::TCriticalSection m_csRing;
    // Orders SetDone against the moment the ring takes over the flag.
    vfc::TCriticalSection m_csDone;
    vfc::THandle hDataReadyEvent;
    // Readers about to wait or waiting on hDataReadyEvent; a write sets the
    // event only when there is one, which saves a call to the server per chunk.
    std::atomic<int> m_cReadersWaiting{0};
    // Written by the client's thread and the receive thread, read by both.
    std::atomic<bool> bDone{false};
    std::atomic<LONG> iExpectedLength{0};
};
