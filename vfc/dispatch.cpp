#include "vfc/dispatch.h"

#include <windows.h>
#include <oleauto.h>

#include <mutex>

namespace vfc {

namespace {

// The library stays loaded for the life of the process: proxies and
// dispatch calls may ask for it from any thread at any time.
ITypeLib* g_typeLib = nullptr;
HRESULT g_loadResult = E_FAIL;
std::once_flag g_loadOnce;

void LoadEmbeddedTypeLib() noexcept
{
    wchar_t path[MAX_PATH + 1] = {};
    // The module that holds this code holds the type library as resource 1.
    HMODULE self = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<LPCWSTR>(&LoadEmbeddedTypeLib), &self);
    DWORD n = ::GetModuleFileNameW(self, path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) {
        g_loadResult = HRESULT_FROM_WIN32(::GetLastError());
        return;
    }
    g_loadResult = ::LoadTypeLibEx(path, REGKIND_NONE, &g_typeLib);
}

}  // namespace

HRESULT GetEmbeddedTypeInfo(REFIID iid, ITypeInfo** info) noexcept
{
    if (!info)
        return E_POINTER;
    *info = nullptr;
    std::call_once(g_loadOnce, LoadEmbeddedTypeLib);
    if (FAILED(g_loadResult))
        return g_loadResult;
    return g_typeLib->GetTypeInfoOfGuid(iid, info);
}

}  // namespace vfc
