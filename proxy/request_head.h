// What the local proxy reads of a client's request before the web request
// takes over, and how it frames the response back: plain text work that
// needs no platform, so that tests drive it directly.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

// The head of a client's request as it is collected, read after read. The
// parsing is plain on purpose: it looks for method names and line ends, and
// for nothing else.
struct CVnRequestHead {
    // The head so far; once whole, without its blank line (one line end
    // stays behind the last header).
    std::string m_strHead;
    // Body bytes that came in the same reads as the head.
    std::vector<char> m_bodyFragment;
    // Body bytes seen so far.
    DWORD m_bodyReceived = 0;

    // Takes the bytes of one read: 1 while more is needed, 0 once the head is
    // whole. A read that begins with a method (capitals as written) starts a
    // new head and drops what was collected; a read that does not continues a
    // head that began with one, and is dropped when there is none. The blank
    // line is looked for as "\n\n" first and only then as "\r\n\r\n", so a
    // body holding two line feeds in the same read as a CR-LF head ends the
    // head early. When the head is whole the buffer is consumed: it is freed
    // and `size` becomes 0.
    int ParseRequestHead(std::unique_ptr<char[]>& buffer, DWORD& size);
};

namespace vn_proxy {

enum TRequestLineResult { RequestLineOk = 0, RequestLineNoHost = 1, RequestLineNoBlank = 2 };

// Splits a request line into the method (before the first blank) and the URL
// (what follows, cut at the first "HTTP" in capitals and trimmed). A URL that
// begins with "/" gets "http://" and the Host value, whatever the scheme the
// client meant; `host` is null when the request has no Host line.
TRequestLineResult SplitRequestLine(const std::string& line, const char* host, std::string& method, std::string& url);

// How a response body goes back to the client. The platform hands the proxy
// the body without its chunk framing, while the response's headers, which
// pass through unchanged, may still announce chunks; and a body that the
// server ended by closing has no other end that the client could see.
enum TBodyFraming {
    FramingAsIs = 0,        // a Content-Length
    FramingChunked = 1,     // framed again as chunks, one for each piece
    FramingUntilClose = 2,  // the client's connection is closed at the end
    FramingNone = 3         // no body at all: HEAD, 1xx, 204, 304
};
TBodyFraming ResponseFraming(const std::string& method, LONG status, bool hasContentLength,
                             const std::string& transferEncoding);

// "<size in hex>\r\n<bytes>\r\n": one piece as a chunk.
std::unique_ptr<BYTE[]> FrameChunk(const BYTE* data, LONG size, LONG& framedSize);

}  // namespace vn_proxy
