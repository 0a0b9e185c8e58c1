// libFuzzer target for the raw header block reader and the Content-Length cut
// (see run-fuzz). The input is a block as the platform hands it over.
#include "web/header_text.h"
#include "tests/fuzz/fuzz_check.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;
const size_t npos = std::string::npos;

bool Has(const std::string& text, const char* chars) { return text.find_first_of(chars) != npos; }
bool Trimmed(const std::string& s) { return s.empty() || (!std::isspace(s[0] & 255) && !std::isspace(s.back() & 255)); }

Pairs Split(const std::string& block, std::string& status)
{
    Pairs pairs;
    vn_http::SplitRawHeaders(block, status, [&](auto& name, auto& value) { pairs.emplace_back(name, value); });
    return pairs;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string block(reinterpret_cast<const char*>(data), size);
    std::string status = "\n", written = "HTTP/1.1 200 OK\r\n", back;
    const Pairs pairs = Split(block, status);
    // No status line, no pairs; a status line is one trimmed line of the block.
    Check(status == "\n" ? pairs.empty() : Trimmed(status) && !Has(status, "\r\n") && block.find(status) != npos);
    bool writable = true;  // no name is empty or holds a line end
    for (const auto& pair : pairs) {
        // A name never holds a colon. One without a line end had its colon on its own line, and its value stays there.
        Check(!Has(pair.first, ":") && Trimmed(pair.second) && (Has(pair.first, "\r\n") || !Has(pair.second, "\r\n")));
        writable = writable && !pair.first.empty() && !Has(pair.first, "\r\n");
        written += pair.first + ": " + pair.second + "\r\n";
    }
    // Written back as GetHeadersAsText writes them, the pairs read back the same.
    Check(!writable || Split(written + "\r\n", back) == pairs);
    // The cut takes out one span: from the first Content-Length in any capitals to its line feed or the end.
    std::string lower = block;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    const size_t at = lower.find("content-length");
    const std::string cut = vn_http::CutContentLength(block);
    Check(at == npos ? cut == block : cut.size() + 14 <= block.size() && block.compare(0, at, cut, 0, at) == 0);
    const size_t gone = block.size() - cut.size(), lineFeed = block.find('\n', at);
    Check(at == npos || (block.compare(at + gone, npos, cut, at, npos) == 0 &&
                         (lineFeed == npos ? at + gone == block.size() : lineFeed == at + gone - 1)));
    return 0;
}
