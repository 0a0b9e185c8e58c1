// Small operations on a serialised header block.
#pragma once

#include <string>

namespace vn_http {

// The block without its "Content-Length" line: the first occurrence of the
// name, in any capitals, up to and including the next line feed.
std::string CutContentLength(const std::string& headers);

// The value of an Authorization or Proxy-Authorization header that answers
// a Basic challenge: "Basic " and the Base64 form of "login:password".
std::string BasicCredentials(const std::string& login, const std::string& password);

}  // namespace vn_http
