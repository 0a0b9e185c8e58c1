// libFuzzer target for the local proxy's request head reader (see run-fuzz). The first byte of the input cuts the rest
// into reads: bit i set ends a read after byte i of each eight; the reads go to one reader, as from one client on a
// kept-alive connection.
#include "proxy/request_head.h"
#include "tests/fuzz/fuzz_check.h"

namespace {

bool BeginsWithMethod(const std::string& text)
{
    for (const char* method : {"GET", "POST", "OPTIONS", "HEAD", "PUT", "DELETE", "TRACE", "CONNECT"})
        if (text.compare(0, std::strlen(method), method) == 0)
            return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const uint8_t cuts = data[0];
    CVnRequestHead head;
    for (size_t at = 1; at < size;) {
        size_t end = at + 1;
        while (end < size && !(cuts >> ((end - 1) % 8) & 1))
            ++end;
        const std::string read(reinterpret_cast<const char*>(data) + at, end - at);
        at = end;
        // A read with a method begins a head; one without continues the head
        // held, even one already whole, and is dropped when there is none.
        const bool fresh = BeginsWithMethod(read), continues = !fresh && BeginsWithMethod(head.m_strHead);
        const std::string collected = fresh ? read : head.m_strHead + read;
        const std::string fragment = fresh ? "" : std::string(head.m_bodyFragment.begin(), head.m_bodyFragment.end());
        DWORD length = static_cast<DWORD>(read.size());
        std::unique_ptr<char[]> buffer(new char[length]);
        std::memcpy(buffer.get(), read.data(), length);
        const int result = head.ParseRequestHead(buffer, length);
        Check(result == 0 || result == 1);
        if (result == 1) {  // more is needed, or nothing to continue: the read stays with its owner
            Check(buffer && length == read.size() && (fresh || continues || head.m_strHead.empty() ||
                                                      !BeginsWithMethod(head.m_strHead)));
            continue;
        }
        // A whole head: up to the first line end of its blank line, which ends
        // in this read; what follows it went to the body; the buffer is taken.
        Check((fresh || continues) && !buffer && length == 0);
        const std::string& text = head.m_strHead;
        const size_t unit = text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0 &&
                                    collected.compare(text.size(), 2, "\r\n") == 0 ? 2 : 1;
        Check(text.size() + unit > collected.size() - read.size() && collected.compare(0, text.size(), text) == 0);
        Check(collected.compare(text.size() - unit, 2 * unit, unit == 1 ? "\n\n" : "\r\n\r\n") == 0);
        Check(fragment + collected.substr(text.size() + unit) ==
              std::string(head.m_bodyFragment.begin(), head.m_bodyFragment.end()));
        Check(head.m_bodyReceived == head.m_bodyFragment.size());
    }
    return 0;
}
