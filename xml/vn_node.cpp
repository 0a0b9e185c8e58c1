// VnNode: ownership of children and the searches through a subtree. The walks
// keep their own stack, so a document nested as deep as the parser allows
// never runs the thread's stack out.
#include "xml/vn_node.h"

#include <deque>

VnNode::~VnNode()
{
    // Each node to be deleted first hands its children to the front of the
    // queue, in their order, so that its own destructor finds none; nodes are
    // therefore entered in the same order a recursive delete would enter them.
    std::deque<VnNode*> doomed(children.begin(), children.end());
    children.clear();
    while (!doomed.empty()) {
        VnNode* node = doomed.front();
        doomed.pop_front();
        doomed.insert(doomed.begin(), node->children.begin(), node->children.end());
        node->children.clear();
        delete node;
    }
}

std::string VnNode::GetAttribute(const std::string& name) const
{
    if (name.empty())
        return std::string();
    auto found = attributes.find(name);
    return found == attributes.end() ? std::string() : found->second;
}

void VnNode::SetAttribute(const std::string& name, const std::string& value)
{
    if (name.empty())
        return;
    attributes[name] = value;
}

void VnNode::RemoveAttribute(const std::string& name)
{
    attributes.erase(name);
}

VnNode* VnNode::AddChild(const std::string& name)
{
    VnNode* node = new VnNode(name);
    AddChild(node);
    return node;
}

void VnNode::AddChild(VnNode* node)
{
    if (!node)
        return;
    node->pParent = this;
    children.push_back(node);
}

bool VnNode::RemoveChild(VnNode* node)
{
    if (!node)
        return false;
    for (auto it = children.begin(); it != children.end(); ++it) {
        if (*it == node) {
            children.erase(it);
            delete node;
            return true;
        }
    }
    return false;
}

VnNode* VnNode::FindNode(const std::string& name)
{
    // Depth first, in document order: a node, then its subtree, then its
    // next sibling.
    std::vector<VnNode*> stack{this};
    while (!stack.empty()) {
        VnNode* node = stack.back();
        stack.pop_back();
        if (node->strName == name)
            return node;
        stack.insert(stack.end(), node->children.rbegin(), node->children.rend());
    }
    return nullptr;
}

VnNode* VnNode::FindChild(const std::string& name) const
{
    for (VnNode* child : children) {
        if (child->strName == name)
            return child;
    }
    return nullptr;
}

std::vector<VnNode*> VnNode::FindChildren(const std::string& name) const
{
    std::vector<VnNode*> found;
    for (VnNode* child : children) {
        if (child->strName == name)
            found.push_back(child);
    }
    return found;
}

std::vector<VnNode*> VnNode::FindAll(const std::string& name)
{
    if (strName == name)
        return {this};
    std::vector<VnNode*> found;
    std::vector<VnNode*> stack(children.rbegin(), children.rend());
    while (!stack.empty()) {
        VnNode* node = stack.back();
        stack.pop_back();
        if (node->strName == name)
            found.push_back(node);
        stack.insert(stack.end(), node->children.rbegin(), node->children.rend());
    }
    return found;
}
