// The settings across a restart of the server: a client sets them in one
// server process and saves them, the process ends with its last client, and
// the root object of the next server process reads them from the file.
#include <gtest/gtest.h>

#include <shlobj.h>

#include <fstream>
#include <utility>

#include "server/server_fixture.h"
#include "vfc/text.h"

namespace {

using namespace vn_test;

// One of the two places of the configuration file, emptied for a test and
// put back afterwards, so that the other tests keep their own state.
struct TConfigFile {
    explicit TConfigFile(int folder)
    {
        char base[MAX_PATH] = {};
        SHGetFolderPathA(nullptr, folder, nullptr, 0, base);
        path = std::string(base) + "\\Velorin\\VnLinkhost\\Konfiguration\\VnLinkhost.xml";
    }
    bool Exists() const { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }
    void Remove() const
    {
        SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileA(path.c_str());
    }
    std::string path;
    bool present = false;
    std::string bytes;
};

class ConfigRestart : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(0u, RunServer("/RegServer")); }
    // The files are emptied only once no server is left that could still
    // write them, and put back only after this test's servers are gone.
    void SetUp() override
    {
        EndServer();
        for (TConfigFile& file : m_files) {
            file.present = file.Exists();
            file.bytes = ReadWholeFile(file.path);
            file.Remove();
        }
    }
    void TearDown() override
    {
        EndServer();
        for (TConfigFile& file : m_files) {
            file.Remove();
            if (file.present)
                std::ofstream(file.path, std::ios::binary) << file.bytes;
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
    TConfigFile m_files[2] = {TConfigFile(CSIDL_LOCAL_APPDATA), TConfigFile(CSIDL_APPDATA)};
};

TEST_F(ConfigRestart, SavedKeysAreReadByTheNextServerProcessAndUnsavedOnesAreLost)
{
    const TConfigFile& primary = m_files[0];
    const std::pair<const wchar_t*, const wchar_t*> saved[] = {
        {L"proxy/useSystemProxy", L"false"}, {L"proxy/mode", L"2"},
        {L"proxy/address", L"restart.example"}, {L"proxy/port", L"3129"},
        {L"dialup/mode", L"0"}, {L"dialup/dialConnectionName", L"B\u00FCro"},
        {L"proxy/skipHeadAuth", L"true"},
    };
    auto host = CreateRoot();
    ASSERT_TRUE(host);
    TServerProcess first;
    for (const auto& key : saved)
        ASSERT_EQ(S_OK, Set(host.get(), key.first, key.second)) << vfc::Narrow(key.first);
    EXPECT_FALSE(primary.Exists()) << "only a save makes the file";
    ASSERT_EQ(S_OK, host->SaveConfiguration());
    ASSERT_EQ(S_OK, Set(host.get(), L"proxy/exclude", L"unsaved.example"));
    const std::string bytes = ReadWholeFile(primary.path);
    EXPECT_NE(std::string::npos, bytes.find("\t\t<Address>restart.example</Address>\r\n")) << bytes;
    ASSERT_TRUE(ShutDownServer(host));
    EXPECT_EQ(bytes, ReadWholeFile(primary.path)) << "the server's end saves nothing";

    auto next = CreateRoot();
    ASSERT_TRUE(next);
    EXPECT_FALSE(first.alive());
    for (const auto& key : saved)
        EXPECT_EQ(key.second, Get(next.get(), key.first)) << vfc::Narrow(key.first);
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

}  // namespace
