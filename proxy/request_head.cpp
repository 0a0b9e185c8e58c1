#include "proxy/request_head.h"

#include <cstdio>
#include <cstring>

namespace {

// The methods that begin a request, in the order they are tried.
const char* const kMethods[] = {"GET", "POST", "OPTIONS", "HEAD", "PUT", "DELETE", "TRACE", "CONNECT"};

bool StartsWithMethod(const std::string& text)
{
    for (const char* method : kMethods) {
        if (text.compare(0, std::strlen(method), method) == 0)
            return true;
    }
    return false;
}

bool EqualsIgnoringCase(const std::string& a, const char* b)
{
    return a.size() == std::strlen(b) && ::lstrcmpiA(a.c_str(), b) == 0;
}

}  // namespace

int CVnRequestHead::ParseRequestHead(std::unique_ptr<char[]>& buffer, DWORD& size)
{
    std::string chunk;
    if (size != 0)
        chunk.assign(buffer.get(), size);
    size_t previous = 0;
    if (StartsWithMethod(chunk)) {
        m_strHead.clear();
        m_bodyFragment.clear();
    } else if (StartsWithMethod(m_strHead)) {
        previous = m_strHead.size();
    } else {
        return 1;
    }
    m_strHead += chunk;

    // Only a blank line that ends in this read counts. Within a head still
    // coming in this changes nothing, as the bytes before were searched when
    // they came; but a head that was already whole, kept for the next one,
    // may hold a CR-LF blank line of its own (it ended at two line feeds),
    // and must not end there a second time, before the bytes of this read.
    size_t unit = 1;
    size_t position = m_strHead.find("\n\n", previous >= 1 ? previous - 1 : 0);
    if (position == std::string::npos) {
        unit = 2;
        position = m_strHead.find("\r\n\r\n", previous >= 3 ? previous - 3 : 0);
    }
    if (position == std::string::npos)
        return 1;
    const size_t total = previous + size;
    if (position + 2 * unit < total) {
        const size_t extra = total - position - 2 * unit;
        const char* body = buffer.get() + (position + 2 * unit - previous);
        m_bodyFragment.insert(m_bodyFragment.end(), body, body + extra);
        m_strHead.erase(position + unit, extra + unit);
    } else {
        m_strHead.erase(position + unit, unit);
    }
    buffer.reset();
    size = 0;
    m_bodyReceived = static_cast<DWORD>(m_bodyFragment.size());
    return 0;
}

namespace vn_proxy {

TRequestLineResult SplitRequestLine(const std::string& line, const char* host, std::string& method, std::string& url)
{
    const size_t blank = line.find(' ');
    if (blank == std::string::npos)
        return RequestLineNoBlank;
    method = line.substr(0, blank);
    url = line.substr(blank + 1);
    url = url.substr(0, url.find("HTTP"));
    const char* const space = " \t\r\n\v\f";
    const size_t first = url.find_first_not_of(space);
    url = first == std::string::npos ? std::string() : url.substr(first, url.find_last_not_of(space) - first + 1);
    if (!url.empty() && url[0] == '/') {
        if (!host)
            return RequestLineNoHost;
        url = "http://" + std::string(host) + url;
    }
    return RequestLineOk;
}

TBodyFraming ResponseFraming(const std::string& method, LONG status, bool hasContentLength,
                             const std::string& transferEncoding)
{
    const bool bodiless = EqualsIgnoringCase(method, "HEAD") || (status >= 100 && status < 200) || status == 204 ||
                          status == 304;
    if (bodiless)
        return FramingNone;
    if (hasContentLength)
        return FramingAsIs;
    std::string coding(transferEncoding);
    ::CharLowerBuffA(&coding[0], static_cast<DWORD>(coding.size()));
    return coding.find("chunked") != std::string::npos ? FramingChunked : FramingUntilClose;
}

std::unique_ptr<BYTE[]> FrameChunk(const BYTE* data, LONG size, LONG& framedSize)
{
    char line[16];
    const int head = std::snprintf(line, sizeof line, "%lX\r\n", static_cast<unsigned long>(size));
    framedSize = head + size + 2;
    std::unique_ptr<BYTE[]> framed(new BYTE[framedSize]);
    std::memcpy(framed.get(), line, head);
    if (size > 0)
        std::memcpy(framed.get() + head, data, size);
    std::memcpy(framed.get() + head + size, "\r\n", 2);
    return framed;
}

}  // namespace vn_proxy
