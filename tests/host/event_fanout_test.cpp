#include <gtest/gtest.h>

#include <vector>

#include "host/event_fanout.h"
#include "vfc/com_object.h"

namespace {

constexpr LONG kLeaveAlone = 0x7fffffff;

// A sink that records its calls and answers as told.
class RecordingSink : public vfc::TComObject<RecordingSink, IVnLinkhostEventSink> {
public:
    static constexpr bool LocksModule = false;
    RecordingSink(std::vector<int>* calls, int id, HRESULT status, LONG answer)
        : m_calls(calls), m_id(id), m_status(status), m_answer(answer)
    {
    }
    STDMETHODIMP OnEvent(VnLinkhostEventType, VARIANT, VnLinkhostEventResult* result) override
    {
        m_calls->push_back(m_id);
        if (result && m_answer != kLeaveAlone)
            *result = static_cast<VnLinkhostEventResult>(m_answer);
        return m_status;
    }

private:
    std::vector<int>* m_calls;
    int m_id;
    HRESULT m_status;
    LONG m_answer;
};

struct Fanout : testing::Test {
    void Add(HRESULT status, LONG answer)
    {
        RecordingSink* sink = nullptr;
        ASSERT_EQ(S_OK, RecordingSink::Create(&sink, &calls, static_cast<int>(sinks.size()), status, answer));
        sinks.emplace_back(sink);
        sink->Release();
    }
    HRESULT Raise(LONG type, LONG parameter, VnLinkhostEventResult* result)
    {
        VARIANT p;
        VariantInit(&p);
        p.vt = VT_I4;
        p.lVal = parameter;
        return FanOutEvent(sinks, type, p, result);
    }
    std::vector<vfc::TComPtr<IVnLinkhostEventSink>> sinks;
    std::vector<int> calls;
};

TEST_F(Fanout, NoSinksAgree)
{
    auto result = static_cast<VnLinkhostEventResult>(0);
    EXPECT_EQ(S_OK, Raise(1, 1, &result));
    EXPECT_EQ(0, result);
}

TEST_F(Fanout, AllSinksHearTheEventInOrder)
{
    Add(S_OK, kLeaveAlone);
    Add(S_OK, kLeaveAlone);
    Add(S_FALSE, kLeaveAlone);
    auto result = static_cast<VnLinkhostEventResult>(0);
    EXPECT_EQ(S_FALSE, Raise(2, 1, &result));  // the last status comes back
    EXPECT_EQ((std::vector<int>{0, 1, 2}), calls);
}

TEST_F(Fanout, FailureStopsTheWalk)
{
    Add(S_OK, kLeaveAlone);
    Add(E_FAIL, kLeaveAlone);
    Add(S_OK, kLeaveAlone);
    auto result = static_cast<VnLinkhostEventResult>(0);
    EXPECT_EQ(E_FAIL, Raise(2, 1, &result));
    EXPECT_EQ((std::vector<int>{0, 1}), calls);
}

TEST_F(Fanout, PlainOneStopsOnlyAQueryWithParameterOne)
{
    Add(S_OK, 1);
    Add(S_OK, kLeaveAlone);
    auto result = static_cast<VnLinkhostEventResult>(0);
    EXPECT_EQ(S_OK, Raise(1, 1, &result));
    EXPECT_EQ((std::vector<int>{0}), calls);
    EXPECT_EQ(1, result);

    calls.clear();
    result = static_cast<VnLinkhostEventResult>(0);
    EXPECT_EQ(S_OK, Raise(2, 1, &result));  // a shutdown reaches everyone
    EXPECT_EQ((std::vector<int>{0, 1}), calls);

    calls.clear();
    result = static_cast<VnLinkhostEventResult>(0);
    EXPECT_EQ(S_OK, Raise(1, 2, &result));  // another parameter too
    EXPECT_EQ((std::vector<int>{0, 1}), calls);
}

TEST_F(Fanout, PublishedVetoDoesNotEndTheWalkButStaysInTheResult)
{
    Add(S_OK, Veto);
    Add(S_OK, kLeaveAlone);
    auto result = static_cast<VnLinkhostEventResult>(0);
    EXPECT_EQ(S_OK, Raise(1, 1, &result));
    EXPECT_EQ((std::vector<int>{0, 1}), calls);
    EXPECT_EQ(Veto, result);
}

}  // namespace
