// The byte arrays of IVnStream: an owner for a SAFEARRAY, scoped access to
// its data, and the one-dimensional byte array that a read hands out.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include "vfc/unique_resource.h"

namespace vn_streams {

struct TSafeArrayTraits {
    using type = SAFEARRAY*;
    static SAFEARRAY* empty() noexcept { return nullptr; }
    static bool is_empty(SAFEARRAY* p) noexcept { return p == nullptr; }
    static void close(SAFEARRAY* p) noexcept { ::SafeArrayDestroy(p); }
};
using TSafeArray = vfc::TUniqueResource<TSafeArrayTraits>;

// The data of a client's array for the length of a scope. size() is the
// array's length in bytes over all its dimensions.
class TArrayData {
public:
    explicit TArrayData(SAFEARRAY* array) noexcept;
    ~TArrayData();
    TArrayData(const TArrayData&) = delete;
    TArrayData& operator=(const TArrayData&) = delete;

    HRESULT status() const noexcept { return m_hr; }
    const BYTE* get() const noexcept { return m_data; }
    ULONGLONG size() const noexcept { return m_size; }

private:
    SAFEARRAY* m_array;
    HRESULT m_hr;
    BYTE* m_data = nullptr;
    ULONGLONG m_size = 0;
};

// A new one-dimensional array of unsigned bytes with lower bound 0 holding a
// copy of cb bytes; logs a failure under the given method name.
HRESULT MakeByteArray(const BYTE* pb, DWORD cb, SAFEARRAY** out, const char* method = "CVnQueueCustomStream::Read");

}  // namespace vn_streams
