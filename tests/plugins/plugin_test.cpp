// Plug-ins as the server loads them: listed in the log, their extensions
// published, their sinks told when the root object goes.
#include <gtest/gtest.h>

#include "server/server_fixture.h"
#include "tests/doubles/test_plugin/test_plugin.h"

namespace {

using namespace vn_test;

const std::string kCategory = "{566E4C48-60C4-4777-A4B1-D178F6C1AE38}";

std::string GuidText(const GUID& g)
{
    wchar_t text[64] = {};
    StringFromGUID2(g, text, 64);
    char narrow[64] = {};
    WideCharToMultiByte(CP_ACP, 0, text, -1, narrow, sizeof narrow, nullptr, nullptr);
    return narrow;
}

void SetString(HKEY root, const std::string& key, const char* name, const std::string& value)
{
    ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueA(root, key.c_str(), name, REG_SZ, value.c_str(),
                                             static_cast<DWORD>(value.size() + 1)));
}

void SetSinkAnswer(DWORD answer)
{
    ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueA(HKEY_CURRENT_USER, kVnTestKey, "SinkAnswer", REG_DWORD, &answer, sizeof answer));
}

class PluginSink : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(0u, RunServer("/RegServer"));
        const std::string clsid = "CLSID\\" + GuidText(CLSID_VnTestPlugin);
        SetString(HKEY_CLASSES_ROOT, clsid, nullptr, "VnLinkhost test plug-in");
        SetString(HKEY_CLASSES_ROOT, clsid + "\\InprocServer32", nullptr, BinDir() + "\\vn_test_plugin.dll");
        SetString(HKEY_CLASSES_ROOT, clsid + "\\InprocServer32", "ThreadingModel", "Both");
        SetString(HKEY_CLASSES_ROOT, clsid + "\\Implemented Categories\\" + kCategory, nullptr, "");
    }
    static void TearDownTestSuite()
    {
        RegDeleteTreeA(HKEY_CLASSES_ROOT, ("CLSID\\" + GuidText(CLSID_VnTestPlugin)).c_str());
        RegDeleteTreeA(HKEY_CURRENT_USER, kVnTestKey);
    }
};

TEST_F(PluginSink, PluginIsLoadedAndListedAndItsExtensionIsPublished)
{
    SetSinkAnswer(0);
    const size_t log = LogSize();
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    std::string lines = LogSince(log);
    EXPECT_NE(std::string::npos, lines.find("Plugins found: \r\n")) << lines;
    EXPECT_NE(std::string::npos, lines.find("[TestPlugin]  initialised")) << lines;
    EXPECT_NE(std::string::npos, lines.find("  Testerweiterung               \t7.1")) << lines;

    vfc::TComPtr<IUnknown> extension;
    EXPECT_EQ(S_OK, host->GetExtensionInterface(&IID_VnTestExtension, extension.put()));
    EXPECT_TRUE(extension);
    extension.reset();
    EXPECT_TRUE(ShutDownServer(host));
}

TEST_F(PluginSink, AgreeingSinkLetsTheServerEnd)
{
    SetSinkAnswer(0);
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess server;
    EXPECT_TRUE(ShutDownServer(host));
    EXPECT_EQ(0u, server.ExitCode());
}

TEST_F(PluginSink, SinksHearTheShutdownWhenTheLastClientGoes)
{
    SetSinkAnswer(0);
    RegDeleteKeyValueA(HKEY_CURRENT_USER, kVnTestKey, "Events");
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    EXPECT_EQ("<missing>", RegText(HKEY_CURRENT_USER, kVnTestKey, "Events"));
    EXPECT_TRUE(ShutDownServer(host));
    // Plain 2 with a parameter of 1, once, from the root object's last release.
    EXPECT_EQ("2:1;", RegText(HKEY_CURRENT_USER, kVnTestKey, "Events"));
}

}  // namespace
