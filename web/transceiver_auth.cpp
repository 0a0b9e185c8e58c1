// The authentication dialogue of the transceiver: a body-less pre-flight that
// brings the logins into place and finds out whether NTLM or Digest is in
// force, which decides how a body may be sent.
#include "web/transceiver.h"

#include <cctype>
#include <cstring>

#include "host/log.h"
#include "settings/proxy_credentials.h"
#include "web/header_text.h"

namespace {

const char* const kAuthMethod = "CVnLinkhostWITransceiver::_sendAuthRequest";

// How the next login is got: asking, stored then asking, or stored only.
enum AuthMode { AuthAsk = 0, AuthStoredThenAsk = 1, AuthStoredOnly = 2 };

bool GoesOn(LONG code) { return code == 0 || code == ERROR_INTERNET_FORCE_RETRY; }

void WipeText(std::string& text)
{
    if (!text.empty())
        ::SecureZeroMemory(&text[0], text.size());
    text.clear();
}

// Whether this process holds a proxy login for `proxy` in its memory.
bool HasRememberedLogin(const std::string& proxy)
{
    std::string login, password;
    const bool found = CVnProxyCredentials::GetPassLogin(proxy, login, password) == 0 && !login.empty();
    WipeText(password);
    return found;
}

}  // namespace

LONG CVnLinkhostWITransceiver::_sendAuthRequest(const ConnectionParts& parts, const std::string& headers,
                                                int& iAuthResult)
{
    int iProxyAuthMode = m_bInteractive ? AuthStoredThenAsk : AuthStoredOnly;
    int iServerAuthMode = iProxyAuthMode;
    iAuthResult = 1;
    bool bFirstPass = true;
    bool bProxyPass = false;
    // Whether a proxy challenged this dialogue, and the status of its last answer.
    bool bProxyChallenged = false;
    DWORD status = 0;
    m_bProxyLoginSettled = m_bProxyBasic = false;
    // The pre-flight has no body, so it must not announce one.
    const std::string probeHeaders = vn_http::CutContentLength(headers);
    m_bProxyPlainAuth = true;
    m_bServerPlainAuth = true;

    ConnectionParts probe = parts;
    LONG code = 0;
    do {
        if (!bFirstPass) {
            // A proxy pass asks on a new request handle, which has the login
            // before its first send: under Wine NTLM works only so, and a
            // handle that was sent keeps the Proxy-Authorization of its last
            // attempt. NTLM wants all its legs on one connection, which Wine
            // keeps only when the 407 has a body, as a HEAD's has not: after
            // an NTLM or Digest challenge the proxy is asked with GET.
            if (bProxyPass) {
                EndReceiveDataAsync(false);
                probe.verb = m_bSkipHeadAuth ? parts.verb : m_bProxyPlainAuth ? "HEAD" : "GET";
            }
            code = _initConnection(!bProxyPass, probe, INTERNET_FLAG_NO_AUTO_REDIRECT);
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

        DWORD size = sizeof status, index = 0;
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
        if (status == HTTP_STATUS_PROXY_AUTH_REQ) {
            std::string challenge;
            ReceiveHeadersSync(challenge, HTTP_QUERY_PROXY_AUTHENTICATE);
            bProxyChallenged = true;
            m_bProxyBasic = _strnicmp(challenge.c_str(), "Basic", 5) == 0;
        }

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
            // Background mode: only a login in this process's memory may
            // answer, and only once. GetProxyCredentials gives 0 whether or
            // not it found one, so the memory itself is asked.
            if (!bFirstPass) {
                LogLine(vn_log::kError, kAuthMethod, "Background mode: cached proxy credentials are wrong.");
                iAuthResult = 2;
                code = 0;
                break;
            }
            code = CVnProxyCredentials::GetProxyCredentials(m_tstrProxy, m_hRequest, m_hWnd, AuthStoredOnly);
            if (!GoesOn(code) || !HasRememberedLogin(m_tstrProxy)) {
                LogLine(vn_log::kError, kAuthMethod, "Background mode: cached proxy credentials are missing.");
                iAuthResult = 2;
                code = 0;
                break;
            }
            // The login is now on the handle: the proxy is asked once more on it.
            code = ERROR_INTERNET_FORCE_RETRY;
            bProxyPass = true;
        }
        bFirstPass = false;
    } while (code == ERROR_INTERNET_FORCE_RETRY);

    if (code == 0 && iAuthResult != 2 && bProxyChallenged && status != HTTP_STATUS_PROXY_AUTH_REQ)
        _keepSettledLogin();
    CloseAllInternetHandles();
    return code;
}

void CVnLinkhostWITransceiver::_keepSettledLogin()
{
    // Read back from the handle: the login may have come from the process's
    // memory, the store, the prompt or the platform's own dialog, which
    // leaves it on the handle only. The memory takes it, so that the later
    // requests of this process find it first.
    std::string login, password;
    if (GetINetApiHandler()->GetCredentials(m_hRequest, login, password) && !login.empty()) {
        CVnProxyCredentials::_saveCredentials(m_tstrProxy, login, password);
        m_bProxyLoginSettled = true;
    }
    WipeText(password);
}

std::string CVnLinkhostWITransceiver::_handOverLogin(INTERNET_SCHEME scheme)
{
    std::string ahead, login, password;
    // Windows answers a challenge to a request sent by HttpSendRequestEx from
    // its own cache, and sends a Basic login ahead to a proxy that took it
    // once; Wine's HttpEndRequest answers none. So a Basic login goes ahead
    // here, as on Windows. Not through a tunnel: there the request's headers
    // reach the server, not the proxy.
    if (m_bProxyLoginSettled && CVnProxyCredentials::GetPassLogin(m_tstrProxy, login, password) == 0 &&
        GetINetApiHandler()->SetCredentials(m_hRequest, m_tstrProxy, login, password) && m_bProxyBasic &&
        scheme == INTERNET_SCHEME_HTTP)
        ahead = std::string(kProxyAuthorization) + " " + vn_http::BasicCredentials(login, password) + "\r\n";
    WipeText(password);
    m_bProxyLoginSettled = m_bProxyBasic = false;
    return ahead;
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

bool CVnLinkhostWITransceiver::_hasStatusLine()
{
    std::string head;
    return ReceiveHeadersSync(head, HTTP_QUERY_RAW_HEADERS_CRLF) == 0 && vn_http::HasStatusLine(head);
}
