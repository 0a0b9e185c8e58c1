// The log file: where it lies, each entry's head, the second formatting pass, traces that never reach it, plug-in lines
// with whatever percent signs their names and texts hold.
#include <gtest/gtest.h>

#include <windows.h>
#include <shellapi.h>

#include <regex>
#include <vector>

#include "common/test_util.h"
#include "host/log.h"
#include "host/logger.h"
#include "host/module.h"
#include "tests/settings/settings_support.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"

namespace {

// The messages written since `offset`, each checked for its head and CR LF; a message's further lines come with '+'.
std::vector<std::string> MessagesSince(size_t offset)
{
    const std::string text = vn_test::LogSince(offset);
    const std::regex head(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{4}\] pID (\d+) tID (\d+) )");
    std::vector<std::string> messages;
    for (size_t pos = 0, end; (end = text.find("\r\n", pos)) != std::string::npos; pos = end + 2) {
        std::smatch m;
        const std::string line = text.substr(pos, end - pos);
        if (!std::regex_search(line, m, head, std::regex_constants::match_continuous))
            messages.push_back("+" + line);
        else if (m[1] != std::to_string(GetCurrentProcessId()) || m[2] != std::to_string(GetCurrentThreadId()))
            messages.push_back("<other process or thread> " + line);
        else
            messages.push_back(m.suffix());
    }
    return text.size() < 2 || text.substr(text.size() - 2) == "\r\n" ? messages : std::vector<std::string>{"<no CR LF>"};
}

}  // namespace

TEST(LogFile, LinesGoInWithTheirHeadFormattedTwiceAndTracesNever)
{
    LogLine("%s", "start");  // the file and its folder exist from here on
    const size_t start = vn_test::LogSize();
    LogLine(vn_log::kErrorHex, "CVnThing::Method", "It broke.", 0x80040202u);
    TraceLine(vn_log::kInfo, "CVnThing::Method", "tracing only");
    TraceLine("%s", "another trace");
    LogLine(vn_log::kInfo, "CVnThing::Get", "url /a%20dx done 100%% rate %d%s %I64d|%");
    LogLine("first\nsecond");
    CVnLogger* raw = nullptr;
    const LONG locks = Module().GetLockCount();
    ASSERT_EQ(S_OK, CVnLogger::Create(&raw));
    EXPECT_EQ(locks, Module().GetLockCount());  // a plug-in's logger does not keep the process alive
    vfc::TComPtr<CVnLogger> logger;
    logger.attach(raw);
    logger->SetName("Plug%s");  // a plug-in's name and text are read a second time too, safely
    for (const wchar_t* text : {L"", L"100% sicher: %s %n %x %%"})
        EXPECT_EQ(S_OK, logger->WriteLine(vfc::TBstr(text).get()));
    EXPECT_EQ((std::vector<std::string>{"Error in method [CVnThing::Method]. Message: It broke. Error code: 80040202.",
                                        "Info about method [CVnThing::Get]. Message: url /a" + std::string(19, ' ') +
                                            "0x done 100% rate 0 0|",
                                        "first", "+second", "[Plug]  ", "[Plug]  100icher:   0 %"}),
              MessagesSince(start));
    const SYSTEMTIME t = {2026, 3, 0, 4, 5, 6, 9, 7};  // the head exactly, its milliseconds padded to four digits
    EXPECT_EQ("[2026-03-04 05:06:09.0007] pID 12 tID 345 hello", vn_log::BuildEntry(t, 12, 345, "hello"));
}

TEST(LogFile, ReadOnlyIsClearedAndMissingFoldersAreMade)
{
    LogLine("%s", "start");
    const std::string folder = vn_config_test::VelorinFolder(), tree = folder + '\0';
    const std::string path = folder + "\\VnLinkhost\\Konfiguration\\VnLinkhost.log";
    ASSERT_TRUE(SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    const size_t start = vn_test::LogSize();
    LogLine("%s", "after read-only");
    EXPECT_EQ(0u, GetFileAttributesA(path.c_str()) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(std::vector<std::string>{"after read-only"}, MessagesSince(start));
    SHFILEOPSTRUCTA remove = {nullptr, FO_DELETE, tree.c_str(), nullptr, FOF_NO_UI, FALSE, nullptr, nullptr};
    SHFileOperationA(&remove);
    ASSERT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(folder.c_str()));
    LogLine("%s", "into a fresh folder");
    EXPECT_EQ(std::vector<std::string>{"into a fresh folder"}, MessagesSince(0));
}
