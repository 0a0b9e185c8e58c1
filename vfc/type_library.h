// TTypeLibraryHold: keeps a registered type library, and each of its type
// descriptions, loaded for as long as it is held.
//
// Wine's automation layer loads the library for every proxy or stub it makes
// from it and lets go of it afterwards, so that without a holder each new
// proxy parses the library again from its file. Its counts on the library are
// also not safe against threads that take and let go at the same moment;
// held, they never come back to zero.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <vector>

#include "vfc/com_ptr.h"

namespace vfc {

class TTypeLibraryHold {
public:
    TTypeLibraryHold() = default;
    TTypeLibraryHold(const TTypeLibraryHold&) = delete;
    TTypeLibraryHold& operator=(const TTypeLibraryHold&) = delete;

    // Loads the library as proxies and stubs find it, through its
    // registration; false when it is not registered or can't be loaded.
    bool Hold(REFGUID library, WORD major, WORD minor) noexcept;
    void Release() noexcept;
    bool Held() const noexcept { return static_cast<bool>(m_typeLib); }

private:
    TComPtr<ITypeLib> m_typeLib;
    std::vector<TComPtr<ITypeInfo>> m_typeInfos;
};

}  // namespace vfc
