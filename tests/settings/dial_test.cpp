// Whether a session can go online and whether it dials, and the dial-up
// manager behind it. The network test asks the stand-in Sensapi.dll, a dial
// goes to the stand-in RASAPI32.DLL and Rasdlg.dll, whose journals show what
// the system asked of the platform; without RAS the manager falls back on the
// internet client's own dial. The process-wide connection state records what
// was dialled, and at the root object's end hangs up what this process dialled.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <ostream>

#include "host/status.h"
#include "settings/network_alive.h"
#include "settings/session_connection.h"
#include "tests/settings/settings_support.h"

using namespace vn_settings_test;
using Manager = CVnLinkhostConnectionManager;
using Names = std::vector<std::string>;

namespace {

constexpr DWORD LAN = vn_network::kNetworkAliveLan, WAN = vn_network::kNetworkAliveWan;
const std::string kManager = "CVnLinkhostConnectionManager::", kConnect = "Error in method [" + kManager + "Connect]. Message: ";
const std::string kDialog = "Error in method [" + kManager + "RasDialogConnect]. Message: ";
const std::string kDisconnect = "Error in method [" + kManager + "Disconnect]. Message: ", kNotFound = "Connection name not f\xEEund.";

int Dials() { return Calls(si::kRasKey, "RasDialA("); }
int HangUps() { return Calls(si::kRasKey, "RasHangUpA("); }
// The one log line that `run` adds, or that it adds none of the manager's.
template <typename Run>
int LinesOf(const std::string& line, Run run)
{
    const size_t log = vn_test::LogSize();
    run();
    return vn_test::CountLogLinesSince(log, line.empty() ? kManager : line);
}

using NetworkTest = TDialFixture;

TEST_F(NetworkTest, AnswersFromTheLinksThePlatformReports)
{
    // A WAN link alone is somebody else's dial-up, used like one's own: no proxy.
    const struct {
        int alive;  // -1: no Sensapi.dll
        DWORD flags;
        HRESULT test;
        LONG directDial;
        HRESULT dialUpActive;
    } cases[] = {{TRUE, LAN, S_OK, 0, S_FALSE}, {TRUE, WAN, S_OK, 1, S_OK}, {TRUE, LAN | WAN, S_OK, 0, S_OK},
                 {FALSE, 0, VN_E_NOT_CONNECTED, 0, VN_E_NOT_CONNECTED}, {-1, 0, VN_E_NOT_AVAILABLE, 0, VN_E_NOT_AVAILABLE}};
    for (auto& c : cases) {
        Network(c.alive, c.flags);
        State().m_DirectDial = 0;
        const HRESULT test = CVnSessionConnection::NetworkTest();
        EXPECT_EQ(std::make_tuple(c.test, c.directDial, c.dialUpActive),
                  std::make_tuple(test, State().m_DirectDial, CVnSessionConnection::IsDialUpActive()));
        // The test shared with the monitors: the platform's answer, and a line for each call without the library.
        DWORD flags = 99;
        BOOL alive = FALSE;
        EXPECT_EQ(c.alive < 0 ? 1 : 0, LinesOf("Error in method [CVnSensNetworkManager::IsNetworkAliveDynamic]. Message: No find "
                                       "function in DLL.", [&] { alive = vn_network::IsNetworkAliveDynamic(&flags); }));
        EXPECT_EQ(std::make_tuple(c.alive > 0, c.flags), std::make_tuple(alive != FALSE, flags));
    }
}

// The start of a session against a phone book of "Office" and "Home".
struct StartCase {
    const char* name;
    int mode, interactive, alive;  // alive -1: no Sensapi.dll
    DWORD flags;
    const char* entry;
    DWORD dialError;
    bool userCancels, upAlready;  // the phone book dialog; the entry was dialled by somebody else
    std::tuple<HRESULT, int, int, int, bool, LONG, bool> outcome;  // status, dials, network tests, phone books, dialled, direct dial, owned
    int hangUpsAtEnd;
};
void PrintTo(const StartCase& c, std::ostream* os) { *os << c.name; }

const StartCase kStarts[] = {
    {"NeverOffline", DialNever, 0, FALSE, 0, "Office", 0, 0, 0, {VN_E_NOT_CONNECTED, 0, 1, 0, false, 0, false}, 0},
    {"NeverOnLan", DialNever, 0, TRUE, LAN, "Office", 0, 0, 0, {S_OK, 0, 1, 0, false, 0, false}, 0},
    {"NeverOverSomebodyElsesDialUp", DialNever, 0, TRUE, WAN, "Office", 0, 0, 0, {S_OK, 0, 1, 0, false, 1, false}, 0},
    {"RequiredOnLan", DialRequired, 0, TRUE, LAN, "Office", 0, 0, 1, {S_OK, 0, 1, 0, false, 0, false}, 0},
    {"RequiredOffline", DialRequired, 0, FALSE, 0, "Office", 0, 0, 0, {S_OK, 1, 1, 0, true, 1, true}, 1},
    {"RequiredOfflineNoEntry", DialRequired, 0, FALSE, 0, "", 0, 0, 0, {VN_E_NOT_CONNECTED, 0, 1, 0, false, 0, false}, 0},
    {"RequiredOfflineUnknownEntry", DialRequired, 0, FALSE, 0, "Nowhere", 0, 0, 0, {VN_E_NOT_CONNECTED, 0, 1, 0, false, 0, false}, 0},
    {"RequiredOfflineFailedDialNoDialogInBackground", DialRequired, 0, FALSE, 0, "Office", 678, 0, 0,
     {VN_E_DIAL_FAILED, 1, 1, 0, false, 0, false}, 0},
    {"RequiredWithoutSensapi", DialRequired, 0, -1, 0, "Office", 0, 0, 0, {VN_E_NOT_AVAILABLE, 0, 0, 0, false, 0, false}, 0},
    {"AlwaysOnLan", DialAlways, 0, TRUE, LAN, "Office", 0, 0, 0, {S_OK, 1, 0, 0, true, 1, true}, 1},
    {"AlwaysOverAnExistingLink", DialAlways, 0, TRUE, LAN, "Office", 0, 0, 1, {S_OK, 0, 0, 0, true, 1, false}, 0},
    {"AlwaysNoEntry", DialAlways, 0, TRUE, LAN, "", 0, 0, 0, {S_OK, 0, 2, 0, false, 0, false}, 0},
    {"AlwaysOfflineFailedDial", DialAlways, 0, FALSE, 0, "Office", 678, 0, 0, {VN_E_NOT_CONNECTED, 1, 1, 0, false, 0, false}, 0},
    {"AlwaysOnLanFailedDial", DialAlways, 0, TRUE, LAN, "Office", 678, 0, 0, {S_OK, 1, 2, 0, false, 0, false}, 0},
    {"AlwaysCancelledByTheUser", DialAlways, 1, TRUE, LAN, "Office", 678, 1, 0, {VN_E_DIAL_CANCELLED, 1, 0, 1, false, 0, false}, 0},
};

class SessionStart : public TDialFixture, public testing::WithParamInterface<StartCase> {};

TEST_P(SessionStart, DialsAndTestsTheNetworkAsTheDialModeSays)
{
    const StartCase& c = GetParam();
    Entries({"Office", "Home"});
    Connected(c.upAlready ? Names{"Office"} : Names{});
    Network(c.alive, c.flags);
    si::WriteDword(si::kRasKey, "DialError", c.dialError);
    si::WriteDword(si::kRasdlgKey, "Answer", !c.userCancels);
    CConfigData work = Defaults();
    work.m_DialMode = c.mode, work.m_DefaultConnection = c.entry, work.m_SessionFlags = c.interactive;
    State().m_DirectDial = 1;  // each check clears it first
    const HRESULT status = CVnSessionConnection(&work).CheckConnection(work, nullptr);
    EXPECT_EQ(c.outcome, std::make_tuple(status, Dials(), Calls(si::kSensapiKey, "IsNetworkAlive="),
                                         Calls(si::kRasdlgKey, "RasPhonebookDlgA("), State().m_bDialed, State().m_DirectDial,
                                         Manager::ConnectionOwned()));
    EXPECT_EQ(State().m_bDialed ? c.entry : "", State().m_strEntry);
    // The root object's end hangs up only what this process dialled; the next use makes a fresh state.
    ClearJournals();
    EXPECT_EQ(S_OK, CVnConnectionState::DestroyInstance());
    EXPECT_EQ(std::make_tuple(c.hangUpsAtEnd, false, c.upAlready), std::make_tuple(HangUps(), Manager::ConnectionOwned(), !Connected().empty()));
    EXPECT_FALSE(State().m_bDialed || State().m_DirectDial || !State().m_strEntry.empty());
}
INSTANTIATE_TEST_SUITE_P(Modes, SessionStart, testing::ValuesIn(kStarts), [](const auto& info) { return std::string(info.param.name); });

TEST_F(NetworkTest, DialWithoutAnEntryNameStaysUpAtTheEnd)
{
    // A dial for a repeated request marks the state as dialled without naming the entry.
    Entries({"Office"});
    Network(FALSE, 0);
    CConfigData work = Defaults();
    work.m_DefaultConnection = "Office";
    ASSERT_EQ(S_OK, CVnSessionConnection(&work).CheckConnection(work, nullptr));
    State().m_strEntry.clear();
    ClearJournals();
    EXPECT_EQ(1, LinesOf(kDisconnect + kNotFound, [] { EXPECT_EQ(S_FALSE, CVnConnectionState::DestroyInstance()); }));
    EXPECT_EQ(std::make_tuple(0, Names{"Office"}), std::make_tuple(HangUps(), Connected()));
}

TEST_F(NetworkTest, ManagerListsEntriesAndFindsConnectionsWithASecondCallWhenTheFirstIsTooSmall)
{
    Manager manager;
    const auto call = [](const char* name, size_t size, size_t count, int result) {
        return name + ("(" + std::to_string(size * count) + ")=" + std::to_string(result) + ";");
    };
    const size_t entry = sizeof(vn_ras::TRasEntryName), connection = sizeof(vn_ras::TRasConn);
    Names forty;
    for (int i = 1; i <= 40; ++i)
        forty.push_back("Entry " + std::to_string(i));
    for (const Names& book : {Names{}, Names{"Office"}, forty}) {
        ClearJournals();
        Entries(book);
        Names listed{"stale"};
        manager.GetConnections(listed);
        EXPECT_EQ(book, listed);
        EXPECT_EQ(book.size() < 2 ? call("RasEnumEntriesA", entry, 1, 0)
                                  : call("RasEnumEntriesA", entry, 1, 603) + call("RasEnumEntriesA", entry, 40, 0), Journal(si::kRasKey));
    }
    Connected(Names(forty.begin(), forty.begin() + 5));
    ClearJournals();
    EXPECT_TRUE(manager.IsConnected("Entry 5"));
    EXPECT_EQ(0u, Journal(si::kRasKey).find(call("RasEnumConnectionsA", connection, 1, 603) +
                                            call("RasEnumConnectionsA", connection, 5, 0)));
    Connected({"Entry 2"});
    EXPECT_EQ(std::make_tuple(true, false, false), std::make_tuple(manager.IsConnected("Entry 2"), manager.IsConnected("Entry 1"),
                                                                   manager.IsConnected("entry 2")));
    EXPECT_TRUE(manager.FindConnection("Entry 2") && !manager.FindConnection("Entry 1"));
    si::WriteDword(si::kRasKey, "ConnState", 0x1000);  // paused: there, but not connected
    EXPECT_TRUE(!manager.IsConnected("Entry 2") && manager.FindConnection("Entry 2"));
    si::WriteDword(si::kRasKey, si::kUnloadable, 1);
    Names none{"stale"};
    manager.GetConnections(none);
    EXPECT_TRUE(none.empty() && !manager.IsConnected("Entry 2") && !manager.FindConnection("Entry 2"));
}

struct DialCase {
    const char* name;
    Names book, up;
    std::vector<std::pair<const char*, DWORD>> ras;
    int phoneBook;  // what the user does in the phone book: -1 there is no Rasdlg.dll, 0 cancel, 1 dial "Home"
    const char* entry;
    bool interactive, dialog;
    std::tuple<HRESULT, bool, int, Names> outcome;  // status, owned, dials, links up afterwards
    const char* journal;  // calls the RAS journal holds; "" for no call at all
    bool phoneBookShown;
    std::string logLine;
};
void PrintTo(const DialCase& c, std::ostream* os) { *os << c.name; }

const Names kBook = {"Office", "Home"};
const DialCase kDials[] = {
    {"DialsWithTheStoredLoginAndOwnsTheLink", kBook, {}, {}, 1, "Home", false, false, {S_OK, true, 1, {"Home"}},
     "RasGetEntryDialParamsA(Home)=0;RasDialA(Home,user of Home)=0;", false, ""},
    {"UsesALinkThatIsUpWithoutOwningIt", kBook, {"Office"}, {}, 1, "Office", false, false, {S_OK, false, 0, {"Office"}}, nullptr, false, ""},
    {"UnknownEntry", kBook, {}, {}, 1, "Nowhere", true, false, {S_FALSE, false, 0, {}}, nullptr, false, kConnect + kNotFound},
    {"EntryNamesCompareExactly", kBook, {}, {}, 1, "office", true, false, {S_FALSE, false, 0, {}}, nullptr, false, kConnect + kNotFound},
    {"FailedDialInBackgroundFreesThePort", kBook, {}, {{"DialError", 678}}, 1, "Office", false, false, {VN_E_DIAL_FAILED, false, 1, {}},
     "RasDialA(Office,user of Office)=678;RasHangUpA(Office)=0;", false, kConnect + "Stand-in dial error 678 Error code: 678."},
    {"DialErrorWithoutText", kBook, {}, {{"DialError", 680}, {"NoErrorText", 1}}, 1, "Office", false, false,
     {VN_E_DIAL_FAILED, false, 1, {}}, nullptr, false, kConnect + "Undefined RAS Dial Error Error code: 680."},
    {"FailedDialOffersThePhoneBookToAUser", kBook, {}, {{"DialError", 678}}, 1, "Office", true, false, {S_OK, true, 1, {"Home"}},
     nullptr, true, kConnect + "Stand-in dial error 678 Error code: 678."},
    {"PhoneBookCancelled", kBook, {}, {}, 0, "", true, true, {VN_E_DIAL_CANCELLED, false, 0, {}}, nullptr, true,
     kDialog + "User pressed \"Cancel\"."},
    {"PhoneBookNeedsAUser", kBook, {}, {}, 1, "", false, true, {VN_E_DIAL_FAILED, false, 0, {}}, nullptr, false, ""},
    {"PhoneBookNeedsEntries", {}, {}, {}, 1, "", true, true, {VN_E_DIAL_FAILED, false, 0, {}}, nullptr, false, ""},
    {"WithoutRasNotInBackground", kBook, {"Office"}, {{si::kUnloadable, 1}}, 1, "Office", false, false,
     {VN_E_NOT_AVAILABLE, false, 0, {"Office"}}, "", false, kConnect + "Faile to load RAS dll."},
    // Wine's InternetDial reports success at once and hands out no connection number.
    {"WithoutRasAUserGetsTheInternetClientsDial", kBook, {}, {{si::kUnloadable, 1}}, 1, "Office", true, false,
     {S_OK, false, 0, {}}, "", false, kConnect + "Faile to load RAS dll."},
    {"WithoutPhoneBookAfterAFailedDialNotInBackground", kBook, {}, {{"DialError", 678}}, -1, "Office", false, false,
     {VN_E_NOT_AVAILABLE, false, 1, {}}, "RasHangUpA(Office)=0;", false, kDialog + "Faile to find RasPhonebookDlg."},
    {"WithoutPhoneBookAfterAFailedDialAUserGetsTheInternetClientsDial", kBook, {}, {{"DialError", 678}}, -1, "Office", true, false,
     {S_OK, false, 1, {}}, "RasHangUpA(Office)=0;", false, kDialog + "Faile to find RasPhonebookDlg."},
};

class Dial : public TDialFixture, public testing::WithParamInterface<DialCase> {};

TEST_P(Dial, GivesItsStatusAndAsksThePlatformAccordingly)
{
    const DialCase& c = GetParam();
    Entries(c.book);
    Connected(c.up);
    for (auto& control : c.ras)
        si::WriteDword(si::kRasKey, control.first, control.second);
    si::WriteDword(si::kRasdlgKey, c.phoneBook < 0 ? si::kUnloadable : "Answer", c.phoneBook != 0);
    si::WriteText(si::kRasdlgKey, "Dials", "Home");
    const HWND window = ::GetDesktopWindow();
    HRESULT status = E_UNEXPECTED;
    EXPECT_EQ(c.logLine.empty() ? 0 : 1, LinesOf(c.logLine, [&] { status = Manager().Connect(c.entry, window, c.interactive, c.dialog); }));
    EXPECT_EQ(c.outcome, std::make_tuple(status, Manager::ConnectionOwned(), Dials(), Connected()));
    EXPECT_EQ(0u, Manager::DialConnection());
    EXPECT_TRUE(!c.journal || (*c.journal ? Journal(si::kRasKey).find(c.journal) != std::string::npos : Journal(si::kRasKey).empty()))
        << Journal(si::kRasKey);
    char shown[96] = "";
    if (c.phoneBookShown)
        std::snprintf(shown, sizeof shown, "RasPhonebookDlgA(%u,%llx)=%d;", unsigned(sizeof(vn_ras::TRasPhonebookDlg)),
                      static_cast<unsigned long long>(reinterpret_cast<ULONG_PTR>(window)), c.phoneBook);
    EXPECT_EQ(shown, Journal(si::kRasdlgKey));
}
INSTANTIATE_TEST_SUITE_P(Cases, Dial, testing::ValuesIn(kDials), [](const auto& info) { return std::string(info.param.name); });

struct HangUpCase {
    const char* name;
    bool own;             // "Office" was dialled by this process, else it was up already
    const char* control;  // set to 3 first; HangUpPolls: the handle dies after three more status queries
    const char* entry;
    std::tuple<HRESULT, int, bool, bool> outcome;  // status, hang-ups, owned, "Office" still up
    std::string logLine;
};
void PrintTo(const HangUpCase& c, std::ostream* os) { *os << c.name; }

const HangUpCase kHangUps[] = {
    {"OwnLinkIsHungUpWhileTheThreadsMessagesAreServed", true, "HangUpPolls", "Office", {S_OK, 1, false, false}, ""},
    {"LinkOfAnotherProcessIsLeftAlone", false, "", "Office", {S_OK, 0, false, true},
     "Warning in method [" + kManager + "Disconnect]. Message: Connection was created by another process."},
    {"HandleThatDiedFailsAndKeepsOwnership", true, "DeadHandles", "Office", {VN_E_HANGUP_FAILED, 0, true, true},
     kDisconnect + "RasGetConnectStatus returns ERROR_INVALID_HANDLE."},
    {"EntryWithoutConnection", true, "", "Home", {S_FALSE, 0, true, true}, kDisconnect + kNotFound},
    {"NoEntryName", true, "", "", {S_FALSE, 0, true, true}, kDisconnect + kNotFound},
    {"WithoutRas", true, si::kUnloadable, "Office", {VN_E_NOT_AVAILABLE, 0, true, true}, kDisconnect + "Faile to load RAS dll."},
};

class HangUp : public TDialFixture, public testing::WithParamInterface<HangUpCase> {};

TEST_P(HangUp, EndsOnlyThisProcesssOwnLink)
{
    const HangUpCase& c = GetParam();
    Entries(kBook);
    Connected(c.own ? Names{} : Names{"Office"});
    ASSERT_EQ(S_OK, Manager().Connect("Office", nullptr, false, false));
    si::WriteDword(si::kRasKey, c.control, 3);
    ClearJournals();
    MSG message;
    ::PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE);  // gives the thread its queue
    ASSERT_TRUE(::PostThreadMessageA(::GetCurrentThreadId(), WM_APP, 0, 0));
    HRESULT status = E_UNEXPECTED;
    EXPECT_EQ(c.logLine.empty() ? 0 : 1, LinesOf(c.logLine, [&] { status = Manager().Disconnect(c.entry); }));
    EXPECT_EQ(c.outcome, std::make_tuple(status, HangUps(), Manager::ConnectionOwned(), Connected() == Names{"Office"}));
    // After a hang-up the wait serves the thread's messages until the handle has died.
    const std::string calls = Journal(si::kRasKey), after = calls.substr(std::min(calls.find("RasHangUpA"), calls.size()));
    const bool hungUp = std::get<1>(c.outcome) != 0;
    EXPECT_EQ(hungUp ? std::make_tuple(3, 1) : std::make_tuple(0, 0),
              std::make_tuple(Count(after, "RasGetConnectStatusA(Office)=0;"), Count(after, "RasGetConnectStatusA(Office)=6;")));
    EXPECT_TRUE(!hungUp || !::PeekMessageA(&message, nullptr, WM_APP, WM_APP, PM_REMOVE)) << "the wait left the message";
}
INSTANTIATE_TEST_SUITE_P(Cases, HangUp, testing::ValuesIn(kHangUps), [](const auto& info) { return std::string(info.param.name); });

}  // namespace
