// CVnRingStream: a read stream as the client's process sees it when the
// unmarshaller DLL is there: Read, ReadWithTimeout and AvailableBytes take
// the body from the ring shared with the server, in this process's memory;
// ReadString and ReadStringWithTimeout, which read a byte at a time, go to
// the server's stream (the server reads the same ring); the rest is answered
// here, as the server's read stream answers it.
//
// The standard reference that came with the packet holds this process's
// reference to the server's stream, so releasing this object releases it.
// It is the stream's IUnknown: a proxy for it is made without the type
// library, on either side, so the crossing of a stream costs no more than
// the ring. The stream's own interface is asked of it on the first
// ReadString only.
//
// Free-threaded: the ring's reader lock orders concurrent reads, and the
// proxy may be called from any thread of the multithreaded apartment.
#pragma once

#include "vfc/com_object.h"
#include "vfc/com_ptr.h"
#include "vfc/critical_section.h"
#include "vfc/dispatch.h"
#include "vnlinkhost.h"
#include "web/stream_ring.h"

class CVnRingStream : public vfc::TComObject<CVnRingStream, vfc::TDispatchImpl<IVnStream>> {
public:
    CVnRingStream() = default;

    // Opens the ring by its name; false when it can't be had from here.
    bool Open(const char* name, DWORD serverPid) { return m_ring.Open(name, serverPid); }
    void SetServerStream(vfc::TComPtr<IUnknown> stream) noexcept { m_spServer = std::move(stream); }

    STDMETHODIMP get_CanRead(VARIANT_BOOL* canRead) override;
    STDMETHODIMP get_CanWrite(VARIANT_BOOL* canWrite) override;
    STDMETHODIMP get_AvailableBytes(LONG* count) override;
    STDMETHODIMP get_Position(LONG* position) override;
    STDMETHODIMP Read(LONG maximumCount, SAFEARRAY** data) override;
    STDMETHODIMP Write(SAFEARRAY* data, LONG startIndex, LONG writeCount, LONG* count) override;
    STDMETHODIMP ReadWithTimeout(LONG maximumCount, LONG millisecondsTimeout, SAFEARRAY** data) override;
    STDMETHODIMP ReadString(BSTR* text) override;
    STDMETHODIMP ReadStringWithTimeout(LONG millisecondsTimeout, BSTR* text) override;

private:
    // The server's stream as IVnStream, asked for once.
    HRESULT _serverStream(vfc::TComPtr<IVnStream>& stream);

    CVnStreamRing m_ring;
    vfc::TComPtr<IUnknown> m_spServer;
    vfc::TCriticalSection m_csServerStream;
    vfc::TComPtr<IVnStream> m_spServerStream;
};
