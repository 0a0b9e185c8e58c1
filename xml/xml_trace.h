// The platform-dependent corner of the XML code: where and how the trace of a
// parse failure is written. Everything else in xml/ is plain standard C++.
#pragma once

#include <string>

namespace vn_xml {

// The file name of the trace, opened in the process's current directory.
constexpr const char* kExceptionLogName = "XmlPullException.log";

// Writes the two lines "Exception occurred while parsing document" and
// "Exception : <message> during :<state> at <line>:<column>" to standard output,
// then appends "<local time>\t<message>  <event:<state>>" and a blank line to
// the exception log. The time and its tab are left out when the time can't be
// formed in 32 characters; the entry is left out when the file can't be opened.
// Never fails towards the caller: it runs inside an exception's constructor.
void WriteParseExceptionTrace(const std::string& message, const std::string& state, int line,
                              int column) noexcept;

}  // namespace vn_xml
