// CVnLinkhostWITransceiver: the platform's asynchronous internet client made
// blocking. Each operation sets up the one shared context record, calls the
// platform, and when the platform answers that the work is pending, waits on
// an event that the status callback sets, while watching for the client's
// death through the process monitor.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <string>

#include "host/counters.h"
#include "vfc/critical_section.h"
#include "web/async_record.h"
#include "web/process_monitor.h"

class CVnLinkhostWITransceiver;

// The header that carries a proxy login; a redirect takes it off again.
constexpr const char* kProxyAuthorization = "Proxy-Authorization:";
// Connect, send and receive: the platform's time-outs each session states.
constexpr int kTimeoutCount = 3;
// How long the receive loop goes at most without looking at the client.
constexpr ULONGLONG kClientLookMs = 10;

// How a URL is split for the opening operations. The version is always empty.
struct ConnectionParts {
    std::string host;
    std::string verb;
    std::string path;
    std::string version;
    INTERNET_PORT port = 0;
    INTERNET_SCHEME scheme = INTERNET_SCHEME_HTTP;
};

// Called by the receive loop after every read: the buffer, its size, the bytes
// read and the caller's parameter. 0 goes on, anything else stops.
using ReceiveDataCallback = LONG (*)(BYTE* buffer, DWORD cbBuffer, DWORD cbRead, void* param);

class CVnLinkhostWITransceiver {
public:
    // Which platform operation is in flight; the status callback reads it.
    enum State : DWORD {
        StateConnect = 0,
        StateOpenRequest = 1,
        StateSendRequest = 2,
        StateUnused = 3,
        StateSendRequestEx = 4,
        StateReadFile = 5,
        StateWriteFile = 6,
        StateEndRequest = 7,
        StateCloseHandle = 8,
    };

    using Context = CVnAsyncRecord::Context;

    CVnLinkhostWITransceiver();
    ~CVnLinkhostWITransceiver();
    CVnLinkhostWITransceiver(const CVnLinkhostWITransceiver&) = delete;
    CVnLinkhostWITransceiver& operator=(const CVnLinkhostWITransceiver&) = delete;

    void SetProxyOptions(const std::string& proxy, bool bBypassLocal, const std::string& bypassList);
    void SetLoginData(const std::string& userName, const std::string& password);
    void SetWindow(HWND hWnd) { m_hWnd = hWnd; }
    HWND GetWindow() const { return m_hWnd; }
    void SetInteractive(bool interactive) { m_bInteractive = interactive; }
    void SetSkipHeadAuthentication(bool skip) { m_bSkipHeadAuth = skip; }
    void SetMonitor(const VnProcessMonitor& monitor) { m_monitor = monitor; }
    void SetReceiveDataCallback(ReceiveDataCallback callback) { m_lpfnReceiveDataCallback = callback; }
    bool IsBodyChunked() const { return m_bBodyChunked; }
    bool IsProxyPlainAuth() const { return m_bProxyPlainAuth; }
    bool IsServerPlainAuth() const { return m_bServerPlainAuth; }
    const std::string& GetProxy() const { return m_tstrProxy; }

    LONG SendHeadersAsync(const ConnectionParts& parts, const std::string& headers, int iRetry);
    LONG SendRequest(const char* headers, DWORD cbHeaders, const void* body, DWORD cbBody);
    LONG SendData(const void* data, DWORD cb);
    LONG EndSendData();
    LONG EndSendHeadersAsync();
    LONG ReceiveHeadersSync(std::string& text, DWORD dwInfoLevel);
    LONG _lastRequestVerb(std::string& text);
    LONG ReceiveDataAsync(BYTE* buffer, DWORD cbBuffer, void* param);
    LONG EndReceiveDataAsync(bool bCloseAll);
    void CloseAllInternetHandles();
    // For a thread other than the one using the transceiver: ends the waits
    // of the operation in flight and closes all handles in the background.
    // Closing can take long (the platform may read the rest of a body first),
    // so the caller returns at once; the record outlives the pending I/O.
    void AbandonInternetHandles();
    LONG _authenticate();

private:
    friend class CVnTransceiverTestAccess;

    LONG _initConnection(bool bCloseAll, const ConnectionParts& parts, DWORD dwExtraFlags);
    LONG _sendAuthRequest(const ConnectionParts& parts, const std::string& headers, int& iAuthResult);
    // The real request goes out on new handles, which under Wine know nothing
    // of the proxy login that the dialogue put on the pre-flight's. When a
    // challenging proxy accepted one, the dialogue's end keeps it in the
    // process's memory and marks it; the real request's new handle gets it
    // before it is sent. (The platform itself keeps a server's Basic login
    // for the host and sends it ahead, on Windows and under Wine.)
    void _keepSettledLogin();
    // Gives the header line that sends a Basic proxy login ahead, or an empty text.
    std::string _handOverLogin(INTERNET_SCHEME scheme);
    LONG _processRetryError(const char* method, const char* message);
    LONG _closeHandleInternet(HINTERNET* pHandle);
    // Prepares the context for one operation on one of the three events,
    // resetting the event unless told otherwise; null when the transceiver
    // has no record.
    CVnAsyncRecord* _beginOperation(State state, int event, bool reset = true);
    // A session starts on a record of its own unless the last one is unused:
    // a call of an earlier session may still be pending on it.
    bool _renewRecord();
    // Lets go of the current record; the platform may still hold it.
    void _leaveRecord();
    std::string _bypassText() const;
    // Reads the status of the response to a pending send and the challenge
    // scheme of a 401 or 407; runs on the platform's callback thread.
    void _readChallenge(HINTERNET hRequest);
    // Wine ends a wait that ran into the receive time-out as an abort; what
    // Windows reports in that case is the time-out itself.
    DWORD _timeoutOrAbort(DWORD code) const;
    // Whether the response's raw head begins with a status line.
    bool _hasStatusLine();

    static void CALLBACK StatusCallback(HINTERNET hInternet, DWORD_PTR context, DWORD status, LPVOID info,
                                        DWORD length);

    // The three platform handles. They are closed only through
    // _closeHandleInternet, which takes the status callback off first and
    // knows the platform's asynchronous close; so they are plain fields.
    HINTERNET m_hInternet = nullptr;
    HINTERNET m_hConnect = nullptr;
    HINTERNET m_hRequest = nullptr;
    // The record of the current session. Replaced only by the thread using
    // the transceiver, under m_csRecord, which AbandonInternetHandles takes
    // to borrow it from another thread.
    CVnAsyncRecord* m_pRecord = nullptr;
    vfc::TCriticalSection m_csRecord;
    VnProcessMonitor m_monitor;
    // Connect, send and receive time-outs of the current session, in ms,
    // read when it opens; the receive time-out comes last.
    DWORD m_dwTimeouts[kTimeoutCount] = {};
    DWORD m_dwOperationStart = 0;   // GetTickCount at the last _beginOperation
    ReceiveDataCallback m_lpfnReceiveDataCallback = nullptr;
    bool m_bProxyChanged = true;
    bool m_bBypassLocal = false;
    const bool m_bBodyChunked = true;
    volatile bool m_bProxyPlainAuth = true;
    volatile bool m_bServerPlainAuth = true;
    std::string m_tstrProxy;
    std::string m_tstrUserName;
    std::string m_tstrPassword;
    std::string m_tstrBypassBuffer;
    std::string m_tstrBypassList;
    bool m_bAuthenticated = false;
    bool m_bProxyLoginSettled = false;
    bool m_bProxyBasic = false;  // the proxy's challenge was Basic
    bool m_bWholeSend = false;   // the real request's headers wait for one HttpSendRequest
    HWND m_hWnd = nullptr;
    bool m_bInteractive = true;
    bool m_bSkipHeadAuth = false;
    TLiveObject<kLiveTransceivers> m_live;
};
