// VnNode: one element of the small configuration tree, with its name, its
// text, its attributes and its children. There is no mixed content: a node's
// value is its text, and its children are elements only.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

class VnNode {
public:
    using AttributeMap = std::unordered_map<std::string, std::string>;

    VnNode() = default;
    explicit VnNode(const std::string& name) : strName(name) {}
    // Deletes the children, first child first, and theirs in turn. The tree is
    // taken apart without recursion, so a tree of any depth can be deleted.
    virtual ~VnNode();

    // A node owns its children; copies would share them.
    VnNode(const VnNode&) = delete;
    VnNode& operator=(const VnNode&) = delete;

    const std::string& GetName() const { return strName; }
    void SetName(const std::string& name) { strName = name; }
    const std::string& GetValue() const { return strValue; }
    void SetValue(const std::string& value) { strValue = value; }
    VnNode* GetParent() const { return pParent; }
    void SetParent(VnNode* parent) { pParent = parent; }

    // A copy of the list; the nodes stay owned by this one.
    std::vector<VnNode*> GetChildren() const { return children; }
    AttributeMap GetAttributes() const { return attributes; }

    // The value, or empty when the name is empty or the attribute is absent;
    // nothing tells these cases apart.
    std::string GetAttribute(const std::string& name) const;
    // Replaces or adds; an empty name does nothing.
    void SetAttribute(const std::string& name, const std::string& value);
    void RemoveAttribute(const std::string& name);

    // Creates a child with that name, appends it, and gives it back.
    VnNode* AddChild(const std::string& name);
    // Takes ownership of `node`, makes this node its parent and appends it; a
    // null node does nothing.
    void AddChild(VnNode* node);
    // Removes and deletes the child; false if it is null or not a child.
    bool RemoveChild(VnNode* node);

    // This node if it has the name, else the first node with the name in
    // document order below it; null if there is none. A search for one name
    // through the whole subtree, not a path.
    VnNode* FindNode(const std::string& name);
    // The first direct child with the name.
    VnNode* FindChild(const std::string& name) const;
    // All direct children with the name, in order.
    std::vector<VnNode*> FindChildren(const std::string& name) const;
    // This node alone if it has the name; otherwise every node with the name
    // below it in document order, the descendants of a match included.
    std::vector<VnNode*> FindAll(const std::string& name);

private:
    VnNode* pParent = nullptr;
    std::string strValue;
    // Empty while the node is still blank.
    std::string strName;
    // Owned, in document order.
    std::vector<VnNode*> children;
    AttributeMap attributes;
};
