// What a session takes from the system, whether it can go online, and whether it dials; what the proxy-script path
// makes of a script's answer and of a URL, and what the script engine's host functions answer. The journals of the
// stand-in RASAPI32.DLL, Rasdlg.dll and Sensapi.dll show what the system asked of the platform.
#include "tests/settings/settings_support.h"

#include "settings/auto_proxy_helper.h"

using namespace vn_settings_test;
using Manager = CVnLinkhostConnectionManager;
using Names = std::vector<std::string>;

namespace {

constexpr DWORD D = PROXY_TYPE_DIRECT, P = PROXY_TYPE_PROXY, U = PROXY_TYPE_AUTO_PROXY_URL, A = PROXY_TYPE_AUTO_DETECT;
constexpr DWORD LAN = vn_network::kNetworkAliveLan, WAN = vn_network::kNetworkAliveWan;
const std::string kManager = "CVnLinkhostConnectionManager::", kConnect = "Error in method [" + kManager + "Connect]. Message: ";
const std::string kDialog = "Error in method [" + kManager + "RasDialogConnect]. Message: ";
const std::string kDisconnect = "Error in method [" + kManager + "Disconnect]. Message: ", kNotFound = "Connection name not f\xEEund.";

// The "ie/proxy/" texts in one line: mode-auto, mode-script, mode-manual, script, exclude, noLocal, address, port.
template <typename Answer>
std::string ProxyKeys(Answer answer)
{
    std::string line;
    for (const char* word : {"mode-auto", "mode-script", "mode-manual", "script", "exclude", "noLocal", "address", "port"})
        line += (line.empty() ? "" : "|") + answer(std::string("ie/proxy/") + word);
    return line;
}
std::string Key(const std::string& key) { return vfc::Narrow(Get(CConfigData(), vfc::Widen(key))); }
int Dials() { return Calls(si::kRasKey, "RasDialA("); }
int HangUps() { return Calls(si::kRasKey, "RasHangUpA("); }
template <typename Run>
int LinesOf(const std::string& line, Run run)
{
    const size_t log = vn_test::LogSize();
    run();
    return vn_test::CountLogLinesSince(log, line.empty() ? kManager : line);
}

TEST(SessionRules, WhatThePlatformMayAnswerBecomesTheProxyFieldsAndTheIeProxyTexts)
{
    // Manual beats script, script beats detection; a per-scheme list is cut like any server text.
    const std::tuple<DWORD, const char*, const char*, int, const char*, int, const char*> cases[] = {
        // flags, script, server, mode, address, port (the record's own is 8081), "ie/proxy/" texts
        {D | P | U | A, nullptr, nullptr, ProxyManual, "", 0, "true|true|true|||||"},
        {D | U | A, "http://wpad/wpad.dat", nullptr, ProxyScript, "", 0, "true|true|false|http://wpad/wpad.dat||||"},
        {D | A, nullptr, nullptr, ProxyAuto, "", 0, "true|false|false|||||"},
        {P, nullptr, "http=a:81;https=b:82", ProxyManual, "http=a", 81, "false|false|true||||http=a|81;https=b:82"},
    };
    for (auto& [flags, script, server, mode, address, port, keys] : cases) {
        vn_settings::TSystemProxySettings system;
        system.m_dwFlags = flags, system.m_bHasScript = script, system.m_bHasServer = server;
        system.m_strScript = script ? script : "", system.m_strServer = server ? server : "";
        CConfigData data = Defaults();
        data.m_DialMode = DialAlways, data.m_SessionFlags = 5, data.m_SkipHeadAuth = true, data.m_ProxyPort = 8081, data.m_ProxyScript = "old";
        CConfigData expected = data;
        expected.m_ProxyMode = mode, expected.m_ProxyAddress = address, expected.m_ProxyPort = port;
        expected.m_ProxyExclude = "", expected.m_ProxyNoLocal = false, expected.m_ProxyScript = script ? script : "";
        vn_settings::ApplySystemProxySettings(system, data);
        EXPECT_EQ(Fields(expected), Fields(data)) << keys;
        EXPECT_EQ(keys, ProxyKeys([&](const std::string& key) { return vn_settings::SystemProxyKeyText(system, key); }));
    }
}

TEST(SessionRules, TheProxyModeNamesAProxyWithItsBypassListOrChoosesADirectConnection)
{
    // Direct dial, mode; status, proxy, bypass list. An unknown mode leaves both texts as they were.
    const std::tuple<LONG, int, HRESULT, const char*, const char*> cases[] = {
        {0, ProxyManual, S_OK, "cache.lan:3128", "a;<local>"}, {0, ProxyNone, S_FALSE, "", ""},
        {0, 7, S_FALSE, "old", "older"}, {1, ProxyManual, S_FALSE, "", ""},
    };
    for (auto& [directDial, mode, status, proxy, bypass] : cases) {
        CConfigData data = Defaults();
        data.m_ProxyMode = mode, data.m_ProxyAddress = "cache.lan", data.m_ProxyPort = 3128, data.m_ProxyExclude = "a;<local>";
        CVnConnectionState::getInstance()->m_DirectDial = directDial;
        std::string givenProxy = "old", givenBypass = "older";
        VnProcessMonitor monitor;
        const HRESULT given = CVnProxyConfigHelper::GetProxyAddress(data, givenProxy, givenBypass, monitor, "http://example/");
        EXPECT_EQ(std::make_tuple(status, std::string(proxy), std::string(bypass)), std::make_tuple(given, givenProxy, givenBypass)) << mode;
        CVnConnectionState::DestroyInstance();
    }
}

TEST(ProxyScriptParts, AnswerLosesItsFirstProxyWordOnlyAndDirectOrNothingElseSaySo)
{
    const std::tuple<const char*, HRESULT, const char*> cases[] = {  // the answer; the status, the proxy
        {"PROXY a:8080", S_OK, "a:8080"}, {"PROXY a:8080; DIRECT", S_OK, "a:8080; DIRECT"}, {"PROXY a:1; PROXY b:2", S_OK, "a:1; PROXY b:2"},
        {"  PROXY \ta:1 \r\n", S_OK, "a:1"}, {"DIRECT; PROXY a:1", S_OK, "DIRECT; a:1"}, {"DIRECT", S_FALSE, ""},
        {"SOCKS s:1", static_cast<HRESULT>(0x8004020D), ""}, {"proxy a:1", static_cast<HRESULT>(0x8004020D), ""},
    };
    for (auto& [answer, status, expected] : cases) {
        std::string proxy = "old";
        const HRESULT given = CVnProxyConfigHelper::GetProxyFromString(answer, proxy);
        EXPECT_EQ(std::make_tuple(status, std::string(expected)), std::make_tuple(given, proxy)) << answer;
    }
}

TEST(ProxyScriptParts, UrlsSplitIntoHostPathWithQueryPortAndScheme)
{
    const std::tuple<const char*, HRESULT, std::string, std::string, INTERNET_PORT, INTERNET_SCHEME> cases[] = {
        {"http://h.example:8080/p/q?x=1&y", S_OK, "h.example", "/p/q?x=1&y", 8080, INTERNET_SCHEME_HTTP},
        {"https://h.example/", S_OK, "h.example", "/", 443, INTERNET_SCHEME_HTTPS},
        {"http://h.example", S_OK, "h.example", "", 80, INTERNET_SCHEME_HTTP},
        // A failure leaves the host the whole URL and the path empty.
        {"ftp://h.example/f", static_cast<HRESULT>(0x80040205), "ftp://h.example/f", "", 0, INTERNET_SCHEME_UNKNOWN},
        {"not a url", static_cast<HRESULT>(0x80040205), "not a url", "", 0, INTERNET_SCHEME_UNKNOWN},
    };
    for (auto& [url, status, host, path, port, scheme] : cases) {
        std::string givenHost = "old", givenPath = "old";
        INTERNET_PORT givenPort = 0;
        INTERNET_SCHEME givenScheme = INTERNET_SCHEME_UNKNOWN;
        const HRESULT given = CVnProxyConfigHelper::GetUrlParts(url, givenHost, givenPath, givenPort, givenScheme);
        EXPECT_EQ(std::make_tuple(status, host, path, port, scheme), std::make_tuple(given, givenHost, givenPath, givenPort, givenScheme)) << url;
    }
    std::string host;
    EXPECT_EQ(S_OK, CVnProxyConfigHelper::GetHostByUrl("h.example:81/x", host));
    EXPECT_EQ("h.example", host) << "a URL without a scheme is taken as HTTP";
}

// The table the platform's script engine calls, in its own layout.
struct HostFunctions {
    BOOL(WINAPI* isResolvable)(LPSTR);
    DWORD(WINAPI* getIPAddress)(LPSTR, LPDWORD);
    DWORD(WINAPI* resolveHostName)(LPSTR, LPSTR, LPDWORD);
    BOOL(WINAPI* isInNet)(LPSTR, LPSTR, LPSTR);
};

TEST(ProxyScriptParts, EngineHostFunctionsResolveNamesAndTestNets)
{
    const HostFunctions& f = **reinterpret_cast<const HostFunctions* const*>(ScriptHostFunctions());
    auto resolve = [&](std::string name, DWORD size) {  // the status, the address, the room asked for
        char text[64] = "";
        const DWORD status = f.resolveHostName(&name[0], text, &size);
        return std::to_string(status) + " " + text + " " + std::to_string(size) + "|";
    };
    EXPECT_EQ("0 127.0.0.1 64|122  10|0 127.0.0.1 64|12007  64|",
              resolve("127.0.0.1", 64) + resolve("127.0.0.1", 3) + resolve("localhost", 64) + resolve("no-such-host.invalid", 64));
    char text[64], localhost[] = "localhost", missing[] = "no-such-host.invalid";
    DWORD size = sizeof text;
    EXPECT_EQ(std::make_tuple(TRUE, FALSE, 0ul), std::make_tuple(f.isResolvable(localhost), f.isResolvable(missing), f.getIPAddress(text, &size)));
    EXPECT_NE(INADDR_NONE, ::inet_addr(text)) << text;
    char net[] = "10.1.0.0", mask[] = "255.255.0.0", in[] = "10.1.2.3", out[] = "10.2.2.3", bad[] = "ten";
    EXPECT_EQ(std::make_tuple(TRUE, FALSE, FALSE), std::make_tuple(f.isInNet(in, net, mask), f.isInNet(out, net, mask), f.isInNet(bad, net, mask)));
}

// The prefix's settings are put back as a fresh prefix has them after each test, and a link this process still owns is hung up.
class Session : public testing::Test {
protected:
    void SetUp() override
    {
        ResetStandIns();
        ASSERT_FALSE(Manager::ConnectionOwned()) << "an earlier test left a dial behind";
        m_record.SetDefaults();
        m_record.m_UseSystemConnection = false, m_record.m_ProxyMode = ProxyScript, m_record.m_ProxyScript = "http://own.pac", m_record.m_ProxyPort = 1234;
        m_record.m_DialMode = DialAlways, m_record.m_DefaultConnection = "Office", m_record.m_SessionFlags = 2, m_record.m_SkipHeadAuth = true;
    }
    void TearDown() override
    {
        State().m_bDialed = false;
        CVnConnectionState::DestroyInstance();
        ResetStandIns();
        Entries({"Office", "Home"}), Connected({"Office", "Home"});
        Manager().DisconnectEntry("Office"), Manager().DisconnectEntry("Home");
        ResetStandIns();
        WriteLanProxy(0, nullptr, nullptr), WriteAutodial(-1, -1);  // as a fresh prefix has them; the key may have been removed
        SetText("RemoteAccess", "InternetProfile", nullptr), SetText("Software\\Microsoft\\RAS AutoDial\\Default", "DefaultInternet", nullptr);
    }
    static CVnConnectionState& State() { return *CVnConnectionState::getInstance(); }
    HRESULT Prepare() { return CVnSessionConnection(&m_work).PrepareConfigData(m_record); }
    HRESULT Check() { return CVnSessionConnection(&m_work).CheckConnection(m_work, nullptr); }

    CConfigData m_record, m_work;
};

// What the system said and what the working record became are traced, and never reach the log.
int Traced(size_t log) { return Count(vn_test::LogSince(log), "IE Settings [") + Count(vn_test::LogSince(log), "cdAWorkData structure"); }

TEST_F(Session, ProxyComesFromTheLanSettingsWhenTheRecordAsksAndTheKeysAnswerTheSame)
{
    const size_t log = vn_test::LogSize();
    // Only the first "<local>" is cut; a server text at its first colon. A disabled proxy has no bypass list. The last row: own settings.
    const std::tuple<DWORD, const char*, const char*, int, const char*, int, const char*, bool, const char*> cases[] = {
        {1, "c.lan:3128:9", "a;<local>;b;<local>", ProxyManual, "c.lan", 3128, "a;;b;<local>", true, "false|false|true||a;;b;<local>|true|c.lan|3128:9"},
        {1, "bare-host", "a;b", ProxyManual, "bare-host", 1234, "a;b", false, "false|false|true||a;b|false|bare-host|bare-host"},
        {0, "kept.lan:81x", "a;<local>", ProxyNone, "kept.lan", 81, "", false, "false|false|false||||kept.lan|81x"},
        {0, nullptr, nullptr, ProxyNone, "", 0, "", false, "false|false|false|||||"},
        {1, "cache.lan:1", "<local>", -1, nullptr, 0, nullptr, false, "false|false|true|||true|cache.lan|1"},
    };
    for (auto& [enabled, server, bypass, mode, address, port, exclude, noLocal, keys] : cases) {
        WriteLanProxy(enabled, server, bypass);
        m_record.m_UseSystemProxy = address;
        CConfigData expected = m_record;
        if (address) {
            expected.m_ProxyMode = mode, expected.m_ProxyAddress = address, expected.m_ProxyPort = port;
            expected.m_ProxyExclude = exclude, expected.m_ProxyNoLocal = noLocal, expected.m_ProxyScript = "";
        }
        ASSERT_EQ(S_OK, Prepare());
        EXPECT_EQ(std::make_tuple(Fields(expected), std::string(keys)), std::make_tuple(Fields(m_work), ProxyKeys(Key)));
    }
    EXPECT_EQ(0, Traced(log));
}

TEST_F(Session, FailedProxyQueryLeavesTheRecordsProxyAndFailsOnlyWithoutTheDialSettings)
{
    const size_t log = vn_test::LogSize();
    ASSERT_EQ(0, ::RegDeleteTreeA(HKEY_CURRENT_USER, kInternetSettings));  // the platform can't answer the query at all
    EXPECT_EQ(E_FAIL, Prepare());
    EXPECT_EQ(Fields(m_record), Fields(m_work));
    m_record.m_UseSystemConnection = true;
    EXPECT_EQ(S_OK, Prepare());
    EXPECT_EQ(std::make_tuple(std::string("proxy"), std::string()), std::make_tuple(m_work.m_ProxyAddress, Key("ie/proxy/address")));
    EXPECT_EQ(E_POINTER, CVnSessionConnection().PrepareConfigData(m_record));
    const std::string failed = "]. Message: InternetQueryOption failed. Error code: ";
    EXPECT_EQ(std::make_tuple(2, 1), std::make_tuple(vn_test::CountLogLinesSince(log, "Error in method [CVnSessionConnection::GetProxyDefault" + failed),
                                                     vn_test::CountLogLinesSince(log, "Error in method [CVnSessionConnection::GetIEProxy" + failed)));
}

TEST_F(Session, DialModeIsTheSumOfTheTwoAutodialValuesAsTheRegistryReaderGivesThem)
{
    int mode = -1;
    for (auto& [enable, noNet, expected, word] : {std::make_tuple(-1, -1, DialNever, "never"), std::make_tuple(0, 1, DialAlways, "always"),
             std::make_tuple(1, 1, DialRequired, "required"), std::make_tuple(0, 2, DialRequired, "required"),
             std::make_tuple(2, 1, DialNever, "never")}) {
        WriteAutodial(enable, noNet);
        EXPECT_EQ(S_OK, CVnSessionConnection::GetIEDialMode(mode));
        EXPECT_EQ(std::make_tuple(int(expected), std::string(word)), std::make_tuple(mode, Key("ie/dialup/mode")));
    }
    WriteAutodial(-1, -1);
    SetReg(kInternetSettings, "EnableAutodial", REG_BINARY, "\x00\x01", 2);  // 2; read as 256 it would be DialNever
    EXPECT_EQ(S_OK, CVnSessionConnection::GetIEDialMode(mode));
    EXPECT_EQ(DialRequired, mode);
    // The reader shifts each byte of a binary by its index in bits, modulo 32; it reads at most 512 bytes, and no other types.
    std::vector<BYTE> wraps(34), last(512);
    wraps[32] = wraps[33] = last[511] = 1;
    for (auto& [type, data, text] : {std::make_tuple(REG_DWORD, std::vector<BYTE>{255, 255, 255, 255}, "4294967295"),
             std::make_tuple(REG_SZ, std::vector<BYTE>{'O', 'n', 'e', 0}, "One"), std::make_tuple(REG_BINARY, std::vector<BYTE>{3, 3, 3}, "21"),
             std::make_tuple(REG_BINARY, wraps, "3"), std::make_tuple(REG_BINARY, last, "2147483648"),
             std::make_tuple(REG_BINARY, std::vector<BYTE>(513, 1), ""), std::make_tuple(REG_SZ, std::vector<BYTE>(600, 'x'), ""),
             std::make_tuple(REG_EXPAND_SZ, std::vector<BYTE>{'%', 0}, "")}) {
        SetReg(kInternetSettings, "EnableAutodial", type, data.data(), data.size());
        EXPECT_EQ(text, vn_settings::RegistryValueText(HKEY_CURRENT_USER, kInternetSettings, "EnableAutodial")) << data.size();
    }
}

// Checked against the platform version this process sees; the test after it runs this one under other versions.
TEST_F(Session, DefaultEntryIsReadWhereThisPlatformVersionKeepsItAndOnlyFromThePhoneBook)
{
    const std::map<std::string, std::string> kEntries = {{"4.10.1", "Profile A"}, {"4.90.1", "Profile A"}, {"4.0.2", "Profile A"},
        {"5.0.2", "Profile A"}, {"5.1.2", "AutoDial B"}, {"5.2.2", "AutoDial B"}, {"6.0.2", "AutoDial B"}};  // later: none
    OSVERSIONINFOA info = {sizeof info, 0, 0, 0, 0, {}};
    ::GetVersionExA(&info);
    const std::string version = std::to_string(info.dwMajorVersion) + "." + std::to_string(info.dwMinorVersion) + "." + std::to_string(info.dwPlatformId);
    const std::string expected = kEntries.count(version) ? kEntries.at(version) : "";
    std::printf("version=%s\n", version.c_str());  // for a parent
    auto names = [](const char* profile, const char* autoDial) {
        SetText("RemoteAccess", "InternetProfile", profile);
        SetText("Software\\Microsoft\\RAS AutoDial\\Default", "DefaultInternet", autoDial);
    };
    Entries({"Profile A", "AutoDial B", "Other"});
    names("Profile A", "AutoDial B");
    std::string entry = "<untouched>";
    EXPECT_EQ(S_OK, CVnSessionConnection::GetIEDefConnection(entry));
    EXPECT_EQ(std::make_tuple(expected, expected), std::make_tuple(entry, Key("ie/dialup/dialConnectionName")));
    m_record.m_UseSystemProxy = false, m_record.m_UseSystemConnection = true;
    WriteAutodial(1, 1);
    const size_t log = vn_test::LogSize();
    ASSERT_EQ(S_OK, Prepare());  // the dial mode comes with the entry
    EXPECT_EQ(std::make_tuple(expected, int(DialRequired)), std::make_tuple(m_work.m_DefaultConnection, m_work.m_DialMode));
    EXPECT_EQ(0, Traced(log));
    // A name the phone book lacks, even in another case, gives nothing; so does an empty phone book.
    for (const char* missing : {"Gone", "autodial b", "profile a", ""}) {
        names(*missing ? missing : "Profile A", *missing ? missing : "AutoDial B");
        Entries(*missing ? Names{"Profile A", "AutoDial B"} : Names{});
        EXPECT_EQ(S_OK, CVnSessionConnection::GetIEDefConnection(entry));
        EXPECT_EQ("", entry) << missing;
    }
}

TEST_F(Session, DefaultEntryFollowsEachPlatformVersion)
{
    for (auto& [wine, version] : {std::make_pair("win98", "4.10.1"), std::make_pair("winme", "4.90.1"), std::make_pair("nt40", "4.0.2"),
             std::make_pair("win2k", "5.0.2"), std::make_pair("winxp64", "5.2.2"), std::make_pair("vista", "6.0.2"), std::make_pair("win10", "6.2.2")}) {
        // A child of this program that the prefix gives the Windows version, through Software\Wine\AppDefaults.
        const std::string program = vn_test::ThisProgram(), key = "Software\\Wine\\AppDefaults\\" + program.substr(program.rfind('\\') + 1);
        SetText(key.c_str(), "Version", wine);
        std::string output;
        vn_test::RunCapture("\"" + program + "\" --gtest_filter=Session.DefaultEntryIsReadWhereThisPlatformVersionKeepsItAndOnlyFromThePhoneBook", output);
        ::RegDeleteTreeA(HKEY_CURRENT_USER, key.c_str());
        EXPECT_TRUE(output.find(std::string("version=") + version) != std::string::npos && output.find("[  PASSED  ] 1 test.") != std::string::npos) << output;
    }
}

TEST_F(Session, StartDialsAndTestsTheNetworkAsTheDialModeSays)
{
    // Mode, interactive (then the user cancels the phone book), alive (-1: no Sensapi.dll), flags, entry, dial error, up already;
    // status, dials, network tests, phone books, dialled, direct dial, owned; the dial-up test of a repeat; hang-ups at the end.
    const std::tuple<int, bool, int, DWORD, const char*, DWORD, bool, std::tuple<HRESULT, int, int, int, bool, LONG, bool>, HRESULT, int> cases[] = {
        {DialNever, 0, FALSE, 0, "Office", 0, 0, {VN_E_NOT_CONNECTED, 0, 1, 0, false, 0, false}, VN_E_NOT_CONNECTED, 0},
        {DialNever, 0, TRUE, WAN, "Office", 0, 0, {S_OK, 0, 1, 0, false, 1, false}, S_OK, 0},
        {DialRequired, 0, TRUE, LAN, "Office", 0, 1, {S_OK, 0, 1, 0, false, 0, false}, S_FALSE, 0},
        {DialRequired, 0, FALSE, 0, "Office", 0, 0, {S_OK, 1, 1, 0, true, 1, true}, VN_E_NOT_CONNECTED, 1},
        {DialRequired, 0, FALSE, 0, "", 0, 0, {VN_E_NOT_CONNECTED, 0, 1, 0, false, 0, false}, VN_E_NOT_CONNECTED, 0},
        {DialRequired, 0, FALSE, 0, "Nowhere", 0, 0, {VN_E_NOT_CONNECTED, 0, 1, 0, false, 0, false}, VN_E_NOT_CONNECTED, 0},
        {DialRequired, 0, FALSE, 0, "Office", 678, 0, {VN_E_DIAL_FAILED, 1, 1, 0, false, 0, false}, VN_E_NOT_CONNECTED, 0},
        {DialRequired, 0, -1, 0, "Office", 0, 0, {VN_E_NOT_AVAILABLE, 0, 0, 0, false, 0, false}, VN_E_NOT_AVAILABLE, 0},
        {DialAlways, 0, TRUE, LAN, "Office", 0, 0, {S_OK, 1, 0, 0, true, 1, true}, S_FALSE, 1},
        {DialAlways, 0, TRUE, LAN, "Office", 0, 1, {S_OK, 0, 0, 0, true, 1, false}, S_FALSE, 0},
        {DialAlways, 0, TRUE, LAN, "", 0, 0, {S_OK, 0, 2, 0, false, 0, false}, S_FALSE, 0},
        {DialAlways, 0, FALSE, 0, "Office", 678, 0, {VN_E_NOT_CONNECTED, 1, 1, 0, false, 0, false}, VN_E_NOT_CONNECTED, 0},
        {DialAlways, 0, TRUE, LAN, "Office", 678, 0, {S_OK, 1, 2, 0, false, 0, false}, S_FALSE, 0},
        {DialAlways, 1, TRUE, LAN, "Office", 678, 0, {VN_E_DIAL_CANCELLED, 1, 0, 1, false, 0, false}, S_FALSE, 0},
    };
    for (auto& [mode, interactive, alive, flags, entry, dialError, upAlready, outcome, dialUp, hangUpsAtEnd] : cases) {
        TearDown();
        Entries({"Office", "Home"});
        Connected(upAlready ? Names{"Office"} : Names{});
        Network(alive, flags);
        si::WriteDword(si::kRasKey, "DialError", dialError);
        si::WriteDword(si::kRasdlgKey, "Answer", !interactive);
        m_work = Defaults(), m_work.m_DialMode = mode, m_work.m_DefaultConnection = entry, m_work.m_SessionFlags = interactive;
        State().m_DirectDial = 1;  // each check clears it first
        const HRESULT status = Check();
        EXPECT_EQ(std::make_tuple(outcome, std::string(std::get<4>(outcome) ? entry : "")), std::make_tuple(std::make_tuple(status, Dials(),
                  Calls(si::kSensapiKey, "IsNetworkAlive="), Calls(si::kRasdlgKey, "RasPhonebookDlgA("), State().m_bDialed, State().m_DirectDial,
                  Manager::ConnectionOwned()), State().m_strEntry)) << mode << entry << dialError;
        DWORD given = 99;
        BOOL answer = FALSE;
        const int lines = LinesOf("Error in method [CVnSensNetworkManager::IsNetworkAliveDynamic]. Message: No find function in DLL.",
                                  [&] { answer = CVnSensNetworkManager::IsNetworkAliveDynamic(&given); });
        EXPECT_EQ(std::make_tuple(dialUp, alive > 0, flags, alive < 0 ? 1 : 0),
                  std::make_tuple(CVnSessionConnection::IsDialUpActive(), answer != FALSE, given, lines));
        ResetStandIns(si::kCalls);
        EXPECT_EQ(S_OK, CVnConnectionState::DestroyInstance());
        EXPECT_EQ(std::make_tuple(hangUpsAtEnd, false, upAlready, false), std::make_tuple(HangUps(), Manager::ConnectionOwned(), !Connected().empty(),
                  State().m_bDialed || State().m_DirectDial || !State().m_strEntry.empty()));  // the next use makes a fresh state
    }
    // A dial for a repeated request marks the state as dialled without naming the entry: the link stays up.
    TearDown();
    Entries({"Office"});
    Network(FALSE, 0);
    m_work = Defaults(), m_work.m_DefaultConnection = "Office";
    ASSERT_EQ(S_OK, Check());
    State().m_strEntry.clear();
    ResetStandIns(si::kCalls);
    EXPECT_EQ(1, LinesOf(kDisconnect + kNotFound, [] { EXPECT_EQ(S_FALSE, CVnConnectionState::DestroyInstance()); }));
    EXPECT_EQ(std::make_tuple(0, Names{"Office"}), std::make_tuple(HangUps(), Connected()));
}

TEST_F(Session, ManagerDialGivesItsStatusAndAsksThePlatformAccordingly)
{
    // Entries, links up, RAS controls, the user in the phone book (-1: no Rasdlg.dll, 0 cancels, 1 dials "Home"), entry,
    // interactive, with the phone book, it is shown; status, owned, dials, links up after; RAS calls ("": none), log line.
    const Names book = {"Office", "Home"};
    const Names forty(40, "Entry");  // more than the first call of the enumeration has room for
    const std::string enumeration = "RasEnumEntriesA(" + std::to_string(sizeof(vn_ras::TRasEntryName)) + ")=603;RasEnumEntriesA(" +
                                    std::to_string(40 * sizeof(vn_ras::TRasEntryName)) + ")=0;";
    const std::tuple<Names, Names, std::vector<std::pair<const char*, DWORD>>, int, const char*, bool, bool, bool,
                     std::tuple<HRESULT, bool, int, Names>, const char*, std::string> cases[] = {
        {forty, {}, {}, 1, "Entry", false, false, false, {S_OK, true, 1, {"Entry"}}, enumeration.c_str(), ""},
        {book, {"Office"}, {{"ConnState", 0x1000}}, 1, "Office", false, false, false, {S_OK, true, 1, {"Office"}}, nullptr, ""},  // up, but paused
        {book, {}, {}, 1, "Home", false, false, false, {S_OK, true, 1, {"Home"}}, "RasGetEntryDialParamsA(Home)=0;RasDialA(Home,user of Home)=0;", ""},
        {book, {"Office"}, {}, 1, "Office", false, false, false, {S_OK, false, 0, {"Office"}}, nullptr, ""},
        {book, {}, {}, 1, "office", true, false, false, {S_FALSE, false, 0, {}}, nullptr, kConnect + kNotFound},
        {book, {}, {{"DialError", 678}}, 1, "Office", false, false, false, {VN_E_DIAL_FAILED, false, 1, {}},
         "RasDialA(Office,user of Office)=678;RasHangUpA(Office)=0;", kConnect + "Stand-in dial error 678 Error code: 678."},
        {book, {}, {{"DialError", 678}}, 1, "Office", true, false, true, {S_OK, true, 1, {"Home"}}, nullptr,
         kConnect + "Stand-in dial error 678 Error code: 678."},
        {book, {}, {}, 0, "", true, true, true, {VN_E_DIAL_CANCELLED, false, 0, {}}, nullptr, kDialog + "User pressed \"Cancel\"."},
        {{}, {}, {}, 1, "", true, true, false, {VN_E_DIAL_FAILED, false, 0, {}}, nullptr, ""},
        {book, {"Office"}, {{si::kUnloadable, 1}}, 1, "Office", false, false, false, {VN_E_NOT_AVAILABLE, false, 0, {"Office"}}, "",
         kConnect + "Faile to load RAS dll."},
        // Wine's InternetDial reports success at once and hands out no connection number.
        {book, {}, {{si::kUnloadable, 1}}, 1, "Office", true, false, false, {S_OK, false, 0, {}}, "", kConnect + "Faile to load RAS dll."},
        {book, {}, {{"DialError", 678}}, -1, "Office", false, false, false, {VN_E_NOT_AVAILABLE, false, 1, {}}, "RasHangUpA(Office)=0;",
         kDialog + "Faile to find RasPhonebookDlg."},
    };
    const HWND window = ::GetDesktopWindow();
    for (auto& [entries, up, ras, phoneBook, entry, interactive, dialog, shownToUser, outcome, journal, logLine] : cases) {
        TearDown();
        Entries(entries);
        Connected(up);
        for (auto& control : ras)
            si::WriteDword(si::kRasKey, control.first, control.second);
        si::WriteDword(si::kRasdlgKey, phoneBook < 0 ? si::kUnloadable : "Answer", phoneBook != 0);
        si::WriteText(si::kRasdlgKey, "Dials", "Home");
        HRESULT status = E_UNEXPECTED;
        EXPECT_EQ(logLine.empty() ? 0 : 1, LinesOf(logLine, [&] { status = Manager().Connect(entry, window, interactive, dialog); }));
        EXPECT_EQ(outcome, std::make_tuple(status, Manager::ConnectionOwned(), Dials(), Connected())) << entry << logLine;
        EXPECT_TRUE(!journal || (*journal ? Journal(si::kRasKey).find(journal) != std::string::npos : Journal(si::kRasKey).empty()))
            << Journal(si::kRasKey);
        char shown[96] = "";
        if (shownToUser)
            std::snprintf(shown, sizeof shown, "RasPhonebookDlgA(%u,%llx)=%d;", unsigned(sizeof(vn_ras::TRasPhonebookDlg)),
                          static_cast<unsigned long long>(reinterpret_cast<ULONG_PTR>(window)), phoneBook);
        EXPECT_EQ(shown, Journal(si::kRasdlgKey));
    }
}

TEST_F(Session, HangUpEndsOnlyThisProcesssOwnLinkAndServesTheThreadsMessagesUntilItsHandleDies)
{
    // Dialled by this process, or up already; a control set to 3 (HangUpPolls: the handle dies three queries after the
    // hang-up); the entry; status, hang-ups, owned, still up; log line. Only the wait after a hang-up serves messages.
    const std::tuple<bool, const char*, const char*, std::tuple<HRESULT, int, bool, bool>, std::string> cases[] = {
        {true, "HangUpPolls", "Office", {S_OK, 1, false, false}, ""},
        {false, "", "Office", {S_OK, 0, false, true}, "Warning in method [" + kManager + "Disconnect]. Message: Connection was created by another process."},
        {true, "DeadHandles", "Office", {VN_E_HANGUP_FAILED, 0, true, true}, kDisconnect + "RasGetConnectStatus returns ERROR_INVALID_HANDLE."},
        {true, "", "Home", {S_FALSE, 0, true, true}, kDisconnect + kNotFound},
    };
    MSG message;
    ::PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE);  // gives the thread its queue
    for (auto& [own, control, entry, outcome, logLine] : cases) {
        TearDown();
        Entries({"Office", "Home"});
        Connected(own ? Names{} : Names{"Office"});
        ASSERT_EQ(S_OK, Manager().Connect("Office", nullptr, false, false));
        si::WriteDword(si::kRasKey, control, 3);
        ResetStandIns(si::kCalls);
        ASSERT_TRUE(::PostThreadMessageA(::GetCurrentThreadId(), WM_APP, 0, 0));
        HRESULT status = E_UNEXPECTED;
        EXPECT_EQ(logLine.empty() ? 0 : 1, LinesOf(logLine, [&] { status = Manager().Disconnect(entry); }));
        EXPECT_EQ(outcome, std::make_tuple(status, HangUps(), Manager::ConnectionOwned(), Connected() == Names{"Office"})) << entry << control;
        const std::string calls = Journal(si::kRasKey), after = calls.substr(std::min(calls.find("RasHangUpA"), calls.size()));
        const bool hungUp = std::get<1>(outcome) != 0;
        EXPECT_EQ(hungUp ? std::make_tuple(3, 1) : std::make_tuple(0, 0),
                  std::make_tuple(Count(after, "RasGetConnectStatusA(Office)=0;"), Count(after, "RasGetConnectStatusA(Office)=6;")));
        EXPECT_EQ(!hungUp, ::PeekMessageA(&message, nullptr, WM_APP, WM_APP, PM_REMOVE) != FALSE) << "only the wait serves the messages";
    }
}

}  // namespace
