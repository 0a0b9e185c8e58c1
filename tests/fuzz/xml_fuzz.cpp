// libFuzzer target for the XML reader and the document tree, built natively
// (see run-xml-fuzz). The first byte chooses the parser's mode, the rest is the
// document. Every input must end in an event stream or an
// XmlPullParserException; anything else (a crash, a sanitizer report, a leak,
// a hang that trips the fuzzer's time-out) is a fault.
#include "xml/vn_document.h"
#include "xml/xml_pull_parser.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace {

void Check(bool condition)
{
    if (!condition)
        std::abort();
}

// Walks the events as a caller would, touching what each event allows.
void DriveParser(const std::string& document, uint8_t mode)
{
    std::istringstream stream(document);
    XmlPullParser parser(stream);
    parser.setFeature(XmlPullParser::FEATURE_RELAXED, (mode & 1) != 0);
    parser.setFeature(XmlPullParser::FEATURE_PROCESS_NAMESPACES, (mode & 2) != 0);
    try {
        for (int type = 0; type != XmlPullParser::END_DOCUMENT;) {
            type = (mode & 4) ? parser.nextToken() : parser.next();
            Check(type >= XmlPullParser::START_DOCUMENT && type <= XmlPullParser::DOCDECL && parser.getDepth() >= 0);
            int start = 0, length = 0;
            const char* chars = parser.getTextCharacters(start, length);
            Check(chars ? static_cast<size_t>(length) == parser.getText().size() : parser.getText().empty());
            (void)parser.getPositionDescription();
            if (type == XmlPullParser::START_TAG) {
                (void)parser.isEmptyElementTag();
                for (int i = 0; i < parser.getAttributeCount(); ++i)
                    (void)(parser.getAttributeNamespace(i) + parser.getAttributePrefix(i) +
                           parser.getAttributeValue(nullptr, parser.getAttributeName(i).c_str()));
                for (int d = 0; d <= parser.getDepth(); ++d)
                    Check(parser.getNamespaceCount(d) >= 0);
            }
            if (type == XmlPullParser::TEXT || type == XmlPullParser::IGNORABLE_WHITESPACE)
                (void)parser.isWhitespace();
        }
    } catch (const XmlPullParserException&) {
        // The described failure of a bad document.
    }
}

// Every node below the root knows its parent, and the search finds each name.
void CheckTree(VnNode* root)
{
    Check(root->GetParent() == nullptr);
    std::vector<VnNode*> stack{root};
    for (size_t i = 0; i < stack.size(); ++i) {
        Check(root->FindNode(stack[i]->GetName()) != nullptr);
        for (VnNode* child : stack[i]->GetChildren()) {
            Check(child->GetParent() == stack[i]);
            stack.push_back(child);
        }
    }
}

// A loaded tree is written and read back; the writer does no escaping, so
// its output need not read back, but it must never take the reader down.
void DriveDocument(const std::string& document)
{
    VnDocument loaded;
    std::istringstream in(document);
    try {
        loaded.Load(in);
    } catch (const XmlPullParserException&) {
        // A partial tree stays in the document and is written all the same.
    }
    if (loaded.IsEmpty())
        return;
    CheckTree(loaded.GetRoot());
    for (const char* indent : {"", "\t"}) {
        std::ostringstream out;
        loaded.Write(out, indent);
        VnDocument again;
        std::istringstream back(out.str());
        try {
            again.Load(back);
        } catch (const XmlPullParserException&) {
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string document(reinterpret_cast<const char*>(data) + 1, size - 1);
    DriveParser(document, data[0]);
    DriveDocument(document);
    return 0;
}
