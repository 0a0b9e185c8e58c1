// XmlPullParser: a small non-validating XML reader of the pull kind. The caller
// asks for the next event and reads what belongs to it.
//
// The reader works on a narrow stream byte by byte and decodes nothing: the
// encoding in the head is reported and has no other effect. Each byte is taken
// as a signed char, and the consequences are kept on purpose: a byte 0xFF reads
// as the end of input, and every byte from 0x80 on counts as white space and can
// neither begin nor continue a name.
//
// A parser belongs to one thread and does not own its stream; the stream must
// outlive it. Every failure is an XmlPullParserException, after which the
// parser is of no use. The class is exported by name from the program file,
// its private operations included, so its member list is part of the binary
// boundary and changes to it are changes to that boundary. For the same
// reason every operation is defined out of line: an inline one would not be
// exported.
#pragma once

#include "xml/xml_export.h"
#include "xml/xml_pull_parser_exception.h"

#include <istream>
#include <string>
#include <vector>

class VN_XML_EXPORT XmlPullParser {
public:
    // Event types of next, nextToken and getEventType.
    enum : int {
        START_DOCUMENT = 0,
        END_DOCUMENT = 1,
        START_TAG = 2,
        END_TAG = 3,
        TEXT = 4,
        CDSECT = 5,
        ENTITY_REF = 6,
        IGNORABLE_WHITESPACE = 7,
        PROCESSING_INSTRUCTION = 8,
        COMMENT = 9,
        DOCDECL = 10,
    };

    // The XmlPull standard's feature of namespace processing, and its feature
    // "relaxed", which lets the reader pass over some faults of hand-written
    // markup.
    static constexpr const char* FEATURE_PROCESS_NAMESPACES =
        "http://xmlpull.org/v1/doc/features.html#process-namespaces";
    static constexpr const char* FEATURE_RELAXED = "http://xmlpull.org/v1/doc/features.html#relaxed";

    // The constructor in use: reads `stream`, which must outlive the parser.
    explicit XmlPullParser(std::istream& stream);
    // A parser with no input: it gives END_DOCUMENT at once, and it has no
    // entity table, so defineEntityReplacementText fails on it.
    XmlPullParser();
    // Copies member by member; the copy reads the same stream.
    XmlPullParser(const XmlPullParser& other);
    ~XmlPullParser();
    // Does nothing and returns the object: a parser is never reassigned.
    XmlPullParser& operator=(const XmlPullParser& other);

    // The next event. Text, CDATA sections and entity references are joined
    // into one TEXT event; comments, processing instructions and the document
    // type are passed over.
    int next();
    // The next event with nothing joined or passed over; entity references
    // in content are reported as their own events and not resolved.
    int nextToken();
    // next, and once more after white text; the result must be START_TAG,
    // END_TAG or END_DOCUMENT.
    int nextTag();
    // At START_TAG: the element's text, leaving the parser on its END_TAG.
    std::string nextText();
    // Fails with "expected: ..." unless the event is `type` and, where given
    // (not null), the namespace and the name match.
    void require(int type, const char* ns, const char* name) const;
    // At START_TAG: reads on to the matching END_TAG.
    void skipSubTree();

    int getEventType() const;
    int getDepth() const;
    int getLineNumber() const;
    int getColumnNumber() const;

    // Of the current element, at START_TAG and END_TAG.
    std::string getName() const;
    std::string getPrefix() const;
    std::string getNamespace() const;

    // The collected text; empty before TEXT and for an unresolved entity.
    std::string getText() const;
    // The same as a pointer into the parser's buffer, valid until the next
    // event; null with -1 and -1 where getText would be empty by rule.
    const char* getTextCharacters(int& start, int& length) const;
    // Only at TEXT, CDSECT and IGNORABLE_WHITESPACE.
    bool isWhitespace() const;
    // Only at START_TAG.
    bool isEmptyElementTag() const;

    // -1 between events.
    int getAttributeCount() const;
    std::string getAttributeName(int index) const;
    std::string getAttributeNamespace(int index) const;
    std::string getAttributePrefix(int index) const;
    std::string getAttributeValue(int index) const;
    // The first attribute with `name` and, if given (not null), the namespace;
    // empty when there is none.
    std::string getAttributeValue(const char* ns, const char* name) const;
    std::string getAttributeType(int index) const;
    bool isAttributeDefault(int index) const;

    // "xml" and "xmlns" give their fixed namespaces, other prefixes the newest
    // declaration in scope; the empty prefix stands for the default namespace.
    std::string getNamespace(const std::string& prefix) const;
    int getNamespaceCount(int depth) const;
    std::string getNamespacePrefix(int pos) const;
    std::string getNamespaceUri(int pos) const;

    std::string getInputEncoding() const;
    std::string getInputVersion() const;
    // Whether the head said standalone="yes".
    bool getStandalone() const;

    bool getFeature(const std::string& name) const;
    void setFeature(const std::string& name, bool value);
    // Replaces the text of one of "apos", "gt", "lt", "quot" and "amp"; other
    // names are ignored.
    void defineEntityReplacementText(const std::string& name, const std::string& text);

    // One line for humans, ending in " @line:column".
    std::string getPositionDescription() const;

private:
    // The internal event values of a construct that starts with "<!" or "<?",
    // and of a head that parseLegacy has consumed.
    enum : int { LEGACY = 999, XML_DECL = 998 };

    bool adjustNsp();
    void commonInit();
    [[noreturn]] void exception(const std::string& message) const;
    std::string get(int pos) const;
    void initBuf();
    bool isProp(const std::string& n1, bool prop, const std::string& n2) const;
    void nextImpl();
    void parseDoctype(bool push);
    void parseEndTag();
    int parseLegacy(bool push);
    void parseStartTag(bool head);
    int peekType();
    int peekbuf(int pos);
    void push(int c);
    void pushEntity();
    void pushText(int delimiter, bool resolve);
    int read();
    void read(char c);
    std::string readName();
    void skip();
    std::string state(int type) const;

    // The input: the stream, the block read from it, and the two characters
    // of look-ahead after line-end folding.
    std::istream* m_pStream = nullptr;
    std::vector<char> m_srcBuf;
    int m_nSrcPos = 0;
    int m_nSrcCount = 0;
    int m_peek[2] = {0, 0};
    int m_nPeekCount = 0;
    bool m_bWasCR = false;

    int m_nLine = 1;
    int m_nColumn = 0;

    // The text being collected, also the scratch space for names.
    std::vector<char> m_txtBuf;
    int m_nTxtPos = 0;

    // The current event.
    int m_nType = START_DOCUMENT;
    bool m_bWhitespace = true;
    bool m_bUnresolved = false;
    bool m_bToken = false;
    bool m_bDegenerated = false;
    std::string m_strNamespace;
    std::string m_strPrefix;
    std::string m_strName;
    // Four texts per attribute: namespace, prefix, name, value.
    int m_nAttributeCount = -1;
    std::vector<std::string> m_attributes;

    // Four texts per open element: namespace, prefix, local name, and the name
    // as it was read, which the end tag must match.
    int m_nDepth = 0;
    std::vector<std::string> m_elementStack;
    // Two texts per declaration (prefix, URI), and the count in scope at each depth.
    std::vector<std::string> m_nspStack;
    std::vector<int> m_nspCounts;

    // The replacement texts of "apos", "gt", "lt", "quot" and "amp", in this order.
    std::vector<std::string> m_entityTable;

    bool m_bRelaxed = false;
    bool m_bProcessNsp = false;
    std::string m_strVersion;
    std::string m_strEncoding;
    bool m_bStandalone = false;

    // The two messages that are held as fixed texts.
    std::string m_strUnexpectedEof;
    std::string m_strIllegalType;
};
