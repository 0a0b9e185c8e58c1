// InterlockedBuffer and VnProcessMonitor: bytes in chunks and in order,
// bounded where a writer waits for room; a waiting writer freed by a read, by
// Drain or by the client's death; waits that end with their event or with the
// death of a real child process, on handles that each monitor owns.
#include "tests/web/web_support.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "web/interlocked_buffer.h"

using namespace vn_web_test;
using vn_test::WaitUntil;

// Not a test: the body of the client process that the tests start and kill.
TEST(ClientProcess, DISABLED_SleepsUntilKilled) { ::Sleep(120000); }

namespace {

constexpr DWORD kLimit = 262144, kChunk = 4096;

const BYTE* Data(const std::string& bytes) { return reinterpret_cast<const BYTE*>(bytes.data()); }

// A waiting buffer filled to its limit, and a writer on its own thread that
// adds one more chunk. A writer still held when the test ends is freed by
// Drain, so that a fault fails the test instead of hanging it.
struct FullBuffer {
    explicit FullBuffer(DWORD client = 0)
    {
        buffer.SetMonitor(VnProcessMonitor(client));
        buffer.Write(Data(Pattern(kLimit, 3)), kLimit);
        writer = std::thread([this] {
            result = buffer.Write(Data(std::string(kChunk, 'Z')), kChunk);
            returned = true;
        });
        ::Sleep(200);
    }
    ~FullBuffer()
    {
        if (!returned)
            buffer.Drain();
        writer.join();
    }
    bool Freed() { return WaitUntil([this] { return returned.load(); }, 20000); }

    InterlockedBuffer buffer{kLimit, true, false, kChunk};
    std::atomic<bool> returned{false}, result{false};
    std::thread writer;
};

bool IsOpenHandle(HANDLE h)
{
    DWORD flags = 0;
    return ::GetHandleInformation(h, &flags) != FALSE;
}

}  // namespace

TEST(InterlockedBuffer, RefusesABadChunkSizeAndNullData)
{
    for (DWORD chunk : {DWORD(0), kLimit + 1})
        EXPECT_THROW(InterlockedBuffer(kLimit, true, false, chunk), std::range_error) << chunk;
    try {
        InterlockedBuffer(kLimit, true, false, 0);
    } catch (const std::range_error& e) {
        EXPECT_STREQ("InterlockedBuffer::ctor: maxChunkSize must be != 0 and <= dwMaxSize", e.what());
    }
    InterlockedBuffer buffer(kLimit, false, false, kLimit);
    BYTE byte = 0;
    for (bool write : {true, false}) {
        try {
            write ? buffer.Write(nullptr, 10) : buffer.Read(nullptr, 10);
            ADD_FAILURE() << "null data taken";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ("InterlockedBuffer::Write called with pbData == NULL", e.what());  // on both sides
        }
    }
    EXPECT_EQ(0u, buffer.Read(&byte, 1));  // an empty buffer gives nothing at once
}

TEST(InterlockedBuffer, OddSizedWritesAndReadsKeepEveryByteInOrder)
{
    InterlockedBuffer buffer(kLimit, true, false, kChunk);
    const std::string body = Pattern(100000, 5);
    for (size_t off = 0; off < body.size(); off += 7001)
        buffer.Write(Data(body) + off, static_cast<DWORD>(std::min<size_t>(7001, body.size() - off)));
    EXPECT_EQ(body.size(), buffer.GetSize());
    std::string got, piece(5000, '\0');
    const DWORD sizes[] = {1, 333, 4095, 4096, 4097, 5000, 0};
    for (size_t i = 0; got.size() < body.size() && i < 1000; ++i)
        got.append(piece, 0, buffer.Read(reinterpret_cast<BYTE*>(&piece[0]), sizes[i % 7]));
    EXPECT_TRUE(got == body);
    EXPECT_EQ(0u, buffer.GetSize());
}

TEST(InterlockedBuffer, WriteTellsWhetherTheQueueIsBelowItsLimitAndGrowsWithoutWaiting)
{
    InterlockedBuffer buffer(kLimit, false, false, kChunk);
    const std::string body = Pattern(4 * kLimit, 9);
    EXPECT_TRUE(buffer.Write(Data(body), 0));
    EXPECT_TRUE(buffer.Write(Data(body), kLimit - 1));
    EXPECT_FALSE(buffer.Write(Data(body) + kLimit - 1, 1));
    EXPECT_FALSE(buffer.Write(Data(body), 0));
    EXPECT_FALSE(buffer.Write(Data(body) + kLimit, 3 * kLimit));
    std::string got(body.size(), '\0');
    EXPECT_EQ(body.size(), buffer.Read(reinterpret_cast<BYTE*>(&got[0]), static_cast<DWORD>(got.size())));
    EXPECT_TRUE(got == body);
}

TEST(InterlockedBuffer, AWaitingWriterIsFreedByRoomForAWholeChunk)
{
    FullBuffer full;
    EXPECT_FALSE(full.returned);
    BYTE piece[kChunk];
    ASSERT_EQ(100u, full.buffer.Read(piece, 100));
    ::Sleep(200);
    EXPECT_FALSE(full.returned);  // room for less than a chunk is not enough
    ASSERT_EQ(kChunk, full.buffer.Read(piece, kChunk));
    ASSERT_TRUE(full.Freed());
    EXPECT_TRUE(full.result);
    EXPECT_EQ(kLimit - 100, full.buffer.GetSize());
}

TEST(InterlockedBuffer, DrainEmptiesTheQueueAndFreesAWaitingWriter)
{
    FullBuffer full;
    EXPECT_FALSE(full.returned);
    full.buffer.Drain();
    ASSERT_TRUE(full.Freed());
    EXPECT_TRUE(full.result);
    std::string left(2 * kChunk, '\0');
    EXPECT_EQ(kChunk, full.buffer.Read(reinterpret_cast<BYTE*>(&left[0]), 2 * kChunk));  // the writer's chunk alone
    EXPECT_EQ(std::string(kChunk, 'Z'), left.substr(0, kChunk));
}

TEST(InterlockedBuffer, TheClientsDeathEndsAWaitingWriteWithFalse)
{
    TClient client;
    ASSERT_TRUE(client.started());
    FullBuffer full(client.pid());
    EXPECT_FALSE(full.returned);
    client.Kill();
    ASSERT_TRUE(full.Freed());
    EXPECT_FALSE(full.result);
    EXPECT_EQ(kLimit, full.buffer.GetSize());  // what was queued stays
}

TEST(ProcessMonitor, AWaitEndsWithTheEventOrTheClientsDeath)
{
    TClient client;
    ASSERT_TRUE(client.started());
    vfc::THandle event(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
    VnProcessMonitor monitor(client.pid()), none, unknown(0xFFFFFFF0u);  // ids are multiples of four
    ::SetEvent(event.get());
    EXPECT_EQ(WAIT_OBJECT_0, monitor.Wait(event.get(), 10000));
    client.Kill();
    EXPECT_EQ(WAIT_OBJECT_0 + 1, monitor.Wait(event.get(), 10000));
    for (VnProcessMonitor* alone : {&none, &unknown}) {  // no process to watch: the event alone
        EXPECT_EQ(nullptr, alone->GetProcess());
        EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), alone->Wait(event.get(), 0));
        ::SetEvent(event.get());
        EXPECT_EQ(WAIT_OBJECT_0, alone->Wait(event.get(), 0));
    }
}

TEST(ProcessMonitor, EachMonitorOpensItsOwnHandleOnceAndClosesIt)
{
    TClient client;
    ASSERT_TRUE(client.started());
    HANDLE mine = nullptr;
    {
        VnProcessMonitor monitor(::GetCurrentProcessId());
        mine = monitor.GetProcess();
        ASSERT_NE(nullptr, mine);
        EXPECT_EQ(mine, monitor.GetProcess());
        VnProcessMonitor copy(monitor), assigned;
        assigned = monitor;
        EXPECT_EQ(::GetCurrentProcessId(), copy.GetProcessId());
        EXPECT_EQ(::GetCurrentProcessId(), assigned.GetProcessId());
        EXPECT_NE(nullptr, copy.GetProcess());
        EXPECT_NE(mine, copy.GetProcess());
        EXPECT_NE(mine, assigned.GetProcess());
        monitor = ::GetCurrentProcessId();  // the same id keeps the handle
        EXPECT_EQ(mine, monitor.GetProcess());
        monitor = client.pid();  // another closes it
        EXPECT_FALSE(IsOpenHandle(mine));
        EXPECT_NE(nullptr, monitor.GetProcess());
        mine = copy.GetProcess();
    }
    EXPECT_FALSE(IsOpenHandle(mine));  // the destructor closed it
}
