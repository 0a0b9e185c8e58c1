// InterlockedBuffer: bytes in chunks, in order, bounded where a writer waits
// for room and unbounded where it does not; a waiting writer is freed by a
// read, by Drain, or by the client's death.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/web/stream_test_util.h"
#include "web/interlocked_buffer.h"

namespace {

using vn_test::WaitUntil;
using vn_web_test::Pattern;
using vn_web_test::TClientProcess;

constexpr DWORD kLimit = 262144;
constexpr DWORD kChunk = 4096;

// Fills a waiting buffer exactly to its limit.
void Fill(InterlockedBuffer& buffer)
{
    const std::vector<BYTE> bytes = Pattern(kLimit, 3);
    buffer.Write(bytes.data(), kLimit);
    ASSERT_EQ(kLimit, buffer.GetSize());
}

// A writer on its own thread that adds one more chunk to a full buffer.
class BlockedWriter {
public:
    explicit BlockedWriter(InterlockedBuffer& buffer)
        : m_buffer(buffer),
          m_thread([this, &buffer] {
              const std::vector<BYTE> extra(kChunk, 0x5A);
              m_result = buffer.Write(extra.data(), kChunk);
              m_returned = true;
          })
    {
    }
    ~BlockedWriter()
    {
        // A writer that the test expected to be freed but was not is freed
        // here, so that the failure shows instead of a hang.
        if (!m_returned)
            m_buffer.Drain();
        m_thread.join();
    }
    bool returned() const { return m_returned; }
    bool result() const { return m_result; }
    bool WaitReturned() { return WaitUntil([this] { return m_returned.load(); }, 20000); }

private:
    InterlockedBuffer& m_buffer;
    std::atomic<bool> m_returned{false};
    std::atomic<bool> m_result{true};
    std::thread m_thread;
};

}  // namespace

TEST(InterlockedBufferConstruction, RejectsAChunkSizeOfZeroOrAboveTheLimit)
{
    for (DWORD chunk : {DWORD(0), kLimit + 1}) {
        try {
            InterlockedBuffer buffer(kLimit, true, false, chunk);
            ADD_FAILURE() << "no exception for chunk size " << chunk;
        } catch (const std::range_error& e) {
            EXPECT_STREQ("InterlockedBuffer::ctor: maxChunkSize must be != 0 and <= dwMaxSize", e.what());
        }
    }
    EXPECT_NO_THROW(InterlockedBuffer(kLimit, true, false, kLimit));
}

TEST(InterlockedBufferArguments, NullDataIsRefusedOnBothSidesWithTheSameText)
{
    InterlockedBuffer buffer(kLimit, false, false, kChunk);
    try {
        buffer.Write(nullptr, 10);
        ADD_FAILURE() << "Write took null data";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ("InterlockedBuffer::Write called with pbData == NULL", e.what());
    }
    try {
        buffer.Read(nullptr, 10);
        ADD_FAILURE() << "Read took a null target";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ("InterlockedBuffer::Write called with pbData == NULL", e.what());
    }
}

TEST(InterlockedBufferOrder, OddSizedReadsGiveBackEveryByteInOrder)
{
    InterlockedBuffer buffer(kLimit, true, false, kChunk);
    const std::vector<BYTE> body = Pattern(100000, 5);
    // Writes that do not line up with the chunks either.
    for (size_t off = 0; off < body.size(); off += 7001)
        buffer.Write(body.data() + off, static_cast<DWORD>(std::min<size_t>(7001, body.size() - off)));
    EXPECT_EQ(body.size(), buffer.GetSize());

    std::vector<BYTE> got;
    std::vector<BYTE> piece(5000);
    const DWORD sizes[] = {1, 333, 4095, 4096, 4097, 5000};
    for (size_t i = 0; got.size() < body.size() && i < 100000; ++i) {
        const DWORD n = buffer.Read(piece.data(), sizes[i % 6]);
        ASSERT_GT(n, 0u);
        got.insert(got.end(), piece.begin(), piece.begin() + n);
    }
    EXPECT_TRUE(got == body);
    EXPECT_EQ(0u, buffer.GetSize());
}

TEST(InterlockedBufferOrder, ReadFromAnEmptyBufferGivesNothingAtOnce)
{
    InterlockedBuffer buffer(kLimit, true, false, kChunk);
    BYTE byte = 0;
    EXPECT_EQ(0u, buffer.Read(&byte, 1));
    const BYTE one = 7;
    buffer.Write(&one, 1);
    EXPECT_EQ(0u, buffer.Read(&byte, 0));
    EXPECT_EQ(1u, buffer.GetSize());
}

TEST(InterlockedBufferLimit, WriteTellsWhetherTheQueueIsStillBelowItsLimit)
{
    InterlockedBuffer buffer(kLimit, false, false, kChunk);
    const BYTE any = 1;
    EXPECT_TRUE(buffer.Write(&any, 0));
    const std::vector<BYTE> almost(kLimit - 1, 2);
    EXPECT_TRUE(buffer.Write(almost.data(), kLimit - 1));
    EXPECT_FALSE(buffer.Write(&any, 1));
    EXPECT_FALSE(buffer.Write(&any, 0));
}

TEST(InterlockedBufferLimit, WithoutWaitingTheQueueGrowsPastItsLimit)
{
    InterlockedBuffer buffer(kLimit, false, false, kChunk);
    const std::vector<BYTE> body = Pattern(4 * kLimit, 9);
    EXPECT_FALSE(buffer.Write(body.data(), static_cast<DWORD>(body.size())));
    EXPECT_EQ(body.size(), buffer.GetSize());
    std::vector<BYTE> got(body.size());
    EXPECT_EQ(body.size(), buffer.Read(got.data(), static_cast<DWORD>(got.size())));
    EXPECT_TRUE(got == body);
}

TEST(InterlockedBufferLimit, AWaitingWriterIsHeldUntilAReadMakesRoom)
{
    InterlockedBuffer buffer(kLimit, true, false, kChunk);
    Fill(buffer);
    BlockedWriter writer(buffer);
    ::Sleep(200);
    EXPECT_FALSE(writer.returned());
    EXPECT_EQ(kLimit, buffer.GetSize());

    // Room for less than a chunk is not enough: a chunk waits until it fits whole.
    std::vector<BYTE> piece(kChunk);
    ASSERT_EQ(100u, buffer.Read(piece.data(), 100));
    ::Sleep(200);
    EXPECT_FALSE(writer.returned());

    ASSERT_EQ(kChunk, buffer.Read(piece.data(), kChunk));
    ASSERT_TRUE(writer.WaitReturned());
    EXPECT_TRUE(writer.result());
    EXPECT_EQ(kLimit - 100, buffer.GetSize());
}

TEST(InterlockedBufferLimit, DrainEmptiesTheQueueAndFreesAWaitingWriter)
{
    InterlockedBuffer buffer(kLimit, true, false, kChunk);
    Fill(buffer);
    BlockedWriter writer(buffer);
    ::Sleep(100);
    EXPECT_FALSE(writer.returned());

    buffer.Drain();
    ASSERT_TRUE(writer.WaitReturned());
    EXPECT_TRUE(writer.result());
    // Only the chunk written after the drain is left, and it is the writer's.
    ASSERT_EQ(kChunk, buffer.GetSize());
    std::vector<BYTE> got(kChunk);
    buffer.Read(got.data(), kChunk);
    EXPECT_TRUE(std::all_of(got.begin(), got.end(), [](BYTE b) { return b == 0x5A; }));
}

TEST(InterlockedBufferClientDeath, EndsAWaitingWriteWithFalseAndKeepsWhatWasQueued)
{
    TClientProcess client;
    ASSERT_TRUE(client.started()) << "error " << client.error();
    InterlockedBuffer buffer(kLimit, true, false, kChunk);
    buffer.SetMonitor(VnProcessMonitor(client.pid()));
    Fill(buffer);
    BlockedWriter writer(buffer);
    ::Sleep(100);
    EXPECT_FALSE(writer.returned());

    client.Kill();
    ASSERT_TRUE(writer.WaitReturned());
    EXPECT_FALSE(writer.result());
    EXPECT_EQ(kLimit, buffer.GetSize());
}
