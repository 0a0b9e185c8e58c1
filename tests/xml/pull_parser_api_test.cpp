// The XML pull parser's calls beside its events: lookups, features, the
// namespace stack, the position description, nextTag, nextText, require and
// skipSubTree, copies, a very deep document, and the names the program exports.
#include "tests/xml/xml_support.h"

#include <windows.h>

#include <algorithm>

using namespace vn_xml_test;

TEST(PullParserCalls, LookupsByNameAndReplacementTexts)
{
    Reader r("<a:b xmlns:a='urn:a' a:k='1' k='2' xmlns:c='urn:a'/>", "N");
    r.parser.next();
    EXPECT_EQ("1,2,1,", r.parser.getAttributeValue(nullptr, "k") + "," + r.parser.getAttributeValue("", "k") + "," +
                            r.parser.getAttributeValue("urn:a", "k") + "," + r.parser.getAttributeValue(nullptr, "no"));
    Reader defined("<a>&amp;&quot;x</a>");
    defined.parser.defineEntityReplacementText("amp", "and");
    defined.parser.defineEntityReplacementText("nbsp", " ");  // not one of the five: ignored
    defined.parser.next();
    defined.parser.next();
    EXPECT_EQ("and\"x", defined.parser.getText());
    XmlPullParser empty;  // no input: no entity table, and the end at once
    EXPECT_EQ("entity replacement text must be defined after setInput!",
              FailureOf([&] { empty.defineEntityReplacementText("amp", "+"); }));
    EXPECT_EQ(P::END_DOCUMENT, empty.next());
}

TEST(PullParserCalls, FeaturesAreNamespacesAndAnyStandardNameWithRelaxedFromCharacterForty)
{
    XmlPullParser p;
    const std::string validation = "http://xmlpull.org/v1/doc/features.html#validation";
    const std::string names[] = {P::FEATURE_RELAXED, P::FEATURE_PROCESS_NAMESPACES, validation,
                                 "http://xmlpull.org/v1/doc/features.html#relaxedX",
                                 "http://xmlpull.org/v2/doc/features.html#relaxed", "http://xmlpull.org/v1/doc/"};
    auto values = [&] {
        std::string text;
        for (const std::string& name : names)
            text += p.getFeature(name) ? '1' : '0';
        return text;
    };
    EXPECT_EQ("000000", values());
    p.setFeature(P::FEATURE_PROCESS_NAMESPACES, true);
    p.setFeature("http://xmlpull.org/v1/doc/xxxxxxxxxxxxxxrelaxed", true);
    EXPECT_EQ("110000", values());
    EXPECT_EQ("unsupported feature: " + validation, FailureOf([&] { p.setFeature(validation, true); }));
}

TEST(PullParserCalls, NamespaceDeclarationsAreStackedPerDepth)
{
    Reader r("<a xmlns:p='urn:1' xmlns='urn:d'><b xmlns:p='urn:2'/><c/></a>", "N");
    auto scope = [&] {
        std::string text = std::to_string(r.parser.getNamespaceCount(r.parser.getDepth()));
        for (const char* prefix : {"xml", "xmlns", "p", "", "q"})
            text += " " + r.parser.getNamespace(prefix);
        return text;
    };
    r.parser.next();
    EXPECT_EQ("2 http://www.w3.org/XML/1998/namespace http://www.w3.org/2000/xmlns/ urn:1 urn:d ", scope());
    EXPECT_EQ("p=urn:1 =urn:d", r.parser.getNamespacePrefix(0) + "=" + r.parser.getNamespaceUri(0) + " " +
                                    r.parser.getNamespacePrefix(1) + "=" + r.parser.getNamespaceUri(1));
    r.parser.next();
    EXPECT_EQ("3 http://www.w3.org/XML/1998/namespace http://www.w3.org/2000/xmlns/ urn:2 urn:d ", scope());
    r.parser.next();  // </b>
    r.parser.next();  // <c/>
    EXPECT_EQ("2 http://www.w3.org/XML/1998/namespace http://www.w3.org/2000/xmlns/ urn:1 urn:d ", scope());
}

TEST(PullParserCalls, PositionDescriptionNamesTheEventAndThePosition)
{
    Reader r("<a k='v'/>\n<b>  </b><c>0123456789abcdefghij</c>");
    std::string seen;
    for (int i = 0; i < 7; ++i) {
        r.parser.next();
        if (i % 3 == 0)
            seen += r.parser.getPositionDescription() + "|";
    }
    EXPECT_EQ("START_TAG (empty) <a k='v'> @1:10|TEXT (whitespace) @2:6|TEXT 0123456789abcdef... @2:33|", seen);
}

TEST(PullParserConveniences, NextTagNextTextRequireAndSkipSubTree)
{
    Reader r("<a>\n\t<b>x&amp;y</b><c></c>  x<d><e/></d></a>");
    EXPECT_EQ("precondition: START_TAG", FailureOf([&] { r.parser.nextText(); }));
    EXPECT_EQ(0u, FailureOf([&] { r.parser.skipSubTree(); }).find("expected: START_TAG"));
    EXPECT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ(P::START_TAG, r.parser.nextTag());  // over white text only
    EXPECT_EQ("x&y", r.parser.nextText());
    EXPECT_EQ("</b>", std::string(r.parser.getEventType() == P::END_TAG ? "</" : "<") + r.parser.getName() + ">");
    r.parser.next();
    EXPECT_EQ("", r.parser.nextText());
    EXPECT_EQ("unexpected type", FailureOf([&] { r.parser.nextTag(); }));
    r.parser.next();
    EXPECT_EQ("END_TAG expected", FailureOf([&] { r.parser.nextText(); }));

    Reader tree("<r><a><a><b>t</b></a><c/></a><after/></r>");
    tree.parser.next();
    const char* const requires[][3] = {{"", "", "r"}, {"", nullptr, nullptr}, {"expected: END_TAG {}", nullptr, nullptr},
                                       {"expected: START_TAG {}b", nullptr, "b"}, {"expected: START_TAG {urn:x}r", "urn:x", "r"}};
    for (const auto& row : requires) {
        const int type = std::string(row[0]).find("END_TAG") != std::string::npos ? P::END_TAG : P::START_TAG;
        EXPECT_EQ(row[0], FailureOf([&] { tree.parser.require(type, row[1], row[2]); }));
    }
    tree.parser.next();
    tree.parser.skipSubTree();
    EXPECT_EQ("</a>2", "</" + tree.parser.getName() + ">" + std::to_string(tree.parser.getDepth()));
    tree.parser.next();
    EXPECT_EQ("after", tree.parser.getName());
    Reader cut("<r><a><b>");
    cut.parser.next();
    EXPECT_EQ("Unexpected EOF", FailureOf([&] { cut.parser.skipSubTree(); }));
}

TEST(PullParserLifecycle, CopyGoesOnFromTheSamePlaceAndAssignmentChangesNothing)
{
    Reader r("<a k='v'><b/></a>"), other("<x><y/></x>");
    r.parser.next();
    XmlPullParser copy(r.parser);
    EXPECT_EQ("v 1", copy.getAttributeValue(0) + " " + std::to_string(copy.getDepth()));
    EXPECT_EQ(P::START_TAG, copy.next());
    EXPECT_EQ("b", copy.getName());
    other.parser.next();
    other.parser.next();
    r.parser = other.parser;
    EXPECT_EQ("a", r.parser.getName());
    EXPECT_EQ(P::START_TAG, r.parser.next());
    EXPECT_EQ("b", r.parser.getName());
}

TEST(PullParserLarge, DeepNestingOpensAndClosesEveryLevel)
{
    std::string open, close;
    for (int i = 0; i < 200000; ++i)
        open += "<e a='1'>", close += "</e>";
    Reader deep(open + std::string(5000, 'x') + close);  // the stacks and the text grow far past their first size
    size_t deepest = 0, events = 0, text = 0;
    for (; deep.parser.next() != P::END_DOCUMENT && events <= 400001; ++events) {
        deepest = std::max(deepest, static_cast<size_t>(deep.parser.getDepth()));
        text += deep.parser.getEventType() == P::TEXT ? deep.parser.getText().size() : 0;
    }
    EXPECT_EQ("200000 400001 5000", std::to_string(deepest) + " " + std::to_string(events) + " " + std::to_string(text));
}

TEST(PullParserExport, OperationsAreExportedByName)
{
    // Other programs find the parser in the program file's export table; the test program links it the same way.
    for (const char* name : {"_ZN13XmlPullParser4nextEv", "_ZN13XmlPullParserC1ERSi", "_ZN13XmlPullParserC1ERKS_",
                             "_ZNK13XmlPullParser12getEventTypeEv", "_ZNK13XmlPullParser17getAttributeCountEv",
                             "_ZN13XmlPullParser7peekbufEi", "_ZN13XmlPullParser4readEc", "_ZN13XmlPullParser4readEv",
                             "_ZN13XmlPullParser9adjustNspEv", "_ZNK22XmlPullParserException10getMessageB5cxx11Ev",
                             "_ZN22XmlPullParserExceptionaSERKS_"})
        EXPECT_NE(nullptr, ::GetProcAddress(::GetModuleHandleA(nullptr), name)) << name;
    EXPECT_EQ(nullptr, ::GetProcAddress(::GetModuleHandleA(nullptr), "_ZN22XmlPullParserException11notAMemberEv"));
}
