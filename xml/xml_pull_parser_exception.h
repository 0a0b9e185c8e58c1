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
    XmlPullParserException(const XmlPullParserException& other);
    ~XmlPullParserException() override;
    XmlPullParserException& operator=(const XmlPullParserException& other);

    // Out of line like everything else here, so that all of it is exported.
    const std::string& getMessage() const;
    // The name of the parser's event at the time of the failure.
    const std::string& getState() const;
    int getLineNumber() const;
    int getColumnNumber() const;

    const char* what() const noexcept override;

private:
    std::string m_strMessage;
    std::string m_strState;
    int m_nLine;
    int m_nColumn;
};
