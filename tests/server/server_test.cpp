// The real program as its users meet it: registered and unregistered, started
// on demand with one root object for all clients, its plug-ins loaded,
// lingering after its last client, its saved settings read by the next
// process, never two of it at a time, as a service, and ended by --kill.
// One program, in this order: the last test leaves a stale registration.
#include <gtest/gtest.h>

#include <shlobj.h>

#include <algorithm>
#include <fstream>
#include <utility>

#include "server/server_fixture.h"
#include "tests/doubles/test_plugin/test_plugin.h"
#include "vfc/text.h"

namespace {

using namespace vn_test;

const std::string kClsid = "{566E4C48-7F95-4309-B372-41BF7CD4804C}";
const std::string kAppId = "{566E4C48-8BA7-4C2E-92E1-8B41F333C18B}";
const std::string kLibId = "{566E4C48-039E-43DE-9D14-4E38B2348BD7}";
const std::string kCatId = "{566E4C48-60C4-4777-A4B1-D178F6C1AE38}", kCategory = "Component Categories\\" + kCatId;

// Registry values under HKCR that registering writes and unregistering
// removes; a null text only asks for the key.
struct TRegistered {
    std::string key;
    const char* value;
    const char* text;
} const kRegistered[] = {
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
    {"VnLinkhost.VnLinkhostObject.1\\CLSID", nullptr, kClsid.c_str()},
    {"TypeLib\\" + kLibId + "\\1.0", nullptr, nullptr},
};

TEST(Registration, RegServerWritesTheServerAndUnregisterRemovesAllButTheCategory)
{
    ASSERT_EQ(0u, RunServer("/RegServer"));
    for (const auto& r : kRegistered)
        EXPECT_EQ(r.text ? r.text : "<key>", r.text ? RegText(HKEY_CLASSES_ROOT, r.key, r.value)
                                                    : RegKeyExists(HKEY_CLASSES_ROOT, r.key) ? "<key>" : "<none>") << r.key;
    const std::string server = RegText(HKEY_CLASSES_ROOT, "CLSID\\" + kClsid + "\\LocalServer32", nullptr);
    EXPECT_NE(std::string::npos, server.find("VnLinkhost.exe")) << server;
    EXPECT_EQ("<missing>", RegText(HKEY_CLASSES_ROOT, "AppID\\" + kAppId, "LocalService"));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "Interface\\{566E4C48-F86F-448E-B37D-2C44BF941431}\\ProxyStubClsid32"));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, kCategory));

    ASSERT_EQ(0u, RunServer("-u"));
    for (const auto& r : kRegistered)
        EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, r.key)) << r.key;
    EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, "TypeLib\\" + kLibId));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "AppID")) << "the parent key is never removed";
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, kCategory));
    HRESULT hr = S_OK;
    EXPECT_FALSE(CreateRoot(&hr));
    EXPECT_EQ(REGDB_E_CLASSNOTREG, hr);
    EXPECT_EQ(0u, RunServer("-u")) << "unregistering twice is no error";
    EXPECT_EQ(0u, RunServer("-r")) << "the box that reports it fails at once without a display";
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "CLSID\\" + kClsid));
}

TEST(Registration, CommandLinesThatDoNoWorkEndWithEFail)
{
    // No display: the usage box fails at once instead of waiting for a click.
    for (const char* arguments : {"", "-h", "--help", "-x", "--reg", "foo -r", "-- -r", "--help=x", "-h -r"})
        EXPECT_EQ(static_cast<DWORD>(E_FAIL), RunServer(arguments)) << "arguments: " << arguments;
}

const std::string kPluginKey = "CLSID\\{9A1C0E55-2B7D-4C1E-9F3A-5D6E7F801234}";  // CLSID_VnTestPlugin

void SetSinkAnswer(DWORD answer)
{
    RegSetKeyValueA(HKEY_CURRENT_USER, kVnTestKey, "SinkAnswer", REG_DWORD, &answer, sizeof answer);
}

// With the test plug-in (tests/doubles/test_plugin) in the plug-in category,
// and no server left behind by a test.
class Server : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(0u, RunServer("/RegServer"));
        const std::string dll = BinDir() + "\\vn_test_plugin.dll", server = kPluginKey + "\\InprocServer32",
                          category = kPluginKey + "\\Implemented Categories\\" + kCatId;
        RegSetKeyValueA(HKEY_CLASSES_ROOT, server.c_str(), nullptr, REG_SZ, dll.c_str(), DWORD(dll.size() + 1));
        RegSetKeyValueA(HKEY_CLASSES_ROOT, server.c_str(), "ThreadingModel", REG_SZ, "Both", 5);
        RegSetKeyValueA(HKEY_CLASSES_ROOT, category.c_str(), nullptr, REG_SZ, "", 1);
        SetSinkAnswer(0);
    }
    static void TearDownTestSuite()
    {
        RegDeleteTreeA(HKEY_CLASSES_ROOT, kPluginKey.c_str());
        for (const char* value : {"SinkAnswer", "Events"})
            RegDeleteKeyValueA(HKEY_CURRENT_USER, kVnTestKey, value);
    }
    void TearDown() override { EndServer(); }
};

TEST_F(Server, KillWithNothingRunningExitsAtOnceWithZero)
{
    ASSERT_EQ(0u, FindProcess("VnLinkhost.exe"));
    const DWORD start = GetTickCount();
    EXPECT_EQ(0u, RunServer("-k"));
    EXPECT_LT(GetTickCount() - start, 8000u);
}

TEST_F(Server, ClientProcessesShareOneRootObjectAndTheServerLingersAfterThem)
{
    const size_t log = LogSize();
    // Started by this client first: two cold activations at once may each start a process.
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
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

TEST_F(Server, LoadsItsPluginsRefusesAggregationAndEndsWithItsLastClientAfterCheckShutdown)
{
    RegDeleteKeyValueA(HKEY_CURRENT_USER, kVnTestKey, "Events");
    const size_t log = LogSize();
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
    const std::string lines = LogSince(log);
    EXPECT_NE(std::string::npos, lines.find("Plugins found: \r\n")) << lines;
    EXPECT_NE(std::string::npos, lines.find("[TestPlugin]  initialised")) << lines;
    EXPECT_NE(std::string::npos, lines.find("  Testerweiterung               \t7.1")) << lines;
    vfc::TComPtr<IUnknown> extension;
    EXPECT_EQ(S_OK, host->GetExtensionInterface(&IID_VnTestExtension, extension.put()));
    EXPECT_TRUE(extension);
    extension.reset();

    vfc::TComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, CoGetClassObject(CLSID_VnLinkhostObject, CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory,
                                     factory.put_void()));
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(host.get(), IID_IUnknown, extension.put_void()));
    factory.reset();

    VARIANT_BOOL inUse = VARIANT_FALSE;
    ASSERT_EQ(S_OK, host->CheckShutdown(&inUse));
    EXPECT_EQ(VARIANT_TRUE, inUse);
    EXPECT_FALSE(server.WaitGone(1000)) << "a client still holds it";
    EXPECT_EQ("<missing>", RegText(HKEY_CURRENT_USER, kVnTestKey, "Events"));
    host.reset();
    EXPECT_TRUE(server.WaitGone(5000));
    EXPECT_EQ(0u, server.ExitCode());
    // The plug-in's sink agreed, and heard plain 2 with a parameter of 1, once, from the last release.
    EXPECT_EQ("2:1;", RegText(HKEY_CURRENT_USER, kVnTestKey, "Events"));
}

std::string ConfigFile(int folder)
{
    char base[MAX_PATH] = {};
    SHGetFolderPathA(nullptr, folder, nullptr, 0, base);
    return std::string(base) + "\\Velorin\\VnLinkhost\\Konfiguration\\VnLinkhost.xml";
}

// Both places of the configuration file, emptied for a test and put back
// once its servers are gone.
struct TConfigFiles {
    TConfigFiles()
    {
        for (auto& file : files) {
            file.second = ReadWholeFile(file.first);
            DeleteFileA(file.first.c_str());
        }
    }
    ~TConfigFiles()
    {
        EndServer();
        for (auto& file : files) {
            DeleteFileA(file.first.c_str());
            if (!file.second.empty())
                std::ofstream(file.first, std::ios::binary) << file.second;
        }
    }
    std::pair<std::string, std::string> files[2] = {{ConfigFile(CSIDL_LOCAL_APPDATA), ""}, {ConfigFile(CSIDL_APPDATA), ""}};
};

TEST_F(Server, SavedSettingsAreReadByTheNextServerProcessAndUnsavedOnesAreLost)
{
    const TConfigFiles emptied;
    const std::string& primary = emptied.files[0].first;
    const std::pair<const wchar_t*, const wchar_t*> saved[] = {
        {L"proxy/useSystemProxy", L"false"}, {L"proxy/mode", L"2"},
        {L"proxy/address", L"restart.example"}, {L"proxy/port", L"3129"},
        {L"dialup/mode", L"0"}, {L"dialup/dialConnectionName", L"B\u00FCro"},
        {L"proxy/skipHeadAuth", L"true"},
    };
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess first;
    auto set = [&host](const wchar_t* name, const wchar_t* text) {
        vfc::TBstr key(name), value(text);
        return host->SetConfigurationValue(key.get(), value.get());
    };
    for (const auto& key : saved)
        ASSERT_EQ(S_OK, set(key.first, key.second)) << vfc::Narrow(key.first);
    EXPECT_EQ("", ReadWholeFile(primary)) << "only a save makes the file";
    ASSERT_EQ(S_OK, host->SaveConfiguration());
    ASSERT_EQ(S_OK, set(L"proxy/exclude", L"unsaved.example"));
    const std::string bytes = ReadWholeFile(primary);
    EXPECT_NE(std::string::npos, bytes.find("\t\t<Address>restart.example</Address>\r\n")) << bytes;
    ASSERT_TRUE(ShutDownServer(host));
    EXPECT_EQ(bytes, ReadWholeFile(primary)) << "the server's end saves nothing";

    host = CreateRoot();
    ASSERT_TRUE(host);
    EXPECT_FALSE(first.alive());
    auto get = [&host](const wchar_t* name) {
        vfc::TBstr key(name), value;
        EXPECT_EQ(S_OK, host->GetConfigurationValue(key.get(), value.put())) << vfc::Narrow(name);
        return value.str();
    };
    for (const auto& key : saved)
        EXPECT_EQ(key.second, get(key.first)) << vfc::Narrow(key.first);
    EXPECT_EQ(L"localhost", get(L"proxy/exclude"));
    EXPECT_EQ(L"true", get(L"dialup/useSystemConnection"));
    // The next process's record is the file, line for line, with bare line feeds.
    std::string withoutCr = bytes;
    withoutCr.erase(std::remove(withoutCr.begin(), withoutCr.end(), '\r'), withoutCr.end());
    EXPECT_EQ(vfc::Widen(withoutCr), get(L"_xmlconfig"));
    EXPECT_TRUE(ShutDownServer(host));
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

TEST_F(InstanceMutex, SecondServerGivesUpAfterTenSecondsOrTakesOverWhenTheFirstGoes)
{
    const DWORD start = GetTickCount();
    EXPECT_EQ(static_cast<DWORD>(E_FAIL), RunServer("-e", 30000));
    EXPECT_GE(GetTickCount() - start, 9500u);

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

const char* const kService = "Velorin Linkhost";

// Installed as a service by -s; back to a plain local server at the end.
class Service : public Server {
protected:
    static void TearDownTestSuite()
    {
        RunServer("/RegServer");
        Server::TearDownTestSuite();
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

TEST_F(Service, InstallWritesLocalServiceAndTheEmbeddingCommandLineAndRegisterOrUnregisterUndoIt)
{
    ASSERT_EQ(0u, RunServer("-s"));
    EXPECT_EQ(kService, RegText(HKEY_CLASSES_ROOT, "AppID\\" + kAppId, "LocalService"));
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
    EXPECT_EQ("<missing>", RegText(HKEY_CLASSES_ROOT, "AppID\\" + kAppId, "LocalService"));
    ASSERT_EQ(0u, RunServer("-s"));
    ASSERT_EQ(0u, RunServer("-u"));
    EXPECT_EQ(0u, State()) << "the service is gone";
}

TEST_F(Service, ServesOutlivesItsClientsAndEndsOnAStopThatTheSinksAgreeTo)
{
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
