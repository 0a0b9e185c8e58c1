// What a client that dies, or lets go of its objects early, must not make the server do: crash, keep the dead
// client's threads, handles and sockets, hold the releasing client until the rest of a body has come, or make one
// request wait for another; and bodies that trickle in, however paced, reach a client in another process whole.
#include "integration/pipeline_fixture.h"
#include "integration/server_counts.h"
#include "web/streams.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <thread>
#include <tuple>
#include <vector>

namespace vn_test {
namespace {

// Where a client is when it dies: `answered` clients have printed the status line; the others are known to the origin
// server by the mark in their URL. The origin holds a silent or stalled answer for five minutes.
struct Moment { const char *name, *path; bool answered; };

void PrintTo(const Moment& moment, std::ostream* out) { *out << moment.name; }

const Moment kMoments[] = {
    {"BlockedInExecute", "/silent?", false},
    // Dead before the answer comes: Execute then returns a result for a client that has gone.
    {"DeadBeforeExecuteReturns", "/bytes?n=4194304&mode=close&head_ms=8000", false},
    {"BlockedInRead", "/stall?n=1000000&sent=20000", true},
    // 1 GiB at up to 16 MB/s, delimited by the connection's close: the platform then closes the connection with the
    // request instead of reading the rest of the body first.
    {"InTheMiddleOfALongBody", "/slow?n=1073741824&piece=65536&delay_ms=4&mode=close", true},
};

class Lifetime : public Pipeline {
protected:
    void SetUp() override { ConfigureDirect(); }

    static std::string Healthy(int seed)
    {
        return FetchChecked(Url("/bytes?n=100000&mode=close&seed=") + std::to_string(seed));
    }

    // Starts `count` clients on the moment's URL, waits until each is there and kills them all.
    static void KillClientsAt(const Moment& moment, int count)
    {
        const std::string mark = "client=" + std::to_string(GetTickCount()) + "-";
        auto start = [&](int i) { return new TFetchClient(Url(moment.path) + "&max_ms=300000&" + mark + std::to_string(i)); };
        std::vector<std::unique_ptr<TFetchClient>> clients;
        for (int i = 0; i < count; ++i)
            clients.emplace_back(start(i));
        for (int i = 0; i < count; ++i) {
            const std::string logged = mark + std::to_string(i) + "\"";
            auto arrived = [&] {
                const TFetchClient& client = *clients[i];
                auto there = [&] {
                    return moment.answered ? client.Answered()
                                           : ReadWholeFile(std::getenv("VN_ORIGIN_LOG")).find(logged) != std::string::npos;
                };
                return WaitUntil([&] { return there() || !client.Running(); }, 60000) && client.Running();
            };
            // Under Wine activations from new processes right after clients died
            // in a call are refused now and then (0x800706BB); a later one is served.
            bool ok = arrived();
            auto refused = [&] { return clients[i]->Output().find("0x800706BB") != std::string::npos; };
            for (int retry = 1; !ok && retry <= 5 && refused(); ++retry) {
                std::printf("note: activation refused after killed clients, client %d, retry %d\n", i, retry);
                Sleep(1000);
                clients[i].reset(start(i));
                ok = arrived();
            }
            if (!ok && refused()) {
                // Wine's RPC runtime now and then loses its listener for good after clients died: the server's
                // listening thread waits with no pipe instance, every new process is refused with 0x800706BB, and the
                // connected ones are served on. Nothing in the server can mend that (nor end it under Wine, where dead
                // clients' references stay): what is left to check is that the connected client is served.
                clients.clear();
                ASSERT_EQ("", Healthy(100)) << "the connected client must still be served";
                GTEST_SKIP() << "Wine's RPC listener of the server takes no new processes any more (0x800706BB)";
            }
            ASSERT_TRUE(ok) << "client " << i << " ended early: " << clients[i]->Output();
        }
    }
};

// Clients that come while the last one leaves: the root object is built anew each time, and a late release must not
// undo the new object's setup. First of this file: a killed client's reference would keep the object for good. The
// clients are script processes, each activating and letting go in a loop.
class LastRelease : public Lifetime {};

TEST_F(LastRelease, ActivationsRacingTheLastReleaseAllSucceedInOneServer)
{
    const TServerProcess server;
    s_root.reset();  // the test's own reference would keep the object alive
    const size_t log = LogSize();
    const std::string script = BinDir() + "\\vn-activations.vbs";
    std::ofstream(script) << "On Error Resume Next\r\n"
                             "For i = 1 To 60\r\n"
                             "  Set host = CreateObject(\"VnLinkhost.VnLinkhostObject\")\r\n"
                             "  If Err.Number = 0 Then v = host.GetInfo(\"Version\")\r\n"
                             "  If Err.Number <> 0 Then WScript.Echo \"pass \" & i & \": \" & Hex(Err.Number): WScript.Quit 1\r\n"
                             "  Set host = Nothing\r\n"
                             "Next\r\n";
    std::vector<std::string> outputs(4);
    std::vector<DWORD> codes(4);
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i)
        clients.emplace_back([&, i] { codes[i] = RunCapture("cscript.exe //nologo " + Quoted(script), outputs[i], 120000); });
    for (int i = 0; i < 4; ++i) {
        clients[i].join();
        EXPECT_EQ(0u, codes[i]) << outputs[i];
    }
    DeleteFileA(script.c_str());
    EXPECT_GT(CountLogLinesSince(log, " starting up"), 2) << "the last release never met a new activation";
    EXPECT_EQ(server.pid(), FindProcess("VnLinkhost.exe")) << "the server ended, or a second one served";
    s_root = CreateRoot();
    ASSERT_TRUE(s_root);
    EXPECT_TRUE(ShutDownServer(s_root)) << "the server must still end with its last client";
}

TEST_F(Lifetime, DestinationIsReachableOnlyWithAComplete200)
{
    for (auto [url, expected] : {std::make_pair(Url("/echo"), VARIANT_TRUE), std::make_pair(Url("/status/404"), VARIANT_FALSE),
                                 std::make_pair(Url("/", "refused"), VARIANT_FALSE)}) {
        VARIANT_BOOL reachable = VARIANT_BOOL(~expected);
        EXPECT_EQ(S_OK, s_root->CheckDestinationReachable(vfc::TBstr(vfc::Widen(url)).get(), &reachable));
        EXPECT_EQ(expected, reachable) << url;
    }
}

TEST_F(Lifetime, ResultReleasedAfterAPartialReadDoesNotWaitForTheRestOfTheBody)
{
    const TServerProcess server;
    TCounts baseline = {};
    for (int i = 0; i < 4; ++i) {
        auto request = Request(Url("/bytes?n=67108864&mode=close"), L"GET");
        vfc::TComPtr<IVnWebResult> result;
        vfc::TComPtr<IVnStream> stream;
        vn_streams::TSafeArray data;
        ASSERT_EQ(S_OK, Execute(request.get(), result));
        ASSERT_EQ(S_OK, result->get_DataStream(stream.put()));
        ASSERT_EQ(S_OK, stream->Read(65536, data.put()));
        if (i > 0) {  // what the client holds is counted: the count going back to the baseline means something
            const TCounts held = CountsOf(server.pid());
            EXPECT_GT(held.objects[kLiveStreams], baseline.objects[kLiveStreams]) << "release " << i;
            EXPECT_GT(held.heap, baseline.heap) << "release " << i;
        }
        const DWORD start = GetTickCount();
        stream.reset(), result.reset(), request.reset();
        // Taking in the rest of 64 MiB would keep the client for seconds.
        ASSERT_LT(GetTickCount() - start, 2000u) << "release " << i;
        if (i == 0)
            baseline = Settled(server.pid());
    }
    ExpectBackTo(baseline, server);
    EXPECT_EQ("", Healthy(1));
}

// A second Execute must not wait for the first run's receive thread, wherever that thread waits: in the platform for a
// byte that comes 8 s after the head, or for room in a full queue that nobody reads (stream taken or not).
TEST_F(Lifetime, SecondExecuteDoesNotWaitForAFirstRunThatStalled)
{
    // path, whether the body fills the queue, whether the stream is taken
    const std::tuple<const char*, bool, bool> kRuns[] = {
        {"/slow?n=1&piece=1&delay_ms=8000", false, false}, {"/bytes?n=4194304", true, false}, {"/bytes?n=4194304", true, true}};
    for (const auto& [path, fills, takeStream] : kRuns) {
        auto request = Request(Url(path), L"GET");
        const TServerProcess server;
        vfc::TComPtr<IVnWebResult> first, second;
        const LONG64 heap = CountsOf(server.pid()).heap;
        ASSERT_EQ(S_OK, Execute(request.get(), first));
        // A full queue is in the server's heap, or in the ring once the stream is taken.
        const LONG64 full = kStreamQueueLimit - kStreamChunkSize;
        vfc::TComPtr<IVnStream> stream;
        LONG queued = 0;
        if (takeStream) {
            ASSERT_EQ(S_OK, first->get_DataStream(stream.put()));
        }
        if (fills) {
            EXPECT_TRUE(WaitUntil([&] {
                return takeStream ? SUCCEEDED(stream->get_AvailableBytes(&queued)) && queued > full
                                  : CountsOf(server.pid()).heap - heap > full;
            }, 10000)) << path << ": the queue never filled";
        }
        const DWORD start = GetTickCount();
        EXPECT_EQ(S_OK, Execute(request.get(), second)) << path;
        EXPECT_LT(GetTickCount() - start, 4000u) << path << ": the second Execute waited for the first run";
        EXPECT_EQ(200, Code(second.get())) << path;
    }
}

// Bodies that come in small pieces with pauses between them, so that the receive thread's reads wait for the network
// again and again; after a request without a body, and after one whose body went out in blocks.
TEST_F(Lifetime, TrickledBodiesArriveWholeByLengthAndChunked)
{
    for (const wchar_t* verb : {L"GET", L"POST"})
        for (const char* mode : {"length", "chunked"}) {
            auto request = Request(Url("/slow?n=30000&piece=700&delay_ms=3&seed=7&mode=") + mode, verb);
            ASSERT_EQ(S_OK, *verb == L'P' ? WriteBody(request.get(), std::string(20000, 'b')) : S_OK);
            const TAnswer answer = Answer(request.get());
            EXPECT_EQ(std::make_tuple(S_OK, S_OK, size_t(30000), answer.digest), std::make_tuple(answer.hr, answer.end, answer.body.size(),
                      Sha256(answer.body))) << vfc::Narrow(verb) << " " << mode;
        }
}

// Fifty clients killed at one moment, in rounds of ten: after each round the server still serves, and at the end it
// holds what it held after the first. Registered at start-up, these run after every other test of the program, since a
// server that crashes here leaves a stale registration.
class ClientDeath : public Lifetime, public testing::WithParamInterface<Moment> {};

TEST_P(ClientDeath, FiftyKilledClientsLeaveNoThreadsHandlesOrSockets)
{
    // The origin never gives up a silent or stalled answer by itself: the
    // platform's receive time-out ends what a closed handle still waits for.
    // It must outlast the start of a round's ten clients, one after another,
    // or the first of them gives up before it is killed.
    const TReceiveTimeout shortened(15000);
    const TServerProcess server;
    const int before = OriginSockets();
    TCounts baseline = {};
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ASSERT_NO_FATAL_FAILURE(KillClientsAt(GetParam(), 10));
        if (IsSkipped())
            return;
        ASSERT_EQ("", Healthy(round)) << "the server must still serve";
        if (round == 0) {  // the platform's pools have grown: count from here
            EXPECT_TRUE(WaitUntil([&] { return OriginSockets() <= before + 1; }, 45000)) << "first round's sockets";
            baseline = Settled(server.pid());
        }
    }
    ExpectBackTo(baseline, server);
    EXPECT_EQ("", Healthy(5)) << "the server must still serve";
}

INSTANTIATE_TEST_SUITE_P(AtEachMoment, ClientDeath, testing::ValuesIn(kMoments),
                         [](const testing::TestParamInfo<Moment>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace vn_test
