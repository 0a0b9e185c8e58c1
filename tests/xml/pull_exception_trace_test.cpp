// The trace that every parse failure leaves: two lines on standard output and
// an entry in "XmlPullException.log" in the current directory.
//
// This file also moves the whole test program into a scratch folder of its
// own before the first test runs, because every failure in any of the XML
// tests appends to that file in the current directory.
#include <gtest/gtest.h>

#include <windows.h>

#include "xml/xml_pull_parser.h"

#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace {

class ScratchDirectory : public testing::Environment {
public:
    void SetUp() override
    {
        char previous[MAX_PATH] = {};
        ::GetCurrentDirectoryA(MAX_PATH, previous);
        m_previous = previous;
        char temp[MAX_PATH] = {};
        ::GetTempPathA(MAX_PATH, temp);
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
    std::string m_previous;
    std::string m_folder;
};

testing::Environment* const g_scratch = testing::AddGlobalTestEnvironment(new ScratchDirectory);

// The raw bytes of the log, as they stand on disk.
std::string ReadLog()
{
    std::ifstream in("XmlPullException.log", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The text added to the log while `action` ran.
template <typename Action>
std::string LogAddedBy(Action action)
{
    const std::string before = ReadLog();
    action();
    const std::string after = ReadLog();
    if (after.compare(0, before.size(), before) != 0)
        return "<log rewritten>";
    return after.substr(before.size());
}

// "YYYY-MM-DD hh:mm:ss" followed by a tab.
bool StartsWithTimeStamp(const std::string& entry)
{
    const std::string shape = "dddd-dd-dd dd:dd:dd\t";
    if (entry.size() < shape.size())
        return false;
    for (size_t i = 0; i < shape.size(); ++i) {
        const bool digit = std::isdigit(static_cast<unsigned char>(entry[i])) != 0;
        if (shape[i] == 'd' ? !digit : entry[i] != shape[i])
            return false;
    }
    return true;
}

void ParseToTheEnd(const std::string& text)
{
    std::istringstream stream(text);
    XmlPullParser parser(stream);
    while (parser.nextToken() != XmlPullParser::END_DOCUMENT) {
    }
}

}  // namespace

TEST(PullExceptionTrace, FailureAppendsOneStampedEntryWithMessageAndEvent)
{
    const std::string added = LogAddedBy([] {
        EXPECT_THROW(ParseToTheEnd("<Proxy>\n<Mode>1</Port></Proxy>"), XmlPullParserException);
    });
    ASSERT_TRUE(StartsWithTimeStamp(added)) << added;
    // Text mode: each line feed of the entry is CR LF on disk.
    EXPECT_EQ("expected: Mode  <event:END_TAG>\r\n\r\n", added.substr(20));
}

TEST(PullExceptionTrace, EveryFailureLeavesItsOwnEntry)
{
    const std::string added = LogAddedBy([] {
        EXPECT_THROW(ParseToTheEnd("<a>&x"), XmlPullParserException);
        EXPECT_THROW(ParseToTheEnd("<!-- x"), XmlPullParserException);
        XmlPullParser empty;
        EXPECT_THROW(empty.isWhitespace(), XmlPullParserException);
    });
    EXPECT_NE(std::string::npos, added.find("\tUnexpected EOF  <event:ENTITY_REF>\r\n\r\n"));
    EXPECT_NE(std::string::npos, added.find("\tUnexpected EOF  <event:Illegal state>\r\n\r\n"));
    EXPECT_NE(std::string::npos, added.find("\twrong Event Type  <event:START_DOCUMENT>\r\n\r\n"));
    size_t entries = 0;
    for (size_t at = added.find("\r\n\r\n"); at != std::string::npos; at = added.find("\r\n\r\n", at + 1))
        ++entries;
    EXPECT_EQ(3u, entries) << added;
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
            const XmlPullParserException again(caught);
            EXPECT_EQ("first", again.getMessage());
        }
    });
    EXPECT_NE(std::string::npos, added.find("\tfirst  <event:TEXT>\r\n\r\n"));
    EXPECT_NE(std::string::npos, added.find("\tsecond  <event:COMMENT>\r\n\r\n"));
    EXPECT_EQ(std::string::npos, added.find("first", added.find("first") + 1)) << added;
}

TEST(PullExceptionTrace, StandardOutputGetsTheTwoLines)
{
    testing::internal::CaptureStdout();
    try {
        ParseToTheEnd("<a>\n  <b></c>");
    } catch (const XmlPullParserException&) {
    }
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ("Exception occurred while parsing document\nException : expected: b during :END_TAG at 2:10\n", out);
}
