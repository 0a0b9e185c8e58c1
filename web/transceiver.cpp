#include "web/transceiver.h"

#include <set>

#include "host/log.h"
#include "vfc/critical_section.h"
#include "web/https_handler.h"

namespace {

const char* const kInitConnection = "CVnLinkhostWITransceiver::_initConnection";

// The contexts of living transceivers. The platform may still report on a
// handle after it was closed (a send that was pending completes anyway), so
// the status callback acts only on a context that is still in this set; a
// transceiver leaves it, under the same lock, before its memory goes.
vfc::TCriticalSection& LiveLock()
{
    static vfc::TCriticalSection* lock = new vfc::TCriticalSection;
    return *lock;
}
std::set<const void*>& LiveContexts()
{
    static std::set<const void*>* live = new std::set<const void*>;
    return *live;
}

const char* BoolText(bool value) { return value ? "true" : "false"; }

bool StartsWith(const std::string& text, const char* prefix) { return text.compare(0, strlen(prefix), prefix) == 0; }

}  // namespace

CVnLinkhostWITransceiver::CVnLinkhostWITransceiver()
{
    m_context.pTransceiver = this;
    for (auto& event : m_hEvents)
        event.reset(::CreateEventA(nullptr, FALSE, FALSE, nullptr));
    vfc::TLock lock(LiveLock());
    LiveContexts().insert(&m_context);
}

CVnLinkhostWITransceiver::~CVnLinkhostWITransceiver()
{
    TraceLine("CVnLinkhostWITransceiver::~CVnLinkhostWITransceiver started");
    CloseAllInternetHandles();
    {
        vfc::TLock lock(LiveLock());
        LiveContexts().erase(&m_context);
    }
    TraceLine("CVnLinkhostWITransceiver::~CVnLinkhostWITransceiver done");
}

void CVnLinkhostWITransceiver::_beginOperation(State state, int event)
{
    m_context.dwState = state;
    m_context.hEvent = m_hEvents[event].get();
    m_context.dwError = 0;
    ::ResetEvent(m_context.hEvent);
}

void CVnLinkhostWITransceiver::SetProxyOptions(const std::string& proxy, bool bBypassLocal, const std::string& bypassList)
{
    m_tstrProxy = proxy;
    m_bProxyChanged = true;
    m_bBypassLocal = bBypassLocal;
    m_tstrBypassList = bypassList;
    // A changed proxy needs a new session: start from no handles.
    m_bAuthenticated = false;
    EndReceiveDataAsync(true);
    TraceLine("Info about method [%s]. Settings: \n %s = %s;\n %s = %s;\n %s = %s;\n",
              "CVnLinkhostWITransceiver::SetProxyOptions", "m_tstrProxy", m_tstrProxy.c_str(), "m_bBypassLocal",
              BoolText(m_bBypassLocal), "m_tstrBypassList", m_tstrBypassList.c_str());
}

void CVnLinkhostWITransceiver::SetLoginData(const std::string& userName, const std::string& password)
{
    if (userName != m_tstrUserName)
        m_tstrUserName = userName;
    if (password != m_tstrPassword)
        m_tstrPassword = password;
}

std::string CVnLinkhostWITransceiver::_bypassText() const
{
    if (!m_bBypassLocal)
        return m_tstrBypassList;
    return m_tstrBypassList.empty() ? "<local>" : "<local> " + m_tstrBypassList;
}

LONG CVnLinkhostWITransceiver::_initConnection(bool bCloseAll, const ConnectionParts& parts, DWORD dwExtraFlags)
{
    const DWORD access = m_tstrProxy.empty() ? INTERNET_OPEN_TYPE_DIRECT : INTERNET_OPEN_TYPE_PROXY;
    if (access == INTERNET_OPEN_TYPE_PROXY)
        m_tstrBypassBuffer = _bypassText();
    if (bCloseAll)
        EndReceiveDataAsync(true);

    const char* proxy = access == INTERNET_OPEN_TYPE_PROXY ? m_tstrProxy.c_str() : nullptr;
    const char* bypass = access == INTERNET_OPEN_TYPE_PROXY ? m_tstrBypassBuffer.c_str() : nullptr;
    if (!m_hInternet) {
        while (!(m_hInternet = ::InternetOpenA(nullptr, access, proxy, bypass, INTERNET_FLAG_ASYNC))) {
            LONG code = _processRetryError(kInitConnection, "Can't open internet connection (InternetOpen)");
            if (code != ERROR_INTERNET_FORCE_RETRY)
                return code;
        }
        if (::InternetSetStatusCallbackA(m_hInternet, StatusCallback) == INTERNET_INVALID_STATUS_CALLBACK) {
            LogLine(vn_log::kErrorDec, kInitConnection, "InternetSetStatusCallback failed",
                    static_cast<int>(::GetLastError()));
            return -1;
        }
        m_bProxyChanged = false;
    } else if (m_bProxyChanged) {
        INTERNET_PROXY_INFO info = {INTERNET_OPEN_TYPE_PROXY, proxy, bypass};
        if (!::InternetSetOptionA(m_hInternet, INTERNET_OPTION_PROXY, &info, sizeof info)) {
            const DWORD error = ::GetLastError();
            LogLine(vn_log::kErrorDec, kInitConnection, "InternetSetOption failed", static_cast<int>(error));
            return static_cast<LONG>(error);
        }
        m_bProxyChanged = false;
    }

    if (!m_hConnect) {
        _beginOperation(StateConnect, 0);
        m_context.phHandle = &m_hConnect;
        for (;;) {
            HINTERNET handle = ::InternetConnectA(m_hInternet, parts.host.c_str(), parts.port, nullptr, nullptr,
                                                  INTERNET_SERVICE_HTTP, INTERNET_FLAG_NO_UI,
                                                  reinterpret_cast<DWORD_PTR>(&m_context));
            if (handle) {
                m_hConnect = handle;
                break;
            }
            LONG code = _processRetryError(kInitConnection, "Can't connect internet (InternetConnect)");
            if (code != ERROR_INTERNET_FORCE_RETRY)
                return code;
        }
    }
    if (m_hRequest)
        return 0;

    _beginOperation(StateOpenRequest, 0);
    m_context.phHandle = &m_hRequest;
    const std::string verb = bCloseAll && !m_bSkipHeadAuth ? std::string("HEAD") : parts.verb;
    DWORD flags = dwExtraFlags | INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_KEEP_CONNECTION |
                  INTERNET_FLAG_NO_UI;
    if (parts.scheme == INTERNET_SCHEME_HTTPS)
        flags |= INTERNET_FLAG_SECURE;
    for (;;) {
        HINTERNET handle = ::HttpOpenRequestA(m_hConnect, verb.c_str(), parts.path.c_str(),
                                              parts.version.empty() ? nullptr : parts.version.c_str(), nullptr,
                                              nullptr, flags, reinterpret_cast<DWORD_PTR>(&m_context));
        if (handle) {
            m_hRequest = handle;
            break;
        }
        LONG code = _processRetryError(kInitConnection, "Can't open request (HttpOpenRequest)");
        if (code != ERROR_INTERNET_FORCE_RETRY)
            return code;
    }

    // A user who went offline in the browser would block every request: go back online.
    DWORD state = 0, size = sizeof state;
    if (::InternetQueryOptionA(nullptr, INTERNET_OPTION_CONNECTED_STATE, &state, &size) &&
        (state & INTERNET_STATE_DISCONNECTED_BY_USER)) {
        INTERNET_CONNECTED_INFO online = {INTERNET_STATE_CONNECTED, 0};
        if (!::InternetSetOptionA(nullptr, INTERNET_OPTION_CONNECTED_STATE, &online, sizeof online))
            LogLine(vn_log::kErrorDec, kInitConnection, "Can't set ONLINE mode", static_cast<int>(::GetLastError()));
    }
    return 0;
}

LONG CVnLinkhostWITransceiver::SendHeadersAsync(const ConnectionParts& parts, const std::string& headers, int iRetry)
{
    const char* const method = "CVnLinkhostWITransceiver::SendHeadersAsync";
    if (iRetry == 0) {
        LONG code = _initConnection(true, parts, INTERNET_FLAG_NO_AUTO_REDIRECT);
        if (code != 0) {
            LogLine(vn_log::kErrorDec, method, "_initConnection(true) failed", static_cast<int>(code));
            return code;
        }
        int iAuthResult = 1;
        code = _sendAuthRequest(parts, headers, iAuthResult);
        if (code != 0) {
            LogLine(vn_log::kErrorDec, method, "_sendAuthRequest failed", static_cast<int>(code));
            CloseAllInternetHandles();
            return code;
        }
        // Background mode without a usable proxy login: nothing goes out, and
        // the request fails at its next call on the closed handles.
        if (iAuthResult == 2)
            return 0;
    }
    LONG code = _initConnection(false, parts, 0);
    if (code != 0) {
        LogLine(vn_log::kErrorDec, method, "_initConnection(false) failed", static_cast<int>(code));
        return code;
    }
    INTERNET_BUFFERSA buffers = {};
    buffers.dwStructSize = sizeof buffers;
    buffers.lpcszHeader = headers.c_str();
    buffers.dwHeadersLength = static_cast<DWORD>(::lstrlenA(headers.c_str()));
    _beginOperation(StateSendRequestEx, 2);
    m_context.phHandle = &m_hRequest;

    // NTLM or Digest want the whole body in one send: it waits for SendRequest.
    const bool bodyVerb = ::lstrcmpiA(parts.verb.c_str(), "POST") == 0 || ::lstrcmpiA(parts.verb.c_str(), "OPTIONS") == 0 ||
                          ::lstrcmpiA(parts.verb.c_str(), "PUT") == 0;
    if (bodyVerb && (!m_bProxyPlainAuth || !m_bServerPlainAuth))
        return 0;

    while (!::HttpSendRequestExA(m_hRequest, &buffers, nullptr, 0, reinterpret_cast<DWORD_PTR>(&m_context))) {
        code = _processRetryError(method, "Can't send ex request (HttpSendRequestEx)");
        if (code != ERROR_INTERNET_FORCE_RETRY)
            return code;
    }
    return 0;
}

LONG CVnLinkhostWITransceiver::SendRequest(const char* headers, DWORD cbHeaders, const void* body, DWORD cbBody)
{
    _beginOperation(StateSendRequest, 1);
    m_context.phHandle = &m_hRequest;
    while (!::HttpSendRequestA(m_hRequest, headers, cbHeaders, const_cast<void*>(body), cbBody)) {
        LONG code = _processRetryError("CVnLinkhostWITransceiver::_sendAuthRequest",
                                       "Can't send authorization request (HttpSendRequest)");
        if (code == ERROR_INTERNET_FORCE_RETRY)
            continue;
        if (code != 0)
            CloseAllInternetHandles();
        return code;
    }
    return 0;
}

LONG CVnLinkhostWITransceiver::SendData(const void* data, DWORD cb)
{
    _beginOperation(StateWriteFile, 1);
    DWORD written = 0;
    while (!::InternetWriteFile(m_hRequest, data, cb, &written)) {
        LONG code = _processRetryError("CVnLinkhostWITransceiver::SendData", "Can't write file. (InternetWriteFile)");
        if (code != ERROR_INTERNET_FORCE_RETRY)
            return code;
    }
    return 0;
}

LONG CVnLinkhostWITransceiver::EndSendData()
{
    _beginOperation(StateEndRequest, 2);
    if (::HttpEndRequestA(m_hRequest, nullptr, HSR_INITIATE, reinterpret_cast<DWORD_PTR>(&m_context)))
        return 0;
    // The caller decides what a request to repeat means here.
    return _processRetryError("CVnLinkhostWITransceiver::EndSendData", "Can't end request. (HttpEndRequest)");
}

LONG CVnLinkhostWITransceiver::EndSendHeadersAsync()
{
    HANDLE event = m_hEvents[2].get();
    if (m_monitor.Wait(event, INFINITE) == WAIT_OBJECT_0 + 1) {
        LogLine(vn_log::kError, "CVnLinkhostWITransceiver::EndSendHeadersAsync", "Process closed WAIT_TIMEOUT");
        return WAIT_TIMEOUT;
    }
    ::ResetEvent(event);
    return static_cast<LONG>(m_context.dwError);
}

LONG CVnLinkhostWITransceiver::ReceiveHeadersSync(std::string& text, DWORD dwInfoLevel)
{
    DWORD length = 0, index = 0;
    if (::HttpQueryInfoA(m_hRequest, dwInfoLevel, nullptr, &length, &index))
        return 0;
    DWORD error = ::GetLastError();
    if (error == ERROR_HTTP_HEADER_NOT_FOUND)
        return 0;
    if (error != ERROR_INSUFFICIENT_BUFFER)
        return static_cast<LONG>(error);
    std::string buffer(length + 1, '\0');
    index = 0;
    if (!::HttpQueryInfoA(m_hRequest, dwInfoLevel, &buffer[0], &length, &index)) {
        error = ::GetLastError();
        return error == ERROR_HTTP_HEADER_NOT_FOUND ? 0 : static_cast<LONG>(error);
    }
    buffer.resize(length);
    text = buffer;
    return 0;
}

LONG CVnLinkhostWITransceiver::_lastRequestVerb(std::string& text)
{
    LONG code = ReceiveHeadersSync(text, HTTP_QUERY_REQUEST_METHOD);
    if (code != 0)
        LogLine(vn_log::kErrorDec, "_lastRequestVerb::_sendAuthRequest", "HttpQueryInfo(HTTP_QUERY_REQUEST_METHOD) failed",
                static_cast<int>(code));
    return code;
}

LONG CVnLinkhostWITransceiver::ReceiveDataAsync(BYTE* buffer, DWORD cbBuffer, void* param)
{
    const char* const method = "CVnLinkhostWITransceiver::ReceiveDataAsync";
    if (!m_lpfnReceiveDataCallback) {
        LogLine(vn_log::kError, method, "m_lpfnReceiveDataCallback is not set.");
        return -1;
    }
    DWORD read = 0;
    do {
        const DWORD wait = ::WaitForSingleObject(m_monitor.GetProcess(), 0);
        if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) {
            LogLine(vn_log::kErrorDec, method, "Process close WAIT_TIMEOUT", static_cast<int>(WAIT_TIMEOUT));
            return WAIT_TIMEOUT;
        }
        if (wait == WAIT_FAILED)
            LogLine(vn_log::kErrorDec, method, "::WaitForSingleObject(m_monitor.GetProcess(), 0) failed.",
                    static_cast<int>(::GetLastError()));
        _beginOperation(StateReadFile, 1);
        read = 0;
        while (!::InternetReadFile(m_hRequest, buffer, cbBuffer, &read)) {
            LONG code = _processRetryError(method, "Can't read response. (InternetReadFile)");
            if (code == ERROR_INTERNET_FORCE_RETRY)
                continue;
            if (code != 0)
                return code;
            break;
        }
        LONG result = m_lpfnReceiveDataCallback(buffer, cbBuffer, read, param);
        if (result != 0) {
            LogLine(vn_log::kErrorDec, method, "m_lpfnReceiveDataCallback failed", static_cast<int>(result));
            return result;
        }
    } while (read > 0);
    return 0;
}

LONG CVnLinkhostWITransceiver::EndReceiveDataAsync(bool bCloseAll)
{
    _closeHandleInternet(&m_hRequest);
    if (bCloseAll) {
        _closeHandleInternet(&m_hConnect);
        if (m_hInternet)
            ::InternetSetStatusCallbackA(m_hInternet, nullptr);
        _closeHandleInternet(&m_hInternet);
    }
    return 0;
}

void CVnLinkhostWITransceiver::CloseAllInternetHandles()
{
    TraceLine("CVnLinkhostWITransceiver::CloseAllInternetHandles inside");
    EndReceiveDataAsync(true);
}

LONG CVnLinkhostWITransceiver::_closeHandleInternet(HINTERNET* pHandle)
{
    _beginOperation(StateCloseHandle, 1);
    // The receive thread and a destructor may close at the same moment: the
    // field is taken over atomically, so each handle is closed once.
    HINTERNET handle = static_cast<HINTERNET>(::InterlockedExchangePointer(pHandle, nullptr));
    if (!handle)
        return 0;
    LONG code = 0;
    while (!::InternetCloseHandle(handle)) {
        code = _processRetryError("CVnLinkhostWITransceiver::_closeHandleInternet",
                                  "Can't send authorization request (HttpSendRequest)");
        if (code != ERROR_INTERNET_FORCE_RETRY)
            break;
    }
    return code;
}

LONG CVnLinkhostWITransceiver::_processRetryError(const char* method, const char* message)
{
    const DWORD code = ::GetLastError();
    if (code == 0) {
        LogLine(vn_log::kError, method, "Logical error inside _processRetryError");
        return 0;
    }
    if (code == ERROR_IO_PENDING) {
        const DWORD wait = m_monitor.Wait(m_context.hEvent, INFINITE);
        if (wait == WAIT_OBJECT_0 + 1) {
            LogLine(vn_log::kError, "CVnLinkhostWITransceiver::_processRetryError", "Process closed WAIT_TIMEOUT");
            ::ResetEvent(m_context.hEvent);
            return WAIT_TIMEOUT;
        }
        if (wait == WAIT_TIMEOUT)
            LogLine(vn_log::kError, "CVnLinkhostWITransceiver::_processRetryError", "WAIT_TIMEOUT");
        ::ResetEvent(m_context.hEvent);
        const DWORD error = m_context.dwError;
        if (error == ERROR_INTERNET_FORCE_RETRY)
            return ERROR_INTERNET_FORCE_RETRY;
        if (error != 0)
            LogLine(vn_log::kErrorDec, method, message, static_cast<int>(error));
        return CVnHttpsHandler::HandleError(error, m_hRequest, m_hWnd, m_bInteractive);
    }
    if (code == ERROR_INTERNET_FORCE_RETRY)
        return ERROR_INTERNET_FORCE_RETRY;
    LogLine(vn_log::kErrorDec, method, message, static_cast<int>(code));
    return CVnHttpsHandler::HandleError(code, m_hRequest, m_hWnd, m_bInteractive);
}

void CVnLinkhostWITransceiver::_readChallenge()
{
    HINTERNET request = m_context.phHandle ? *m_context.phHandle : m_hRequest;
    DWORD status = 0, size = sizeof status, index = 0;
    if (!request || !::HttpQueryInfoA(request, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, &index))
        return;
    if (status != HTTP_STATUS_PROXY_AUTH_REQ && status != HTTP_STATUS_DENIED)
        return;
    std::string challenge;
    const bool proxy = status == HTTP_STATUS_PROXY_AUTH_REQ;
    ReceiveHeadersSync(challenge, proxy ? HTTP_QUERY_PROXY_AUTHENTICATE : HTTP_QUERY_WWW_AUTHENTICATE);
    // Only the first challenge counts, and only by how it begins.
    const bool plain = !(StartsWith(challenge, "Digest") || StartsWith(challenge, "NTLM"));
    if (proxy)
        m_bProxyPlainAuth = plain;
    else
        m_bServerPlainAuth = plain;
}

void CALLBACK CVnLinkhostWITransceiver::StatusCallback(HINTERNET, DWORD_PTR context, DWORD status, LPVOID info, DWORD)
{
    auto* ctx = reinterpret_cast<Context*>(context);
    vfc::TLock lock(LiveLock());
    if (!ctx || !LiveContexts().count(ctx))
        return;
    const DWORD state = ctx->dwState;
    if (state > StateCloseHandle)
        return;
    const auto* result = static_cast<const INTERNET_ASYNC_RESULT*>(info);
    switch (state) {
    case StateConnect:
    case StateOpenRequest:
        if (status == INTERNET_STATUS_HANDLE_CREATED) {
            if (ctx->phHandle && result)
                *ctx->phHandle = reinterpret_cast<HINTERNET>(result->dwResult);
            ::SetEvent(ctx->hEvent);
        }
        break;
    case StateSendRequest:
        if (status == INTERNET_STATUS_RESPONSE_RECEIVED || status == INTERNET_STATUS_REQUEST_COMPLETE)
            ctx->pTransceiver->_readChallenge();
        if (status == INTERNET_STATUS_REQUEST_COMPLETE) {
            ctx->dwError = result ? result->dwError : 0;
            ::SetEvent(ctx->hEvent);
        }
        break;
    case StateCloseHandle:
        if (status == INTERNET_STATUS_HANDLE_CLOSING)
            ::SetEvent(ctx->hEvent);
        break;
    default:
        if (status == INTERNET_STATUS_REQUEST_COMPLETE) {
            ctx->dwError = result ? result->dwError : 0;
            ::SetEvent(ctx->hEvent);
        }
        break;
    }
}
