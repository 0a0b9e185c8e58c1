// Conversions between the narrow text of the system's ANSI code page, used
// inside the process, and the wide text of the object interfaces.
#pragma once

#include <string>

namespace vfc {

std::wstring Widen(const std::string& text);
std::string Narrow(const wchar_t* text, size_t length);
inline std::string Narrow(const std::wstring& text) { return Narrow(text.data(), text.size()); }

// printf into a std::string; never fails towards the caller.
std::string FormatV(const char* format, va_list args);
std::string Format(const char* format, ...) __attribute__((format(ms_printf, 1, 2)));

}  // namespace vfc
