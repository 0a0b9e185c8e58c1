#include "web/header_text.h"

#include <algorithm>
#include <cctype>

namespace vn_http {

namespace {

// White space of the classic locale.
const char kWhiteSpace[] = " \t\n\v\f\r";
const char kLineEnds[] = "\r\n";

}  // namespace

std::string CutContentLength(const std::string& headers)
{
    static const std::string kName = "content-length";
    auto it = std::search(headers.begin(), headers.end(), kName.begin(), kName.end(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == b;
    });
    if (it == headers.end())
        return headers;
    const size_t start = static_cast<size_t>(it - headers.begin());
    const size_t lineFeed = headers.find('\n', start);
    std::string out = headers.substr(0, start);
    if (lineFeed != std::string::npos)
        out += headers.substr(lineFeed + 1);
    return out;
}

std::string BasicCredentials(const std::string& login, const std::string& password)
{
    static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string plain = login + ":" + password;
    std::string out = "Basic ";
    for (size_t i = 0; i < plain.size(); i += 3) {
        const size_t left = plain.size() - i;
        unsigned long bits = static_cast<unsigned char>(plain[i]) << 16;
        if (left > 1)
            bits |= static_cast<unsigned char>(plain[i + 1]) << 8;
        if (left > 2)
            bits |= static_cast<unsigned char>(plain[i + 2]);
        out += kDigits[(bits >> 18) & 63];
        out += kDigits[(bits >> 12) & 63];
        out += left > 1 ? kDigits[(bits >> 6) & 63] : '=';
        out += left > 2 ? kDigits[bits & 63] : '=';
    }
    return out;
}

std::string TrimWhiteSpace(const std::string& text)
{
    const size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string::npos)
        return {};
    const size_t last = text.find_last_not_of(kWhiteSpace);
    return text.substr(first, last - first + 1);
}

void SplitRawHeaders(const std::string& block, std::string& statusLine,
                     const std::function<void(const std::string& name, const std::string& value)>& onPair)
{
    size_t start = 0;
    size_t end = block.find_first_of(kLineEnds, start);
    while (end != std::string::npos && end != 0) {
        if (start == 0) {
            statusLine = TrimWhiteSpace(block.substr(0, end));
        } else {
            // The positions are unsigned on purpose. Without a colon left,
            // `colon + 1` wraps to 0, so the value is the block from its
            // start to the end of this line; with the colon beyond the line's
            // end, the length wraps and the value runs to the block's end.
            const size_t colon = block.find(':', start);
            onPair(block.substr(start, colon - start), TrimWhiteSpace(block.substr(colon + 1, end - colon - 1)));
        }
        start = block.find_first_not_of(kLineEnds, end);
        if (start == std::string::npos)
            break;
        end = block.find_first_of(kLineEnds, start);
    }
}

}  // namespace vn_http
