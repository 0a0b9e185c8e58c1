// Whether a session can go online and whether it dials, decided at its
// start: the network test asks the stand-in Sensapi.dll, whose answer each
// test sets, and a dial goes to the stand-in RAS. The process-wide
// connection state records what was dialled and whether traffic goes over a
// dial-up link; at the root object's end it hangs up what this process
// dialled.
#include <gtest/gtest.h>

#include <windows.h>

#include "common/test_util.h"
#include "host/status.h"
#include "settings/connection_state.h"
#include "settings/network_alive.h"
#include "settings/session_connection.h"
#include "tests/settings/settings_support.h"

using namespace vn_settings_test;
using vn_network::kNetworkAliveLan;
using vn_network::kNetworkAliveWan;

namespace {

class NetworkTest : public TDialFixture {
protected:
    static LONG DirectDial() { return CVnConnectionState::getInstance()->m_DirectDial; }
};

class SessionStart : public TDialFixture {
protected:
    void SetUp() override
    {
        TDialFixture::SetUp();
        TStandIns::Entries({"Office", "Home"});
        m_work.SetDefaults();
        m_work.m_DefaultConnection = "Office";
    }

    HRESULT Check(int dialMode, bool interactive = false)
    {
        m_work.m_DialMode = dialMode;
        m_work.m_SessionFlags = interactive ? 1 : 0;
        CVnSessionConnection connection(&m_work);
        return connection.CheckConnection(m_work, nullptr);
    }
    static CVnConnectionState& State() { return *CVnConnectionState::getInstance(); }
    static int Dials() { return Occurrences(TStandIns::RasCalls(), "RasDialA("); }
    static int NetworkTests() { return Occurrences(TStandIns::SensapiCalls(), "IsNetworkAlive="); }

    CConfigData m_work;
};

}  // namespace

TEST_F(NetworkTest, LanIsOnlineWithoutDirectDial)
{
    TStandIns::Network(TRUE, kNetworkAliveLan);
    EXPECT_EQ(S_OK, CVnSessionConnection::NetworkTest());
    EXPECT_EQ(0, DirectDial());
}

TEST_F(NetworkTest, WanAloneIsSomebodyElsesDialAndMeansDirectDial)
{
    TStandIns::Network(TRUE, kNetworkAliveWan);
    EXPECT_EQ(S_OK, CVnSessionConnection::NetworkTest());
    EXPECT_EQ(1, DirectDial());
}

TEST_F(NetworkTest, WanBesideLanIsNoDirectDial)
{
    TStandIns::Network(TRUE, kNetworkAliveLan | kNetworkAliveWan);
    EXPECT_EQ(S_OK, CVnSessionConnection::NetworkTest());
    EXPECT_EQ(0, DirectDial());
}

TEST_F(NetworkTest, DownIsNotConnected)
{
    TStandIns::Network(FALSE, 0);
    EXPECT_EQ(VN_E_NOT_CONNECTED, CVnSessionConnection::NetworkTest());
}

TEST_F(NetworkTest, MissingLibraryIsNotAvailable)
{
    TStandIns::SensapiUnloadable();
    EXPECT_EQ(VN_E_NOT_AVAILABLE, CVnSessionConnection::NetworkTest());
    EXPECT_EQ(VN_E_NOT_AVAILABLE, CVnSessionConnection::IsDialUpActive());
}

TEST_F(NetworkTest, DialUpIsActiveWheneverTheWanBitIsSet)
{
    TStandIns::Network(TRUE, kNetworkAliveWan);
    EXPECT_EQ(S_OK, CVnSessionConnection::IsDialUpActive());
    TStandIns::Network(TRUE, kNetworkAliveLan | kNetworkAliveWan);
    EXPECT_EQ(S_OK, CVnSessionConnection::IsDialUpActive());
    TStandIns::Network(TRUE, kNetworkAliveLan);
    EXPECT_EQ(S_FALSE, CVnSessionConnection::IsDialUpActive());
    TStandIns::Network(FALSE, 0);
    EXPECT_EQ(VN_E_NOT_CONNECTED, CVnSessionConnection::IsDialUpActive());
}

TEST_F(NetworkTest, SharedTestGivesThePlatformsAnswer)
{
    TStandIns::Network(TRUE, kNetworkAliveLan | kNetworkAliveWan);
    DWORD flags = 0;
    EXPECT_TRUE(vn_network::IsNetworkAliveDynamic(&flags));
    EXPECT_EQ(kNetworkAliveLan | kNetworkAliveWan, flags);
    TStandIns::Network(FALSE, 0);
    EXPECT_FALSE(vn_network::IsNetworkAliveDynamic(&flags));
}

TEST_F(NetworkTest, SharedTestWithoutTheLibraryIsDownWithOneLineEachCall)
{
    TStandIns::SensapiUnloadable();
    size_t offset = vn_test::LogSize();
    DWORD flags = 99;
    EXPECT_FALSE(vn_network::IsNetworkAliveDynamic(&flags));
    EXPECT_EQ(0u, flags);
    EXPECT_FALSE(vn_network::IsNetworkAliveDynamic(&flags));
    EXPECT_EQ(2, vn_test::CountLogLinesSince(offset, "Error in method [CVnSensNetworkManager::IsNetworkAliveDynamic]. "
                                                     "Message: No find function in DLL."));
}

TEST_F(SessionStart, DialNeverWithoutANetworkFailsTheSession)
{
    TStandIns::Network(FALSE, 0);
    EXPECT_EQ(VN_E_NOT_CONNECTED, Check(DialNever));
    EXPECT_EQ(0, Dials());
}

TEST_F(SessionStart, DialNeverWithANetworkGoesOnline)
{
    TStandIns::Network(TRUE, kNetworkAliveLan);
    EXPECT_EQ(S_OK, Check(DialNever));
    EXPECT_EQ(0, Dials());
    EXPECT_EQ(1, NetworkTests());
}

TEST_F(SessionStart, DialNeverOverSomebodyElsesDialUpSetsDirectDial)
{
    TStandIns::Network(TRUE, kNetworkAliveWan);
    EXPECT_EQ(S_OK, Check(DialNever));
    EXPECT_EQ(1, State().m_DirectDial);
    EXPECT_FALSE(State().m_bDialed);
}

TEST_F(SessionStart, EachCheckClearsDirectDialFirst)
{
    State().m_DirectDial = 1;
    TStandIns::Network(TRUE, kNetworkAliveLan);
    EXPECT_EQ(S_OK, Check(DialNever));
    EXPECT_EQ(0, State().m_DirectDial);
}

TEST_F(SessionStart, DialRequiredWithANetworkDoesNotDial)
{
    TStandIns::Network(TRUE, kNetworkAliveLan);
    EXPECT_EQ(S_OK, Check(DialRequired));
    EXPECT_EQ(0, Dials());
    EXPECT_FALSE(State().m_bDialed);
}

TEST_F(SessionStart, DialRequiredWithoutANetworkDialsTheDefaultEntry)
{
    TStandIns::Network(FALSE, 0);
    EXPECT_EQ(S_OK, Check(DialRequired));
    EXPECT_EQ(1, Occurrences(TStandIns::RasCalls(), "RasDialA(Office,"));
    EXPECT_EQ(1, State().m_DirectDial);
    EXPECT_EQ("Office", State().m_strEntry);
    EXPECT_TRUE(State().m_bDialed);
}

TEST_F(SessionStart, DialRequiredWithoutANetworkAndWithoutAnEntryIsNotConnected)
{
    TStandIns::Network(FALSE, 0);
    m_work.m_DefaultConnection.clear();
    EXPECT_EQ(VN_E_NOT_CONNECTED, Check(DialRequired));
    EXPECT_EQ(0, Dials());
}

TEST_F(SessionStart, DialRequiredWithAnUnknownEntryIsNotConnected)
{
    TStandIns::Network(FALSE, 0);
    m_work.m_DefaultConnection = "Nowhere";
    EXPECT_EQ(VN_E_NOT_CONNECTED, Check(DialRequired));
    EXPECT_FALSE(State().m_bDialed);
}

TEST_F(SessionStart, DialRequiredWithAFailedDialGivesTheDialsStatus)
{
    TStandIns::Network(FALSE, 0);
    TStandIns::Ras("DialError", 678);
    EXPECT_EQ(VN_E_DIAL_FAILED, Check(DialRequired));
    EXPECT_FALSE(State().m_bDialed);
    EXPECT_EQ(0, State().m_DirectDial);
}

TEST_F(SessionStart, DialRequiredWithoutSensapiIsNotAvailable)
{
    TStandIns::SensapiUnloadable();
    EXPECT_EQ(VN_E_NOT_AVAILABLE, Check(DialRequired));
    EXPECT_EQ(0, Dials());
}

TEST_F(SessionStart, DialAlwaysDialsWhateverTheNetworkSays)
{
    TStandIns::Network(TRUE, kNetworkAliveLan);
    EXPECT_EQ(S_OK, Check(DialAlways));
    EXPECT_EQ(1, Occurrences(TStandIns::RasCalls(), "RasDialA(Office,"));
    EXPECT_EQ(0, NetworkTests());
    EXPECT_EQ(1, State().m_DirectDial);
    EXPECT_TRUE(State().m_bDialed);
}

TEST_F(SessionStart, DialAlwaysOverAnExistingLinkDoesNotOwnIt)
{
    TStandIns::Connected({"Office"});
    EXPECT_EQ(S_OK, Check(DialAlways));
    EXPECT_EQ(0, Dials());
    // Dialled as far as the session is concerned; the hang-up at the end
    // leaves the link alone, as this process did not open it.
    EXPECT_TRUE(State().m_bDialed);
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());
    EXPECT_EQ(S_OK, CVnConnectionState::DestroyInstance());
    EXPECT_EQ(std::vector<std::string>{"Office"}, TStandIns::Connected());
}

TEST_F(SessionStart, DialAlwaysWithoutAnEntryTestsTheNetworkTwice)
{
    m_work.m_DefaultConnection.clear();
    TStandIns::Network(TRUE, kNetworkAliveLan);
    EXPECT_EQ(S_OK, Check(DialAlways));
    EXPECT_EQ(2, NetworkTests());
    EXPECT_EQ(0, Dials());
}

TEST_F(SessionStart, DialAlwaysWithAFailedDialAndNoNetworkIsNotConnected)
{
    TStandIns::Network(FALSE, 0);
    TStandIns::Ras("DialError", 678);
    EXPECT_EQ(VN_E_NOT_CONNECTED, Check(DialAlways));
    EXPECT_EQ(1, NetworkTests());
}

TEST_F(SessionStart, DialAlwaysWithAFailedDialButANetworkGoesOnline)
{
    TStandIns::Network(TRUE, kNetworkAliveLan);
    TStandIns::Ras("DialError", 678);
    EXPECT_EQ(S_OK, Check(DialAlways));
    EXPECT_FALSE(State().m_bDialed);
}

TEST_F(SessionStart, DialAlwaysCancelledByTheUserEndsAtOnce)
{
    TStandIns::Network(TRUE, kNetworkAliveLan);
    TStandIns::Ras("DialError", 678);
    TStandIns::Rasdlg("Answer", 0);
    EXPECT_EQ(VN_E_DIAL_CANCELLED, Check(DialAlways, true));
    EXPECT_EQ(1, Occurrences(TStandIns::RasdlgCalls(), "RasPhonebookDlgA("));
    EXPECT_EQ(0, NetworkTests());
}

TEST_F(SessionStart, BackgroundSessionGetsNoDialog)
{
    TStandIns::Network(FALSE, 0);
    TStandIns::Ras("DialError", 678);
    TStandIns::Rasdlg("Answer", 1);
    EXPECT_EQ(VN_E_DIAL_FAILED, Check(DialRequired, false));
    EXPECT_EQ("", TStandIns::RasdlgCalls());
}

TEST_F(SessionStart, EndOfTheRootObjectHangsUpWhatThisProcessDialled)
{
    TStandIns::Network(FALSE, 0);
    ASSERT_EQ(S_OK, Check(DialRequired));
    TStandIns::ClearCalls();
    EXPECT_EQ(S_OK, CVnConnectionState::DestroyInstance());
    EXPECT_EQ(1, Occurrences(TStandIns::RasCalls(), "RasHangUpA(Office)"));
    EXPECT_FALSE(CVnLinkhostConnectionManager::ConnectionOwned());
    // The next use makes a fresh state.
    EXPECT_FALSE(State().m_bDialed);
    EXPECT_EQ("", State().m_strEntry);
    EXPECT_EQ(0, State().m_DirectDial);
}

TEST_F(SessionStart, DialWithoutAnEntryNameStaysUpAtTheEnd)
{
    // A dial for a repeated request marks the state as dialled without
    // naming the entry; the hang-up then finds no entry and leaves the link.
    TStandIns::Network(FALSE, 0);
    ASSERT_EQ(S_OK, Check(DialRequired));
    State().m_strEntry.clear();
    TStandIns::ClearCalls();
    size_t offset = vn_test::LogSize();
    EXPECT_EQ(S_FALSE, CVnConnectionState::DestroyInstance());
    EXPECT_EQ(0, Occurrences(TStandIns::RasCalls(), "RasHangUpA("));
    EXPECT_EQ(std::vector<std::string>{"Office"}, TStandIns::Connected());
    EXPECT_EQ(1, vn_test::CountLogLinesSince(offset, "Message: Connection name not f\xEEund."));
}

TEST_F(SessionStart, EndWithoutADialHangsUpNothing)
{
    TStandIns::Connected({"Office"});
    TStandIns::Network(TRUE, kNetworkAliveLan);
    ASSERT_EQ(S_OK, Check(DialRequired));
    EXPECT_EQ(S_OK, CVnConnectionState::DestroyInstance());
    EXPECT_EQ(0, Occurrences(TStandIns::RasCalls(), "RasHangUpA("));
}

TEST_F(SessionStart, SystemSettingsDecideTheWholeStart)
{
    // Dial only when needed, from the system, with a phone book that has no
    // entries and so no default entry: a dead network fails the session.
    TSystemSettingsGuard guard;
    WriteAutodial(1, 1);
    TStandIns::Entries({});
    CConfigData record;
    record.SetDefaults();
    record.m_UseSystemProxy = false;
    record.m_DefaultConnection = "Office";
    CConfigData work;
    CVnSessionConnection connection(&work);
    ASSERT_EQ(S_OK, connection.PrepareConfigData(record));
    ASSERT_EQ(DialRequired, work.m_DialMode);
    ASSERT_EQ("", work.m_DefaultConnection);
    TStandIns::Network(FALSE, 0);
    EXPECT_EQ(VN_E_NOT_CONNECTED, connection.CheckConnection(work, nullptr));
    EXPECT_EQ(0, Dials());
    TStandIns::Network(TRUE, kNetworkAliveLan);
    EXPECT_EQ(S_OK, connection.CheckConnection(work, nullptr));
}
