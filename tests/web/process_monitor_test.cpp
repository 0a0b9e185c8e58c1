// VnProcessMonitor: a wait ends on the event or on the death of the client,
// and each monitor owns the handle it opened.
#include <gtest/gtest.h>

#include <windows.h>

#include "tests/web/stream_test_util.h"
#include "web/process_monitor.h"

namespace {

using vn_web_test::TClientProcess;

vfc::THandle NewEvent() { return vfc::THandle(::CreateEventW(nullptr, FALSE, FALSE, nullptr)); }

bool IsOpenHandle(HANDLE h)
{
    DWORD flags = 0;
    return ::GetHandleInformation(h, &flags) != FALSE;
}

}  // namespace

// Not a test: the body of the client process that the death tests start and
// then kill. It runs only when a test asks for it by name.
TEST(ClientProcess, DISABLED_SleepsUntilKilled) { ::Sleep(120000); }

TEST(ProcessMonitorWait, EndsWithTheEventWhileTheClientLives)
{
    TClientProcess client;
    ASSERT_TRUE(client.started()) << "error " << client.error();
    VnProcessMonitor monitor(client.pid());
    vfc::THandle event = NewEvent();
    ::SetEvent(event.get());
    EXPECT_EQ(WAIT_OBJECT_0, monitor.Wait(event.get(), 10000));
}

TEST(ProcessMonitorWait, EndsWithTheClientsDeath)
{
    TClientProcess client;
    ASSERT_TRUE(client.started()) << "error " << client.error();
    VnProcessMonitor monitor(client.pid());
    ASSERT_NE(nullptr, monitor.GetProcess());
    client.Kill();
    vfc::THandle event = NewEvent();
    EXPECT_EQ(WAIT_OBJECT_0 + 1, monitor.Wait(event.get(), 10000));
}

TEST(ProcessMonitorWait, WatchesNothingForIdZeroAndRunsOutOfTime)
{
    VnProcessMonitor monitor;
    EXPECT_EQ(nullptr, monitor.GetProcess());
    vfc::THandle event = NewEvent();
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), monitor.Wait(event.get(), 0));
}

TEST(ProcessMonitorWait, WaitsOnTheEventAloneWhenTheProcessCannotBeOpened)
{
    // Process ids are multiples of four; this one names no process.
    VnProcessMonitor monitor(0xFFFFFFF0u);
    EXPECT_EQ(nullptr, monitor.GetProcess());
    vfc::THandle event = NewEvent();
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), monitor.Wait(event.get(), 0));
    ::SetEvent(event.get());
    EXPECT_EQ(WAIT_OBJECT_0, monitor.Wait(event.get(), 0));
}

TEST(ProcessMonitorHandle, IsOpenedOnFirstNeedAndKeptAfterwards)
{
    VnProcessMonitor monitor(::GetCurrentProcessId());
    const HANDLE first = monitor.GetProcess();
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, monitor.GetProcess());
}

TEST(ProcessMonitorHandle, CopyTakesTheIdAndOpensItsOwnHandle)
{
    VnProcessMonitor original(::GetCurrentProcessId());
    const HANDLE mine = original.GetProcess();
    ASSERT_NE(nullptr, mine);

    VnProcessMonitor copy(original);
    EXPECT_EQ(original.GetProcessId(), copy.GetProcessId());
    const HANDLE theirs = copy.GetProcess();
    ASSERT_NE(nullptr, theirs);
    EXPECT_NE(mine, theirs);

    VnProcessMonitor assigned;
    assigned = original;
    EXPECT_EQ(original.GetProcessId(), assigned.GetProcessId());
    EXPECT_NE(mine, assigned.GetProcess());
}

TEST(ProcessMonitorHandle, SameIdKeepsTheHandleAndAnotherIdClosesIt)
{
    TClientProcess client;
    ASSERT_TRUE(client.started()) << "error " << client.error();
    VnProcessMonitor monitor(::GetCurrentProcessId());
    const HANDLE own = monitor.GetProcess();
    ASSERT_NE(nullptr, own);

    monitor = ::GetCurrentProcessId();
    EXPECT_TRUE(IsOpenHandle(own));
    EXPECT_EQ(own, monitor.GetProcess());

    monitor = client.pid();
    EXPECT_FALSE(IsOpenHandle(own));
    EXPECT_EQ(client.pid(), monitor.GetProcessId());
    EXPECT_NE(nullptr, monitor.GetProcess());
}

TEST(ProcessMonitorHandle, DestructorClosesTheHandle)
{
    HANDLE opened = nullptr;
    {
        VnProcessMonitor monitor(::GetCurrentProcessId());
        opened = monitor.GetProcess();
        ASSERT_NE(nullptr, opened);
        ASSERT_TRUE(IsOpenHandle(opened));
    }
    EXPECT_FALSE(IsOpenHandle(opened));
}
