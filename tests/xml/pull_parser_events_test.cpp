// The XML pull parser's events on well-formed and tolerated input: what each
// construct gives in next and nextToken mode, the head, the reading of bytes as
// signed chars, line ends and positions, features and namespaces.
#include <gtest/gtest.h>

#include "xml/xml_pull_parser.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

using P = XmlPullParser;

// A parser over a text; the stream lives as long as the parser.
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

// One line per event: tags with their depth, everything else with its text.
std::string Describe(const XmlPullParser& p)
{
    switch (p.getEventType()) {
    case P::START_TAG:
        return "<" + p.getName() + "> " + std::to_string(p.getDepth());
    case P::END_TAG:
        return "</" + p.getName() + "> " + std::to_string(p.getDepth());
    case P::END_DOCUMENT:
        return "end " + std::to_string(p.getDepth());
    case P::TEXT:
        return "text:" + p.getText();
    case P::CDSECT:
        return "cdata:" + p.getText();
    case P::ENTITY_REF:
        return "entity:" + p.getName() + "=" + p.getText();
    case P::IGNORABLE_WHITESPACE:
        return "ws:" + p.getText();
    case P::PROCESSING_INSTRUCTION:
        return "pi:" + p.getText();
    case P::COMMENT:
        return "comment:" + p.getText();
    case P::DOCDECL:
        return "doctype:" + p.getText();
    default:
        return "?";
    }
}

// All events up to END_DOCUMENT; a bound guards against a reader that never ends.
std::vector<std::string> Events(const std::string& text, bool tokens, bool relaxed = false,
                                bool namespaces = false)
{
    Reader r(text, relaxed, namespaces);
    std::vector<std::string> events;
    for (size_t guard = 0; guard < text.size() + 8; ++guard) {
        tokens ? r.parser.nextToken() : r.parser.next();
        events.push_back(Describe(r.parser));
        if (r.parser.getEventType() == P::END_DOCUMENT)
            break;
    }
    return events;
}

using Lines = std::vector<std::string>;

// The message of the failure that `action` ends in, or "" if it passes.
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

// Reads to the end of the document and gives the failure, if any.
std::string ParseFailure(const std::string& text, bool relaxed = false, bool namespaces = false)
{
    Reader r(text, relaxed, namespaces);
    return FailureOf([&] {
        for (size_t guard = 0; guard < text.size() + 8 && r.parser.nextToken() != P::END_DOCUMENT; ++guard) {
        }
    });
}

std::string DataFile(const std::string& name)
{
    std::string here = __FILE__;
    std::string dir = here.substr(0, here.find_last_of("/\\"));
    // Under Wine a unix path of the source tree is reached through drive Z:.
    if (!dir.empty() && dir[0] == '/')
        dir = "Z:" + dir;
    std::ifstream in(dir + "/data/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

// ---------------------------------------------------------------------------
// Structure

TEST(PullParserStructure, EmptyStreamGivesEndDocumentAtOnce)
{
    EXPECT_EQ(Events("", false), (Lines{"end 0"}));
    EXPECT_EQ(Events("", true), (Lines{"end 0"}));
}

TEST(PullParserStructure, EmptyElementGivesStartAndEndAtDepthOne)
{
    Reader r("<a/>");
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ(1, r.parser.getDepth());
    EXPECT_TRUE(r.parser.isEmptyElementTag());
    ASSERT_EQ(P::END_TAG, r.parser.next());
    EXPECT_EQ(1, r.parser.getDepth());
    EXPECT_EQ("a", r.parser.getName());
    ASSERT_EQ(P::END_DOCUMENT, r.parser.next());
    EXPECT_EQ(0, r.parser.getDepth());
}

TEST(PullParserStructure, ElementWithBothTagsIsNotEmpty)
{
    Reader r("<a></a>");
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_FALSE(r.parser.isEmptyElementTag());
}

TEST(PullParserStructure, DepthCountsOpenElementsAndFallsAfterTheEndTag)
{
    EXPECT_EQ(Events("<a><b><c/></b><d>x</d></a>", false),
              (Lines{"<a> 1", "<b> 2", "<c> 3", "</c> 3", "</b> 2", "<d> 2", "text:x", "</d> 2", "</a> 1",
                     "end 0"}));
}

TEST(PullParserStructure, UnclosedElementsEndTheDocumentWithoutFailure)
{
    EXPECT_EQ(Events("<a><b>", false), (Lines{"<a> 1", "<b> 2", "end 2"}));
}

TEST(PullParserStructure, TextAtDepthZeroIsDeliveredWithoutFailure)
{
    EXPECT_EQ(Events("hello<a/>", true), (Lines{"text:hello", "<a> 1", "</a> 1", "end 0"}));
    EXPECT_EQ(Events(" \n\t<a/>\n", true), (Lines{"ws: \n\t", "<a> 1", "</a> 1", "ws:\n", "end 0"}));
}

TEST(PullParserStructure, WhiteTextInsideAnElementIsTextNotIgnorable)
{
    Reader r("<a> </a>");
    r.parser.nextToken();
    ASSERT_EQ(P::TEXT, r.parser.nextToken());
    EXPECT_TRUE(r.parser.isWhitespace());
}

TEST(PullParserStructure, SeveralTopLevelElementsAreRead)
{
    EXPECT_EQ(Events("<a/><b/>", false), (Lines{"<a> 1", "</a> 1", "<b> 1", "</b> 1", "end 0"}));
}

// ---------------------------------------------------------------------------
// Attributes

TEST(PullParserAttributes, BlanksAroundTheEqualsSignAreReadNormally)
{
    Reader r("<Proxy useSystemProxy = \"true\"  mode\t=\n'2'>");
    ASSERT_EQ(P::START_TAG, r.parser.next());
    ASSERT_EQ(2, r.parser.getAttributeCount());
    EXPECT_EQ("useSystemProxy", r.parser.getAttributeName(0));
    EXPECT_EQ("true", r.parser.getAttributeValue(0));
    EXPECT_EQ("mode", r.parser.getAttributeName(1));
    EXPECT_EQ("2", r.parser.getAttributeValue(1));
}

TEST(PullParserAttributes, ValuesResolveEntitiesAndTurnLineFeedsIntoBlanks)
{
    Reader r("<a v=\"x &lt;&amp;&#65;\ny\" w='\"'/>");
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ("x <&A y", r.parser.getAttributeValue(0));
    EXPECT_EQ("\"", r.parser.getAttributeValue(1));
}

TEST(PullParserAttributes, LookupByNameGivesTheFirstMatchOrEmpty)
{
    Reader r("<a:b xmlns:a='urn:a' a:k='1' k='2' xmlns:c='urn:a'/>", false, true);
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ("1", r.parser.getAttributeValue(nullptr, "k"));
    EXPECT_EQ("2", r.parser.getAttributeValue("", "k"));
    EXPECT_EQ("1", r.parser.getAttributeValue("urn:a", "k"));
    EXPECT_EQ("", r.parser.getAttributeValue(nullptr, "missing"));
}

TEST(PullParserAttributes, TypeIsAlwaysCdataAndNeverDefault)
{
    Reader r("<a b='1'/>");
    r.parser.next();
    EXPECT_EQ("CDATA", r.parser.getAttributeType(0));
    EXPECT_FALSE(r.parser.isAttributeDefault(0));
}

TEST(PullParserAttributes, CountIsMinusOneBetweenTagEvents)
{
    Reader r("<a b='1'>t</a>");
    EXPECT_EQ(-1, r.parser.getAttributeCount());
    r.parser.next();
    EXPECT_EQ(1, r.parser.getAttributeCount());
    r.parser.next();
    EXPECT_EQ(-1, r.parser.getAttributeCount());
}

TEST(PullParserAttributes, UnquotedValueInRelaxedModeRunsToTheNextBlankOrTagEnd)
{
    // The character read in place of the opening quote is used up as the
    // delimiter, so the value starts after it.
    Reader r("<a b=xyz c=-uvw>", true);
    ASSERT_EQ(P::START_TAG, r.parser.next());
    ASSERT_EQ(2, r.parser.getAttributeCount());
    EXPECT_EQ("yz", r.parser.getAttributeValue(0));
    EXPECT_EQ("uvw", r.parser.getAttributeValue(1));
}

// ---------------------------------------------------------------------------
// Text, entities and the joining of next

TEST(PullParserText, NextJoinsTextEntitiesAndCdataAndDropsComments)
{
    EXPECT_EQ(Events("<a>x&lt;y<![CDATA[<z>]]><!--c-->w<?pi?>v</a>", false),
              (Lines{"<a> 1", "text:x<y<z>wv", "</a> 1", "end 0"}));
}

TEST(PullParserText, NextTokenReportsEachConstructOnItsOwn)
{
    EXPECT_EQ(Events("<a>x&lt;y<![CDATA[<z>]]><!--c--><?pi d?></a>", true),
              (Lines{"<a> 1", "text:x", "entity:lt=<", "text:y", "cdata:<z>", "comment:c", "pi:pi d", "</a> 1",
                     "end 0"}));
}

TEST(PullParserText, EntityRightBeforeATagIsPassedOverByNext)
{
    // next reads on past every event ranked 6 or more until a lower one; an
    // entity with no text before it ranks 6, so its text is left unreported.
    EXPECT_EQ(Events("<a>&amp;</a>", false), (Lines{"<a> 1", "</a> 1", "end 0"}));
    EXPECT_EQ(Events("<a>&amp;b</a>", false), (Lines{"<a> 1", "text:&b", "</a> 1", "end 0"}));
}

TEST(PullParserText, PredefinedEntitiesAndCharacterReferencesResolve)
{
    EXPECT_EQ(Events("<a>:&apos;&gt;&lt;&quot;&amp;&#65;&#x42;&#x63;</a>", false),
              (Lines{"<a> 1", "text::'><\"&ABc", "</a> 1", "end 0"}));
}

TEST(PullParserText, UnknownEntityInTokenModeIsAnEventWithEmptyText)
{
    Reader r("<a>&company;</a>");
    r.parser.nextToken();
    ASSERT_EQ(P::ENTITY_REF, r.parser.nextToken());
    EXPECT_EQ("company", r.parser.getName());
    EXPECT_EQ("", r.parser.getText());
    int start = 0, length = 0;
    EXPECT_EQ(nullptr, r.parser.getTextCharacters(start, length));
    EXPECT_EQ(P::END_TAG, r.parser.nextToken());
}

TEST(PullParserText, KnownEntityInTokenModeCarriesItsReplacement)
{
    Reader r("<a>&gt;</a>");
    r.parser.nextToken();
    ASSERT_EQ(P::ENTITY_REF, r.parser.nextToken());
    int start = -1, length = -1;
    const char* chars = r.parser.getTextCharacters(start, length);
    ASSERT_NE(nullptr, chars);
    EXPECT_EQ(std::string(">"), std::string(chars + start, length));
}

TEST(PullParserText, ReplacementTextOfAPredefinedEntityCanBeChanged)
{
    Reader r("<a>&amp;&quot;x</a>");
    r.parser.defineEntityReplacementText("amp", "and");
    r.parser.defineEntityReplacementText("nbsp", " ");  // not one of the five: ignored
    r.parser.next();
    ASSERT_EQ(P::TEXT, r.parser.next());
    EXPECT_EQ("and\"x", r.parser.getText());
}

TEST(PullParserText, TextIsEmptyBeforeTheTextEvents)
{
    Reader r("<a b='v'>t</a>");
    r.parser.next();
    EXPECT_EQ("", r.parser.getText());
    int start = 0, length = 0;
    EXPECT_EQ(nullptr, r.parser.getTextCharacters(start, length));
    EXPECT_EQ(-1, start);
    EXPECT_EQ(-1, length);
}

TEST(PullParserText, LongTextIsCollectedWhole)
{
    std::string body;
    for (int i = 0; i < 20000; ++i)
        body += static_cast<char>('a' + i % 26);
    Reader r("<a>" + body + "</a>");
    r.parser.next();
    ASSERT_EQ(P::TEXT, r.parser.next());
    EXPECT_EQ(body, r.parser.getText());
}

// ---------------------------------------------------------------------------
// Legacy constructs

TEST(PullParserLegacy, CommentsKeepTheirTextWithoutTheDelimiters)
{
    EXPECT_EQ(Events("<!-- one - two --><!----><a/>", true),
              (Lines{"comment: one - two ", "comment:", "<a> 1", "</a> 1", "end 0"}));
}

TEST(PullParserLegacy, CdataKeepsMarkupAndBracketsAsText)
{
    EXPECT_EQ(Events("<a><![CDATA[<b>&amp;]]]><![CDATA[]]></a>", true),
              (Lines{"<a> 1", "cdata:<b>&amp;]", "cdata:", "</a> 1", "end 0"}));
}

TEST(PullParserLegacy, DoctypeSkipsNestedDeclarationsAndQuotedBrackets)
{
    const std::string doc = "<!DOCTYPE r [<!ENTITY e 'x>y'><!ELEMENT r ANY>]><r/>";
    EXPECT_EQ(Events(doc, true),
              (Lines{"doctype: r [<!ENTITY e 'x>y'><!ELEMENT r ANY>]", "<r> 1", "</r> 1", "end 0"}));
}

TEST(PullParserLegacy, DoubleQuotesDoNotProtectBracketsInADoctype)
{
    // Only apostrophes quote: the '>' inside double quotes closes the declaration.
    EXPECT_EQ(Events("<!DOCTYPE r \"a>b\"><r/>", true),
              (Lines{"doctype: r \"a", "text:b\">", "<r> 1", "</r> 1", "end 0"}));
}

TEST(PullParserLegacy, ProcessingInstructionsKeepTheirText)
{
    EXPECT_EQ(Events("<?xml-stylesheet href='s.css'?><?XMLfoo?><a/>", true),
              (Lines{"pi:xml-stylesheet href='s.css'", "pi:XMLfoo", "<a> 1", "</a> 1", "end 0"}));
}

TEST(PullParserLegacy, RelaxedModeAcceptsThreeDashesBeforeTheCommentEnd)
{
    EXPECT_EQ(Events("<!-- x ---><a/>", true, true), (Lines{"comment: x -", "<a> 1", "</a> 1", "end 0"}));
}

// ---------------------------------------------------------------------------
// The head

TEST(PullParserHead, HeadIsReadButIsNoEvent)
{
    Reader r("<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>");
    EXPECT_EQ(P::START_TAG, r.parser.nextToken());
    EXPECT_EQ("1.0", r.parser.getInputVersion());
    EXPECT_EQ("UTF-8", r.parser.getInputEncoding());
    EXPECT_FALSE(r.parser.getStandalone());
}

TEST(PullParserHead, HeadWithBlanksAroundEqualsAndStandaloneIsRead)
{
    Reader r("<?xml version = '1.1' encoding = 'ISO-8859-1' standalone = 'yes' ?>\n<a/>");
    EXPECT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ("1.1", r.parser.getInputVersion());
    EXPECT_EQ("ISO-8859-1", r.parser.getInputEncoding());
    EXPECT_TRUE(r.parser.getStandalone());
}

TEST(PullParserHead, EncodingIsReportedAndChangesNothing)
{
    // The bytes of "ä" in UTF-8 come through as they stand whatever the head says.
    Reader r("<?xml version='1.0' encoding='ISO-8859-1'?><a>\xC3\xA4</a>");
    r.parser.next();
    r.parser.next();
    EXPECT_EQ("\xC3\xA4", r.parser.getText());
}

TEST(PullParserHead, HeadAnywhereButTheStartIsRefused)
{
    EXPECT_EQ("PI must not start with xml", ParseFailure("<a/><?xml version='1.0'?>"));
    EXPECT_EQ("PI must not start with xml", ParseFailure("\n<?xml version='1.0'?><a/>"));
    EXPECT_EQ("PI must not start with xml", ParseFailure(" <?xml version='1.0'?><a/>"));
}

TEST(PullParserHead, HeadRulesWithTheirMessages)
{
    EXPECT_EQ("version expected", ParseFailure("<?xml encoding='UTF-8'?><a/>"));
    EXPECT_EQ("version expected", ParseFailure("<?xml ?><a/>"));
    EXPECT_EQ("illegal standalone value: maybe", ParseFailure("<?xml version='1.0' standalone='maybe'?><a/>"));
    EXPECT_EQ("illegal xmldecl", ParseFailure("<?xml version='1.0' standalone='no' encoding='UTF-8'?><a/>"));
    EXPECT_EQ("illegal xmldecl", ParseFailure("<?xml version='1.0' extra='1'?><a/>"));
    EXPECT_EQ("", ParseFailure("<?XmL version='1.0'?><a/>"));
}

// ---------------------------------------------------------------------------
// Bytes as signed chars

TEST(PullParserBytes, ByteFFEndsTheInputInTheMiddleOfText)
{
    EXPECT_EQ(Events("<a>ab\xFF" "cd</a>", false), (Lines{"<a> 1", "text:ab", "end 1"}));
}

TEST(PullParserBytes, HighBytesCountAsWhiteSpace)
{
    Reader r("<a>\xE4\xF6\xFC</a>");
    r.parser.nextToken();
    ASSERT_EQ(P::TEXT, r.parser.nextToken());
    EXPECT_TRUE(r.parser.isWhitespace());
    EXPECT_EQ("\xE4\xF6\xFC", r.parser.getText());

    EXPECT_EQ(Events("\xA0<a/>", true), (Lines{"ws:\xA0", "<a> 1", "</a> 1", "end 0"}));
}

TEST(PullParserBytes, HighBytesBetweenAttributesAreSkippedLikeBlanks)
{
    Reader r("<a\xA0x='1'\xA0y='2'/>");
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ(2, r.parser.getAttributeCount());
}

TEST(PullParserBytes, NameCannotHoldAnUmlaut)
{
    // "Größe": the name ends at the first high byte, the high bytes are skipped
    // as white space, and the "e" is taken for an attribute without a value.
    EXPECT_EQ("expected: '=' actual: '/'", ParseFailure("<Gr\xC3\xB6\xC3\x9F" "e/>"));
    EXPECT_EQ("name expected", ParseFailure("<\xC3\xA4/>"));
}

TEST(PullParserBytes, ByteOrderMarkMakesTheHeadIllegal)
{
    EXPECT_EQ("PI must not start with xml", ParseFailure("\xEF\xBB\xBF<?xml version='1.0'?><a/>"));
}

TEST(PullParserBytes, NulIsTextLikeAnyControlCharacter)
{
    Reader r(std::string("<a>\0</a>", 8));
    r.parser.next();
    ASSERT_EQ(P::TEXT, r.parser.next());
    EXPECT_EQ(std::string(1, '\0'), r.parser.getText());
    EXPECT_TRUE(r.parser.isWhitespace());
}

// ---------------------------------------------------------------------------
// Line ends and positions

TEST(PullParserLines, CarriageReturnsAreFoldedIntoLineFeeds)
{
    EXPECT_EQ(Events("<a>1\r\n2\r3\n\r4</a>", false), (Lines{"<a> 1", "text:1\n2\n3\n\n4", "</a> 1", "end 0"}));
}

TEST(PullParserLines, LineAndColumnFollowTheCharactersRead)
{
    Reader r("<a>\r\n  <bc/>\n</a>");
    EXPECT_EQ(1, r.parser.getLineNumber());
    EXPECT_EQ(0, r.parser.getColumnNumber());
    r.parser.nextToken();
    EXPECT_EQ(1, r.parser.getLineNumber());
    EXPECT_EQ(3, r.parser.getColumnNumber());
    r.parser.nextToken();  // the white text up to "<bc/>"
    r.parser.nextToken();
    EXPECT_EQ(2, r.parser.getLineNumber());
    EXPECT_EQ(8, r.parser.getColumnNumber());
}

TEST(PullParserLines, ConfigurationFileWithCrLfReadsLikeTheOneWithLf)
{
    const std::string lf = DataFile("VnLinkhost.xml");
    const std::string crlf = DataFile("VnLinkhost-crlf.xml");
    ASSERT_FALSE(lf.empty());
    ASSERT_NE(lf, crlf);
    EXPECT_EQ(Events(lf, true, false, true), Events(crlf, true, false, true));
}

// ---------------------------------------------------------------------------
// A real configuration file

TEST(PullParserConfiguration, ConfigurationFileGivesItsElementsAndAttributes)
{
    Reader r(DataFile("VnLinkhost.xml"), false, true);
    ASSERT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ("VnLinkhostConfig", r.parser.getName());
    EXPECT_EQ("1.0", r.parser.getInputVersion());
    EXPECT_EQ("UTF-8", r.parser.getInputEncoding());

    ASSERT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ("DialUp", r.parser.getName());
    EXPECT_EQ("true", r.parser.getAttributeValue(nullptr, "useSystemConnection"));
    r.parser.nextTag();
    EXPECT_EQ("1", r.parser.nextText());
    r.parser.nextTag();
    EXPECT_EQ("DialConnectionName", r.parser.getName());
    EXPECT_EQ("", r.parser.nextText());
    ASSERT_EQ(P::END_TAG, r.parser.nextTag());
    EXPECT_EQ("DialUp", r.parser.getName());

    ASSERT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ("Proxy", r.parser.getName());
    EXPECT_EQ("true", r.parser.getAttributeValue(nullptr, "useSystemProxy"));
    std::vector<std::string> values;
    while (r.parser.nextTag() == P::START_TAG)
        values.push_back(r.parser.getName() + "=" + r.parser.nextText());
    EXPECT_EQ(values, (Lines{"Mode=0", "Address=proxy", "Port=8080", "NoLocal=true", "Exclude=localhost", "Script="}));

    ASSERT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ("skip-head-authentication", r.parser.getName());
    EXPECT_EQ("true", r.parser.nextText());
    EXPECT_EQ(P::END_TAG, r.parser.nextTag());
    EXPECT_EQ(P::END_DOCUMENT, r.parser.nextTag());
}

TEST(PullParserConfiguration, DocumentWithEveryLegacyConstructReadsToTheEnd)
{
    const Lines events = Events(DataFile("legacy-constructs.xml"), false);
    EXPECT_EQ(events, (Lines{"<root> 1", "text:\n  ", "<item> 2", "text:<raw> & unescaped ]] text", "</item> 2",
                             "text:\n  ", "<item> 2", "text:caf\xE9 ABC <>&'\"", "</item> 2", "text:\n  \n  ",
                             "<empty> 2", "</empty> 2", "text:\n  \n", "</root> 1", "end 0"}));
}

// ---------------------------------------------------------------------------
// Features

TEST(PullParserFeatures, BothFeaturesAreOffAtFirst)
{
    XmlPullParser fresh;
    EXPECT_FALSE(fresh.getFeature(P::FEATURE_RELAXED));
    EXPECT_FALSE(fresh.getFeature(P::FEATURE_PROCESS_NAMESPACES));
}

TEST(PullParserFeatures, RelaxedIsAnyStandardNameWithRelaxedFromCharacterForty)
{
    XmlPullParser p;
    p.setFeature("http://xmlpull.org/v1/doc/xxxxxxxxxxxxxxrelaxed", true);
    EXPECT_TRUE(p.getFeature(P::FEATURE_RELAXED));
    EXPECT_TRUE(p.getFeature("http://xmlpull.org/v1/doc/features.html#relaxed"));
    EXPECT_FALSE(p.getFeature("http://xmlpull.org/v1/doc/features.html#relaxedX"));
    EXPECT_FALSE(p.getFeature("http://xmlpull.org/v2/doc/features.html#relaxed"));
    EXPECT_FALSE(p.getFeature("relaxed"));
    EXPECT_FALSE(p.getFeature("http://xmlpull.org/v1/doc/"));
}

TEST(PullParserFeatures, UnknownFeatureIsFalseAndCannotBeSet)
{
    XmlPullParser p;
    EXPECT_FALSE(p.getFeature("http://xmlpull.org/v1/doc/features.html#validation"));
    EXPECT_EQ("unsupported feature: http://xmlpull.org/v1/doc/features.html#validation",
              FailureOf([&] { p.setFeature("http://xmlpull.org/v1/doc/features.html#validation", true); }));
}

// ---------------------------------------------------------------------------
// Namespaces

TEST(PullParserNamespaces, WithoutProcessingNamesStayWholeAndDeclarationsAreAttributes)
{
    Reader r("<c:a xmlns:c='urn:c' c:k='v'/>");
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ("c:a", r.parser.getName());
    EXPECT_EQ("", r.parser.getPrefix());
    EXPECT_EQ("", r.parser.getNamespace());
    ASSERT_EQ(2, r.parser.getAttributeCount());
    EXPECT_EQ("xmlns:c", r.parser.getAttributeName(0));
    EXPECT_EQ("c:k", r.parser.getAttributeName(1));
}

TEST(PullParserNamespaces, PrefixesResolveAndDeclarationsLeaveTheAttributes)
{
    Reader r(DataFile("namespaces.xml"), false, true);
    ASSERT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ("settings", r.parser.getName());
    EXPECT_EQ("cfg", r.parser.getPrefix());
    EXPECT_EQ("urn:velorin:config", r.parser.getNamespace());
    ASSERT_EQ(1, r.parser.getAttributeCount());
    EXPECT_EQ("lang", r.parser.getAttributeName(0));
    EXPECT_EQ("xml", r.parser.getAttributePrefix(0));
    EXPECT_EQ("http://www.w3.org/XML/1998/namespace", r.parser.getAttributeNamespace(0));
    EXPECT_EQ(2, r.parser.getNamespaceCount(1));
    EXPECT_EQ("cfg", r.parser.getNamespacePrefix(0));
    EXPECT_EQ("urn:velorin:config", r.parser.getNamespaceUri(0));
    EXPECT_EQ("", r.parser.getNamespacePrefix(1));
    EXPECT_EQ("urn:velorin:default", r.parser.getNamespaceUri(1));

    ASSERT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ("proxy", r.parser.getName());
    EXPECT_EQ("manual", r.parser.getAttributeValue("urn:velorin:config", "mode"));
    EXPECT_EQ("8080", r.parser.getAttributeValue("", "port"));

    ASSERT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ("address", r.parser.getName());
    EXPECT_EQ("urn:velorin:default", r.parser.getNamespace());
    r.parser.nextText();
    r.parser.nextTag();  // </cfg:proxy>
    EXPECT_EQ("proxy", r.parser.getName());
    EXPECT_EQ("cfg", r.parser.getPrefix());

    ASSERT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ("plain", r.parser.getName());
    EXPECT_EQ("", r.parser.getNamespace());
    EXPECT_EQ(3, r.parser.getNamespaceCount(2));
}

TEST(PullParserNamespaces, FixedPrefixesAndScopeOfDeclarations)
{
    Reader r("<a xmlns:p='urn:1'><b xmlns:p='urn:2'/><c/></a>", false, true);
    r.parser.next();
    EXPECT_EQ("http://www.w3.org/XML/1998/namespace", r.parser.getNamespace("xml"));
    EXPECT_EQ("http://www.w3.org/2000/xmlns/", r.parser.getNamespace("xmlns"));
    EXPECT_EQ("urn:1", r.parser.getNamespace("p"));
    EXPECT_EQ("", r.parser.getNamespace("q"));
    r.parser.next();
    EXPECT_EQ("urn:2", r.parser.getNamespace("p"));
    r.parser.next();  // </b>
    r.parser.next();  // <c/>
    EXPECT_EQ("urn:1", r.parser.getNamespace("p"));
}

TEST(PullParserNamespaces, RelaxedModeLetsUndefinedPrefixesPass)
{
    Reader r("<p:a q:k='v'/>", true, true);
    ASSERT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ("a", r.parser.getName());
    EXPECT_EQ("p", r.parser.getPrefix());
    EXPECT_EQ("", r.parser.getNamespace());
    EXPECT_EQ("k", r.parser.getAttributeName(0));
}
