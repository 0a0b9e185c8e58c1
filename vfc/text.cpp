#include "vfc/text.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>

namespace vfc {

std::wstring Widen(const std::string& text)
{
    if (text.empty())
        return {};
    int n = ::MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(n > 0 ? n : 0, L'\0');
    if (n > 0)
        ::MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), &out[0], n);
    return out;
}

std::string Narrow(const wchar_t* text, size_t length)
{
    if (!text || length == 0)
        return {};
    const int len = static_cast<int>(length);
    int n = ::WideCharToMultiByte(CP_ACP, 0, text, len, nullptr, 0, nullptr, nullptr);
    std::string out(n > 0 ? n : 0, '\0');
    if (n > 0)
        ::WideCharToMultiByte(CP_ACP, 0, text, len, &out[0], n, nullptr, nullptr);
    return out;
}

std::string FormatV(const char* format, va_list args)
{
    if (!format)
        return {};
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n <= 0)
        return {};
    std::string out(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(&out[0], out.size(), format, args);
    out.resize(static_cast<size_t>(n));
    return out;
}

std::string Format(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string out = FormatV(format, args);
    va_end(args);
    return out;
}

}  // namespace vfc
