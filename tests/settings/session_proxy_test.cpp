// A session's working record follows the prefix's own LAN proxy settings,
// read through the real per-connection options of Wine's internet client,
// and the "ie/proxy/" keys answer the same. Each test writes the settings
// (through InternetSetOptionA on the null handle, or the registry values
// the client keeps them in) and puts the old ones back afterwards.
//
// What Wine's client reports: the manual bit (2) or the direct bit (1), the
// server text, and the bypass list while the proxy is enabled. It never
// reports the script or detection bits nor a script address, keeps no bypass
// list given through InternetSetOptionA, and hands back only the "http="
// part of a per-scheme server list; those rules are shown in
// system_proxy_test.cpp.
#include <gtest/gtest.h>

#include <windows.h>
#include <wininet.h>

#include "common/test_util.h"
#include "host/status.h"
#include "settings/session_connection.h"
#include "settings/system_keys.h"
#include "tests/settings/settings_support.h"
#include "vfc/text.h"

using namespace vn_settings_test;

namespace {

// Sets the LAN settings' flags and server through the per-connection
// options, as a control panel would.
void SetLanOptions(DWORD flags, const char* server)
{
    INTERNET_PER_CONN_OPTIONA options[2] = {};
    options[0].dwOption = INTERNET_PER_CONN_FLAGS;
    options[0].Value.dwValue = flags;
    options[1].dwOption = INTERNET_PER_CONN_PROXY_SERVER;
    options[1].Value.pszValue = const_cast<char*>(server);
    INTERNET_PER_CONN_OPTION_LISTA list = {};
    list.dwSize = sizeof list;
    list.dwOptionCount = 2;
    list.pOptions = options;
    ASSERT_TRUE(InternetSetOptionA(nullptr, INTERNET_OPTION_PER_CONNECTION_OPTION, &list, sizeof list)) << GetLastError();
}

// Moves the whole internet settings key aside for the length of a scope, so
// that the internet client can't answer the per-connection query at all.
class TInternetSettingsRemoved {
public:
    TInternetSettingsRemoved()
    {
        ::RegDeleteTreeA(HKEY_CURRENT_USER, kBackup);
        HKEY backup = nullptr;
        m_saved = ::RegCreateKeyA(HKEY_CURRENT_USER, kBackup, &backup) == ERROR_SUCCESS &&
                  ::RegCopyTreeA(HKEY_CURRENT_USER, kInternetSettings, backup) == ERROR_SUCCESS;
        if (backup)
            ::RegCloseKey(backup);
        if (m_saved)
            m_removed = ::RegDeleteTreeA(HKEY_CURRENT_USER, kInternetSettings) == ERROR_SUCCESS;
    }
    ~TInternetSettingsRemoved()
    {
        if (m_saved) {
            HKEY settings = nullptr, backup = nullptr;
            ::RegCreateKeyA(HKEY_CURRENT_USER, kInternetSettings, &settings);
            ::RegOpenKeyA(HKEY_CURRENT_USER, kBackup, &backup);
            ::RegCopyTreeA(backup, nullptr, settings);
            ::RegCloseKey(backup);
            ::RegCloseKey(settings);
        }
        ::RegDeleteTreeA(HKEY_CURRENT_USER, kBackup);
    }
    bool removed() const { return m_removed; }

private:
    static constexpr const char* kBackup = "Software\\VnLinkhostTest\\InternetSettingsBackup";
    bool m_saved = false;
    bool m_removed = false;
};

class SessionProxyFromSystem : public ::testing::Test {
protected:
    void SetUp() override
    {
        TStandIns::Reset();
        m_record.SetDefaults();
        m_record.m_UseSystemConnection = false;  // the proxy alone decides the status
    }
    void TearDown() override { TStandIns::Reset(); }

    HRESULT Prepare()
    {
        CVnSessionConnection connection(&m_work);
        return connection.PrepareConfigData(m_record);
    }

    std::string Key(const wchar_t* name)
    {
        std::wstring value = L"<untouched>";
        bool handled = false;
        EXPECT_EQ(S_OK, vn_config::GetSystemValue(name, value, handled));
        EXPECT_TRUE(handled);
        return vfc::Narrow(value);
    }

    TSystemSettingsGuard m_guard;
    CConfigData m_record;
    CConfigData m_work;
};

}  // namespace

TEST_F(SessionProxyFromSystem, ManualProxyReplacesTheRecordsProxy)
{
    WriteLanProxy(true, "cache.lan:3128", "intranet;<local>;*.corp");
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(ProxyManual, m_work.m_ProxyMode);
    EXPECT_EQ("cache.lan", m_work.m_ProxyAddress);
    EXPECT_EQ(3128, m_work.m_ProxyPort);
    EXPECT_EQ("intranet;;*.corp", m_work.m_ProxyExclude);
    EXPECT_TRUE(m_work.m_ProxyNoLocal);
    EXPECT_EQ("", m_work.m_ProxyScript);
}

TEST_F(SessionProxyFromSystem, PerConnectionOptionsSetByInternetSetOptionAreFollowed)
{
    SetLanOptions(PROXY_TYPE_DIRECT | PROXY_TYPE_PROXY, "opt.proxy:8181");
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(ProxyManual, m_work.m_ProxyMode);
    EXPECT_EQ("opt.proxy", m_work.m_ProxyAddress);
    EXPECT_EQ(8181, m_work.m_ProxyPort);

    SetLanOptions(PROXY_TYPE_DIRECT, "opt.proxy:8181");
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(ProxyNone, m_work.m_ProxyMode);
}

TEST_F(SessionProxyFromSystem, RecordFieldsOutsideTheProxyAreCopied)
{
    WriteLanProxy(true, "cache.lan:3128", nullptr);
    m_record.m_DialMode = DialAlways;
    m_record.m_DefaultConnection = "Office";
    m_record.m_SessionFlags = 3;
    m_record.m_SkipHeadAuth = true;
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_TRUE(m_work.m_UseSystemProxy);
    EXPECT_FALSE(m_work.m_UseSystemConnection);
    EXPECT_EQ(DialAlways, m_work.m_DialMode);
    EXPECT_EQ("Office", m_work.m_DefaultConnection);
    EXPECT_EQ(3, m_work.m_SessionFlags);
    EXPECT_TRUE(m_work.m_SkipHeadAuth);
}

TEST_F(SessionProxyFromSystem, ServerWithoutColonKeepsTheRecordsPort)
{
    WriteLanProxy(true, "bare-host", nullptr);
    m_record.m_ProxyPort = 1234;
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ("bare-host", m_work.m_ProxyAddress);
    EXPECT_EQ(1234, m_work.m_ProxyPort);
}

TEST_F(SessionProxyFromSystem, LocalAloneGivesNoLocalAndAnEmptyExclude)
{
    WriteLanProxy(true, "cache.lan:3128", "<local>");
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_TRUE(m_work.m_ProxyNoLocal);
    EXPECT_EQ("", m_work.m_ProxyExclude);
}

TEST_F(SessionProxyFromSystem, BypassWithoutLocalClearsTheRecordsMark)
{
    WriteLanProxy(true, "cache.lan:3128", "a.example;b.example");
    ASSERT_TRUE(m_record.m_ProxyNoLocal);
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_FALSE(m_work.m_ProxyNoLocal);
    EXPECT_EQ("a.example;b.example", m_work.m_ProxyExclude);
}

TEST_F(SessionProxyFromSystem, DisabledProxyGivesNoneAndNoBypass)
{
    // The client still hands back the server text of a disabled proxy; the
    // record takes it as it comes, but the mode says not to use it.
    WriteLanProxy(false, "kept.lan:81", "a;<local>");
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(ProxyNone, m_work.m_ProxyMode);
    EXPECT_EQ("", m_work.m_ProxyExclude);
    EXPECT_FALSE(m_work.m_ProxyNoLocal);
    EXPECT_EQ("kept.lan", m_work.m_ProxyAddress);
    EXPECT_EQ(81, m_work.m_ProxyPort);
}

TEST_F(SessionProxyFromSystem, NoServerGivesAnEmptyAddressAndPortZero)
{
    WriteLanProxy(false, nullptr, nullptr);
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(ProxyNone, m_work.m_ProxyMode);
    EXPECT_EQ("", m_work.m_ProxyAddress);
    EXPECT_EQ(0, m_work.m_ProxyPort);
}

TEST_F(SessionProxyFromSystem, RecordWithItsOwnProxyIgnoresTheSystem)
{
    WriteLanProxy(true, "cache.lan:3128", "<local>");
    m_record.m_UseSystemProxy = false;
    m_record.m_ProxyMode = ProxyScript;
    m_record.m_ProxyScript = "http://own/script.pac";
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(ProxyScript, m_work.m_ProxyMode);
    EXPECT_EQ("proxy", m_work.m_ProxyAddress);
    EXPECT_EQ(8080, m_work.m_ProxyPort);
    EXPECT_EQ("localhost", m_work.m_ProxyExclude);
    EXPECT_EQ("http://own/script.pac", m_work.m_ProxyScript);
}

TEST_F(SessionProxyFromSystem, ResultIsLogged)
{
    WriteLanProxy(true, "logged.lan:3129", "x;<local>");
    size_t offset = vn_test::LogSize();
    ASSERT_EQ(S_OK, Prepare());
    std::string log = LogTextSince(offset);
    EXPECT_NE(std::string::npos, log.find("Info about method [CVnSessionConnection::GetProxyDefault]. IE Settings [Proxy mode]: \n"
                                          " ProxyManual = true;\n ProxyScript = false;\n ProxyAuto = false;\n"))
        << log;
    EXPECT_NE(std::string::npos, log.find("IE Settings [Proxy Address]: logged.lan:3129")) << log;
    EXPECT_NE(std::string::npos, log.find("IE Settings [Proxy Exclude]: x;<local>")) << log;
    EXPECT_NE(std::string::npos, log.find("IE Settings [Proxy Script]: ")) << log;
    EXPECT_NE(std::string::npos, log.find("cdAWorkData structure [Proxy settings]: \n m_UseSystemProxy = true;\n"
                                          " m_ProxyMode (ProxyNone-0,ProxyAuto-1,ProxyManual-2,ProxyScript-3) = 2;\n"
                                          " m_ProxyAddress = logged.lan;\n m_ProxyPort = 3129;\n m_ProxyExclude = x;;\n"
                                          " m_ProxyNoLocal = true;\n m_ProxyScript = ;\n"))
        << log;
}

TEST_F(SessionProxyFromSystem, FailedQueryLeavesTheRecordsProxyAndFailsAlone)
{
    size_t offset = vn_test::LogSize();
    {
        TInternetSettingsRemoved removed;
        ASSERT_TRUE(removed.removed());
        EXPECT_EQ(E_FAIL, Prepare());
        EXPECT_EQ(ProxyNone, m_work.m_ProxyMode);
        EXPECT_EQ("proxy", m_work.m_ProxyAddress);
        EXPECT_EQ(8080, m_work.m_ProxyPort);
        EXPECT_EQ("localhost", m_work.m_ProxyExclude);

        // With the system's dial settings read as well, their status wins.
        m_record.m_UseSystemConnection = true;
        EXPECT_EQ(S_OK, Prepare());
        EXPECT_EQ("proxy", m_work.m_ProxyAddress);
    }
    EXPECT_EQ(2, vn_test::CountLogLinesSince(
                     offset, "Error in method [CVnSessionConnection::GetProxyDefault]. Message: InternetQueryOption failed. Error code: "));
}

TEST_F(SessionProxyFromSystem, IeProxyKeysAnswerFromTheSystem)
{
    WriteLanProxy(true, "keys.lan:3130", "one;<local>");
    EXPECT_EQ("true", Key(L"ie/proxy/mode-manual"));
    EXPECT_EQ("false", Key(L"ie/proxy/mode-script"));
    EXPECT_EQ("false", Key(L"ie/proxy/mode-auto"));
    EXPECT_EQ("keys.lan", Key(L"ie/proxy/address"));
    EXPECT_EQ("3130", Key(L"ie/proxy/port"));
    EXPECT_EQ("one;", Key(L"ie/proxy/exclude"));
    EXPECT_EQ("true", Key(L"ie/proxy/noLocal"));
    EXPECT_EQ("", Key(L"ie/proxy/script"));

    WriteLanProxy(true, "bare-host", "two");
    EXPECT_EQ("bare-host", Key(L"ie/proxy/address"));
    EXPECT_EQ("bare-host", Key(L"ie/proxy/port"));
    EXPECT_EQ("false", Key(L"ie/proxy/noLocal"));

    WriteLanProxy(false, nullptr, nullptr);
    EXPECT_EQ("false", Key(L"ie/proxy/mode-manual"));
    EXPECT_EQ("", Key(L"ie/proxy/address"));
    EXPECT_EQ("", Key(L"ie/proxy/port"));
    EXPECT_EQ("", Key(L"ie/proxy/exclude"));
    EXPECT_EQ("", Key(L"ie/proxy/noLocal"));
}

TEST_F(SessionProxyFromSystem, IeProxyKeysMatchTheWorkingRecord)
{
    WriteLanProxy(true, "same.lan:3131", "a;<local>;b");
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(m_work.m_ProxyAddress, Key(L"ie/proxy/address"));
    EXPECT_EQ(std::to_string(m_work.m_ProxyPort), Key(L"ie/proxy/port"));
    EXPECT_EQ(m_work.m_ProxyExclude, Key(L"ie/proxy/exclude"));
    EXPECT_EQ(m_work.m_ProxyNoLocal ? "true" : "false", Key(L"ie/proxy/noLocal"));
}

TEST_F(SessionProxyFromSystem, IeProxyKeyOfAFailedQueryIsEmptyWithStatusZero)
{
    size_t offset = vn_test::LogSize();
    TInternetSettingsRemoved removed;
    ASSERT_TRUE(removed.removed());
    EXPECT_EQ("", Key(L"ie/proxy/address"));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(
                     offset, "Error in method [CVnSessionConnection::GetIEProxy]. Message: InternetQueryOption failed. Error code: "));
}

TEST(SystemKeyFamilies, AreRecognisedByTheirExactPrefix)
{
    std::wstring value = L"<untouched>";
    bool handled = true;
    EXPECT_EQ(S_OK, vn_config::GetSystemValue(L"ie/proxy/anything-else", value, handled));
    EXPECT_TRUE(handled);
    EXPECT_EQ(L"", value);

    value = L"<untouched>";
    EXPECT_EQ(S_OK, vn_config::GetSystemValue(L"ie/dialup/anything-else", value, handled));
    EXPECT_TRUE(handled);
    EXPECT_EQ(L"", value);

    for (const wchar_t* other : {L"ie/other", L"ie/proxy", L"IE/proxy/address", L"ie/Proxy/address", L"ie/dialup", L"proxy/address"}) {
        value = L"<untouched>";
        handled = true;
        EXPECT_EQ(S_OK, vn_config::GetSystemValue(other, value, handled));
        EXPECT_FALSE(handled) << std::string(other, other + wcslen(other));
        EXPECT_EQ(L"<untouched>", value);
    }
}
