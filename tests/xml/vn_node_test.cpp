// VnNode: attributes, ownership of children, and the searches through a
// subtree, including trees far deeper than a thread's stack would allow a
// recursive walk.
#include <gtest/gtest.h>

#include "xml/vn_node.h"

#include <string>
#include <vector>

namespace {

// A node that records the order in which nodes are destroyed.
class Tracked : public VnNode {
public:
    Tracked(const std::string& name, std::vector<std::string>& log) : VnNode(name), m_log(log) {}
    ~Tracked() override { m_log.push_back(GetName()); }

private:
    std::vector<std::string>& m_log;
};

std::vector<std::string> Names(const std::vector<VnNode*>& nodes)
{
    std::vector<std::string> names;
    for (const VnNode* node : nodes)
        names.push_back(node->GetName() + "=" + node->GetValue());
    return names;
}

using Strings = std::vector<std::string>;

}  // namespace

// ---------------------------------------------------------------------------
// Attributes

TEST(VnNodeAttributes, SetReplacesOrAddsAndEmptyNameIsNotStored)
{
    VnNode node("Proxy");
    node.SetAttribute("useSystemProxy", "true");
    node.SetAttribute("useSystemProxy", "false");
    node.SetAttribute("", "ignored");
    EXPECT_EQ("false", node.GetAttribute("useSystemProxy"));
    EXPECT_EQ(1u, node.GetAttributes().size());
    EXPECT_EQ("", node.GetAttribute(""));
}

TEST(VnNodeAttributes, AbsentAndEmptyValuesLookTheSame)
{
    VnNode node("a");
    node.SetAttribute("empty", "");
    EXPECT_EQ("", node.GetAttribute("empty"));
    EXPECT_EQ("", node.GetAttribute("absent"));
    EXPECT_EQ(1u, node.GetAttributes().count("empty"));
}

TEST(VnNodeAttributes, NamesAreComparedExactly)
{
    VnNode node("a");
    node.SetAttribute("Mode", "1");
    EXPECT_EQ("", node.GetAttribute("mode"));
    node.RemoveAttribute("mode");
    EXPECT_EQ("1", node.GetAttribute("Mode"));
    node.RemoveAttribute("Mode");
    EXPECT_TRUE(node.GetAttributes().empty());
}

TEST(VnNodeAttributes, GetAttributesIsACopy)
{
    VnNode node("a");
    node.SetAttribute("k", "v");
    VnNode::AttributeMap copy = node.GetAttributes();
    copy["k"] = "changed";
    EXPECT_EQ("v", node.GetAttribute("k"));
}

// ---------------------------------------------------------------------------
// Children and ownership

TEST(VnNodeChildren, AddChildByNameAppendsAndSetsTheParent)
{
    VnNode root("DialUp");
    VnNode* mode = root.AddChild("Mode");
    VnNode* name = root.AddChild("DialConnectionName");
    EXPECT_EQ(&root, mode->GetParent());
    EXPECT_EQ(&root, name->GetParent());
    EXPECT_EQ((std::vector<VnNode*>{mode, name}), root.GetChildren());
}

TEST(VnNodeChildren, AddChildTakesANodeAndIgnoresNull)
{
    VnNode root("r");
    VnNode* child = new VnNode("c");
    root.AddChild(child);
    root.AddChild(static_cast<VnNode*>(nullptr));
    EXPECT_EQ(&root, child->GetParent());
    EXPECT_EQ(1u, root.GetChildren().size());
}

TEST(VnNodeChildren, RemoveChildDeletesOnlyItsOwnChildren)
{
    std::vector<std::string> deleted;
    VnNode root("r");
    VnNode other("o");
    VnNode* a = new Tracked("a", deleted);
    root.AddChild(a);
    VnNode* stranger = other.AddChild("s");
    EXPECT_FALSE(root.RemoveChild(nullptr));
    EXPECT_FALSE(root.RemoveChild(stranger));
    EXPECT_EQ(1u, other.GetChildren().size());
    EXPECT_TRUE(root.RemoveChild(a));
    EXPECT_EQ(Strings{"a"}, deleted);
    EXPECT_TRUE(root.GetChildren().empty());
}

TEST(VnNodeChildren, DeletingANodeDeletesItsChildrenFirstChildFirst)
{
    std::vector<std::string> deleted;
    {
        VnNode root("r");
        VnNode* a = new Tracked("a", deleted);
        root.AddChild(a);
        a->AddChild(new Tracked("a1", deleted));
        a->AddChild(new Tracked("a2", deleted));
        root.AddChild(new Tracked("b", deleted));
    }
    // Every node is gone; each one before the nodes that came after it in
    // document order, as a recursive delete would have it.
    EXPECT_EQ((Strings{"a", "a1", "a2", "b"}), deleted);
}

TEST(VnNodeChildren, GetChildrenIsACopyOfTheList)
{
    VnNode root("r");
    root.AddChild("a");
    std::vector<VnNode*> copy = root.GetChildren();
    copy.clear();
    EXPECT_EQ(1u, root.GetChildren().size());
}

// ---------------------------------------------------------------------------
// Searches

namespace {

// r
//   a
//     x = deep
//   x = shallow
//     x = inner
//   b
struct SearchTree {
    SearchTree()
    {
        VnNode* a = root.AddChild("a");
        a->AddChild("x")->SetValue("deep");
        VnNode* x = root.AddChild("x");
        x->SetValue("shallow");
        x->AddChild("x")->SetValue("inner");
        root.AddChild("b");
    }
    VnNode root{"r"};
};

}  // namespace

TEST(VnNodeSearch, FindNodeGivesTheFirstInDocumentOrderNotTheShallowest)
{
    SearchTree t;
    ASSERT_NE(nullptr, t.root.FindNode("x"));
    EXPECT_EQ("deep", t.root.FindNode("x")->GetValue());
}

TEST(VnNodeSearch, FindNodeMatchesTheNodeItselfFirst)
{
    SearchTree t;
    EXPECT_EQ(&t.root, t.root.FindNode("r"));
    EXPECT_EQ(nullptr, t.root.FindNode("missing"));
    EXPECT_EQ(nullptr, t.root.FindNode("X"));
}

TEST(VnNodeSearch, FindNodeFromAnInnerNodeSearchesOnlyBelowIt)
{
    SearchTree t;
    VnNode* b = t.root.FindNode("b");
    ASSERT_NE(nullptr, b);
    EXPECT_EQ(nullptr, b->FindNode("x"));
}

TEST(VnNodeSearch, FindChildAndFindChildrenLookOneLevelDown)
{
    SearchTree t;
    ASSERT_NE(nullptr, t.root.FindChild("x"));
    EXPECT_EQ("shallow", t.root.FindChild("x")->GetValue());
    EXPECT_EQ(Strings{"x=shallow"}, Names(t.root.FindChildren("x")));
    EXPECT_EQ(nullptr, t.root.FindChild("r"));
}

TEST(VnNodeSearch, FindAllGivesEveryMatchBelowInDocumentOrder)
{
    SearchTree t;
    EXPECT_EQ((Strings{"x=deep", "x=shallow", "x=inner"}), Names(t.root.FindAll("x")));
    EXPECT_TRUE(t.root.FindAll("missing").empty());
}

TEST(VnNodeSearch, FindAllOnAMatchingNodeGivesItAlone)
{
    SearchTree t;
    VnNode* shallow = t.root.FindChild("x");
    EXPECT_EQ(Strings{"x=shallow"}, Names(shallow->FindAll("x")));
}

TEST(VnNodeSearch, VeryDeepTreeIsSearchedAndDeletedWithoutRecursion)
{
    // Far more levels than the main thread's stack would hold frames for.
    const int depth = 1000000;
    auto* root = new VnNode("top");
    VnNode* node = root;
    for (int i = 0; i < depth; ++i)
        node = node->AddChild("level");
    node->SetName("bottom");
    EXPECT_EQ(node, root->FindNode("bottom"));
    EXPECT_EQ(1u, root->FindAll("bottom").size());
    EXPECT_EQ(static_cast<size_t>(depth - 1), root->FindAll("level").size());
    delete root;
}
