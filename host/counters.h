// Counters of the serving process that a tool reads from outside, such as
// the download benchmark, without changing what the process does: a small
// section named after the process id, made on first use.
#pragma once

#include <windows.h>

// The section's name for a process: "Local\VnLinkhost.Counters.<pid>".
constexpr const char* kCountersNameFormat = "Local\\VnLinkhost.Counters.%lu";

// Fixed-size fields only: a reader of the other bitness maps the same bytes.
struct VnCounters {
    LONG64 llFrequency;          // QueryPerformanceFrequency, for the ticks below
    volatile LONG64 llExecutes;  // Execute calls that returned
    volatile LONG64 llExecuteTicks;  // their time inside the server, in ticks
};

// The counters of this process; null when the section could not be made.
VnCounters* ProcessCounters() noexcept;

// Adds the time since its construction to the Execute counters at its end.
class TExecuteTimer {
public:
    TExecuteTimer() noexcept { ::QueryPerformanceCounter(&m_start); }
    ~TExecuteTimer();
    TExecuteTimer(const TExecuteTimer&) = delete;
    TExecuteTimer& operator=(const TExecuteTimer&) = delete;

private:
    LARGE_INTEGER m_start;
};
