// The server as a Windows service: installed by -s, started by the service
// manager, ended only by a stop request that the plug-ins' sinks may veto,
// and turned back into a plain local server by -r.
#include <gtest/gtest.h>

#include "server/server_fixture.h"
#include "tests/doubles/test_plugin/test_plugin.h"

namespace {

using namespace vn_test;

const char* const kService = "Velorin Linkhost";
const std::string kAppIdKey = "AppID\\{566E4C48-8BA7-4C2E-92E1-8B41F333C18B}";

struct ServiceState {
    DWORD state = 0;
    DWORD pid = 0;
};

ServiceState QueryService()
{
    ServiceState result;
    vfc::TServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    vfc::TServiceHandle service(manager ? OpenServiceA(manager.get(), kService, SERVICE_QUERY_STATUS) : nullptr);
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    if (service && QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                                        sizeof status, &needed)) {
        result.state = status.dwCurrentState;
        result.pid = status.dwProcessId;
    }
    return result;
}

bool ServiceExists() { return QueryService().state != 0; }

std::string ServiceCommandLine()
{
    vfc::TServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    vfc::TServiceHandle service(manager ? OpenServiceA(manager.get(), kService, SERVICE_QUERY_CONFIG) : nullptr);
    if (!service)
        return "<no service>";
    char buffer[8192];
    auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
    DWORD needed = 0;
    if (!QueryServiceConfigA(service.get(), config, sizeof buffer, &needed))
        return "<no config>";
    return config->lpBinaryPathName;
}

bool SendStop()
{
    vfc::TServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    vfc::TServiceHandle service(manager ? OpenServiceA(manager.get(), kService, SERVICE_STOP) : nullptr);
    SERVICE_STATUS status = {};
    return service && ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
}




class Service : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        RegisterTestPlugin();
        SetSinkAnswer(0);
    }
    static void TearDownTestSuite()
    {
        RunServer("/RegServer");
        UnregisterTestPlugin();
    }
    static DWORD NetStart() { return RunAndWait(std::string("net.exe start \"") + kService + "\"", 60000); }
};

TEST_F(Service, InstallWritesLocalServiceAndTheEmbeddingCommandLine)
{
    ASSERT_EQ(0u, RunServer("-s"));
    EXPECT_EQ(kService, RegText(HKEY_CLASSES_ROOT, kAppIdKey, "LocalService"));
    EXPECT_EQ(Quoted(ServerExe()) + "  -e", ServiceCommandLine());
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), QueryService().state) << "installing starts nothing";
}

TEST_F(Service, StartsThroughTheServiceManagerServesAndOutlivesItsClients)
{
    ASSERT_EQ(0u, RunServer("-s"));
    ASSERT_EQ(0u, NetStart());
    ASSERT_TRUE(WaitUntil([] { return QueryService().state == SERVICE_RUNNING; }, 10000));
    const DWORD pid = QueryService().pid;
    {
        auto host = CreateRoot();
        ASSERT_TRUE(host);
        vfc::TVariant query(L"Version"), version;
        ASSERT_EQ(S_OK, host->GetInfo(*query, version.get()));
        EXPECT_STREQ(L"01.00.00.0001", version->bstrVal);
        EXPECT_EQ(pid, FindProcess("VnLinkhost.exe"));
        VARIANT_BOOL inUse;
        host->CheckShutdown(&inUse);  // no effect on a service
    }
    Sleep(2000);
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), QueryService().state) << "only a stop request ends a service";
    TServerProcess server;
    ASSERT_TRUE(SendStop());
    EXPECT_TRUE(server.WaitGone(10000));
    EXPECT_TRUE(WaitUntil([] { return QueryService().state == SERVICE_STOPPED; }, 5000));
}

TEST_F(Service, RegisterAfterServiceTurnsItBackIntoALocalServer)
{
    ASSERT_EQ(0u, RunServer("-s"));
    ASSERT_TRUE(ServiceExists());
    ASSERT_EQ(0u, RunServer("-r"));
    EXPECT_FALSE(ServiceExists());
    EXPECT_EQ("<missing>", RegText(HKEY_CLASSES_ROOT, kAppIdKey, "LocalService"));
}

TEST_F(Service, UnregisterRemovesWhatRegisterWroteButTheCategory)
{
    ASSERT_EQ(0u, RunServer("-s"));
    ASSERT_EQ(0u, RunServer("-u"));
    EXPECT_FALSE(ServiceExists());
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, "CLSID\\{566E4C48-7F95-4309-B372-41BF7CD4804C}"));
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, kAppIdKey));
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, "AppID\\VnLinkhost.exe"));
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, "VnLinkhost.VnLinkhostObject"));
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, "VnLinkhost.VnLinkhostObject.1"));
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, "TypeLib\\{566E4C48-039E-43DE-9D14-4E38B2348BD7}"));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "AppID")) << "the parent key is never removed";
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "Component Categories\\{566E4C48-60C4-4777-A4B1-D178F6C1AE38}"));
    HRESULT hr = S_OK;
    EXPECT_FALSE(CreateRoot(&hr));
    EXPECT_EQ(REGDB_E_CLASSNOTREG, hr);
    EXPECT_EQ(0u, RunServer("-u")) << "unregistering twice is no error";
}

TEST_F(Service, AgreeingSinkLetsAStopEndTheServiceWhileAClientLives)
{
    ASSERT_EQ(0u, RunServer("-s"));
    SetSinkAnswer(0);
    ASSERT_EQ(0u, NetStart());
    ASSERT_TRUE(WaitUntil([] { return QueryService().state == SERVICE_RUNNING; }, 10000));
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
    ASSERT_TRUE(SendStop());
    EXPECT_TRUE(server.WaitGone(5000));
    EXPECT_TRUE(WaitUntil([] { return QueryService().state == SERVICE_STOPPED; }, 5000));
    host.detach();  // its server is gone
}

// Ends with a process killed from outside: keep it last.
TEST_F(Service, VetoingSinkHoldsAStopWhileAClientLives)
{
    ASSERT_EQ(0u, RunServer("-s"));
    SetSinkAnswer(static_cast<DWORD>(Veto));
    ASSERT_EQ(0u, NetStart());
    ASSERT_TRUE(WaitUntil([] { return QueryService().state == SERVICE_RUNNING; }, 10000));
    auto host = CreateRoot();  // a live root object, whose sinks will be asked
    ASSERT_TRUE(host);
    TServerProcess server;
    ASSERT_TRUE(SendStop());
    EXPECT_FALSE(server.WaitGone(3000)) << "the veto keeps the service";
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOP_PENDING), QueryService().state);

    // A second stop is refused while one is pending: end it from outside.
    EXPECT_FALSE(SendStop());
    server.Terminate();
    server.WaitGone(5000);
    host.detach();
}

}  // namespace
