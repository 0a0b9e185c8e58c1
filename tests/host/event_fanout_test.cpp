// The fan-out of host events to the plug-ins' sinks: every sink in order,
// until one fails or a query to shut down is vetoed with a plain 1.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/event_fanout.h"
#include "vfc/bstr.h"
#include "vfc/com_object.h"

namespace {

constexpr LONG kLeaveAlone = 0x7fffffff;

// A sink that records its call and answers as told.
struct RecordingSink : vfc::TComObject<RecordingSink, IVnLinkhostEventSink> {
    static constexpr bool LocksModule = false;
    RecordingSink(std::string* calls, char id, HRESULT status, LONG answer)
        : calls(calls), id(id), status(status), answer(answer)
    {
    }
    STDMETHODIMP OnEvent(VnLinkhostEventType, VARIANT, VnLinkhostEventResult* result) override
    {
        *calls += id;
        if (result && answer != kLeaveAlone)
            *result = static_cast<VnLinkhostEventResult>(answer);
        return status;
    }
    std::string* calls;
    char id;
    HRESULT status;
    LONG answer;
};

}  // namespace

TEST(EventFanout, SinksHearTheEventInOrderUntilOneFailsOrVetoesAQuery)
{
    const struct {
        std::vector<std::pair<HRESULT, LONG>> sinks;  // status and answer of each
        LONG type, parameter;
        HRESULT status;
        const char* calls;
        LONG result;
    } rows[] = {
        {{}, 1, 1, S_OK, "", 0},
        {{{S_OK, kLeaveAlone}, {S_OK, kLeaveAlone}, {S_FALSE, kLeaveAlone}}, 2, 1, S_FALSE, "abc", 0},  // the last status
        {{{S_OK, kLeaveAlone}, {E_FAIL, kLeaveAlone}, {S_OK, kLeaveAlone}}, 2, 1, E_FAIL, "ab", 0},
        {{{S_OK, 1}, {S_OK, kLeaveAlone}}, 1, 1, S_OK, "a", 1},   // a query with parameter 1 stops at a plain 1
        {{{S_OK, 1}, {S_OK, kLeaveAlone}}, 2, 1, S_OK, "ab", 1},  // a shutdown reaches everyone
        {{{S_OK, 1}, {S_OK, kLeaveAlone}}, 1, 2, S_OK, "ab", 1},  // so does a query with another parameter
        {{{S_OK, Veto}, {S_OK, kLeaveAlone}}, 1, 1, S_OK, "ab", Veto},  // the published veto does not end the walk
    };
    for (const auto& row : rows) {
        std::string calls;
        std::vector<vfc::TComPtr<IVnLinkhostEventSink>> sinks;
        for (const auto& sink : row.sinks) {
            RecordingSink* raw = nullptr;
            ASSERT_EQ(S_OK, RecordingSink::Create(&raw, &calls, static_cast<char>('a' + sinks.size()), sink.first,
                                                  sink.second));
            sinks.emplace_back(raw);
            raw->Release();
        }
        vfc::TVariant parameter(row.parameter);
        auto result = static_cast<VnLinkhostEventResult>(0);
        EXPECT_EQ(row.status, FanOutEvent(sinks, row.type, *parameter, &result)) << row.calls;
        EXPECT_EQ(row.calls, calls);
        EXPECT_EQ(row.result, result) << row.calls;
    }
}
