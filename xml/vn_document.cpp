// VnDocument: the reader that turns parser events into the tree, and the
// writer whose bytes are the format of the configuration file.
#include "xml/vn_document.h"

#include "xml/xml_pull_parser.h"

#include <memory>
#include <utility>
#include <vector>

namespace {

// Indentation between elements is text with a line feed or a tab; such text,
// and with it any real value holding one, is dropped.
std::string FilterText(const std::string& text)
{
    if (text.find_first_of("\n\t") != std::string::npos)
        return std::string();
    return text;
}

void WriteIndent(std::ostream& stream, const std::string& indent, size_t level)
{
    for (size_t i = 0; i < level; ++i)
        stream << indent;
}

// A text with each of the characters that would end or open markup written as
// its entity, which the reader turns back; any other byte as it stands.
void WriteEscaped(std::ostream& stream, const std::string& text)
{
    for (char c : text) {
        const char* entity = c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : c == '"' ? "&quot;" : nullptr;
        if (entity)
            stream << entity;
        else
            stream << c;
    }
}

// "<", the name, the attributes with a blank on each side of the equals sign,
// ">", and the value.
void WriteStartTag(std::ostream& stream, const VnNode& node)
{
    stream << '<' << node.GetName();
    for (const auto& attribute : node.GetAttributes()) {
        if (!attribute.first.empty()) {
            stream << ' ' << attribute.first << " = \"";
            WriteEscaped(stream, attribute.second);
            stream << '"';
        }
    }
    stream << '>';
    WriteEscaped(stream, node.GetValue());
}

}  // namespace

VnDocument::VnDocument()
{
    SetHead(std::string());
}

VnDocument::~VnDocument()
{
    delete pRoot;
}

void VnDocument::SetHead(const std::string& head)
{
    strHead = head.empty() ? std::string(kDefaultHead) : head;
}

void VnDocument::Clear()
{
    if (!pRoot)
        return;
    strHead.clear();
    delete pRoot;
    pRoot = nullptr;
}

void VnDocument::Load(std::istream& stream)
{
    XmlPullParser parser(stream);
    parser.setFeature(XmlPullParser::FEATURE_PROCESS_NAMESPACES, true);

    // An element is only placed once it is known whether it is a leaf (its end
    // tag comes next) or has children (a start tag comes next). Until then it
    // is `pending`, owned here, so that a parse failure frees it.
    auto pending = std::make_unique<VnNode>();
    VnNode* current = nullptr;
    std::string text, run;
    bool bHasText = false, bInRun = false;

    // Where a placed element goes. After the root element has ended, current
    // is null; a further top-level element, which the parser lets pass, goes
    // under the root rather than nowhere.
    auto place = [&](std::unique_ptr<VnNode> node) -> VnNode* {
        VnNode* placed = node.release();
        if (!pRoot)
            pRoot = placed;
        else
            (current ? current : pRoot)->AddChild(placed);
        return placed;
    };

    while (parser.getEventType() != XmlPullParser::END_DOCUMENT) {
        const int type = parser.getEventType();
        // Each entity is an event of its own. A run of them and of text is
        // one text, taken when the run ends, so that a value written with
        // entities reads back whole.
        if (bInRun && type != XmlPullParser::TEXT && type != XmlPullParser::ENTITY_REF) {
            bInRun = false;
            if (!run.empty()) {
                text = FilterText(run);
                if (!text.empty())
                    bHasText = true;
            }
        }
        switch (type) {
        case XmlPullParser::START_TAG:
            if (!parser.getName().empty()) {
                if (!pending->GetName().empty()) {
                    current = place(std::move(pending));
                    pending = std::make_unique<VnNode>();
                }
                pending->SetName(parser.getName());
                for (int i = 0; i < parser.getAttributeCount(); ++i)
                    pending->SetAttribute(parser.getAttributeName(i), parser.getAttributeValue(i));
            }
            break;
        case XmlPullParser::END_TAG:
            if (!pending->GetName().empty()) {
                if (bHasText)
                    pending->SetValue(text);
                bHasText = false;
                VnNode* leaf = place(std::move(pending));
                if (pRoot == leaf)
                    current = leaf;
                pending = std::make_unique<VnNode>();
            } else if (current) {
                current = current->GetParent();
            }
            break;
        case XmlPullParser::TEXT:
        case XmlPullParser::ENTITY_REF:
            if (!bInRun)
                run.clear();
            run += parser.getText();
            bInRun = true;
            break;
        case XmlPullParser::CDSECT:
            if (!parser.getText().empty())
                pending->SetValue("CDATA: " + FilterText(parser.getText()));
            break;
        case XmlPullParser::DOCDECL:
            if (!parser.getText().empty())
                pending->SetValue("DOCTYPE: " + FilterText(parser.getText()));
            break;
        default:
            break;
        }
        parser.nextToken();
    }

    if (!parser.getInputVersion().empty() && !parser.getInputEncoding().empty())
        SetHead("<?xml version='" + parser.getInputVersion() + "' encoding='" + parser.getInputEncoding() +
                "'?>");
    else
        SetHead(std::string());
}

void VnDocument::Write(std::ostream& stream, const std::string& indent) const
{
    if (!pRoot)
        return;
    const bool lines = !indent.empty();
    stream << strHead;
    if (lines)
        stream << '\n';

    // The closing tag of a node is written by its parent: a leaf closes on
    // its own line, an element with children on a line of its own. The walk
    // keeps its own stack of open elements, each with the copy of its child
    // list and the next child to write.
    struct Frame {
        std::vector<VnNode*> children;
        size_t next;
    };
    std::vector<Frame> open;
    WriteStartTag(stream, *pRoot);
    open.push_back(Frame{pRoot->GetChildren(), 0});
    while (!open.empty()) {
        Frame& frame = open.back();
        const size_t childLevel = open.size();
        if (frame.next < frame.children.size()) {
            VnNode* child = frame.children[frame.next++];
            if (lines) {
                stream << '\n';
                WriteIndent(stream, indent, childLevel);
            }
            WriteStartTag(stream, *child);
            open.push_back(Frame{child->GetChildren(), 0});
            continue;
        }
        const bool hadChildren = !frame.children.empty();
        open.pop_back();
        if (open.empty())
            break;
        // The element just finished stands at the level of the frame popped.
        const size_t level = childLevel - 1;
        const VnNode* finished = open.back().children[open.back().next - 1];
        if (lines && hadChildren) {
            stream << '\n';
            WriteIndent(stream, indent, level);
        }
        stream << "</" << finished->GetName() << '>';
    }

    if (lines)
        stream << '\n' << "</" << pRoot->GetName() << ">\n";
    else
        stream << "</" << pRoot->GetName() << '>';
}
