// The XML pull parser's conveniences and guards: nextTag, nextText, require
// and skipSubTree, the calls that are only allowed at some events, the
// position description, and the parser without input and its copies.
#include <gtest/gtest.h>

#include "xml/xml_pull_parser.h"

#include <sstream>
#include <string>

namespace {

using P = XmlPullParser;

struct Reader {
    explicit Reader(const std::string& text) : stream(text), parser(stream) {}
    std::istringstream stream;
    XmlPullParser parser;
};

template <typename Action>
std::string FailureOf(Action action)
{
    try {
        action();
    } catch (const XmlPullParserException& e) {
        return e.getMessage();
    }
    return std::string();
}

}  // namespace

// ---------------------------------------------------------------------------
// nextTag and nextText

TEST(PullParserNextTag, PassesOverWhiteTextOnly)
{
    Reader r("<a>\n\t<b/>  x</a>");
    EXPECT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ("b", r.parser.getName());
    EXPECT_EQ(P::END_TAG, r.parser.nextTag());
    EXPECT_EQ("unexpected type", FailureOf([&] { r.parser.nextTag(); }));
}

TEST(PullParserNextText, GivesTheTextAndLeavesTheParserOnTheEndTag)
{
    Reader r("<a><b>x&amp;y</b><c></c><d><e/></d></a>");
    r.parser.next();
    r.parser.next();
    EXPECT_EQ("x&y", r.parser.nextText());
    EXPECT_EQ(P::END_TAG, r.parser.getEventType());
    EXPECT_EQ("b", r.parser.getName());
    r.parser.next();
    EXPECT_EQ("", r.parser.nextText());
    EXPECT_EQ("c", r.parser.getName());
    r.parser.next();
    EXPECT_EQ("END_TAG expected", FailureOf([&] { r.parser.nextText(); }));
}

TEST(PullParserNextText, NeedsAStartTag)
{
    Reader r("<a>x</a>");
    EXPECT_EQ("precondition: START_TAG", FailureOf([&] { r.parser.nextText(); }));
}

TEST(PullParserNextText, TextFollowedByAnElementIsRefused)
{
    Reader r("<a>x<b/></a>");
    r.parser.next();
    EXPECT_EQ("END_TAG expected", FailureOf([&] { r.parser.nextText(); }));
}

// ---------------------------------------------------------------------------
// require and skipSubTree

TEST(PullParserRequire, PassesOnlyWhenTypeAndTheGivenNamesMatch)
{
    Reader r("<a/>");
    r.parser.next();
    EXPECT_EQ("", FailureOf([&] { r.parser.require(P::START_TAG, nullptr, nullptr); }));
    EXPECT_EQ("", FailureOf([&] { r.parser.require(P::START_TAG, "", "a"); }));
    EXPECT_EQ("expected: END_TAG {}", FailureOf([&] { r.parser.require(P::END_TAG, nullptr, nullptr); }));
    EXPECT_EQ("expected: START_TAG {}b", FailureOf([&] { r.parser.require(P::START_TAG, nullptr, "b"); }));
    EXPECT_EQ("expected: START_TAG {urn:x}a", FailureOf([&] { r.parser.require(P::START_TAG, "urn:x", "a"); }));
}

TEST(PullParserSkipSubTree, SkipsToTheMatchingEndTag)
{
    Reader r("<r><a><a><b>t</b></a><c/></a><after/></r>");
    r.parser.next();
    r.parser.next();
    r.parser.skipSubTree();
    EXPECT_EQ(P::END_TAG, r.parser.getEventType());
    EXPECT_EQ("a", r.parser.getName());
    EXPECT_EQ(2, r.parser.getDepth());
    r.parser.next();
    EXPECT_EQ("after", r.parser.getName());
}

TEST(PullParserSkipSubTree, NeedsAStartTagAndEndsAtTheEndOfInput)
{
    Reader r("<r><a><b>");
    EXPECT_EQ(0u, FailureOf([&] { r.parser.skipSubTree(); }).find("expected: START_TAG"));
    r.parser.next();
    EXPECT_EQ("Unexpected EOF", FailureOf([&] { r.parser.skipSubTree(); }));
}

// ---------------------------------------------------------------------------
// Calls allowed only at some events, and indexes

TEST(PullParserGuards, WhitespaceQuestionOnlyAtTextEvents)
{
    Reader r("<a> <![CDATA[x]]></a>");
    r.parser.nextToken();
    EXPECT_EQ("wrong Event Type", FailureOf([&] { r.parser.isWhitespace(); }));
    r.parser.nextToken();
    EXPECT_TRUE(r.parser.isWhitespace());
    r.parser.nextToken();
    ASSERT_EQ(P::CDSECT, r.parser.getEventType());
    EXPECT_FALSE(r.parser.isWhitespace());
}

TEST(PullParserGuards, EmptyElementQuestionOnlyAtAStartTag)
{
    Reader r("<a/>");
    EXPECT_EQ("wrong Event Type", FailureOf([&] { r.parser.isEmptyElementTag(); }));
    r.parser.next();
    r.parser.next();
    EXPECT_EQ("wrong Event Type", FailureOf([&] { r.parser.isEmptyElementTag(); }));
}

TEST(PullParserGuards, AttributeIndexMustBeBelowTheCount)
{
    Reader r("<a b='1'>x</a>");
    r.parser.next();
    EXPECT_EQ("1", r.parser.getAttributeValue(0));
    EXPECT_EQ("IndexOutOfBoundsException()", FailureOf([&] { r.parser.getAttributeValue(1); }));
    EXPECT_EQ("IndexOutOfBoundsException()", FailureOf([&] { r.parser.getAttributeName(1); }));
    EXPECT_EQ("IndexOutOfBoundsException()", FailureOf([&] { r.parser.getAttributePrefix(-1); }));
    r.parser.next();
    EXPECT_EQ("IndexOutOfBoundsException()", FailureOf([&] { r.parser.getAttributeNamespace(0); }));
}

TEST(PullParserGuards, NamespaceCountOnlyUpToTheCurrentDepth)
{
    Reader r("<a><b/></a>");
    r.parser.next();
    EXPECT_EQ(0, r.parser.getNamespaceCount(1));
    EXPECT_EQ("IndexOutOfBoundsException", FailureOf([&] { r.parser.getNamespaceCount(2); }));
}

// ---------------------------------------------------------------------------
// Position description

TEST(PullParserPosition, DescribesTheEventAndEndsWithThePosition)
{
    Reader r("<a k='v'/>\n<b>  </b><c>0123456789abcdefghij</c>");
    r.parser.next();
    EXPECT_EQ("START_TAG (empty) <a k='v'> @1:10", r.parser.getPositionDescription());
    r.parser.next();
    r.parser.next();
    r.parser.next();
    EXPECT_EQ("TEXT (whitespace) @2:6", r.parser.getPositionDescription());
    r.parser.next();
    r.parser.next();
    r.parser.next();
    const std::string text = r.parser.getPositionDescription();
    EXPECT_NE(std::string::npos, text.find("0123456789abcdef...")) << text;
    EXPECT_EQ(std::string::npos, text.find("ghij")) << text;
}

// ---------------------------------------------------------------------------
// A parser without input, copies and assignment

TEST(PullParserLifecycle, ParserWithoutInputIsAnEmptyDocument)
{
    XmlPullParser p;
    EXPECT_EQ(P::START_DOCUMENT, p.getEventType());
    EXPECT_EQ(1, p.getLineNumber());
    EXPECT_EQ(0, p.getColumnNumber());
    EXPECT_EQ(P::END_DOCUMENT, p.next());
    EXPECT_EQ(P::END_DOCUMENT, p.nextToken());
}

TEST(PullParserLifecycle, EntityTextCanOnlyBeDefinedWithInput)
{
    XmlPullParser p;
    EXPECT_EQ("entity replacement text must be defined after setInput!",
              FailureOf([&] { p.defineEntityReplacementText("amp", "+"); }));
}

TEST(PullParserLifecycle, CopyContinuesFromTheSamePlace)
{
    Reader r("<a k='v'><b/></a>");
    r.parser.next();
    XmlPullParser copy(r.parser);
    EXPECT_EQ(P::START_TAG, copy.getEventType());
    EXPECT_EQ("a", copy.getName());
    EXPECT_EQ("v", copy.getAttributeValue(0));
    EXPECT_EQ(1, copy.getDepth());
    EXPECT_EQ(P::START_TAG, copy.next());
    EXPECT_EQ("b", copy.getName());
}

TEST(PullParserLifecycle, AssignmentChangesNothing)
{
    Reader first("<a/>");
    Reader second("<b><c/></b>");
    first.parser.next();
    second.parser.next();
    second.parser.next();
    first.parser = second.parser;
    EXPECT_EQ("a", first.parser.getName());
    EXPECT_EQ(1, first.parser.getDepth());
    EXPECT_EQ(P::END_TAG, first.parser.next());
    EXPECT_EQ("a", first.parser.getName());
}
