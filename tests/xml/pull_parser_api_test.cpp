// The XML pull parser's calls around the events: what each getter gives and
// where it is allowed, the head, features, namespaces, positions, the
// conveniences nextTag, nextText, require and skipSubTree, the parser's
// copies, very large documents, and the names its program file exports.
#include "tests/xml/xml_support.h"

#include <windows.h>

#include <algorithm>

using namespace vn_xml_test;

TEST(PullParserCalls, AttributesByNameAndReplacementTexts)
{
    Reader r("<a:b xmlns:a='urn:a' a:k='1' k='2' xmlns:c='urn:a'/>", "N");
    r.parser.next();
    EXPECT_EQ("1", r.parser.getAttributeValue(nullptr, "k"));  // the first match
    EXPECT_EQ("2", r.parser.getAttributeValue("", "k"));
    EXPECT_EQ("1", r.parser.getAttributeValue("urn:a", "k"));
    EXPECT_EQ("", r.parser.getAttributeValue(nullptr, "missing"));

    Reader defined("<a>&amp;&quot;x</a>");
    defined.parser.defineEntityReplacementText("amp", "and");
    defined.parser.defineEntityReplacementText("nbsp", " ");  // not one of the five: ignored
    defined.parser.next();
    defined.parser.next();
    EXPECT_EQ("and\"x", defined.parser.getText());
}

TEST(PullParserCalls, FeaturesAreNamespacesAndRelaxedFromCharacterForty)
{
    XmlPullParser p;
    EXPECT_FALSE(p.getFeature(P::FEATURE_RELAXED));
    EXPECT_FALSE(p.getFeature(P::FEATURE_PROCESS_NAMESPACES));
    p.setFeature(P::FEATURE_PROCESS_NAMESPACES, true);
    EXPECT_TRUE(p.getFeature(P::FEATURE_PROCESS_NAMESPACES));
    p.setFeature("http://xmlpull.org/v1/doc/xxxxxxxxxxxxxxrelaxed", true);
    EXPECT_TRUE(p.getFeature(P::FEATURE_RELAXED));
    EXPECT_FALSE(p.getFeature("http://xmlpull.org/v1/doc/features.html#relaxedX"));
    EXPECT_FALSE(p.getFeature("http://xmlpull.org/v2/doc/features.html#relaxed"));
    EXPECT_FALSE(p.getFeature("http://xmlpull.org/v1/doc/"));
    const std::string validation = "http://xmlpull.org/v1/doc/features.html#validation";
    EXPECT_FALSE(p.getFeature(validation));
    EXPECT_EQ("unsupported feature: " + validation, FailureOf([&] { p.setFeature(validation, true); }));
}

TEST(PullParserCalls, NamespaceDeclarationsAreStackedPerDepth)
{
    Reader r("<a xmlns:p='urn:1' xmlns='urn:d'><b xmlns:p='urn:2'/><c/></a>", "N");
    r.parser.next();
    EXPECT_EQ("http://www.w3.org/XML/1998/namespace", r.parser.getNamespace("xml"));
    EXPECT_EQ("http://www.w3.org/2000/xmlns/", r.parser.getNamespace("xmlns"));
    EXPECT_EQ("urn:1", r.parser.getNamespace("p"));
    EXPECT_EQ("urn:d", r.parser.getNamespace(""));
    EXPECT_EQ("", r.parser.getNamespace("q"));
    EXPECT_EQ(2, r.parser.getNamespaceCount(1));
    EXPECT_EQ("IndexOutOfBoundsException", FailureOf([&] { r.parser.getNamespaceCount(2); }));
    EXPECT_EQ("p", r.parser.getNamespacePrefix(0));
    EXPECT_EQ("urn:1", r.parser.getNamespaceUri(0));
    EXPECT_EQ("", r.parser.getNamespacePrefix(1));
    r.parser.next();
    EXPECT_EQ("urn:2", r.parser.getNamespace("p"));
    EXPECT_EQ(3, r.parser.getNamespaceCount(2));
    r.parser.next();  // </b>
    r.parser.next();  // <c/>
    EXPECT_EQ("urn:1", r.parser.getNamespace("p"));
    EXPECT_EQ(2, r.parser.getNamespaceCount(2));
}

TEST(PullParserCalls, PositionDescriptionNamesTheEventAndThePosition)
{
    Reader r("<a k='v'/>\n<b>  </b><c>0123456789abcdefghij</c>");
    r.parser.next();
    EXPECT_EQ("START_TAG (empty) <a k='v'> @1:10", r.parser.getPositionDescription());
    for (int i = 0; i < 3; ++i)
        r.parser.next();
    EXPECT_EQ("TEXT (whitespace) @2:6", r.parser.getPositionDescription());
    for (int i = 0; i < 3; ++i)
        r.parser.next();
    EXPECT_NE(std::string::npos, r.parser.getPositionDescription().find(" 0123456789abcdef... @2:"));
}

TEST(PullParserConveniences, NextTagAndNextText)
{
    Reader r("<a>\n\t<b>x&amp;y</b><c></c>  x<d><e/></d></a>");
    EXPECT_EQ("precondition: START_TAG", FailureOf([&] { r.parser.nextText(); }));
    EXPECT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ(P::START_TAG, r.parser.nextTag());  // over white text only
    EXPECT_EQ("x&y", r.parser.nextText());
    EXPECT_EQ(P::END_TAG, r.parser.getEventType());
    EXPECT_EQ("b", r.parser.getName());
    r.parser.next();
    EXPECT_EQ("", r.parser.nextText());
    EXPECT_EQ("c", r.parser.getName());
    EXPECT_EQ("unexpected type", FailureOf([&] { r.parser.nextTag(); }));
    r.parser.next();
    EXPECT_EQ("END_TAG expected", FailureOf([&] { r.parser.nextText(); }));
    Reader mixed("<a>x<b/></a>");
    mixed.parser.next();
    EXPECT_EQ("END_TAG expected", FailureOf([&] { mixed.parser.nextText(); }));
}

TEST(PullParserConveniences, RequireAndSkipSubTree)
{
    Reader r("<r><a><a><b>t</b></a><c/></a><after/></r>");
    EXPECT_EQ(0u, FailureOf([&] { r.parser.skipSubTree(); }).find("expected: START_TAG"));
    r.parser.next();
    EXPECT_EQ("", FailureOf([&] { r.parser.require(P::START_TAG, nullptr, nullptr); }));
    EXPECT_EQ("", FailureOf([&] { r.parser.require(P::START_TAG, "", "r"); }));
    EXPECT_EQ("expected: END_TAG {}", FailureOf([&] { r.parser.require(P::END_TAG, nullptr, nullptr); }));
    EXPECT_EQ("expected: START_TAG {}b", FailureOf([&] { r.parser.require(P::START_TAG, nullptr, "b"); }));
    EXPECT_EQ("expected: START_TAG {urn:x}r", FailureOf([&] { r.parser.require(P::START_TAG, "urn:x", "r"); }));
    r.parser.next();
    r.parser.skipSubTree();
    EXPECT_EQ(P::END_TAG, r.parser.getEventType());
    EXPECT_EQ("a", r.parser.getName());
    EXPECT_EQ(2, r.parser.getDepth());
    r.parser.next();
    EXPECT_EQ("after", r.parser.getName());
    Reader cut("<r><a><b>");
    cut.parser.next();
    EXPECT_EQ("Unexpected EOF", FailureOf([&] { cut.parser.skipSubTree(); }));
}

TEST(PullParserLifecycle, WithoutInputCopiedAndAssigned)
{
    XmlPullParser empty;
    EXPECT_EQ(P::START_DOCUMENT, empty.getEventType());
    EXPECT_EQ(P::END_DOCUMENT, empty.next());
    EXPECT_EQ(P::END_DOCUMENT, empty.nextToken());
    EXPECT_EQ("entity replacement text must be defined after setInput!",
              FailureOf([&] { empty.defineEntityReplacementText("amp", "+"); }));

    Reader r("<a k='v'><b/></a>");
    r.parser.next();
    XmlPullParser copy(r.parser);  // goes on from the same place
    EXPECT_EQ("v", copy.getAttributeValue(0));
    EXPECT_EQ(1, copy.getDepth());
    EXPECT_EQ(P::START_TAG, copy.next());
    EXPECT_EQ("b", copy.getName());

    Reader other("<x><y/></x>");
    other.parser.next();
    other.parser.next();
    r.parser = other.parser;  // assignment changes nothing
    EXPECT_EQ("a", r.parser.getName());
    EXPECT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ("b", r.parser.getName());
}

TEST(PullParserLarge, HugeTextManyAttributesAndDeclarationsDeepNesting)
{
    std::string body(8 * 1024 * 1024, 'a');
    for (size_t i = 0; i < body.size(); i += 7)
        body[i] = static_cast<char>('b' + i % 13);
    Reader text("<a>" + body + "</a>");
    text.parser.next();
    ASSERT_EQ(P::TEXT, text.parser.next());
    EXPECT_TRUE(text.parser.getText() == body);

    std::string tag = "<p0:a";
    for (int i = 0; i < 20000; ++i)
        tag += " xmlns:p" + std::to_string(i) + "='urn:" + std::to_string(i) + "' p" + std::to_string(i) + ":k='v'";
    Reader declared(tag + "/>" + tag + " p17:k='again'/>", "N");
    ASSERT_EQ(P::START_TAG, declared.parser.next());
    EXPECT_EQ(20000, declared.parser.getAttributeCount());
    EXPECT_EQ(20000, declared.parser.getNamespaceCount(1));
    EXPECT_EQ("urn:19999", declared.parser.getAttributeNamespace(19999));
    EXPECT_EQ("urn:0", declared.parser.getNamespace());
    declared.parser.next();
    EXPECT_EQ("Duplicate Attribute: p17:k", FailureOf([&] { declared.parser.next(); }));

    const int depth = 200000;
    std::string open, close;
    for (int i = 0; i < depth; ++i) {
        open += "<e a='1'>";
        close += "</e>";
    }
    Reader deep(open + "x" + close);
    int deepest = 0, events = 0;
    while (deep.parser.next() != P::END_DOCUMENT && events <= 2 * depth + 1) {
        deepest = std::max(deepest, deep.parser.getDepth());
        ++events;
    }
    EXPECT_EQ(depth, deepest);
    EXPECT_EQ(2 * depth + 1, events);
}

TEST(PullParserExport, OperationsAreExportedByName)
{
    // Other programs find the parser in the program file's export table by
    // these decorated names; the test program links it the same way.
    for (const char* name : {"_ZN13XmlPullParser4nextEv", "_ZN13XmlPullParserC1ERSi", "_ZN13XmlPullParserC1ERKS_",
                             "_ZNK13XmlPullParser12getEventTypeEv", "_ZNK13XmlPullParser17getAttributeCountEv",
                             "_ZN13XmlPullParser7peekbufEi", "_ZN13XmlPullParser4readEc", "_ZN13XmlPullParser4readEv",
                             "_ZN13XmlPullParser9adjustNspEv", "_ZNK22XmlPullParserException10getMessageB5cxx11Ev",
                             "_ZN22XmlPullParserExceptionaSERKS_"})
        EXPECT_NE(nullptr, ::GetProcAddress(::GetModuleHandleA(nullptr), name)) << name;
    EXPECT_EQ(nullptr, ::GetProcAddress(::GetModuleHandleA(nullptr), "_ZN22XmlPullParserException11notAMemberEv"));
}
