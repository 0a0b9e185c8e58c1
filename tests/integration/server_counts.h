// What the server process holds and does, counted from outside: its threads, its entries in the system's handle
// table, its connections to the origin server, its resident memory and whether it is busy; and the client processes
// that load it.
#pragma once

#include <iphlpapi.h>
#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <vector>

#include "host/counters.h"
#include "integration/pipeline_fixture.h"

namespace vn_test {

// A platform function that the test program does not link against.
template <typename Fn>
inline Fn Import(const char* dll, const char* name) { return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryA(dll), name))); }

// True when the process used less than a tenth of a core over half a second.
inline bool Idle(DWORD pid)
{
    const auto before = ThreadTimes(pid);
    Sleep(500);
    ULONGLONG used = 0;
    for (const auto& thread : ThreadTimes(pid))
        used += thread.second - (before.count(thread.first) ? before.at(thread.first) : 0);
    return used < 50;
}

// Entries of the system's handle table that the process owns (Wine does not
// answer GetProcessHandleCount). The layout is the one Wine's ntdll fills.
inline int Handles(DWORD pid)
{
    struct Entry { ULONG ownerPid; BYTE type, flags; USHORT value; PVOID object; ACCESS_MASK access; };
    using Query = LONG(NTAPI*)(ULONG, PVOID, ULONG, PULONG);
    static const auto query = Import<Query>("ntdll.dll", "NtQuerySystemInformation");
    std::vector<char> buffer(1 << 20);
    for (ULONG needed = 0; query(16 /* SystemHandleInformation */, buffer.data(), static_cast<ULONG>(buffer.size()),
                                 &needed) != 0;
         buffer.resize(buffer.size() * 2))
        if (buffer.size() >= (64u << 20))
            return -1;
    const auto* entries = reinterpret_cast<const Entry*>(buffer.data() + sizeof(void*));  // behind the count
    const ULONG count = *reinterpret_cast<const ULONG*>(buffer.data());
    return static_cast<int>(std::count_if(entries, entries + count, [pid](const Entry& e) { return e.ownerPid == pid; }));
}

// Resident memory of the process, in bytes (0 when it can't be read).
inline SIZE_T ResidentBytes(DWORD pid)
{
    using Query = BOOL(WINAPI*)(HANDLE, PPROCESS_MEMORY_COUNTERS, DWORD);
    static const auto query = Import<Query>("kernel32.dll", "K32GetProcessMemoryInfo");
    const vfc::THandle process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, pid));
    PROCESS_MEMORY_COUNTERS counters = {};
    return process && query(process.get(), &counters, sizeof counters) ? counters.WorkingSetSize : 0;
}

// Established connections to the origin server's plain listener. The test
// process itself never connects there: these are the server's.
inline int OriginSockets()
{
    using GetTable = DWORD(WINAPI*)(PMIB_TCPTABLE, PULONG, BOOL);
    static const auto getTable = Import<GetTable>("iphlpapi.dll", "GetTcpTable");
    const DWORD port = std::strtoul(ReadyLine("VN_ORIGIN")["http"].c_str(), nullptr, 10);
    ULONG size = 0;
    getTable(nullptr, &size, FALSE);
    std::vector<char> buffer(size + 64 * sizeof(MIB_TCPROW));
    size = static_cast<ULONG>(buffer.size());
    const auto table = reinterpret_cast<PMIB_TCPTABLE>(buffer.data());
    if (getTable(table, &size, FALSE) != NO_ERROR)
        return -1;
    return static_cast<int>(std::count_if(table->table, table->table + table->dwNumEntries, [port](const MIB_TCPROW& row) {
        return row.dwState == MIB_TCP_STATE_ESTAB && row.dwRemotePort == (((port & 0xFF) << 8) | (port >> 8));  // network order
    }));
}

// What the server counts of itself: sessions, requests, results, headers, streams, receive threads' owners,
// transceivers and their records alive, kind by kind, and the bytes its own code holds through operator new. All 0
// before its counters exist.
using TObjects = std::array<LONG64, kLiveKinds>;

struct TCounts { int threads, handles, sockets; TObjects objects; LONG64 heap; };

inline TCounts CountsOf(DWORD pid)
{
    TCounts counts = {static_cast<int>(ThreadTimes(pid).size()), Handles(pid), OriginSockets(), {}, 0};
    if (const VnCounters* counters = MapCounters(pid)) {
        std::copy(counters->llLiveObjects, counters->llLiveObjects + kLiveKinds, counts.objects.begin());
        counts.heap = counters->llHeapBytes;
        UnmapViewOfFile(counters);
    }
    return counts;
}

inline std::ostream& operator<<(std::ostream& out, const TCounts& c)
{
    static const char* const kinds[kLiveKinds] = {"requests", "results", "streams", "owners", "transceivers", "records",
                                                  "sessions", "headers"};
    out << c.threads << " threads, " << c.handles << " handles, " << c.sockets << " sockets;";
    for (int i = 0; i < kLiveKinds; ++i)
        out << " " << c.objects[i] << " " << kinds[i];
    return out << "; " << c.heap << " bytes of its own heap";
}

// The counts once the server has nothing left to do.
inline TCounts Settled(DWORD pid) { return WaitUntil([pid] { return Idle(pid); }, 15000), CountsOf(pid); }

// What the server's own heap may hold over the baseline at rest: the maps of watched clients and the like, which keep
// their room. A request's worth left behind per client shows over fifty clients.
constexpr LONG64 kHeapSlack = 64 * 1024;

// The server is idle again, with no more than a few threads (the platform's pools), handles and sockets (one kept-alive
// connection) over the baseline, not one object of a request more and its own heap as it was, and it is still the same
// process. Under Wine a closed handle's I/O goes on until the server answers, the platform's receive time-out ends it,
// or the platform has read the rest of the body: hence the generous wait. After many clients the platform's pool of
// kept-alive connections takes up to two minutes to let its idle ones go.
inline void ExpectBackTo(const TCounts& baseline, const TServerProcess& server, DWORD waitMs = 45000)
{
    TCounts now = {};
    EXPECT_TRUE(WaitUntil(
        [&] {
            now = CountsOf(server.pid());
            return now.threads <= baseline.threads + 3 && now.handles <= baseline.handles + 20 &&
                   now.sockets <= baseline.sockets + 1 &&
                   std::equal(now.objects.begin(), now.objects.end(), baseline.objects.begin(), std::less_equal<>()) &&
                   now.heap <= baseline.heap + kHeapSlack;
        },
        waitMs))
        << "baseline " << baseline << ", now " << now;
    EXPECT_TRUE(WaitUntil([&] { return Idle(server.pid()); }, 10000)) << "the server keeps working for nobody";
    EXPECT_TRUE(server.alive()) << "the server process ended";
}

// The fetch sample in a process of its own, reading the body without printing
// it, with its output in a file that the test reads. Killed at the end.
class TFetchClient : public TChild {
public:
    explicit TFetchClient(const std::string& url) : TChild(Quoted(BinDir() + "\\fetch.exe") + " " + url + " --count", true) {}
    bool Answered() const { return Output().find("Status: 200") != std::string::npos; }
};

}  // namespace vn_test
