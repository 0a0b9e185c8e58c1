// The server as its clients meet it: started on demand in its own process,
// one root object for all clients at a time, lingering after its last
// client, gone at once after CheckShutdown, and never two at a time.
#include <gtest/gtest.h>

#include "server/server_fixture.h"

namespace {

using namespace vn_test;

class Server : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(0u, RunServer("/RegServer")); }
    void TearDown() override { EndServer(); }
};

TEST_F(Server, ClientProcessesShareOneRootObjectAndTheServerLingersAfterThem)
{
    const size_t log = LogSize();
    // Started by this client first: two cold activations at once may each start a process.
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
    ASSERT_NE(0u, server.pid());
    EXPECT_NE(GetCurrentProcessId(), server.pid());
    const std::string client = Quoted(BinDir() + "\\version_client.exe");
    TChild first(client), second(client);
    EXPECT_EQ(0u, first.Wait(30000));
    EXPECT_EQ(0u, second.Wait(30000));
    EXPECT_EQ(1, CountLogLinesSince(log, "VnLinkhost version 01.00.00.0001 starting up"));

    host.reset();
    EXPECT_FALSE(server.WaitGone(1500)) << "the idle time-out is two minutes";
    // A late-bound client finds it by its ProgID and gets a new root object in the same process.
    std::string output;
    EXPECT_EQ(0u, RunCapture("cscript.exe //nologo " + Quoted(BinDir() + "\\version.vbs"), output)) << output;
    EXPECT_NE(std::string::npos, output.find("VnLinkhost version 01.00.00.0001")) << output;
    EXPECT_EQ(server.pid(), FindProcess("VnLinkhost.exe"));
    EXPECT_EQ(2, CountLogLinesSince(log, "starting up"));
}

TEST_F(Server, AnswersAcrossTheProcessBoundaryAndEndsWithItsLastClientAfterCheckShutdown)
{
    const size_t log = LogSize();
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
    ASSERT_NE(0u, server.pid());
    EXPECT_EQ(1, CountLogLinesSince(log, "VnLinkhost version 01.00.00.0001 starting up"));

    vfc::TVariant query(L"Version"), version, other(L"version"), empty;
    ASSERT_EQ(S_OK, host->GetInfo(*query, version.get()));
    ASSERT_EQ(VT_BSTR, version->vt);
    EXPECT_STREQ(L"01.00.00.0001", version->bstrVal);
    ASSERT_EQ(S_OK, host->GetInfo(*other, empty.get()));
    EXPECT_EQ(VT_EMPTY, empty->vt);
    vfc::TBstr key(L"proxy/port"), value;
    ASSERT_EQ(S_OK, host->GetConfigurationValue(key.get(), value.put()));
    EXPECT_EQ(L"8080", value.str());

    vfc::TComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, CoGetClassObject(CLSID_VnLinkhostObject, CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory,
                                     factory.put_void()));
    vfc::TComPtr<IUnknown> inner;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(host.get(), IID_IUnknown, inner.put_void()));
    factory.reset();

    VARIANT_BOOL inUse = VARIANT_FALSE;
    ASSERT_EQ(S_OK, host->CheckShutdown(&inUse));
    EXPECT_EQ(VARIANT_TRUE, inUse);
    EXPECT_FALSE(server.WaitGone(1000)) << "a client still holds it";
    host.reset();
    EXPECT_TRUE(server.WaitGone(5000));
    EXPECT_EQ(0u, server.ExitCode());
}

// The instance mutex of a serving process, held here in its place.
class InstanceMutex : public Server {
protected:
    void SetUp() override
    {
        m_mutex.reset(CreateMutexA(nullptr, TRUE, "Velorin.VnLinkhost.InstanceMutex"));
        ASSERT_TRUE(m_mutex);
        ASSERT_EQ(ERROR_SUCCESS, GetLastError()) << "another server is running";
    }
    vfc::THandle m_mutex;
};

TEST_F(InstanceMutex, SecondServerGivesUpAfterTenSeconds)
{
    const DWORD start = GetTickCount();
    EXPECT_EQ(static_cast<DWORD>(E_FAIL), RunServer("-e", 30000));
    EXPECT_GE(GetTickCount() - start, 9500u);
}

TEST_F(InstanceMutex, SecondServerTakesOverWhenTheFirstGoes)
{
    TChild second(Quoted(ServerExe()) + " -Embedding");
    ASSERT_TRUE(second.started());
    EXPECT_EQ(static_cast<DWORD>(STILL_ACTIVE), second.Wait(1000)) << "it must wait for the mutex";
    ReleaseMutex(m_mutex.get());
    m_mutex.reset();
    Sleep(1000);  // time to register its class object
    // Now it serves: a client reaches that very process.
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    EXPECT_EQ(second.pid(), FindProcess("VnLinkhost.exe"));
    EXPECT_TRUE(ShutDownServer(host));
    EXPECT_EQ(0u, second.Wait(5000));
}

}  // namespace
