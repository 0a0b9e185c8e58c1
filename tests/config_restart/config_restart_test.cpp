// The settings across a restart of the server: a client sets them in one
// server process and saves them, the process ends with its last client, and
// the root object of the next server process reads them from the file.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "server/server_fixture.h"
#include "tests/settings/config_file_support.h"
#include "vfc/bstr.h"
#include "vfc/text.h"

namespace {

using namespace vn_test;
using namespace vn_config_test;


class ConfigRestart : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(0u, RunServer("/RegServer")); }
    // The files are emptied only once no server is left that could still
    // write them, and put back only after this test's servers are gone.
    void SetUp() override
    {
        EndServer();
        m_files.emplace();
    }
    void TearDown() override
    {
        EndServer();
        m_files.reset();
    }
    static void EndServer()
    {
        TServerProcess server;
        if (server.alive()) {
            auto host = CreateRoot();
            ShutDownServer(host);
        }
    }

    static std::wstring Get(IVnLinkhost* host, const wchar_t* name)
    {
        vfc::TBstr key(name), value;
        EXPECT_EQ(S_OK, host->GetConfigurationValue(key.get(), value.put())) << name;
        return value.str();
    }
    static HRESULT Set(IVnLinkhost* host, const wchar_t* name, const wchar_t* value)
    {
        vfc::TBstr key(name), text(value);
        return host->SetConfigurationValue(key.get(), text.get());
    }

    std::optional<TConfigFilesGuard> m_files;
};

TEST_F(ConfigRestart, SavedKeysAreReadByTheNextServerProcessAndUnsavedOnesAreLost)
{
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess first;
    ASSERT_NE(0u, first.pid());
    ASSERT_NE(GetCurrentProcessId(), first.pid());

    ASSERT_EQ(S_OK, Set(host.get(), L"proxy/useSystemProxy", L"false"));
    ASSERT_EQ(S_OK, Set(host.get(), L"proxy/mode", L"2"));
    ASSERT_EQ(S_OK, Set(host.get(), L"proxy/address", L"restart.example"));
    ASSERT_EQ(S_OK, Set(host.get(), L"proxy/port", L"3129"));
    ASSERT_EQ(S_OK, Set(host.get(), L"dialup/mode", L"0"));
    ASSERT_EQ(S_OK, Set(host.get(), L"dialup/dialConnectionName", L"B\u00FCro"));
    ASSERT_EQ(S_OK, Set(host.get(), L"proxy/skipHeadAuth", L"true"));
    ASSERT_EQ(S_OK, host->SaveConfiguration());
    ASSERT_EQ(S_OK, Set(host.get(), L"proxy/exclude", L"unsaved.example"));

    const std::string bytes = ReadBytes(PrimaryFile());
    EXPECT_NE(std::string::npos, bytes.find("\t\t<Address>restart.example</Address>\r\n")) << bytes;
    EXPECT_EQ(std::string::npos, bytes.find("unsaved")) << bytes;

    ASSERT_TRUE(ShutDownServer(host));
    EXPECT_FALSE(first.alive());

    auto next = CreateRoot();
    ASSERT_TRUE(next);
    TServerProcess second;
    EXPECT_TRUE(second.alive());
    EXPECT_EQ(L"false", Get(next.get(), L"proxy/useSystemProxy"));
    EXPECT_EQ(L"2", Get(next.get(), L"proxy/mode"));
    EXPECT_EQ(L"restart.example", Get(next.get(), L"proxy/address"));
    EXPECT_EQ(L"3129", Get(next.get(), L"proxy/port"));
    EXPECT_EQ(L"0", Get(next.get(), L"dialup/mode"));
    EXPECT_EQ(L"B\u00FCro", Get(next.get(), L"dialup/dialConnectionName"));
    EXPECT_EQ(L"true", Get(next.get(), L"proxy/skipHeadAuth"));
    EXPECT_EQ(L"localhost", Get(next.get(), L"proxy/exclude"));
    EXPECT_EQ(L"true", Get(next.get(), L"dialup/useSystemConnection"));

    // The next process's record is the file, line for line, with bare line feeds.
    std::string withoutCr;
    for (char c : bytes)
        if (c != '\r')
            withoutCr += c;
    EXPECT_EQ(vfc::Widen(withoutCr), Get(next.get(), L"_xmlconfig"));
    EXPECT_TRUE(ShutDownServer(next));
}

TEST_F(ConfigRestart, WholeRecordSetAsXmlIsSavedForTheNextServerProcess)
{
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    ASSERT_EQ(S_OK, Set(host.get(), L"_xmlconfig",
                        L"<VnLinkhostConfig><DialUp useSystemConnection = \"false\"><Mode>2</Mode>"
                        L"<DialConnectionName>ISDN</DialConnectionName></DialUp>"
                        L"<Proxy useSystemProxy = \"true\"><Script>http://wpad/p.pac</Script></Proxy>"
                        L"</VnLinkhostConfig>"));
    ASSERT_EQ(S_OK, host->SaveConfiguration());
    ASSERT_TRUE(ShutDownServer(host));

    auto next = CreateRoot();
    ASSERT_TRUE(next);
    EXPECT_EQ(L"false", Get(next.get(), L"dialup/useSystemConnection"));
    EXPECT_EQ(L"2", Get(next.get(), L"dialup/mode"));
    EXPECT_EQ(L"ISDN", Get(next.get(), L"dialup/dialConnectionName"));
    EXPECT_EQ(L"http://wpad/p.pac", Get(next.get(), L"proxy/script"));
    // What the text left out kept the defaults of the first process.
    EXPECT_EQ(L"8080", Get(next.get(), L"proxy/port"));
    EXPECT_EQ(L"proxy", Get(next.get(), L"proxy/address"));
    EXPECT_TRUE(ShutDownServer(next));
}

TEST_F(ConfigRestart, ServerThatNeverSavesLeavesNoFileAndTheNextOneStartsFromTheDefaults)
{
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    ASSERT_EQ(S_OK, Set(host.get(), L"proxy/port", L"3130"));
    ASSERT_TRUE(ShutDownServer(host));
    EXPECT_FALSE(FileExists(PrimaryFile()));

    auto next = CreateRoot();
    ASSERT_TRUE(next);
    EXPECT_EQ(L"8080", Get(next.get(), L"proxy/port"));
    EXPECT_TRUE(ShutDownServer(next));
}

}  // namespace
