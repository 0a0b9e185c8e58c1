// The few platform names that the portable parsers use, for the fuzz targets' native build (see run-fuzz).
#pragma once

#include <strings.h>

#include <cctype>
#include <cstdint>

typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint8_t BYTE;

inline int lstrcmpiA(const char* a, const char* b) { return strcasecmp(a, b); }
inline DWORD CharLowerBuffA(char* text, DWORD length)
{
    for (DWORD i = 0; i < length; ++i)
        text[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
    return length;
}
