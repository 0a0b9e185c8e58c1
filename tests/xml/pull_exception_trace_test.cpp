// The trace every parse failure leaves: two lines on standard output and an
// entry in "XmlPullException.log" in the current folder. Since every failure
// of every XML test writes that file, the test program runs in a scratch
// folder of its own, removed at the end, and leaves nothing where it started.
#include "tests/xml/xml_support.h"

#include <windows.h>

#include <regex>

using namespace vn_xml_test;

namespace {

struct ScratchFolder : testing::Environment {
    void SetUp() override
    {
        char temp[MAX_PATH] = {};
        ::GetCurrentDirectoryA(MAX_PATH, previous);
        ::GetTempPathA(MAX_PATH, temp);
        folder = std::string(temp) + "vn-xml-test-" + std::to_string(::GetCurrentProcessId());
        ::CreateDirectoryA(folder.c_str(), nullptr);
        ASSERT_TRUE(::SetCurrentDirectoryA(folder.c_str())) << folder;
    }
    void TearDown() override
    {
        ::SetCurrentDirectoryA(previous);
        ::DeleteFileA((folder + "\\XmlPullException.log").c_str());
        ::RemoveDirectoryA(folder.c_str());
    }
    char previous[MAX_PATH] = {};
    std::string folder;
};

testing::Environment* const g_scratch = testing::AddGlobalTestEnvironment(new ScratchFolder);

std::string Log()
{
    std::ifstream in("XmlPullException.log", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void ParseToTheEnd(const std::string& text)
{
    Reader r(text);
    while (r.parser.nextToken() != P::END_DOCUMENT) {
    }
}

}  // namespace

TEST(PullExceptionTrace, EachFailurePrintsTwoLinesAndAppendsOneStampedEntry)
{
    const size_t before = Log().size();
    testing::internal::CaptureStdout();
    EXPECT_THROW(ParseToTheEnd("<Proxy>\n<Mode>1</Port></Proxy>"), XmlPullParserException);
    EXPECT_THROW(ParseToTheEnd("<!-- x"), XmlPullParserException);
    EXPECT_THROW(XmlPullParser().isWhitespace(), XmlPullParserException);
    EXPECT_EQ("Exception occurred while parsing document\nException : expected: Mode during :END_TAG at 2:15\n"
              "Exception occurred while parsing document\nException : Unexpected EOF during :Illegal state at 1:7\n"
              "Exception occurred while parsing document\nException : wrong Event Type during :START_DOCUMENT at 1:0\n",
              testing::internal::GetCapturedStdout());
    // A local time stamp and a tab; text mode writes each line feed as CR LF.
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\t)", added = Log().substr(before);
    EXPECT_TRUE(std::regex_match(added, std::regex(stamp + "expected: Mode  <event:END_TAG>\r\n\r\n" + stamp +
                                                   "Unexpected EOF  <event:Illegal state>\r\n\r\n" + stamp +
                                                   "wrong Event Type  <event:START_DOCUMENT>\r\n\r\n")))
        << added;
}

TEST(PullExceptionTrace, CopiesOfTheExceptionLeaveNoFurtherEntry)
{
    const size_t before = Log().size();
    XmlPullParserException original("first", "TEXT", 2, 3), assigned("second", "COMMENT", 4, 5);
    XmlPullParserException copy(original);
    assigned = copy;
    EXPECT_EQ("first TEXT 2:3", assigned.getMessage() + " " + assigned.getState() + " " +
                                    std::to_string(assigned.getLineNumber()) + ":" + std::to_string(assigned.getColumnNumber()));
    try {
        throw copy;
    } catch (const XmlPullParserException& caught) {
        EXPECT_EQ("first", XmlPullParserException(caught).getMessage());
    }
    const std::string added = Log().substr(before);
    EXPECT_TRUE(std::regex_match(added, std::regex("[^\t]+\tfirst  <event:TEXT>\r\n\r\n[^\t]+\tsecond  <event:COMMENT>\r\n\r\n")))
        << added;
}
