// What the local proxy makes of a client's bytes before the pipeline runs: the head collected read after read, the
// request line split into method and URL, and how a response body is framed back (each piece as one chunk: the
// local proxy's end-to-end test reads chunked bodies through it with curl).
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "proxy/request_head.h"

namespace {

struct THeadCase {
    std::vector<std::string> reads;
    int result;  // of the last read
    std::string head, fragment;
};

TEST(RequestHead, IsCollectedFromReadsThatBeginWithAMethod)
{
    const THeadCase cases[] = {
        {{"GET / HTTP/1.1\r\nHost: a\r\n\r\n"}, 0, "GET / HTTP/1.1\r\nHost: a\r\n", ""},
        {{"GET / HT", "TP/1.1\r\nHost: a\r\n", "\r\n"}, 0, "GET / HTTP/1.1\r\nHost: a\r\n", ""},
        {{"GET / HTTP/1.1\r\n"}, 1, "GET / HTTP/1.1\r\n", ""},
        {{"POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc"}, 0, "POST / HTTP/1.1\r\nContent-Length: 3\r\n", "abc"},
        {{"POST / HTTP/1.1\r\nA: b\r\n\r", "\nxyz"}, 0, "POST / HTTP/1.1\r\nA: b\r\n", "xyz"},
        {{"GET / HTTP/1.0\nHost: a\n\nrest"}, 0, "GET / HTTP/1.0\nHost: a\n", "rest"},
        // Two line feeds are looked for first, even in a body behind a CR-LF head.
        {{"PUT / HTTP/1.1\r\nA: b\r\n\r\nx\n\ny"}, 0, "PUT / HTTP/1.1\r\nA: b\r\n\r\nx\n", "y"},
        // A whole head is continued by a read without a method, but its own CR-LF blank line (it ended at two
        // line feeds) does not end it again: only a blank line that ends in the new read does.
        {{"PUT / HTTP/1.1\r\n\r\nx\n\ny", "zz"}, 1, "PUT / HTTP/1.1\r\n\r\nx\nzz", "y"},
        {{"PUT / HTTP/1.1\r\n\r\nx\n\ny", "z\n\nw"}, 0, "PUT / HTTP/1.1\r\n\r\nx\nz\n", "yw"},
        // A read that begins with a method starts over, also after a whole head and its body's fragment.
        {{"GET /a HTTP/1.1\r\n", "DELETE /b HTTP/1.1\r\n\r\n"}, 0, "DELETE /b HTTP/1.1\r\n", ""},
        {{"POST / HTTP/1.1\r\n\r\nold", "GET /next HTTP/1.1\r\n\r\n"}, 0, "GET /next HTTP/1.1\r\n", ""},
        // Capitals as written, and the whole name in the first read: anything else is dropped.
        {{"get / HTTP/1.1\r\n\r\n"}, 1, "", ""},
        {{"GE", "T / HTTP/1.1\r\n\r\n"}, 1, "", ""},
        {{"\x16\x03\x01 hello", "CONNECT h:443 HTTP/1.1\r\n\r\n"}, 0, "CONNECT h:443 HTTP/1.1\r\n", ""},
    };
    for (const THeadCase& c : cases) {
        CVnRequestHead head;
        int result = -1;
        for (const std::string& read : c.reads) {  // as the connection gets them; a read that completes the head is consumed
            std::unique_ptr<char[]> buffer(new char[read.size() + 1]);
            DWORD size = static_cast<DWORD>(read.copy(buffer.get(), read.size()));
            result = head.ParseRequestHead(buffer, size);
            EXPECT_EQ(result == 0, !buffer && size == 0) << read;
        }
        EXPECT_EQ(std::make_tuple(c.result, c.head, c.fragment, c.result ? head.m_bodyReceived : DWORD(c.fragment.size())),
                  std::make_tuple(result, head.m_strHead, std::string(head.m_bodyFragment.begin(), head.m_bodyFragment.end()),
                                  head.m_bodyReceived)) << c.reads[0];
    }
}

TEST(RequestLine, GivesTheMethodAndAnAbsoluteUrl)
{
    // The request line, the Host header; the result, the method, the URL.
    const std::tuple<const char*, const char*, vn_proxy::TRequestLineResult, std::string, std::string> cases[] = {
        {"GET http://h:1/p?q HTTP/1.1", "other", vn_proxy::RequestLineOk, "GET", "http://h:1/p?q"},
        {"POST /p HTTP/1.1", "h:8", vn_proxy::RequestLineOk, "POST", "http://h:8/p"},
        {"GET  /p  HTTP/1.0", "h", vn_proxy::RequestLineOk, "GET", "http://h/p"},
        {"GET /a/HTTPdoc HTTP/1.1", "h", vn_proxy::RequestLineOk, "GET", "http://h/a/"},
        {"CONNECT h:443 HTTP/1.1", nullptr, vn_proxy::RequestLineOk, "CONNECT", "h:443"},
        {"GET /p HTTP/1.1", nullptr, vn_proxy::RequestLineNoHost, "GET", "/p"},
        {"GET", "h", vn_proxy::RequestLineNoBlank, "", ""},
    };
    for (auto& [line, host, result, method, url] : cases) {
        std::string givenMethod, givenUrl;
        const auto given = vn_proxy::SplitRequestLine(line, host, givenMethod, givenUrl);
        EXPECT_EQ(std::make_tuple(result, method, url), std::make_tuple(given, givenMethod, givenUrl)) << line;
    }
}

TEST(ResponseFraming, FollowsTheMethodTheStatusAndTheHeaders)
{
    // The method, the status, whether a Content-Length came, the Transfer-Encoding; the framing.
    const std::tuple<const char*, LONG, bool, const char*, vn_proxy::TBodyFraming> cases[] = {
        {"HEAD", 200, true, "chunked", vn_proxy::FramingNone}, {"GET", 204, false, "", vn_proxy::FramingNone},
        {"GET", 304, false, "", vn_proxy::FramingNone}, {"GET", 101, false, "", vn_proxy::FramingNone},
        {"GET", 200, true, "", vn_proxy::FramingAsIs}, {"POST", 500, false, "Chunked", vn_proxy::FramingChunked},
        {"GET", 200, false, "", vn_proxy::FramingUntilClose}, {"GET", 200, false, "gzip", vn_proxy::FramingUntilClose},
    };
    for (auto& [method, status, length, coding, framing] : cases)
        EXPECT_EQ(framing, vn_proxy::ResponseFraming(method, status, length, coding)) << method << status;
}

}  // namespace
