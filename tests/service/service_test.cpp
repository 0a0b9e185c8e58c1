// The server as a Windows service: installed by -s, started by the service
// manager, ended only by a stop request that the plug-ins' sinks may veto,
// turned back into a plain local server by -r; and the --kill role, which
// asks a server to end, waits ten seconds and terminates what is left.
#include <gtest/gtest.h>

#include "server/server_fixture.h"
#include "tests/doubles/test_plugin/test_plugin.h"

namespace {

using namespace vn_test;

const char* const kService = "Velorin Linkhost";
const std::string kAppIdKey = "AppID\\{566E4C48-8BA7-4C2E-92E1-8B41F333C18B}";

class Service : public testing::Test {
protected:
    static void SetUpTestSuite() { RegisterTestPlugin(); }
    static void TearDownTestSuite()
    {
        RunServer("/RegServer");
        UnregisterTestPlugin();
    }
    // The service opened with `access`; empty when it is not installed.
    static vfc::TServiceHandle Open(DWORD access)
    {
        vfc::TServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        return vfc::TServiceHandle(manager ? OpenServiceA(manager.get(), kService, access) : nullptr);
    }
    static DWORD State()
    {
        SERVICE_STATUS status = {};
        auto service = Open(SERVICE_QUERY_STATUS);
        return service && QueryServiceStatus(service.get(), &status) ? status.dwCurrentState : 0;
    }
    static bool SendStop()
    {
        SERVICE_STATUS status = {};
        auto service = Open(SERVICE_STOP);
        return service && ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
    }
    // Installs and starts the service, and connects a client to it.
    static vfc::TComPtr<IVnLinkhost> StartAndConnect()
    {
        EXPECT_EQ(0u, RunServer("-s"));
        EXPECT_EQ(0u, RunAndWait(std::string("net.exe start \"") + kService + "\""));
        EXPECT_TRUE(WaitUntil([] { return State() == SERVICE_RUNNING; }, 10000));
        return CreateRoot();
    }
};

TEST_F(Service, KillWithNothingRunningExitsAtOnceWithZero)
{
    ASSERT_EQ(0u, RunServer("/RegServer"));
    ASSERT_EQ(0u, FindProcess("VnLinkhost.exe"));
    const DWORD start = GetTickCount();
    EXPECT_EQ(0u, RunServer("-k"));
    EXPECT_LT(GetTickCount() - start, 8000u);
}

TEST_F(Service, InstallWritesLocalServiceAndTheEmbeddingCommandLineAndRegisterOrUnregisterUndoIt)
{
    ASSERT_EQ(0u, RunServer("-s"));
    EXPECT_EQ(kService, RegText(HKEY_CLASSES_ROOT, kAppIdKey, "LocalService"));
    char buffer[8192];
    auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
    DWORD needed = 0;
    auto service = Open(SERVICE_QUERY_CONFIG);
    ASSERT_TRUE(service && QueryServiceConfigA(service.get(), config, sizeof buffer, &needed));
    EXPECT_EQ(Quoted(ServerExe()) + "  -e", config->lpBinaryPathName);
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), State()) << "installing starts nothing";
    service.reset();

    ASSERT_EQ(0u, RunServer("-r"));
    EXPECT_EQ(0u, State()) << "the service is gone";
    EXPECT_EQ("<missing>", RegText(HKEY_CLASSES_ROOT, kAppIdKey, "LocalService"));
    ASSERT_EQ(0u, RunServer("-s"));
    ASSERT_EQ(0u, RunServer("-u"));
    EXPECT_EQ(0u, State()) << "the service is gone";
}

TEST_F(Service, ServesOutlivesItsClientsAndEndsOnAStopThatTheSinksAgreeTo)
{
    SetSinkAnswer(0);
    auto host = StartAndConnect();
    ASSERT_TRUE(host);
    vfc::TVariant query(L"Version"), version;
    ASSERT_EQ(S_OK, host->GetInfo(*query, version.get()));
    EXPECT_STREQ(L"01.00.00.0001", version->bstrVal);
    VARIANT_BOOL inUse;
    host->CheckShutdown(&inUse);  // no effect on a service
    host.reset();
    TServerProcess server;
    EXPECT_FALSE(server.WaitGone(1500)) << "only a stop request ends a service";
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), State());

    host = CreateRoot();  // a live root object, whose sinks are asked
    ASSERT_TRUE(host);
    EXPECT_EQ(server.pid(), FindProcess("VnLinkhost.exe"));
    ASSERT_TRUE(SendStop());
    EXPECT_TRUE(server.WaitGone(5000));
    EXPECT_TRUE(WaitUntil([] { return State() == SERVICE_STOPPED; }, 5000));
    host.detach();  // its server is gone
}

// Ends with a process terminated from outside, which leaves a stale class
// registration behind: keep it last.
TEST_F(Service, VetoingSinkHoldsAStopAndKillTerminatesTheServerAfterTenSeconds)
{
    SetSinkAnswer(static_cast<DWORD>(Veto));
    auto host = StartAndConnect();
    ASSERT_TRUE(host);
    TServerProcess server;
    ASSERT_TRUE(SendStop());
    EXPECT_FALSE(server.WaitGone(2000)) << "the veto keeps the service";
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOP_PENDING), State());
    EXPECT_FALSE(SendStop()) << "a second stop is refused while one is pending";

    // --kill asks the server to end, but a client still holds it.
    const size_t log = LogSize();
    const DWORD start = GetTickCount();
    EXPECT_EQ(0u, RunServer("--kill", 30000));
    EXPECT_GE(GetTickCount() - start, 10000u);
    EXPECT_EQ(1, CountLogLinesSince(log, "CVnLinkhostObject::CheckShutdown executing")) << LogSince(log);
    EXPECT_TRUE(server.WaitGone(2000));
    vfc::TVariant query(L"Version"), version;
    EXPECT_NE(S_OK, host->GetInfo(*query, version.get())) << "our reference now points at nothing";
    host.detach();  // its proxy is dead; releasing it would only wait for RPC
}

}  // namespace
