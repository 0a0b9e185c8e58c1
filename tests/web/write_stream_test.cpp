// CVnQueueWriteStream: a request body from the client's Write calls into an
// unbounded queue, taken out by the request, with the after-write callback
// that the instant model sends with.
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
using vn_web_test::Bytes;
using vn_web_test::MakeArray;
using vn_web_test::Pattern;

vfc::TComPtr<CVnQueueWriteStream> NewWriteStream()
{
    vfc::TComPtr<CVnQueueWriteStream> stream;
    EXPECT_EQ(S_OK, CVnQueueWriteStream::Create(stream.put()));
    return stream;
}

LONG Available(IVnStream* stream)
{
    LONG count = -2;
    EXPECT_EQ(S_OK, stream->get_AvailableBytes(&count));
    return count;
}

// All that is queued, as the request takes a cached body out.
std::string TakeAll(CVnQueueCustomStream* stream)
{
    LONG count = -1;
    std::unique_ptr<BYTE[]> block = stream->ReadFromQueue(0, &count, 0);
    return block ? std::string(reinterpret_cast<const char*>(block.get()), count) : std::string();
}

}  // namespace

TEST(WriteStreamWrite, QueuesTheGivenSliceOfTheArray)
{
    auto stream = NewWriteStream();
    TSafeArray data(MakeArray(Bytes("0123456789")));
    LONG count = 0;
    ASSERT_EQ(S_OK, stream->Write(data.get(), 2, 5, &count));
    EXPECT_EQ(5, count);
    EXPECT_EQ(5, Available(stream.get()));
    ASSERT_EQ(S_OK, stream->Write(data.get(), 9, 1, &count));
    EXPECT_EQ(1, count);
    EXPECT_EQ("234569", TakeAll(stream.get()));
    EXPECT_TRUE(stream->IsEmpty());
}

TEST(WriteStreamWrite, InvalidSlicesAreRefusedAndQueueNothing)
{
    auto stream = NewWriteStream();
    TSafeArray data(MakeArray(Bytes("0123456789")));
    const LONG slices[][2] = {{-1, 3}, {0, 0}, {0, -5}, {8, 3}, {10, 1}};
    for (const auto& slice : slices) {
        LONG count = 99;
        EXPECT_EQ(E_INVALIDARG, stream->Write(data.get(), slice[0], slice[1], &count))
            << slice[0] << "," << slice[1];
        EXPECT_EQ(0, count);
    }
    LONG count = 99;
    EXPECT_TRUE(FAILED(stream->Write(nullptr, 0, 1, &count)));
    EXPECT_EQ(0, count);
    EXPECT_EQ(0, Available(stream.get()));
}

TEST(WriteStreamWrite, BodyOfAnySizeIsCachedWithoutWaiting)
{
    auto stream = NewWriteStream();
    const std::vector<BYTE> body = Pattern(4 * 262144 + 3, 21);
    TSafeArray data(MakeArray(body));
    std::atomic<LONG> written{-1};
    // On a thread, so that a writer that wrongly waited for room fails the
    // test instead of hanging it.
    std::thread writer([&] {
        LONG count = 0;
        stream->Write(data.get(), 0, static_cast<LONG>(body.size()), &count);
        written = count;
    });
    const bool returned = WaitUntil([&] { return written.load() >= 0; }, 20000);
    EXPECT_TRUE(returned);
    if (!returned)
        stream->ReadFromQueue(0, nullptr, 0);  // frees a writer that waits after all
    writer.join();
    EXPECT_EQ(static_cast<LONG>(body.size()), written.load());
    EXPECT_EQ(static_cast<LONG>(body.size()), Available(stream.get()));

    LONG count = 0;
    std::unique_ptr<BYTE[]> block = stream->ReadFromQueue(0, &count, 0);
    ASSERT_EQ(static_cast<LONG>(body.size()), count);
    EXPECT_TRUE(std::equal(body.begin(), body.end(), block.get()));
    EXPECT_EQ(0, block[count]);
    EXPECT_EQ(body.size(), stream->GetPosition());
}

TEST(WriteStreamTakeOut, CountsAboveZeroTakeThatManyAndZeroOrTooManyTakeAll)
{
    auto stream = NewWriteStream();
    stream->WriteToQueue(reinterpret_cast<const BYTE*>("abcdefgh"), 0, 8);
    LONG count = -1;
    std::unique_ptr<BYTE[]> block = stream->ReadFromQueue(3, &count, 0);
    ASSERT_EQ(3, count);
    EXPECT_EQ("abc", std::string(reinterpret_cast<const char*>(block.get())));
    block = stream->ReadFromQueue(100, &count, 0);
    ASSERT_EQ(5, count);
    EXPECT_EQ("defgh", std::string(reinterpret_cast<const char*>(block.get())));
    block = stream->ReadFromQueue(0, &count, 0);
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ(0, count);
    EXPECT_EQ(8u, stream->GetPosition());
}

TEST(WriteStreamTakeOut, InvalidWritesToTheQueueGiveZero)
{
    auto stream = NewWriteStream();
    const BYTE bytes[] = {1, 2, 3};
    EXPECT_EQ(0, stream->WriteToQueue(bytes, -1, 2));
    EXPECT_EQ(0, stream->WriteToQueue(bytes, 0, 0));
    EXPECT_EQ(0, stream->WriteToQueue(nullptr, 0, 2));
    EXPECT_TRUE(stream->IsEmpty());
    EXPECT_EQ(2, stream->WriteToQueue(bytes, 1, 2));
    EXPECT_EQ(std::string("\x02\x03"), TakeAll(stream.get()));
}

TEST(WriteStreamInterface, WritesButRefusesEveryReadAndHasNoPosition)
{
    auto stream = NewWriteStream();
    stream->WriteToQueue(reinterpret_cast<const BYTE*>("line\r\n"), 0, 6);
    VARIANT_BOOL flag = VARIANT_TRUE;
    EXPECT_EQ(S_OK, stream->get_CanRead(&flag));
    EXPECT_EQ(VARIANT_FALSE, flag);
    EXPECT_EQ(S_OK, stream->get_CanWrite(&flag));
    EXPECT_EQ(VARIANT_TRUE, flag);

    TSafeArray array;
    EXPECT_EQ(VN_E_STREAM_NOT_READABLE, stream->Read(0, array.put()));
    EXPECT_EQ(VN_E_STREAM_NOT_READABLE, stream->ReadWithTimeout(0, 0, array.put()));
    EXPECT_FALSE(array);
    vfc::TBstr text;
    EXPECT_EQ(VN_E_STREAM_NOT_READABLE, stream->ReadString(text.put()));
    EXPECT_EQ(VN_E_STREAM_NOT_READABLE, stream->ReadStringWithTimeout(0, text.put()));
    EXPECT_EQ(nullptr, text.get());
    EXPECT_EQ(6, Available(stream.get()));

    LONG position = 0;
    EXPECT_EQ(S_OK, stream->get_Position(&position));
    EXPECT_EQ(-1, position);
}

namespace {

// A parameter block that tells when it is deleted and collects what the
// callback takes out of the stream.
struct SendBlock : AfterWriteParam {
    SendBlock(CVnQueueCustomStream* s, std::atomic<int>* deletions) : stream(s), deleted(deletions) {}
    ~SendBlock() override { ++*deleted; }
    CVnQueueCustomStream* stream;
    std::atomic<int>* deleted;
    std::string sent;
    int calls = 0;
};

// What the instant model does after each write: takes out all that is
// queued, on the writing thread, under the stream's lock.
void SendAll(AfterWriteParam* param)
{
    auto* block = static_cast<SendBlock*>(param);
    ++block->calls;
    while (!block->stream->IsEmpty()) {
        LONG count = 0;
        std::unique_ptr<BYTE[]> bytes = block->stream->ReadFromQueue(4, &count, 0);
        block->sent.append(reinterpret_cast<const char*>(bytes.get()), count);
    }
}

void CountOnly(AfterWriteParam* param) { ++static_cast<SendBlock*>(param)->calls; }

}  // namespace

TEST(WriteStreamAfterWrite, CallbackRunsAfterEachWriteAndCanTakeTheBytesOut)
{
    auto stream = NewWriteStream();
    std::atomic<int> deleted{0};
    auto owned = std::make_unique<SendBlock>(stream.get(), &deleted);
    SendBlock* block = owned.get();
    EXPECT_EQ(nullptr, stream->SetAfterWriteCallback(SendAll, std::move(owned)));

    TSafeArray data(MakeArray(Bytes("hello, world")));
    LONG count = 0;
    ASSERT_EQ(S_OK, stream->Write(data.get(), 0, 5, &count));
    ASSERT_EQ(S_OK, stream->Write(data.get(), 5, 7, &count));
    EXPECT_EQ(2, block->calls);
    EXPECT_EQ("hello, world", block->sent);
    EXPECT_EQ(0, Available(stream.get()));

    // A refused write does not call it.
    EXPECT_EQ(E_INVALIDARG, stream->Write(data.get(), 0, 0, &count));
    EXPECT_EQ(2, block->calls);
    EXPECT_EQ(0, deleted.load());
}

TEST(WriteStreamAfterWrite, StreamOwnsTheBlockAndDeletesItWhenReplacedClearedOrReleased)
{
    std::atomic<int> deleted{0};
    auto stream = NewWriteStream();
    stream->SetAfterWriteCallback(CountOnly, std::make_unique<SendBlock>(stream.get(), &deleted));
    EXPECT_EQ(CountOnly, stream->SetAfterWriteCallback(SendAll, std::make_unique<SendBlock>(stream.get(), &deleted)));
    EXPECT_EQ(1, deleted.load());
    stream->ClearAfterWriteCallback();
    EXPECT_EQ(2, deleted.load());

    // Without a callback a write just queues.
    stream->WriteToQueue(reinterpret_cast<const BYTE*>("abc"), 0, 3);
    EXPECT_EQ(3, Available(stream.get()));

    stream->SetAfterWriteCallback(CountOnly, std::make_unique<SendBlock>(stream.get(), &deleted));
    stream.reset();
    EXPECT_EQ(3, deleted.load());
}

namespace {

struct GateBlock : AfterWriteParam {
    vfc::THandle inside{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    vfc::THandle release{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

void WaitAtGate(AfterWriteParam* param)
{
    auto* gate = static_cast<GateBlock*>(param);
    ::SetEvent(gate->inside.get());
    ::WaitForSingleObject(gate->release.get(), 20000);
}

}  // namespace

TEST(WriteStreamAfterWrite, OtherThreadsWaitWhileTheCallbackRuns)
{
    auto stream = NewWriteStream();
    auto owned = std::make_unique<GateBlock>();
    GateBlock* gate = owned.get();
    stream->SetAfterWriteCallback(WaitAtGate, std::move(owned));

    std::thread writer([&] { stream->WriteToQueue(reinterpret_cast<const BYTE*>("abc"), 0, 3); });
    ASSERT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(gate->inside.get(), 20000));
    std::atomic<LONG> seen{-2};
    std::thread other([&] { seen = Available(stream.get()); });
    ::Sleep(200);
    EXPECT_EQ(-2, seen.load());

    ::SetEvent(gate->release.get());
    writer.join();
    other.join();
    EXPECT_EQ(3, seen.load());
}
