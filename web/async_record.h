// CVnAsyncRecord: what the platform is given with every asynchronous call of
// one internet session of a transceiver.
//
// The platform may still write into a read buffer, or read a body, after the
// transceiver stopped waiting for it: closing a handle does not cancel the
// I/O that is pending on it. So everything lent to a pending call lives here,
// not on a thread's stack or in the transceiver, and the record is counted.
// The transceiver holds one reference; every handle created with the record
// as its context holds one from the platform's "handle created" notice to its
// "handle closing" notice, which is the platform's last word on a handle.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <string>
#include <vector>

#include "host/counters.h"
#include "vfc/critical_section.h"
#include "vfc/unique_resource.h"

class CVnLinkhostWITransceiver;

struct CVnAsyncRecord {
    // The record of the operation in flight; the status callback reads it.
    struct Context {
        volatile DWORD dwState = 0;
        HINTERNET* phHandle = nullptr;
        HANDLE hEvent = nullptr;
        volatile DWORD dwError = 0;
        // Cleared, under `lock`, when the transceiver goes before the record.
        CVnLinkhostWITransceiver* pTransceiver = nullptr;
    };

    // Null when the events can't be made.
    static CVnAsyncRecord* Create(CVnLinkhostWITransceiver* owner);

    void AddRef() noexcept { ::InterlockedIncrement(&m_cRefs); }
    void Release() noexcept
    {
        if (::InterlockedDecrement(&m_cRefs) == 0)
            delete this;
    }
    // True while some handle created with this record has not closed yet.
    bool HasOpenHandles() const noexcept { return m_cRefs > 1; }

    // Ends every wait on this record for good: set by a thread that takes the
    // session away from the one using it. Manual-reset, never reset.
    void Cancel() noexcept { ::SetEvent(hCancel.get()); }
    bool IsCancelled() const noexcept { return ::WaitForSingleObject(hCancel.get(), 0) == WAIT_OBJECT_0; }

    Context context;
    // 0: opening a connection or request; 1: read, write, send and close;
    // 2: send headers and end a request. Auto-reset.
    vfc::THandle hEvents[3];
    vfc::THandle hCancel;
    // Under Wine the close of a request drains and releases its connection
    // even while a read still runs on it, and another request's read has been
    // seen ending early at that moment: handles given up are closed only once
    // their read has ended. The mark is a flag, so that a read costs no call
    // to the wineserver; the event is set only for a closer that waits.
    void MarkReadPending() noexcept { ::InterlockedExchange(&m_lReadPending, 1); }
    void MarkReadIdle() noexcept
    {
        ::InterlockedExchange(&m_lReadPending, 0);
        if (m_lIdleWaiters > 0)
            ::SetEvent(m_hReadIdle.get());
    }
    // Waits until no read is pending, up to `ms`.
    void WaitReadIdle(DWORD ms) noexcept
    {
        // Announced before the look, so that an end of read after it sets the event.
        ::InterlockedIncrement(&m_lIdleWaiters);
        const ULONGLONG until = ::GetTickCount64() + ms;
        for (ULONGLONG now = ::GetTickCount64(); m_lReadPending != 0 && now < until; now = ::GetTickCount64())
            ::WaitForSingleObject(m_hReadIdle.get(), static_cast<DWORD>(until - now));
        ::InterlockedDecrement(&m_lIdleWaiters);
    }
    // Guards `context.pTransceiver` against the status callback.
    vfc::TCriticalSection lock;

    // Lent to the platform by the operation in flight.
    HINTERNET hCreated = nullptr;
    std::vector<BYTE> buffer;
    DWORD cbTransferred = 0;
    std::string headers;
    std::vector<BYTE> body;
    INTERNET_BUFFERSA buffers = {};
    INTERNET_BUFFERSA readBuffers = {};

private:
    CVnAsyncRecord() = default;
    ~CVnAsyncRecord() = default;

    volatile LONG m_cRefs = 1;
    vfc::THandle m_hReadIdle;  // auto-reset; set only while a closer waits
    volatile LONG m_lReadPending = 0;
    volatile LONG m_lIdleWaiters = 0;
    TLiveObject<kLiveRecords> m_live;
};
