// libFuzzer target for the XML reader and the document tree (see run-fuzz):
// the first byte chooses the parser's mode, the rest is the document. Anything
// but events or an XmlPullParserException (crash, sanitizer report, leak, hang) is a fault.
#include "xml/vn_document.h"
#include "xml/xml_pull_parser.h"
#include "tests/fuzz/fuzz_check.h"

namespace {

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
            if (type != XmlPullParser::START_TAG)
                continue;
            (void)parser.isEmptyElementTag();
            for (int i = 0; i < parser.getAttributeCount(); ++i)
                (void)(parser.getAttributeNamespace(i) + parser.getAttributePrefix(i) +
                       parser.getAttributeValue(nullptr, parser.getAttributeName(i).c_str()));
            for (int d = 0; d <= parser.getDepth(); ++d)
                Check(parser.getNamespaceCount(d) >= 0);
        }
    } catch (const XmlPullParserException&) {
        // The described failure of a bad document.
    }
}

// A loaded tree, partial after a failure, is sound, and is written and read back.
void DriveDocument(const std::string& document)
{
    VnDocument loaded;
    std::istringstream in(document);
    try {
        loaded.Load(in);
    } catch (const XmlPullParserException&) {
    }
    if (loaded.IsEmpty())
        return;
    VnNode* root = loaded.GetRoot();
    Check(root->GetParent() == nullptr);
    std::vector<VnNode*> nodes{root};
    for (size_t i = 0; i < nodes.size(); ++i) {
        Check(root->FindNode(nodes[i]->GetName()) != nullptr);
        for (VnNode* child : nodes[i]->GetChildren()) {
            Check(child->GetParent() == nodes[i]);
            nodes.push_back(child);
        }
    }
    for (const char* indent : {"", "\t"}) {
        std::ostringstream out;
        loaded.Write(out, indent);
        std::istringstream back(out.str());
        try {
            VnDocument().Load(back);
        } catch (const XmlPullParserException&) {  // values are escaped, but a head or a name may still not read back
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 0) {
        const std::string document(reinterpret_cast<const char*>(data) + 1, size - 1);
        DriveParser(document, data[0]);
        DriveDocument(document);
    }
    return 0;
}
