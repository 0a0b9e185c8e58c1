// IDispatch for the dual interfaces of the system, forwarded to the type
// information of the type library embedded in the program file as resource 1.
#pragma once

#include <oaidl.h>

namespace vfc {

// The type information of one interface of the embedded type library. The
// library is loaded once per process and kept; the result carries a reference
// for the caller. Fails with the status of the load or of the lookup.
HRESULT GetEmbeddedTypeInfo(REFIID iid, ITypeInfo** info) noexcept;

template <typename Interface>
class TDispatchImpl : public Interface {
public:
    using interface_type = Interface;

    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        if (!count)
            return E_POINTER;
        *count = 1;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** info) override
    {
        if (!info)
            return E_POINTER;
        *info = nullptr;
        if (index != 0)
            return DISP_E_BADINDEX;
        return GetEmbeddedTypeInfo(__uuidof(Interface), info);
    }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override
    {
        ITypeInfo* info = nullptr;
        HRESULT hr = GetEmbeddedTypeInfo(__uuidof(Interface), &info);
        if (FAILED(hr))
            return hr;
        hr = info->GetIDsOfNames(names, count, ids);
        info->Release();
        return hr;
    }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                        EXCEPINFO* excep, UINT* argErr) override
    {
        ITypeInfo* info = nullptr;
        HRESULT hr = GetEmbeddedTypeInfo(__uuidof(Interface), &info);
        if (FAILED(hr))
            return hr;
        hr = info->Invoke(static_cast<Interface*>(this), id, flags, params, result, excep, argErr);
        info->Release();
        return hr;
    }
};

}  // namespace vfc
