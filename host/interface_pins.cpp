#include "host/interface_pins.h"

#include <iterator>

#include "host/identities.h"
#include "vnlinkhost.h"

namespace {

// What clients receive from the server: the root object's and its children's
// interfaces, their common bases, and the header enumerator.
const IID* const kHandedOut[] = {&IID_IUnknown,      &IID_IDispatch,     &IID_IEnumVARIANT, &IID_IVnLinkhost,
                                 &IID_IVnWebSession, &IID_IVnWebRequest, &IID_IVnWebResult, &IID_IVnStream,
                                 &IID_IVnWebProxy,   &IID_IVnWebTunnel};

// The stand-in: answers each pinned interface with itself. Static, so that it
// outlives whatever stub still holds it.
class CStandIn : public IUnknown {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        for (const IID* pinned : kHandedOut)
            if (::IsEqualIID(iid, *pinned)) {
                *ppv = this;
                return S_OK;
            }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
};

CStandIn g_standIn;

}  // namespace

void CVnInterfacePins::Pin()
{
    m_typeLib.Hold(vn_id::kLibGuid, 1, 0);
    for (const IID* iid : kHandedOut) {
        vfc::TComPtr<IStream> stream;
        if (FAILED(::CreateStreamOnHGlobal(nullptr, TRUE, stream.put())))
            continue;
        if (SUCCEEDED(::CoMarshalInterface(stream.get(), *iid, &g_standIn, MSHCTX_LOCAL, nullptr, MSHLFLAGS_TABLESTRONG)))
            m_streams.push_back(std::move(stream));
    }
}

void CVnInterfacePins::Unpin()
{
    for (auto& stream : m_streams) {
        const LARGE_INTEGER start = {};
        if (SUCCEEDED(stream->Seek(start, STREAM_SEEK_SET, nullptr)))
            ::CoReleaseMarshalData(stream.get());
    }
    m_streams.clear();
    m_typeLib.Release();
}
