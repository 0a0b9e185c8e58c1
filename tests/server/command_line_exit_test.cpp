// The exit status of the real program for command lines that do no work,
// and the instance mutex that keeps a second server from serving.
#include <gtest/gtest.h>

#include "server/server_fixture.h"

namespace {

using namespace vn_test;

TEST(ProgramExit, RefusedCommandLinesEndWithEFail)
{
    // No display: the usage box fails at once instead of waiting for a click.
    for (const char* arguments : {"", "-h", "--help", "-x", "--reg", "foo -r", "-- -r", "--help=x", "-h -r"})
        EXPECT_EQ(static_cast<DWORD>(E_FAIL), RunServer(arguments)) << "arguments: " << arguments;
}

class InstanceMutex : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0u, RunServer("/RegServer"));
        m_mutex.reset(CreateMutexA(nullptr, TRUE, "Velorin.VnLinkhost.InstanceMutex"));
        ASSERT_TRUE(m_mutex);
        ASSERT_EQ(ERROR_SUCCESS, GetLastError()) << "another server is running";
    }
    void ReleaseInstance()
    {
        ReleaseMutex(m_mutex.get());
        m_mutex.reset();
    }
    vfc::THandle m_mutex;
};

TEST_F(InstanceMutex, SecondServerGivesUpAfterTenSeconds)
{
    const DWORD start = GetTickCount();
    EXPECT_EQ(static_cast<DWORD>(E_FAIL), RunServer("-e", 30000));
    const DWORD elapsed = GetTickCount() - start;
    EXPECT_GE(elapsed, 9500u);
    EXPECT_LT(elapsed, 20000u);
}

TEST_F(InstanceMutex, SecondServerTakesOverWhenTheFirstGoes)
{
    TChild second(Quoted(ServerExe()) + " -Embedding");
    ASSERT_TRUE(second.started());
    Sleep(1500);
    EXPECT_EQ(static_cast<DWORD>(STILL_ACTIVE), second.Wait(0)) << "it must wait for the mutex";
    ReleaseInstance();
    // Now it serves: a client reaches that very process.
    ASSERT_TRUE(WaitUntil([] { return FindProcess("VnLinkhost.exe") != 0; }, 5000));
    Sleep(1000);
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    EXPECT_EQ(second.pid(), FindProcess("VnLinkhost.exe"));
    EXPECT_TRUE(ShutDownServer(host));
    EXPECT_EQ(0u, second.Wait(5000));
}

}  // namespace
