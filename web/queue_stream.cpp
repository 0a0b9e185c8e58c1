// The common part of the two queue streams, and the write side.
#include "web/streams.h"

#include <cstring>
#include <new>
#include <string>

#include "host/log.h"
#include "host/status.h"
#include "vfc/text.h"
#include "web/stream_arrays.h"

// Lock and Unlock of the stream as a scope, so that an exception on the way
// (an exhausted heap) never leaves the write side locked.
class CVnQueueCustomStream::TStreamLock {
public:
    explicit TStreamLock(CVnQueueCustomStream& stream) noexcept : m_stream(stream) { m_stream.Lock(); }
    ~TStreamLock() { m_stream.Unlock(); }
    TStreamLock(const TStreamLock&) = delete;
    TStreamLock& operator=(const TStreamLock&) = delete;

private:
    CVnQueueCustomStream& m_stream;
};

CVnQueueCustomStream::~CVnQueueCustomStream() = default;

HRESULT CVnQueueCustomStream::FinalConstruct(bool bWaitWhenFull) noexcept
{
    try {
        m_pBuffer = std::make_unique<InterlockedBuffer>(kStreamQueueLimit, bWaitWhenFull, false, kStreamChunkSize);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return m_pBuffer->IsValid() ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP CVnQueueCustomStream::get_AvailableBytes(LONG* count)
{
    if (!count)
        return E_POINTER;
    TStreamLock lock(*this);
    *count = static_cast<LONG>(m_pBuffer->GetSize());
    return S_OK;
}

STDMETHODIMP CVnQueueCustomStream::get_Position(LONG* position)
{
    // The count of bytes read is kept for the short-body test only; clients
    // always see an unknown position.
    if (!position)
        return E_POINTER;
    *position = -1;
    return S_OK;
}

STDMETHODIMP CVnQueueCustomStream::Read(LONG maximumCount, SAFEARRAY** data)
{
    return ReadWithTimeout(maximumCount, -1, data);
}

STDMETHODIMP CVnQueueCustomStream::ReadString(BSTR* text)
{
    return ReadStringWithTimeout(-1, text);
}

STDMETHODIMP CVnQueueCustomStream::ReadWithTimeout(LONG maximumCount, LONG millisecondsTimeout, SAFEARRAY** data)
{
    if (!data)
        return E_POINTER;
    *data = nullptr;
    if (maximumCount < 0) {
        LogLine(vn_log::kError, "CVnQueueCustomStream::Read",
                "Invalid values of parameters: ((iMaximumCount < 0)||(iMaximumCount>MAXLONG))");
        return E_INVALIDARG;
    }
    try {
        LONG count = 0;
        // -1 and every other negative time-out reach the wait as INFINITE or
        // as a very long wait, as the platform reads them.
        std::unique_ptr<BYTE[]> block = ReadFromQueue(maximumCount, &count, static_cast<DWORD>(millisecondsTimeout));
        if (count < 0)
            return count == -static_cast<LONG>(WAIT_TIMEOUT) ? VN_E_READ_TIMEOUT : VN_E_STREAM_BROKEN;
        return vn_streams::MakeByteArray(block.get(), block ? static_cast<DWORD>(count) : 0, data);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

STDMETHODIMP CVnQueueCustomStream::ReadStringWithTimeout(LONG millisecondsTimeout, BSTR* text)
{
    if (!text)
        return E_POINTER;
    *text = nullptr;
    // A queue that is empty right now gives no line, even while the body goes on.
    if (IsEmpty())
        return S_OK;
    try {
        std::string line;
        while (!IsEmpty()) {
            LONG count = 0;
            std::unique_ptr<BYTE[]> block = ReadFromQueue(1, &count, static_cast<DWORD>(millisecondsTimeout));
            if (count < 0)
                return VN_E_STREAM_BROKEN;
            if (count == 0 || !block)
                continue;
            const BYTE b = block[0];
            if (b != '\r' && b != '\n')
                line += static_cast<char>(b);
            else if (!line.empty())
                break;  // the line end stays behind it in the queue, to be skipped next time
        }
        line += '\n';
        const std::wstring wide = vfc::Widen(line);
        *text = ::SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
        return *text ? S_OK : E_OUTOFMEMORY;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

STDMETHODIMP CVnQueueCustomStream::Write(SAFEARRAY* data, LONG startIndex, LONG writeCount, LONG* count)
{
    if (!count)
        return E_POINTER;
    *count = 0;
    if (startIndex < 0 || writeCount <= 0) {
        LogLine(vn_log::kError, "CVnQueueCustomStream::Write",
                "Invalid values of parameters: ((iStartIndex < 0)||( iWriteCount<=0)");
        return E_INVALIDARG;
    }
    vn_streams::TArrayData bytes(data);
    if (FAILED(bytes.status())) {
        LogLine(vn_log::kErrorHex, "CVnQueueCustomStream::Write", "SafeArrayAccessData failed.",
                static_cast<unsigned>(bytes.status()));
        return bytes.status();
    }
    // A slice beyond the array's end would read memory the client never gave.
    if (static_cast<ULONGLONG>(startIndex) + static_cast<ULONGLONG>(writeCount) > bytes.size()) {
        LogLine(vn_log::kError, "CVnQueueCustomStream::Write",
                "Invalid values of parameters: ((iStartIndex < 0)||( iWriteCount<=0)");
        return E_INVALIDARG;
    }
    try {
        *count = WriteToQueue(bytes.get(), startIndex, writeCount);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

LONG CVnQueueCustomStream::WriteToQueue(const BYTE* data, LONG iStartIndex, LONG iWriteCount)
{
    TStreamLock lock(*this);
    if (iStartIndex < 0 || iWriteCount <= 0) {
        TraceLine(vn_log::kWarning, "CVnQueueCustomStream::WriteToQueue",
                  "Invalid values of parameters: (iStartIndex<0)||(iWriteCount<=0).");
        return 0;
    }
    if (!data) {
        TraceLine(vn_log::kWarning, "CVnQueueCustomStream::WriteToQueue", "Input data is NULL.");
        return 0;
    }
    // Whether the queue is still below its limit does not matter here: the
    // read side has waited for room, and the write side has no limit.
    m_pBuffer->Write(data + iStartIndex, static_cast<DWORD>(iWriteCount));
    // Still under the lock: in the instant model the callback sends what was
    // just written, and its reads take the lock again on this thread.
    if (pfnAfterWrite)
        pfnAfterWrite(pAfterWriteParam.get());
    return iWriteCount;
}

std::unique_ptr<BYTE[]> CVnQueueCustomStream::ReadFromQueue(LONG iMaximumCount, LONG* pCount, DWORD /*dwTimeout*/)
{
    LONG localCount = 0;
    if (!pCount)
        pCount = &localCount;
    *pCount = 0;
    TStreamLock lock(*this);
    const DWORD size = m_pBuffer->GetSize();
    if (size == 0)
        return nullptr;
    const DWORD n = (iMaximumCount > 0 && static_cast<DWORD>(iMaximumCount) <= size) ? static_cast<DWORD>(iMaximumCount)
                                                                                      : size;
    std::unique_ptr<BYTE[]> block(new BYTE[n + 1]);
    // Another reader on the read side may have taken bytes since the size was
    // read; the count says what really came.
    const DWORD got = m_pBuffer->Read(block.get(), n);
    if (got == 0)
        return nullptr;
    block[got] = 0;
    *pCount = static_cast<LONG>(got);
    cbPosition += got;
    return block;
}

AfterWriteCallback CVnQueueCustomStream::SetAfterWriteCallback(AfterWriteCallback pfn,
                                                               std::unique_ptr<AfterWriteParam> pParam)
{
    TStreamLock lock(*this);
    pAfterWriteParam.reset();
    pAfterWriteParam = std::move(pParam);
    AfterWriteCallback old = pfnAfterWrite;
    pfnAfterWrite = pfn;
    return old;
}

bool CVnQueueCustomStream::IsEmpty()
{
    // A read stream whose body went into a ring holds it there.
    TStreamLock lock(*this);
    return QueuedBytes() == 0;
}

DWORD CVnQueueCustomStream::GetPosition()
{
    TStreamLock lock(*this);
    return cbPosition;
}

// The write side refuses every read through the interface; the request takes
// the body out with ReadFromQueue.

STDMETHODIMP CVnQueueWriteStream::get_CanRead(VARIANT_BOOL* canRead)
{
    if (!canRead)
        return E_POINTER;
    *canRead = VARIANT_FALSE;
    return S_OK;
}

STDMETHODIMP CVnQueueWriteStream::get_CanWrite(VARIANT_BOOL* canWrite)
{
    if (!canWrite)
        return E_POINTER;
    *canWrite = VARIANT_TRUE;
    return S_OK;
}

STDMETHODIMP CVnQueueWriteStream::Read(LONG, SAFEARRAY** data)
{
    if (data)
        *data = nullptr;
    return VN_E_STREAM_NOT_READABLE;
}

STDMETHODIMP CVnQueueWriteStream::ReadWithTimeout(LONG, LONG, SAFEARRAY** data)
{
    if (data)
        *data = nullptr;
    return VN_E_STREAM_NOT_READABLE;
}

STDMETHODIMP CVnQueueWriteStream::ReadString(BSTR* text)
{
    if (text)
        *text = nullptr;
    return VN_E_STREAM_NOT_READABLE;
}

STDMETHODIMP CVnQueueWriteStream::ReadStringWithTimeout(LONG, BSTR* text)
{
    if (text)
        *text = nullptr;
    return VN_E_STREAM_NOT_READABLE;
}
