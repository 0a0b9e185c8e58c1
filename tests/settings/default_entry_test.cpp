// The system's default dial-up entry: where it is read depends on the
// platform version, and it is used only if the phone book (the stand-in RAS)
// has an entry of exactly that name. A process's version is fixed when it
// starts, so each version runs in a child of this program, started with the
// prefix's per-program Windows version (Software\Wine\AppDefaults); the
// child runs the one disabled probe below and writes what it saw to
// HKCU\Software\VnLinkhostTest\Probe.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "common/test_util.h"
#include "host/status.h"
#include "settings/connection_state.h"
#include "settings/session_connection.h"
#include "tests/settings/settings_support.h"

using namespace vn_settings_test;

namespace {

constexpr const char* kProbeKey = "Software\\VnLinkhostTest\\Probe";
constexpr const char* kProfileKey = "RemoteAccess";
constexpr const char* kAutoDialKey = "Software\\Microsoft\\RAS AutoDial\\Default";

std::string ProgramName()
{
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string full = path;
    return full.substr(full.find_last_of('\\') + 1);
}

struct TProbeAnswer {
    bool ran = false;
    std::string version;  // "major.minor.platform"
    DWORD status = 0;
    std::string entry;
    std::string key;      // "ie/dialup/dialConnectionName"
    std::string sessionEntry;
    DWORD checkStatus = 0;
};

class DefaultDialEntry : public ::testing::Test {
protected:
    void SetUp() override
    {
        TStandIns::Reset();
        ::RegDeleteTreeA(HKEY_CURRENT_USER, kProbeKey);
        TStandIns::Entries({"Profile A", "AutoDial B", "Other"});
        SetText(HKEY_CURRENT_USER, kProfileKey, "InternetProfile", "Profile A");
        SetText(HKEY_CURRENT_USER, kAutoDialKey, "DefaultInternet", "AutoDial B");
        WriteAutodial(-1, -1);
    }
    void TearDown() override
    {
        ::RegDeleteTreeA(HKEY_CURRENT_USER, m_appDefaults.c_str());
        ::RegDeleteTreeA(HKEY_CURRENT_USER, kProbeKey);
        TStandIns::Reset();
    }

    // Runs the probe in a child that the prefix gives the named Windows version.
    TProbeAnswer RunUnder(const char* wineVersion)
    {
        SetText(HKEY_CURRENT_USER, m_appDefaults.c_str(), "Version", wineVersion);
        ::RegDeleteTreeA(HKEY_CURRENT_USER, kProbeKey);
        std::string output;
        DWORD code = vn_test::RunCapture("\"" + vn_test::BinDir() + "\\" + ProgramName() +
                                             "\" --gtest_also_run_disabled_tests"
                                             " --gtest_filter=DefaultEntryProbe.DISABLED_ReportsForThisProcess",
                                         output, 60000);
        EXPECT_EQ(0u, code) << output;
        TProbeAnswer answer;
        answer.ran = vn_standin::ReadDword(kProbeKey, "Ran", 0) != 0;
        answer.version = vn_standin::ReadText(kProbeKey, "Version");
        answer.status = vn_standin::ReadDword(kProbeKey, "Status", 0xFFFFFFFF);
        answer.entry = vn_standin::ReadText(kProbeKey, "Entry");
        answer.key = vn_standin::ReadText(kProbeKey, "Key");
        answer.sessionEntry = vn_standin::ReadText(kProbeKey, "SessionEntry");
        answer.checkStatus = vn_standin::ReadDword(kProbeKey, "CheckStatus", 0xFFFFFFFF);
        EXPECT_TRUE(answer.ran) << output;
        return answer;
    }

    TSystemSettingsGuard m_guard;
    const std::string m_appDefaults = "Software\\Wine\\AppDefaults\\" + ProgramName();
};

}  // namespace

// Runs only in the children started above. It reports the platform version
// it sees, the default entry, the key's answer, and what a session that
// takes everything from the system makes of it: its entry and the status of
// its connection check (a dial is hung up again before the child ends).
TEST(DefaultEntryProbe, DISABLED_ReportsForThisProcess)
{
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof version;
    ASSERT_TRUE(::GetVersionExA(&version));
    vn_standin::WriteText(kProbeKey, "Version",
                          std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
                              std::to_string(version.dwPlatformId));
    std::string entry = "<untouched>";
    vn_standin::WriteDword(kProbeKey, "Status", static_cast<DWORD>(CVnSessionConnection::GetIEDefConnection(entry)));
    vn_standin::WriteText(kProbeKey, "Entry", entry);
    vn_standin::WriteText(kProbeKey, "Key", CVnSessionConnection::GetIEDialUp("ie/dialup/dialConnectionName"));

    CConfigData record;
    record.SetDefaults();
    record.m_UseSystemProxy = false;
    CConfigData work;
    CVnSessionConnection connection(&work);
    ASSERT_EQ(S_OK, connection.PrepareConfigData(record));
    vn_standin::WriteText(kProbeKey, "SessionEntry", work.m_DefaultConnection);
    vn_standin::WriteDword(kProbeKey, "CheckStatus", static_cast<DWORD>(connection.CheckConnection(work, nullptr)));
    CVnConnectionState::DestroyInstance();
    vn_standin::WriteDword(kProbeKey, "Ran", 1);
}

TEST_F(DefaultDialEntry, EachPlatformVersionReadsItsOwnPlace)
{
    struct {
        const char* wine;
        const char* version;
        const char* entry;
    } cases[] = {
        {"win98", "4.10.1", "Profile A"}, {"winme", "4.90.1", "Profile A"},   {"nt40", "4.0.2", "Profile A"},
        {"win2k", "5.0.2", "Profile A"},  {"winxp", "5.1.2", "AutoDial B"},   {"winxp64", "5.2.2", "AutoDial B"},
        {"vista", "6.0.2", "AutoDial B"}, {"win7", "6.1.2", ""},              {"win10", "6.2.2", ""},
    };
    for (auto& c : cases) {
        TProbeAnswer answer = RunUnder(c.wine);
        ASSERT_EQ(c.version, answer.version) << c.wine << ": the prefix did not give the version asked for";
        EXPECT_EQ(0u, answer.status) << c.wine;
        EXPECT_EQ(c.entry, answer.entry) << c.wine;
        EXPECT_EQ(c.entry, answer.key) << c.wine;
        EXPECT_EQ(c.entry, answer.sessionEntry) << c.wine;
    }
}

TEST_F(DefaultDialEntry, NameOutsideThePhoneBookIsDropped)
{
    SetText(HKEY_CURRENT_USER, kAutoDialKey, "DefaultInternet", "Gone");
    TProbeAnswer answer = RunUnder("winxp");
    EXPECT_EQ(0u, answer.status);
    EXPECT_EQ("", answer.entry);
    EXPECT_EQ("", answer.key);

    SetText(HKEY_CURRENT_USER, kAutoDialKey, "DefaultInternet", "autodial b");  // the case differs
    answer = RunUnder("winxp");
    EXPECT_EQ("", answer.entry);
}

TEST_F(DefaultDialEntry, EmptyPhoneBookMeansNoLookupAtAll)
{
    TStandIns::Entries({});
    size_t offset = vn_test::LogSize();
    TProbeAnswer answer = RunUnder("winxp");
    EXPECT_EQ(0u, answer.status);
    EXPECT_EQ("", answer.entry);
    EXPECT_EQ(0, vn_test::CountLogLinesSince(offset, "IE Settings [Ras DefaultConnection]"));

    TStandIns::Entries({"AutoDial B"});
    offset = vn_test::LogSize();
    answer = RunUnder("winxp");
    EXPECT_EQ("AutoDial B", answer.entry);
    // Three lookups in the child: the call, the key, and the session.
    EXPECT_EQ(3, vn_test::CountLogLinesSince(
                     offset, "Info about method [CVnSessionConnection::GetIEDefConnection]. IE Settings [Ras DefaultConnection]: "
                             "AutoDial B, May be you don't have such connection"));
}

TEST_F(DefaultDialEntry, DialAlwaysDialsTheDefaultEntryOnlyWhereOneIsRead)
{
    WriteAutodial(1, 0);  // DialAlways
    TProbeAnswer answer = RunUnder("winxp");
    EXPECT_EQ("AutoDial B", answer.sessionEntry);
    EXPECT_EQ(0u, answer.checkStatus);
    std::string calls = TStandIns::RasCalls();
    EXPECT_EQ(1, Occurrences(calls, "RasDialA(AutoDial B,")) << calls;
    EXPECT_EQ(1, Occurrences(calls, "RasHangUpA(AutoDial B)")) << calls;
    EXPECT_EQ("", TStandIns::SensapiCalls());

    // On 6.1 the default entry is always empty: straight to the network test.
    TStandIns::ClearCalls();
    answer = RunUnder("win7");
    EXPECT_EQ("", answer.sessionEntry);
    EXPECT_EQ(0u, answer.checkStatus);
    EXPECT_EQ(0, Occurrences(TStandIns::RasCalls(), "RasDialA("));
    EXPECT_EQ(2, Occurrences(TStandIns::SensapiCalls(), "IsNetworkAlive="));
}
