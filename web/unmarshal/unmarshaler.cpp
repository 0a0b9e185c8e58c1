// The unmarshaller that the platform makes in a client's process for a read
// stream marshalled with its ring, and the entry points of the DLL that
// holds it. The server registers the DLL beside its exe, one per bitness.
#include <windows.h>
#include <objbase.h>

#include "host/identities.h"
#include "vfc/class_object.h"
#include "vfc/com_object.h"
#include "vfc/critical_section.h"
#include "vfc/module_lock.h"
#include "vfc/type_library.h"
#include "web/stream_marshal.h"
#include "web/unmarshal/ring_stream.h"

namespace {

// The server's type library, held in the client's process from its first
// stream on: every proxy the platform makes there for the server's objects
// (requests, results, streams) is made from it, and would parse it again
// from the server's file each time. Let go of when the DLL may be unloaded;
// never at the process's end, where the release would run under the loader's lock.
vfc::TCriticalSection g_csLibrary;
vfc::TTypeLibraryHold& Library()
{
    static vfc::TTypeLibraryHold* const held = new vfc::TTypeLibraryHold;
    return *held;
}

void HoldLibrary() noexcept
{
    const vfc::TLock lock(g_csLibrary);
    if (!Library().Held())
        Library().Hold(vn_id::kLibGuid, 1, 0);
}

// Reads the ring's packet ahead of the standard reference to the stream.
HRESULT ReadPacket(IStream* stream, VnRingPacket& packet)
{
    ULONG read = 0;
    HRESULT hr = stream ? stream->Read(&packet, sizeof packet, &read) : E_POINTER;
    if (FAILED(hr))
        return hr;
    if (read != sizeof packet || packet.dwMagic != kRingPacketMagic)
        return RPC_E_INVALID_OBJREF;
    packet.szName[sizeof packet.szName - 1] = '\0';
    return S_OK;
}

class CVnStreamUnmarshaler : public vfc::TComObject<CVnStreamUnmarshaler, IMarshal> {
public:
    // Only the unmarshalling side is asked of this class.
    STDMETHODIMP GetUnmarshalClass(REFIID, void*, DWORD, void*, DWORD, CLSID*) override { return E_NOTIMPL; }
    STDMETHODIMP GetMarshalSizeMax(REFIID, void*, DWORD, void*, DWORD, DWORD*) override { return E_NOTIMPL; }
    STDMETHODIMP MarshalInterface(IStream*, REFIID, void*, DWORD, void*, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP DisconnectObject(DWORD) override { return S_OK; }

    // The standard proxy comes first, since it holds this process's
    // reference to the server's stream; the ring then serves the reads, or,
    // where it can't be opened from here, the proxy serves everything.
    STDMETHODIMP UnmarshalInterface(IStream* stream, REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        VnRingPacket packet;
        HRESULT hr = ReadPacket(stream, packet);
        if (FAILED(hr))
            return hr;
        vfc::TComPtr<IUnknown> server;
        hr = ::CoUnmarshalInterface(stream, IID_IUnknown, server.put_void());
        if (FAILED(hr))
            return hr;
        HoldLibrary();
        vfc::TComPtr<CVnRingStream> ring;
        if (packet.szName[0] && SUCCEEDED(vfc::CreateInto(ring)) && ring->Open(packet.szName, packet.dwServerPid)) {
            ring->SetServerStream(server);
            return ring->QueryInterface(riid, ppv);
        }
        return server->QueryInterface(riid, ppv);
    }

    STDMETHODIMP ReleaseMarshalData(IStream* stream) override
    {
        VnRingPacket packet;
        const HRESULT hr = ReadPacket(stream, packet);
        return FAILED(hr) ? hr : ::CoReleaseMarshalData(stream);
    }
};

// The DLL's one class object; it does not count as a lock on the DLL.
class CVnUnmarshalerFactory : public vfc::TClassObject {
public:
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (outer)
            return CLASS_E_NOAGGREGATION;
        vfc::TComPtr<CVnStreamUnmarshaler> unmarshaler;
        const HRESULT hr = vfc::CreateInto(unmarshaler);
        return FAILED(hr) ? hr : unmarshaler->QueryInterface(iid, ppv);
    }
};

CVnUnmarshalerFactory g_factory;

}  // namespace

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    return clsid == vn_id::kStreamUnmarshalGuid ? g_factory.QueryInterface(iid, ppv) : CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" HRESULT WINAPI DllCanUnloadNow()
{
    if (vfc::ModuleLockCountWithoutTarget() != 0)
        return S_FALSE;
    const vfc::TLock lock(g_csLibrary);
    Library().Release();
    return S_OK;
}
