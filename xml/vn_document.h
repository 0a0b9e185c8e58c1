// VnDocument: reads a stream into a tree of VnNode through the pull parser, and
// writes a tree back. It is made for the configuration file and is no full
// document model: no mixed content, no comments, no processing instructions.
// Its shortcuts are deliberate and the file format depends on them:
//   - A value is only set on a leaf. Text beside child elements is not kept on
//     the parent; it goes to the next leaf that has no text of its own.
//   - "<", ">", "&" and '"' in values and attributes are written as entities,
//     every other byte as it stands. A run of text and entities loads as one
//     text, so such a value reads back whole; were the events to replace one
//     another, only the text after the last entity would be kept.
//   - A text that contains a line feed or a tab loads as the empty text; that is
//     what drops the indentation between elements.
//   - A CDATA section is stored as "CDATA: " and its text; the text of a DOCTYPE
//     becomes "DOCTYPE: " and the text, as the value of the next element.
//   - The head is rebuilt from version and encoding with single quotes.
#pragma once

#include "xml/vn_node.h"

#include <istream>
#include <ostream>
#include <string>

class VnDocument {
public:
    // The head written when none was set or read.
    static constexpr const char* kDefaultHead = "<?xml version='1.0' encoding='UTF-8'?>";

    VnDocument();
    // Deletes the tree.
    virtual ~VnDocument();

    VnDocument(const VnDocument&) = delete;
    VnDocument& operator=(const VnDocument&) = delete;

    bool IsEmpty() const { return pRoot == nullptr; }
    VnNode* GetRoot() const { return pRoot; }
    // Replaces the reference and takes ownership of `node`; the old root is
    // not deleted here, that stays with whoever replaced it.
    void SetRoot(VnNode* node) { pRoot = node; }

    const std::string& GetHead() const { return strHead; }
    // An empty text sets the default head.
    void SetHead(const std::string& head);

    // With a root: empties the head and deletes the tree. Without one, does
    // nothing, and the head stays.
    void Clear();

    // Builds the tree from `stream`. Does not clear the document first: a
    // caller that reloads clears it. An XmlPullParserException passes to the
    // caller and leaves the nodes built so far in the document.
    void Load(std::istream& stream);
    // Writes the head and the tree; nothing without a root. An empty indent
    // writes no line breaks at all; any other indent puts each element on a
    // line of its own, the indent repeated once per level.
    void Write(std::ostream& stream, const std::string& indent) const;

private:
    // Owned; null while the document is empty.
    VnNode* pRoot = nullptr;
    std::string strHead;
};
