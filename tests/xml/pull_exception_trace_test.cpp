// The trace every parse failure leaves: two lines on standard output and an
// entry in "XmlPullException.log" in the current folder.
//
// Every failure of any XML test appends to that file, so this file moves the
// whole test program into a scratch folder of its own before the first test
// runs, and removes it after the last: a test run leaves nothing behind in
// the folder it was started from.
#include "tests/xml/xml_support.h"

#include <windows.h>

#include <regex>

namespace {

using namespace vn_xml_test;

class ScratchFolder : public testing::Environment {
public:
    void SetUp() override
    {
        char previous[MAX_PATH] = {}, temp[MAX_PATH] = {};
        ::GetCurrentDirectoryA(MAX_PATH, previous);
        ::GetTempPathA(MAX_PATH, temp);
        m_previous = previous;
        m_folder = std::string(temp) + "vn-xml-test-" + std::to_string(::GetCurrentProcessId());
        ::CreateDirectoryA(m_folder.c_str(), nullptr);
        ASSERT_TRUE(::SetCurrentDirectoryA(m_folder.c_str())) << m_folder;
    }
    void TearDown() override
    {
        ::SetCurrentDirectoryA(m_previous.c_str());
        ::DeleteFileA((m_folder + "\\XmlPullException.log").c_str());
        ::RemoveDirectoryA(m_folder.c_str());
    }

private:
    std::string m_previous, m_folder;
};

testing::Environment* const g_scratch = testing::AddGlobalTestEnvironment(new ScratchFolder);

// The bytes added to the log while `action` ran.
template <typename Action>
std::string LogAddedBy(Action action)
{
    auto read = [] {
        std::ifstream in("XmlPullException.log", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    };
    const std::string before = read();
    action();
    const std::string after = read();
    return after.compare(0, before.size(), before) == 0 ? after.substr(before.size()) : "<log rewritten>";
}

void ParseToTheEnd(const std::string& text)
{
    Reader r(text);
    while (r.parser.nextToken() != P::END_DOCUMENT) {
    }
}

}  // namespace

TEST(PullExceptionTrace, EachFailureAppendsOneStampedEntryWithMessageAndEvent)
{
    const std::string added = LogAddedBy([] {
        EXPECT_THROW(ParseToTheEnd("<Proxy>\n<Mode>1</Port></Proxy>"), XmlPullParserException);
        EXPECT_THROW(ParseToTheEnd("<!-- x"), XmlPullParserException);
        XmlPullParser empty;
        EXPECT_THROW(empty.isWhitespace(), XmlPullParserException);
    });
    // A local time stamp and a tab; text mode writes each line feed as CR LF.
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\t)";
    EXPECT_TRUE(std::regex_match(added, std::regex(stamp + "expected: Mode  <event:END_TAG>\r\n\r\n" + stamp +
                                                   "Unexpected EOF  <event:Illegal state>\r\n\r\n" + stamp +
                                                   "wrong Event Type  <event:START_DOCUMENT>\r\n\r\n")))
        << added;
}

TEST(PullExceptionTrace, CopiesOfTheExceptionLeaveNoFurtherEntry)
{
    const std::string added = LogAddedBy([] {
        XmlPullParserException original("first", "TEXT", 2, 3);
        XmlPullParserException copy(original);
        XmlPullParserException assigned("second", "COMMENT", 4, 5);
        assigned = copy;
        EXPECT_EQ("first", assigned.getMessage());
        EXPECT_EQ("TEXT", assigned.getState());
        EXPECT_EQ(2, assigned.getLineNumber());
        EXPECT_EQ(3, assigned.getColumnNumber());
        try {
            throw copy;
        } catch (const XmlPullParserException& caught) {
            EXPECT_EQ("first", XmlPullParserException(caught).getMessage());
        }
    });
    EXPECT_TRUE(std::regex_match(added, std::regex("[^\t]+\tfirst  <event:TEXT>\r\n\r\n[^\t]+\tsecond  <event:COMMENT>\r\n\r\n")))
        << added;
}

TEST(PullExceptionTrace, StandardOutputGetsTwoLines)
{
    testing::internal::CaptureStdout();
    EXPECT_THROW(ParseToTheEnd("<a>\n  <b></c>"), XmlPullParserException);
    EXPECT_EQ("Exception occurred while parsing document\nException : expected: b during :END_TAG at 2:10\n",
              testing::internal::GetCapturedStdout());
}
