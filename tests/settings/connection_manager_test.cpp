// The dial-up manager against the stand-in RASAPI32.DLL and Rasdlg.dll,
// whose phone book, connections and answers each test writes; the
// stand-ins' journals show what the manager asked of the platform. Without
// RAS the manager falls back on the internet client's real InternetDial.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "common/test_util.h"
#include "host/status.h"
#include "settings/connection_manager.h"
#include "settings/network_alive.h"
#include "tests/settings/settings_support.h"

using namespace vn_settings_test;

namespace {

class DialUpManager : public TDialFixture {
protected:
    CVnLinkhostConnectionManager m_manager;
};

std::vector<std::string> Names(int count)
{
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i)
        names.push_back("Entry " + std::to_string(i + 1));
    return names;
}

// A message-only window of the test thread that notes whether a posted
// message reached it.
class TNotingWindow {
public:
    static constexpr UINT kMessage = WM_APP + 17;

    TNotingWindow()
    {
        WNDCLASSA wc = {};
        wc.lpfnWndProc = Proc;
        wc.hInstance = ::GetModuleHandleA(nullptr);
        wc.lpszClassName = "VnSettingsTestWindow";
        ::RegisterClassA(&wc);
        m_hwnd = ::CreateWindowA(wc.lpszClassName, "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, wc.hInstance, nullptr);
        s_received = false;
    }
    ~TNotingWindow() { ::DestroyWindow(m_hwnd); }
    HWND hwnd() const { return m_hwnd; }
    static bool received() { return s_received; }

private:
    static LRESULT CALLBACK Proc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam)
    {
        if (message == kMessage)
            s_received = true;
        return ::DefWindowProcA(hwnd, message, wParam, lParam);
    }
    HWND m_hwnd = nullptr;
    static bool s_received;
};
bool TNotingWindow::s_received = false;

}  // namespace

TEST(StandIns, AreTheOnesThisProgramLoads)
{
    // Wine's own Sensapi always says "LAN"; the stand-in says what it is told.
    TStandIns::Reset();
    TStandIns::Network(TRUE, vn_network::kNetworkAliveWan);
    DWORD flags = 0;
    EXPECT_EQ(vn_network::TNetworkAnswer::Alive, vn_network::AskNetworkAlive(flags));
    EXPECT_EQ(vn_network::kNetworkAliveWan, flags)
        << "the stand-in Sensapi.dll is not in use: run with WINEDLLOVERRIDES=sensapi,rasapi32,rasdlg=n";
    std::vector<std::string> entries;
    TStandIns::Entries({"Probe"});
    CVnLinkhostConnectionManager().GetConnections(entries);
    EXPECT_EQ(std::vector<std::string>{"Probe"}, entries)
        << "the stand-in RASAPI32.DLL is not in use: run with WINEDLLOVERRIDES=sensapi,rasapi32,rasdlg=n";
    TStandIns::Reset();
}

TEST_F(DialUpManager, FortyEntriesAreListedThroughTheSecondCall)
{
    TStandIns::Entries(Names(40));
    std::vector<std::string> entries;
    m_manager.GetConnections(entries);
    EXPECT_EQ(Names(40), entries);
    const std::string one = std::to_string(sizeof(vn_ras::TRasEntryName));
    const std::string forty = std::to_string(40 * sizeof(vn_ras::TRasEntryName));
    EXPECT_EQ("RasEnumEntriesA(" + one + ")=603;RasEnumEntriesA(" + forty + ")=0;", TStandIns::RasCalls());
}

TEST_F(DialUpManager, OneEntryFitsTheFirstCall)
{
    TStandIns::Entries({"Office"});
    std::vector<std::string> entries{"stale"};
    m_manager.GetConnections(entries);
    EXPECT_EQ(std::vector<std::string>{"Office"}, entries);
    EXPECT_EQ(1, Occurrences(TStandIns::RasCalls(), "RasEnumEntriesA("));
}

TEST_F(DialUpManager, EmptyPhoneBookGivesAnEmptyList)
{
    std::vector<std::string> entries{"stale"};
    m_manager.GetConnections(entries);
    EXPECT_TRUE(entries.empty());
}

TEST_F(DialUpManager, IsConnectedNeedsTheConnectedState)
{
    TStandIns::Entries({"Office", "Home"});
    TStandIns::Connected({"Home"});
    EXPECT_TRUE(m_manager.IsConnected("Home"));
    EXPECT_FALSE(m_manager.IsConnected("Office"));
    EXPECT_FALSE(m_manager.IsConnected("home"));
    EXPECT_NE(nullptr, m_manager.FindConnection("Home"));
    EXPECT_EQ(nullptr, m_manager.FindConnection("Office"));

    TStandIns::Ras("ConnState", 0x1000);  // paused: there, but not connected
    EXPECT_FALSE(m_manager.IsConnected("Home"));
    EXPECT_NE(nullptr, m_manager.FindConnection("Home"));
}

TEST_F(DialUpManager, ManyConnectionsAreWalkedThroughTheSecondCall)
{
    TStandIns::Entries(Names(5));
    TStandIns::Connected({"Entry 1", "Entry 2", "Entry 3", "Entry 4", "Entry 5"});
    EXPECT_TRUE(m_manager.IsConnected("Entry 5"));
    const std::string one = std::to_string(sizeof(vn_ras::TRasConn));
    const std::string five = std::to_string(5 * sizeof(vn_ras::TRasConn));
    EXPECT_EQ(0u, TStandIns::RasCalls().find("RasEnumConnectionsA(" + one + ")=603;RasEnumConnectionsA(" + five + ")=0;"))
        << TStandIns::RasCalls();
}

TEST_F(DialUpManager, DialConnectsTheEntryWithItsStoredLoginAndOwnsIt)
{
    TStandIns::Entries({"Office", "Home"});
    ASSERT_EQ(S_OK, m_manager.Connect("Home", nullptr, false, false));
    std::string calls = TStandIns::RasCalls();
    EXPECT_NE(std::string::npos, calls.find("RasGetEntryDialParamsA(Home)=0;RasDialA(Home,user of Home)=0;")) << calls;
    EXPECT_TRUE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_TRUE(m_manager.IsConnected("Home"));
    EXPECT_FALSE(m_manager.IsConnected("Office"));
}

TEST_F(DialUpManager, OwnDialIsHungUpAndGivenUp)
{
    TStandIns::Entries({"Office"});
    ASSERT_EQ(S_OK, m_manager.Connect("Office", nullptr, false, false));
    TStandIns::ClearCalls();
    EXPECT_EQ(S_OK, m_manager.Disconnect("Office"));
    EXPECT_EQ(1, Occurrences(TStandIns::RasCalls(), "RasHangUpA(Office)"));
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_TRUE(TStandIns::Connected().empty());
}

TEST_F(DialUpManager, AlreadyConnectedEntryIsUsedAndNeverHungUp)
{
    TStandIns::Entries({"Office"});
    TStandIns::Connected({"Office"});
    EXPECT_EQ(S_OK, m_manager.Connect("Office", nullptr, false, false));
    EXPECT_EQ(0, Occurrences(TStandIns::RasCalls(), "RasDialA("));
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());

    size_t offset = vn_test::LogSize();
    EXPECT_EQ(S_OK, m_manager.Disconnect("Office"));
    EXPECT_EQ(0, Occurrences(TStandIns::RasCalls(), "RasHangUpA("));
    EXPECT_EQ(std::vector<std::string>{"Office"}, TStandIns::Connected());
    EXPECT_EQ(1, vn_test::CountLogLinesSince(offset, "Warning in method [CVnLinkhostConnectionManager::Disconnect]. "
                                                     "Message: Connection was created by another process."));
}

TEST_F(DialUpManager, UnknownEntryGivesStatusOneWithoutDialling)
{
    TStandIns::Entries({"Office"});
    size_t offset = vn_test::LogSize();
    EXPECT_EQ(S_FALSE, m_manager.Connect("Nowhere", nullptr, true, false));
    EXPECT_EQ(S_FALSE, m_manager.Connect("office", nullptr, true, false));  // names compare exactly
    EXPECT_EQ(0, Occurrences(TStandIns::RasCalls(), "RasDialA("));
    EXPECT_EQ("", TStandIns::RasdlgCalls());
    EXPECT_EQ(2, vn_test::CountLogLinesSince(offset, "Error in method [CVnLinkhostConnectionManager::Connect]. "
                                                     "Message: Connection name not f\xEEund."));
}

TEST_F(DialUpManager, FailedDialInBackgroundFreesThePortAndFails)
{
    TStandIns::Entries({"Office"});
    TStandIns::Ras("DialError", 678);
    size_t offset = vn_test::LogSize();
    EXPECT_EQ(VN_E_DIAL_FAILED, m_manager.Connect("Office", nullptr, false, false));
    std::string calls = TStandIns::RasCalls();
    EXPECT_NE(std::string::npos, calls.find("RasDialA(Office,user of Office)=678;RasHangUpA(Office)=0;")) << calls;
    EXPECT_EQ("", TStandIns::RasdlgCalls());  // no dialog without a user
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_EQ(1, vn_test::CountLogLinesSince(offset, "Error in method [CVnLinkhostConnectionManager::Connect]. "
                                                     "Message: Stand-in dial error 678 Error code: 678."));
}

TEST_F(DialUpManager, DialErrorWithoutTextIsLoggedAsUndefined)
{
    TStandIns::Entries({"Office"});
    TStandIns::Ras("DialError", 680);
    TStandIns::Ras("NoErrorText", 1);
    size_t offset = vn_test::LogSize();
    EXPECT_EQ(VN_E_DIAL_FAILED, m_manager.Connect("Office", nullptr, false, false));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(offset, "Message: Undefined RAS Dial Error Error code: 680."));
}

TEST_F(DialUpManager, FailedDialWithAUserOffersThePhoneBook)
{
    TNotingWindow window;
    TStandIns::Entries({"Office", "Home"});
    TStandIns::Ras("DialError", 678);
    TStandIns::Rasdlg("Answer", 1);
    TStandIns::RasdlgDials("Home");
    EXPECT_EQ(S_OK, m_manager.Connect("Office", window.hwnd(), true, false));
    char expected[96];
    std::snprintf(expected, sizeof expected, "RasPhonebookDlgA(%u,%llx)=1;", static_cast<unsigned>(sizeof(vn_ras::TRasPhonebookDlg)),
                  static_cast<unsigned long long>(reinterpret_cast<ULONG_PTR>(window.hwnd())));
    EXPECT_EQ(expected, TStandIns::RasdlgCalls());
    EXPECT_TRUE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_EQ(std::vector<std::string>{"Home"}, TStandIns::Connected());
}

TEST_F(DialUpManager, PhoneBookCancelledByTheUser)
{
    TStandIns::Entries({"Office"});
    size_t offset = vn_test::LogSize();
    EXPECT_EQ(VN_E_DIAL_CANCELLED, m_manager.Connect("", nullptr, true, true));
    EXPECT_EQ(1, Occurrences(TStandIns::RasdlgCalls(), "RasPhonebookDlgA("));
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_EQ(1, vn_test::CountLogLinesSince(offset, "Error in method [CVnLinkhostConnectionManager::RasDialogConnect]. "
                                                     "Message: User pressed \"Cancel\"."));
}

TEST_F(DialUpManager, PhoneBookIsNotShownWithoutAUserOrWithoutEntries)
{
    TStandIns::Rasdlg("Answer", 1);
    EXPECT_EQ(VN_E_DIAL_FAILED, m_manager.RasDialogConnect(nullptr, true));  // empty phone book
    TStandIns::Entries({"Office"});
    EXPECT_EQ(VN_E_DIAL_FAILED, m_manager.RasDialogConnect(nullptr, false));
    EXPECT_EQ("", TStandIns::RasdlgCalls());
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());
}

TEST_F(DialUpManager, HangUpServesTheThreadsWindowsUntilTheHandleDies)
{
    TStandIns::Entries({"Office"});
    ASSERT_EQ(S_OK, m_manager.Connect("Office", nullptr, false, false));
    TStandIns::Ras("HangUpPolls", 3);
    TStandIns::ClearCalls();
    TNotingWindow window;
    ASSERT_TRUE(::PostMessageA(window.hwnd(), TNotingWindow::kMessage, 0, 0));

    EXPECT_EQ(S_OK, m_manager.Disconnect("Office"));
    EXPECT_TRUE(TNotingWindow::received()) << "the wait did not serve the thread's messages";
    std::string calls = TStandIns::RasCalls();
    std::string afterHangUp = calls.substr(calls.find("RasHangUpA(Office)=0;"));
    EXPECT_EQ(3, Occurrences(afterHangUp, "RasGetConnectStatusA(Office)=0;")) << calls;
    EXPECT_EQ(1, Occurrences(afterHangUp, "RasGetConnectStatusA(Office)=6;")) << calls;
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_TRUE(TStandIns::Connected().empty());
}

TEST_F(DialUpManager, HandleThatDiedFailsTheHangUpAndKeepsOwnership)
{
    TStandIns::Entries({"Office"});
    ASSERT_EQ(S_OK, m_manager.Connect("Office", nullptr, false, false));
    TStandIns::Ras("DeadHandles", 1);
    TStandIns::ClearCalls();
    size_t offset = vn_test::LogSize();
    EXPECT_EQ(VN_E_HANGUP_FAILED, m_manager.Disconnect("Office"));
    EXPECT_EQ(0, Occurrences(TStandIns::RasCalls(), "RasHangUpA("));
    EXPECT_TRUE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_EQ(1, vn_test::CountLogLinesSince(offset, "Error in method [CVnLinkhostConnectionManager::Disconnect]. "
                                                     "Message: RasGetConnectStatus returns ERROR_INVALID_HANDLE."));
}

TEST_F(DialUpManager, HangUpOfAnEntryWithoutConnectionEndsAsNotFound)
{
    TStandIns::Entries({"Office", "Home"});
    ASSERT_EQ(S_OK, m_manager.Connect("Office", nullptr, false, false));
    size_t offset = vn_test::LogSize();
    EXPECT_EQ(S_FALSE, m_manager.Disconnect("Home"));
    EXPECT_EQ(S_FALSE, m_manager.Disconnect(""));
    EXPECT_TRUE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_EQ(2, vn_test::CountLogLinesSince(offset, "Error in method [CVnLinkhostConnectionManager::Disconnect]. "
                                                     "Message: Connection name not f\xEEund."));
}

TEST_F(DialUpManager, WithoutRasNothingIsListedAndBackgroundDialsAreNotAvailable)
{
    TStandIns::Entries({"Office"});
    TStandIns::Connected({"Office"});
    TStandIns::Ras(vn_standin::kUnloadable, 1);
    std::vector<std::string> entries{"stale"};
    m_manager.GetConnections(entries);
    EXPECT_TRUE(entries.empty());
    EXPECT_FALSE(m_manager.IsConnected("Office"));
    EXPECT_EQ(nullptr, m_manager.FindConnection("Office"));

    size_t offset = vn_test::LogSize();
    EXPECT_EQ(VN_E_NOT_AVAILABLE, m_manager.Connect("Office", nullptr, false, false));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(offset, "Error in method [CVnLinkhostConnectionManager::Connect]. "
                                                     "Message: Faile to load RAS dll."));
    EXPECT_EQ(S_OK, m_manager.Disconnect("Office"));  // nothing of ours to hang up
    EXPECT_EQ("", TStandIns::RasCalls());
}

TEST_F(DialUpManager, WithoutRasAUserGetsTheInternetClientsDial)
{
    TStandIns::Entries({"Office"});
    TStandIns::Ras(vn_standin::kUnloadable, 1);
    TNotingWindow window;
    // Wine's InternetDial reports success at once and hands out no
    // connection number, so there is nothing to hang up afterwards.
    EXPECT_EQ(S_OK, m_manager.Connect("Office", window.hwnd(), true, false));
    EXPECT_EQ(0u, CVnLinkhostConnectionManager::DialConnection());
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_EQ(S_OK, m_manager.Disconnect("Office"));
    EXPECT_EQ("", TStandIns::RasCalls());
}

TEST_F(DialUpManager, HangUpWithoutRasIsNotAvailable)
{
    TStandIns::Entries({"Office"});
    ASSERT_EQ(S_OK, m_manager.Connect("Office", nullptr, false, false));
    TStandIns::Ras(vn_standin::kUnloadable, 1);
    size_t offset = vn_test::LogSize();
    EXPECT_EQ(VN_E_NOT_AVAILABLE, m_manager.Disconnect("Office"));
    EXPECT_TRUE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_EQ(1, vn_test::CountLogLinesSince(offset, "Error in method [CVnLinkhostConnectionManager::Disconnect]. "
                                                     "Message: Faile to load RAS dll."));
}

TEST_F(DialUpManager, MissingPhoneBookDialogAfterAFailedDialFallsBackOnTheInternetClient)
{
    TStandIns::Entries({"Office"});
    TStandIns::Ras("DialError", 678);
    TStandIns::Rasdlg(vn_standin::kUnloadable, 1);
    size_t offset = vn_test::LogSize();
    EXPECT_EQ(VN_E_NOT_AVAILABLE, m_manager.Connect("Office", nullptr, false, false));
    EXPECT_EQ(S_OK, m_manager.Connect("Office", nullptr, true, false));
    EXPECT_EQ(2, vn_test::CountLogLinesSince(offset, "Error in method [CVnLinkhostConnectionManager::RasDialogConnect]. "
                                                     "Message: Faile to find RasPhonebookDlg."));
    EXPECT_EQ(2, Occurrences(TStandIns::RasCalls(), "RasHangUpA(Office)"));
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());
}
