// The XML pull parser and the document tree. The parser: events and failures of documents, one per row, the calls
// beside them, and the trace of a failure on standard output and in "XmlPullException.log" in the current folder, which
// is why the program runs in a scratch folder of its own, removed at the end. The tree: its attributes, ownership and
// search, and the documents it loads and writes byte for byte, with the shortcuts of the design that the configuration
// file relies on (the files of tests/xml/data; under Wine the source tree is drive Z:).
#include <gtest/gtest.h>

#include <windows.h>

#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "common/test_util.h"
#include "xml/vn_document.h"
#include "xml/xml_pull_parser.h"

namespace {

using P = XmlPullParser;

// 'R' in `flags` turns on the relaxed feature, 'N' namespace processing.
struct Reader {
    explicit Reader(const std::string& text, const std::string& flags = "") : stream(text), parser(stream)
    {
        parser.setFeature(P::FEATURE_RELAXED, flags.find('R') != std::string::npos);
        parser.setFeature(P::FEATURE_PROCESS_NAMESPACES, flags.find('N') != std::string::npos);
    }
    std::istringstream stream;
    XmlPullParser parser;
};

// The message of the parse failure that `action` ends in, or "".
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

std::string DataFile(const std::string& name)
{
    const std::string here = __FILE__;
    return vn_test::ReadWholeFile((here[0] == '/' ? "Z:" : "") + here.substr(0, here.find_last_of("/\\")) + "/data/" + name);
}

struct ScratchFolder : testing::Environment {
    void SetUp() override
    {
        ::GetCurrentDirectoryA(MAX_PATH, previous);
        folder = ::GetTempPathA(MAX_PATH, temp) ? temp + std::string("vn-xml-") + std::to_string(::GetCurrentProcessId()) : ".";
        ::CreateDirectoryA(folder.c_str(), nullptr);
        ASSERT_TRUE(::SetCurrentDirectoryA(folder.c_str())) << folder;
    }
    void TearDown() override
    {
        ::SetCurrentDirectoryA(previous);
        ::DeleteFileA((folder + "\\XmlPullException.log").c_str());
        ::RemoveDirectoryA(folder.c_str());
    }
    char previous[MAX_PATH] = {}, temp[MAX_PATH] = {};
    std::string folder;
};

testing::Environment* const g_scratch = testing::AddGlobalTestEnvironment(new ScratchFolder);

std::string Log() { return vn_test::ReadWholeFile("XmlPullException.log"); }

// "prefix:{namespace}name"; the braces only with namespace processing.
std::string Qualified(const std::string& prefix, const std::string& ns, const std::string& name)
{
    return prefix.empty() && ns.empty() ? name : (prefix.empty() ? "" : prefix + ":") + "{" + ns + "}" + name;
}

// One word per event: tags with depth ("/" for an empty element tag) and attributes, text events with text ("~" for
// white text), the end with the head's values; what must hold at every event is checked, a violation named.
std::string Describe(const XmlPullParser& p)
{
    const int type = p.getEventType();
    const bool textual = type == P::TEXT || type == P::CDSECT || type == P::IGNORABLE_WHITESPACE;
    const char* const names[] = {"", "end", "<", "</", "text", "cdata", "entity", "ws", "pi", "comment", "doctype"};
    std::string word = names[type];
    if (type == P::START_TAG || type == P::END_TAG) {
        word += Qualified(p.getPrefix(), p.getNamespace(), p.getName());
        for (int i = 0; i < p.getAttributeCount(); ++i)
            word += " " + Qualified(p.getAttributePrefix(i), p.getAttributeNamespace(i), p.getAttributeName(i)) + "=" +
                    p.getAttributeValue(i);
        word += (type == P::START_TAG && p.isEmptyElementTag() ? "/>" : ">") + std::to_string(p.getDepth());
    } else if (type == P::END_DOCUMENT) {
        word += std::to_string(p.getDepth());
        if (!p.getInputVersion().empty())
            word += " head:" + p.getInputVersion() + "," + p.getInputEncoding() + (p.getStandalone() ? ",yes" : "");
    } else {
        word += (textual && type != P::IGNORABLE_WHITESPACE && p.isWhitespace() ? "~:" : ":") +
                (type == P::ENTITY_REF ? p.getName() + "=" : "") + p.getText();
    }
    int start = 0, length = 0;
    const char* chars = p.getTextCharacters(start, length);
    const int past = type == P::START_TAG ? p.getAttributeCount() : -1;  // an index out of range either way
    const std::string index = FailureOf([&] { p.getAttributeName(past); }) + FailureOf([&] { p.getAttributePrefix(past); }) +
                              FailureOf([&] { p.getAttributeNamespace(past); }) + FailureOf([&] { p.getAttributeValue(past); });
    const std::pair<bool, const char*> rules[] = {
        {FailureOf([&] { p.isWhitespace(); }) == (textual ? "" : "wrong Event Type"), "isWhitespace"},
        {FailureOf([&] { p.isEmptyElementTag(); }) == (type == P::START_TAG ? "" : "wrong Event Type"), "isEmpty"},
        {type == P::START_TAG || p.getAttributeCount() == -1, "attribute count"},
        {index == "IndexOutOfBoundsException()IndexOutOfBoundsException()IndexOutOfBoundsException()IndexOutOfBoundsException()",
         "attribute index"},
        {FailureOf([&] { p.getNamespaceCount(p.getDepth() + 1); }) == "IndexOutOfBoundsException", "namespace depth"},
        {chars ? type >= P::TEXT && std::string(chars + start, length) == p.getText()
               : start == -1 && length == -1 && p.getText().empty(),
         "text characters"},
    };
    for (const auto& rule : rules)
        word += rule.first ? "" : std::string(" <broken: ") + rule.second + ">";
    return word;
}

// The events joined by '|', by nextToken with 'T' in `flags`, else by next; 'L' adds "@line:column" to each. A
// failure ends the trace with '!' and its message and, with 'L', its event and position.
std::string Trace(const std::string& text, const std::string& flags)
{
    Reader r(text, flags);
    std::string trace;
    const bool positions = flags.find('L') != std::string::npos;
    auto at = [&](int line, int column) { return positions ? "@" + std::to_string(line) + ":" + std::to_string(column) : ""; };
    try {
        for (size_t guard = 0; guard < text.size() + 8; ++guard) {  // one event per byte at most
            flags.find('T') != std::string::npos ? r.parser.nextToken() : r.parser.next();
            trace += (trace.empty() ? "" : "|") + Describe(r.parser) + at(r.parser.getLineNumber(), r.parser.getColumnNumber());
            if (r.parser.getEventType() == P::END_DOCUMENT)
                return trace;
        }
        return trace + "|<no end>";
    } catch (const XmlPullParserException& e) {
        return trace + (trace.empty() ? "!" : "|!") + e.getMessage() +
               (positions ? "@" + e.getState() : "") + at(e.getLineNumber(), e.getColumnNumber());
    }
}

// A node that records its destruction.
struct Tracked : VnNode {
    Tracked(const std::string& name, std::string& log, const std::string& value = "") : VnNode(name), log(log) { SetValue(value); }
    ~Tracked() override { log += GetName() + ";"; }
    std::string& log;
};

std::string Names(const std::vector<VnNode*>& nodes)
{
    std::string names;
    for (const VnNode* node : nodes)
        names += node ? node->GetName() + "=" + node->GetValue() + ";" : "<null>;";
    return names;
}

std::string Written(const VnDocument& doc, const std::string& indent) { std::ostringstream out; doc.Write(out, indent); return out.str(); }

std::string Load(VnDocument& doc, const std::string& text)
{
    std::istringstream in(text);
    return FailureOf([&] { doc.Load(in); });
}

const std::string kHead = "<?xml version='1.0' encoding='UTF-8'?>";

}  // namespace

TEST(PullParserEvents, EachConstructGivesItsEvents)
{
    const std::tuple<const char*, std::string, std::string> rows[] = {  // flags, document; trace
        {"", "", "end0"}, {"T", "", "end0"}, {"", "<a/>", "<a/>1|</a>1|end0"}, {"", "<a><b>", "<a>1|<b>2|end2"},
        {"", "<a><b><c/></b><d>x</d></a>", "<a>1|<b>2|<c/>3|</c>3|</b>2|<d>2|text:x|</d>2|</a>1|end0"},
        {"", "<a/><b></b>", "<a/>1|</a>1|<b>1|</b>1|end0"}, {"T", "hello<a/>", "text:hello|<a/>1|</a>1|end0"},
        {"T", " \n\t<a> <![CDATA[x]]></a>\n", "ws: \n\t|<a>1|text~: |cdata:x|</a>1|ws:\n|end0"},
        {"TL", "<a>\r\n  <bc/>\n</a>", "<a>1@1:3|text~:\n  @2:3|<bc/>2@2:8|</bc>2@2:8|text~:\n@3:1|</a>1@3:5|end0@3:5"},
        {"", "<Proxy useSystemProxy = \"true\"  mode\t=\n'2'>", "<Proxy useSystemProxy=true mode=2>1|end1"},
        {"", "<a v=\"x &lt;&amp;&#65;\ny\" w='\"'/>", "<a v=x <&A y w=\"/>1|</a>1|end0"},
        {"R", "<a b=xyz c=-uvw>", "<a b=yz c=uvw>1|end1"},  // the character in place of the quote is lost
        {"T", "<a b='1&x;2'/>", "<a b=12/>1|</a>1|end0"}, {"RN", "<p:a q:k='v'/>", "<p:{}a q:{}k=v/>1|</p:{}a>1|end0"},
        {"", "<c:a xmlns:c='urn:c' c:k='v'/>", "<c:a xmlns:c=urn:c c:k=v/>1|</c:a>1|end0"},
        {"N", "<a xmlns:p='urn:1' p:k='v' xml:k='w'><p:b xmlns='urn:2'><c xmlns=''/></p:b></a>",
         "<a p:{urn:1}k=v xml:{http://www.w3.org/XML/1998/namespace}k=w>1|<p:{urn:1}b>2|<c/>3|</c>3|</p:{urn:1}b>2|</a>1|end0"},
        {"", "<a>x&lt;y<![CDATA[<z>]]><!--c-->w<?pi?>v</a>", "<a>1|text:x<y<z>wv|</a>1|end0"},
        {"T", "<a>x&lt;y<![CDATA[<z>]]><!--c--><?pi d?></a>",
         "<a>1|text:x|entity:lt=<|text:y|cdata:<z>|comment:c|pi:pi d|</a>1|end0"},
        {"", "<a>&amp;</a>", "<a>1|</a>1|end0"}, {"", "<a>&amp;b</a>", "<a>1|text:&b|</a>1|end0"},  // an entity ranks 6
        {"", "<a><![CDATA[x]]><!--c--></a>", "<a>1|text:x|</a>1|end0"},
        {"", "<a>:&apos;&gt;&lt;&quot;&amp;&#65;&#x42;&#x63;</a>", "<a>1|text::'><\"&ABc|</a>1|end0"},
        {"T", "<a>&gt;&company;</a>", "<a>1|entity:gt=>|entity:company=|</a>1|end0"},
        {"R", "<a>AT&T rocks</a>", "<a>1|text:ATT rocks|</a>1|end0"},
        {"R", "<a>x &<b/>&</a>", "<a>1|text:x <b/></a>|end1"},  // the character that ends the attempt is text
        {"T", "<a>Tom & Jerry</a><b>x;y</b>", "<a>1|text:Tom |entity: Jerry</a><b>x=|text:y|!expected: a"},
        {"T", "<!-- one - two --><!----><a/>", "comment: one - two |comment:|<a/>1|</a>1|end0"},
        {"TR", "<!-- x ---><a/>", "comment: x -|<a/>1|</a>1|end0"},
        {"T", "<a><![CDATA[<b>&amp;]]]><![CDATA[]]></a>", "<a>1|cdata:<b>&amp;]|cdata:|</a>1|end0"},
        {"T", "<!DOCTYPE r [<!ENTITY e 'x>y'><!ELEMENT r ANY>]><r/>",
         "doctype: r [<!ENTITY e 'x>y'><!ELEMENT r ANY>]|<r/>1|</r>1|end0"},
        {"T", "<!DOCTYPE r \"a>b\"><r/>", "doctype: r \"a|text:b\">|<r/>1|</r>1|end0"},  // only apostrophes quote
        {"T", "<?xml-stylesheet href='s.css'?><?XMLfoo?><a/>", "pi:xml-stylesheet href='s.css'|pi:XMLfoo|<a/>1|</a>1|end0"},
        {"", "<?xml version = '1.1' encoding = 'ISO-8859-1' standalone = 'yes' ?>\n<a>\xC3\xA4</a>",
         "<a>1|text~:\xC3\xA4|</a>1|end0 head:1.1,ISO-8859-1,yes"},
        {"", "<?XmL version='1.0' standalone='no'?><a/>", "<a/>1|</a>1|end0 head:1.0,"},
        {"", "<a>ab\xFF" "cd</a>", "<a>1|text:ab|end1"}, {"", "<a\xA0x='1'\xA0y='2'/>", "<a x=1 y=2/>1|</a>1|end0"},  // signed bytes
        {"T", "\xA0<a>\xE4\xF6\xFC</a>", "ws:\xA0|<a>1|text~:\xE4\xF6\xFC|</a>1|end0"},
        {"T", std::string("<a>\0</a>", 8), std::string("<a>1|text~:\0|</a>1|end0", 23)},
        {"", "<a>1\r\n2\r3\n\r4</a>", "<a>1|text:1\n2\n3\n\n4|</a>1|end0"},
        {"R", "</x><a/>", "</x>0|<a/>1|</a>1|end0"}, {"R", "</a><b></c><d/>", "</a>0|<b>1|</c>1|<d/>1|</d>1|end0"},
        {"RN", "<a xmlns:p='urn:x' xmlns:q='urn:x' p:k='1' q:k='2'/>", "<a p:{urn:x}k=1 q:{urn:x}k=2/>1|</a>1|end0"},
        {"", "<p:a q:k='1' xmlns:p=''/>", "<p:a q:k=1 xmlns:p=/>1|</p:a>1|end0"},
        {"TL", "<a>\n  <b>\n  </c>", "<a>1@1:3|text~:\n  @2:3|<b>2@2:6|text~:\n  @3:3|!expected: b@END_TAG@3:7"},
        {"L", "<a><!-- open", "<a>1@1:3|!Unexpected EOF@Illegal state@1:13"},  // inside a construct the event is 999
    };
    for (auto& [flags, document, expected] : rows)
        EXPECT_EQ(expected, Trace(document, flags)) << "flags '" << flags << "' document: " << document;
}

TEST(PullParserEvents, BrokenDocumentsFailWithTheirMessage)
{
    // Flags, the message (a '*' at the end stands for any rest), the documents that fail with it.
    const std::tuple<const char*, std::string, std::vector<const char*>> rows[] = {
        {"", "expected: Proxy", {"<Proxy><Mode>1</Mode></DialUp>"}}, {"", "element stack empty", {"</a>", "<a/></a>"}},
        {"", "<Proxy>: invalid delimiter: t", {"<Proxy useSystemProxy=true>"}}, {"", "expected: '=' actual: '>'", {"<a b>"}},
        {"", "Duplicate Attribute: k", {"<a k='1' j='2' k='3'/>"}}, {"R", "Duplicate Attribute: k", {"<a k='1' k='1'/>"}},
        {"N", "Duplicate Attribute: {urn:x}k", {"<a xmlns:p='urn:x' xmlns:q='urn:x' p:k='1' q:k='2'/>"}},
        {"N", "illegal empty namespace", {"<a xmlns:p=''/>"}}, {"N", "undefined prefix: p", {"<p:a/>"}},
        {"N", "illegal tag name: :a", {"<:a/>"}}, {"N", "illegal attribute name: :k", {"<a :k='1'/>"}},
        {"N", "Undefined Prefix: q in START_TAG*", {"<a q:k='1'/>"}},
        {"", "unresolved: &company;", {"<a>&company;</a>"}}, {"", "unresolved: &;", {"<a>&;</a>"}},
        {"", "unresolved: &x;", {"<a b='&x;'/>"}}, {"", "Unexpected EOF", {"<Exclude>Tom & Jerry</Exclude>"}},
        {"", "unresolved: & Jerry</a><b>x;", {"<a>Tom & Jerry</a><b>x;y</b>"}},  // a lone '&' eats text up to a ';'
        {"T", "Unexpected EOF",
         {"<Exclude>Tom & Jerry</Exclude>", "<a b='x&y'/>", "<!-- open", "<a><![CDATA[open", "<?pi open", "<a>&amp",
          "<!DOCTYPE a [<!ELEMENT a ANY>", "<!DOCTYPE a 'quoted >", "<a b=\"open", "<a", "<a b='1'",
          "<?xml version='1.0'", "<a><!-- x \xFF --></a>", "<a>&am\xFFp;</a>"}},
        {"T", "illegal comment delimiter: --->", {"<!-- x ---><a/>"}}, {"T", "expected: '-' actual: ' '", {"<!- x --><a/>"}},
        {"T", "expected: 'C' actual: 'c'", {"<a><![cdata[x]]></a>"}}, {"T", "expected: 'D' actual: 'E'", {"<!ELEMENT a ANY><a/>"}},
        {"T", "expected: '=' actual: '\xFF'", {"<a b"}}, {"T", "<a>: invalid delimiter: \xFF", {"<a b="}},
        {"T", "expected: '>' actual: '\xFF'", {"<a/", "<a></a"}}, {"T", "expected: '-' actual: '\xFF'", {"<!-"}},
        {"T", "expected: 'T' actual: '\xFF'", {"<![CDA"}},
        {"", "name expected", {"<1a/>", "< a/>", "<a></ a>", "<\xC3\xA4/>", "<", "<a></"}},
        {"", "expected: '=' actual: '/'", {"<Gr\xC3\xB6\xC3\x9F" "e/>"}},  // "Größe": a high byte ends the name
        {"", "PI must not start with xml",
         {"<a/><?xml version='1.0'?>", "\n<?xml version='1.0'?><a/>", " <?xml version='1.0'?><a/>",
          "\xEF\xBB\xBF<?xml version='1.0'?><a/>"}},
        {"", "version expected", {"<?xml encoding='UTF-8'?><a/>", "<?xml ?><a/>"}},
        {"", "illegal standalone value: maybe", {"<?xml version='1.0' standalone='maybe'?><a/>"}},
        {"", "illegal xmldecl", {"<?xml version='1.0' standalone='no' encoding='UTF-8'?><a/>", "<?xml version='1.0' extra='1'?><a/>"}},
    };
    for (auto& [flags, message, documents] : rows)
        for (const char* document : documents) {
            std::string failure = Trace(document, flags);
            failure.erase(0, failure.find('!') + 1);
            EXPECT_EQ(message, message.back() == '*' ? failure.substr(0, message.size() - 1) + "*" : failure)
                << "flags '" << flags << "' document: " << document;
        }
}

TEST(PullParserCalls, LookupsByNameReplacementTextsAndAnUnknownFeature)
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
    EXPECT_EQ("unsupported feature: validation", FailureOf([&] { empty.setFeature("validation", true); }));
}

TEST(PullParserCalls, NamespaceDeclarationsAreStackedPerDepth)
{
    Reader r("<a xmlns:p='urn:1' xmlns='urn:d'><b xmlns:p='urn:2'/><c/></a>", "N");
    std::string scopes;
    for (int event = 0; event < 4; ++event) {  // <a>, <b/>, </b>, <c/>
        r.parser.next();
        scopes += std::to_string(r.parser.getNamespaceCount(r.parser.getDepth()));
        for (const char* prefix : {"xml", "xmlns", "p", "", "q"})
            scopes += event == 2 ? "" : " " + r.parser.getNamespace(prefix);
        scopes += "|";
    }
    const std::string fixed = " http://www.w3.org/XML/1998/namespace http://www.w3.org/2000/xmlns/";
    EXPECT_EQ("2" + fixed + " urn:1 urn:d |3" + fixed + " urn:2 urn:d |3|2" + fixed + " urn:1 urn:d |", scopes);
    EXPECT_EQ("p=urn:1 =urn:d", r.parser.getNamespacePrefix(0) + "=" + r.parser.getNamespaceUri(0) + " " +
                                    r.parser.getNamespacePrefix(1) + "=" + r.parser.getNamespaceUri(1));
    std::string tag = "<p0:a";  // more declarations than the stack first has room for
    for (int i = 0; i < 20; ++i)
        tag += " xmlns:p" + std::to_string(i) + "='urn:" + std::to_string(i) + "'";
    Reader many(tag + "/>", "N");
    ASSERT_EQ(P::START_TAG, many.parser.next());
    EXPECT_EQ("20 urn:0 urn:16 urn:19", std::to_string(many.parser.getNamespaceCount(1)) + " " + many.parser.getNamespace() + " " +
                                            many.parser.getNamespace("p16") + " " + many.parser.getNamespace("p19"));
}

TEST(PullParserConveniences, NextTagNextTextRequireAndSkipSubTree)
{
    Reader r("<a>\n\t<b>x&amp;y</b><c></c>  x<d><e/></d></a>");
    EXPECT_EQ("precondition: START_TAG", FailureOf([&] { r.parser.nextText(); }));
    EXPECT_EQ(P::START_TAG, r.parser.nextTag());
    EXPECT_EQ(P::START_TAG, r.parser.nextTag());  // over white text only
    EXPECT_EQ("x&y", r.parser.nextText());
    EXPECT_EQ("</b>", std::string(r.parser.getEventType() == P::END_TAG ? "</" : "<") + r.parser.getName() + ">");
    r.parser.next();
    EXPECT_EQ("", r.parser.nextText());
    EXPECT_EQ("unexpected type", FailureOf([&] { r.parser.nextTag(); }));
    r.parser.next();
    EXPECT_EQ("END_TAG expected", FailureOf([&] { r.parser.nextText(); }));
    EXPECT_EQ("expected: START_TAG {}b", FailureOf([&] { r.parser.require(P::START_TAG, nullptr, "b"); }));  // at <e/>
    Reader cut("<r><a><b>");
    cut.parser.next();
    EXPECT_EQ("Unexpected EOF", FailureOf([&] { cut.parser.skipSubTree(); }));
}

TEST(PullExceptionTrace, EachFailurePrintsTwoLinesAndAppendsOneStampedEntryAndCopiesDoNeither)
{
    const size_t before = Log().size();
    testing::internal::CaptureStdout();
    for (const char* text : {"<Proxy>\n<Mode>1</Port></Proxy>", "<!-- x"})
        EXPECT_THROW(for (Reader r(text); r.parser.nextToken() != P::END_DOCUMENT;) {}, XmlPullParserException) << text;
    EXPECT_THROW(XmlPullParser().isWhitespace(), XmlPullParserException);
    XmlPullParserException original("first", "TEXT", 2, 3), assigned("second", "COMMENT", 4, 5);
    XmlPullParserException copy(original);  // copies and assignments trace nothing more
    assigned = copy;
    const XmlPullParserException again(copy);
    EXPECT_EQ("first TEXT 2 3 first", assigned.getMessage() + " " + assigned.getState() + " " + std::to_string(assigned.getLineNumber()) +
                                          " " + std::to_string(assigned.getColumnNumber()) + " " + again.getMessage());
    EXPECT_EQ("Exception occurred while parsing document\nException : expected: Mode during :END_TAG at 2:15\n"
              "Exception occurred while parsing document\nException : Unexpected EOF during :Illegal state at 1:7\n"
              "Exception occurred while parsing document\nException : wrong Event Type during :START_DOCUMENT at 1:0\n"
              "Exception occurred while parsing document\nException : first during :TEXT at 2:3\n"
              "Exception occurred while parsing document\nException : second during :COMMENT at 4:5\n",
              testing::internal::GetCapturedStdout());
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\t)", added = Log().substr(before);  // text mode: CR LF
    EXPECT_TRUE(std::regex_match(added, std::regex(stamp + "expected: Mode  <event:END_TAG>\r\n\r\n" + stamp +
                                                   "Unexpected EOF  <event:Illegal state>\r\n\r\n" + stamp +
                                                   "wrong Event Type  <event:START_DOCUMENT>\r\n\r\n" + stamp +
                                                   "first  <event:TEXT>\r\n\r\n" + stamp + "second  <event:COMMENT>\r\n\r\n")))
        << added;
}

TEST(VnNodeTree, ExactAttributesOwnedChildrenAndTheFirstOrEveryNodeOfANameInDocumentOrder)
{
    std::string deleted;
    {
        VnNode root("r");  // r( a( x=deep ), x=shallow( x=inner ), b )
        root.SetAttribute("Mode", "1");
        root.SetAttribute("Mode", "2");
        root.SetAttribute("", "ignored");
        root.SetAttribute("empty", "");
        EXPECT_EQ("2||", root.GetAttribute("Mode") + "|" + root.GetAttribute("mode") + "|" + root.GetAttribute("absent"));
        EXPECT_EQ((VnNode::AttributeMap{{"Mode", "2"}, {"empty", ""}}), root.GetAttributes());
        auto* a = new Tracked("a", deleted);
        root.AddChild(a);
        root.AddChild(static_cast<VnNode*>(nullptr));
        a->AddChild(new Tracked("x", deleted, "deep"));
        VnNode* shallow = root.AddChild("x");
        shallow->SetValue("shallow");
        shallow->AddChild(new Tracked("x", deleted, "inner"));
        auto* b = new Tracked("b", deleted);
        root.AddChild(b);
        EXPECT_TRUE(a->GetParent() == &root && shallow->GetParent() == &root && b->GetParent() == &root);
        EXPECT_EQ("a=;x=shallow;b=;", Names(root.GetChildren()));
        // The first in document order, not the shallowest, or the node itself; names are exact.
        EXPECT_EQ("x=deep;r=;<null>;<null>;", Names({root.FindNode("x"), root.FindNode("r"), root.FindNode("X"), b->FindNode("x")}));
        // Every node of the name below, each looked at once, or the node alone.
        EXPECT_EQ("a=;", Names(root.FindAll("a")));
        EXPECT_EQ("x=deep;x=shallow;x=inner;|r=;", Names(root.FindAll("x")) + "|" + Names(root.FindAll("r")));
    }
    EXPECT_EQ("a;x;x;b;", deleted);  // in document order
}

TEST(VnDocumentWrite, IndentAndMarkupAsEntitiesThatReadBackUnderTheHeadAndAReplacedRootLeftToTheCaller)
{
    VnDocument doc;
    EXPECT_EQ("", Written(doc, "\t"));  // no root, nothing at all
    doc.SetHead("custom");
    doc.Clear();  // without a root the head stays
    EXPECT_EQ("custom", doc.GetHead());
    doc.SetHead("");  // the default, written below
    std::string deleted;
    auto* root = new Tracked("a", deleted);
    doc.SetRoot(root);
    root->AddChild("b")->AddChild("c")->AddChild("d")->SetValue("x");
    EXPECT_EQ(kHead + "\n<a>\n..<b>\n....<c>\n......<d>x</d>\n....</c>\n..</b>\n</a>\n", Written(doc, ".."));
    root->SetValue("v");  // beside children, the value follows the start tag
    root->RemoveChild(root->FindChild("b"));
    root->AddChild("c")->SetValue("a'b");
    EXPECT_EQ(kHead + "\n<a>v\n\t<c>a'b</c>\n</a>\n", Written(doc, "\t"));
    root->SetAttribute("k", "a\"<&>b");
    root->FindChild("c")->SetValue("</c><d>x & y</d><c>");
    const std::string escaped = kHead + "<a k = \"a&quot;&lt;&amp;&gt;b\">v<c>&lt;/c&gt;&lt;d&gt;x &amp; y&lt;/d&gt;&lt;c&gt;</c></a>";
    EXPECT_EQ(escaped, Written(doc, ""));
    VnDocument again;
    ASSERT_EQ("", Load(again, escaped));
    EXPECT_EQ("a\"<&>b|c=</c><d>x & y</d><c>;", again.GetRoot()->GetAttribute("k") + "|" + Names(again.GetRoot()->GetChildren()));
    root->SetAttribute("k", "");
    EXPECT_EQ(kHead + "<a k = \"\">v<c>&lt;/c&gt;&lt;d&gt;x &amp; y&lt;/d&gt;&lt;c&gt;</c></a>", Written(doc, ""));
    const std::unique_ptr<VnNode> old(root);
    doc.SetRoot(new Tracked("z", deleted));  // the old root is left to the caller
    doc.Clear();
    EXPECT_EQ("z; 1 ", deleted + " " + std::to_string(doc.IsEmpty()) + " " + doc.GetHead());
}

TEST(VnDocumentLoad, DocumentsLoadAsDesigned)
{
    const char* const rows[][2] = {
        // The document written back without indent and without the default head; a failure adds '!' and its message.
        {"", ""}, {"<VnLinkhostConfig/>", "<VnLinkhostConfig></VnLinkhostConfig>"},
        {"<r><tab>a\tb</tab><lf>a\nb</lf><blank>a b</blank><blanks>   </blanks></r>",
         "<r><tab></tab><lf></lf><blank>a b</blank><blanks>   </blanks></r>"},  // a tab or a line feed drops the text
        {"<r>note<a/><b>own</b></r>", "<r><a>note</a><b>own</b></r>"},  // text beside children goes to the next leaf
        {"<r><a></a>tail<b/><c/></r>", "<r><a></a><b>tail</b><c></c></r>"},
        {"<r><v>a&amp;b</v><w>x&lt;</w><u>&#65;</u></r>", "<r><v>a&amp;b</v><w>x&lt;</w><u>A</u></r>"},  // text and entities join
        {"<r><c><![CDATA[<b>&amp;]]></c><t><![CDATA[a\tb]]></t></r>", "<r><c>CDATA: &lt;b&gt;&amp;amp;</c><t>CDATA: </t></r>"},
        {"<!DOCTYPE r><r/>", "<r>DOCTYPE:  r</r>"}, {"<!DOCTYPE r><r>v</r>", "<r>v</r>"},
        {"<r><!--c--><a>1<!--x-->2</a><?pi d?></r>", "<r><a>2</a></r>"},
        {"<a><x/></a><b><y/></b><c/>", "<a><x></x><b><y></y></b><c></c></a>"},
        {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"yes\"?><a/>", "<?xml version='1.0' encoding='ISO-8859-1'?><a></a>"},
        {"<?xml version='1.1'?><a/>", "<a></a>"},  // no encoding: the default head
        {"<r><a>1</a><b>2</c></r>", "<r><a>1</a></r>!expected: b"},  // a failure keeps the nodes already placed
        {"<P><NoLocal>true</NoLocal><Exclude>intranet&co</Exclude></P>", "<P><NoLocal>true</NoLocal></P>!Unexpected EOF"},
        {"<P><Exclude>localhost;intra&net;*.local</Exclude></P>", "<P><Exclude>localhost;intra*.local</Exclude></P>"},
    };
    for (const auto& row : rows) {
        VnDocument doc;
        const std::string failure = Load(doc, row[0]);
        std::string written = Written(doc, "");
        if (written.compare(0, kHead.size(), kHead) == 0)
            written.erase(0, kHead.size());
        EXPECT_EQ(row[1], written + (failure.empty() ? "" : "!" + failure)) << row[0];
    }
    VnDocument doc;
    doc.SetHead("custom");
    ASSERT_EQ("", Load(doc, "<c:a xmlns:c='urn:c' c:k='v' xml:l='de'><b xmlns='urn:d'>t</b></c:a>"));
    EXPECT_EQ((VnNode::AttributeMap{{"k", "v"}, {"l", "de"}}), doc.GetRoot()->GetAttributes());  // local names, no declarations
    EXPECT_EQ("a=;b=t;" + kHead, Names({doc.GetRoot(), doc.GetRoot()->FindNode("b")}) + doc.GetHead());  // no head read: the default
}

TEST(VnDocumentRoundTrip, FilesComeBackWithOnlyTheHeadRequoted)
{
    const std::string single = DataFile("single-quoted-head.xml");
    VnDocument doc;
    ASSERT_EQ("", Load(doc, single));
    EXPECT_EQ("<?xml version='1.0' encoding='windows-1252'?>", doc.GetHead());
    EXPECT_EQ("B\xFCro T-Online", doc.GetRoot()->FindNode("DialConnectionName")->GetValue());
    EXPECT_EQ(single, Written(doc, "\t"));

    std::string lf = DataFile("VnLinkhost.xml");
    VnDocument fromLf, fromCrLf;
    Load(fromLf, lf);
    Load(fromCrLf, DataFile("VnLinkhost-crlf.xml"));
    lf.replace(0, lf.find("?>") + 2, kHead);
    EXPECT_EQ(lf, Written(fromLf, "\t"));
    EXPECT_EQ(lf, Written(fromCrLf, "\t"));

    std::string open, close;  // far deeper than a thread's stack holds frames for
    for (int i = 0; i < 200000; ++i)
        open += "<e>", close += "</e>";
    VnDocument deep;  // loaded, searched, written and deleted without recursion
    ASSERT_EQ("", Load(deep, open + "x" + close));
    EXPECT_EQ(nullptr, deep.GetRoot()->FindNode("missing"));
    EXPECT_EQ(kHead + open + "x" + close, Written(deep, ""));
}
