#include "host/platform_seams.h"

namespace {

// DetectAutoProxyUrl is exported by wininet but missing from some import
// libraries; take it by name.
BOOL WINAPI PlatformDetectAutoProxyUrl(LPSTR url, DWORD length, DWORD flags)
{
    using Fn = BOOL(WINAPI*)(LPSTR, DWORD, DWORD);
    static Fn fn = reinterpret_cast<Fn>(::GetProcAddress(::GetModuleHandleA("wininet.dll"), "DetectAutoProxyUrl"));
    if (!fn) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return FALSE;
    }
    return fn(url, length, flags);
}

}  // namespace

VnPlatformSeams& PlatformSeams()
{
    static VnPlatformSeams seams = {::MessageBoxA, PlatformDetectAutoProxyUrl, ::InternetErrorDlg, ::HttpOpenRequestA,
                                    ::HttpSendRequestA, ::HttpQueryInfoA, ::InternetQueryOptionA};
    return seams;
}
