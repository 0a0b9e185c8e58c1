// How a read stream crosses to a client's process: through its ring, read by
// the in-process unmarshaller DLL, where that DLL serves the client; by the
// platform's standard marshalling everywhere else.
#pragma once

#include <windows.h>
#include <objidl.h>

class CVnQueueReadStream;

// What the custom marshalling writes ahead of the standard reference to the
// stream, which follows it in the same packet: fixed-size fields only, since
// the two sides may differ in bitness. An empty name means that no ring
// could be made; the unmarshaller then hands out the standard proxy.
struct VnRingPacket {
    DWORD dwMagic;
    DWORD dwServerPid;
    char szName[96];
};
constexpr DWORD kRingPacketMagic = 0x31505256;  // "VRP1"

// The IMarshal of a read stream, a part of it: its IUnknown is the stream's.
//
// The standard reference inside the packet carries the client's reference
// to the stream, so that releasing the unmarshalled object releases the
// stream as a standard proxy would, and lets the unmarshaller fall back to
// calls where the ring can't be opened. While that reference is marshalled,
// and while the object is disconnected, the stream hides this interface on
// the calling thread (HideMarshal), so that the platform's standard
// marshalling takes over.
class CVnStreamMarshaler : public IMarshal {
public:
    explicit CVnStreamMarshaler(CVnQueueReadStream& stream) noexcept : m_stream(stream) {}

    // True on a thread that is marshalling the standard reference or
    // disconnecting the stream.
    static bool IsHidden() noexcept;

    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetUnmarshalClass(REFIID riid, void* pv, DWORD context, void* pvContext, DWORD flags,
                                   CLSID* pCid) override;
    STDMETHODIMP GetMarshalSizeMax(REFIID riid, void* pv, DWORD context, void* pvContext, DWORD flags,
                                   DWORD* pSize) override;
    STDMETHODIMP MarshalInterface(IStream* pStm, REFIID riid, void* pv, DWORD context, void* pvContext,
                                  DWORD flags) override;
    STDMETHODIMP UnmarshalInterface(IStream* pStm, REFIID riid, void** ppv) override;
    STDMETHODIMP ReleaseMarshalData(IStream* pStm) override;
    STDMETHODIMP DisconnectObject(DWORD reserved) override;

private:
    // Whether this marshalling goes through the ring: towards another
    // process of this machine, an ordinary marshalling of an interface the
    // unmarshaller offers, and an unmarshaller registered, with its file
    // present, for the client's bitness (found out once per stream).
    bool _useRing(REFIID riid, DWORD context, DWORD flags);
    // Writes the packet and the reference, or has the standard marshaller do it.
    HRESULT _marshal(IStream* pStm, REFIID riid, void* pv, DWORD context, void* pvContext, DWORD flags);
    // The platform's standard marshaller for the stream.
    HRESULT _standard(REFIID riid, DWORD context, void* pvContext, DWORD flags, IMarshal** out);

    CVnQueueReadStream& m_stream;
    int m_iServed = -1;  // whether an unmarshaller serves the client: -1 not yet known
};

// Whether this system runs 64-bit programs, whatever this process is.
bool SystemIs64Bit() noexcept;

// Whether the unmarshaller DLL is registered, and its file present, for a
// client process: for its bitness, or for every bitness this system runs
// when the client is unknown (pid 0) or can't be asked.
bool StreamUnmarshalerServes(DWORD clientPid);
