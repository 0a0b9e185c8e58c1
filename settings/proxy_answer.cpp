#include "settings/proxy_answer.h"

namespace vn_proxy {

TScriptAnswer ReadScriptAnswer(const std::string& answer, std::string& proxy)
{
    proxy = answer;
    const size_t at = proxy.find("PROXY ");
    if (at != std::string::npos) {
        proxy.erase(at, 6);
        const char* blanks = " \t\r\n";
        const size_t first = proxy.find_first_not_of(blanks);
        const size_t last = proxy.find_last_not_of(blanks);
        proxy = first == std::string::npos ? std::string() : proxy.substr(first, last - first + 1);
        return TScriptAnswer::Proxy;
    }
    const bool direct = proxy.find("DIRECT") != std::string::npos;
    proxy.clear();
    return direct ? TScriptAnswer::Direct : TScriptAnswer::Bad;
}

}  // namespace vn_proxy
