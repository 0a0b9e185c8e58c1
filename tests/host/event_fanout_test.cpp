// The fan-out of host events to the plug-ins' sinks: in order, until one fails or vetoes a query with a plain 1.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/event_fanout.h"
#include "vfc/bstr.h"
#include "vfc/com_object.h"

namespace {

// Records its call as its letter, answers `status`, and sets the result to `answer` unless that is 9.
struct Sink : vfc::TComObject<Sink, IVnLinkhostEventSink> {
    static constexpr bool LocksModule = false;
    Sink(std::string* c, char i, HRESULT s, LONG a) : calls(c), id(i), status(s), answer(a) {}
    STDMETHODIMP OnEvent(VnLinkhostEventType, VARIANT, VnLinkhostEventResult* result) override
    {
        *calls += id;
        *result = answer == 9 ? *result : static_cast<VnLinkhostEventResult>(answer);
        return status;
    }
    std::string* calls;
    char id;
    HRESULT status;
    LONG answer;
};

}  // namespace

TEST(EventFanout, SinksHearTheEventInOrderUntilOneFailsOrVetoesAQueryWithAPlainOne)
{
    // Each sink's status and answer, the event's type and parameter; the calls, the status, the result.
    const std::tuple<std::vector<std::pair<HRESULT, LONG>>, LONG, LONG, const char*> rows[] = {
        {{}, 1, 1, " 0 0"}, {{{S_OK, 9}, {S_OK, 9}, {S_FALSE, 9}}, 2, 1, "abc 1 0"},
        {{{S_OK, 9}, {E_FAIL, 9}, {S_OK, 9}}, 2, 1, "ab -2147467259 0"},
        {{{S_OK, 1}, {S_OK, 9}}, 1, 1, "a 0 1"},
        {{{S_OK, 1}, {S_OK, 9}}, 2, 1, "ab 0 1"}, {{{S_OK, 1}, {S_OK, 9}}, 1, 2, "ab 0 1"},  // not a query, or not with 1
        {{{S_OK, Veto}, {S_OK, 9}}, 1, 1, "ab 0 -1946157055"},  // the published veto is not a plain 1
    };
    for (auto& [answers, type, parameter, expected] : rows) {
        std::string calls;
        std::vector<vfc::TComPtr<IVnLinkhostEventSink>> sinks;
        for (const auto& answer : answers) {
            vfc::TComPtr<Sink> sink;
            ASSERT_EQ(S_OK, vfc::CreateInto(sink, &calls, static_cast<char>('a' + sinks.size()), answer.first, answer.second));
            sinks.emplace_back(sink.get());
        }
        auto result = static_cast<VnLinkhostEventResult>(0);
        const HRESULT status = FanOutEvent(sinks, type, *vfc::TVariant(parameter), &result);
        EXPECT_EQ(expected, calls + " " + std::to_string(status) + " " + std::to_string(result));
    }
}
