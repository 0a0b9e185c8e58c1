#include "web/transceiver.h"

#include <memory>
#include <new>

#include "host/log.h"
#include "vfc/critical_section.h"
#include "web/https_handler.h"

namespace {

const char* const kInitConnection = "CVnLinkhostWITransceiver::_initConnection";

const char* BoolText(bool value) { return value ? "true" : "false"; }

bool StartsWith(const std::string& text, const char* prefix) { return text.compare(0, strlen(prefix), prefix) == 0; }

DWORD_PTR ContextOf(CVnAsyncRecord* record) { return reinterpret_cast<DWORD_PTR>(record); }

// The time-outs Windows gives every internet handle, stated on each of ours:
// Wine has none, and a silent server would hold the request for ever. Values
// an administrator put under Internet Settings win, as they do on Windows.
const struct {
    DWORD option;
    const char* value;
    DWORD defaultMs;
} kTimeouts[kTimeoutCount] = {
    {INTERNET_OPTION_CONNECT_TIMEOUT, "ConnectTimeout", 60000},
    {INTERNET_OPTION_SEND_TIMEOUT, "SendTimeout", 30000},
    {INTERNET_OPTION_RECEIVE_TIMEOUT, "ReceiveTimeout", 30000},
};

void ReadPlatformTimeouts(DWORD (&ms)[kTimeoutCount])
{
    for (int i = 0; i < kTimeoutCount; ++i) {
        DWORD size = sizeof ms[i];
        if (::RegGetValueA(HKEY_CURRENT_USER, "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings",
                           kTimeouts[i].value, RRF_RT_REG_DWORD, nullptr, &ms[i], &size) != ERROR_SUCCESS || ms[i] == 0)
            ms[i] = kTimeouts[i].defaultMs;
    }
}

void SetTimeouts(HINTERNET handle, const DWORD (&ms)[kTimeoutCount])
{
    for (int i = 0; i < kTimeoutCount; ++i)
        if (!::InternetSetOptionA(handle, kTimeouts[i].option, const_cast<DWORD*>(&ms[i]), sizeof ms[i]))
            LogLine(vn_log::kErrorDec, kInitConnection, "InternetSetOption failed", static_cast<int>(::GetLastError()));
}

// Handles that a thread gave up, closed on a pool thread with the record
// they were created with, after the read pending on them has ended; the
// platform's own time-outs end a read that waits for the network.
constexpr DWORD kPendingReadLimitMs = 120000;

struct CloseJob {
    CVnAsyncRecord* pRecord;
    HINTERNET hRequest;
    HINTERNET hConnect;
    HINTERNET hInternet;
};

DWORD WINAPI CloseJobProc(LPVOID param)
{
    std::unique_ptr<CloseJob> job(static_cast<CloseJob*>(param));
    if (job->pRecord && job->hRequest)
        job->pRecord->WaitReadIdle(kPendingReadLimitMs);
    if (job->hRequest)
        ::InternetCloseHandle(job->hRequest);
    if (job->hConnect)
        ::InternetCloseHandle(job->hConnect);
    if (job->hInternet) {
        ::InternetSetStatusCallbackA(job->hInternet, nullptr);
        ::InternetCloseHandle(job->hInternet);
    }
    if (job->pRecord)
        job->pRecord->Release();
    return 0;
}

}  // namespace

CVnAsyncRecord* CVnAsyncRecord::Create(CVnLinkhostWITransceiver* owner)
{
    auto* record = new (std::nothrow) CVnAsyncRecord;
    if (!record)
        return nullptr;
    bool ok = true;
    for (auto& event : record->hEvents) {
        event.reset(::CreateEventA(nullptr, FALSE, FALSE, nullptr));
        ok = ok && event.valid();
    }
    record->hCancel.reset(::CreateEventA(nullptr, TRUE, FALSE, nullptr));
    record->m_hReadIdle.reset(::CreateEventA(nullptr, FALSE, FALSE, nullptr));
    if (!ok || !record->hCancel || !record->m_hReadIdle) {
        record->Release();
        return nullptr;
    }
    record->context.pTransceiver = owner;
    return record;
}

CVnLinkhostWITransceiver::CVnLinkhostWITransceiver() : m_pRecord(CVnAsyncRecord::Create(this)) {}

CVnLinkhostWITransceiver::~CVnLinkhostWITransceiver()
{
    TraceLine("CVnLinkhostWITransceiver::~CVnLinkhostWITransceiver started");
    CloseAllInternetHandles();
    _leaveRecord();
    TraceLine("CVnLinkhostWITransceiver::~CVnLinkhostWITransceiver done");
}

void CVnLinkhostWITransceiver::_leaveRecord()
{
    CVnAsyncRecord* record;
    {
        vfc::TLock lock(m_csRecord);
        record = m_pRecord;
        m_pRecord = nullptr;
    }
    if (!record)
        return;
    {
        vfc::TLock lock(record->lock);
        record->context.pTransceiver = nullptr;
    }
    record->Release();
}

bool CVnLinkhostWITransceiver::_renewRecord()
{
    if (m_pRecord && !m_pRecord->HasOpenHandles() && !m_pRecord->IsCancelled())
        return true;
    CVnAsyncRecord* fresh = CVnAsyncRecord::Create(this);
    if (!fresh)
        return false;
    _leaveRecord();
    vfc::TLock lock(m_csRecord);
    m_pRecord = fresh;
    return true;
}

CVnAsyncRecord* CVnLinkhostWITransceiver::_beginOperation(State state, int event, bool reset)
{
    CVnAsyncRecord* record = m_pRecord;
    if (!record)
        return nullptr;
    Context& context = record->context;
    context.dwState = state;
    context.hEvent = record->hEvents[event].get();
    context.dwError = 0;
    if (reset)
        ::ResetEvent(context.hEvent);
    m_dwOperationStart = ::GetTickCount();
    return record;
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
        if (!_renewRecord())
            return ERROR_NOT_ENOUGH_MEMORY;
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
        ReadPlatformTimeouts(m_dwTimeouts);
        SetTimeouts(m_hInternet, m_dwTimeouts);
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
        CVnAsyncRecord* record = _beginOperation(StateConnect, 0);
        record->context.phHandle = &m_hConnect;
        for (;;) {
            HINTERNET handle = ::InternetConnectA(m_hInternet, parts.host.c_str(), parts.port, nullptr, nullptr,
                                                  INTERNET_SERVICE_HTTP, INTERNET_FLAG_NO_UI, ContextOf(record));
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

    CVnAsyncRecord* record = _beginOperation(StateOpenRequest, 0);
    record->context.phHandle = &m_hRequest;
    const std::string verb = bCloseAll && !m_bSkipHeadAuth ? std::string("HEAD") : parts.verb;
    DWORD flags = dwExtraFlags | INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_KEEP_CONNECTION |
                  INTERNET_FLAG_NO_UI;
    if (parts.scheme == INTERNET_SCHEME_HTTPS)
        flags |= INTERNET_FLAG_SECURE;
    for (;;) {
        HINTERNET handle = ::HttpOpenRequestA(m_hConnect, verb.c_str(), parts.path.c_str(),
                                              parts.version.empty() ? nullptr : parts.version.c_str(), nullptr,
                                              nullptr, flags, ContextOf(record));
        if (handle) {
            m_hRequest = handle;
            SetTimeouts(m_hRequest, m_dwTimeouts);
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
    m_bWholeSend = false;
    if (iRetry == 0) {
        // The dialogue's first request answers no challenge itself: the
        // platform would try NTLM with the logged-on user's login, which
        // under Wine leaves the handshake half done on a connection that goes
        // back to its pool.
        LONG code = _initConnection(true, parts, INTERNET_FLAG_NO_AUTO_REDIRECT | INTERNET_FLAG_NO_AUTH);
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
    const std::string ahead = _handOverLogin(parts.scheme);
    CVnAsyncRecord* record = _beginOperation(StateSendRequestEx, 2);
    record->context.phHandle = &m_hRequest;
    record->headers = ahead + headers;
    record->buffers = {};
    record->buffers.dwStructSize = sizeof record->buffers;
    record->buffers.lpcszHeader = record->headers.c_str();
    record->buffers.dwHeadersLength = static_cast<DWORD>(::lstrlenA(record->headers.c_str()));

    // NTLM or Digest want the whole request in one send, since the platform
    // answers their challenges only inside HttpSendRequest: a body waits for
    // SendRequest, a request without one for EndSendData.
    m_bWholeSend = !m_bProxyPlainAuth || !m_bServerPlainAuth;
    if (m_bWholeSend)
        return 0;

    while (!::HttpSendRequestExA(m_hRequest, &record->buffers, nullptr, 0, ContextOf(record))) {
        code = _processRetryError(method, "Can't send ex request (HttpSendRequestEx)");
        if (code != ERROR_INTERNET_FORCE_RETRY)
            return code;
    }
    return 0;
}

LONG CVnLinkhostWITransceiver::SendRequest(const char* headers, DWORD cbHeaders, const void* body, DWORD cbBody)
{
    m_bWholeSend = false;
    CVnAsyncRecord* record = _beginOperation(StateSendRequest, 1);
    if (!record)
        return ERROR_INVALID_HANDLE;
    record->context.phHandle = &m_hRequest;
    // The platform sends from these after the call has returned.
    record->headers.assign(headers ? headers : "", headers ? cbHeaders : 0);
    const BYTE* bytes = static_cast<const BYTE*>(body);
    record->body.assign(bytes, bytes ? bytes + cbBody : bytes);
    while (!::HttpSendRequestA(m_hRequest, record->headers.c_str(), static_cast<DWORD>(record->headers.size()),
                               record->body.empty() ? nullptr : record->body.data(),
                               static_cast<DWORD>(record->body.size()))) {
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
    CVnAsyncRecord* record = _beginOperation(StateWriteFile, 1);
    if (!record)
        return ERROR_INVALID_HANDLE;
    const BYTE* bytes = static_cast<const BYTE*>(data);
    record->buffer.assign(bytes, bytes ? bytes + cb : bytes);
    while (!::InternetWriteFile(m_hRequest, record->buffer.data(), static_cast<DWORD>(record->buffer.size()),
                                &record->cbTransferred)) {
        LONG code = _processRetryError("CVnLinkhostWITransceiver::SendData", "Can't write file. (InternetWriteFile)");
        if (code != ERROR_INTERNET_FORCE_RETRY)
            return code;
    }
    return 0;
}

LONG CVnLinkhostWITransceiver::EndSendData()
{
    if (m_bWholeSend && m_pRecord)
        return SendRequest(m_pRecord->headers.c_str(), static_cast<DWORD>(m_pRecord->headers.size()), nullptr, 0);
    CVnAsyncRecord* record = _beginOperation(StateEndRequest, 2);
    if (!record)
        return ERROR_INVALID_HANDLE;
    if (::HttpEndRequestA(m_hRequest, nullptr, HSR_INITIATE, ContextOf(record)))
        return 0;
    // The caller decides what a request to repeat means here.
    return _processRetryError("CVnLinkhostWITransceiver::EndSendData", "Can't end request. (HttpEndRequest)");
}

LONG CVnLinkhostWITransceiver::EndSendHeadersAsync()
{
    CVnAsyncRecord* record = m_pRecord;
    if (!record)
        return ERROR_INVALID_HANDLE;
    HANDLE event = record->hEvents[2].get();
    if (m_monitor.Wait(event, INFINITE, record->hCancel.get()) != WAIT_OBJECT_0) {
        LogLine(vn_log::kError, "CVnLinkhostWITransceiver::EndSendHeadersAsync", "Process closed WAIT_TIMEOUT");
        return WAIT_TIMEOUT;
    }
    ::ResetEvent(event);
    return static_cast<LONG>(record->context.dwError);
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
    // Under Wine a look at the client and a reset of the read event are each
    // a call to the server, and the two took half of this loop's time per
    // block. So the event is reset once for the body, before the first read
    // (an earlier operation on the same event may have left it set, and a
    // wait ending on that would end the body early); after that only a read
    // that pends sets it, and its own wait takes the set.
    // The client is looked at before the first read and then at most every
    // kClientLookMs instead of before each read: its death still ends the
    // loop within that time and one block, and at once while the loop waits
    // for the network or for room, since those waits watch its process.
    CVnAsyncRecord* record = _beginOperation(StateReadFile, 1);
    if (!record)
        return ERROR_INVALID_HANDLE;
    ULONGLONG lastLook = 0;
    DWORD read = 0;
    do {
        const ULONGLONG now = ::GetTickCount64();
        if (lastLook == 0 || now - lastLook >= kClientLookMs) {
            lastLook = now ? now : 1;
            const DWORD wait = ::WaitForSingleObject(m_monitor.GetProcess(), 0);
            if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) {
                LogLine(vn_log::kErrorDec, method, "Process close WAIT_TIMEOUT", static_cast<int>(WAIT_TIMEOUT));
                return WAIT_TIMEOUT;
            }
            if (wait == WAIT_FAILED)
                LogLine(vn_log::kErrorDec, method, "::WaitForSingleObject(m_monitor.GetProcess(), 0) failed.",
                        static_cast<int>(::GetLastError()));
        }
        record = _beginOperation(StateReadFile, 1, false);
        if (!record)
            return ERROR_INVALID_HANDLE;
        // The platform fills the record's buffer, which outlives a read that
        // this thread stops waiting for; the block is copied out when done.
        if (record->buffer.size() < cbBuffer)
            record->buffer.resize(cbBuffer);
        // The count comes back in the record's buffer description, not in a
        // count of its own: Wine's InternetReadFile zeroes its count after a
        // read pended, and its worker may have completed the read and stored
        // the count before that, which left a whole body read as 0 bytes.
        INTERNET_BUFFERSA& out = record->readBuffers;
        auto readPends = [&] {
            out = {};
            out.dwStructSize = sizeof out;
            out.lpvBuffer = record->buffer.data();
            out.dwBufferLength = cbBuffer;
            record->MarkReadPending();
            if (::InternetReadFileExA(m_hRequest, &out, IRF_ASYNC, ContextOf(record)))
                return false;
            const DWORD error = ::GetLastError();
            if (error != ERROR_IO_PENDING) {
                out.dwBufferLength = 0;  // a failed read gave nothing
                record->MarkReadIdle();
            }
            ::SetLastError(error);  // for _processRetryError
            return true;
        };
        while (readPends()) {
            LONG code = _processRetryError(method, "Can't read response. (InternetReadFile)");
            if (code == ERROR_INTERNET_FORCE_RETRY)
                continue;
            if (code != 0)
                return code;
            break;
        }
        record->MarkReadIdle();
        // A chunked body cut off before its last chunk ends here like a whole
        // one: Wine's read gives 0 bytes and success, and so do a second read
        // and a query of the bytes available; only a Content-Length tells.
        read = out.dwBufferLength;
        memcpy(buffer, record->buffer.data(), read);
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
        HINTERNET session = m_hInternet;
        if (session)
            ::InternetSetStatusCallbackA(session, nullptr);
        _closeHandleInternet(&m_hInternet);
    }
    return 0;
}

void CVnLinkhostWITransceiver::CloseAllInternetHandles()
{
    TraceLine("CVnLinkhostWITransceiver::CloseAllInternetHandles inside");
    EndReceiveDataAsync(true);
}

void CVnLinkhostWITransceiver::AbandonInternetHandles()
{
    TraceLine("CVnLinkhostWITransceiver::AbandonInternetHandles inside");
    auto job = std::make_unique<CloseJob>();
    {
        vfc::TLock lock(m_csRecord);
        job->pRecord = m_pRecord;
        if (job->pRecord) {
            job->pRecord->AddRef();
            job->pRecord->Cancel();
        }
    }
    job->hRequest = static_cast<HINTERNET>(::InterlockedExchangePointer(&m_hRequest, nullptr));
    job->hConnect = static_cast<HINTERNET>(::InterlockedExchangePointer(&m_hConnect, nullptr));
    job->hInternet = static_cast<HINTERNET>(::InterlockedExchangePointer(&m_hInternet, nullptr));
    if (!job->hRequest && !job->hConnect && !job->hInternet) {
        CloseJobProc(job.release());
        return;
    }
    if (::QueueUserWorkItem(CloseJobProc, job.get(), WT_EXECUTELONGFUNCTION))
        job.release();
    else
        CloseJobProc(job.release());
}

LONG CVnLinkhostWITransceiver::_closeHandleInternet(HINTERNET* pHandle)
{
    // The receive thread and a destructor may close at the same moment: the
    // field is taken over atomically, so each handle is closed once. Closing
    // leaves the context alone: a read may still be pending on it.
    HINTERNET handle = static_cast<HINTERNET>(::InterlockedExchangePointer(pHandle, nullptr));
    if (!handle || ::InternetCloseHandle(handle))
        return 0;
    const LONG code = static_cast<LONG>(::GetLastError());
    LogLine(vn_log::kErrorDec, "CVnLinkhostWITransceiver::_closeHandleInternet",
            "Can't send authorization request (HttpSendRequest)", static_cast<int>(code));
    return code;
}

LONG CVnLinkhostWITransceiver::_processRetryError(const char* method, const char* message)
{
    DWORD code = ::GetLastError();
    if (code == 0) {
        LogLine(vn_log::kError, method, "Logical error inside _processRetryError");
        return 0;
    }
    CVnAsyncRecord* record = m_pRecord;
    if (code == ERROR_IO_PENDING && record) {
        HANDLE event = record->context.hEvent;
        const DWORD wait = m_monitor.Wait(event, INFINITE, record->hCancel.get());
        if (wait == WAIT_OBJECT_0 + 1) {
            LogLine(vn_log::kError, "CVnLinkhostWITransceiver::_processRetryError", "Process closed WAIT_TIMEOUT");
            ::ResetEvent(event);
            return WAIT_TIMEOUT;
        }
        if (wait == WAIT_TIMEOUT)
            LogLine(vn_log::kError, "CVnLinkhostWITransceiver::_processRetryError", "WAIT_TIMEOUT");
        ::ResetEvent(event);
        // Another thread took the session away; the call may still complete
        // into the record, which outlives it.
        code = wait == WAIT_OBJECT_0 + 2 ? ERROR_INTERNET_OPERATION_CANCELLED : _timeoutOrAbort(record->context.dwError);
        if (code == ERROR_INTERNET_FORCE_RETRY)
            return ERROR_INTERNET_FORCE_RETRY;
        if (code != 0)
            LogLine(vn_log::kErrorDec, method, message, static_cast<int>(code));
        return CVnHttpsHandler::HandleError(code, m_hRequest, m_hWnd, m_bInteractive);
    }
    if (code == ERROR_INTERNET_FORCE_RETRY)
        return ERROR_INTERNET_FORCE_RETRY;
    LogLine(vn_log::kErrorDec, method, message, static_cast<int>(code));
    return CVnHttpsHandler::HandleError(code, m_hRequest, m_hWnd, m_bInteractive);
}

DWORD CVnLinkhostWITransceiver::_timeoutOrAbort(DWORD code) const
{
    const DWORD receiveMs = m_dwTimeouts[kTimeoutCount - 1];
    if (code == ERROR_INTERNET_CONNECTION_ABORTED && receiveMs && ::GetTickCount() - m_dwOperationStart >= receiveMs)
        return ERROR_INTERNET_TIMEOUT;
    return code;
}

void CVnLinkhostWITransceiver::_readChallenge(HINTERNET hRequest)
{
    DWORD status = 0, size = sizeof status, index = 0;
    if (!hRequest || !::HttpQueryInfoA(hRequest, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, &index))
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

void CALLBACK CVnLinkhostWITransceiver::StatusCallback(HINTERNET hInternet, DWORD_PTR context, DWORD status,
                                                       LPVOID info, DWORD)
{
    auto* record = reinterpret_cast<CVnAsyncRecord*>(context);
    if (!record)
        return;
    // Each handle holds the record from its creation to its closing notice.
    if (status == INTERNET_STATUS_HANDLE_CREATED) {
        record->AddRef();
    } else if (status == INTERNET_STATUS_HANDLE_CLOSING) {
        record->Release();
        return;
    }
    // A proxy login sent ahead belongs to the proxy of the first hop; the
    // next may bypass it or run through a tunnel to the server. The platform
    // still answers a challenge there with the options of the handle.
    if (status == INTERNET_STATUS_REDIRECT && record->headers.find(kProxyAuthorization) != std::string::npos)
        ::HttpAddRequestHeadersA(hInternet, kProxyAuthorization, static_cast<DWORD>(-1), HTTP_ADDREQ_FLAG_REPLACE);
    vfc::TLock lock(record->lock);
    Context* ctx = &record->context;
    const DWORD state = ctx->dwState;
    if (state > StateCloseHandle)
        return;
    const auto* result = static_cast<const INTERNET_ASYNC_RESULT*>(info);
    switch (state) {
    case StateConnect:
    case StateOpenRequest:
        if (status == INTERNET_STATUS_HANDLE_CREATED) {
            if (ctx->pTransceiver && ctx->phHandle && result)
                *ctx->phHandle = reinterpret_cast<HINTERNET>(result->dwResult);
            ::SetEvent(ctx->hEvent);
        }
        break;
    case StateSendRequest:
        if (ctx->pTransceiver &&
            (status == INTERNET_STATUS_RESPONSE_RECEIVED || status == INTERNET_STATUS_REQUEST_COMPLETE))
            ctx->pTransceiver->_readChallenge(hInternet);
        if (status == INTERNET_STATUS_REQUEST_COMPLETE) {
            ctx->dwError = result ? result->dwError : 0;
            ::SetEvent(ctx->hEvent);
        }
        break;
    default:
        if (status == INTERNET_STATUS_REQUEST_COMPLETE) {
            ctx->dwError = result ? result->dwError : 0;
            ::SetEvent(ctx->hEvent);
            if (state == StateReadFile)
                record->MarkReadIdle();
        }
        break;
    }
}
