// libFuzzer target for the reader of a proxy script's answer (see run-fuzz).
// The input is the answer as the script engine gives it.
#include "settings/proxy_answer.h"
#include "tests/fuzz/fuzz_check.h"

namespace {

using vn_proxy::TScriptAnswer;
const size_t npos = std::string::npos;

bool Blank(char c) { return c != '\0' && std::strchr(" \t\r\n", c) != nullptr; }

// The count of characters that are not blanks.
std::ptrdiff_t Solid(const std::string& text)
{
    return std::count_if(text.begin(), text.end(), [](char c) { return !Blank(c); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string answer(reinterpret_cast<const char*>(data), size);
    std::string proxy = "stale", again;
    const TScriptAnswer kind = vn_proxy::ReadScriptAnswer(answer, proxy);
    const size_t at = answer.find("PROXY ");
    Check((kind == TScriptAnswer::Proxy) == (at != npos));
    if (kind != TScriptAnswer::Proxy) {
        // No proxy word: nothing to use, and DIRECT anywhere tells a direct connection from a bad answer.
        Check(proxy.empty() && (kind == TScriptAnswer::Direct) == (answer.find("DIRECT") != npos));
        return 0;
    }
    // The proxy text is the answer with its first "PROXY " cut out, less blanks at the ends only.
    const std::string cut = answer.substr(0, at) + answer.substr(at + 6);
    Check(cut.find(proxy) != npos && Solid(proxy) == Solid(cut));
    Check(proxy.empty() || (!Blank(proxy.front()) && !Blank(proxy.back())));
    // Read again behind the word, it stays as it is.
    Check(vn_proxy::ReadScriptAnswer("PROXY " + proxy, again) == TScriptAnswer::Proxy && again == proxy);
    return 0;
}
