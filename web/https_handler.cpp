#include "web/https_handler.h"

#include "host/log.h"
#include "host/platform_seams.h"

namespace {

bool IsCertificateError(DWORD code)
{
    switch (code) {
    case ERROR_INTERNET_SEC_CERT_DATE_INVALID:
    case ERROR_INTERNET_SEC_CERT_CN_INVALID:
    case ERROR_INTERNET_HTTP_TO_HTTPS_ON_REDIR:
    case ERROR_INTERNET_POST_IS_NON_SECURE:
    case ERROR_INTERNET_CLIENT_AUTH_CERT_NEEDED:
    case ERROR_INTERNET_INVALID_CA:
        return true;
    default:
        return false;
    }
}

}  // namespace

LONG CVnHttpsHandler::HandleError(DWORD code, HINTERNET hRequest, HWND hWnd, bool bInteractive)
{
    if (bInteractive && IsCertificateError(code)) {
        DWORD result = PlatformSeams().InternetErrorDlg(hWnd ? hWnd : ::GetDesktopWindow(), hRequest, code,
                                                        FLAGS_ERROR_UI_FILTER_FOR_ERRORS |
                                                            FLAGS_ERROR_UI_FLAGS_CHANGE_OPTIONS |
                                                            FLAGS_ERROR_UI_FLAGS_GENERATE_DATA,
                                                        nullptr);
        TraceLine("After InternetErrorDlg %d", static_cast<int>(result));
        return result == ERROR_SUCCESS || result == ERROR_INTERNET_FORCE_RETRY ? ERROR_INTERNET_FORCE_RETRY
                                                                               : static_cast<LONG>(code);
    }
    switch (code) {
    case ERROR_INTERNET_HTTP_TO_HTTPS_ON_REDIR:
        return _bypassError(hRequest, SECURITY_FLAG_IGNORE_REDIRECT_TO_HTTPS) ? ERROR_INTERNET_FORCE_RETRY
                                                                              : static_cast<LONG>(code);
    case ERROR_INTERNET_HTTPS_TO_HTTP_ON_REDIR:
        return _bypassError(hRequest, SECURITY_FLAG_IGNORE_REDIRECT_TO_HTTP) ? ERROR_INTERNET_FORCE_RETRY
                                                                             : static_cast<LONG>(code);
    case ERROR_INTERNET_SEC_CERT_REV_FAILED: {
        const bool bypassed = _bypassError(hRequest, SECURITY_FLAG_IGNORE_REVOCATION);
        TraceLine("After SECURITY_FLAG_IGNORE_REVOCATION %d", bypassed ? 1 : 0);
        return bypassed ? ERROR_INTERNET_FORCE_RETRY : static_cast<LONG>(code);
    }
    default:
        // A needed client certificate, and everything else, can't be helped here.
        return static_cast<LONG>(code);
    }
}

bool CVnHttpsHandler::_bypassError(HINTERNET hRequest, DWORD dwFlag)
{
    DWORD flags = 0, size = sizeof flags;
    if (!::InternetQueryOptionA(hRequest, INTERNET_OPTION_SECURITY_FLAGS, &flags, &size)) {
        LogLine(vn_log::kErrorDec, "CVnHttpsHandler::_bypassError", "InternetQueryOption failed",
                static_cast<int>(::GetLastError()));
        return false;
    }
    flags |= dwFlag;
    if (!::InternetSetOptionA(hRequest, INTERNET_OPTION_SECURITY_FLAGS, &flags, sizeof flags)) {
        LogLine(vn_log::kErrorDec, "CVnHttpsHandler::_bypassError", "InternetSetOption failed",
                static_cast<int>(::GetLastError()));
        return false;
    }
    return true;
}
