// The queue streams and their parts: the interlocked buffer, bounded where a writer waits for room; the process
// monitor, whose waits end with a real client's death; the read side to the client and the write side from it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "common/test_util.h"
#include "host/status.h"
#include "vfc/bstr.h"
#include "vfc/text.h"
#include "web/stream_arrays.h"
#include "web/streams.h"

using vn_streams::TSafeArray;
using vn_test::WaitUntil;

// Not a test: the body of the client process that the tests start and kill.
TEST(ClientProcess, DISABLED_SleepsUntilKilled) { ::Sleep(120000); }

namespace {

constexpr LONG kLimit = 262144, kChunk = 4096;

// No 4096-byte stretch repeats another, so a lost, doubled or swapped chunk shows.
std::string Pattern(size_t size, unsigned state)
{
    std::string bytes(size, '\0');
    for (char& b : bytes)
        state ^= state << 13, state ^= state >> 17, state ^= state << 5, b = static_cast<char>(state >> 11);
    return bytes;
}

const BYTE* Data(const std::string& bytes) { return reinterpret_cast<const BYTE*>(bytes.data()); }

const std::string kClientCommand = "\"" + vn_test::ThisProgram() + "\" --gtest_also_run_disabled_tests --gtest_filter=ClientProcess.DISABLED_*";

template <typename Stream>
vfc::TComPtr<Stream> New() { vfc::TComPtr<Stream> stream; EXPECT_EQ(S_OK, Stream::Create(stream.put())); return stream; }

LONG Put(CVnQueueCustomStream* stream, const std::string& bytes, LONG start = 0, LONG count = -1)
{
    return stream->WriteToQueue(Data(bytes), start, count < 0 ? static_cast<LONG>(bytes.size()) : count);
}

LONG Available(IVnStream* stream) { LONG count = -2; return stream->get_AvailableBytes(&count) == S_OK ? count : -3; }

std::string Status(HRESULT hr)
{
    return hr == VN_E_READ_TIMEOUT ? "<timeout>" : hr == VN_E_STREAM_BROKEN ? "<broken>" : hr == E_INVALIDARG ? "<invalid>"
         : hr == VN_E_STREAM_NOT_READABLE ? "<not readable>" : hr == VN_E_STREAM_NOT_WRITABLE ? "<not writable>" : "<?>";
}

// The bytes of one read (Read for a time-out of -1), one dimension of bytes from index 0, or the name of its failure.
std::string Read(IVnStream* stream, LONG maximum, LONG timeout)
{
    TSafeArray array;
    const HRESULT hr = timeout == -1 ? stream->Read(maximum, array.put())
                                     : stream->ReadWithTimeout(maximum, timeout, array.put());
    VARTYPE vt = VT_EMPTY;
    LONG lower = -1, upper = -2;
    if (hr != S_OK || !array)
        return Status(hr) + (array ? "+array" : "");
    if (FAILED(::SafeArrayGetVartype(array.get(), &vt)) || vt != VT_UI1 || ::SafeArrayGetDim(array.get()) != 1 ||
        FAILED(::SafeArrayGetLBound(array.get(), 1, &lower)) || lower != 0 || FAILED(::SafeArrayGetUBound(array.get(), 1, &upper)))
        return "<no byte array>";
    return std::string(static_cast<const char*>(array.get()->pvData), static_cast<size_t>(upper + 1));
}

// What ReadFromQueue hands out, checked for the zero byte behind it.
std::string Take(CVnQueueCustomStream* stream, LONG maximum = 0)
{
    LONG count = -1;
    std::unique_ptr<BYTE[]> block = stream->ReadFromQueue(maximum, &count, 0);
    const std::string bytes = block ? std::string(reinterpret_cast<char*>(block.get()), count) : "";
    return !block ? (count == 0 ? "<none>" : "<count>") : block[count] ? "<no zero byte>" : bytes;
}

// A call on its own thread; Join waits 20 s, then frees it through the stream, so that a fault fails and not hangs.
struct TCall {
    template <typename F>
    explicit TCall(F f) : thread([this, f] { f(), done = true; }) {}
    ~TCall() { Join(nullptr); }
    bool Join(CVnQueueReadStream* stream)  // false if it had to be freed
    {
        const bool byItself = WaitUntil([this] { return done.load(); }, stream ? 20000 : 0);
        for (int round = 0; stream && !done && round < 10000; ++round, ::Sleep(1))
            Put(stream, "x"), stream->SetDone(true), stream->CVnQueueCustomStream::ReadFromQueue(0, nullptr, 0);
        thread.joinable() ? thread.join() : void();
        return byItself;
    }
    std::atomic<bool> done{false};
    std::thread thread;
};

// A waiting buffer filled to its limit, and a writer adding a chunk more; one still held at the end is freed by a read.
struct FullBuffer {
    explicit FullBuffer(DWORD client = 0)
    {
        buffer.SetMonitor(VnProcessMonitor(client));
        buffer.Write(Data(Pattern(kLimit, 3)), kLimit);
        writer = std::thread([this] { result = buffer.Write(Data(std::string(kChunk, 'Z')), kChunk), returned = true; });
        ::Sleep(200);
    }
    ~FullBuffer()
    {
        BYTE room[kChunk] = {};
        for (int round = 0; !returned && round < 1000; ++round, ::Sleep(1))
            buffer.Write(room, 1), buffer.Read(room, kChunk);  // a read wakes a writer still held
        writer.join();
    }
    bool Freed() { return WaitUntil([this] { return returned.load(); }, 20000); }
    InterlockedBuffer buffer{kLimit, true, false, kChunk};
    std::atomic<bool> returned{false}, result{false};
    std::thread writer;
};

// One step of the scripts below; "" for steps that give nothing.
std::string Step(CVnQueueCustomStream* stream, CVnQueueReadStream* read, const std::string& step)
{
    const std::string numbers = step.substr(1);
    const LONG first = std::atol(numbers.c_str()), second = std::atol(numbers.substr(numbers.find_first_of(",/") + 1).c_str());
    TSafeArray digits(::SafeArrayCreateVector(VT_UI1, 0, 10));
    std::memcpy(digits.get()->pvData, "0123456789", 10);
    LONG count = 99;
    VARIANT_BOOL canRead = 1, canWrite = 1;
    vfc::TBstr line;
    HRESULT hr = S_OK;
    switch (step[0]) {
    case '+': return Put(stream, numbers), "";
    case '!': return read->SetDone(true), "";
    case 'q': return std::to_string(Put(stream, "abc", first, second));
    case 'w': return hr = stream->Write(digits.get(), first, second, &count), (hr ? Status(hr) + ":" : "") + std::to_string(count);
    case 'r': return Read(stream, first, numbers.find('/') == std::string::npos ? -1 : second);
    case 't': return Take(stream, first);
    case 's': hr = step == "s" ? stream->ReadString(line.put()) : stream->ReadStringWithTimeout(0, line.put());
              return hr ? Status(hr) : line.get() ? vfc::Narrow(line.str()) : "<none>";
    case 'a': return std::to_string(Available(stream));
    case 'p': return std::to_string(stream->GetPosition());
    case 'c': hr = stream->get_CanRead(&canRead) | stream->get_CanWrite(&canWrite) | stream->get_Position(&count);
              return std::string(hr ? "<failed>" : "") + (canRead ? "R" : "") + (canWrite ? "W" : "") + std::to_string(count);
    }
    return std::to_string(stream->IsEmpty());
}

}  // namespace

TEST(QueueStreams, CallsGiveTheirBytesCountsEndsTimeOutsLinesAndRefusals)
{
    // "+text" and "qS,N" queue bytes; "wS,N" writes a slice of "0123456789"; "rN[/T]" reads N bytes by Read (or waiting T
    // ms); "tN" takes N out as the request does; "s", "s0" read a line; "!" ends the body; "a", "p", "e", "c": see Step.
    const std::tuple<bool, LONG, std::string, std::string> rows[] = {  // the read side or the write side, the length expected
        {true, 0, "+0123456789|r0|+abcdefghij|r1000|+xyz|r2|a|p|c", "0123456789|abcdefghij|xy|1|22|R-1"},  // no wait for more
        {true, 0, "+abc|r-1|a|w0,3|a", "<invalid>|3|<not writable>:0|3"},
        {true, 0, "+abc|+def|!|r4|r4|r4|a", "abcd|ef||-1"},
        {true, 6, "+abc|+def|!|r4|r4|r4|a", "abcd|ef||-1"},  // the body had its whole length
        {true, 10, "+abcd|!|a|r0|a|r0", "4|abcd|-1|<broken>"},  // it ended short of it
        {true, 0, "r10/0|a|r10/0|r10/5000", "<timeout>|-1||"},  // a time-out ends the body for good
        {true, 10, "+abc|r0/0|r0/0|r0/5000", "abc|<timeout>|<broken>"},
        {true, 0, "+ab\r\ncd|s|a|s|s", "ab\n|3|cd\n|<none>"},  // CR ends a line, the LF is skipped next time
        {true, 0, "+\r\n\r\n\n|s0|a", "\n|0"},
        {true, 0, "+GET / HTTP/1.0\r\nHost: example\r\n\r\nbody|s|s|s", "GET / HTTP/1.0\n|Host: example\n|body\n"},
        {false, 0, "w2,5|w9,1|a|t3|t100|t0|p|e|c", "5|1|6|234|569|<none>|6|1|W-1"},  // more than queued, like 0, takes all
        {false, 0, "w-1,3|w0,0|w0,-5|w8,3|w10,1|a", "<invalid>:0|<invalid>:0|<invalid>:0|<invalid>:0|<invalid>:0|0"},
        {false, 0, "q-1,2|q0,0|q1,2|t0", "0|0|2|bc"},
        {false, 0, "+line\r\n|r0|r0/0|s|s0|a", "<not readable>|<not readable>|<not readable>|<not readable>|6"},
    };
    for (auto& [readSide, expectedLength, steps, expected] : rows) {
        auto read = New<CVnQueueReadStream>();
        auto write = New<CVnQueueWriteStream>();
        read->SetExpectedLength(expectedLength);
        std::string results;
        for (size_t pos = 0, end = 0; end != std::string::npos; pos = end + 1) {
            const std::string step = steps.substr(pos, (end = steps.find('|', pos)) - pos);
            const std::string result = Step(readSide ? static_cast<CVnQueueCustomStream*>(read.get()) : write.get(), read.get(), step);
            results += step[0] == '+' || step[0] == '!' ? "" : result + "|";
        }
        EXPECT_EQ(expected + "|", results) << steps;
    }
}

TEST(QueueStreams, ABodyFarAboveTheBoundGoesWholeInOrderBoundedOnTheReadSideAndWithoutWaitOnTheWriteSide)
{
    for (LONG block : {kChunk, 6 * kLimit + 17}) {  // as the receive callback writes, and in one write
        auto stream = New<CVnQueueReadStream>();
        const std::string body = Pattern(block == kChunk ? 16 * kLimit + 1234 : block, block);
        TCall writer([&] {
            for (size_t off = 0; off < body.size(); off += block)
                Put(stream.get(), body, static_cast<LONG>(off), std::min<LONG>(block, static_cast<LONG>(body.size() - off)));
            stream->SetDone(true);
        });
        const LONG sizes[] = {1, 4095, 4096, 4097, 10000, 0, 65536, 300000};
        std::string got, piece = "?";
        LONG largest = 0;
        for (size_t i = 0; !piece.empty() && i < 100000; ++i)
            largest = std::max(largest, Available(stream.get())), got += piece = Read(stream.get(), sizes[i % 8], 20000);
        EXPECT_TRUE(writer.Join(stream.get()));
        EXPECT_TRUE(got == body) << got.size() << " of " << body.size();  // a failure's name spoils it
        EXPECT_LE(largest, kLimit);
        EXPECT_EQ(-1, Available(stream.get()));
    }
    auto cache = New<CVnQueueWriteStream>();  // a request's body, cached whole
    const std::string body = Pattern(4 * kLimit + 3, 21);
    TCall writer([&] { Put(cache.get(), body); });
    EXPECT_TRUE(WaitUntil([&] { return writer.done.load(); }, 20000));
    EXPECT_TRUE(Take(cache.get()) == body);  // which also frees a writer that wrongly waits
}

// Plays the receive thread: writes until the stream is done, and records what the stream asks of it at its release.
struct FakeReceiveThread : IReceiveThreadOwner {
    explicit FakeReceiveThread(CVnQueueReadStream* s)
        : stream(s), writer([s] { for (int i = 0; !s->IsDone() && i < 100000; ++i) Put(s, std::string(kChunk, 'B')); }) {}
    void ReleaseDoneable() override { calls += "release;"; }
    void StopReceiveThread() override  // the thread must be free before the join
    {
        calls += WaitUntil([this] { return writer.done.load(); }, 20000) ? "stop;" : "stop while held;";
        writer.Join(stream);
    }
    CVnQueueReadStream* stream;
    std::string calls;
    TCall writer;
};

TEST(ReadStream, ReleaseFreesAReceiveThreadBlockedOnAFullQueueBeforeJoiningIt)
{
    auto stream = New<CVnQueueReadStream>();
    auto receive = std::make_shared<FakeReceiveThread>(stream.get());
    stream->SetReceiveThread(receive);
    ASSERT_TRUE(WaitUntil([&] { return Available(stream.get()) == kLimit; }, 20000));
    stream.reset();
    EXPECT_EQ("release;stop;", receive->calls);
}

TEST(InterlockedBuffer, RefusesABadChunkSizeAndNullData)
{
    for (DWORD chunk : {DWORD(0), DWORD(kLimit + 1)})
        EXPECT_THAT([chunk] { InterlockedBuffer(kLimit, true, false, chunk); },
                    testing::ThrowsMessage<std::range_error>("InterlockedBuffer::ctor: maxChunkSize must be != 0 and <= dwMaxSize"))
            << "chunk size " << chunk;
    InterlockedBuffer buffer(kLimit, true, false, kLimit);  // a chunk may be as large as the limit
    BYTE byte = 0;
    EXPECT_EQ(0u, buffer.Read(&byte, 1));  // an empty buffer gives nothing at once
    const auto nullData = testing::ThrowsMessage<std::invalid_argument>("InterlockedBuffer::Write called with pbData == NULL");
    EXPECT_THAT([&] { buffer.Write(nullptr, 1); }, nullData);
    EXPECT_THAT([&] { buffer.Read(nullptr, 1); }, nullData);  // Write's words on both sides
}

TEST(InterlockedBuffer, AWaitingWriterIsFreedByRoomForAWholeChunkOrByDrain)
{
    BYTE piece[kChunk];
    FullBuffer full, drained;
    ASSERT_EQ(100u, full.buffer.Read(piece, 100));
    ::Sleep(200);
    EXPECT_FALSE(full.returned);  // room for less than a chunk is not enough
    ASSERT_EQ(DWORD(kChunk), full.buffer.Read(piece, kChunk));
    EXPECT_TRUE(full.Freed() && full.result);
    EXPECT_EQ(DWORD(kLimit - 100), full.buffer.GetSize());
    EXPECT_FALSE(drained.returned);
    drained.buffer.Drain();
    ASSERT_TRUE(drained.Freed());
    EXPECT_EQ(DWORD(kChunk), drained.buffer.Read(piece, kChunk));  // only the writer's chunk is left
    EXPECT_EQ(std::string(kChunk, 'Z') + "0",
              std::string(reinterpret_cast<char*>(piece), kChunk) + std::to_string(drained.buffer.GetSize()));
}

TEST(ClientDeath, EndsMonitorWaitsAWaitingBufferWriteAndTheStreamsWaits)
{
    vn_test::TChild client(kClientCommand);
    ASSERT_TRUE(client.started());
    vfc::THandle event(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
    VnProcessMonitor monitor(client.pid()), unknown(0xFFFFFFF0u);  // process ids are multiples of four
    EXPECT_EQ(DWORD(WAIT_TIMEOUT), unknown.Wait(event.get(), 0));  // nothing to watch: the event alone
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
    EXPECT_FALSE(reader.done || writer.done || full.returned);
    ::TerminateProcess(client.handle(), 0xDEAD);
    EXPECT_EQ(WAIT_OBJECT_0 + 1, monitor.Wait(event.get(), 10000));
    EXPECT_TRUE(full.Freed() && !full.result);
    EXPECT_TRUE(reader.Join(reading.get()) && writer.Join(writing.get()));
    // What was queued stays, in the write's stream as in the buffer.
    EXPECT_EQ(std::make_tuple(std::string("<broken>"), -1L, kLimit, DWORD(kLimit)),
              std::make_tuple(got, Available(reading.get()), Available(writing.get()), full.buffer.GetSize()));
}
