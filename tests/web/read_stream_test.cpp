// CVnQueueReadStream: a response body from the receive thread to the client,
// through IVnStream, with its end, its time-outs, a short body, lines, the
// client's death and the order of its release.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/status.h"
#include "tests/web/stream_test_util.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "web/stream_arrays.h"
#include "web/streams.h"

namespace {

using vn_streams::TSafeArray;
using vn_test::WaitUntil;
using vn_web_test::ArrayBytes;
using vn_web_test::ArrayText;
using vn_web_test::Bytes;
using vn_web_test::Pattern;
using vn_web_test::TClientProcess;

constexpr LONG kLimit = 262144;

vfc::TComPtr<CVnQueueReadStream> NewReadStream()
{
    vfc::TComPtr<CVnQueueReadStream> stream;
    EXPECT_EQ(S_OK, CVnQueueReadStream::Create(stream.put()));
    return stream;
}

void Put(CVnQueueReadStream* stream, const std::string& text)
{
    ASSERT_EQ(static_cast<LONG>(text.size()),
              stream->WriteToQueue(reinterpret_cast<const BYTE*>(text.data()), 0, static_cast<LONG>(text.size())));
}

LONG Available(IVnStream* stream)
{
    LONG count = -2;
    EXPECT_EQ(S_OK, stream->get_AvailableBytes(&count));
    return count;
}

// Plays the receive thread: writes the body in blocks, 4096 bytes as the
// receive callback does unless told otherwise, and then, when asked, sets
// the stream done. Joined at the latest when the test ends; a writer still
// held back then is freed by emptying the queue, so that a fault fails the
// test instead of hanging it.
class TWriter {
public:
    TWriter(CVnQueueReadStream* stream, const std::vector<BYTE>& body, LONG block = 4096, bool setDone = true)
        : m_stream(stream),
          m_thread([this, &body, block, setDone] {
              for (size_t off = 0; off < body.size(); off += block) {
                  const LONG n = static_cast<LONG>(std::min<size_t>(block, body.size() - off));
                  m_stream->WriteToQueue(body.data(), static_cast<LONG>(off), n);
              }
              if (setDone)
                  m_stream->SetDone(true);
              m_returned = true;
          })
    {
    }
    ~TWriter() { Finish(); }
    TWriter(const TWriter&) = delete;
    TWriter& operator=(const TWriter&) = delete;

    bool returned() const { return m_returned; }
    // Joins the writer; false when it did not end by itself within 20 s.
    bool Finish()
    {
        if (!m_thread.joinable())
            return true;
        const bool byItself = WaitUntil([this] { return m_returned.load(); }, 20000);
        for (int round = 0; !m_returned && round < 100000; ++round) {
            LONG count = 0;
            m_stream->CVnQueueCustomStream::ReadFromQueue(0, &count, 0);
            ::Sleep(1);
        }
        m_thread.join();
        return byItself;
    }

private:
    CVnQueueReadStream* m_stream;
    std::atomic<bool> m_returned{false};
    std::thread m_thread;
};

// A client call of Read on its own thread. Joined at the latest when the
// test ends; a reader still waiting then is freed by data and the end of the
// body.
class TReader {
public:
    TReader(CVnQueueReadStream* stream, LONG maximumCount)
        : m_stream(stream),
          m_thread([this, maximumCount] {
              TSafeArray array;
              const HRESULT hr = m_stream->Read(maximumCount, array.put());
              if (array)
                  m_bytes = ArrayBytes(array.get());
              m_result = hr;
          })
    {
    }
    ~TReader() { Finish(); }
    TReader(const TReader&) = delete;
    TReader& operator=(const TReader&) = delete;

    // E_PENDING while the call has not returned.
    HRESULT result() const { return m_result; }
    // Joins the reader; false when it did not return by itself within 20 s.
    bool Finish()
    {
        if (!m_thread.joinable())
            return true;
        const bool byItself = WaitUntil([this] { return m_result.load() != E_PENDING; }, 20000);
        if (!byItself) {
            Put(m_stream, "x");
            m_stream->SetDone(true);
        }
        m_thread.join();
        return byItself;
    }
    // What the call read; valid after Finish.
    const std::vector<BYTE>& bytes() const { return m_bytes; }

private:
    CVnQueueReadStream* m_stream;
    std::atomic<HRESULT> m_result{E_PENDING};
    std::vector<BYTE> m_bytes;
    std::thread m_thread;
};

// Reads with changing sizes until the stream gives an empty array; every
// read must succeed, and none may wait longer than 20 s. Keeps the largest
// queue seen on the way.
std::vector<BYTE> ReadToEnd(IVnStream* stream, LONG* largestQueue)
{
    const LONG sizes[] = {1, 4095, 4096, 4097, 10000, 0, 65536, 300000};
    std::vector<BYTE> got;
    for (size_t i = 0;; ++i) {
        *largestQueue = std::max(*largestQueue, Available(stream));
        TSafeArray array;
        const HRESULT hr = stream->ReadWithTimeout(sizes[i % 8], 20000, array.put());
        if (hr != S_OK) {
            ADD_FAILURE() << "Read failed with " << std::hex << hr;
            break;
        }
        const std::vector<BYTE> piece = ArrayBytes(array.get());
        if (piece.empty())
            break;
        got.insert(got.end(), piece.begin(), piece.end());
    }
    return got;
}

}  // namespace

TEST(ReadStreamTransfer, BodyFarAboveTheBoundArrivesWholeAndInOrder)
{
    auto stream = NewReadStream();
    const std::vector<BYTE> body = Pattern(16 * kLimit + 1234, 11);
    TWriter producer(stream.get(), body);
    LONG largest = 0;
    const std::vector<BYTE> got = ReadToEnd(stream.get(), &largest);
    EXPECT_TRUE(producer.Finish());

    EXPECT_EQ(body.size(), got.size());
    EXPECT_TRUE(got == body);
    EXPECT_LE(largest, kLimit);
    EXPECT_EQ(-1, Available(stream.get()));
}

TEST(ReadStreamTransfer, OneWriteFarAboveTheBoundIsQueuedAsTheClientReads)
{
    auto stream = NewReadStream();
    const std::vector<BYTE> body = Pattern(6 * kLimit + 17, 12);
    TWriter producer(stream.get(), body, static_cast<LONG>(body.size()));
    LONG largest = 0;
    const std::vector<BYTE> got = ReadToEnd(stream.get(), &largest);
    EXPECT_TRUE(producer.Finish());

    EXPECT_TRUE(got == body);
    EXPECT_LE(largest, kLimit);
}

TEST(ReadStreamTransfer, FullQueueHoldsTheWriterUntilTheClientReads)
{
    auto stream = NewReadStream();
    const std::vector<BYTE> body = Pattern(kLimit + 4096, 13);
    TWriter writer(stream.get(), body, 4096, false);
    ASSERT_TRUE(WaitUntil([&] { return Available(stream.get()) == kLimit; }, 20000));
    ::Sleep(200);
    EXPECT_FALSE(writer.returned());
    EXPECT_EQ(kLimit, Available(stream.get()));

    TSafeArray array;
    ASSERT_EQ(S_OK, stream->Read(4096, array.put()));
    EXPECT_TRUE(ArrayBytes(array.get()) == std::vector<BYTE>(body.begin(), body.begin() + 4096));
    EXPECT_TRUE(writer.Finish());
    EXPECT_EQ(kLimit, Available(stream.get()));
}

TEST(ReadStreamTransfer, EndOfBodyWakesAWaitingReader)
{
    auto stream = NewReadStream();
    TReader reader(stream.get(), 100);
    ::Sleep(100);
    EXPECT_EQ(E_PENDING, reader.result());
    stream->SetDone(true);
    EXPECT_TRUE(reader.Finish());
    EXPECT_EQ(S_OK, reader.result());
    EXPECT_EQ(0u, reader.bytes().size());
}

TEST(ReadStreamTransfer, DataArrivingWithinTheTimeOutIsRead)
{
    auto stream = NewReadStream();
    std::thread late([&] {
        ::Sleep(100);
        Put(stream.get(), "late");
    });
    TSafeArray array;
    EXPECT_EQ(S_OK, stream->ReadWithTimeout(10, 20000, array.put()));
    late.join();
    EXPECT_EQ("late", ArrayText(array.get()));
    EXPECT_FALSE(stream->IsDone());
}

TEST(ReadStreamCounts, ZeroOrMoreThanQueuedTakesAllWithoutWaitingForMore)
{
    auto stream = NewReadStream();
    Put(stream.get(), "0123456789");
    TSafeArray array;
    ASSERT_EQ(S_OK, stream->ReadWithTimeout(0, 20000, array.put()));
    EXPECT_EQ("0123456789", ArrayText(array.get()));

    Put(stream.get(), "abcdefghij");
    // Had it waited for 1000 bytes it would run out of time instead.
    ASSERT_EQ(S_OK, stream->ReadWithTimeout(1000, 20000, array.put()));
    EXPECT_EQ("abcdefghij", ArrayText(array.get()));

    Put(stream.get(), "xyz");
    ASSERT_EQ(S_OK, stream->Read(2, array.put()));
    EXPECT_EQ("xy", ArrayText(array.get()));
    EXPECT_EQ(1, Available(stream.get()));
    EXPECT_FALSE(stream->IsDone());
}

TEST(ReadStreamCounts, NegativeMaximumIsAnInvalidArgument)
{
    auto stream = NewReadStream();
    Put(stream.get(), "abc");
    TSafeArray array;
    EXPECT_EQ(E_INVALIDARG, stream->Read(-1, array.put()));
    EXPECT_FALSE(array);
    EXPECT_EQ(3, Available(stream.get()));
}

TEST(ReadStreamTimeOut, AnExpiredReadEndsTheStreamForGood)
{
    for (LONG timeout : {0, 50}) {
        auto stream = NewReadStream();
        TSafeArray array;
        EXPECT_EQ(VN_E_READ_TIMEOUT, stream->ReadWithTimeout(10, timeout, array.put()));
        EXPECT_FALSE(array);
        EXPECT_TRUE(stream->IsDone());
        EXPECT_EQ(-1, Available(stream.get()));

        // No second time-out and no wait: the body is over.
        EXPECT_EQ(S_OK, stream->ReadWithTimeout(10, 0, array.put()));
        EXPECT_EQ(0u, ArrayBytes(array.get()).size());
        // A stream that was not done would run out of time here once more.
        EXPECT_EQ(S_OK, stream->ReadWithTimeout(10, 5000, array.put()));
        EXPECT_EQ(0u, ArrayBytes(array.get()).size());
        EXPECT_TRUE(stream->IsDone());
    }
}

TEST(ReadStreamTimeOut, ATimeOutLeavesTheBodyShortOfItsLength)
{
    auto stream = NewReadStream();
    stream->SetExpectedLength(10);
    Put(stream.get(), "abc");
    TSafeArray array;
    ASSERT_EQ(S_OK, stream->ReadWithTimeout(0, 0, array.put()));
    EXPECT_EQ("abc", ArrayText(array.get()));
    EXPECT_EQ(VN_E_READ_TIMEOUT, stream->ReadWithTimeout(0, 0, array.put()));
    EXPECT_EQ(VN_E_STREAM_BROKEN, stream->ReadWithTimeout(0, 5000, array.put()));
    EXPECT_FALSE(array);
}

TEST(ReadStreamEnd, ShortBodyGivesItsBytesThenBroken)
{
    auto stream = NewReadStream();
    stream->SetExpectedLength(10);
    Put(stream.get(), "abcd");
    stream->SetDone(true);
    EXPECT_EQ(4, Available(stream.get()));

    TSafeArray array;
    ASSERT_EQ(S_OK, stream->Read(0, array.put()));
    EXPECT_EQ("abcd", ArrayText(array.get()));
    EXPECT_EQ(-1, Available(stream.get()));
    EXPECT_EQ(VN_E_STREAM_BROKEN, stream->Read(0, array.put()));
    EXPECT_FALSE(array);
}

TEST(ReadStreamEnd, BodyOfItsFullLengthOrWithoutOneEndsWithAnEmptyArray)
{
    for (LONG expected : {0, 6}) {
        auto stream = NewReadStream();
        stream->SetExpectedLength(expected);
        Put(stream.get(), "abc");
        Put(stream.get(), "def");
        stream->SetDone(true);
        TSafeArray array;
        ASSERT_EQ(S_OK, stream->Read(4, array.put()));
        EXPECT_EQ("abcd", ArrayText(array.get()));
        ASSERT_EQ(S_OK, stream->Read(4, array.put()));
        EXPECT_EQ("ef", ArrayText(array.get()));
        ASSERT_EQ(S_OK, stream->Read(4, array.put()));
        EXPECT_EQ(0u, ArrayBytes(array.get()).size());
        EXPECT_EQ(-1, Available(stream.get()));
    }
}

TEST(ReadStreamLines, CarriageReturnEndsALineAndTheLineFeedIsSkippedNextTime)
{
    auto stream = NewReadStream();
    Put(stream.get(), "ab\r\ncd");
    vfc::TBstr line;
    ASSERT_EQ(S_OK, stream->ReadString(line.put()));
    EXPECT_EQ(L"ab\n", line.str());
    EXPECT_EQ(3, Available(stream.get()));
    // The queue runs empty, which ends the second line without a line end.
    ASSERT_EQ(S_OK, stream->ReadString(line.put()));
    EXPECT_EQ(L"cd\n", line.str());
    ASSERT_EQ(S_OK, stream->ReadString(line.put()));
    EXPECT_EQ(nullptr, line.get());
}

TEST(ReadStreamLines, OnlyLineEndsYieldOneLineFeed)
{
    auto stream = NewReadStream();
    Put(stream.get(), "\r\n\r\n\n");
    vfc::TBstr line;
    ASSERT_EQ(S_OK, stream->ReadStringWithTimeout(0, line.put()));
    EXPECT_EQ(L"\n", line.str());
    EXPECT_EQ(0, Available(stream.get()));
}

TEST(ReadStreamLines, HeadOfARequestComesLineByLine)
{
    auto stream = NewReadStream();
    Put(stream.get(), "GET / HTTP/1.0\r\nHost: example\r\n\r\nbody");
    vfc::TBstr line;
    std::vector<std::wstring> lines;
    while (stream->ReadString(line.put()) == S_OK && line.get())
        lines.push_back(line.str());
    EXPECT_EQ((std::vector<std::wstring>{L"GET / HTTP/1.0\n", L"Host: example\n", L"body\n"}), lines);
}

TEST(ReadStreamLines, EmptyQueueGivesNoTextWithoutWaiting)
{
    auto stream = NewReadStream();
    vfc::TBstr line;
    EXPECT_EQ(S_OK, stream->ReadString(line.put()));
    EXPECT_EQ(nullptr, line.get());
    EXPECT_FALSE(stream->IsDone());
}

TEST(ReadStreamInterface, ReadsButRefusesWritesAndHasNoPosition)
{
    auto stream = NewReadStream();
    VARIANT_BOOL flag = VARIANT_FALSE;
    EXPECT_EQ(S_OK, stream->get_CanRead(&flag));
    EXPECT_EQ(VARIANT_TRUE, flag);
    EXPECT_EQ(S_OK, stream->get_CanWrite(&flag));
    EXPECT_EQ(VARIANT_FALSE, flag);

    TSafeArray data(vn_web_test::MakeArray(Bytes("abc")));
    LONG count = 99;
    EXPECT_EQ(VN_E_STREAM_NOT_WRITABLE, stream->Write(data.get(), 0, 3, &count));
    EXPECT_EQ(0, count);
    EXPECT_EQ(0, Available(stream.get()));

    Put(stream.get(), "abc");
    TSafeArray array;
    ASSERT_EQ(S_OK, stream->Read(0, array.put()));
    LONG position = 0;
    EXPECT_EQ(S_OK, stream->get_Position(&position));
    EXPECT_EQ(-1, position);
    EXPECT_EQ(3u, stream->GetPosition());
}

TEST(ReadStreamClientDeath, AWaitingReadEndsAsBroken)
{
    TClientProcess client;
    ASSERT_TRUE(client.started()) << "error " << client.error();
    auto stream = NewReadStream();
    stream->SetMonitor(VnProcessMonitor(client.pid()));
    TReader reader(stream.get(), 100);
    ::Sleep(100);
    EXPECT_EQ(E_PENDING, reader.result());

    client.Kill();
    EXPECT_TRUE(reader.Finish());
    EXPECT_EQ(VN_E_STREAM_BROKEN, reader.result());
    EXPECT_TRUE(stream->IsDone());
    EXPECT_EQ(-1, Available(stream.get()));
}

TEST(ReadStreamClientDeath, AWriterWaitingForRoomIsFreedAndTheQueueStays)
{
    TClientProcess client;
    ASSERT_TRUE(client.started()) << "error " << client.error();
    auto stream = NewReadStream();
    stream->SetMonitor(VnProcessMonitor(client.pid()));
    const std::vector<BYTE> body = Pattern(kLimit + 4096, 14);
    TWriter writer(stream.get(), body, 4096, false);
    ASSERT_TRUE(WaitUntil([&] { return Available(stream.get()) == kLimit; }, 20000));
    ::Sleep(100);
    EXPECT_FALSE(writer.returned());

    client.Kill();
    EXPECT_TRUE(WaitUntil([&] { return writer.returned(); }, 20000));
    EXPECT_EQ(kLimit, Available(stream.get()));
}

namespace {

// Plays the ReceiveThreadWrapper: its thread writes blocks as the receive
// callback does, stopping once the stream is done, and it records what the
// stream asked of it.
class FakeReceiveThread : public IReceiveThreadOwner {
public:
    FakeReceiveThread(CVnQueueReadStream* stream) : m_stream(stream), m_doneable(stream)
    {
        m_thread = std::thread([this] {
            const std::vector<BYTE> block(4096, 0x42);
            while (!m_stream->IsDone())
                m_stream->WriteToQueue(block.data(), 0, 4096);
            m_finished = true;
        });
    }
    ~FakeReceiveThread() override
    {
        if (m_thread.joinable())
            m_thread.join();
    }
    void ReleaseDoneable() override
    {
        calls += "release;";
        if (m_doneable)
            m_doneable->SetDone(true);
        m_doneable = nullptr;
    }
    void StopReceiveThread() override
    {
        calls += "stop;";
        // The stream must have freed the thread before asking for the join.
        finishedBeforeJoin = WaitUntil([this] { return m_finished.load(); }, 20000);
        if (!finishedBeforeJoin) {
            // Make room ourselves, so that a stream that forgot to do it
            // fails this test instead of hanging it.
            LONG count = 0;
            m_stream->ReadFromQueue(0, &count, 0);
        }
        m_thread.join();
    }

    std::string calls;
    bool finishedBeforeJoin = false;

private:
    CVnQueueReadStream* m_stream;
    IDoneable* m_doneable;
    std::atomic<bool> m_finished{false};
    std::thread m_thread;
};

}  // namespace

TEST(ReadStreamRelease, FreesAReceiveThreadBlockedOnAFullQueueBeforeJoiningIt)
{
    auto stream = NewReadStream();
    auto receive = std::make_shared<FakeReceiveThread>(stream.get());
    stream->SetReceiveThread(receive);
    ASSERT_TRUE(WaitUntil([&] { return Available(stream.get()) == kLimit; }, 20000));

    stream.reset();
    EXPECT_EQ("release;stop;", receive->calls);
    EXPECT_TRUE(receive->finishedBeforeJoin);
}
