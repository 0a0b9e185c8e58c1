#include "web/stream_marshal.h"

#include <cstring>
#include <mutex>
#include <string>

#include "host/identities.h"
#include "host/log.h"
#include "vfc/com_ptr.h"
#include "web/streams.h"

namespace {

thread_local bool t_bHidden = false;

// Hides the stream's IMarshal on this thread for the length of a scope.
class THideMarshal {
public:
    THideMarshal() noexcept : m_previous(t_bHidden) { t_bHidden = true; }
    ~THideMarshal() { t_bHidden = m_previous; }
    THideMarshal(const THideMarshal&) = delete;
    THideMarshal& operator=(const THideMarshal&) = delete;

private:
    bool m_previous;
};

// HKCR\CLSID in one registry view, opened once for the process: under Wine
// each open of the root with a view flag leaves a handle behind.
HKEY ClassesKey(REGSAM view)
{
    static vfc::TRegKey keys[2];
    static std::once_flag opened[2];
    const int at = view == KEY_WOW64_32KEY ? 0 : 1;
    std::call_once(opened[at], [&] {
        ::RegOpenKeyExA(HKEY_CLASSES_ROOT, "CLSID", 0, KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | view, keys[at].put());
    });
    return keys[at].get();
}

// Whether the unmarshaller is registered in one registry view, with its file there.
bool RegisteredInView(REGSAM view)
{
    vfc::TRegKey key;
    const std::string path = std::string(vn_id::kStreamUnmarshalClsid) + "\\InprocServer32";
    HKEY classes = ClassesKey(view);
    if (!classes || ::RegOpenKeyExA(classes, path.c_str(), 0, KEY_QUERY_VALUE | view, key.put()) != ERROR_SUCCESS)
        return false;
    char file[MAX_PATH + 1] = {};
    DWORD size = MAX_PATH, type = 0;
    if (::RegQueryValueExA(key.get(), nullptr, nullptr, &type, reinterpret_cast<BYTE*>(file), &size) != ERROR_SUCCESS ||
        type != REG_SZ)
        return false;
    return ::GetFileAttributesA(file) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace

bool SystemIs64Bit() noexcept
{
    if (sizeof(void*) == 8)
        return true;
    BOOL wow = FALSE;
    return ::IsWow64Process(::GetCurrentProcess(), &wow) && wow;
}

bool StreamUnmarshalerServes(DWORD clientPid)
{
    if (!SystemIs64Bit())
        return RegisteredInView(KEY_WOW64_32KEY);
    int bits = 0;  // the client's, 0 when unknown
    vfc::THandle client(clientPid ? ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, clientPid) : nullptr);
    BOOL wow = FALSE;
    if (client && ::IsWow64Process(client.get(), &wow))
        bits = wow ? 32 : 64;
    return (bits == 64 || RegisteredInView(KEY_WOW64_32KEY)) && (bits == 32 || RegisteredInView(KEY_WOW64_64KEY));
}

bool CVnStreamMarshaler::IsHidden() noexcept { return t_bHidden; }

STDMETHODIMP CVnStreamMarshaler::QueryInterface(REFIID iid, void** ppv)
{
    return m_stream.QueryInterface(iid, ppv);
}

STDMETHODIMP_(ULONG) CVnStreamMarshaler::AddRef() { return m_stream.AddRef(); }

STDMETHODIMP_(ULONG) CVnStreamMarshaler::Release() { return m_stream.Release(); }

bool CVnStreamMarshaler::_useRing(REFIID riid, DWORD context, DWORD flags)
{
    if (context != MSHCTX_LOCAL || flags != MSHLFLAGS_NORMAL ||
        !(riid == IID_IVnStream || riid == IID_IDispatch || riid == IID_IUnknown))
        return false;
    // Found out once, so that the sizing and the marshalling of one call
    // agree even while the DLL comes or goes.
    if (m_iServed < 0)
        m_iServed = StreamUnmarshalerServes(m_stream.ClientProcessId()) ? 1 : 0;
    return m_iServed == 1;
}

HRESULT CVnStreamMarshaler::_standard(REFIID riid, DWORD context, void* pvContext, DWORD flags, IMarshal** out)
{
    return ::CoGetStandardMarshal(riid, m_stream.GetUnknown(), context, pvContext, flags, out);
}

STDMETHODIMP CVnStreamMarshaler::GetUnmarshalClass(REFIID riid, void* pv, DWORD context, void* pvContext,
                                                   DWORD flags, CLSID* pCid)
{
    if (!pCid)
        return E_POINTER;
    if (_useRing(riid, context, flags)) {
        *pCid = vn_id::kStreamUnmarshalGuid;
        return S_OK;
    }
    vfc::TComPtr<IMarshal> standard;
    HRESULT hr = _standard(riid, context, pvContext, flags, standard.put());
    return SUCCEEDED(hr) ? standard->GetUnmarshalClass(riid, pv, context, pvContext, flags, pCid) : hr;
}

STDMETHODIMP CVnStreamMarshaler::GetMarshalSizeMax(REFIID riid, void* pv, DWORD context, void* pvContext, DWORD flags,
                                                   DWORD* pSize)
{
    if (!pSize)
        return E_POINTER;
    if (_useRing(riid, context, flags)) {
        const THideMarshal hidden;
        ULONG inner = 0;
        const HRESULT hr = ::CoGetMarshalSizeMax(&inner, IID_IUnknown, m_stream.GetUnknown(), context, pvContext, flags);
        *pSize = sizeof(VnRingPacket) + inner;
        return hr;
    }
    vfc::TComPtr<IMarshal> standard;
    HRESULT hr = _standard(riid, context, pvContext, flags, standard.put());
    return SUCCEEDED(hr) ? standard->GetMarshalSizeMax(riid, pv, context, pvContext, flags, pSize) : hr;
}

STDMETHODIMP CVnStreamMarshaler::MarshalInterface(IStream* pStm, REFIID riid, void* pv, DWORD context,
                                                  void* pvContext, DWORD flags)
{
    if (!pStm)
        return E_POINTER;
    const HRESULT hr = _marshal(pStm, riid, pv, context, pvContext, flags);
    // A client that died during the call that hands it the stream had its
    // references let go before the reference marshalled here existed, and no
    // one would let go of this one: it would keep the stream, and the body's
    // transceiver, for the life of the server. Its end is signalled before
    // that letting go runs, so a client that has not ended now is still
    // dealt with by it. The marshalling itself still succeeds: the call's
    // stub then lets go of the reference the call returned, as it does after
    // any reply, where a failure here would leave it held.
    if (SUCCEEDED(hr) && VnProcessMonitor(m_stream.ClientProcessId()).Ended())
        DisconnectObject(0);
    return hr;
}

HRESULT CVnStreamMarshaler::_marshal(IStream* pStm, REFIID riid, void* pv, DWORD context, void* pvContext,
                                     DWORD flags)
{
    if (!_useRing(riid, context, flags)) {
        vfc::TComPtr<IMarshal> standard;
        HRESULT hr = _standard(riid, context, pvContext, flags, standard.put());
        return SUCCEEDED(hr) ? standard->MarshalInterface(pStm, riid, pv, context, pvContext, flags) : hr;
    }
    VnRingPacket packet = {};
    packet.dwMagic = kRingPacketMagic;
    packet.dwServerPid = ::GetCurrentProcessId();
    // Without a ring the client gets the standard proxy that follows.
    if (CVnStreamRing* ring = m_stream.StartRing())
        std::strncpy(packet.szName, ring->Name().c_str(), sizeof packet.szName - 1);
    else
        LogLine(vn_log::kError, "CVnStreamMarshaler::MarshalInterface", "The stream's ring could not be made.");
    HRESULT hr = pStm->Write(&packet, sizeof packet, nullptr);
    if (FAILED(hr))
        return hr;
    // The stream's IUnknown: its stub and its proxy need no type library,
    // and the reads don't go through it (see CVnRingStream).
    const THideMarshal hidden;
    return ::CoMarshalInterface(pStm, IID_IUnknown, m_stream.GetUnknown(), context, pvContext, flags);
}

STDMETHODIMP CVnStreamMarshaler::UnmarshalInterface(IStream*, REFIID, void** ppv)
{
    // The unmarshaller DLL's class does this, in the client's process.
    if (ppv)
        *ppv = nullptr;
    return E_NOTIMPL;
}

STDMETHODIMP CVnStreamMarshaler::ReleaseMarshalData(IStream*) { return E_NOTIMPL; }

STDMETHODIMP CVnStreamMarshaler::DisconnectObject(DWORD reserved)
{
    // The platform asks this interface first; hidden, its own stub manager
    // lets go of the remote references.
    const THideMarshal hidden;
    return ::CoDisconnectObject(m_stream.GetUnknown(), reserved);
}
