// VnProcessMonitor: the client process behind a session, request or stream,
// so that every long wait of the web pipeline ends when that client dies.
#pragma once

#include <windows.h>

#include "vfc/unique_resource.h"

// A small value type. The object interfaces call the id "ProcessHandle"; it
// is a process id, and 0 means that no client is watched.
//
// The handle is opened on first need and belongs to this one instance: a copy
// takes the id only and opens a handle of its own. A monitor is used by one
// thread at a time; whoever shares a monitor across threads gives each thread
// its own copy.
class VnProcessMonitor {
public:
    VnProcessMonitor() noexcept = default;
    explicit VnProcessMonitor(DWORD processId) noexcept : dwProcessId(processId) {}
    VnProcessMonitor(const VnProcessMonitor& other) noexcept : dwProcessId(other.dwProcessId) {}
    VnProcessMonitor& operator=(const VnProcessMonitor& other) noexcept
    {
        SetProcessId(other.dwProcessId);
        return *this;
    }
    VnProcessMonitor& operator=(DWORD processId) noexcept
    {
        SetProcessId(processId);
        return *this;
    }

    // Another id closes an open handle first; the same id keeps it.
    void SetProcessId(DWORD processId) noexcept;
    DWORD GetProcessId() const noexcept { return dwProcessId; }

    // The handle with the right to wait on the client, opened on the first
    // call; null when no client is watched or the process can't be opened.
    HANDLE GetProcess() noexcept;

    // True when the watched client has ended, or can no longer be found.
    bool Ended() noexcept;

    // Waits for the event or the client's end, whichever comes first:
    // WAIT_OBJECT_0 for the event, WAIT_OBJECT_0 + 1 for the client's death,
    // WAIT_TIMEOUT when the time ran out (WAIT_FAILED as the platform gives it).
    DWORD Wait(HANDLE hEvent, DWORD dwMilliseconds) noexcept;
    // The same, ended also by hCancel (when not null): WAIT_OBJECT_0 + 2.
    DWORD Wait(HANDLE hEvent, DWORD dwMilliseconds, HANDLE hCancel) noexcept;

private:
    DWORD dwProcessId = 0;
    vfc::THandle hProcess;
};
