// The trace of a parse failure. The platform differences are few and stay in
// this file: the C runtime's spelling of a text-mode append, and the reentrant
// form of the local-time conversion.
#include "xml/xml_trace.h"

#include <cstdio>
#include <ctime>

namespace vn_xml {

namespace {

#if defined(_WIN32)
// The Microsoft runtime knows the text-mode flag; the file is appended to and
// may be read back in the same open.
constexpr const char* kAppendMode = "at+";

bool ToLocalTime(std::time_t now, std::tm& local)
{
    return ::localtime_s(&local, &now) == 0;
}
#else
// The C library of a native build has no text mode; plain append is the same.
constexpr const char* kAppendMode = "a+";

bool ToLocalTime(std::time_t now, std::tm& local)
{
    return ::localtime_r(&now, &local) != nullptr;
}
#endif

}  // namespace

void WriteParseExceptionTrace(const std::string& message, const std::string& state, int line,
                              int column) noexcept
{
    std::printf("Exception occurred while parsing document\n");
    std::printf("Exception : %s during :%s at %i:%i\n", message.c_str(), state.c_str(), line, column);
    std::fflush(stdout);

    // No lock: two threads that fail at once may interleave their entries,
    // which is accepted for a diagnostic file.
    std::FILE* file = std::fopen(kExceptionLogName, kAppendMode);
    if (!file)
        return;
    std::tm local = {};
    char stamp[32];
    if (ToLocalTime(std::time(nullptr), local) &&
        std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &local) != 0)
        std::fprintf(file, "%s\t", stamp);
    std::fprintf(file, "%s  <event:%s>\n\n", message.c_str(), state.c_str());
    std::fclose(file);
}

}  // namespace vn_xml
