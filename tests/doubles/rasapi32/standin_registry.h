// What the dial-up and network stand-ins (RASAPI32.DLL, Rasdlg.dll,
// Sensapi.dll of the test tree) share: the keys under which a test tells them
// what to answer, and the few registry helpers that read those answers and
// keep their journal. Everything lives in HKCU of the test prefix, so that the
// state outlives each load and unload of a stand-in: the system loads these
// libraries by name for every operation and drops them afterwards.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace vn_standin {

constexpr const char* kRasKey = "Software\\VnLinkhostTest\\Ras";
constexpr const char* kRasdlgKey = "Software\\VnLinkhostTest\\Rasdlg";
constexpr const char* kSensapiKey = "Software\\VnLinkhostTest\\Sensapi";

// Values common to all three stand-ins:
//   "Unloadable" (DWORD) - non-zero: the library refuses to load, as on a
//                          machine that does not have it.
//   "Calls" (REG_SZ)     - the journal: each call appends "Name(arguments)=result;".
constexpr const char* kUnloadable = "Unloadable";
constexpr const char* kCalls = "Calls";

inline DWORD ReadDword(const char* key, const char* name, DWORD fallback)
{
    DWORD value = fallback, size = sizeof value;
    if (::RegGetValueA(HKEY_CURRENT_USER, key, name, RRF_RT_REG_DWORD, nullptr, &value, &size) != ERROR_SUCCESS)
        return fallback;
    return value;
}

inline void WriteDword(const char* key, const char* name, DWORD value)
{
    ::RegSetKeyValueA(HKEY_CURRENT_USER, key, name, REG_DWORD, &value, sizeof value);
}

inline std::string ReadText(const char* key, const char* name)
{
    DWORD size = 0;
    if (::RegGetValueA(HKEY_CURRENT_USER, key, name, RRF_RT_REG_SZ, nullptr, nullptr, &size) != ERROR_SUCCESS || !size)
        return std::string();
    std::string text(size, '\0');
    if (::RegGetValueA(HKEY_CURRENT_USER, key, name, RRF_RT_REG_SZ, nullptr, &text[0], &size) != ERROR_SUCCESS)
        return std::string();
    text.resize(::lstrlenA(text.c_str()));
    return text;
}

inline void WriteText(const char* key, const char* name, const std::string& text)
{
    ::RegSetKeyValueA(HKEY_CURRENT_USER, key, name, REG_SZ, text.c_str(), static_cast<DWORD>(text.size() + 1));
}

// A REG_MULTI_SZ value as a list; absent or empty gives an empty list.
inline std::vector<std::string> ReadList(const char* key, const char* name)
{
    std::vector<std::string> list;
    DWORD size = 0;
    if (::RegGetValueA(HKEY_CURRENT_USER, key, name, RRF_RT_REG_MULTI_SZ, nullptr, nullptr, &size) != ERROR_SUCCESS)
        return list;
    std::vector<char> data(size + 2, '\0');
    if (::RegGetValueA(HKEY_CURRENT_USER, key, name, RRF_RT_REG_MULTI_SZ, nullptr, data.data(), &size) != ERROR_SUCCESS)
        return list;
    for (const char* p = data.data(); *p; p += ::lstrlenA(p) + 1)
        list.emplace_back(p);
    return list;
}

inline void WriteList(const char* key, const char* name, const std::vector<std::string>& list)
{
    std::string data;
    for (const std::string& item : list) {
        data += item;
        data += '\0';
    }
    data += '\0';
    if (list.empty())
        data += '\0';
    ::RegSetKeyValueA(HKEY_CURRENT_USER, key, name, REG_MULTI_SZ, data.data(), static_cast<DWORD>(data.size()));
}

inline void Journal(const char* key, const std::string& entry)
{
    WriteText(key, kCalls, ReadText(key, kCalls) + entry + ";");
}

}  // namespace vn_standin
