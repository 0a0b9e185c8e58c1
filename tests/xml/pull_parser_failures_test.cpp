// The XML pull parser's failures: every broken document ends in an
// XmlPullParserException with its message, event and position, and hostile
// input (bare ampersands, binary bytes, unterminated constructs, huge and deep
// documents) never takes the reader down or keeps it from ending.
#include <gtest/gtest.h>

#include "xml/xml_pull_parser.h"

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>

namespace {

using P = XmlPullParser;

struct Reader {
    explicit Reader(const std::string& text, bool relaxed = false, bool namespaces = false)
        : stream(text), parser(stream)
    {
        parser.setFeature(P::FEATURE_RELAXED, relaxed);
        parser.setFeature(P::FEATURE_PROCESS_NAMESPACES, namespaces);
    }
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

// Reads to the end in token mode (or next mode) and gives the failure, if any.
// The bound on events is far above what any document of that size can give.
std::string ParseFailure(const std::string& text, bool relaxed = false, bool namespaces = false,
                         bool tokens = true)
{
    Reader r(text, relaxed, namespaces);
    return FailureOf([&] {
        for (size_t guard = 0; guard < text.size() + 8; ++guard) {
            if ((tokens ? r.parser.nextToken() : r.parser.next()) == P::END_DOCUMENT)
                return;
        }
        ADD_FAILURE() << "the reader did not come to an end";
    });
}

}  // namespace

// ---------------------------------------------------------------------------
// Messages of broken markup

TEST(PullParserFailures, MismatchedEndTagNamesTheOpenElement)
{
    EXPECT_EQ("expected: Proxy", ParseFailure("<Proxy><Mode>1</Mode></DialUp>"));
}

TEST(PullParserFailures, EndTagWithNothingOpen)
{
    EXPECT_EQ("element stack empty", ParseFailure("</a>"));
    EXPECT_EQ("element stack empty", ParseFailure("<a/></a>"));
}

TEST(PullParserFailures, RelaxedModeLetsStrayAndWrongEndTagsPass)
{
    EXPECT_EQ("", ParseFailure("</a><b></c><d/>", true));
    Reader r("</x><a/>", true);
    ASSERT_EQ(P::END_TAG, r.parser.next());
    EXPECT_EQ(0, r.parser.getDepth());
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ(1, r.parser.getDepth());
}

TEST(PullParserFailures, UnquotedAttributeValueInStrictMode)
{
    EXPECT_EQ("<Proxy>: invalid delimiter: t", ParseFailure("<Proxy useSystemProxy=true>"));
}

TEST(PullParserFailures, AttributeWithoutEqualsSign)
{
    EXPECT_EQ("expected: '=' actual: '>'", ParseFailure("<a b>"));
}

TEST(PullParserFailures, DuplicateAttribute)
{
    EXPECT_EQ("Duplicate Attribute: k", ParseFailure("<a k='1' j='2' k='3'/>"));
    EXPECT_EQ("Duplicate Attribute: k", ParseFailure("<a k='1' k='1'/>", true));
}

TEST(PullParserFailures, DuplicateAttributeThroughTwoPrefixesOfOneNamespace)
{
    EXPECT_EQ("Duplicate Attribute: {urn:x}k",
              ParseFailure("<a xmlns:p='urn:x' xmlns:q='urn:x' p:k='1' q:k='2'/>", false, true));
    EXPECT_EQ("", ParseFailure("<a xmlns:p='urn:x' xmlns:q='urn:x' p:k='1' q:k='2'/>", true, true));
}

TEST(PullParserFailures, NamespaceRules)
{
    EXPECT_EQ("illegal empty namespace", ParseFailure("<a xmlns:p=''/>", false, true));
    EXPECT_EQ("undefined prefix: p", ParseFailure("<p:a/>", false, true));
    EXPECT_EQ("illegal tag name: :a", ParseFailure("<:a/>", false, true));
    EXPECT_EQ("illegal attribute name: :k", ParseFailure("<a :k='1'/>", false, true));
    const std::string undefined = ParseFailure("<a q:k='1'/>", false, true);
    EXPECT_EQ(0u, undefined.find("Undefined Prefix: q in START_TAG")) << undefined;
    // Without namespace processing the same names are plain names.
    EXPECT_EQ("", ParseFailure("<p:a q:k='1' xmlns:p=''/>"));
}

TEST(PullParserFailures, UnknownEntityOutsideTokenMode)
{
    EXPECT_EQ("unresolved: &company;", ParseFailure("<a>&company;</a>", false, false, false));
    EXPECT_EQ("unresolved: &;", ParseFailure("<a>&;</a>", false, false, false));
}

TEST(PullParserFailures, UnknownEntityInAnAttributeFailsOnlyOutsideTokenMode)
{
    EXPECT_EQ("unresolved: &x;", ParseFailure("<a b='&x;'/>", false, false, false));
    Reader r("<a b='1&x;2'/>");
    ASSERT_EQ(P::START_TAG, r.parser.nextToken());
    EXPECT_EQ("12", r.parser.getAttributeValue(0));
}

TEST(PullParserFailures, ThreeDashesBeforeTheCommentEnd)
{
    EXPECT_EQ("illegal comment delimiter: --->", ParseFailure("<!-- x ---><a/>"));
}

TEST(PullParserFailures, MalformedLegacyOpenings)
{
    EXPECT_EQ("expected: '-' actual: ' '", ParseFailure("<!- x --><a/>"));
    EXPECT_EQ("expected: 'C' actual: 'c'", ParseFailure("<a><![cdata[x]]></a>"));
    EXPECT_EQ("expected: 'D' actual: 'E'", ParseFailure("<!ELEMENT a ANY><a/>"));
}

TEST(PullParserFailures, TagNameMustBeginWithANameCharacter)
{
    EXPECT_EQ("name expected", ParseFailure("<1a/>"));
    EXPECT_EQ("name expected", ParseFailure("< a/>"));
    EXPECT_EQ("name expected", ParseFailure("<a></ a>"));
}

TEST(PullParserFailures, ExceptionCarriesTheEventAndThePosition)
{
    Reader r("<a>\n  <b>\n  </c>");
    try {
        while (r.parser.nextToken() != P::END_DOCUMENT) {
        }
        FAIL() << "no failure";
    } catch (const XmlPullParserException& e) {
        EXPECT_EQ("expected: b", e.getMessage());
        EXPECT_STREQ("expected: b", e.what());
        EXPECT_EQ("END_TAG", e.getState());
        EXPECT_EQ(3, e.getLineNumber());
        EXPECT_EQ(7, e.getColumnNumber());
    }
}

TEST(PullParserFailures, FailureInsideALegacyConstructNamesNoEvent)
{
    Reader r("<a><!-- open");
    r.parser.next();
    try {
        r.parser.next();
        FAIL() << "no failure";
    } catch (const XmlPullParserException& e) {
        EXPECT_EQ("Unexpected EOF", e.getMessage());
        EXPECT_EQ("Illegal state", e.getState());
    }
}

// ---------------------------------------------------------------------------
// Bare ampersands

TEST(PullParserAmpersands, LoneAmpersandWithNoSemicolonToFollow)
{
    EXPECT_EQ("Unexpected EOF", ParseFailure("<Exclude>Tom & Jerry</Exclude>"));
    EXPECT_EQ("Unexpected EOF", ParseFailure("<Exclude>Tom & Jerry</Exclude>", false, false, false));
    EXPECT_EQ("Unexpected EOF", ParseFailure("<a b='x&y'/>"));
}

TEST(PullParserAmpersands, LoneAmpersandEatsTextUpToTheNextSemicolon)
{
    EXPECT_EQ("unresolved: & Jerry</a><b>x;", ParseFailure("<a>Tom & Jerry</a><b>x;y</b>", false, false, false));
    // In token mode the eaten text is an unresolved entity: no failure, and
    // the markup inside it is gone.
    Reader r("<a>Tom & Jerry</a><b>x;y</b>");
    r.parser.nextToken();
    r.parser.nextToken();
    ASSERT_EQ(P::ENTITY_REF, r.parser.nextToken());
    EXPECT_EQ(" Jerry</a><b>x", r.parser.getName());
    EXPECT_EQ(P::TEXT, r.parser.nextToken());
    EXPECT_EQ("y", r.parser.getText());
}

TEST(PullParserAmpersands, RelaxedModeEndsTheAttemptAtABlankOrMarkup)
{
    // The ampersand itself is read and not kept; what follows stays as text.
    Reader r("<a>AT&T rocks</a>", true);
    r.parser.next();
    ASSERT_EQ(P::TEXT, r.parser.next());
    EXPECT_EQ("ATT rocks", r.parser.getText());
    EXPECT_EQ(P::END_TAG, r.parser.next());
    EXPECT_EQ("", ParseFailure("<a>x &<b/>&</a>", true));
}

// ---------------------------------------------------------------------------
// Unterminated constructs

TEST(PullParserUnterminated, EachConstructCutShortGivesItsFailure)
{
    struct Case {
        const char* document;
        const char* message;
    };
    const Case cases[] = {
        {"<!-- open", "Unexpected EOF"},
        {"<a><![CDATA[open", "Unexpected EOF"},
        {"<?pi open", "Unexpected EOF"},
        {"<!DOCTYPE a [<!ELEMENT a ANY>", "Unexpected EOF"},
        {"<!DOCTYPE a 'quoted >", "Unexpected EOF"},
        {"<a b=\"open", "Unexpected EOF"},
        {"<a", "Unexpected EOF"},
        {"<a b='1'", "Unexpected EOF"},
        {"<a>&amp", "Unexpected EOF"},
        {"<?xml version='1.0'", "Unexpected EOF"},
        {"<a b", "expected: '=' actual: '\xFF'"},
        {"<a b=", "<a>: invalid delimiter: \xFF"},
        {"<a/", "expected: '>' actual: '\xFF'"},
        {"<a></a", "expected: '>' actual: '\xFF'"},
        {"<!-", "expected: '-' actual: '\xFF'"},
        {"<![CDA", "expected: 'T' actual: '\xFF'"},
        {"<", "name expected"},
        {"<a></", "name expected"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.message, ParseFailure(c.document)) << c.document;
}

TEST(PullParserUnterminated, ByteFFCutsAConstructShortLikeTheEnd)
{
    EXPECT_EQ("Unexpected EOF", ParseFailure("<a><!-- x \xFF --></a>"));
    EXPECT_EQ("Unexpected EOF", ParseFailure("<a>&am\xFFp;</a>"));
}

// ---------------------------------------------------------------------------
// Binary bytes, huge and deep input

namespace {

// A fixed pseudo-random byte sequence, the same on every run.
std::string Noise(size_t size, uint32_t seed, const std::string& alphabet = std::string())
{
    std::string bytes(size, '\0');
    uint32_t state = seed;
    for (char& b : bytes) {
        state = state * 1664525u + 1013904223u;
        const uint32_t r = state >> 24;
        b = alphabet.empty() ? static_cast<char>(r) : alphabet[r % alphabet.size()];
    }
    return bytes;
}

}  // namespace

TEST(PullParserHostile, BinaryBytesEndInAFailureOrTheEndInEveryMode)
{
    for (uint32_t seed = 1; seed <= 8; ++seed) {
        const std::string bytes = Noise(65536, seed);
        for (int mode = 0; mode < 8; ++mode) {
            // ParseFailure itself reports a reader that doesn't end.
            ParseFailure(bytes, (mode & 1) != 0, (mode & 2) != 0, (mode & 4) != 0);
        }
    }
}

TEST(PullParserHostile, MarkupShapedNoiseEndsInAFailureOrTheEnd)
{
    const std::string alphabet = "<<>>//!!?" "?--[[]]&&;;#x''\"\"== \n\rabAB:CDATA";
    for (uint32_t seed = 1; seed <= 64; ++seed) {
        const std::string bytes = Noise(4096, seed, alphabet);
        for (int mode = 0; mode < 8; ++mode)
            ParseFailure(bytes, (mode & 1) != 0, (mode & 2) != 0, (mode & 4) != 0);
    }
}

TEST(PullParserHostile, HugeTextArrivesAsOneEvent)
{
    const std::string body = Noise(8 * 1024 * 1024, 7, "abcdefghij klmnop");
    Reader r("<a>" + body + "</a>");
    r.parser.next();
    ASSERT_EQ(P::TEXT, r.parser.next());
    int start = 0, length = 0;
    r.parser.getTextCharacters(start, length);
    EXPECT_EQ(static_cast<int>(body.size()), length);
    EXPECT_TRUE(r.parser.getText() == body);
    EXPECT_EQ(P::END_TAG, r.parser.next());
}

TEST(PullParserHostile, HugeAttributeValueAndManyAttributes)
{
    const std::string value = Noise(1024 * 1024, 3, "abc xyz");
    std::string many = "<a";
    for (int i = 0; i < 50000; ++i)
        many += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
    Reader r("<a v='" + value + "'/>" + many + " a17='again'/>");
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_TRUE(r.parser.getAttributeValue(0) == value);
    r.parser.next();
    EXPECT_EQ("Duplicate Attribute: a17", FailureOf([&] { r.parser.next(); }));
}

TEST(PullParserHostile, ManyNamespaceDeclarationsOnOneElement)
{
    std::string tag = "<p0:a";
    for (int i = 0; i < 20000; ++i)
        tag += " xmlns:p" + std::to_string(i) + "='urn:" + std::to_string(i) + "' p" + std::to_string(i) + ":k='v'";
    Reader r(tag + "/>", false, true);
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ(20000, r.parser.getAttributeCount());
    EXPECT_EQ(20000, r.parser.getNamespaceCount(1));
    EXPECT_EQ("urn:19999", r.parser.getAttributeNamespace(19999));
    EXPECT_EQ("urn:0", r.parser.getNamespace());
}

TEST(PullParserHostile, DeepNestingOpensAndClosesEveryLevel)
{
    const int depth = 200000;
    std::string doc;
    for (int i = 0; i < depth; ++i)
        doc += "<e>";
    doc += "x";
    for (int i = 0; i < depth; ++i)
        doc += "</e>";
    Reader r(doc);
    int deepest = 0;
    int events = 0;
    while (r.parser.next() != P::END_DOCUMENT) {
        deepest = std::max(deepest, r.parser.getDepth());
        ++events;
    }
    EXPECT_EQ(depth, deepest);
    EXPECT_EQ(2 * depth + 1, events);
}

TEST(PullParserHostile, DeepNestingCutShortEndsWithoutFailure)
{
    std::string doc;
    for (int i = 0; i < 100000; ++i)
        doc += "<e a='1'>";
    Reader r(doc);
    while (r.parser.next() != P::END_DOCUMENT) {
    }
    EXPECT_EQ(100000, r.parser.getDepth());
}
