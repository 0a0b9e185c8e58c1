// The one failure of the XML pull parser. Every parse error is thrown as this
// class, by value; the parser that threw it is of no further use.
#pragma once

#include "xml/xml_export.h"

#include <exception>
#include <string>

class VN_XML_EXPORT XmlPullParserException : public std::exception {
public:
    // Besides holding the values, the constructor leaves the trace that every
    // parse failure is known by: two lines on standard output and an entry in
    // "XmlPullException.log" in the current directory. Copies leave no trace,
    // so throwing by value writes exactly one entry.
    XmlPullParserException(const std::string& message, const std::string& state, int line, int column);
    XmlPullParserException(const XmlPullParserException& other) = default;
    ~XmlPullParserException() override;
    XmlPullParserException& operator=(const XmlPullParserException& other);

    const std::string& getMessage() const { return m_strMessage; }
    // The name of the parser's event at the time of the failure.
    const std::string& getState() const { return m_strState; }
    int getLineNumber() const { return m_nLine; }
    int getColumnNumber() const { return m_nColumn; }

    const char* what() const noexcept override { return m_strMessage.c_str(); }

private:
    std::string m_strMessage;
    std::string m_strState;
    int m_nLine;
    int m_nColumn;
};
