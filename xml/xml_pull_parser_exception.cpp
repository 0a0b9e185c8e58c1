// The parser's exception and the trace it leaves when it is made.
#include "xml/xml_pull_parser_exception.h"

#include "xml/xml_trace.h"

XmlPullParserException::XmlPullParserException(const std::string& message, const std::string& state,
                                               int line, int column)
    : m_strMessage(message), m_strState(state), m_nLine(line), m_nColumn(column)
{
    vn_xml::WriteParseExceptionTrace(m_strMessage, m_strState, m_nLine, m_nColumn);
}

XmlPullParserException::XmlPullParserException(const XmlPullParserException& other) = default;

XmlPullParserException::~XmlPullParserException() = default;

XmlPullParserException& XmlPullParserException::operator=(const XmlPullParserException& other)
{
    std::exception::operator=(other);
    m_strMessage = other.m_strMessage;
    m_strState = other.m_strState;
    m_nLine = other.m_nLine;
    m_nColumn = other.m_nColumn;
    return *this;
}

const std::string& XmlPullParserException::getMessage() const
{
    return m_strMessage;
}

const std::string& XmlPullParserException::getState() const
{
    return m_strState;
}

int XmlPullParserException::getLineNumber() const
{
    return m_nLine;
}

int XmlPullParserException::getColumnNumber() const
{
    return m_nColumn;
}

const char* XmlPullParserException::what() const noexcept
{
    return m_strMessage.c_str();
}
