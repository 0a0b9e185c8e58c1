// Small operations on a serialised header block.
#pragma once

#include <functional>
#include <string>

namespace vn_http {

// The block without its "Content-Length" line: the first occurrence of the
// name, in any capitals, up to and including the next line feed.
std::string CutContentLength(const std::string& headers);

// True when the block begins with a status line. Wine reads a connection that
// closed without an answer as "200 OK" with no header at all.
inline bool HasStatusLine(const std::string& headers) { return headers.compare(0, 5, "HTTP/") == 0; }

// The value of an Authorization or Proxy-Authorization header that answers
// a Basic challenge: "Basic " and the Base64 form of "login:password".
std::string BasicCredentials(const std::string& login, const std::string& password);

// The text without the white space of the classic locale at either end.
std::string TrimWhiteSpace(const std::string& text);

// Reads a raw block of header lines, such as the platform's raw header text.
// A line ends at a CR or an LF, and a run of them ends it once. The first
// line, trimmed, goes to statusLine; each later line goes to onPair as a name,
// not trimmed, and a trimmed value. A last line without a line end is not
// taken, and a block that begins with one gives nothing, so statusLine then
// keeps what it held. A line without a colon takes the next colon further on:
// its name runs across line ends up to that colon, and the value is all that
// follows it to the block's end. With no colon left the name is the whole
// rest of the block and the value the block from its start to the end of that line.
void SplitRawHeaders(const std::string& block, std::string& statusLine,
                     const std::function<void(const std::string& name, const std::string& value)>& onPair);

}  // namespace vn_http
