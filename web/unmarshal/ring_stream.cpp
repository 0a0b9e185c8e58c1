#include "web/unmarshal/ring_stream.h"

#include <cstring>

#include "host/status.h"
#include "web/stream_arrays.h"

STDMETHODIMP CVnRingStream::get_CanRead(VARIANT_BOOL* canRead)
{
    if (!canRead)
        return E_POINTER;
    *canRead = VARIANT_TRUE;
    return S_OK;
}

STDMETHODIMP CVnRingStream::get_CanWrite(VARIANT_BOOL* canWrite)
{
    if (!canWrite)
        return E_POINTER;
    *canWrite = VARIANT_FALSE;
    return S_OK;
}

STDMETHODIMP CVnRingStream::get_AvailableBytes(LONG* count)
{
    if (!count)
        return E_POINTER;
    *count = m_ring.Available();
    return S_OK;
}

STDMETHODIMP CVnRingStream::get_Position(LONG* position)
{
    if (!position)
        return E_POINTER;
    *position = -1;
    return S_OK;
}

STDMETHODIMP CVnRingStream::Read(LONG maximumCount, SAFEARRAY** data)
{
    return ReadWithTimeout(maximumCount, -1, data);
}

STDMETHODIMP CVnRingStream::Write(SAFEARRAY*, LONG, LONG, LONG* count)
{
    if (count)
        *count = 0;
    return VN_E_STREAM_NOT_WRITABLE;
}

STDMETHODIMP CVnRingStream::ReadWithTimeout(LONG maximumCount, LONG millisecondsTimeout, SAFEARRAY** data)
{
    if (!data)
        return E_POINTER;
    *data = nullptr;
    if (maximumCount < 0)
        return E_INVALIDARG;
    // The bytes go from the ring straight into the array the client gets.
    vn_streams::TSafeArray array;
    bool noMemory = false;
    const LONG result = m_ring.Read(maximumCount, static_cast<DWORD>(millisecondsTimeout), nullptr,
                                    [&](const BYTE* first, DWORD n1, const BYTE* second, DWORD n2) {
                                        SAFEARRAYBOUND bound = {n1 + n2, 0};
                                        array.attach(::SafeArrayCreate(VT_UI1, 1, &bound));
                                        void* bytes = nullptr;
                                        noMemory = !array || FAILED(::SafeArrayAccessData(array.get(), &bytes));
                                        if (noMemory)
                                            return false;
                                        std::memcpy(bytes, first, n1);
                                        std::memcpy(static_cast<BYTE*>(bytes) + n1, second, n2);
                                        ::SafeArrayUnaccessData(array.get());
                                        return true;
                                    });
    if (result >= 0) {
        *data = array.detach();
        return S_OK;
    }
    if (noMemory)
        return E_OUTOFMEMORY;
    return result == kRingTimedOut ? VN_E_READ_TIMEOUT : VN_E_STREAM_BROKEN;
}

STDMETHODIMP CVnRingStream::ReadString(BSTR* text)
{
    return ReadStringWithTimeout(-1, text);
}

STDMETHODIMP CVnRingStream::ReadStringWithTimeout(LONG millisecondsTimeout, BSTR* text)
{
    if (!text)
        return E_POINTER;
    *text = nullptr;
    vfc::TComPtr<IVnStream> server;
    const HRESULT hr = _serverStream(server);
    return FAILED(hr) ? hr : server->ReadStringWithTimeout(millisecondsTimeout, text);
}

HRESULT CVnRingStream::_serverStream(vfc::TComPtr<IVnStream>& stream)
{
    const vfc::TLock lock(m_csServerStream);
    if (!m_spServerStream) {
        if (!m_spServer)
            return E_UNEXPECTED;
        const HRESULT hr = m_spServer->QueryInterface(IID_IVnStream, m_spServerStream.put_void());
        if (FAILED(hr))
            return hr;
    }
    stream = m_spServerStream;
    return S_OK;
}
