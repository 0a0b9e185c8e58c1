// What happens to the server's work when a client dies or drops its
// objects early: handles closed, receive threads ended, nothing leaked.
#include "integration/pipeline_fixture.h"

#include <tlhelp32.h>
#include <winternl.h>

#include <algorithm>
#include <vector>

#include "vfc/text.h"

namespace vn_test {
namespace {

// Threads of the process now.
int ThreadCount(DWORD pid)
{
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        return -1;
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL ok = Thread32First(snapshot, &entry); ok; ok = Thread32Next(snapshot, &entry))
        count += entry.th32OwnerProcessID == pid;
    CloseHandle(snapshot);
    return count;
}

class Lifetime : public Pipeline {
protected:
    void SetUp() override { ConfigureDirect(); }

    // Starts the fetch sample on a URL and kills it after `ms`.
    static void KillClientAfter(const std::string& url, DWORD ms)
    {
        TChild client(Quoted(BinDir() + "\\fetch.exe") + " " + url);
        ASSERT_TRUE(client.started());
        EXPECT_EQ(static_cast<DWORD>(STILL_ACTIVE), client.Wait(ms)) << "the client must still be waiting";
        TerminateProcess(client.handle(), 9);
        client.Wait(5000);
    }

    // The server still answers a request of a live client.
    static void ExpectServerHealthy()
    {
        auto request = Request(Url("/bytes?n=10000"), L"GET");
        vfc::TComPtr<IVnWebResult> result;
        ASSERT_EQ(S_OK, Execute(request.get(), result));
        EXPECT_EQ(10000u, Body(result.get()).size());
    }
};

TEST_F(Lifetime, ClientDyingWhileItsRequestWaitsEndsTheWait)
{
    const size_t log = LogSize();
    KillClientAfter(Url("/silent"), 2000);
    EXPECT_TRUE(WaitUntil([log] { return CountLogLinesSince(log, "Process closed WAIT_TIMEOUT") > 0; }, 10000))
        << LogSince(log);
    ExpectServerHealthy();
}

TEST_F(Lifetime, ClientDyingWhileItsBodyStreamsEndsTheReceiveThread)
{
    const TServerProcess server;
    const int before = ThreadCount(server.pid());
    const size_t log = LogSize();
    KillClientAfter(Url("/slow?n=200000&piece=512&delay_ms=20"), 2500);
    EXPECT_TRUE(WaitUntil(
        [log] { return CountLogLinesSince(log, "CVnWITransceiver::ReceiveDataAsync failed. Error code: 258.") > 0; },
        10000))
        << LogSince(log);
    EXPECT_TRUE(WaitUntil([&] { return ThreadCount(server.pid()) <= before + 1; }, 10000))
        << "threads before " << before << ", now " << ThreadCount(server.pid());
    ExpectServerHealthy();
}

// Handles the process holds now, from the system's table of all handles (Wine's GetProcessHandleCount says 0), or -1.
int HandleCount(DWORD pid)
{
    using Query = NTSTATUS(WINAPI*)(SYSTEM_INFORMATION_CLASS, PVOID, ULONG, PULONG);
    const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<char> table(1 << 20);
    NTSTATUS status;
    while ((status = query(SystemHandleInformation, table.data(), ULONG(table.size()), nullptr)) == NTSTATUS(0xC0000004L) &&
           table.size() < (1u << 28))  // too small a buffer
        table.resize(table.size() * 2);
    if (status != 0)
        return -1;
    const auto* info = reinterpret_cast<const SYSTEM_HANDLE_INFORMATION*>(table.data());
    return int(std::count_if(info->Handle, info->Handle + info->Count, [pid](const SYSTEM_HANDLE_ENTRY& h) { return h.OwnerPid == pid; }));
}

TEST_F(Lifetime, DroppedResultsRequestsAndRepeatedExecutesLeaveNoThreadsOrHandles)
{
    const TServerProcess server;
    auto round = [this] {
        // A result dropped with most of its body unread.
        {
            auto request = Request(Url("/bytes?n=2000000&mode=chunked"), L"GET");
            vfc::TComPtr<IVnWebResult> result;
            ASSERT_EQ(S_OK, Execute(request.get(), result));
            vfc::TComPtr<IVnStream> stream;
            result->get_DataStream(stream.put());
            SAFEARRAY* data = nullptr;
            stream->Read(1000, &data);
            SafeArrayDestroy(data);
        }
        // A request dropped before its result.
        {
            vfc::TComPtr<IVnWebResult> result;
            {
                auto request = Request(Url("/bytes?n=300000"), L"GET");
                ASSERT_EQ(S_OK, Execute(request.get(), result));
            }
            EXPECT_EQ(300000u, Body(result.get()).size()) << "the body keeps arriving for a dropped request";
        }
        // A second Execute joins the first run's thread.
        {
            auto request = Request(Url("/bytes?n=100000"), L"GET");
            vfc::TComPtr<IVnWebResult> first, second;
            ASSERT_EQ(S_OK, Execute(request.get(), first));
            ASSERT_EQ(S_OK, Execute(request.get(), second));
            EXPECT_EQ(200, Code(second.get()));
            HRESULT status = E_FAIL;
            Body(second.get(), &status);  // ends, whatever it brings
        }
    };
    for (int i = 0; i < 3; ++i)
        round();
    Sleep(500);
    const int settled = ThreadCount(server.pid());
    const int handles = HandleCount(server.pid());
    ASSERT_GT(handles, 0) << "the system's handle table can't be read";
    for (int i = 0; i < 15; ++i)
        round();
    EXPECT_TRUE(WaitUntil([&] { return ThreadCount(server.pid()) <= settled + 2; }, 10000))
        << "threads after warm-up " << settled << ", after 15 more rounds " << ThreadCount(server.pid());
    // Each round holds three requests with a transceiver, three events and a
    // thread each: a leak would show as dozens of handles.
    EXPECT_TRUE(WaitUntil([&] { return HandleCount(server.pid()) <= handles + 10; }, 10000))
        << "handles after warm-up " << handles << ", after 15 more rounds " << HandleCount(server.pid());
}

TEST_F(Lifetime, DestinationIsReachableOnlyWithAComplete200)
{
    vfc::TBstr good(vfc::Widen(Url("/echo"))), missing(vfc::Widen(Url("/status/404"))),
        refused(vfc::Widen(Url("/", "refused")));
    VARIANT_BOOL reachable = VARIANT_FALSE;
    EXPECT_EQ(S_OK, s_root->CheckDestinationReachable(good.get(), &reachable));
    EXPECT_EQ(VARIANT_TRUE, reachable);
    EXPECT_EQ(S_OK, s_root->CheckDestinationReachable(missing.get(), &reachable));
    EXPECT_EQ(VARIANT_FALSE, reachable);
    EXPECT_EQ(S_OK, s_root->CheckDestinationReachable(refused.get(), &reachable));
    EXPECT_EQ(VARIANT_FALSE, reachable);
}

}  // namespace
}  // namespace vn_test
