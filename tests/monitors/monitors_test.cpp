// The three network monitors as a client meets them: the real server started on demand, sinks of this process called
// back across processes, the stand-in Sensapi.dll told the network's flags, and the stand-ins for the COM+ event system
// and WMI registered for as long as these tests run.
#include <gtest/gtest.h>

#include <windows.h>

#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "server/server_fixture.h"
#include "tests/doubles/netevents/netevents_standin.h"
#include "tests/doubles/rasapi32/standin_registry.h"
#include "vfc/com_object.h"
#include "vfc/text.h"

namespace {

using namespace vn_test;
namespace si = vn_standin;
constexpr DWORD kPeriod = 3000, kSlack = 2000;

// A sink of all three kinds that writes down what it hears, "kind status[ connection type];", and answers `answer`.
struct TSink : vfc::TComObject<TSink, IVnLinkhostNetworkEventSink, IVnLinkhostSensEventSink, IVnLinkhostWMINetworkEventSink> {
    static constexpr bool LocksModule = false;
    static vfc::TComPtr<TSink> New() { vfc::TComPtr<TSink> sink; vfc::CreateInto(sink); return sink; }
    STDMETHODIMP NetworkStatusChanged(ULONG status, ULONG type) override { return Note("timer", status, type); }
    STDMETHODIMP NetworkStatusChanged(ULONG status, BSTR connection, ULONG type) override
    {
        return Note("sens", status, type, vfc::Narrow(connection, SysStringLen(connection)) + " ");
    }
    STDMETHODIMP NetworkStatusChanged(ULONG status) override { return Note("wmi", status); }
    std::string Take() { std::lock_guard<std::mutex> lock(m_mutex); return std::exchange(m_heard, ""); }  // heard since the last
    HRESULT Note(const char* kind, ULONG status, ULONG type = 0, const std::string& connection = "")
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_heard += kind + (" " + std::to_string(status)) + (type ? " " + connection + std::to_string(type) : "") + ";";
        return answer;
    }
    HRESULT answer = S_OK;
    std::mutex m_mutex;
    std::string m_heard;
};

// What the sink heard within a period, once it heard as much as `expected`.
std::string HeardWithinAPeriod(TSink* sink, const std::string& expected)
{
    std::string got;
    WaitUntil([&] { return (got += sink->Take()).size() >= expected.size(); }, kPeriod + kSlack);
    return got;
}

// The stand-in Sensapi.dll's answer: alive with these flags, or down with none.
void SetNetwork(DWORD flags) { si::WriteDword(si::kSensapiKey, "Flags", flags); si::WriteDword(si::kSensapiKey, "Alive", flags ? 1 : 0); }
// How often the server asked IsNetworkAlive since the last call; with `answer`, only those answered so ("1" alive).
int TakeChecks(const std::string& answer = "")
{
    const std::string calls = si::ReadText(si::kSensapiKey, si::kCalls);
    si::WriteText(si::kSensapiKey, si::kCalls, "");
    return Count(calls, "IsNetworkAlive=" + answer);
}

// Has the stand-ins raise an event in the server and gives the subscribers' answer. With `upAfterChecks`, the network
// comes up once the server asked that often.
HRESULT Raise(const std::vector<std::string>& request, int upAfterChecks = 0)
{
    si::WriteList(vn_netevents::kKey, "Raise", request);
    const vfc::THandle raise(CreateEventA(nullptr, FALSE, FALSE, vn_netevents::kRaise));
    const vfc::THandle raised(CreateEventA(nullptr, FALSE, FALSE, vn_netevents::kRaised));
    SetEvent(raise.get());
    if (upAfterChecks) {
        int checks = 0;
        EXPECT_TRUE(WaitUntil([&] { return (checks += TakeChecks()) >= upAfterChecks; }, 5000));
        SetNetwork(1);
    }
    return WaitForSingleObject(raised.get(), 15000) ? E_ABORT : si::ReadDword(vn_netevents::kKey, "Result", ~0u);
}

std::string NetworkEventsSample(const char* seconds) { return Quoted(BinDir() + "\\network_events.exe") + " " + seconds; }

// A fresh server for each test, whose root object started the monitors with the network alive on the LAN.
class Monitors : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(0u, RunServer("/RegServer"));
        const std::string dll = BinDir() + "\\vn_standin_netevents.dll";
        const std::string locator = std::string(vn_netevents::kStandInClasses[3]).substr(6);  // "{...}"
        for (const std::string key : vn_netevents::kStandInClasses) {
            RegSetKeyValueA(HKEY_CLASSES_ROOT, (key + "\\InprocServer32").c_str(), nullptr, REG_SZ, dll.c_str(), dll.size() + 1);
            RegSetKeyValueA(HKEY_CLASSES_ROOT, (key + "\\InprocServer32").c_str(), "ThreadingModel", REG_SZ, "Both", 5);
        }
        RegSetKeyValueA(HKEY_CLASSES_ROOT, vn_netevents::kTreatAs, nullptr, REG_SZ, locator.c_str(), locator.size() + 1);
    }
    // Gone again before the other test programs run.
    static void TearDownTestSuite()
    {
        for (const char* key : vn_netevents::kStandInClasses)
            RegDeleteTreeA(HKEY_CLASSES_ROOT, key);
        RegDeleteTreeA(HKEY_CLASSES_ROOT, vn_netevents::kTreatAs);
        for (const char* key : {vn_netevents::kKey, si::kSensapiKey})
            RegDeleteTreeA(HKEY_CURRENT_USER, key);
    }
    void SetUp() override { SetNetwork(1); m_host = CreateRoot(); ASSERT_TRUE(m_host); }
    void TearDown() override
    {
        if (m_clientKilled)
            return;
        TServerProcess server;
        if (!m_host)
            m_host = CreateRoot();
        EXPECT_TRUE(ShutDownServer(m_host));
        EXPECT_EQ(0u, server.ExitCode()) << "sinks still registered must not spoil the server's end";
    }
    vfc::TComPtr<IVnLinkhost> m_host;
    bool m_clientKilled = false;
};

TEST_F(Monitors, SensSubscriptionsLiveWithTheRootObjectAndEventsReachTheSinksUntilOneFails)
{
    // (subscription id, event, method) stored with the event system, per user, for SENS's network events.
    const char* const rows[][3] = {{"{570690CE-54AD-4828-95A3-49981DE2C963}", "NetAlive", "ConnectionMade"},
                                   {"{05857FA4-AB32-4B13-965F-D57A0A41A6AA}", "NetAliveNoQOCInfo", "ConnectionMadeNoQOCInfo"},
                                   {"{72AF3D5D-B365-4A7F-9EA7-C6F007B93D95}", "NetLost", "ConnectionLost"},
                                   {"{E6752ACE-7CAD-48D7-B60A-F529A9966253}", "DestinationReachable", "DestinationReachable"},
                                   {"{78941445-04C8-4EB3-88EF-73F1EA717D02}", "DestinationReachableNoQOCInfo",
                                    "DestinationReachableNoQOCInfo"}};
    std::vector<std::string> subscriptions;
    for (const auto& [id, event, method] : rows)
        subscriptions.push_back(std::string("EventSystem.EventSubscription|") + id + "|VnLinkhost Subscription to SENS " +
                                event + " Event|" + method + "|{D5978620-5B9F-11D1-8DD2-00AA004ABD5E}|1");
    EXPECT_EQ(subscriptions, si::ReadList(vn_netevents::kKey, "Subscriptions"));

    // The sink methods answer 0 to everything; only a sink that is not there is logged.
    auto first = TSink::New(), second = TSink::New();
    const size_t log = LogSize();
    for (HRESULT hr : {m_host->RegisterNetworkEventSink(nullptr), m_host->UnRegisterNetworkEventSink(nullptr),
                       m_host->RegisterSensEventSink(nullptr), m_host->UnRegisterSensEventSink(nullptr),
                       m_host->RegisterWMINetworkEventSink(nullptr), m_host->UnRegisterWMINetworkEventSink(nullptr),
                       m_host->UnRegisterSensEventSink(first.get())})
        EXPECT_EQ(S_OK, hr);
    for (const char* line : {"[CVnLinkhostObject::UnRegisterSensEventSink]. Message: CVnSensNetworkManager::getInstance()->Remove failed.",
                             "[CVnSensNetworkManager::Remove]. Message: m_arrSensNetworkEventSinks.Remove failed."})
        EXPECT_EQ(1, CountLogLinesSince(log, line)) << line;
    EXPECT_EQ(2, CountLogLinesSince(log, "Remove failed.")) << "a null sink is not even looked for";

    ASSERT_EQ(S_OK, m_host->RegisterSensEventSink(first.get()));
    ASSERT_EQ(S_OK, m_host->RegisterSensEventSink(second.get()));
    // What the first sink answers, the event; the subscribers' answer, what the first and the second sink hear.
    const std::tuple<HRESULT, std::vector<std::string>, HRESULT, const char*, const char*> events[] = {
        {S_OK, {"ConnectionLost", "LAN-Verbindung", "1"}, S_OK, "sens 0 LAN-Verbindung 1;", "sens 0 LAN-Verbindung 1;"},
        {S_OK, {"ConnectionMadeNoQOCInfo", "Einwahl", "2"}, S_OK, "sens 1 Einwahl 2;", "sens 1 Einwahl 2;"},
        {E_ACCESSDENIED, {"ConnectionLost", "Einwahl", "2"}, E_ACCESSDENIED, "sens 0 Einwahl 2;", ""},
        {S_OK, {"ConnectionMade", "LAN", "1"}, E_NOTIMPL, "", ""}, {S_OK, {"DestinationReachable", "LAN", "1"}, E_NOTIMPL, "", ""},
        {S_OK, {"DestinationReachableNoQOCInfo", "LAN", "1"}, E_NOTIMPL, "", ""},
    };
    for (auto& [answer, event, result, firstHears, secondHears] : events) {
        first->answer = answer;
        EXPECT_EQ(result, Raise(event)) << event[0];
        EXPECT_EQ(std::make_tuple(firstHears, secondHears), std::make_tuple(first->Take(), second->Take())) << event[0];
    }
    m_host.reset();
    EXPECT_EQ(std::vector<std::string>{}, si::ReadList(vn_netevents::kKey, "Subscriptions"));
}

TEST_F(Monitors, WmiSinksHearOneStatusOnlyWhenTheNetworkSettlesInTheAnnouncedState)
{
    std::vector<std::string> queries;
    for (const char* event : {"StatusMediaConnect", "StatusMediaDisconnect", "StatusMediaSpecificIndication",
                              "NotifyAdapterArrival", "NotifyAdapterRemoval"})
        queries.push_back(std::string("ROOT\\WMI|WQL|SELECT * FROM MSNdis_") + event + "|128");
    EXPECT_EQ(queries, si::ReadList(vn_netevents::kKey, "Queries"));

    auto sink = TSink::New();
    ASSERT_EQ(S_OK, m_host->RegisterWMINetworkEventSink(sink.get()));
    // The network's flags, the event, the checks after which it comes up; the checks that saw the final state, what is heard.
    const std::tuple<DWORD, std::vector<std::string>, int, int, const char*> events[] = {
        // Still alive through the whole settling time: no status.
        {1, {"Indicate", "MSNdis_NotifyAdapterRemoval"}, 0, 11, ""},
        {0, {"Indicate", "MSNdis_StatusMediaDisconnect"}, 0, 1, "wmi 0;"},
        {0, {"Indicate", "MSNdis_StatusMediaSpecificIndication", "Win32_Whatever"}, 0, 0, ""},
        // Up after the third check; the second connect finds the status told already.
        {0, {"Indicate", "MSNdis_StatusMediaConnect", "MSNdis_NotifyAdapterArrival"}, 3, 2, "wmi 1;"},
    };
    for (auto& [flags, event, upAfterChecks, finalChecks, heard] : events) {
        SetNetwork(flags);
        TakeChecks();
        EXPECT_EQ(S_OK, Raise(event, upAfterChecks)) << event[1];
        EXPECT_EQ(std::make_tuple(heard, finalChecks), std::make_tuple(sink->Take(), TakeChecks(flags || upAfterChecks ? "1" : "0"))) << event[1];
    }
    m_host.reset();
    EXPECT_EQ(std::vector<std::string>{}, si::ReadList(vn_netevents::kKey, "Queries"));
}

TEST_F(Monitors, MonitorsStartAndStopWithTheRootObjectWhileManyClientsComeAndGoWithoutADeadlockOrALeftThread)
{
    TServerProcess server;
    const int running = int(ThreadTimes(server.pid()).size());  // with the monitors running for one client
    m_host.reset();
    const size_t log = LogSize();
    for (int round = 0; round < 4; ++round) {
        std::vector<std::unique_ptr<TChild>> clients;
        for (int i = 0; i < 6; ++i)
            clients.push_back(std::make_unique<TChild>(NetworkEventsSample("0"), true));
        for (auto& client : clients)
            EXPECT_EQ(0u, client->Wait(60000)) << "round " << round << ": " << client->Output();
    }
    EXPECT_GE(CountLogLinesSince(log, "starting up"), 4) << "each round starts the monitors anew";
    m_host = CreateRoot();
    ASSERT_TRUE(m_host);
    int now = 0;
    EXPECT_TRUE(WaitUntil([&] { return (now = int(ThreadTimes(server.pid()).size())) <= running; }, 15000))
        << running << " threads before, " << now << " now";
    EXPECT_EQ(5u, si::ReadList(vn_netevents::kKey, "Subscriptions").size());
    EXPECT_EQ(5u, si::ReadList(vn_netevents::kKey, "Queries").size());
}

TEST_F(Monitors, TimerSinksHearEachChangeOfLanAndWanWithinAPeriodWhileRegisteredAndADeadClientHoldsUpNoOne)
{
    auto sink = TSink::New();
    ASSERT_EQ(S_OK, m_host->RegisterNetworkEventSink(sink.get()));
    // (flags, what the sink hears) from the reference state, LAN.
    const std::pair<DWORD, std::string> changes[] = {
        {3, "timer 1 2;"}, {0, "timer 0 3;"}, {3, "timer 1 3;"}, {1, "timer 0 2;"}, {2, "timer 0 1;timer 1 2;"}};
    for (const auto& [flags, heard] : changes) {
        SetNetwork(flags);
        EXPECT_EQ(heard, HeardWithinAPeriod(sink.get(), heard)) << "flags " << flags;
        VARIANT_BOOL alive = VARIANT_BOOL(!flags);
        EXPECT_TRUE(SUCCEEDED(m_host->CheckNetworkAlive(&alive)) && alive == (flags ? VARIANT_TRUE : VARIANT_FALSE));
    }

    // Nobody listens: the network is not even asked, and the next sink hears of the change at the next poll.
    ASSERT_EQ(S_OK, m_host->UnRegisterNetworkEventSink(sink.get()));
    TakeChecks();
    SetNetwork(1);
    Sleep(kPeriod + kSlack);
    EXPECT_EQ(std::make_pair(std::string(), 0), std::make_pair(sink->Take(), TakeChecks()));
    ASSERT_EQ(S_OK, m_host->RegisterNetworkEventSink(sink.get()));
    EXPECT_EQ("timer 0 2;timer 1 1;", HeardWithinAPeriod(sink.get(), "timer 0 2;timer 1 1;"));

    // The sample prints what it hears. Killed, it leaves its sink registered between two entries of this one. Last in
    // this file: Wine never lets go of a dead client's references, so the server lives on until the prefix ends.
    m_clientKilled = true;
    auto client = std::make_unique<TChild>(NetworkEventsSample("60"), true);
    ASSERT_TRUE(WaitUntil([&] { return client->Output().find("Listening") != std::string::npos; }, 20000));
    ASSERT_EQ(S_OK, m_host->RegisterNetworkEventSink(sink.get()));
    SetNetwork(3);
    EXPECT_TRUE(WaitUntil([&] { return client->Output().find("timer: status 1, type 2") != std::string::npos; },
                          kPeriod + kSlack))
        << client->Output();
    // Both entries of this sink hear the change too, the second after the client: only then is the poll over.
    EXPECT_EQ("timer 1 2;timer 1 2;", HeardWithinAPeriod(sink.get(), "timer 1 2;timer 1 2;"));
    client.reset();
    SetNetwork(0);
    EXPECT_EQ("timer 0 3;timer 0 3;", HeardWithinAPeriod(sink.get(), "timer 0 3;timer 0 3;"));
}

}  // namespace
