// The log file: where it lies, the head of each entry, the second pass of
// formatting, traces that never reach it, the plug-in logger's lines, and
// entries that never interleave.
#include <gtest/gtest.h>

#include <windows.h>
#include <shellapi.h>
#include <shlobj.h>

#include <regex>
#include <thread>
#include <vector>

#include "common/test_util.h"
#include "host/log.h"
#include "host/logger.h"
#include "host/module.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"

namespace {

std::string LocalAppData()
{
    char base[MAX_PATH] = {};
    SHGetFolderPathA(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, base);
    return base;
}

const std::string kLogPath = LocalAppData() + "\\Velorin\\VnLinkhost\\Konfiguration\\VnLinkhost.log";

// The messages of the entries written since `offset`, each line checked for
// the head with this process and thread; a line without a head (the rest of
// a message with line feeds) is given with a '+' in front.
std::vector<std::string> MessagesSince(size_t offset, DWORD thread = GetCurrentThreadId())
{
    const std::string text = vn_test::LogSince(offset);
    EXPECT_TRUE(text.size() >= 2 && text.substr(text.size() - 2) == "\r\n") << text;
    const std::regex head(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{4}\] pID (\d+) tID (\d+) )");
    std::vector<std::string> messages;
    for (size_t pos = 0, end; (end = text.find("\r\n", pos)) != std::string::npos; pos = end + 2) {
        const std::string line = text.substr(pos, end - pos);
        std::smatch m;
        if (!std::regex_search(line, m, head, std::regex_constants::match_continuous)) {
            messages.push_back("+" + line);
            continue;
        }
        EXPECT_EQ(std::to_string(GetCurrentProcessId()), m[1].str());
        EXPECT_TRUE(!thread || std::to_string(thread) == m[2].str()) << line;
        messages.push_back(m.suffix());
    }
    return messages;
}

}  // namespace

TEST(LogFile, LinesGoInWithTheirHeadAndTracesNever)
{
    LogLine("%s", "start");  // the file and its folder exist from here on
    const size_t start = vn_test::LogSize();
    LogLine(vn_log::kErrorHex, "CVnThing::Method", "It broke.", 0x80040202u);
    TraceLine(vn_log::kInfo, "CVnThing::Method", "tracing only");
    TraceLine("%s", "another trace");
    // The finished message passes through formatting once more.
    LogLine(vn_log::kInfo, "CVnThing::Get", "url /a%20dx done 100%% rate %d%s|");
    LogLine("first\nsecond");
    CVnLogger* raw = nullptr;
    const LONG locks = Module().GetLockCount();
    ASSERT_EQ(S_OK, CVnLogger::Create(&raw));
    EXPECT_EQ(locks, Module().GetLockCount());  // a plug-in's logger does not keep the process alive
    vfc::TComPtr<CVnLogger> logger;
    logger.attach(raw);
    logger->SetName("Plug");
    for (const wchar_t* text : {L"", L"ran 3 jobs"})
        EXPECT_EQ(S_OK, logger->WriteLine(vfc::TBstr(text).get()));
    EXPECT_EQ((std::vector<std::string>{"Error in method [CVnThing::Method]. Message: It broke. Error code: 80040202.",
                                        "Info about method [CVnThing::Get]. Message: url /a" + std::string(19, ' ') +
                                            "0x done 100% rate 0|",
                                        "first", "+second", "[Plug]  ", "[Plug]  ran 3 jobs"}),
              MessagesSince(start));
}

TEST(LogFile, ReadOnlyAttributeIsClearedAndMissingFoldersAreMade)
{
    LogLine("%s", "start");
    ASSERT_TRUE(SetFileAttributesA(kLogPath.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    const size_t start = vn_test::LogSize();
    LogLine("%s", "after read-only");
    EXPECT_EQ(0u, GetFileAttributesA(kLogPath.c_str()) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(std::vector<std::string>{"after read-only"}, MessagesSince(start));

    const std::string velorin = LocalAppData() + "\\Velorin" + std::string(1, '\0');
    SHFILEOPSTRUCTA op = {};
    op.wFunc = FO_DELETE;
    op.pFrom = velorin.c_str();
    op.fFlags = FOF_NOCONFIRMATION | FOF_SILENT | FOF_NOERRORUI;
    SHFileOperationA(&op);
    ASSERT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(velorin.c_str()));
    LogLine("%s", "into a fresh folder");
    EXPECT_EQ(std::vector<std::string>{"into a fresh folder"}, MessagesSince(0));
}

TEST(LogFile, EntriesOfThreadsNeverInterleave)
{
    LogLine("%s", "start");
    const size_t start = vn_test::LogSize();
    constexpr int kThreads = 8, kLines = 150;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i)
                LogLine("worker %d line %d %s", t, i, std::string(64, 'x').c_str());
        });
    for (auto& thread : threads)
        thread.join();
    const std::vector<std::string> messages = MessagesSince(start, 0);
    ASSERT_EQ(static_cast<size_t>(kThreads * kLines), messages.size());
    std::vector<int> next(kThreads, 0);
    const std::regex body("worker (\\d) line (\\d+) x{64}");
    for (const std::string& message : messages) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(message, m, body)) << message;
        EXPECT_EQ(next[std::stoi(m[1])]++, std::stoi(m[2])) << "lines of one thread out of order";
    }
}

TEST(LogEntry, HeadIsPaddedAndTheSecondPassReadsConversionsAsZeroOrEmpty)
{
    const SYSTEMTIME t = {2026, 3, 0, 4, 5, 6, 9, 7};
    EXPECT_EQ("[2026-03-04 05:06:09.0007] pID 12 tID 345 hello", vn_log::BuildEntry(t, 12, 345, "hello"));
    const char* const rows[][2] = {{"plain", "plain"}, {"50%%", "50%"}, {"n=%d s=[%s] x=%02X", "n=0 s=[] x=00"},
                                   {"big %I64d", "big 0"}, {"end%", "end"}};
    for (const auto& row : rows)
        EXPECT_EQ(row[1], vn_log::FormatWithoutArguments(row[0])) << row[0];
}
