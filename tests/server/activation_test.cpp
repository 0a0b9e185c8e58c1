// The server as its clients meet it: registered in the prefix, started on
// demand in its own process, shared, and gone when it should be.
#include <gtest/gtest.h>

#include <thread>

#include "server/server_fixture.h"
#include "vfc/bstr.h"

namespace {

using namespace vn_test;

const std::string kClsidKey = "CLSID\\{566E4C48-7F95-4309-B372-41BF7CD4804C}";
const std::string kAppIdKey = "AppID\\{566E4C48-8BA7-4C2E-92E1-8B41F333C18B}";

class Server : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(0u, RunServer("/RegServer")); }
    void TearDown() override
    {
        // Nothing of one test may live into the next.
        TServerProcess server;
        if (server.alive()) {
            auto host = CreateRoot();
            ShutDownServer(host);
        }
    }
    std::string Client(const std::string& arguments = "") const
    {
        return Quoted(BinDir() + "\\version_client.exe") + " " + arguments;
    }
};

TEST_F(Server, RegServerWritesClassAppIdProgIdAndTypeLibrary)
{
    std::string server = RegText(HKEY_CLASSES_ROOT, kClsidKey + "\\LocalServer32", nullptr);
    EXPECT_NE(std::string::npos, server.find("VnLinkhost.exe")) << server;
    EXPECT_EQ("Free", RegText(HKEY_CLASSES_ROOT, kClsidKey + "\\LocalServer32", "ThreadingModel"));
    EXPECT_EQ("{566E4C48-8BA7-4C2E-92E1-8B41F333C18B}", RegText(HKEY_CLASSES_ROOT, kClsidKey, "AppID"));
    EXPECT_EQ("Velorin Linkhost Object", RegText(HKEY_CLASSES_ROOT, kClsidKey, nullptr));
    EXPECT_EQ("VnLinkhost.VnLinkhostObject.1", RegText(HKEY_CLASSES_ROOT, kClsidKey + "\\ProgID", nullptr));
    EXPECT_EQ("VnLinkhost.VnLinkhostObject", RegText(HKEY_CLASSES_ROOT, kClsidKey + "\\VersionIndependentProgID", nullptr));
    EXPECT_EQ("{566E4C48-039E-43DE-9D14-4E38B2348BD7}", RegText(HKEY_CLASSES_ROOT, kClsidKey + "\\TypeLib", nullptr));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, kClsidKey + "\\Programmable"));
    EXPECT_EQ("Velorin Linkhost Object", RegText(HKEY_CLASSES_ROOT, kAppIdKey, nullptr));
    EXPECT_EQ("<missing>", RegText(HKEY_CLASSES_ROOT, kAppIdKey, "LocalService"));
    EXPECT_EQ("{566E4C48-8BA7-4C2E-92E1-8B41F333C18B}", RegText(HKEY_CLASSES_ROOT, "AppID\\VnLinkhost.exe", "AppID"));
    EXPECT_EQ("{566E4C48-7F95-4309-B372-41BF7CD4804C}",
              RegText(HKEY_CLASSES_ROOT, "VnLinkhost.VnLinkhostObject\\CLSID", nullptr));
    EXPECT_EQ("VnLinkhost.VnLinkhostObject.1", RegText(HKEY_CLASSES_ROOT, "VnLinkhost.VnLinkhostObject\\CurVer", nullptr));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "TypeLib\\{566E4C48-039E-43DE-9D14-4E38B2348BD7}\\1.0"));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "Interface\\{566E4C48-F86F-448E-B37D-2C44BF941431}\\ProxyStubClsid32"));
    EXPECT_TRUE(RegKeyExists(HKEY_CLASSES_ROOT, "Component Categories\\{566E4C48-60C4-4777-A4B1-D178F6C1AE38}"));
}

TEST_F(Server, StartsOnDemandAndAnswersAcrossTheProcessBoundary)
{
    const size_t log = LogSize();
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
    ASSERT_NE(0u, server.pid());
    EXPECT_NE(GetCurrentProcessId(), server.pid());

    vfc::TVariant query(L"Version"), version;
    ASSERT_EQ(S_OK, host->GetInfo(*query, version.get()));
    ASSERT_EQ(VT_BSTR, version->vt);
    EXPECT_STREQ(L"01.00.00.0001", version->bstrVal);
    vfc::TVariant other(L"version"), empty;
    ASSERT_EQ(S_OK, host->GetInfo(*other, empty.get()));
    EXPECT_EQ(VT_EMPTY, empty->vt);

    vfc::TBstr key(L"proxy/port"), value;
    ASSERT_EQ(S_OK, host->GetConfigurationValue(key.get(), value.put()));
    EXPECT_EQ(L"8080", value.str());
    EXPECT_EQ(1, CountLogLinesSince(log, "VnLinkhost version 01.00.00.0001 starting up"));

    EXPECT_TRUE(ShutDownServer(host));
    EXPECT_EQ(0u, server.ExitCode());
}

TEST_F(Server, AggregationIsRefused)
{
    vfc::TComPtr<IUnknown> outer;
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    // The class object itself refuses an outer unknown.
    vfc::TComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, CoGetClassObject(CLSID_VnLinkhostObject, CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory,
                                     factory.put_void()));
    vfc::TComPtr<IUnknown> inner;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(host.get(), IID_IUnknown, inner.put_void()));
    factory.reset();
    EXPECT_TRUE(ShutDownServer(host));
}

TEST_F(Server, TwoClientProcessesShareOneRootObject)
{
    const size_t log = LogSize();
    TChild first(Client("--hold 3000"));
    TChild second(Client("--hold 3000"));
    ASSERT_TRUE(first.started() && second.started());
    EXPECT_EQ(0u, first.Wait(30000));
    EXPECT_EQ(0u, second.Wait(30000));
    EXPECT_EQ(1, CountLogLinesSince(log, "starting up"));
    TServerProcess server;
    EXPECT_TRUE(server.alive());
}

TEST_F(Server, LingersAfterTheLastClientAndServesANewOneInTheSameProcess)
{
    ASSERT_EQ(0u, RunAndWait(Client()));
    TServerProcess server;
    ASSERT_NE(0u, server.pid());
    EXPECT_FALSE(server.WaitGone(3000)) << "the idle time-out is two minutes";

    const size_t log = LogSize();
    ASSERT_EQ(0u, RunAndWait(Client()));
    EXPECT_TRUE(server.alive());
    EXPECT_EQ(server.pid(), FindProcess("VnLinkhost.exe"));
    // The root object went with its client; the newcomer got a new one in the same process.
    EXPECT_EQ(1, CountLogLinesSince(log, "starting up"));
}

TEST_F(Server, EndsAsSoonAsTheLastClientGoesAfterCheckShutdown)
{
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
    VARIANT_BOOL inUse = VARIANT_FALSE;
    ASSERT_EQ(S_OK, host->CheckShutdown(&inUse));
    EXPECT_EQ(VARIANT_TRUE, inUse);
    EXPECT_FALSE(server.WaitGone(1000)) << "a client still holds it";
    host.reset();
    EXPECT_TRUE(server.WaitGone(5000));
    EXPECT_EQ(0u, server.ExitCode());
}

TEST_F(Server, ScriptClientCreatesItByProgIdAndPrintsTheVersion)
{
    std::string output;
    DWORD code = RunCapture("cscript.exe //nologo " + Quoted(BinDir() + "\\version.vbs"), output);
    EXPECT_EQ(0u, code) << output;
    EXPECT_NE(std::string::npos, output.find("VnLinkhost version 01.00.00.0001")) << output;
}

}  // namespace
