// The registry reader of the system settings: one value as text, whatever
// type the platform or an administrator stored it with.
#pragma once

#include <windows.h>

#include <string>

namespace vn_settings {

// Opens the key read-only (0x20019) and gives the value as text:
//   string (1)      - the string; it must fit 512 bytes,
//   binary (3)      - the number BinaryValueNumber makes of up to 512 bytes,
//   double word (4) - the number in decimal.
// Any other type, and any failure (no key, no value, a longer value), gives
// an empty text.
std::string RegistryValueText(HKEY root, const char* subkey, const char* value);

// The number that a binary value stands for: the sum of each byte shifted
// left by its index modulo 32. The shift counts bits, not bytes, so the bytes
// 0, 1 give 2; sums wrap at 32 bits.
DWORD BinaryValueNumber(const BYTE* data, DWORD size);

}  // namespace vn_settings
