#include "web/header_text.h"

#include <algorithm>
#include <cctype>

namespace vn_http {

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

}  // namespace vn_http
