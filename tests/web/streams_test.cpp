// The queue streams and what they are made of: the interlocked buffer, bytes
// in chunks and in order, bounded where a writer waits for room; the process
// monitor, whose waits end with the death of a real client process; the read
// side, from the receive thread to the client, and the write side, from the
// client's writes to the request, with their ends, time-outs, lines and
// refusals, the after-write callback, the order of release, and calls by name.
#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "common/test_util.h"
#include "host/status.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"
#include "web/interlocked_buffer.h"
#include "web/stream_arrays.h"
#include "web/streams.h"

using vn_streams::TSafeArray;
using vn_test::WaitUntil;

// Not a test: the body of the client process that the tests start and kill.
TEST(ClientProcess, DISABLED_SleepsUntilKilled) { ::Sleep(120000); }

namespace {

constexpr LONG kLimit = 262144, kChunk = 4096;

// No 4096-byte stretch repeats another, so a lost, doubled or swapped chunk shows.
std::string Pattern(size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    unsigned state = seed * 2654435761u + 12345u;
    for (char& b : bytes) {
        state ^= state << 13, state ^= state >> 17, state ^= state << 5;
        b = static_cast<char>(state >> 11);
    }
    return bytes;
}

const BYTE* Data(const std::string& bytes) { return reinterpret_cast<const BYTE*>(bytes.data()); }

SAFEARRAY* MakeArray(const std::string& bytes)
{
    SAFEARRAY* array = ::SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
    if (array && !bytes.empty())
        std::memcpy(array->pvData, bytes.data(), bytes.size());
    return array;
}

// The bytes of an array as a read hands it out: one dimension of bytes from index 0.
std::string ArrayText(SAFEARRAY* array)
{
    VARTYPE vt = VT_EMPTY;
    LONG lower = -1, upper = -2;
    if (!array || FAILED(::SafeArrayGetVartype(array, &vt)) || vt != VT_UI1 || ::SafeArrayGetDim(array) != 1 ||
        FAILED(::SafeArrayGetLBound(array, 1, &lower)) || lower != 0 || FAILED(::SafeArrayGetUBound(array, 1, &upper)))
        return "<no byte array>";
    return std::string(static_cast<const char*>(array->pvData), static_cast<size_t>(upper + 1));
}

// This test program once more, running only ClientProcess.DISABLED_SleepsUntilKilled.
struct TClient : vn_test::TChild {
    TClient() : TChild(CommandLine()) {}
    void Kill()
    {
        ::TerminateProcess(handle(), 0xDEAD);
        Wait(10000);
    }
    static std::string CommandLine()
    {
        char exe[MAX_PATH] = {};
        ::GetModuleFileNameA(nullptr, exe, MAX_PATH);
        return "\"" + std::string(exe) + "\" --gtest_also_run_disabled_tests --gtest_filter=ClientProcess.DISABLED_SleepsUntilKilled";
    }
};


template <typename Stream>
vfc::TComPtr<Stream> New()
{
    vfc::TComPtr<Stream> stream;
    EXPECT_EQ(S_OK, Stream::Create(stream.put()));
    return stream;
}

LONG Put(CVnQueueCustomStream* stream, const std::string& bytes, LONG start = 0, LONG count = -1)
{
    return stream->WriteToQueue(reinterpret_cast<const BYTE*>(bytes.data()), start,
                                count < 0 ? static_cast<LONG>(bytes.size()) : count);
}

LONG Available(IVnStream* stream)
{
    LONG count = -2;
    EXPECT_EQ(S_OK, stream->get_AvailableBytes(&count));
    return count;
}

std::string Status(HRESULT hr)
{
    const std::pair<HRESULT, const char*> names[] = {
        {VN_E_READ_TIMEOUT, "<timeout>"}, {VN_E_STREAM_BROKEN, "<broken>"}, {E_INVALIDARG, "<invalid>"},
        {VN_E_STREAM_NOT_READABLE, "<not readable>"}, {VN_E_STREAM_NOT_WRITABLE, "<not writable>"}};
    for (const auto& name : names)
        if (hr == name.first)
            return name.second;
    return "<" + std::to_string(hr) + ">";
}

// The bytes of one read, or the name of its failure.
std::string Read(IVnStream* stream, LONG maximum, LONG timeout = 20000)
{
    TSafeArray array;
    const HRESULT hr = stream->ReadWithTimeout(maximum, timeout, array.put());
    return hr == S_OK ? ArrayText(array.get()) : Status(hr) + (array ? "+array" : "");
}

// What ReadFromQueue hands out, checked for the zero byte behind it, or "<none>".
std::string Take(CVnQueueCustomStream* stream, LONG maximum = 0)
{
    LONG count = -1;
    std::unique_ptr<BYTE[]> block = stream->ReadFromQueue(maximum, &count, 0);
    if (!block)
        return count == 0 ? "<none>" : "<none, count " + std::to_string(count) + ">";
    return block[count] == 0 ? std::string(reinterpret_cast<const char*>(block.get()), count) : "<no zero byte>";
}

// A call on its own thread. Join waits up to 20 s for it, then frees it by
// queueing a byte, ending the body and emptying the queue, so that a fault
// fails the test instead of hanging it; false if it had to be freed.
class TCall {
public:
    template <typename F>
    explicit TCall(F f) : m_thread([this, f] {
        f();
        m_done = true;
    })
    {
    }
    ~TCall() { Join(nullptr); }
    bool done() const { return m_done; }
    bool Join(CVnQueueReadStream* stream)
    {
        const bool byItself = WaitUntil([this] { return m_done.load(); }, stream ? 20000 : 0);
        for (int round = 0; stream && !m_done && round < 10000; ++round) {
            Put(stream, "x");
            stream->SetDone(true);
            stream->CVnQueueCustomStream::ReadFromQueue(0, nullptr, 0);
            ::Sleep(1);
        }
        if (m_thread.joinable())
            m_thread.join();
        return byItself;
    }

private:
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

// A waiting buffer filled to its limit, and a writer adding one chunk more on
// its own thread; a writer still held at the end is freed by Drain.
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

}  // namespace

TEST(QueueStreams, CallsGiveTheirBytesCountsEndsTimeOutsLinesAndRefusals)
{
    // Steps: "+text" queues bytes, "qS,N" queues a slice of "abc", "wS,N" writes a slice of "0123456789"
    // through the interface, "rN[/T]" reads N bytes waiting T ms, "tN" takes N bytes out as the request
    // does, "s" and "s0" read a line, "!" ends the body, "a", "p" and "e": available, position, empty.
    const struct {
        bool readSide;
        LONG expectedLength;
        const char* steps;  // separated by '|'
        const char* results;
    } rows[] = {
        {true, 0, "+0123456789|r0|+abcdefghij|r1000|+xyz|r2|a|p", "0123456789|abcdefghij|xy|1|22"},  // no wait for more
        {true, 0, "+abc|r-1|a|w0,3|a", "<invalid>|3|<not writable>:0|3"},
        {true, 0, "+abc|+def|!|r4|r4|r4|a", "abcd|ef||-1"},
        {true, 6, "+abc|+def|!|r4|r4|r4|a", "abcd|ef||-1"},  // the body had its whole length
        {true, 10, "+abcd|!|a|r0|a|r0", "4|abcd|-1|<broken>"},  // it ended short of it
        {true, 0, "r10/0|a|r10/0|r10/5000", "<timeout>|-1||"},  // a time-out ends the body for good
        {true, 10, "+abc|r0/0|r0/0|r0/5000", "abc|<timeout>|<broken>"},
        {true, 0, "+ab\r\ncd|s|a|s|s", "ab\n|3|cd\n|<none>"},  // CR ends a line, the LF is skipped next time
        {true, 0, "+\r\n\r\n\n|s0|a", "\n|0"},
        {true, 0, "+GET / HTTP/1.0\r\nHost: example\r\n\r\nbody|s|s|s", "GET / HTTP/1.0\n|Host: example\n|body\n"},
        {false, 0, "w2,5|w9,1|a|t3|t100|t0|p|e", "5|1|6|234|569|<none>|6|1"},  // more than queued, like 0, takes all
        {false, 0, "w-1,3|w0,0|w0,-5|w8,3|w10,1|a", "<invalid>:0|<invalid>:0|<invalid>:0|<invalid>:0|<invalid>:0|0"},
        {false, 0, "q-1,2|q0,0|q1,2|t0", "0|0|2|bc"},
        {false, 0, "+line\r\n|r0|r0/0|s|s0|a", "<not readable>|<not readable>|<not readable>|<not readable>|6"},
    };
    for (const auto& row : rows) {
        auto read = New<CVnQueueReadStream>();
        auto write = New<CVnQueueWriteStream>();
        CVnQueueCustomStream* stream = row.readSide ? static_cast<CVnQueueCustomStream*>(read.get()) : write.get();
        read->SetExpectedLength(row.expectedLength);
        std::string results, steps = row.steps;
        for (size_t pos = 0, end = 0; pos <= steps.size(); pos = end + 1) {
            end = std::min(steps.find('|', pos), steps.size());
            const std::string step = steps.substr(pos, end - pos), numbers = step.substr(1);
            const LONG first = std::atol(numbers.c_str()), second = std::atol(numbers.substr(numbers.find_first_of(",/") + 1).c_str());
            vfc::TBstr line;
            TSafeArray digits(MakeArray("0123456789"));
            LONG count = 99;
            if (step[0] == '+')
                Put(stream, step.substr(1));
            else if (step[0] == '!')
                read->SetDone(true);
            else if (step[0] == 'q')
                results += std::to_string(Put(stream, "abc", first, second)) + "|";
            else if (step[0] == 'w') {
                const HRESULT hr = stream->Write(digits.get(), first, second, &count);
                results += (hr == S_OK ? "" : Status(hr) + ":") + std::to_string(count) + "|";
            } else if (step[0] == 'r')
                results += Read(stream, first, numbers.find('/') == std::string::npos ? -1 : second) + "|";
            else if (step[0] == 't')
                results += Take(stream, first) + "|";
            else if (step[0] == 's') {
                const HRESULT hr = step == "s" ? stream->ReadString(line.put()) : stream->ReadStringWithTimeout(0, line.put());
                results += (hr != S_OK ? Status(hr) : line.get() ? vfc::Narrow(line.str()) : "<none>") + "|";
            } else {
                results += std::to_string(step == "a"   ? Available(stream)
                                          : step == "p" ? static_cast<LONG>(stream->GetPosition())
                                                        : static_cast<LONG>(stream->IsEmpty())) + "|";
            }
        }
        EXPECT_EQ(std::string(row.results) + "|", results) << row.steps;
        for (IVnStream* side : {static_cast<IVnStream*>(read.get()), static_cast<IVnStream*>(write.get())}) {
            VARIANT_BOOL canRead = VARIANT_FALSE, canWrite = VARIANT_FALSE;
            LONG position = 0;
            EXPECT_TRUE(side->get_CanRead(&canRead) == S_OK && side->get_CanWrite(&canWrite) == S_OK);
            EXPECT_EQ(side == read.get(), canRead == VARIANT_TRUE && canWrite == VARIANT_FALSE);
            EXPECT_EQ(side == write.get(), canRead == VARIANT_FALSE && canWrite == VARIANT_TRUE);
            EXPECT_EQ(S_OK, side->get_Position(&position));
            EXPECT_EQ(-1, position);  // the count of bytes read stays inside
        }
    }
}

TEST(ReadStream, ABodyFarAboveTheBoundArrivesWholeInOrderAndBounded)
{
    for (LONG block : {LONG(4096), 6 * kLimit + 17}) {  // as the receive callback writes, and in one write
        auto stream = New<CVnQueueReadStream>();
        const std::string body = Pattern(block == 4096 ? 16 * kLimit + 1234 : block, block);
        TCall writer([&] {
            for (size_t off = 0; off < body.size(); off += block)
                Put(stream.get(), body, static_cast<LONG>(off), std::min<LONG>(block, static_cast<LONG>(body.size() - off)));
            stream->SetDone(true);
        });
        const LONG sizes[] = {1, 4095, 4096, 4097, 10000, 0, 65536, 300000};
        std::string got;
        LONG largest = 0;
        for (size_t i = 0; i < 100000; ++i) {
            largest = std::max(largest, Available(stream.get()));
            TSafeArray array;
            const HRESULT hr = stream->ReadWithTimeout(sizes[i % 8], 20000, array.put());
            if (hr != S_OK || ArrayText(array.get()).empty()) {
                EXPECT_EQ(S_OK, hr);
                break;
            }
            got += ArrayText(array.get());
        }
        EXPECT_TRUE(writer.Join(stream.get()));
        EXPECT_TRUE(got == body) << got.size() << " of " << body.size();
        EXPECT_LE(largest, kLimit);
        EXPECT_EQ(-1, Available(stream.get()));
    }
}

TEST(ReadStream, AWaitingReaderIsWokenByDataAndByTheEndOfTheBody)
{
    auto stream = New<CVnQueueReadStream>();
    for (const std::string arriving : {"late", ""}) {
        std::string got;
        TCall reader([&] { got = Read(stream.get(), 100, -1); });
        ::Sleep(100);
        EXPECT_FALSE(reader.done());
        if (arriving.empty())
            stream->SetDone(true);
        else
            Put(stream.get(), arriving);
        EXPECT_TRUE(reader.Join(stream.get()));
        EXPECT_EQ(arriving, got);
    }
}

TEST(InterlockedBuffer, RefusesABadChunkSizeAndNullDataAndKeepsEveryByteInOrder)
{
    for (DWORD chunk : {DWORD(0), DWORD(kLimit + 1)}) {
        try {
            InterlockedBuffer(kLimit, true, false, chunk);
            ADD_FAILURE() << "chunk size " << chunk << " taken";
        } catch (const std::range_error& e) {
            EXPECT_STREQ("InterlockedBuffer::ctor: maxChunkSize must be != 0 and <= dwMaxSize", e.what());
        }
    }
    InterlockedBuffer buffer(kLimit, true, false, kChunk);
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
    const std::string body = Pattern(100000, 5);
    for (size_t off = 0; off < body.size(); off += 7001)
        buffer.Write(Data(body) + off, static_cast<DWORD>(std::min<size_t>(7001, body.size() - off)));
    std::string got, piece(5000, '\0');
    const DWORD sizes[] = {1, 333, 4095, 4096, 4097, 5000, 0};
    for (size_t i = 0; got.size() < body.size() && i < 1000; ++i)
        got.append(piece, 0, buffer.Read(reinterpret_cast<BYTE*>(&piece[0]), sizes[i % 7]));
    EXPECT_TRUE(got == body);
    EXPECT_EQ(0u, buffer.GetSize());
}

TEST(InterlockedBuffer, WriteTellsWhetherTheQueueIsBelowItsLimitAndWithoutWaitingGrowsPastIt)
{
    InterlockedBuffer buffer(kLimit, false, false, kChunk);
    const std::string body = Pattern(4 * kLimit, 9);
    std::string results;
    for (const auto& part : {std::make_pair(0u, 0u), {0u, kLimit - 1u}, {kLimit - 1u, 1u}, {0u, 0u}, {kLimit, 3 * kLimit}})
        results += buffer.Write(Data(body) + part.first, part.second) ? '1' : '0';
    EXPECT_EQ("11000", results);
    std::string got(body.size(), '\0');
    EXPECT_EQ(body.size(), buffer.Read(reinterpret_cast<BYTE*>(&got[0]), static_cast<DWORD>(got.size())));
    EXPECT_TRUE(got == body);
}

TEST(InterlockedBuffer, AWaitingWriterIsFreedByRoomForAWholeChunkOrByDrain)
{
    BYTE piece[kChunk];
    FullBuffer full, drained;
    ASSERT_EQ(100u, full.buffer.Read(piece, 100));
    ::Sleep(200);
    EXPECT_FALSE(full.returned);  // room for less than a chunk is not enough
    ASSERT_EQ(kChunk, full.buffer.Read(piece, kChunk));
    ASSERT_TRUE(full.Freed());
    EXPECT_TRUE(full.result);
    EXPECT_EQ(kLimit - 100, full.buffer.GetSize());
    EXPECT_FALSE(drained.returned);
    drained.buffer.Drain();
    ASSERT_TRUE(drained.Freed());
    EXPECT_EQ(kChunk, drained.buffer.Read(piece, kChunk));  // only the writer's chunk is left
    EXPECT_EQ(std::string(kChunk, 'Z'), std::string(reinterpret_cast<char*>(piece), kChunk));
    EXPECT_EQ(0u, drained.buffer.GetSize());
}

TEST(ClientDeath, EndsMonitorWaitsAWaitingBufferWriteAndTheStreamsWaits)
{
    TClient client;
    ASSERT_TRUE(client.started());
    vfc::THandle event(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
    VnProcessMonitor monitor(client.pid());
    ::SetEvent(event.get());
    EXPECT_EQ(WAIT_OBJECT_0, monitor.Wait(event.get(), 10000));
    FullBuffer full(client.pid());
    auto reading = New<CVnQueueReadStream>(), writing = New<CVnQueueReadStream>();
    reading->SetMonitor(VnProcessMonitor(client.pid()));
    writing->SetMonitor(VnProcessMonitor(client.pid()));
    std::string got;
    TCall reader([&] { got = Read(reading.get(), 100, -1); });
    TCall writer([&] { Put(writing.get(), Pattern(kLimit + 4096, 14)); });
    ASSERT_TRUE(WaitUntil([&] { return Available(writing.get()) == kLimit; }, 20000));
    ::Sleep(100);
    EXPECT_FALSE(reader.done() || writer.done() || full.returned);
    client.Kill();
    EXPECT_EQ(WAIT_OBJECT_0 + 1, monitor.Wait(event.get(), 10000));
    ASSERT_TRUE(full.Freed());
    EXPECT_FALSE(full.result);
    EXPECT_TRUE(reader.Join(reading.get()));
    EXPECT_TRUE(writer.Join(writing.get()));
    EXPECT_EQ("<broken>", got);
    EXPECT_EQ(-1, Available(reading.get()));
    EXPECT_EQ(kLimit, Available(writing.get()));  // what was queued stays, in the buffer as in the stream
    EXPECT_EQ(DWORD(kLimit), full.buffer.GetSize());
}

TEST(ProcessMonitor, WatchesNothingWithoutAProcessAndOwnsTheHandleItOpens)
{
    vfc::THandle event(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
    VnProcessMonitor none, unknown(0xFFFFFFF0u);  // process ids are multiples of four
    for (VnProcessMonitor* alone : {&none, &unknown}) {
        EXPECT_EQ(nullptr, alone->GetProcess());
        EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), alone->Wait(event.get(), 0));
        ::SetEvent(event.get());
        EXPECT_EQ(WAIT_OBJECT_0, alone->Wait(event.get(), 0));
    }
    auto open = [](HANDLE h) { DWORD flags = 0; return ::GetHandleInformation(h, &flags) != FALSE; };
    HANDLE mine = nullptr;
    {
        VnProcessMonitor monitor(::GetCurrentProcessId());
        mine = monitor.GetProcess();
        ASSERT_NE(nullptr, mine);
        EXPECT_EQ(mine, monitor.GetProcess());
        VnProcessMonitor copy(monitor), assigned;
        assigned = monitor;
        EXPECT_EQ(std::make_pair(::GetCurrentProcessId(), ::GetCurrentProcessId()),
                  std::make_pair(copy.GetProcessId(), assigned.GetProcessId()));
        EXPECT_TRUE(copy.GetProcess() && copy.GetProcess() != mine && assigned.GetProcess() != mine);
        monitor = ::GetCurrentProcessId();  // the same id keeps the handle
        EXPECT_EQ(mine, monitor.GetProcess());
        monitor = 4;  // another closes it
        EXPECT_FALSE(open(mine));
        mine = copy.GetProcess();
    }
    EXPECT_FALSE(open(mine));  // the destructor closed it
}

namespace {

// Plays the receive thread: writes until the stream is done, and records what
// the stream asks of it at its release.
struct FakeReceiveThread : IReceiveThreadOwner {
    explicit FakeReceiveThread(CVnQueueReadStream* s) : stream(s), writer([s] {
        while (!s->IsDone())
            Put(s, std::string(4096, 'B'));
    })
    {
    }
    void ReleaseDoneable() override { calls += "release;"; }
    void StopReceiveThread() override
    {
        // The stream must have freed the thread before it asks for the join.
        calls += WaitUntil([this] { return writer.done(); }, 20000) ? "stop;" : "stop while held;";
        writer.Join(stream);
    }
    CVnQueueReadStream* stream;
    std::string calls;
    TCall writer;
};

}  // namespace

TEST(ReadStream, ReleaseFreesAReceiveThreadBlockedOnAFullQueueBeforeJoiningIt)
{
    auto stream = New<CVnQueueReadStream>();
    auto receive = std::make_shared<FakeReceiveThread>(stream.get());
    stream->SetReceiveThread(receive);
    ASSERT_TRUE(WaitUntil([&] { return Available(stream.get()) == kLimit; }, 20000));
    stream.reset();
    EXPECT_EQ("release;stop;", receive->calls);
}

TEST(WriteStream, ABodyOfAnySizeIsCachedWithoutWaiting)
{
    auto stream = New<CVnQueueWriteStream>();
    const std::string body = Pattern(4 * kLimit + 3, 21);
    TSafeArray large(MakeArray(body));
    LONG count = 0;
    TCall writer([&] { stream->Write(large.get(), 0, static_cast<LONG>(body.size()), &count); });
    EXPECT_TRUE(WaitUntil([&] { return writer.done(); }, 20000));
    if (!writer.done())
        Take(stream.get());
    writer.Join(nullptr);
    EXPECT_EQ(static_cast<LONG>(body.size()), count);
    EXPECT_TRUE(Take(stream.get()) == body);
}

namespace {

// Owned by the stream; counts its deletion. SendAll does what the instant
// model does: takes out all that is queued, on the writing thread.
struct SendBlock : AfterWriteParam {
    SendBlock(CVnQueueCustomStream* s, std::atomic<int>* deletions) : stream(s), deleted(deletions) {}
    ~SendBlock() override { ++*deleted; }
    static void SendAll(AfterWriteParam* param)
    {
        auto* block = static_cast<SendBlock*>(param);
        for (++block->calls; !block->stream->IsEmpty();)
            block->sent += Take(block->stream, 4);
    }
    static void WaitAtGate(AfterWriteParam* param)
    {
        ::SetEvent(static_cast<SendBlock*>(param)->inside.get());
        ::WaitForSingleObject(static_cast<SendBlock*>(param)->release.get(), 20000);
    }
    CVnQueueCustomStream* stream;
    std::atomic<int>* deleted;
    std::string sent;
    int calls = 0;
    vfc::THandle inside{::CreateEventW(nullptr, TRUE, FALSE, nullptr)}, release{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

}  // namespace

TEST(WriteStream, AfterWriteCallbackSendsEachWriteUnderTheLockAndItsBlockBelongsToTheStream)
{
    std::atomic<int> deleted{0};
    auto stream = New<CVnQueueWriteStream>();
    auto owned = std::make_unique<SendBlock>(stream.get(), &deleted);
    SendBlock* block = owned.get();
    EXPECT_EQ(nullptr, stream->SetAfterWriteCallback(SendBlock::SendAll, std::move(owned)));
    TSafeArray data(MakeArray("hello, world"));
    LONG count = 0;
    ASSERT_EQ(S_OK, stream->Write(data.get(), 0, 5, &count));
    ASSERT_EQ(S_OK, stream->Write(data.get(), 5, 7, &count));
    EXPECT_EQ(E_INVALIDARG, stream->Write(data.get(), 0, 0, &count));  // a refused write does not call it
    EXPECT_EQ("2 hello, world 0", std::to_string(block->calls) + " " + block->sent + " " + std::to_string(Available(stream.get())));

    auto gated = std::make_unique<SendBlock>(stream.get(), &deleted);
    SendBlock* gate = gated.get();
    EXPECT_EQ(SendBlock::SendAll, stream->SetAfterWriteCallback(SendBlock::WaitAtGate, std::move(gated)));
    EXPECT_EQ(1, deleted.load());
    TCall writer([&] { Put(stream.get(), "abc"); });
    ASSERT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(gate->inside.get(), 20000));
    std::atomic<LONG> seen{-2};
    TCall other([&] { seen = Available(stream.get()); });  // waits while the callback runs
    ::Sleep(200);
    EXPECT_EQ(-2, seen.load());
    ::SetEvent(gate->release.get());
    writer.Join(nullptr);
    other.Join(nullptr);
    EXPECT_EQ(3, seen.load());
    stream->ClearAfterWriteCallback();
    EXPECT_EQ(2, deleted.load());
    Put(stream.get(), "def");  // without a callback a write just queues
    EXPECT_EQ("abcdef", Take(stream.get()));
    stream->SetAfterWriteCallback(SendBlock::SendAll, std::make_unique<SendBlock>(stream.get(), &deleted));
    stream.reset();
    EXPECT_EQ(3, deleted.load());
}

TEST(QueueStreams, ScriptClientsCallThemByNameThroughTheEmbeddedTypeLibrary)
{
    ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    {
        auto read = New<CVnQueueReadStream>();
        auto write = New<CVnQueueWriteStream>();
        Put(read.get(), "hello\r\nworld");
        vfc::TComPtr<IDispatch> reading, writing;
        ASSERT_EQ(S_OK, read.query_to(reading.put()));
        ASSERT_EQ(S_OK, write.query_to(writing.put()));
        // Calls `name` with the arguments in declaration order, and gives its status and result as text.
        auto call = [](IDispatch* dispatch, const wchar_t* name, WORD flags, std::vector<VARIANT> args = {}) {
            LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
            DISPID id = DISPID_UNKNOWN;
            dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
            std::reverse(args.begin(), args.end());  // DISPPARAMS run from the last to the first
            DISPPARAMS params = {args.empty() ? nullptr : args.data(), nullptr, static_cast<UINT>(args.size()), 0};
            EXCEPINFO excep = {};
            vfc::TVariant result;
            HRESULT hr = dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result.put(), &excep, nullptr);
            hr = hr == DISP_E_EXCEPTION ? excep.scode : hr;
            ::SysFreeString(excep.bstrSource), ::SysFreeString(excep.bstrDescription), ::SysFreeString(excep.bstrHelpFile);
            return hr != S_OK ? Status(hr) : result->vt == VT_I4 ? std::to_string(result->lVal)
                 : result->vt == VT_BOOL ? std::to_string(result->boolVal) : result->vt == VT_BSTR ? vfc::Narrow(result->bstrVal)
                 : result->vt == (VT_ARRAY | VT_UI1) ? ArrayText(result->parray) : "<vt " + std::to_string(result->vt) + ">";
        };
        vfc::TVariant three(3L), four(4L), data;
        data.get()->vt = VT_ARRAY | VT_UI1;
        data.get()->parray = MakeArray("0123456789");
        EXPECT_EQ("12", call(reading.get(), L"AvailableBytes", DISPATCH_PROPERTYGET));
        EXPECT_EQ("-1", call(reading.get(), L"CanRead", DISPATCH_PROPERTYGET));
        EXPECT_EQ("hello\n", call(reading.get(), L"ReadString", DISPATCH_METHOD));
        EXPECT_EQ("\nwo", call(reading.get(), L"Read", DISPATCH_METHOD, {*three}));
        EXPECT_EQ("3", call(writing.get(), L"Write", DISPATCH_METHOD, {*data, *four, *three}));
        EXPECT_EQ("456", Take(write.get()));
        EXPECT_EQ("<not readable>", call(writing.get(), L"Read", DISPATCH_METHOD, {*three}));
        LPOLESTR available[] = {const_cast<LPOLESTR>(L"AvailableBytes")};
        DISPID id = 0;
        EXPECT_EQ(S_OK, reading->GetIDsOfNames(IID_NULL, available, 1, LOCALE_USER_DEFAULT, &id));
        EXPECT_EQ(0x60020002, id);
    }
    ::CoUninitialize();
}
