// The authentication dialogue of the transceiver: a body-less pre-flight that
// brings the logins into place and finds out whether NTLM or Digest is in
// force, which decides how a body may be sent.
#include "web/transceiver.h"

#include <cctype>

#include "host/log.h"
#include "settings/proxy_credentials.h"
#include "web/header_text.h"

namespace {

const char* const kAuthMethod = "CVnLinkhostWITransceiver::_sendAuthRequest";

// How the next login is got: asking, stored then asking, or stored only.
enum AuthMode { AuthAsk = 0, AuthStoredThenAsk = 1, AuthStoredOnly = 2 };

bool GoesOn(LONG code) { return code == 0 || code == ERROR_INTERNET_FORCE_RETRY; }

}  // namespace

LONG CVnLinkhostWITransceiver::_sendAuthRequest(const ConnectionParts& parts, const std::string& headers,
                                                int& iAuthResult)
{
    int iProxyAuthMode = m_bInteractive ? AuthStoredThenAsk : AuthStoredOnly;
    int iServerAuthMode = iProxyAuthMode;
    iAuthResult = 1;
    bool bFirstPass = true;
    bool bProxyPass = false;
    // The pre-flight has no body, so it must not announce one.
    const std::string probeHeaders = vn_http::CutContentLength(headers);
    m_bProxyPlainAuth = true;
    m_bServerPlainAuth = true;

    LONG code = 0;
    do {
        if (!bFirstPass) {
            code = _initConnection(!bProxyPass, parts, INTERNET_FLAG_NO_AUTO_REDIRECT);
            if (code != 0) {
                LogLine(vn_log::kErrorDec, kAuthMethod, "_initConnection(true) failed", static_cast<int>(code));
                break;
            }
            if (!bProxyPass && m_bServerPlainAuth) {
                code = CVnProxyCredentials::GetServerCredentials(m_hRequest, m_hWnd, AuthStoredOnly, m_tstrUserName,
                                                                 m_tstrPassword);
                if (!GoesOn(code)) {
                    LogLine(vn_log::kErrorDec, kAuthMethod, "CVnProxyCredentials::GetProxyCredentials failed",
                            static_cast<int>(::GetLastError()));
                    break;
                }
            }
            code = CVnProxyCredentials::GetProxyCredentials(m_tstrProxy, m_hRequest, m_hWnd, AuthStoredOnly);
            if (!GoesOn(code)) {
                LogLine(vn_log::kErrorDec, kAuthMethod, "CVnProxyCredentials::GetProxyCredentials failed",
                        static_cast<int>(::GetLastError()));
                break;
            }
        }

        CVnAsyncRecord* record = _beginOperation(StateSendRequest, 1);
        if (!record)
            return ERROR_INVALID_HANDLE;
        record->context.phHandle = &m_hRequest;
        // The platform sends from the record after the call has returned.
        record->headers = probeHeaders;
        code = 0;
        while (!::HttpSendRequestA(m_hRequest, record->headers.c_str(), static_cast<DWORD>(record->headers.size()),
                                   nullptr, 0)) {
            code = _processRetryError(kAuthMethod, "Can't send authorization request (HttpSendRequest)");
            if (code != ERROR_INTERNET_FORCE_RETRY)
                break;
            code = 0;
        }
        if (code != 0) {
            CloseAllInternetHandles();
            return code;
        }

        DWORD status = 0, size = sizeof status, index = 0;
        if (!::HttpQueryInfoA(m_hRequest, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, &index)) {
            code = static_cast<LONG>(::GetLastError());
            LogLine(vn_log::kErrorDec, kAuthMethod, "HttpQueryInfo(HTTP_QUERY_STATUS_CODE) failed", static_cast<int>(code));
            break;
        }
        if (!_hasStatusLine()) {
            code = ERROR_INTERNET_CONNECTION_ABORTED;
            LogLine(vn_log::kErrorDec, kAuthMethod, "Response without status line", static_cast<int>(code));
            break;
        }
        if (bFirstPass && status != HTTP_STATUS_PROXY_AUTH_REQ)
            iAuthResult = 0;

        if (iProxyAuthMode == AuthAsk || iProxyAuthMode == AuthStoredThenAsk) {
            if (status == HTTP_STATUS_DENIED) {
                code = CVnProxyCredentials::GetServerCredentials(m_hRequest, m_hWnd, iServerAuthMode, m_tstrUserName,
                                                                 m_tstrPassword);
                if (!GoesOn(code))
                    LogLine(vn_log::kErrorDec, kAuthMethod, "CVnProxyCredentials::GetServerCredentials failed.",
                            static_cast<int>(code));
                bProxyPass = false;
                iServerAuthMode = AuthAsk;
            } else if (status == HTTP_STATUS_PROXY_AUTH_REQ) {
                code = CVnProxyCredentials::GetProxyCredentials(m_tstrProxy, m_hRequest, m_hWnd, iProxyAuthMode);
                if (!GoesOn(code))
                    LogLine(vn_log::kErrorDec, kAuthMethod, "CVnProxyCredentials::GetProxyCredentials failed.",
                            static_cast<int>(code));
                else
                    code = ERROR_INTERNET_FORCE_RETRY;
                bProxyPass = true;
                iProxyAuthMode = AuthAsk;
            } else {
                bProxyPass = false;
            }
        } else if (status == HTTP_STATUS_PROXY_AUTH_REQ) {
            // Background mode: only a stored proxy login may answer, and only once.
            if (!bFirstPass) {
                LogLine(vn_log::kError, kAuthMethod, "Background mode: cached proxy credentials are wrong.");
                iAuthResult = 2;
                code = 0;
                break;
            }
            code = CVnProxyCredentials::GetProxyCredentials(m_tstrProxy, m_hRequest, m_hWnd, AuthStoredOnly);
            if (!GoesOn(code)) {
                LogLine(vn_log::kError, kAuthMethod, "Background mode: cached proxy credentials are missing.");
                iAuthResult = 2;
                code = 0;
                break;
            }
        }
        bFirstPass = false;
    } while (code == ERROR_INTERNET_FORCE_RETRY);

    CloseAllInternetHandles();
    return code;
}

LONG CVnLinkhostWITransceiver::_authenticate()
{
    LONG code = CVnProxyCredentials::GetProxyCredentials(m_tstrProxy, m_hRequest, m_hWnd,
                                                         m_bInteractive ? AuthStoredThenAsk : AuthStoredOnly);
    if (code != 0) {
        LogLine(vn_log::kErrorDec, "CVnLinkhostWITransceiver::_authenticate",
                "CVnProxyCredentials::GetPassLogin failed (ther are no saved credentials or the file was removed.)",
                static_cast<int>(code));
        return code;
    }
    m_bAuthenticated = true;
    return 0;
}
