// XmlPullParser: construction, the event loop that callers drive, and the
// accessors. The reading of characters and constructs is in
// xml_pull_parser_scan.cpp.
#include "xml/xml_pull_parser.h"

namespace {

// The namespace names that the Namespaces in XML recommendation binds to the
// prefixes "xml" and "xmlns".
constexpr const char* kXmlNamespace = "http://www.w3.org/XML/1998/namespace";
constexpr const char* kXmlnsNamespace = "http://www.w3.org/2000/xmlns/";

// Every feature name of the XmlPull standard starts with this.
constexpr const char* kFeaturePrefix = "http://xmlpull.org/v1/doc/";

constexpr const char* kStateNames[] = {
    "START_DOCUMENT", "END_DOCUMENT",         "START_TAG",
    "END_TAG",        "TEXT",                 "CDSECT",
    "ENTITY_REF",     "IGNORABLE_WHITESPACE", "PROCESSING_INSTRUCTION",
    "COMMENT",        "DOCDECL",
};
constexpr int kStateCount = static_cast<int>(sizeof(kStateNames) / sizeof(kStateNames[0]));

}  // namespace

XmlPullParser::XmlPullParser(std::istream& stream) : m_pStream(&stream)
{
    commonInit();
    initBuf();
}

XmlPullParser::XmlPullParser()
{
    // No input and no buffers: they grow from nothing when needed, and the
    // empty entity table is what tells defineEntityReplacementText that no
    // input was given.
    commonInit();
}

XmlPullParser::XmlPullParser(const XmlPullParser& other) = default;

XmlPullParser::~XmlPullParser() = default;

XmlPullParser& XmlPullParser::operator=(const XmlPullParser&)
{
    return *this;
}

void XmlPullParser::commonInit()
{
    m_nLine = 1;
    m_nColumn = 0;
    m_nType = START_DOCUMENT;
    m_nDepth = 0;
    m_nAttributeCount = -1;
    m_bDegenerated = false;
    m_bToken = false;
    m_bWhitespace = true;
    m_bUnresolved = false;
    m_bRelaxed = false;
    m_bProcessNsp = false;
    m_strVersion.clear();
    m_strEncoding.clear();
    m_bStandalone = false;
    m_nPeekCount = 0;
    m_bWasCR = false;
    m_nSrcPos = 0;
    m_nSrcCount = 0;
    m_nTxtPos = 0;
    m_strUnexpectedEof = "Unexpected EOF";
    m_strIllegalType = "wrong Event Type";
}

void XmlPullParser::initBuf()
{
    m_srcBuf.assign(8192, 0);
    m_txtBuf.assign(256, 0);
    m_elementStack.assign(16, std::string());
    m_nspStack.assign(16, std::string());
    m_nspCounts.assign(8, 0);
    m_attributes.assign(16, std::string());
    m_entityTable = {"'", ">", "<", "\"", "&"};
}

std::string XmlPullParser::state(int type) const
{
    if (type < 0 || type >= kStateCount)
        return "Illegal state";
    return kStateNames[type];
}

void XmlPullParser::exception(const std::string& message) const
{
    throw XmlPullParserException(message, state(m_nType), m_nLine, m_nColumn);
}

bool XmlPullParser::isProp(const std::string& n1, bool prop, const std::string& n2) const
{
    if (n1.compare(0, std::char_traits<char>::length(kFeaturePrefix), kFeaturePrefix) != 0)
        return false;
    // Features live under ".../features.html#", properties under
    // ".../properties.html#"; what follows is the short name.
    const std::string::size_type at = prop ? 42 : 40;
    if (n1.size() < at)
        return false;
    return n1.compare(at, std::string::npos, n2) == 0;
}

int XmlPullParser::next()
{
    m_nTxtPos = 0;
    m_bWhitespace = true;
    m_bToken = false;
    int minType = 9999;
    // Text, CDATA and entities join into one event; an event of 6 or more on
    // its own (an entity first of all, a comment, a processing instruction, a
    // document type) is read past until something of lower rank turns up.
    do {
        nextImpl();
        if (m_nType < minType)
            minType = m_nType;
    } while (minType >= ENTITY_REF || (minType >= TEXT && peekType() >= TEXT));
    m_nType = minType > TEXT ? TEXT : minType;
    return m_nType;
}

int XmlPullParser::nextToken()
{
    m_nTxtPos = 0;
    m_bWhitespace = true;
    m_bToken = true;
    nextImpl();
    return m_nType;
}

int XmlPullParser::nextTag()
{
    next();
    if (m_nType == TEXT && m_bWhitespace)
        next();
    if (m_nType != END_TAG && m_nType != START_TAG && m_nType != END_DOCUMENT)
        exception("unexpected type");
    return m_nType;
}

std::string XmlPullParser::nextText()
{
    if (m_nType != START_TAG)
        exception("precondition: START_TAG");
    next();
    std::string result;
    if (m_nType == TEXT) {
        result = getText();
        next();
    }
    if (m_nType != END_TAG)
        exception("END_TAG expected");
    return result;
}

void XmlPullParser::require(int type, const char* ns, const char* name) const
{
    if (type != m_nType || (ns && m_strNamespace != ns) || (name && m_strName != name))
        exception("expected: " + state(type) + " {" + (ns ? ns : "") + "}" + (name ? name : ""));
}

void XmlPullParser::skipSubTree()
{
    require(START_TAG, nullptr, nullptr);
    int level = 1;
    while (level > 0) {
        const int type = next();
        if (type == END_TAG)
            --level;
        else if (type == START_TAG)
            ++level;
        else if (type == END_DOCUMENT)
            // The input ended inside the subtree; reading on would never end.
            exception(m_strUnexpectedEof);
    }
}

int XmlPullParser::getEventType() const
{
    return m_nType;
}

int XmlPullParser::getDepth() const
{
    return m_nDepth;
}

int XmlPullParser::getLineNumber() const
{
    return m_nLine;
}

int XmlPullParser::getColumnNumber() const
{
    return m_nColumn;
}

std::string XmlPullParser::getName() const
{
    return m_strName;
}

std::string XmlPullParser::getPrefix() const
{
    return m_strPrefix;
}

std::string XmlPullParser::getNamespace() const
{
    return m_strNamespace;
}

std::string XmlPullParser::getText() const
{
    if (m_nType < TEXT || (m_nType == ENTITY_REF && m_bUnresolved))
        return std::string();
    return get(0);
}

const char* XmlPullParser::getTextCharacters(int& start, int& length) const
{
    if (m_nType < TEXT || (m_nType == ENTITY_REF && m_bUnresolved)) {
        start = -1;
        length = -1;
        return nullptr;
    }
    start = 0;
    length = m_nTxtPos;
    return m_txtBuf.empty() ? "" : m_txtBuf.data();
}

bool XmlPullParser::isWhitespace() const
{
    if (m_nType != TEXT && m_nType != IGNORABLE_WHITESPACE && m_nType != CDSECT)
        exception(m_strIllegalType);
    return m_bWhitespace;
}

bool XmlPullParser::isEmptyElementTag() const
{
    if (m_nType != START_TAG)
        exception(m_strIllegalType);
    return m_bDegenerated;
}

int XmlPullParser::getAttributeCount() const
{
    return m_nAttributeCount;
}

std::string XmlPullParser::getAttributeName(int index) const
{
    if (index < 0 || index >= m_nAttributeCount)
        exception("IndexOutOfBoundsException()");
    return m_attributes[(index << 2) + 2];
}

std::string XmlPullParser::getAttributeNamespace(int index) const
{
    if (index < 0 || index >= m_nAttributeCount)
        exception("IndexOutOfBoundsException()");
    return m_attributes[index << 2];
}

std::string XmlPullParser::getAttributePrefix(int index) const
{
    if (index < 0 || index >= m_nAttributeCount)
        exception("IndexOutOfBoundsException()");
    return m_attributes[(index << 2) + 1];
}

std::string XmlPullParser::getAttributeValue(int index) const
{
    if (index < 0 || index >= m_nAttributeCount)
        exception("IndexOutOfBoundsException()");
    return m_attributes[(index << 2) + 3];
}

std::string XmlPullParser::getAttributeValue(const char* ns, const char* name) const
{
    if (!name)
        return std::string();
    for (int i = 0; i < m_nAttributeCount; ++i) {
        const int at = i << 2;
        if (m_attributes[at + 2] == name && (!ns || m_attributes[at] == ns))
            return m_attributes[at + 3];
    }
    return std::string();
}

std::string XmlPullParser::getAttributeType(int) const
{
    return "CDATA";
}

bool XmlPullParser::isAttributeDefault(int) const
{
    return false;
}

std::string XmlPullParser::getNamespace(const std::string& prefix) const
{
    if (prefix == "xml")
        return kXmlNamespace;
    if (prefix == "xmlns")
        return kXmlnsNamespace;
    const int count = m_nDepth < static_cast<int>(m_nspCounts.size()) ? m_nspCounts[m_nDepth] : 0;
    for (int i = (count << 1) - 2; i >= 0; i -= 2) {
        if (m_nspStack[i] == prefix)
            return m_nspStack[i + 1];
    }
    return std::string();
}

int XmlPullParser::getNamespaceCount(int depth) const
{
    if (depth > m_nDepth || depth < 0)
        exception("IndexOutOfBoundsException");
    return depth < static_cast<int>(m_nspCounts.size()) ? m_nspCounts[depth] : 0;
}

std::string XmlPullParser::getNamespacePrefix(int pos) const
{
    if (pos < 0 || (pos << 1) >= static_cast<int>(m_nspStack.size()))
        exception("IndexOutOfBoundsException");
    return m_nspStack[pos << 1];
}

std::string XmlPullParser::getNamespaceUri(int pos) const
{
    if (pos < 0 || (pos << 1) + 1 >= static_cast<int>(m_nspStack.size()))
        exception("IndexOutOfBoundsException");
    return m_nspStack[(pos << 1) + 1];
}

std::string XmlPullParser::getInputEncoding() const
{
    return m_strEncoding;
}

std::string XmlPullParser::getInputVersion() const
{
    return m_strVersion;
}

bool XmlPullParser::getStandalone() const
{
    return m_bStandalone;
}

bool XmlPullParser::getFeature(const std::string& name) const
{
    if (name == FEATURE_PROCESS_NAMESPACES)
        return m_bProcessNsp;
    if (isProp(name, false, "relaxed"))
        return m_bRelaxed;
    return false;
}

void XmlPullParser::setFeature(const std::string& name, bool value)
{
    if (name == FEATURE_PROCESS_NAMESPACES)
        m_bProcessNsp = value;
    else if (isProp(name, false, "relaxed"))
        m_bRelaxed = value;
    else
        exception("unsupported feature: " + name);
}

void XmlPullParser::defineEntityReplacementText(const std::string& name, const std::string& text)
{
    if (m_entityTable.empty())
        exception("entity replacement text must be defined after setInput!");
    static const char* const kNames[] = {"apos", "gt", "lt", "quot", "amp"};
    for (int i = 0; i < 5; ++i) {
        if (name == kNames[i]) {
            m_entityTable[i] = text;
            return;
        }
    }
}

std::string XmlPullParser::getPositionDescription() const
{
    std::string description = m_nType >= 0 && m_nType < kStateCount ? state(m_nType) : "Unknown Event";
    description += ' ';
    if (m_nType == START_TAG || m_nType == END_TAG) {
        if (m_bDegenerated)
            description += "(empty) ";
        description += '<';
        if (m_nType == END_TAG)
            description += '/';
        if (!m_strPrefix.empty())
            description += "{" + m_strNamespace + "}" + m_strPrefix + ":";
        description += m_strName;
        for (int i = 0; i < m_nAttributeCount; ++i) {
            const int at = i << 2;
            description += ' ';
            if (!m_attributes[at + 1].empty())
                description += "{" + m_attributes[at] + "}" + m_attributes[at + 1] + ":";
            description += m_attributes[at + 2] + "='" + m_attributes[at + 3] + "'";
        }
        description += '>';
    } else if (m_nType == IGNORABLE_WHITESPACE) {
        // White space says nothing a human could use.
    } else if (m_nType != TEXT) {
        description += getText();
    } else if (m_bWhitespace) {
        description += "(whitespace)";
    } else {
        std::string text = getText();
        if (text.size() > 16)
            text = text.substr(0, 16) + "...";
        description += text;
    }
    description += " @" + std::to_string(m_nLine) + ":" + std::to_string(m_nColumn);
    return description;
}
