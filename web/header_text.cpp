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

}  // namespace vn_http
