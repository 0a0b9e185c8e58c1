// What a proxy script's answer asks for. Pure text work, so that it builds
// and is tested without the platform.
#pragma once

#include <string>

namespace vn_proxy {

enum class TScriptAnswer {
    Proxy,   // a proxy text to use
    Direct,  // a direct connection
    Bad,     // neither
};

// The answer with the first "PROXY " cut out, then trimmed of blanks, tabs
// and line ends, goes to proxy when the answer holds that word; otherwise
// proxy is emptied and the answer is Direct if it holds "DIRECT" anywhere.
TScriptAnswer ReadScriptAnswer(const std::string& answer, std::string& proxy);

}  // namespace vn_proxy
