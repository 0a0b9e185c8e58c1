#include "web/stream_arrays.h"

#include <cstring>

#include "host/log.h"

namespace vn_streams {

TArrayData::TArrayData(SAFEARRAY* array) noexcept : m_array(array)
{
    void* data = nullptr;
    m_hr = ::SafeArrayAccessData(array, &data);
    if (FAILED(m_hr))
        return;
    m_data = static_cast<BYTE*>(data);
    ULONGLONG elements = 1;
    const UINT dims = ::SafeArrayGetDim(array);
    for (UINT dim = 1; dim <= dims; ++dim) {
        LONG lower = 0;
        LONG upper = -1;
        if (FAILED(::SafeArrayGetLBound(array, dim, &lower)) || FAILED(::SafeArrayGetUBound(array, dim, &upper)) ||
            upper < lower) {
            elements = 0;
            break;
        }
        elements *= static_cast<ULONGLONG>(static_cast<LONGLONG>(upper) - lower + 1);
    }
    m_size = dims == 0 ? 0 : elements * ::SafeArrayGetElemsize(array);
}

TArrayData::~TArrayData()
{
    if (SUCCEEDED(m_hr))
        ::SafeArrayUnaccessData(m_array);
}

HRESULT MakeByteArray(const BYTE* pb, DWORD cb, SAFEARRAY** out, const char* method)
{
    *out = nullptr;
    SAFEARRAYBOUND bound = {cb, 0};
    TSafeArray array(::SafeArrayCreate(VT_UI1, 1, &bound));
    if (!array)
        return E_OUTOFMEMORY;
    void* data = nullptr;
    HRESULT hr = ::SafeArrayAccessData(array.get(), &data);
    if (FAILED(hr)) {
        LogLine(vn_log::kErrorHex, method, "SafeArrayAccessData failed.", static_cast<unsigned>(hr));
        return hr;
    }
    const errno_t copied = cb ? ::memcpy_s(data, cb, pb, cb) : 0;
    ::SafeArrayUnaccessData(array.get());
    if (copied != 0) {
        LogLine(vn_log::kErrorDec, method, "memcpy_s failed.", static_cast<int>(copied));
        return E_FAIL;
    }
    *out = array.detach();
    return S_OK;
}

}  // namespace vn_streams
