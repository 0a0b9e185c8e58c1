// VnNode and VnDocument: attributes, ownership and searches of the tree, and
// the documents it loads and writes byte for byte, with the shortcuts of the
// design that the configuration file relies on.
#include "tests/xml/xml_support.h"

#include "xml/vn_document.h"

#include <vector>

using namespace vn_xml_test;

namespace {

// A node that records its destruction.
struct Tracked : VnNode {
    Tracked(const std::string& name, std::string& log) : VnNode(name), log(log) {}
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

std::string Written(const VnDocument& doc, const std::string& indent)
{
    std::ostringstream out;
    doc.Write(out, indent);
    return out.str();
}

// Loads `text` and gives the parser's failure, if any.
std::string Load(VnDocument& doc, const std::string& text)
{
    std::istringstream in(text);
    return FailureOf([&] { doc.Load(in); });
}

const std::string kHead = "<?xml version='1.0' encoding='UTF-8'?>";

}  // namespace

TEST(VnNodeTree, AttributesAreExactAndAnEmptyNameIsNotStored)
{
    VnNode node("Proxy");
    for (const char* name : {"Mode", "Mode", "", "empty"})
        node.SetAttribute(name, *name == 'M' ? node.GetAttribute("Mode") + "2" : "");
    EXPECT_EQ("22||", node.GetAttribute("Mode") + "|" + node.GetAttribute("mode") + "|" + node.GetAttribute(""));
    EXPECT_EQ((VnNode::AttributeMap{{"Mode", "22"}, {"empty", ""}}), node.GetAttributes());
    node.RemoveAttribute("mode");
    node.RemoveAttribute("empty");
    EXPECT_EQ((VnNode::AttributeMap{{"Mode", "22"}}), node.GetAttributes());
}

TEST(VnNodeTree, ANodeOwnsItsChildrenAndDeletesThemFirstChildFirst)
{
    std::string deleted;
    {
        VnNode root("r"), other("o");
        VnNode* a = root.AddChild("a");
        auto* b = new Tracked("b", deleted);
        root.AddChild(b);
        root.AddChild(static_cast<VnNode*>(nullptr));
        EXPECT_EQ((std::vector<VnNode*>{a, b}), root.GetChildren());
        EXPECT_TRUE(a->GetParent() == &root && b->GetParent() == &root);
        b->AddChild(new Tracked("b1", deleted));
        b->AddChild(new Tracked("b2", deleted));
        root.AddChild(new Tracked("c", deleted));
        auto* gone = new Tracked("gone", deleted);
        root.AddChild(gone);
        EXPECT_FALSE(root.RemoveChild(nullptr));
        EXPECT_FALSE(root.RemoveChild(other.AddChild("stranger")));
        EXPECT_TRUE(root.RemoveChild(gone));
        EXPECT_EQ("gone;", deleted);
        EXPECT_EQ(3u, root.GetChildren().size());
    }
    EXPECT_EQ("gone;b;b1;b2;c;", deleted);
}

TEST(VnNodeTree, SearchesGoThroughTheSubtreeInDocumentOrder)
{
    VnNode root("r");  // r( a( x=deep ), x=shallow( x=inner ), b )
    root.AddChild("a")->AddChild("x")->SetValue("deep");
    VnNode* shallow = root.AddChild("x");
    shallow->SetValue("shallow");
    shallow->AddChild("x")->SetValue("inner");
    VnNode* b = root.AddChild("b");
    // FindNode gives the first in document order, not the shallowest, and may be the node itself.
    EXPECT_EQ("x=deep;r=;<null>;<null>;<null>;", Names({root.FindNode("x"), root.FindNode("r"), root.FindNode("X"),
                                                       b->FindNode("x"), root.FindChild("r")}));
    EXPECT_EQ("x=shallow;|x=shallow;", Names({root.FindChild("x")}) + "|" + Names(root.FindChildren("x")));
    EXPECT_EQ("x=deep;x=shallow;x=inner;|x=shallow;|", Names(root.FindAll("x")) + "|" + Names(shallow->FindAll("x")) +
                                                        "|" + Names(root.FindAll("missing")));
}

TEST(VnNodeTree, VeryDeepTreeIsSearchedAndDeletedWithoutRecursion)
{
    auto* root = new VnNode("top");
    VnNode* node = root;
    for (int i = 0; i < 1000000; ++i)  // far more frames than the thread's stack holds
        node = node->AddChild("level");
    node->SetName("bottom");
    EXPECT_EQ(node, root->FindNode("bottom"));
    EXPECT_EQ(999999u, root->FindAll("level").size());
    delete root;
}

TEST(VnDocumentWrite, IndentValuesAndAttributesAsTheyStand)
{
    VnDocument doc;
    EXPECT_EQ("", Written(doc, "\t"));  // no root, nothing at all
    auto* root = new VnNode("a");
    doc.SetRoot(root);
    root->AddChild("b")->AddChild("c")->AddChild("d")->SetValue("x");
    EXPECT_EQ(kHead + "\n<a>\n..<b>\n....<c>\n......<d>x</d>\n....</c>\n..</b>\n</a>\n", Written(doc, ".."));
    root->SetValue("v");  // beside children, the value follows the start tag
    root->RemoveChild(root->FindChild("b"));
    root->AddChild("c")->SetValue("a<b");  // nothing is escaped, so this can't be read back
    EXPECT_EQ(kHead + "\n<a>v\n\t<c>a<b</c>\n</a>\n", Written(doc, "\t"));
    VnDocument again;
    EXPECT_EQ("name expected", Load(again, Written(doc, "\t")));
    root->SetAttribute("k", "a\"b");
    root->FindChild("c")->SetValue("x & y");
    EXPECT_EQ(kHead + "<a k = \"a\"b\">v<c>x & y</c></a>", Written(doc, ""));
    root->SetAttribute("k", "");
    EXPECT_EQ(kHead + "<a k = \"\">v<c>x & y</c></a>", Written(doc, ""));
}

TEST(VnDocumentLoad, DocumentsLoadAsDesigned)
{
    const char* const rows[][2] = {
        // The document written back without indent and without the default head; a failure adds '!' and its message.
        {"", ""}, {"<VnLinkhostConfig/>", "<VnLinkhostConfig></VnLinkhostConfig>"},
        // A text with a tab or a line feed is dropped; blanks stay.
        {"<r><tab>a\tb</tab><lf>a\nb</lf><blank>a b</blank><blanks>   </blanks></r>",
         "<r><tab></tab><lf></lf><blank>a b</blank><blanks>   </blanks></r>"},
        // Text beside children goes to the next leaf without text of its own.
        {"<r>note<a/><b>own</b></r>", "<r><a>note</a><b>own</b></r>"},
        {"<r><a></a>tail<b/><c/></r>", "<r><a></a><b>tail</b><c></c></r>"},
        // Entity events replace the text rather than join it.
        {"<r><v>a&amp;b</v><w>x&lt;</w><u>&#65;</u></r>", "<r><v>b</v><w><</w><u>A</u></r>"},
        {"<r><c><![CDATA[<b>&amp;]]></c><t><![CDATA[a\tb]]></t></r>", "<r><c>CDATA: <b>&amp;</c><t>CDATA: </t></r>"},
        {"<!DOCTYPE r><r/>", "<r>DOCTYPE:  r</r>"}, {"<!DOCTYPE r><r>v</r>", "<r>v</r>"},
        {"<r><!--c--><a>1<!--x-->2</a><?pi d?></r>", "<r><a>2</a></r>"},
        {"<a><x/></a><b><y/></b><c/>", "<a><x></x><b><y></y></b><c></c></a>"},
        {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"yes\"?><a/>", "<?xml version='1.0' encoding='ISO-8859-1'?><a></a>"},
        {"<?xml version='1.1'?><a/>", "<a></a>"},  // no encoding: the default head
        // A failure keeps the nodes already placed.
        {"<r><a>1</a><b>2</c></r>", "<r><a>1</a></r>!expected: b"},
        {"<P><NoLocal>true</NoLocal><Exclude>intranet&co</Exclude></P>", "<P><NoLocal>true</NoLocal></P>!Unexpected EOF"},
        {"<P><Exclude>localhost;intra&net;*.local</Exclude></P>", "<P><Exclude>*.local</Exclude></P>"},
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
    ASSERT_EQ("", Load(doc, DataFile("namespaces.xml")));  // names are local, declarations are dropped
    EXPECT_EQ(kHead, doc.GetHead());
    EXPECT_EQ((VnNode::AttributeMap{{"lang", "de"}}), doc.GetRoot()->GetAttributes());
    ASSERT_NE(nullptr, doc.GetRoot()->FindNode("proxy"));
    EXPECT_EQ((VnNode::AttributeMap{{"mode", "manual"}, {"port", "8080"}}), doc.GetRoot()->FindNode("proxy")->GetAttributes());
    EXPECT_EQ("settings=;address=proxy.example;plain=text;",
              Names({doc.GetRoot(), doc.GetRoot()->FindNode("address"), doc.GetRoot()->FindNode("plain")}));
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
    VnDocument fromLf, fromCrLf, fromTextMode;
    Load(fromLf, lf);
    Load(fromCrLf, DataFile("VnLinkhost-crlf.xml"));
    std::ifstream text(DataPath("VnLinkhost-crlf.xml"));  // as the configuration code opens it
    fromTextMode.Load(text);
    lf.replace(0, lf.find("?>") + 2, kHead);
    EXPECT_EQ(lf, Written(fromLf, "\t"));
    EXPECT_EQ(lf, Written(fromCrLf, "\t"));
    EXPECT_EQ(lf, Written(fromTextMode, "\t"));

    std::string open, close;
    for (int i = 0; i < 200000; ++i)
        open += "<e>", close += "</e>";
    VnDocument deep;
    ASSERT_EQ("", Load(deep, open + "x" + close));
    EXPECT_EQ(kHead + open + "x" + close, Written(deep, ""));
}

TEST(VnDocumentState, HeadRootAndClear)
{
    VnDocument doc;
    EXPECT_TRUE(doc.IsEmpty());
    EXPECT_EQ(kHead, doc.GetHead());
    doc.SetHead("custom");
    doc.Clear();  // without a root the head stays
    EXPECT_EQ("custom", doc.GetHead());
    doc.SetHead("");
    EXPECT_EQ(kHead, doc.GetHead());
    std::string deleted;
    auto* first = new Tracked("first", deleted);
    doc.SetRoot(first);
    doc.SetRoot(new Tracked("second", deleted));
    EXPECT_EQ("", deleted);  // the old root is left to the caller
    doc.Clear();
    EXPECT_EQ("second;", deleted);
    EXPECT_TRUE(doc.IsEmpty());
    EXPECT_EQ("", doc.GetHead());
    delete first;
}
