#include <gtest/gtest.h>

#include <windows.h>
#include <shellapi.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "common/test_util.h"
#include "host/log.h"

namespace {

std::string ExpectedLogPath()
{
    char base[MAX_PATH] = {};
    SHGetFolderPathA(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, base);
    return std::string(base) + "\\Velorin\\VnLinkhost\\Konfiguration\\VnLinkhost.log";
}

// What the log received since the fixture started.
class LogFile : public testing::Test {
protected:
    void SetUp() override
    {
        LogLine("%s", "test fixture start");
        m_start = vn_test::ReadWholeFile(ExpectedLogPath()).size();
    }
    std::string Appended() const { return vn_test::ReadWholeFile(ExpectedLogPath()).substr(m_start); }
    std::vector<std::string> AppendedLines() const
    {
        std::vector<std::string> lines;
        std::string all = Appended();
        size_t pos = 0;
        while (pos < all.size()) {
            size_t end = all.find("\r\n", pos);
            if (end == std::string::npos) {
                lines.push_back(all.substr(pos));
                break;
            }
            lines.push_back(all.substr(pos, end - pos));
            pos = end + 2;
        }
        return lines;
    }

private:
    size_t m_start = 0;
};

const std::regex kEntry(R"(\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{4}\] pID (\d+) tID (\d+) (.*))");

TEST_F(LogFile, LineLandsInLocalAppDataWithHeadAndCrLf)
{
    LogLine(vn_log::kErrorHex, "CVnThing::Method", "It broke.", 0x80040202u);
    std::string text = Appended();
    ASSERT_GE(text.size(), 2u);
    EXPECT_EQ("\r\n", text.substr(text.size() - 2));
    auto lines = AppendedLines();
    ASSERT_EQ(1u, lines.size());
    std::smatch m;
    ASSERT_TRUE(std::regex_match(lines[0], m, kEntry)) << lines[0];
    EXPECT_EQ(std::to_string(GetCurrentProcessId()), m[1].str());
    EXPECT_EQ(std::to_string(GetCurrentThreadId()), m[2].str());
    EXPECT_EQ("Error in method [CVnThing::Method]. Message: It broke. Error code: 80040202.", m[3].str());
}

TEST_F(LogFile, TraceLineNeverWrites)
{
    TraceLine(vn_log::kInfo, "CVnThing::Method", "tracing only");
    TraceLine("%s", "another trace");
    EXPECT_EQ("", Appended());
}

TEST_F(LogFile, PercentInArgumentIsFormattedAgain)
{
    // The finished message passes through formatting once more.
    LogLine(vn_log::kInfo, "CVnThing::Get", "url /a%20dx done 100%% rate %d%s|");
    auto lines = AppendedLines();
    ASSERT_EQ(1u, lines.size());
    std::smatch m;
    ASSERT_TRUE(std::regex_match(lines[0], m, kEntry));
    EXPECT_EQ("Info about method [CVnThing::Get]. Message: url /a" + std::string(19, ' ') + "0x done 100% rate 0|",
              m[3].str());
}

TEST_F(LogFile, MultiLineMessageSpansLines)
{
    LogLine("first\nsecond");
    auto lines = AppendedLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_TRUE(std::regex_match(lines[0], kEntry));
    EXPECT_EQ("second", lines[1]);
}

TEST_F(LogFile, ReadOnlyAttributeIsClearedAndLineGoesIn)
{
    ASSERT_TRUE(SetFileAttributesA(ExpectedLogPath().c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    LogLine("%s", "after read-only");
    DWORD attributes = GetFileAttributesA(ExpectedLogPath().c_str());
    EXPECT_EQ(0u, attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_NE(std::string::npos, Appended().find("after read-only"));
}

TEST_F(LogFile, ThreadsNeverInterleave)
{
    constexpr int kThreads = 8, kLines = 150;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i)
                LogLine("worker %d line %d %s", t, i, "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx");
        });
    for (auto& th : threads)
        th.join();
    auto lines = AppendedLines();
    ASSERT_EQ(static_cast<size_t>(kThreads * kLines), lines.size());
    std::vector<int> next(kThreads, 0);
    const std::regex body(R"(worker (\d+) line (\d+) x{64})");
    for (const auto& line : lines) {
        std::smatch m, b;
        ASSERT_TRUE(std::regex_match(line, m, kEntry)) << line;
        std::string msg = m[3].str();
        ASSERT_TRUE(std::regex_match(msg, b, body)) << msg;
        int t = std::stoi(b[1].str());
        EXPECT_EQ(next[t], std::stoi(b[2].str())) << "lines of one thread out of order";
        next[t] = std::stoi(b[2].str()) + 1;
    }
}

TEST(LogFolder, MissingFolderIsCreatedWithParents)
{
    char base[MAX_PATH] = {};
    ASSERT_TRUE(SUCCEEDED(SHGetFolderPathA(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, base)));
    std::string velorin = std::string(base) + "\\Velorin";
    // Remove the whole tree the log lives in.
    std::string from = velorin + std::string(1, '\0');
    SHFILEOPSTRUCTA op = {};
    op.wFunc = FO_DELETE;
    op.pFrom = from.c_str();
    op.fFlags = FOF_NOCONFIRMATION | FOF_SILENT | FOF_NOERRORUI;
    SHFileOperationA(&op);
    ASSERT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(velorin.c_str()));

    LogLine("%s", "into a fresh folder");
    EXPECT_NE(std::string::npos, vn_test::ReadWholeFile(ExpectedLogPath()).find("into a fresh folder"));
}

TEST(LogEntry, FieldsArePaddedAndMillisecondsHaveFourDigits)
{
    SYSTEMTIME t = {};
    t.wYear = 2026;
    t.wMonth = 3;
    t.wDay = 4;
    t.wHour = 5;
    t.wMinute = 6;
    t.wSecond = 9;
    t.wMilliseconds = 7;
    EXPECT_EQ("[2026-03-04 05:06:09.0007] pID 12 tID 345 hello", vn_log::BuildEntry(t, 12, 345, "hello"));
}

TEST(LogSecondPass, ConversionsWithoutArgumentsReadAsZeroOrEmpty)
{
    EXPECT_EQ("plain", vn_log::FormatWithoutArguments("plain"));
    EXPECT_EQ("50%", vn_log::FormatWithoutArguments("50%%"));
    EXPECT_EQ("n=0 s=[] x=00", vn_log::FormatWithoutArguments("n=%d s=[%s] x=%02X"));
    EXPECT_EQ("big 0", vn_log::FormatWithoutArguments("big %I64d"));
    EXPECT_EQ("end", vn_log::FormatWithoutArguments("end%"));
}

}  // namespace

#include "host/logger.h"
#include "host/module.h"
#include "vfc/com_ptr.h"

namespace {

TEST_F(LogFile, PluginLoggerMarksItsLinesWithItsName)
{
    CVnLogger* raw = nullptr;
    ASSERT_EQ(S_OK, CVnLogger::Create(&raw));
    vfc::TComPtr<CVnLogger> logger;
    logger.attach(raw);
    logger->SetName("Plug");
    BSTR empty = SysAllocString(L"");
    BSTR text = SysAllocString(L"ran 3 jobs");
    EXPECT_EQ(S_OK, logger->WriteLine(empty));
    EXPECT_EQ(S_OK, logger->WriteLine(text));
    SysFreeString(empty);
    SysFreeString(text);
    auto lines = AppendedLines();
    ASSERT_EQ(2u, lines.size());
    std::smatch m;
    ASSERT_TRUE(std::regex_match(lines[0], m, kEntry));
    EXPECT_EQ("[Plug]  ", m[3].str());
    ASSERT_TRUE(std::regex_match(lines[1], m, kEntry));
    EXPECT_EQ("[Plug]  ran 3 jobs", m[3].str());
}

TEST(PluginLogger, DoesNotKeepTheProcessAlive)
{
    const LONG before = Module().GetLockCount();
    CVnLogger* raw = nullptr;
    ASSERT_EQ(S_OK, CVnLogger::Create(&raw));
    EXPECT_EQ(before, Module().GetLockCount());
    raw->Release();
}

}  // namespace
