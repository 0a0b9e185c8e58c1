#include "host/version_info.h"

#include <strsafe.h>

#include <vector>

#include "host/log.h"
#include "host/status.h"
#include "vfc/unique_resource.h"

namespace {

const char* const kMethod = "CVnVersionInfo::GetFileVersion";

void LogFailure(const char* message)
{
    LogLine(vn_log::kErrorDec, kMethod, message, static_cast<int>(::GetLastError()));
}

using GetSizeFn = DWORD(WINAPI*)(LPCSTR, LPDWORD);
using GetInfoFn = BOOL(WINAPI*)(LPCSTR, DWORD, DWORD, LPVOID);
using QueryFn = BOOL(WINAPI*)(LPCVOID, LPCSTR, LPVOID*, PUINT);

}  // namespace

HRESULT CVnVersionInfo::GetFileVersion(std::string& text)
{
    char path[MAX_PATH] = {};
    if (!::GetModuleFileNameA(nullptr, path, MAX_PATH))
        LogFailure("GetModuleFileName failed.");

    // version.dll may be absent on a stripped system: load it by name.
    vfc::TModule dll(::LoadLibraryA("version.dll"));
    auto getSize = dll ? reinterpret_cast<GetSizeFn>(::GetProcAddress(dll.get(), "GetFileVersionInfoSizeA")) : nullptr;
    auto getInfo = dll ? reinterpret_cast<GetInfoFn>(::GetProcAddress(dll.get(), "GetFileVersionInfoA")) : nullptr;
    auto query = dll ? reinterpret_cast<QueryFn>(::GetProcAddress(dll.get(), "VerQueryValueA")) : nullptr;
    if (!getSize || !getInfo || !query) {
        LogFailure("Fail to get functions from dll.");
        return VN_E_NOT_AVAILABLE;
    }

    DWORD handle = 0;
    const DWORD size = getSize(path, &handle);
    if (static_cast<int>(size) <= 0) {
        LogFailure("GetFileVersionInfoSize failed.");
        return S_FALSE;
    }
    std::vector<char> block(size);
    if (!getInfo(path, 0, size, block.data())) {
        LogFailure("GetFileVersionInfo failed.");
        return S_FALSE;
    }

    struct Translation {
        WORD language;
        WORD codePage;
    };
    Translation* translation = nullptr;
    UINT length = 0;
    if (!query(block.data(), "\\VarFileInfo\\Translation", reinterpret_cast<LPVOID*>(&translation), &length) ||
        !translation || length < sizeof(Translation)) {
        LogFailure("VerQueryValue failed.");
        return S_FALSE;
    }

    char subBlock[50];
    HRESULT hr = ::StringCchPrintfA(subBlock, sizeof subBlock, "\\StringFileInfo\\%04x%04x\\FileVersion",
                                    translation->language, translation->codePage);
    if (FAILED(hr)) {
        LogLine(vn_log::kErrorHex, kMethod, "StringCchPrintf failed.", static_cast<unsigned>(hr));
        return hr;
    }

    char* value = nullptr;
    if (!query(block.data(), subBlock, reinterpret_cast<LPVOID*>(&value), &length) || !value) {
        LogFailure("VerQueryValue failed.");
        return S_FALSE;
    }
    text = value;
    return S_OK;
}
