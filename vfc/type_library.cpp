#include "vfc/type_library.h"

#include <new>

#include <oleauto.h>

namespace vfc {

bool TTypeLibraryHold::Hold(REFGUID library, WORD major, WORD minor) noexcept
{
    Release();
    if (FAILED(::LoadRegTypeLib(library, major, minor, LOCALE_NEUTRAL, m_typeLib.put())))
        return false;
    try {
        for (UINT i = 0, n = m_typeLib->GetTypeInfoCount(); i < n; ++i) {
            TComPtr<ITypeInfo> info;
            if (SUCCEEDED(m_typeLib->GetTypeInfo(i, info.put())))
                m_typeInfos.push_back(std::move(info));
        }
    } catch (const std::bad_alloc&) {
        // The library itself is held; the descriptions it holds stay alive through it.
    }
    return true;
}

void TTypeLibraryHold::Release() noexcept
{
    m_typeInfos.clear();
    m_typeLib.reset();
}

}  // namespace vfc
