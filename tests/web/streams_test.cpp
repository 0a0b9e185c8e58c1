// The queue streams: a response body from the receive thread to the client
// through the read side, a request body from the client's writes through the
// write side, with their ends, time-outs, lines, refusals, the after-write
// callback, the client's death, the order of release, and both as a script
// client sees them through IDispatch.
#include "tests/web/web_support.h"

#include <algorithm>
#include <atomic>
#include <initializer_list>
#include <memory>
#include <thread>
#include <vector>

#include "host/status.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"
#include "web/stream_arrays.h"
#include "web/streams.h"

using namespace vn_web_test;
using vn_streams::TSafeArray;
using vn_test::WaitUntil;

namespace {

constexpr LONG kLimit = 262144;

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

// The bytes of one read, or the name of its failure.
std::string Read(IVnStream* stream, LONG maximum, LONG timeout = 20000)
{
    TSafeArray array;
    const HRESULT hr = stream->ReadWithTimeout(maximum, timeout, array.put());
    const std::string failure = hr == VN_E_READ_TIMEOUT ? "<timeout>" : hr == VN_E_STREAM_BROKEN ? "<broken>"
                                : hr == E_INVALIDARG ? "<invalid>" : "<" + std::to_string(hr) + ">";
    return hr == S_OK ? ArrayText(array.get()) : failure + (array ? "+array" : "");
}

// All that is queued on the write side, as the request takes a cached body out.
std::string TakeAll(CVnQueueCustomStream* stream)
{
    LONG count = -1;
    std::unique_ptr<BYTE[]> block = stream->ReadFromQueue(0, &count, 0);
    return block ? std::string(reinterpret_cast<const char*>(block.get()), count) : "<none>";
}

// Joins a thread that sets `done`; a thread still held after 20 s is freed
// by taking the queue's bytes and ending the body, so that a fault fails the
// test instead of hanging it. False if it had to be freed.
bool JoinFreeing(std::thread& thread, const std::atomic<bool>& done, CVnQueueReadStream* stream)
{
    const bool byItself = WaitUntil([&] { return done.load(); }, 20000);
    for (int round = 0; !done && round < 10000; ++round) {
        Put(stream, "x");
        stream->SetDone(true);
        stream->CVnQueueCustomStream::ReadFromQueue(0, nullptr, 0);
    }
    if (thread.joinable())
        thread.join();
    return byItself;
}

}  // namespace

TEST(ReadStream, ReadsCountsEndsTimeOutsAndLinesAsScripted)
{
    // Steps: "+text" queues bytes, "!" ends the body, "rN" and "rN/T" read N
    // bytes (waiting T ms), "s" and "s0" read a line, "a" gives AvailableBytes.
    const struct {
        LONG expectedLength;
        const char* steps;  // separated by '|'
        const char* results;
    } rows[] = {
        {0, "+0123456789|r0|+abcdefghij|r1000|+xyz|r2|a", "0123456789|abcdefghij|xy|1"},  // all, without waiting for more
        {0, "+abc|r-1|a", "<invalid>|3"},
        {0, "+abc|+def|!|r4|r4|r4|a", "abcd|ef||-1"},
        {6, "+abc|+def|!|r4|r4|r4|a", "abcd|ef||-1"},  // the body had its whole length
        {10, "+abcd|!|a|r0|a|r0", "4|abcd|-1|<broken>"},  // it ended short of it
        {0, "r10/0|a|r10/0|r10/5000", "<timeout>|-1||"},  // a time-out ends the body for good
        {10, "+abc|r0/0|r0/0|r0/5000", "abc|<timeout>|<broken>"},
        {0, "+ab\r\ncd|s|a|s|s", "ab\n|3|cd\n|<none>"},  // CR ends a line, the LF is skipped next time
        {0, "+\r\n\r\n\n|s0|a", "\n|0"},
        {0, "+GET / HTTP/1.0\r\nHost: example\r\n\r\nbody|s|s|s", "GET / HTTP/1.0\n|Host: example\n|body\n"},
    };
    for (const auto& row : rows) {
        auto stream = New<CVnQueueReadStream>();
        stream->SetExpectedLength(row.expectedLength);
        std::string results, steps = row.steps;
        for (size_t pos = 0; pos <= steps.size();) {
            const size_t end = std::min(steps.find('|', pos), steps.size());
            const std::string step = steps.substr(pos, end - pos);
            pos = end + 1;
            vfc::TBstr line;
            if (step[0] == '+')
                Put(stream.get(), step.substr(1));
            else if (step == "!")
                stream->SetDone(true);
            else if (step[0] == 'r')
                results += Read(stream.get(), std::stol(step.substr(1)),
                                step.find('/') == std::string::npos ? -1 : std::stol(step.substr(step.find('/') + 1))) + "|";
            else if (step[0] == 's')
                results += (S_OK == (step == "s" ? stream->ReadString(line.put()) : stream->ReadStringWithTimeout(0, line.put()))
                                ? line.get() ? vfc::Narrow(line.str()) : "<none>" : "<failed>") + "|";
            else
                results += std::to_string(Available(stream.get())) + "|";
        }
        EXPECT_EQ(std::string(row.results) + "|", results) << row.steps;
    }
}

TEST(ReadStream, ABodyFarAboveTheBoundArrivesWholeInOrderAndBounded)
{
    for (LONG block : {LONG(4096), 6 * kLimit + 17}) {  // as the receive callback writes, and in one write
        auto stream = New<CVnQueueReadStream>();
        const std::string body = Pattern(block == 4096 ? 16 * kLimit + 1234 : block, block);
        std::atomic<bool> written{false};
        std::thread writer([&] {
            for (size_t off = 0; off < body.size(); off += block)
                Put(stream.get(), body, static_cast<LONG>(off), std::min<LONG>(block, static_cast<LONG>(body.size() - off)));
            stream->SetDone(true);
            written = true;
        });
        const LONG sizes[] = {1, 4095, 4096, 4097, 10000, 0, 65536, 300000};
        std::string got;
        LONG largest = 0;
        for (size_t i = 0; i < 100000; ++i) {
            largest = std::max(largest, Available(stream.get()));
            const std::string piece = Read(stream.get(), sizes[i % 8]);
            if (piece.empty() || piece[0] == '<')
                break;
            got += piece;
        }
        EXPECT_TRUE(JoinFreeing(writer, written, stream.get()));
        EXPECT_TRUE(got == body) << got.size() << " of " << body.size();
        EXPECT_LE(largest, kLimit);
        EXPECT_EQ(-1, Available(stream.get()));
    }
}

TEST(ReadStream, AWaitingReaderIsWokenByDataAndByTheEndOfTheBody)
{
    auto stream = New<CVnQueueReadStream>();
    for (const char* arriving : {"late", ""}) {
        std::atomic<bool> returned{false};
        std::string got;
        std::thread reader([&] {
            got = Read(stream.get(), 100, -1);
            returned = true;
        });
        ::Sleep(100);
        EXPECT_FALSE(returned);
        if (*arriving)
            Put(stream.get(), arriving);
        else
            stream->SetDone(true);
        EXPECT_TRUE(JoinFreeing(reader, returned, stream.get()));
        EXPECT_EQ(arriving, got);
    }
}

TEST(ReadStream, TheClientsDeathEndsAWaitingReadAsBrokenAndFreesAWaitingWriter)
{
    TClient client;
    ASSERT_TRUE(client.started());
    auto reading = New<CVnQueueReadStream>(), writing = New<CVnQueueReadStream>();
    reading->SetMonitor(VnProcessMonitor(client.pid()));
    writing->SetMonitor(VnProcessMonitor(client.pid()));
    std::atomic<bool> read{false}, written{false};
    std::string got;
    std::thread reader([&] {
        got = Read(reading.get(), 100, -1);
        read = true;
    });
    std::thread writer([&] {
        Put(writing.get(), Pattern(kLimit + 4096, 14));
        written = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return Available(writing.get()) == kLimit; }, 20000));
    ::Sleep(100);
    EXPECT_FALSE(read);
    EXPECT_FALSE(written);
    client.Kill();
    EXPECT_TRUE(JoinFreeing(reader, read, reading.get()));
    EXPECT_TRUE(JoinFreeing(writer, written, writing.get()));
    EXPECT_EQ("<broken>", got);
    EXPECT_TRUE(reading->IsDone());
    EXPECT_EQ(-1, Available(reading.get()));
    EXPECT_EQ(kLimit, Available(writing.get()));  // what was queued stays
}

namespace {

// Plays the receive thread: writes blocks until the stream is done, and
// records what the stream asks of it at its release.
class FakeReceiveThread : public IReceiveThreadOwner {
public:
    explicit FakeReceiveThread(CVnQueueReadStream* stream) : m_stream(stream)
    {
        m_thread = std::thread([this] {
            while (!m_stream->IsDone())
                Put(m_stream, std::string(4096, 'B'));
            m_finished = true;
        });
    }
    ~FakeReceiveThread() override { JoinFreeing(m_thread, m_finished, m_stream); }
    void ReleaseDoneable() override { calls += "release;"; }
    void StopReceiveThread() override
    {
        // The stream must have freed the thread before it asks for the join.
        calls += WaitUntil([this] { return m_finished.load(); }, 20000) ? "stop;" : "stop while held;";
        JoinFreeing(m_thread, m_finished, m_stream);
    }
    std::string calls;

private:
    CVnQueueReadStream* m_stream;
    std::atomic<bool> m_finished{false};
    std::thread m_thread;
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

TEST(QueueStreams, EachSideRefusesTheOtherSidesCalls)
{
    auto read = New<CVnQueueReadStream>();
    auto write = New<CVnQueueWriteStream>();
    Put(write.get(), "line\r\n");
    Put(read.get(), "abc");
    TSafeArray data(MakeArray("abc"));
    LONG count = 99, position = 0;
    EXPECT_EQ(VN_E_STREAM_NOT_WRITABLE, read->Write(data.get(), 0, 3, &count));
    EXPECT_EQ(0, count);
    EXPECT_EQ("<" + std::to_string(VN_E_STREAM_NOT_READABLE) + ">", Read(write.get(), 0));
    vfc::TBstr text;
    EXPECT_EQ(VN_E_STREAM_NOT_READABLE, write->Read(0, vn_streams::TSafeArray().put()));
    EXPECT_EQ(VN_E_STREAM_NOT_READABLE, write->ReadString(text.put()));
    EXPECT_EQ(VN_E_STREAM_NOT_READABLE, write->ReadStringWithTimeout(0, text.put()));
    EXPECT_EQ(nullptr, text.get());
    EXPECT_EQ(6, Available(write.get()));
    EXPECT_EQ("abc", Read(read.get(), 0));
    for (IVnStream* stream : {static_cast<IVnStream*>(read.get()), static_cast<IVnStream*>(write.get())}) {
        VARIANT_BOOL canRead = VARIANT_FALSE, canWrite = VARIANT_FALSE;
        EXPECT_EQ(S_OK, stream->get_CanRead(&canRead));
        EXPECT_EQ(S_OK, stream->get_CanWrite(&canWrite));
        EXPECT_EQ(stream == read.get(), canRead == VARIANT_TRUE);
        EXPECT_EQ(stream == write.get(), canWrite == VARIANT_TRUE);
        EXPECT_EQ(S_OK, stream->get_Position(&position));
        EXPECT_EQ(-1, position);  // the count of bytes read stays inside
    }
    EXPECT_EQ(3u, read->GetPosition());
}

TEST(WriteStream, QueuesTheGivenSliceOfAnyBodyWithoutWaiting)
{
    auto stream = New<CVnQueueWriteStream>();
    TSafeArray digits(MakeArray("0123456789"));
    LONG count = 0;
    for (const auto& slice : {std::pair<LONG, LONG>{-1, 3}, {0, 0}, {0, -5}, {8, 3}, {10, 1}}) {
        count = 99;
        EXPECT_EQ(E_INVALIDARG, stream->Write(digits.get(), slice.first, slice.second, &count)) << slice.first;
        EXPECT_EQ(0, count);
    }
    EXPECT_TRUE(FAILED(stream->Write(nullptr, 0, 1, &count)));
    EXPECT_EQ(0, Put(stream.get(), "abc", -1, 2));
    EXPECT_EQ(0, Put(stream.get(), "abc", 0, 0));
    EXPECT_EQ(0, stream->WriteToQueue(nullptr, 0, 2));
    EXPECT_TRUE(stream->IsEmpty());
    ASSERT_EQ(S_OK, stream->Write(digits.get(), 2, 5, &count));
    EXPECT_EQ(5, count);
    ASSERT_EQ(S_OK, stream->Write(digits.get(), 9, 1, &count));
    LONG taken = -1;
    std::unique_ptr<BYTE[]> block = stream->ReadFromQueue(3, &taken, 0);
    EXPECT_EQ("234", std::string(reinterpret_cast<const char*>(block.get())));  // with a zero byte behind
    block = stream->ReadFromQueue(100, &taken, 0);  // more than queued, like 0, takes all
    EXPECT_EQ("569", std::string(reinterpret_cast<const char*>(block.get()), taken));
    EXPECT_EQ("<none>", TakeAll(stream.get()));
    EXPECT_EQ(6u, stream->GetPosition());

    const std::string body = Pattern(4 * kLimit + 3, 21);
    TSafeArray large(MakeArray(body));
    std::atomic<bool> written{false};
    std::thread writer([&] {  // on a thread: a writer that wrongly waited for room fails instead of hanging
        stream->Write(large.get(), 0, static_cast<LONG>(body.size()), &count);
        written = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return written.load(); }, 20000));
    if (!written)
        TakeAll(stream.get());
    writer.join();
    EXPECT_EQ(static_cast<LONG>(body.size()), count);
    EXPECT_TRUE(TakeAll(stream.get()) == body);
}

namespace {

// Owned by the stream; counts its deletion and, as the instant model does,
// takes out all that is queued on the writing thread, under the stream's lock.
struct SendBlock : AfterWriteParam {
    SendBlock(CVnQueueCustomStream* s, std::atomic<int>* deletions) : stream(s), deleted(deletions) {}
    ~SendBlock() override { ++*deleted; }
    static void SendAll(AfterWriteParam* param)
    {
        auto* block = static_cast<SendBlock*>(param);
        for (++block->calls; !block->stream->IsEmpty();) {
            LONG count = 0;
            std::unique_ptr<BYTE[]> bytes = block->stream->ReadFromQueue(4, &count, 0);
            block->sent.append(reinterpret_cast<const char*>(bytes.get()), count);
        }
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

TEST(WriteStream, AfterWriteCallbackSendsEachWriteAndItsBlockBelongsToTheStream)
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
    EXPECT_EQ(2, block->calls);
    EXPECT_EQ("hello, world", block->sent);
    EXPECT_EQ(0, Available(stream.get()));

    EXPECT_EQ(SendBlock::SendAll, stream->SetAfterWriteCallback(SendBlock::WaitAtGate,
                                                                std::make_unique<SendBlock>(stream.get(), &deleted)));
    EXPECT_EQ(1, deleted.load());
    stream->ClearAfterWriteCallback();
    EXPECT_EQ(2, deleted.load());
    Put(stream.get(), "abc");  // without a callback a write just queues
    EXPECT_EQ("abc", TakeAll(stream.get()));

    // Other threads wait while the callback runs.
    owned = std::make_unique<SendBlock>(stream.get(), &deleted);
    SendBlock* gate = owned.get();
    stream->SetAfterWriteCallback(SendBlock::WaitAtGate, std::move(owned));
    std::thread writer([&] { Put(stream.get(), "abc"); });
    ASSERT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(gate->inside.get(), 20000));
    std::atomic<LONG> seen{-2};
    std::thread other([&] { seen = Available(stream.get()); });
    ::Sleep(200);
    EXPECT_EQ(-2, seen.load());
    ::SetEvent(gate->release.get());
    writer.join();
    other.join();
    EXPECT_EQ(3, seen.load());
    stream.reset();
    EXPECT_EQ(3, deleted.load());
}

namespace {

// Calls `name` through IDispatch with the arguments in declaration order.
HRESULT Call(IDispatch* dispatch, const wchar_t* name, WORD flags, VARIANT* result, std::vector<VARIANT> args = {},
             DISPID* id = nullptr)
{
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    DISPID local = DISPID_UNKNOWN;
    EXPECT_EQ(S_OK, dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, id ? id : &local));
    std::reverse(args.begin(), args.end());  // DISPPARAMS run from the last to the first
    DISPPARAMS params = {args.empty() ? nullptr : args.data(), nullptr, static_cast<UINT>(args.size()), 0};
    EXCEPINFO excep = {};
    const HRESULT hr = dispatch->Invoke(id ? *id : local, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, &excep, nullptr);
    ::SysFreeString(excep.bstrSource);
    ::SysFreeString(excep.bstrDescription);
    ::SysFreeString(excep.bstrHelpFile);
    return hr == DISP_E_EXCEPTION ? excep.scode : hr;
}

}  // namespace

TEST(QueueStreams, ScriptClientsCallByNameThroughTheEmbeddedTypeLibrary)
{
    ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    {
        auto read = New<CVnQueueReadStream>();
        auto write = New<CVnQueueWriteStream>();
        Put(read.get(), "hello\r\nworld");
        vfc::TComPtr<IDispatch> reading, writing;
        ASSERT_EQ(S_OK, read.query_to(reading.put()));
        ASSERT_EQ(S_OK, write.query_to(writing.put()));
        vfc::TVariant result, three(3L), four(4L), data;
        DISPID id = 0;
        ASSERT_EQ(S_OK, Call(reading.get(), L"AvailableBytes", DISPATCH_PROPERTYGET, result.put(), {}, &id));
        EXPECT_EQ(0x60020002, id);
        EXPECT_EQ(VT_I4, result->vt);
        EXPECT_EQ(12, result->lVal);
        ASSERT_EQ(S_OK, Call(reading.get(), L"CanRead", DISPATCH_PROPERTYGET, result.put()));
        EXPECT_EQ(VARIANT_TRUE, result->boolVal);
        ASSERT_EQ(S_OK, Call(reading.get(), L"ReadString", DISPATCH_METHOD, result.put()));
        EXPECT_EQ(std::wstring(L"hello\n"), result->bstrVal);
        ASSERT_EQ(S_OK, Call(reading.get(), L"Read", DISPATCH_METHOD, result.put(), {*three}));
        ASSERT_EQ(VT_ARRAY | VT_UI1, result->vt);
        EXPECT_EQ("\nwo", ArrayText(result->parray));

        data.get()->vt = VT_ARRAY | VT_UI1;
        data.get()->parray = MakeArray("0123456789");
        ASSERT_EQ(S_OK, Call(writing.get(), L"Write", DISPATCH_METHOD, result.put(), {*data, *four, *three}));
        EXPECT_EQ(3, result->lVal);
        EXPECT_EQ("456", TakeAll(write.get()));
        EXPECT_EQ(VN_E_STREAM_NOT_READABLE, Call(writing.get(), L"Read", DISPATCH_METHOD, result.put(), {*three}));
    }
    ::CoUninitialize();
}
