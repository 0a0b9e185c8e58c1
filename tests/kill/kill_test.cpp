// The --kill role: asks a running server to end, waits ten seconds, and
// terminates what is still there.
#include <gtest/gtest.h>

#include "server/server_fixture.h"

namespace {

using namespace vn_test;

class Kill : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(0u, RunServer("/RegServer")); }
};

TEST_F(Kill, WithNothingRunningExitsAtOnceWithZero)
{
    ASSERT_EQ(0u, FindProcess("VnLinkhost.exe"));
    const DWORD start = GetTickCount();
    EXPECT_EQ(0u, RunServer("-k"));
    EXPECT_LT(GetTickCount() - start, 8000u);
}

TEST_F(Kill, IdleServerEndsByItselfAndKillStillWaitsTenSeconds)
{
    ASSERT_EQ(0u, RunAndWait(Quoted(BinDir() + "\\version_client.exe")));
    TServerProcess server;
    ASSERT_TRUE(server.alive());
    const DWORD start = GetTickCount();
    EXPECT_EQ(0u, RunServer("--kill", 30000));
    EXPECT_GE(GetTickCount() - start, 10000u);
    EXPECT_TRUE(server.WaitGone(0));
    EXPECT_EQ(0u, server.ExitCode()) << "it ended by itself after the shutdown request";
}

// Leaves a stale class registration behind: keep it last.
TEST_F(Kill, ServerHeldByAClientIsTerminatedAfterTenSeconds)
{
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
    ASSERT_TRUE(server.alive());
    const DWORD start = GetTickCount();
    EXPECT_EQ(0u, RunServer("-k", 30000));
    EXPECT_GE(GetTickCount() - start, 10000u);
    EXPECT_TRUE(server.WaitGone(2000));
    // Our reference now points at nothing.
    vfc::TVariant query(L"Version"), version;
    EXPECT_NE(S_OK, host->GetInfo(*query, version.get()));
    host.detach();  // its proxy is dead; releasing it would only wait for RPC
}

}  // namespace
