// XmlPullParser: reading characters and the constructs built from them. Every
// loop here consumes input or ends at the end of input, so no document, however
// broken, keeps the reader from coming to an end; and nothing here recurses, so
// the depth of a document costs memory and never stack.
#include "xml/xml_pull_parser.h"

#include <climits>
#include <cstdlib>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace {

// Grows a buffer of texts so that it holds at least `required` entries, with
// some room to spare, as the parser's buffers all do.
void EnsureCapacity(std::vector<std::string>& buffer, int required)
{
    if (static_cast<int>(buffer.size()) < required)
        buffer.resize(static_cast<size_t>(required) + 16);
}

bool IsNameStart(int c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' || c >= 0xC0;
}

bool IsNamePart(int c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == ':' || c == '.' || c >= 0xB7;
}

// The value of a character reference as the runtime's conversion gives it:
// digits at the start count, no digits give 0, and a value beyond the range of
// an int is held at its limit, so the result is the same wherever long is wide.
int CharacterReferenceValue(const std::string& code)
{
    const bool hex = code.size() > 1 && code[1] == 'x';
    const long value = std::strtol(code.c_str() + (hex ? 2 : 1), nullptr, hex ? 16 : 10);
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return static_cast<int>(value);
}

}  // namespace

int XmlPullParser::peekbuf(int pos)
{
    while (pos >= m_nPeekCount) {
        int nw;
        if (m_nSrcPos < m_nSrcCount) {
            nw = static_cast<signed char>(m_srcBuf[m_nSrcPos++]);
        } else {
            m_nSrcPos = 0;
            m_nSrcCount = 0;
            if (m_pStream && !m_srcBuf.empty()) {
                m_pStream->read(m_srcBuf.data(), static_cast<std::streamsize>(m_srcBuf.size()));
                m_nSrcCount = static_cast<int>(m_pStream->gcount());
            }
            if (m_nSrcCount <= 0) {
                nw = -1;
            } else {
                // The byte is taken as a signed char: 0xFF becomes -1, the end.
                nw = static_cast<signed char>(m_srcBuf[0]);
                m_nSrcPos = 1;
            }
        }
        // Line ends are folded: CR and CR LF both read as one LF.
        if (nw == '\r') {
            m_bWasCR = true;
            m_peek[m_nPeekCount++] = '\n';
        } else {
            if (nw == '\n') {
                if (!m_bWasCR)
                    m_peek[m_nPeekCount++] = '\n';
            } else {
                m_peek[m_nPeekCount++] = nw;
            }
            m_bWasCR = false;
        }
    }
    return m_peek[pos];
}

int XmlPullParser::read()
{
    int result;
    if (m_nPeekCount == 0) {
        result = peekbuf(0);
    } else {
        result = m_peek[0];
        m_peek[0] = m_peek[1];
    }
    m_nPeekCount--;
    m_nColumn++;
    if (result == '\n') {
        m_nLine++;
        m_nColumn = 1;
    }
    return result;
}

void XmlPullParser::read(char c)
{
    const int actual = read();
    if (actual != c)
        exception(std::string("expected: '") + c + "' actual: '" + static_cast<char>(actual) + "'");
}

void XmlPullParser::skip()
{
    for (;;) {
        const int c = peekbuf(0);
        if (c > ' ' || c == -1)
            break;
        read();
    }
}

void XmlPullParser::push(int c)
{
    m_bWhitespace &= c <= ' ';
    if (m_nTxtPos == static_cast<int>(m_txtBuf.size()))
        m_txtBuf.resize(static_cast<size_t>(m_nTxtPos) * 4 / 3 + 4);
    m_txtBuf[m_nTxtPos++] = static_cast<char>(c);
}

std::string XmlPullParser::get(int pos) const
{
    if (pos >= m_nTxtPos)
        return std::string();
    return std::string(m_txtBuf.data() + pos, static_cast<size_t>(m_nTxtPos - pos));
}

std::string XmlPullParser::readName()
{
    // Names are collected at the end of the text buffer and taken off again.
    const int pos = m_nTxtPos;
    int c = peekbuf(0);
    if (!IsNameStart(c))
        exception("name expected");
    do {
        push(read());
        c = peekbuf(0);
    } while (IsNamePart(c));
    std::string result = get(pos);
    m_nTxtPos = pos;
    return result;
}

int XmlPullParser::peekType()
{
    switch (peekbuf(0)) {
    case -1:
        return END_DOCUMENT;
    case '&':
        return ENTITY_REF;
    case '<':
        switch (peekbuf(1)) {
        case '/':
            return END_TAG;
        case '?':
        case '!':
            return LEGACY;
        default:
            return START_TAG;
        }
    default:
        return TEXT;
    }
}

void XmlPullParser::nextImpl()
{
    // An end tag keeps its element counted until the next event. A stray end
    // tag that relaxed mode let pass at depth 0 has nothing to close.
    if (m_nType == END_TAG && m_nDepth > 0)
        m_nDepth--;
    for (;;) {
        m_nAttributeCount = -1;
        if (m_bDegenerated) {
            m_bDegenerated = false;
            m_nType = END_TAG;
            return;
        }
        m_strName.clear();
        m_strPrefix.clear();
        m_strNamespace.clear();

        m_nType = peekType();
        switch (m_nType) {
        case END_DOCUMENT:
            return;
        case START_TAG:
            parseStartTag(false);
            return;
        case END_TAG:
            parseEndTag();
            return;
        case TEXT:
            pushText('<', !m_bToken);
            if (m_nDepth == 0 && m_bWhitespace)
                m_nType = IGNORABLE_WHITESPACE;
            return;
        case ENTITY_REF:
            pushEntity();
            return;
        default:
            m_nType = parseLegacy(m_bToken);
            if (m_nType != XML_DECL)
                return;
            // The head is no event of its own: read on.
        }
    }
}

void XmlPullParser::parseStartTag(bool head)
{
    if (!head)
        read();
    m_strName = readName();
    m_nAttributeCount = 0;

    for (;;) {
        skip();
        const int c = peekbuf(0);
        if (head) {
            if (c == '?') {
                read();
                read('>');
                return;
            }
        } else if (c == '/') {
            m_bDegenerated = true;
            read();
            skip();
            read('>');
            break;
        } else if (c == '>') {
            read();
            break;
        }
        if (c == -1)
            exception(m_strUnexpectedEof);

        std::string attrName = readName();
        if (attrName.empty())
            exception("attr name expected");
        skip();
        read('=');
        skip();
        int delimiter = read();
        if (delimiter != '\'' && delimiter != '"') {
            if (!m_bRelaxed)
                exception("<" + m_strName + ">: invalid delimiter: " + static_cast<char>(delimiter));
            // The character read in place of a quote is gone; the value is
            // what follows it, up to a blank or '>'.
            delimiter = ' ';
        }

        const int i = (m_nAttributeCount++) << 2;
        EnsureCapacity(m_attributes, i + 4);
        m_attributes[i].clear();
        m_attributes[i + 1].clear();
        m_attributes[i + 2] = std::move(attrName);

        const int p = m_nTxtPos;
        pushText(delimiter, true);
        m_attributes[i + 3] = get(p);
        m_nTxtPos = p;
        if (delimiter != ' ')
            read();
    }

    const int sp = (m_nDepth++) << 2;
    EnsureCapacity(m_elementStack, sp + 4);
    m_elementStack[sp + 3] = m_strName;
    if (m_nDepth >= static_cast<int>(m_nspCounts.size()))
        m_nspCounts.resize(static_cast<size_t>(m_nDepth) + 4, 0);
    m_nspCounts[m_nDepth] = m_nspCounts[m_nDepth - 1];

    // Equal names are found through a set, so that a tag with very many
    // attributes costs time in proportion to their number.
    std::unordered_set<std::string> names;
    for (int i = 0; i < m_nAttributeCount; ++i) {
        if (!names.insert(m_attributes[(i << 2) + 2]).second)
            exception("Duplicate Attribute: " + m_attributes[(i << 2) + 2]);
    }

    if (m_bProcessNsp)
        adjustNsp();
    else
        m_strNamespace.clear();

    m_elementStack[sp] = m_strNamespace;
    m_elementStack[sp + 1] = m_strPrefix;
    m_elementStack[sp + 2] = m_strName;
}

bool XmlPullParser::adjustNsp()
{
    bool any = false;

    // Declarations leave the attribute list for the namespace stack of this
    // depth; the rest close up in their order.
    int kept = 0;
    for (int i = 0; i < m_nAttributeCount; ++i) {
        const int at = i << 2;
        const std::string& attrName = m_attributes[at + 2];
        const std::string::size_type cut = attrName.find(':');
        const bool declaration = cut == std::string::npos ? attrName == "xmlns"
                                                          : attrName.compare(0, cut, "xmlns") == 0;
        if (!declaration) {
            if (cut != std::string::npos)
                any = true;
            if (kept != i) {
                for (int k = 0; k < 4; ++k)
                    m_attributes[(kept << 2) + k] = std::move(m_attributes[at + k]);
            }
            ++kept;
            continue;
        }
        // "xmlns" declares the default namespace, kept under the empty prefix.
        const bool prefixed = cut != std::string::npos;
        const int j = (m_nspCounts[m_nDepth]++) << 1;
        EnsureCapacity(m_nspStack, j + 2);
        m_nspStack[j] = prefixed ? attrName.substr(cut + 1) : std::string();
        m_nspStack[j + 1] = m_attributes[at + 3];
        if (prefixed && m_attributes[at + 3].empty())
            exception("illegal empty namespace");
    }
    m_nAttributeCount = kept;

    if (any) {
        // The declarations in scope, the newest winning, looked up once per
        // attribute.
        std::unordered_map<std::string, std::string> scope;
        for (int j = 0; j < m_nspCounts[m_nDepth]; ++j)
            scope[m_nspStack[j << 1]] = m_nspStack[(j << 1) + 1];
        auto lookup = [&scope](const std::string& prefix) -> std::string {
            if (prefix == "xml" || prefix == "xmlns")
                return prefix == "xml" ? "http://www.w3.org/XML/1998/namespace" : "http://www.w3.org/2000/xmlns/";
            auto found = scope.find(prefix);
            return found == scope.end() ? std::string() : found->second;
        };

        // From the last attribute to the first; each one is checked against
        // the (namespace, name) pairs of those after it.
        std::unordered_set<std::string> later;
        for (int i = m_nAttributeCount - 1; i >= 0; --i) {
            const int at = i << 2;
            const std::string attrName = m_attributes[at + 2];
            const std::string::size_type cut = attrName.find(':');
            if (cut == 0 && !m_bRelaxed) {
                exception("illegal attribute name: " + attrName);
            } else if (cut != std::string::npos) {
                const std::string attrPrefix = attrName.substr(0, cut);
                const std::string localName = attrName.substr(cut + 1);
                const std::string attrNs = lookup(attrPrefix);
                if (attrNs.empty() && !m_bRelaxed)
                    exception("Undefined Prefix: " + attrPrefix + " in " + getPositionDescription());
                m_attributes[at] = attrNs;
                m_attributes[at + 1] = attrPrefix;
                m_attributes[at + 2] = localName;
                if (!m_bRelaxed && later.count(attrNs + '\0' + localName))
                    exception("Duplicate Attribute: {" + attrNs + "}" + localName);
            }
            later.insert(m_attributes[at] + '\0' + m_attributes[at + 2]);
        }
    }

    const std::string::size_type cut = m_strName.find(':');
    if (cut == 0 && !m_bRelaxed) {
        exception("illegal tag name: " + m_strName);
    } else if (cut != std::string::npos) {
        m_strPrefix = m_strName.substr(0, cut);
        m_strName.erase(0, cut + 1);
    }
    m_strNamespace = getNamespace(m_strPrefix);
    if (m_strNamespace.empty() && !m_strPrefix.empty() && !m_bRelaxed)
        exception("undefined prefix: " + m_strPrefix);
    return any;
}

void XmlPullParser::parseEndTag()
{
    read();  // '<'
    read();  // '/'
    m_strName = readName();
    skip();
    read('>');

    if (m_nDepth == 0) {
        if (m_bRelaxed)
            return;
        exception("element stack empty");
    }
    const int sp = (m_nDepth - 1) << 2;
    if (m_strName != m_elementStack[sp + 3]) {
        if (m_bRelaxed)
            return;
        exception("expected: " + m_elementStack[sp + 3]);
    }
    m_strNamespace = m_elementStack[sp];
    m_strPrefix = m_elementStack[sp + 1];
    m_strName = m_elementStack[sp + 2];
}

void XmlPullParser::pushText(int delimiter, bool resolve)
{
    int next = peekbuf(0);
    while (next != -1 && next != delimiter) {
        // An unquoted value (relaxed mode only) ends at white space or '>'.
        if (delimiter == ' ' && (next <= ' ' || next == '>'))
            break;
        if (next == '&') {
            if (!resolve)
                break;
            pushEntity();
        } else if (next == '\n' && m_nType == START_TAG) {
            read();
            push(' ');
        } else {
            push(read());
        }
        next = peekbuf(0);
    }
}

void XmlPullParser::pushEntity()
{
    read();  // '&'
    const int pos = m_nTxtPos;
    for (;;) {
        const int c = read();
        if (c == ';')
            break;
        if (m_bRelaxed && (c == '<' || c == '&' || c <= ' ')) {
            // Not a reference after all: what was read stays as text.
            if (c != -1)
                push(c);
            return;
        }
        if (c == -1)
            exception(m_strUnexpectedEof);
        push(c);
    }

    const std::string code = get(pos);
    m_nTxtPos = pos;
    if (m_bToken && m_nType == ENTITY_REF)
        m_strName = code;

    if (!code.empty() && code[0] == '#') {
        push(CharacterReferenceValue(code));
        return;
    }

    static const char* const kNames[] = {"apos", "gt", "lt", "quot", "amp"};
    for (size_t i = 0; i < m_entityTable.size() && i < 5; ++i) {
        if (code == kNames[i]) {
            m_bUnresolved = false;
            for (char c : m_entityTable[i])
                push(static_cast<signed char>(c));
            return;
        }
    }
    m_bUnresolved = true;
    if (!m_bToken)
        exception("unresolved: &" + code + ";");
}

int XmlPullParser::parseLegacy(bool push)
{
    const char* required = "";
    int term;
    int result;
    int prev = 0;

    read();  // '<'
    int c = read();
    if (c == '?') {
        if ((peekbuf(0) == 'x' || peekbuf(0) == 'X') && (peekbuf(1) == 'm' || peekbuf(1) == 'M')) {
            if (push) {
                this->push(peekbuf(0));
                this->push(peekbuf(1));
            }
            read();
            read();
            if ((peekbuf(0) == 'l' || peekbuf(0) == 'L') && peekbuf(1) <= ' ') {
                if (m_nLine != 1 || m_nColumn > 4)
                    exception("PI must not start with xml");
                parseStartTag(true);
                if (m_nAttributeCount < 1 || m_attributes[2] != "version")
                    exception("version expected");
                m_strVersion = m_attributes[3];
                int pos = 1;
                if (pos < m_nAttributeCount && m_attributes[2 + 4] == "encoding") {
                    m_strEncoding = m_attributes[3 + 4];
                    pos++;
                }
                if (pos < m_nAttributeCount && m_attributes[4 * pos + 2] == "standalone") {
                    const std::string& value = m_attributes[4 * pos + 3];
                    if (value == "yes")
                        m_bStandalone = true;
                    else if (value == "no")
                        m_bStandalone = false;
                    else
                        exception("illegal standalone value: " + value);
                    pos++;
                }
                if (pos != m_nAttributeCount)
                    exception("illegal xmldecl");
                m_bWhitespace = true;
                m_nTxtPos = 0;
                return XML_DECL;
            }
        }
        term = '?';
        result = PROCESSING_INSTRUCTION;
    } else if (c == '!') {
        if (peekbuf(0) == '-') {
            result = COMMENT;
            required = "--";
            term = '-';
        } else if (peekbuf(0) == '[') {
            result = CDSECT;
            required = "[CDATA[";
            term = ']';
            // A CDATA section is content: its text is kept in both modes.
            push = true;
        } else {
            result = DOCDECL;
            required = "DOCTYPE";
            term = -1;
        }
    } else {
        exception(std::string("illegal: <") + static_cast<char>(c));
    }

    for (const char* r = required; *r; ++r)
        read(*r);

    if (result == DOCDECL) {
        parseDoctype(push);
        return result;
    }

    for (;;) {
        c = read();
        if (c == -1)
            exception(m_strUnexpectedEof);
        if (push)
            this->push(c);
        if ((term == '?' || c == term) && peekbuf(0) == term && peekbuf(1) == '>')
            break;
        prev = c;
    }
    if (term == '-' && prev == '-' && !m_bRelaxed)
        exception("illegal comment delimiter: --->");
    read();
    read();
    // The first of the two end characters was pushed with the text.
    if (push && term != '?')
        m_nTxtPos--;
    return result;
}

void XmlPullParser::parseDoctype(bool push)
{
    // Only apostrophes quote here; a double quote has no effect on the count.
    int nesting = 1;
    bool quoted = false;
    for (;;) {
        const int c = read();
        switch (c) {
        case -1:
            exception(m_strUnexpectedEof);
        case '\'':
            quoted = !quoted;
            break;
        case '<':
            if (!quoted)
                nesting++;
            break;
        case '>':
            if (!quoted && --nesting == 0)
                return;
            break;
        default:
            break;
        }
        if (push)
            this->push(c);
    }
}
