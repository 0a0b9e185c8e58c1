// Plug-ins as the server loads them: listed in the log, their extensions
// published, their sinks told when the root object goes.
#include <gtest/gtest.h>

#include "server/server_fixture.h"
#include "tests/doubles/test_plugin/test_plugin.h"

namespace {

using namespace vn_test;

class Plugins : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(0u, RunServer("/RegServer"));
        RegisterTestPlugin();
    }
    static void TearDownTestSuite() { UnregisterTestPlugin(); }
    void TearDown() override { EndServer(); }
};

TEST_F(Plugins, PluginIsLoadedListedAndPublishedAndItsSinkHearsTheEnd)
{
    SetSinkAnswer(0);
    RegDeleteKeyValueA(HKEY_CURRENT_USER, kVnTestKey, "Events");
    const size_t log = LogSize();
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    const std::string lines = LogSince(log);
    EXPECT_NE(std::string::npos, lines.find("Plugins found: \r\n")) << lines;
    EXPECT_NE(std::string::npos, lines.find("[TestPlugin]  initialised")) << lines;
    EXPECT_NE(std::string::npos, lines.find("  Testerweiterung               \t7.1")) << lines;

    vfc::TComPtr<IUnknown> extension;
    EXPECT_EQ(S_OK, host->GetExtensionInterface(&IID_VnTestExtension, extension.put()));
    EXPECT_TRUE(extension);
    extension.reset();
    EXPECT_EQ("<missing>", RegText(HKEY_CURRENT_USER, kVnTestKey, "Events"));

    // An agreeing sink lets the server end; it heard plain 2 with a
    // parameter of 1, once, from the root object's last release.
    TServerProcess server;
    EXPECT_TRUE(ShutDownServer(host));
    EXPECT_EQ(0u, server.ExitCode());
    EXPECT_EQ("2:1;", RegText(HKEY_CURRENT_USER, kVnTestKey, "Events"));
}

}  // namespace
