// VnDocument: loading documents into the tree, writing the tree in the exact
// bytes of the configuration file, the round trips that reproduce a file, and
// the shortcuts of the design that the file format relies on.
#include <gtest/gtest.h>

#include "xml/vn_document.h"
#include "xml/xml_pull_parser.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string DataPath(const std::string& name)
{
    std::string here = __FILE__;
    std::string dir = here.substr(0, here.find_last_of("/\\"));
    // Under Wine a unix path of the source tree is reached through drive Z:.
    if (!dir.empty() && dir[0] == '/')
        dir = "Z:" + dir;
    return dir + "/data/" + name;
}

std::string DataFile(const std::string& name)
{
    std::ifstream in(DataPath(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void LoadText(VnDocument& doc, const std::string& text)
{
    std::istringstream in(text);
    doc.Load(in);
}

std::string WriteText(const VnDocument& doc, const std::string& indent)
{
    std::ostringstream out;
    doc.Write(out, indent);
    return out.str();
}

// The message of the parser's failure while loading, or "" if it loads.
std::string LoadFailure(VnDocument& doc, const std::string& text)
{
    try {
        LoadText(doc, text);
    } catch (const XmlPullParserException& e) {
        return e.getMessage();
    }
    return std::string();
}

std::string ValueOf(VnDocument& doc, const std::string& name)
{
    VnNode* node = doc.IsEmpty() ? nullptr : doc.GetRoot()->FindNode(name);
    return node ? node->GetValue() : "<absent>";
}

const char* const kDoubleQuotedHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

// The configuration tree of a record with all defaults and the head
// authentication flag set, built the way the configuration code builds it.
VnNode* DefaultConfiguration()
{
    auto* root = new VnNode("VnLinkhostConfig");
    VnNode* dial = root->AddChild("DialUp");
    dial->SetAttribute("useSystemConnection", "true");
    dial->AddChild("Mode")->SetValue("1");
    dial->AddChild("DialConnectionName");
    VnNode* proxy = root->AddChild("Proxy");
    proxy->SetAttribute("useSystemProxy", "true");
    proxy->AddChild("Mode")->SetValue("0");
    proxy->AddChild("Address")->SetValue("proxy");
    proxy->AddChild("Port")->SetValue("8080");
    proxy->AddChild("NoLocal")->SetValue("true");
    proxy->AddChild("Exclude")->SetValue("localhost");
    proxy->AddChild("Script");
    root->AddChild("skip-head-authentication")->SetValue("true");
    return root;
}

class Tracked : public VnNode {
public:
    Tracked(const std::string& name, int& deletions) : VnNode(name), m_deletions(deletions) {}
    ~Tracked() override { ++m_deletions; }

private:
    int& m_deletions;
};

}  // namespace

// ---------------------------------------------------------------------------
// Writing

TEST(VnDocumentWrite, ConfigurationTreeGivesTheFileByteForByte)
{
    VnDocument doc;
    doc.SetHead(kDoubleQuotedHead);
    doc.SetRoot(DefaultConfiguration());
    const std::string expected = DataFile("VnLinkhost.xml");
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(expected, WriteText(doc, "\t"));
}

TEST(VnDocumentWrite, EmptyIndentWritesNoLineBreaks)
{
    VnDocument doc;
    doc.SetRoot(DefaultConfiguration());
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?><VnLinkhostConfig>"
              "<DialUp useSystemConnection = \"true\"><Mode>1</Mode><DialConnectionName></DialConnectionName>"
              "</DialUp><Proxy useSystemProxy = \"true\"><Mode>0</Mode><Address>proxy</Address><Port>8080</Port>"
              "<NoLocal>true</NoLocal><Exclude>localhost</Exclude><Script></Script></Proxy>"
              "<skip-head-authentication>true</skip-head-authentication></VnLinkhostConfig>",
              WriteText(doc, ""));
}

TEST(VnDocumentWrite, IndentIsRepeatedOncePerLevel)
{
    VnDocument doc;
    auto* root = new VnNode("a");
    root->AddChild("b")->AddChild("c")->AddChild("d")->SetValue("x");
    doc.SetRoot(root);
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?>\n<a>\n..<b>\n....<c>\n......<d>x</d>\n....</c>\n..</b>\n</a>\n",
              WriteText(doc, ".."));
}

TEST(VnDocumentWrite, ValueOfANodeWithChildrenFollowsItsStartTag)
{
    VnDocument doc;
    auto* root = new VnNode("r");
    root->SetValue("v");
    root->AddChild("c");
    doc.SetRoot(root);
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?>\n<r>v\n\t<c></c>\n</r>\n", WriteText(doc, "\t"));
}

TEST(VnDocumentWrite, AttributeWithEmptyValueIsWrittenEmpty)
{
    VnDocument doc;
    auto* root = new VnNode("r");
    root->SetAttribute("k", "");
    root->SetAttribute("", "dropped");
    doc.SetRoot(root);
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?><r k = \"\"></r>", WriteText(doc, ""));
}

TEST(VnDocumentWrite, ValuesAreWrittenWithoutEscaping)
{
    VnDocument doc;
    auto* root = new VnNode("r");
    root->SetAttribute("k", "a\"b");
    root->AddChild("v")->SetValue("x & y < z");
    doc.SetRoot(root);
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?><r k = \"a\"b\"><v>x & y < z</v></r>", WriteText(doc, ""));
}

TEST(VnDocumentWrite, ValueWithALessThanSignCannotBeReadBack)
{
    VnDocument doc;
    auto* root = new VnNode("r");
    root->AddChild("v")->SetValue("a<b");
    doc.SetRoot(root);
    VnDocument again;
    EXPECT_EQ("name expected", LoadFailure(again, WriteText(doc, "\t")));
}

TEST(VnDocumentWrite, DocumentWithoutRootWritesNothing)
{
    VnDocument doc;
    doc.SetHead(kDoubleQuotedHead);
    EXPECT_EQ("", WriteText(doc, "\t"));
}

// ---------------------------------------------------------------------------
// Round trips

TEST(VnDocumentRoundTrip, FileWithSingleQuotedHeadIsReproducedByteForByte)
{
    const std::string original = DataFile("single-quoted-head.xml");
    ASSERT_FALSE(original.empty());
    VnDocument doc;
    LoadText(doc, original);
    EXPECT_EQ("<?xml version='1.0' encoding='windows-1252'?>", doc.GetHead());
    EXPECT_EQ("B\xFCro T-Online", ValueOf(doc, "DialConnectionName"));
    EXPECT_EQ(original, WriteText(doc, "\t"));
}

TEST(VnDocumentRoundTrip, ConfigurationFileComesBackWithOnlyTheHeadRequoted)
{
    const std::string original = DataFile("VnLinkhost.xml");
    VnDocument doc;
    LoadText(doc, original);
    std::string expected = original;
    expected.replace(0, std::string(kDoubleQuotedHead).size(), "<?xml version='1.0' encoding='UTF-8'?>");
    EXPECT_EQ(expected, WriteText(doc, "\t"));
}

TEST(VnDocumentRoundTrip, FileWithCrLfLoadsTheSameTreeAndIsWrittenWithLf)
{
    VnDocument lf;
    VnDocument crlf;
    LoadText(lf, DataFile("VnLinkhost.xml"));
    LoadText(crlf, DataFile("VnLinkhost-crlf.xml"));
    EXPECT_EQ(WriteText(lf, "\t"), WriteText(crlf, "\t"));
}

TEST(VnDocumentRoundTrip, FileOpenedInTextModeLoads)
{
    std::ifstream in(DataPath("VnLinkhost-crlf.xml"));
    ASSERT_TRUE(in.good());
    VnDocument doc;
    doc.Load(in);
    EXPECT_EQ("8080", ValueOf(doc, "Port"));
    EXPECT_EQ("true", doc.GetRoot()->FindNode("Proxy")->GetAttribute("useSystemProxy"));
}

TEST(VnDocumentRoundTrip, DeepDocumentIsLoadedWrittenAndDeleted)
{
    const int depth = 200000;
    std::string body;
    for (int i = 0; i < depth; ++i)
        body += "<e>";
    body += "x";
    for (int i = 0; i < depth; ++i)
        body += "</e>";
    VnDocument doc;
    LoadText(doc, body);
    int levels = 1;
    VnNode* node = doc.GetRoot();
    while (!node->GetChildren().empty()) {
        node = node->GetChildren()[0];
        ++levels;
    }
    EXPECT_EQ(depth, levels);
    EXPECT_EQ("x", node->GetValue());
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?>" + body, WriteText(doc, ""));
}

// ---------------------------------------------------------------------------
// Loading, and the results of the design that are to stay

TEST(VnDocumentLoad, OneEmptyElementBecomesTheRoot)
{
    VnDocument doc;
    LoadText(doc, "<VnLinkhostConfig/>");
    ASSERT_FALSE(doc.IsEmpty());
    EXPECT_EQ("VnLinkhostConfig", doc.GetRoot()->GetName());
    EXPECT_EQ("", doc.GetRoot()->GetValue());
    EXPECT_TRUE(doc.GetRoot()->GetChildren().empty());
    EXPECT_EQ(nullptr, doc.GetRoot()->GetParent());
}

TEST(VnDocumentLoad, EmptyInputLeavesTheDocumentEmptyWithTheDefaultHead)
{
    VnDocument doc;
    LoadText(doc, "");
    EXPECT_TRUE(doc.IsEmpty());
    EXPECT_EQ(VnDocument::kDefaultHead, doc.GetHead());
}

TEST(VnDocumentLoad, ElementsAttributesAndParentsFollowTheDocument)
{
    VnDocument doc;
    LoadText(doc, DataFile("VnLinkhost.xml"));
    VnNode* root = doc.GetRoot();
    ASSERT_NE(nullptr, root);
    std::vector<std::string> names;
    for (VnNode* child : root->GetChildren()) {
        names.push_back(child->GetName());
        EXPECT_EQ(root, child->GetParent());
    }
    EXPECT_EQ((std::vector<std::string>{"DialUp", "Proxy", "skip-head-authentication"}), names);
    VnNode* proxy = root->FindNode("Proxy");
    EXPECT_EQ("true", proxy->GetAttribute("useSystemProxy"));
    EXPECT_EQ("0", proxy->FindNode("Mode")->GetValue());
    EXPECT_EQ("1", root->FindNode("Mode")->GetValue());
    EXPECT_EQ("", proxy->FindNode("Script")->GetValue());
    EXPECT_EQ("", proxy->GetValue());
}

TEST(VnDocumentLoad, TextWithATabOrLineFeedIsDroppedButBlanksStay)
{
    VnDocument doc;
    LoadText(doc, "<r><tab>a\tb</tab><lf>a\nb</lf><blank>a b</blank><blanks>   </blanks></r>");
    EXPECT_EQ("", ValueOf(doc, "tab"));
    EXPECT_EQ("", ValueOf(doc, "lf"));
    EXPECT_EQ("a b", ValueOf(doc, "blank"));
    EXPECT_EQ("   ", ValueOf(doc, "blanks"));
}

TEST(VnDocumentLoad, TextBesideChildrenGoesToTheNextLeafWithoutText)
{
    VnDocument doc;
    LoadText(doc, "<r>note<a/><b>own</b></r>");
    EXPECT_EQ("", doc.GetRoot()->GetValue());
    EXPECT_EQ("note", ValueOf(doc, "a"));
    EXPECT_EQ("own", ValueOf(doc, "b"));

    VnDocument tail;
    LoadText(tail, "<r><a></a>tail<b/><c/></r>");
    EXPECT_EQ("", ValueOf(tail, "a"));
    EXPECT_EQ("tail", ValueOf(tail, "b"));
    EXPECT_EQ("", ValueOf(tail, "c"));
}

TEST(VnDocumentLoad, EntityEventsReplaceTheTextInsteadOfJoiningIt)
{
    VnDocument doc;
    LoadText(doc, "<r><v>a&amp;b</v><w>x&lt;</w><u>&#65;</u></r>");
    EXPECT_EQ("b", ValueOf(doc, "v"));
    EXPECT_EQ("<", ValueOf(doc, "w"));
    EXPECT_EQ("A", ValueOf(doc, "u"));
}

TEST(VnDocumentLoad, CdataIsStoredWithItsPrefix)
{
    VnDocument doc;
    LoadText(doc, "<r><c><![CDATA[<b>&amp;]]></c><t><![CDATA[a\tb]]></t></r>");
    EXPECT_EQ("CDATA: <b>&amp;", ValueOf(doc, "c"));
    EXPECT_EQ("CDATA: ", ValueOf(doc, "t"));
}

TEST(VnDocumentLoad, DoctypeBecomesTheValueOfTheNextElementUnlessReplaced)
{
    VnDocument doc;
    LoadText(doc, "<!DOCTYPE r><r/>");
    EXPECT_EQ("DOCTYPE:  r", doc.GetRoot()->GetValue());

    VnDocument replaced;
    LoadText(replaced, "<!DOCTYPE r><r>v</r>");
    EXPECT_EQ("v", replaced.GetRoot()->GetValue());
}

TEST(VnDocumentLoad, CommentsAndInstructionsLeaveNoTrace)
{
    VnDocument doc;
    LoadText(doc, "<r><!--c--><a>1<!--x-->2</a><?pi d?></r>");
    EXPECT_EQ("2", ValueOf(doc, "a"));
    EXPECT_EQ(1u, doc.GetRoot()->GetChildren().size());
}

TEST(VnDocumentLoad, LegacyConstructsCollapseAsDesigned)
{
    VnDocument doc;
    LoadText(doc, DataFile("legacy-constructs.xml"));
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?>\n"
              "<root>DOCTYPE: \n"
              "\t<item>CDATA: <raw> & unescaped ]] text</item>\n"
              "\t<item>\"</item>\n"
              "\t<empty></empty>\n"
              "</root>\n",
              WriteText(doc, "\t"));
}

TEST(VnDocumentLoad, NamesAreLocalAndDeclarationsAreDropped)
{
    VnDocument doc;
    LoadText(doc, DataFile("namespaces.xml"));
    VnNode* root = doc.GetRoot();
    EXPECT_EQ("settings", root->GetName());
    EXPECT_EQ((VnNode::AttributeMap{{"lang", "de"}}), root->GetAttributes());
    VnNode* proxy = root->FindNode("proxy");
    ASSERT_NE(nullptr, proxy);
    EXPECT_EQ((VnNode::AttributeMap{{"mode", "manual"}, {"port", "8080"}}), proxy->GetAttributes());
    EXPECT_EQ("proxy.example", ValueOf(doc, "address"));
    EXPECT_EQ("text", ValueOf(doc, "plain"));
}

TEST(VnDocumentLoad, HeadIsRebuiltWithSingleQuotesOrFallsBackToTheDefault)
{
    VnDocument quoted;
    LoadText(quoted, "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"yes\"?><a/>");
    EXPECT_EQ("<?xml version='1.0' encoding='ISO-8859-1'?>", quoted.GetHead());

    VnDocument noEncoding;
    LoadText(noEncoding, "<?xml version='1.1'?><a/>");
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?>", noEncoding.GetHead());

    VnDocument noHead;
    noHead.SetHead("custom");
    LoadText(noHead, "<a/>");
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?>", noHead.GetHead());
}

TEST(VnDocumentLoad, BareAmpersandInAValueFailsTheLoadAndKeepsWhatWasBuilt)
{
    std::string file = DataFile("VnLinkhost.xml");
    file.replace(file.find("localhost"), 9, "intranet&co");
    VnDocument doc;
    EXPECT_EQ("Unexpected EOF", LoadFailure(doc, file));
    ASSERT_FALSE(doc.IsEmpty());
    EXPECT_EQ("VnLinkhostConfig", doc.GetRoot()->GetName());
    EXPECT_EQ("true", ValueOf(doc, "NoLocal"));
    EXPECT_EQ("<absent>", ValueOf(doc, "Exclude"));
}

TEST(VnDocumentLoad, BareAmpersandBeforeASemicolonSwallowsTextSilently)
{
    std::string file = DataFile("VnLinkhost.xml");
    file.replace(file.find("localhost"), 9, "localhost;intra&net;*.local");
    VnDocument doc;
    EXPECT_EQ("", LoadFailure(doc, file));
    EXPECT_EQ("*.local", ValueOf(doc, "Exclude"));
}

TEST(VnDocumentLoad, MismatchedTagsFailAndKeepTheNodesAlreadyPlaced)
{
    VnDocument doc;
    EXPECT_EQ("expected: b", LoadFailure(doc, "<r><a>1</a><b>2</c></r>"));
    ASSERT_FALSE(doc.IsEmpty());
    EXPECT_EQ("1", ValueOf(doc, "a"));
    EXPECT_EQ("<absent>", ValueOf(doc, "b"));
}

TEST(VnDocumentLoad, SecondTopLevelElementGoesUnderTheRoot)
{
    VnDocument doc;
    LoadText(doc, "<a><x/></a><b><y/></b><c/>");
    EXPECT_EQ("a", doc.GetRoot()->GetName());
    std::vector<std::string> names;
    for (VnNode* child : doc.GetRoot()->GetChildren())
        names.push_back(child->GetName());
    EXPECT_EQ((std::vector<std::string>{"x", "b", "c"}), names);
    EXPECT_NE(nullptr, doc.GetRoot()->FindNode("y"));
}

// ---------------------------------------------------------------------------
// Head, root and clearing

TEST(VnDocumentState, NewDocumentIsEmptyWithTheDefaultHead)
{
    VnDocument doc;
    EXPECT_TRUE(doc.IsEmpty());
    EXPECT_EQ(nullptr, doc.GetRoot());
    EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?>", doc.GetHead());
}

TEST(VnDocumentState, EmptyHeadMeansTheDefault)
{
    VnDocument doc;
    doc.SetHead(kDoubleQuotedHead);
    EXPECT_EQ(kDoubleQuotedHead, doc.GetHead());
    doc.SetHead("");
    EXPECT_EQ(VnDocument::kDefaultHead, doc.GetHead());
}

TEST(VnDocumentState, ClearEmptiesTheHeadOnlyWhenThereIsARoot)
{
    VnDocument doc;
    doc.SetHead(kDoubleQuotedHead);
    doc.Clear();
    EXPECT_EQ(kDoubleQuotedHead, doc.GetHead());

    int deletions = 0;
    doc.SetRoot(new Tracked("r", deletions));
    doc.Clear();
    EXPECT_EQ(1, deletions);
    EXPECT_TRUE(doc.IsEmpty());
    EXPECT_EQ("", doc.GetHead());
}

TEST(VnDocumentState, SetRootLeavesTheOldRootToTheCaller)
{
    int deletions = 0;
    auto* first = new Tracked("first", deletions);
    {
        VnDocument doc;
        doc.SetRoot(first);
        doc.SetRoot(new Tracked("second", deletions));
        EXPECT_EQ(0, deletions);
    }
    EXPECT_EQ(1, deletions);
    delete first;
    EXPECT_EQ(2, deletions);
}
