// A plug-in's logger writes each line behind its name, whatever the text holds.
#include <gtest/gtest.h>

#include "common/test_util.h"
#include "host/logger.h"
#include "vfc/bstr.h"

namespace {

TEST(PluginLogger, WritesEachLineBehindItsNameWhateverPercentSignsItHolds)
{
    vfc::TComPtr<CVnLogger> logger;
    ASSERT_EQ(S_OK, vfc::CreateInto(logger));
    logger->SetName("Plug%s");
    // The log file's writer reads conversions once more, safely: with nothing to convert a text gives
    // nothing, a number 0, and "%%" a single '%'. Before, such a line took the server down.
    for (auto [text, expected] : {std::make_pair(L"100% sicher: %s %n %x %%", "[Plug]  100icher:   0 %\r\n"),
                                  std::make_pair(L"", "[Plug]  \r\n")}) {
        const size_t log = vn_test::LogSize();
        vfc::TBstr line(text);
        EXPECT_EQ(S_OK, logger->WriteLine(line.get()));
        EXPECT_NE(std::string::npos, vn_test::LogSince(log).find(expected)) << vn_test::LogSince(log);
    }
}

}  // namespace
