// Plug-ins as the server loads them: listed in the log, their extensions
// published, their sinks told when the root object goes.
#include <gtest/gtest.h>

#include "server/server_fixture.h"
#include "tests/doubles/test_plugin/test_plugin.h"

namespace {

using namespace vn_test;




class PluginSink : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(0u, RunServer("/RegServer"));
        RegisterTestPlugin();
    }
    static void TearDownTestSuite()
    {
        UnregisterTestPlugin();
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
