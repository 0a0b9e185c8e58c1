// The real program as its users meet it: registered, started on demand, one root object for all clients, with its
// plug-ins, lingering, its settings saved for the next process, never two at a time, as a service, killed. In this
// order: the last test leaves a stale class registration.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "server/server_fixture.h"
#include "tests/settings/settings_support.h"
#include "tests/doubles/rasapi32/standin_registry.h"
#include "tests/doubles/test_plugin/test_plugin.h"
#include "vfc/text.h"

namespace {

using namespace vn_test;

const std::string kClsid = "{566E4C48-7F95-4309-B372-41BF7CD4804C}";
const std::string kAppId = "{566E4C48-8BA7-4C2E-92E1-8B41F333C18B}";
const std::string kLibId = "{566E4C48-039E-43DE-9D14-4E38B2348BD7}";
const std::string kCategory = "Component Categories\\" + kPluginCategoryId;

// Registry values under HKCR that registering writes and unregistering removes (key, value, text); a null text only
// asks for the key.
const std::tuple<std::string, const char*, const char*> kRegistered[] = {
    {"CLSID\\" + kClsid, nullptr, "Velorin Linkhost Object"},
    {"CLSID\\" + kClsid, "AppID", kAppId.c_str()},
    {"CLSID\\" + kClsid + "\\LocalServer32", "ThreadingModel", "Free"},
    {"CLSID\\" + kClsid + "\\ProgID", nullptr, "VnLinkhost.VnLinkhostObject.1"},
    {"CLSID\\" + kClsid + "\\VersionIndependentProgID", nullptr, "VnLinkhost.VnLinkhostObject"},
    {"CLSID\\" + kClsid + "\\TypeLib", nullptr, kLibId.c_str()},
    {"CLSID\\" + kClsid + "\\Programmable", nullptr, nullptr},
    {"AppID\\" + kAppId, nullptr, "Velorin Linkhost Object"},
    {"AppID\\VnLinkhost.exe", "AppID", kAppId.c_str()},
    {"VnLinkhost.VnLinkhostObject\\CLSID", nullptr, kClsid.c_str()},
    {"VnLinkhost.VnLinkhostObject\\CurVer", nullptr, "VnLinkhost.VnLinkhostObject.1"},
    {"TypeLib\\" + kLibId + "\\1.0", nullptr, nullptr},
};

TEST(Registration, RegServerWritesTheServerUnregisterRemovesAllButTheCategoryAndRolesWithoutWorkEndAtOnce)
{
    ASSERT_EQ(0u, RunServer("/RegServer"));
    for (const auto& [key, value, text] : kRegistered)
        EXPECT_EQ(text ? text : "<key>", text ? RegText(HKEY_CLASSES_ROOT, key, value)
                                              : RegKeyExists(HKEY_CLASSES_ROOT, key) ? "<key>" : "<none>") << key;
    const std::string server = RegText(HKEY_CLASSES_ROOT, "CLSID\\" + kClsid + "\\LocalServer32", nullptr);
    EXPECT_NE(std::string::npos, server.find("VnLinkhost.exe")) << server;
    EXPECT_EQ("<missing>", RegText(HKEY_CLASSES_ROOT, "AppID\\" + kAppId, "LocalService"));
    for (const std::string& key : {std::string("Interface\\{566E4C48-F86F-448E-B37D-2C44BF941431}\\ProxyStubClsid32"), kCategory})
        EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, key)) << key;

    ASSERT_EQ(0u, RunServer("-u"));
    for (const auto& registered : kRegistered)
        EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, std::get<0>(registered))) << std::get<0>(registered);
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, "TypeLib\\" + kLibId));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "AppID") && RegKeyExists(HKEY_CLASSES_ROOT, kCategory)) << "the parent key stays";
    HRESULT hr = S_OK;
    EXPECT_FALSE(CreateRoot(&hr) || hr != REGDB_E_CLASSNOTREG) << std::hex << hr;
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), RunServer("-e")) << "serving needs the AppID key";
    EXPECT_EQ(0u, RunServer("-u")) << "unregistering twice is no error";
    EXPECT_EQ(0u, RunServer("-r")) << "the box that reports it fails at once without a display";
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "CLSID\\" + kClsid));
    // Command lines that do no work: refusals and help end with E_FAIL (the usage box fails at once without a display),
    // and a kill with nothing to end ends at once with 0.
    for (const char* arguments : {"", "-h", "-x", "foo -r"})
        EXPECT_EQ(static_cast<DWORD>(E_FAIL), RunServer(arguments)) << "arguments: " << arguments;
    ASSERT_EQ(0u, FindProcess("VnLinkhost.exe"));
    const DWORD start = GetTickCount();
    EXPECT_EQ(0u, RunServer("-k"));
    EXPECT_LT(GetTickCount() - start, 8000u) << "with nothing to end it does not wait";
}

// With the test plug-in (tests/doubles/test_plugin) in the plug-in category, and no server left behind by a test.
class Server : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(0u, RunServer("/RegServer"));
        RegisterTestPlugin();
        vn_standin::WriteDword(kVnTestKey, "SinkAnswer", 0);
    }
    static void TearDownTestSuite()
    {
        UnregisterTestPlugin();
        for (const char* value : {"SinkAnswer", "Events", "Published"})
            RegDeleteKeyValueA(HKEY_CURRENT_USER, kVnTestKey, value);
    }
    void TearDown() override  // ends a server that the test left running
    {
        if (TServerProcess().alive()) {
            auto host = CreateRoot();
            ShutDownServer(host);
        }
    }
};

TEST_F(Server, ServesAllItsClientsWithItsPluginsLingersAndEndsWithItsLastClientAfterCheckShutdown)
{
    RegDeleteKeyValueA(HKEY_CURRENT_USER, kVnTestKey, "Events");
    const size_t log = LogSize();
    // Started by this client first: two cold activations at once may each start a process.
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
    for (const char* line : {"Plugins found: \r\n", "[TestPlugin]  initialised", "  Testerweiterung               \t7.1"})
        EXPECT_NE(std::string::npos, LogSince(log).find(line)) << LogSince(log);
    vfc::TComPtr<IUnknown> extension;
    EXPECT_TRUE(host->GetExtensionInterface(&IID_VnTestExtension, extension.put()) == S_OK && extension);
    vfc::TComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, CoGetClassObject(CLSID_VnLinkhostObject, CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory,
                                     factory.put_void()));
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(host.get(), IID_IUnknown, extension.put_void()));
    factory.reset();

    // Clients of other processes share the root object.
    const std::string client = Quoted(BinDir() + "\\version_client.exe");
    TChild first(client), second(client);
    EXPECT_EQ(std::make_pair(DWORD(0), DWORD(0)), std::make_pair(first.Wait(30000), second.Wait(30000)));
    EXPECT_EQ(1, CountLogLinesSince(log, "VnLinkhost version 01.00.00.0001 starting up"));
    EXPECT_EQ("<missing>", RegText(HKEY_CURRENT_USER, kVnTestKey, "Events"));
    host.reset();
    EXPECT_FALSE(server.WaitGone(1500)) << "the idle time-out is two minutes";
    // The plug-in's sink agreed, and heard plain 2 with a parameter of 1 once, from the last release.
    EXPECT_EQ("2:1;", RegText(HKEY_CURRENT_USER, kVnTestKey, "Events"));

    // A late-bound client finds it by its ProgID and gets a new root object in the same process.
    std::string output;
    EXPECT_EQ(0u, RunCapture("cscript.exe //nologo " + Quoted(BinDir() + "\\version.vbs"), output)) << output;
    EXPECT_NE(std::string::npos, output.find("VnLinkhost version 01.00.00.0001")) << output;
    EXPECT_EQ(server.pid(), FindProcess("VnLinkhost.exe"));
    EXPECT_EQ(2, CountLogLinesSince(log, "starting up"));

    host = CreateRoot();
    ASSERT_TRUE(host);
    VARIANT_BOOL inUse = VARIANT_FALSE;
    ASSERT_EQ(S_OK, host->CheckShutdown(&inUse));
    EXPECT_EQ(VARIANT_TRUE, inUse);
    EXPECT_FALSE(server.WaitGone(1000)) << "a client still holds it";
    host.reset();
    EXPECT_TRUE(server.WaitGone(5000));
    EXPECT_EQ(0u, server.ExitCode());
}

// A plug-in ahead of the test plug-in in the category: when it fails, the ones behind it are not loaded; when it
// publishes the same extension id first, the test plug-in's publication is refused with 0x80070057.
TEST_F(Server, ABrokenPluginStopsTheOnesBehindItAndASecondPublisherOfAnIdIsRefused)
{
    RegisterTestPlugin(kFirstPluginKey);
    for (const char* second : {"fail", "same"}) {
        SCOPED_TRACE(second);
        vn_standin::WriteText(kVnTestKey, "Second", std::string(second));
        vn_standin::WriteText(kVnTestKey, "Published", std::string("none"));
        const size_t log = LogSize();
        auto host = CreateRoot();
        ASSERT_TRUE(host);
        const bool broken = second[0] == 'f';
        EXPECT_EQ(broken ? 0 : 1, CountLogLinesSince(log, "[TestPlugin]  initialised"));
        EXPECT_EQ(broken ? 1 : 0, CountLogLinesSince(log, "pVnLinkhostPlugin->Initialize(pVnLinkhost) failed."));
        EXPECT_EQ(broken ? "none" : "80070057", vn_standin::ReadText(kVnTestKey, "Published"));
        vfc::TComPtr<IUnknown> extension;
        EXPECT_EQ(broken ? E_POINTER : S_OK, host->GetExtensionInterface(&IID_VnTestExtension, extension.put()));
        EXPECT_TRUE(ShutDownServer(host));
    }
    UnregisterTestPlugin(kFirstPluginKey);
    RegDeleteKeyValueA(HKEY_CURRENT_USER, kVnTestKey, "Second");
}

TEST_F(Server, SavedSettingsAreReadByTheNextServerProcessAndUnsavedOnesAreLost)
{
    const vn_config_test::TConfigFilesGuard emptied;
    const std::string primary = vn_config_test::PrimaryFile();
    const std::pair<const wchar_t*, const wchar_t*> saved[] = {
        {L"proxy/useSystemProxy", L"false"}, {L"proxy/mode", L"2"}, {L"proxy/address", L"restart.example"}, {L"proxy/port", L"3129"},
        {L"dialup/mode", L"0"}, {L"dialup/dialConnectionName", L"B\u00FCro"}, {L"proxy/skipHeadAuth", L"true"},
        {L"proxy/exclude", L"a&b\"</Exclude><Script>http://evil.example/p.pac</Script><Exclude>"},  // stays one text
    };
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    auto set = [&host](const wchar_t* key, const wchar_t* text) {
        return host->SetConfigurationValue(vfc::TBstr(key).get(), vfc::TBstr(text).get());
    };
    for (const auto& key : saved)
        ASSERT_EQ(S_OK, set(key.first, key.second)) << vfc::Narrow(key.first);
    EXPECT_EQ("", ReadWholeFile(primary)) << "only a save makes the file";
    ASSERT_EQ(S_OK, host->SaveConfiguration());
    ASSERT_EQ(S_OK, set(L"proxy/script", L"http://unsaved.example/p.pac"));
    const std::string bytes = ReadWholeFile(primary);
    ASSERT_TRUE(ShutDownServer(host));
    EXPECT_EQ(bytes, ReadWholeFile(primary)) << "the server's end saves nothing";

    host = CreateRoot();
    ASSERT_TRUE(host);
    auto get = [&host](const wchar_t* name) {
        vfc::TBstr value;
        EXPECT_EQ(S_OK, host->GetConfigurationValue(vfc::TBstr(name).get(), value.put())) << vfc::Narrow(name);
        return value.str();
    };
    for (const auto& key : saved)
        EXPECT_EQ(key.second, get(key.first)) << vfc::Narrow(key.first);
    EXPECT_EQ(L"", get(L"proxy/script"));
    // The next process's record is the file, line for line, with bare line feeds.
    std::string withoutCr = bytes;
    withoutCr.erase(std::remove(withoutCr.begin(), withoutCr.end(), '\r'), withoutCr.end());
    EXPECT_EQ(vfc::Widen(withoutCr), get(L"_xmlconfig"));
    EXPECT_TRUE(ShutDownServer(host));
}

TEST_F(Server, SecondServerGivesUpAfterTenSecondsOrTakesOverWhenTheFirstGoes)
{
    // The instance mutex of a serving process, held here in its place.
    vfc::THandle mutex(CreateMutexA(nullptr, TRUE, "Velorin.VnLinkhost.InstanceMutex"));
    ASSERT_EQ(ERROR_SUCCESS, GetLastError()) << "another server is running";
    const DWORD start = GetTickCount();
    EXPECT_EQ(static_cast<DWORD>(E_FAIL), RunServer("-e", 30000));
    EXPECT_GE(GetTickCount() - start, 9500u);

    TChild second(Quoted(ServerExe()) + " -Embedding");
    ASSERT_TRUE(second.started());
    EXPECT_EQ(static_cast<DWORD>(STILL_ACTIVE), second.Wait(1000)) << "it must wait for the mutex";
    ReleaseMutex(mutex.get());
    mutex.reset();
    Sleep(1000);  // time to register its class object
    // Now it serves: a client reaches that very process.
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    EXPECT_EQ(second.pid(), FindProcess("VnLinkhost.exe"));
    EXPECT_TRUE(ShutDownServer(host));
    EXPECT_EQ(0u, second.Wait(5000));
}

const char* const kService = "Velorin Linkhost";
const std::string kServiceKey = std::string("System\\CurrentControlSet\\Services\\") + kService;  // the manager's record

// Installed as a service by -s; back to a plain local server at the end.
class Service : public Server {
protected:
    static void TearDownTestSuite()
    {
        RunServer("/RegServer");
        Server::TearDownTestSuite();
    }
    // Sends `control` to the service, if any, and gives the state it is in then; 0 when a call failed.
    static DWORD State(DWORD control = 0)
    {
        vfc::TServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        vfc::TServiceHandle service(manager ? OpenServiceA(manager.get(), kService, SERVICE_ALL_ACCESS) : nullptr);
        SERVICE_STATUS status = {};
        const BOOL ok = control ? ControlService(service.get(), control, &status) : QueryServiceStatus(service.get(), &status);
        return ok ? status.dwCurrentState : 0;
    }
    static vfc::TComPtr<IVnLinkhost> StartAndConnect()
    {
        EXPECT_EQ(0u, RunServer("-s"));
        EXPECT_EQ(0u, RunAndWait(std::string("net.exe start \"") + kService + "\""));
        EXPECT_TRUE(WaitUntil([] { return State() == SERVICE_RUNNING; }, 10000));
        return CreateRoot();
    }
};

TEST_F(Service, InstallsWithTheEmbeddingLineServesOutlivesItsClientsEndsOnAnAgreedStopAndIsUndoneByRegisterOrUnregister)
{
    ASSERT_EQ(0u, RunServer("-s"));
    EXPECT_EQ(kService, RegText(HKEY_CLASSES_ROOT, "AppID\\" + kAppId, "LocalService"));
    EXPECT_EQ(Quoted(ServerExe()) + "  -e", RegText(HKEY_LOCAL_MACHINE, kServiceKey, "ImagePath"));
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), State()) << "installing starts nothing";

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
    ASSERT_NE(0u, State(SERVICE_CONTROL_STOP));
    EXPECT_TRUE(server.WaitGone(5000));
    EXPECT_TRUE(WaitUntil([] { return State() == SERVICE_STOPPED; }, 5000));
    host.detach();  // its server is gone

    ASSERT_EQ(0u, RunServer("-r"));
    EXPECT_EQ(0u, State()) << "the service is gone";
    EXPECT_EQ("<missing>", RegText(HKEY_CLASSES_ROOT, "AppID\\" + kAppId, "LocalService"));
    ASSERT_EQ(0u, RunServer("-s"));
    ASSERT_EQ(0u, RunServer("-u"));
    EXPECT_EQ(0u, State()) << "the service is gone";
}

// Ends with a process terminated from outside, which leaves a stale class registration behind: keep it last.
TEST_F(Service, VetoingSinkHoldsAStopAndKillTerminatesTheServerAfterTenSeconds)
{
    vn_standin::WriteDword(kVnTestKey, "SinkAnswer", static_cast<DWORD>(Veto));
    auto host = StartAndConnect();
    ASSERT_TRUE(host);
    TServerProcess server;
    ASSERT_NE(0u, State(SERVICE_CONTROL_STOP));
    EXPECT_FALSE(server.WaitGone(2000)) << "the veto keeps the service";
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOP_PENDING), State());
    EXPECT_EQ(0u, State(SERVICE_CONTROL_STOP)) << "a second stop is refused while one is pending";

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
