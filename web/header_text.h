// Small operations on a serialised header block.
#pragma once

#include <string>

namespace vn_http {

// The block without its "Content-Length" line: the first occurrence of the
// name, in any capitals, up to and including the next line feed.
std::string CutContentLength(const std::string& headers);

}  // namespace vn_http
