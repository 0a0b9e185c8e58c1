#include "settings/registry_text.h"

#include <cstdio>
#include <cstring>

#include "vfc/unique_resource.h"

namespace vn_settings {

namespace {

constexpr DWORD kReadAccess = 0x20019;  // KEY_READ
constexpr DWORD kMaxValueBytes = 512;

std::string Decimal(DWORD number)
{
    char text[16];
    std::snprintf(text, sizeof text, "%lu", static_cast<unsigned long>(number));
    return text;
}

}  // namespace

DWORD BinaryValueNumber(const BYTE* data, DWORD size)
{
    DWORD number = 0;
    for (DWORD i = 0; i < size; ++i)
        number += static_cast<DWORD>(data[i]) << (i % 32);
    return number;
}

std::string RegistryValueText(HKEY root, const char* subkey, const char* value)
{
    vfc::TRegKey key;
    if (::RegOpenKeyExA(root, subkey, 0, kReadAccess, key.put()) != ERROR_SUCCESS)
        return std::string();
    DWORD type = 0;
    if (::RegQueryValueExA(key.get(), value, nullptr, &type, nullptr, nullptr) != ERROR_SUCCESS)
        return std::string();

    BYTE data[kMaxValueBytes + 1] = {};
    DWORD size = kMaxValueBytes;
    switch (type) {
    case REG_SZ:
        if (::RegQueryValueExA(key.get(), value, nullptr, nullptr, data, &size) != ERROR_SUCCESS)
            return std::string();
        // A stored string need not carry its terminator; the extra byte of
        // the buffer ends it in any case.
        return std::string(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));
    case REG_BINARY:
        if (::RegQueryValueExA(key.get(), value, nullptr, nullptr, data, &size) != ERROR_SUCCESS)
            return std::string();
        return Decimal(BinaryValueNumber(data, size));
    case REG_DWORD: {
        DWORD number = 0;
        size = sizeof number;
        if (::RegQueryValueExA(key.get(), value, nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &size) != ERROR_SUCCESS)
            return std::string();
        return Decimal(number);
    }
    default:
        return std::string();
    }
}

}  // namespace vn_settings
