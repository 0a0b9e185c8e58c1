// How a session's working record follows the system: the proxy settings as
// Wine's internet client reports them for the LAN, and as the interpretation
// alone makes of what the platform may answer (Wine never reports the script
// and detection bits); the registry reader behind the dial mode; the default
// dial-up entry, which each platform version keeps elsewhere. The "ie/" keys
// answer from the same sources. Each test puts the prefix's settings back.
#include <gtest/gtest.h>

#include <windows.h>
#include <wininet.h>

#include <cstdio>
#include <map>

#include "host/status.h"
#include "settings/config_keys.h"
#include "settings/registry_text.h"
#include "settings/session_connection.h"
#include "settings/system_proxy.h"
#include "tests/settings/settings_support.h"
#include "vfc/text.h"

using namespace vn_settings_test;

namespace {

constexpr DWORD D = PROXY_TYPE_DIRECT, P = PROXY_TYPE_PROXY, U = PROXY_TYPE_AUTO_PROXY_URL, A = PROXY_TYPE_AUTO_DETECT;

vn_settings::TSystemProxySettings System(DWORD flags, const char* script, const char* bypass, const char* server)
{
    vn_settings::TSystemProxySettings s;
    s.m_dwFlags = flags, s.m_bHasScript = script, s.m_bHasBypass = bypass, s.m_bHasServer = server;
    s.m_strScript = script ? script : "", s.m_strBypass = bypass ? bypass : "", s.m_strServer = server ? server : "";
    return s;
}

// The "ie/proxy/" texts in one line: mode-auto, mode-script, mode-manual, script, exclude, noLocal, address, port.
template <typename Answer>
std::string ProxyKeys(Answer answer)
{
    std::string line;
    for (const char* word : {"mode-auto", "mode-script", "mode-manual", "script", "exclude", "noLocal", "address", "port"})
        line += (line.empty() ? "" : "|") + answer(std::string("ie/proxy/") + word);
    return line;
}

TEST(SystemProxyRules, TheSystemsAnswerBecomesTheProxyFieldsOfTheRecordAndTheIeProxyTexts)
{
    const struct {
        DWORD flags;
        const char *script, *bypass, *server;
        int mode;
        const char* address;
        int port;  // the record's own is 8081
        const char* exclude;
        bool noLocal;
        const char* keys;
    } cases[] = {
        // Manual beats script, script beats detection.
        {D | P | U | A, nullptr, nullptr, nullptr, ProxyManual, "", 0, "", false, "true|true|true|||||"},
        {D | U | A, "http://wpad/wpad.dat", nullptr, nullptr, ProxyScript, "", 0, "", false, "true|true|false|http://wpad/wpad.dat||||"},
        {D | A, nullptr, nullptr, nullptr, ProxyAuto, "", 0, "", false, "true|false|false|||||"},
        {D, nullptr, nullptr, nullptr, ProxyNone, "", 0, "", false, "false|false|false|||||"},
        // Only the first "<local>" is cut, and its separator stays.
        {P, nullptr, "<local>", "cache.lan:3128", ProxyManual, "cache.lan", 3128, "", true, "false|false|true|||true|cache.lan|3128"},
        {P, nullptr, "a;<local>;*.corp;<local>", nullptr, ProxyManual, "", 0, "a;;*.corp;<local>", true,
         "false|false|true||a;;*.corp;<local>|true||"},
        {P, nullptr, "a.example", "h:3128:9", ProxyManual, "h", 3128, "a.example", false, "false|false|true||a.example|false|h|3128:9"},
        // The server text is cut at its first colon; without one the record keeps its port.
        {P, nullptr, nullptr, "bare-host", ProxyManual, "bare-host", 8081, "", false, "false|false|true||||bare-host|bare-host"},
        {P, nullptr, nullptr, "http=a:81;https=b:82", ProxyManual, "http=a", 81, "", false, "false|false|true||||http=a|81;https=b:82"},
        {P, nullptr, nullptr, "h:80x", ProxyManual, "h", 80, "", false, "false|false|true||||h|80x"},
    };
    for (auto& c : cases) {
        const auto system = System(c.flags, c.script, c.bypass, c.server);
        CConfigData data = Defaults();
        data.m_DialMode = DialAlways, data.m_DefaultConnection = "Office", data.m_SessionFlags = 5;
        data.m_SkipHeadAuth = true, data.m_ProxyPort = 8081, data.m_ProxyScript = "http://old/script.pac";
        CConfigData expected = data;
        expected.m_ProxyMode = c.mode, expected.m_ProxyAddress = c.address, expected.m_ProxyPort = c.port;
        expected.m_ProxyExclude = c.exclude, expected.m_ProxyNoLocal = c.noLocal, expected.m_ProxyScript = c.script ? c.script : "";
        vn_settings::ApplySystemProxySettings(system, data);
        EXPECT_EQ(Fields(expected), Fields(data)) << c.keys;
        EXPECT_EQ(c.keys, ProxyKeys([&](const std::string& key) { return vn_settings::SystemProxyKeyText(system, key); }));
        EXPECT_EQ("", vn_settings::SystemProxyKeyText(system, "ie/proxy/Address") + vn_settings::SystemProxyKeyText(system, "ie/proxy/"));
    }
}

TEST(RegistryReader, GivesStringsDoubleWordsAndBinariesAsText)
{
    const char* const kScratch = "Software\\VnLinkhostTest\\RegistryReader";
    std::vector<BYTE> wraps(34), last(512);
    wraps[32] = wraps[33] = last[511] = 1;
    const struct {
        DWORD type;
        std::vector<BYTE> data;
        const char* text;
    } cases[] = {
        {REG_DWORD, {255, 255, 255, 255}, "4294967295"}, {REG_SZ, {'O', 'f', 'f', 'i', 'c', 'e', 0}, "Office"},
        // Each byte shifted by its index in bits, the index modulo 32.
        {REG_BINARY, {1, 0, 0, 0}, "1"}, {REG_BINARY, {3, 3, 3}, "21"}, {REG_BINARY, wraps, "3"}, {REG_BINARY, last, "2147483648"},
        // More than 512 bytes, and other types, give nothing.
        {REG_BINARY, std::vector<BYTE>(513, 1), ""}, {REG_SZ, std::vector<BYTE>(600, 'x'), ""}, {REG_EXPAND_SZ, {'%', 'T', '%', 0}, ""},
    };
    for (auto& c : cases) {
        SetReg(kScratch, "v", c.type, c.data.data(), c.data.size());
        EXPECT_EQ(c.text, vn_settings::RegistryValueText(HKEY_CURRENT_USER, kScratch, "v")) << c.data.size();
    }
    EXPECT_EQ("", vn_settings::RegistryValueText(HKEY_CURRENT_USER, kScratch, "absent"));
    ::RegDeleteTreeA(HKEY_CURRENT_USER, kScratch);
    EXPECT_EQ("", vn_settings::RegistryValueText(HKEY_CURRENT_USER, kScratch, "v"));
}

class SessionFromSystem : public TDialFixture {
protected:
    void SetUp() override
    {
        TDialFixture::SetUp();
        m_record.SetDefaults();
        m_record.m_UseSystemConnection = false, m_record.m_ProxyMode = ProxyScript, m_record.m_ProxyScript = "http://own.pac";
        m_record.m_ProxyPort = 1234, m_record.m_DialMode = DialAlways, m_record.m_DefaultConnection = "Office";
        m_record.m_SessionFlags = 2, m_record.m_SkipHeadAuth = true;
    }
    HRESULT Prepare() { return CVnSessionConnection(&m_work).PrepareConfigData(m_record); }
    HRESULT Check() { return CVnSessionConnection(&m_work).CheckConnection(m_work, nullptr); }
    static std::string Key(const std::string& key)
    {
        std::wstring value = L"<untouched>";
        EXPECT_EQ(S_OK, vn_config::GetValue(CConfigData(), vfc::Widen(key), value)) << key;
        return vfc::Narrow(value);
    }

    TKeySaved m_settings{kInternetSettings}, m_profile{"RemoteAccess"}, m_autoDial{"Software\\Microsoft\\RAS AutoDial"};
    CConfigData m_record, m_work;
};

TEST_F(SessionFromSystem, ProxyComesFromTheLanSettingsAndTheKeysAnswerTheSame)
{
    const struct {
        DWORD enabled;
        const char *server, *bypass;
        bool own;  // the record has its own proxy settings
        int mode;
        const char* address;
        int port;
        const char* exclude;
        bool noLocal;
        const char* keys;
    } cases[] = {
        {1, "cache.lan:3128", "a;<local>;*.corp", false, ProxyManual, "cache.lan", 3128, "a;;*.corp", true,
         "false|false|true||a;;*.corp|true|cache.lan|3128"},
        {1, "bare-host", "a;b", false, ProxyManual, "bare-host", 1234, "a;b", false, "false|false|true||a;b|false|bare-host|bare-host"},
        // A disabled proxy's server text is still handed back, but no bypass list.
        {0, "kept.lan:81", "a;<local>", false, ProxyNone, "kept.lan", 81, "", false, "false|false|false||||kept.lan|81"},
        {0, nullptr, nullptr, false, ProxyNone, "", 0, "", false, "false|false|false|||||"},
        {1, "cache.lan:3128", "<local>", true, 0, "", 0, "", false, "false|false|true|||true|cache.lan|3128"},
    };
    for (auto& c : cases) {
        WriteLanProxy(c.enabled, c.server, c.bypass);
        m_record.m_UseSystemProxy = !c.own;
        CConfigData expected = m_record;
        if (!c.own) {
            expected.m_ProxyMode = c.mode, expected.m_ProxyAddress = c.address, expected.m_ProxyPort = c.port;
            expected.m_ProxyExclude = c.exclude, expected.m_ProxyNoLocal = c.noLocal, expected.m_ProxyScript = "";
        }
        ASSERT_EQ(S_OK, Prepare());
        EXPECT_EQ(Fields(expected), Fields(m_work)) << c.keys;
        EXPECT_EQ(c.keys, ProxyKeys(Key));
    }
}

TEST_F(SessionFromSystem, FailedQueryLeavesTheRecordsProxyAndFailsOnlyWithoutTheDialSettings)
{
    const size_t log = vn_test::LogSize();
    {
        TKeySaved removed(kInternetSettings, true);
        ASSERT_TRUE(removed.removed);
        EXPECT_EQ(E_FAIL, Prepare());
        EXPECT_EQ(Fields(m_record), Fields(m_work));
        m_record.m_UseSystemConnection = true;
        EXPECT_EQ(S_OK, Prepare());
        EXPECT_EQ("proxy", m_work.m_ProxyAddress);
        EXPECT_EQ("", Key("ie/proxy/address"));
    }
    const std::string failed = "]. Message: InternetQueryOption failed. Error code: ";
    EXPECT_EQ(2, vn_test::CountLogLinesSince(log, "Error in method [CVnSessionConnection::GetProxyDefault" + failed));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnSessionConnection::GetIEProxy" + failed));
}

TEST_F(SessionFromSystem, SettingsReadFromTheSystemAreTracedAndNeverReachTheLog)
{
    WriteLanProxy(1, "traced.lan:3129", "x;<local>");
    WriteAutodial(1, 1);
    Entries({"Office"});
    m_record.m_UseSystemConnection = true;
    const size_t log = vn_test::LogSize();
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ("traced.lan", m_work.m_ProxyAddress);
    EXPECT_EQ(DialRequired, m_work.m_DialMode);
    EXPECT_EQ(S_FALSE, CVnLinkhostConnectionManager().Connect("Nowhere", nullptr, false, false));  // one line that is written
    const std::string text = vn_test::LogSince(log);
    EXPECT_EQ(1, Count(text, "Connection name not f\xEEund."));
    for (const char* traced : {"IE Settings [Proxy mode]", "IE Settings [Proxy Script]", "IE Settings [Proxy Exclude]",
                               "IE Settings [Proxy Address]", "cdAWorkData structure [Proxy settings]",
                               "cdAWorkData structure[RAS settings]", "IE Settings [Ras Mode]", "IE Settings [Ras DefaultConnection]"})
        EXPECT_EQ(std::string::npos, text.find(traced)) << traced;
}

TEST_F(SessionFromSystem, DialModeIsTheSumOfTheTwoAutodialValuesWhateverTheirType)
{
    const struct {
        int enable, noNet, mode;
        const char* word;
    } cases[] = {{-1, -1, DialNever, "never"},   {1, 0, DialAlways, "always"},     {0, 1, DialAlways, "always"},
                 {1, 1, DialRequired, "required"}, {0, 2, DialRequired, "required"}, {2, 1, DialNever, "never"}};
    int mode = -1;
    for (auto& c : cases) {
        WriteAutodial(c.enable, c.noNet);
        EXPECT_EQ(S_OK, CVnSessionConnection::GetIEDialMode(mode));
        EXPECT_EQ(std::make_tuple(c.mode, std::string(c.word)), std::make_tuple(mode, Key("ie/dialup/mode")));
    }
    SetReg(kInternetSettings, "EnableAutodial", REG_BINARY, "\x00\x01", 2);  // 2; read as 256 it would be DialNever
    SetText(kInternetSettings, "NoNetAutodial", "0");
    CVnSessionConnection::GetIEDialMode(mode);
    EXPECT_EQ(DialRequired, mode);
}

TEST_F(SessionFromSystem, DialSettingsComeFromTheSystemOnlyWhenTheRecordAsks)
{
    WriteAutodial(1, 1);
    m_record.m_UseSystemProxy = false, m_record.m_UseSystemConnection = true;
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(std::make_tuple(int(DialRequired), std::string()), std::make_tuple(m_work.m_DialMode, m_work.m_DefaultConnection));
    Network(FALSE, 0);  // an empty phone book has no default entry: nothing to dial
    EXPECT_EQ(VN_E_NOT_CONNECTED, Check());
    EXPECT_EQ(0, Calls(si::kRasKey, "RasDialA("));
    m_record.m_UseSystemConnection = false;
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(std::make_tuple(int(DialAlways), std::string("Office")), std::make_tuple(m_work.m_DialMode, m_work.m_DefaultConnection));
    EXPECT_EQ(E_POINTER, CVnSessionConnection().PrepareConfigData(m_record));
}

// Checked against the platform version this process sees; the test after it
// runs this one again in children that see other versions.
TEST_F(SessionFromSystem, DefaultEntryIsReadWhereThisPlatformVersionKeepsItAndOnlyFromThePhoneBook)
{
    OSVERSIONINFOA info = {};
    info.dwOSVersionInfoSize = sizeof info;
    ASSERT_TRUE(::GetVersionExA(&info));
    char version[32];
    std::snprintf(version, sizeof version, "%lu.%lu.%lu", info.dwMajorVersion, info.dwMinorVersion, info.dwPlatformId);
    std::printf("version=%s\n", version);
    const std::map<std::string, std::string> kEntries = {{"4.10.1", "Profile A"}, {"4.90.1", "Profile A"}, {"4.0.2", "Profile A"},
        {"5.0.2", "Profile A"}, {"5.1.2", "AutoDial B"}, {"5.2.2", "AutoDial B"}, {"6.0.2", "AutoDial B"}};  // later: none
    const std::string expected = kEntries.count(version) ? kEntries.at(version) : "";
    auto names = [](const char* profile, const char* autoDial) {
        SetText("RemoteAccess", "InternetProfile", profile);
        SetText("Software\\Microsoft\\RAS AutoDial\\Default", "DefaultInternet", autoDial);
    };
    Entries({"Profile A", "AutoDial B", "Other"});
    names("Profile A", "AutoDial B");
    std::string entry = "<untouched>";
    EXPECT_EQ(S_OK, CVnSessionConnection::GetIEDefConnection(entry));
    EXPECT_EQ(expected, entry);
    EXPECT_EQ(expected, Key("ie/dialup/dialConnectionName"));
    // DialAlways from the system dials that entry, and the end hangs it up;
    // without one the session goes straight to the network test, twice.
    WriteAutodial(1, 0);
    m_record.m_UseSystemProxy = false, m_record.m_UseSystemConnection = true;
    ASSERT_EQ(S_OK, Prepare());
    EXPECT_EQ(expected, m_work.m_DefaultConnection);
    EXPECT_EQ(S_OK, Check());
    EXPECT_EQ(S_OK, CVnConnectionState::DestroyInstance());
    EXPECT_EQ(expected.empty() ? 0 : 2, Calls(si::kRasKey, "RasDialA(" + expected) + Calls(si::kRasKey, "RasHangUpA(" + expected));
    EXPECT_EQ(expected.empty() ? 2 : 0, Calls(si::kSensapiKey, "IsNetworkAlive="));
    // A name the phone book lacks, even in another case, gives nothing; so does an empty phone book.
    for (const char* missing : {"Gone", "autodial b", "profile a", ""}) {
        names(*missing ? missing : "Profile A", *missing ? missing : "AutoDial B");
        Entries(*missing ? std::vector<std::string>{"Profile A", "AutoDial B"} : std::vector<std::string>{});
        EXPECT_EQ(S_OK, CVnSessionConnection::GetIEDefConnection(entry));
        EXPECT_EQ("", entry) << missing;
    }
}

TEST_F(SessionFromSystem, DefaultEntryFollowsEachPlatformVersion)
{
    const char* const versions[][2] = {{"win98", "4.10.1"}, {"winme", "4.90.1"}, {"nt40", "4.0.2"}, {"win2k", "5.0.2"},
        {"winxp", "5.1.2"}, {"winxp64", "5.2.2"}, {"vista", "6.0.2"}, {"win7", "6.1.2"}, {"win10", "6.2.2"}};
    for (auto& v : versions) {
        const std::string output = RunUnderVersion(
            v[0], "SessionFromSystem.DefaultEntryIsReadWhereThisPlatformVersionKeepsItAndOnlyFromThePhoneBook");
        EXPECT_NE(std::string::npos, output.find(std::string("version=") + v[1])) << output;
        EXPECT_NE(std::string::npos, output.find("[  PASSED  ] 1 test.")) << output;
    }
}

}  // namespace
