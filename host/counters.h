// Counters of the serving process that a tool reads from outside, such as
// the download benchmark, without changing what the process does: a small
// section named after the process id, made on first use.
#pragma once

#include <windows.h>

#include <cstdio>

// The section's name for a process: "Local\VnLinkhost.Counters.<pid>".
constexpr const char* kCountersNameFormat = "Local\\VnLinkhost.Counters.%lu";

// The objects of the request pipeline that are counted while they live.
enum VnLiveKind : int {
    kLiveRequests,
    kLiveResults,
    kLiveStreams,
    kLiveReceiveOwners,
    kLiveTransceivers,
    kLiveRecords,
    kLiveSessions,
    kLiveHeaders,
    kLiveKinds
};

// Fixed-size fields only: a reader of the other bitness maps the same bytes.
struct VnCounters {
    LONG64 llFrequency;          // QueryPerformanceFrequency, for the ticks below
    volatile LONG64 llExecutes;  // Execute calls that returned
    volatile LONG64 llExecuteTicks;  // their time inside the server, in ticks
    volatile LONG64 llLiveObjects[kLiveKinds];  // objects of each kind alive now
    volatile LONG64 llHeapBytes;     // held through operator new by the server's own code
};

// The counters of this process; null when the section could not be made.
VnCounters* ProcessCounters() noexcept;

// Another process's counters, read-only, for a reader outside it: null until
// that process made them. The reader unmaps the view when done.
inline const VnCounters* MapCounters(DWORD pid) noexcept
{
    char name[64];
    std::snprintf(name, sizeof name, kCountersNameFormat, static_cast<unsigned long>(pid));
    const HANDLE section = ::OpenFileMappingA(FILE_MAP_READ, FALSE, name);
    if (!section)
        return nullptr;
    const void* view = ::MapViewOfFile(section, FILE_MAP_READ, 0, 0, sizeof(VnCounters));
    ::CloseHandle(section);  // the view keeps the section
    return static_cast<const VnCounters*>(view);
}

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

// Adds `delta` to the bytes held through operator new.
void CountHeapBytes(LONG64 delta) noexcept;

// Adds `delta` to the live objects of a kind.
void CountLiveObjects(VnLiveKind kind, LONG64 delta) noexcept;

// A member that counts its owner among the live objects of its kind for as
// long as the owner lives: at rest the counts are back where they were,
// whatever the clients did, or something is kept that nobody can reach.
template <VnLiveKind Kind>
class TLiveObject {
public:
    TLiveObject() noexcept { CountLiveObjects(Kind, 1); }
    TLiveObject(const TLiveObject&) noexcept { CountLiveObjects(Kind, 1); }
    TLiveObject& operator=(const TLiveObject&) noexcept { return *this; }
    ~TLiveObject() { CountLiveObjects(Kind, -1); }
};
