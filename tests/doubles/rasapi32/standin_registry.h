// The keys of the test prefix's HKCU under which a test tells the stand-in
// DLLs what to answer, and the helpers that read them and keep the journal.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace vn_standin {

constexpr const char* kRasKey = "Software\\VnLinkhostTest\\Ras";
constexpr const char* kRasdlgKey = "Software\\VnLinkhostTest\\Rasdlg";
constexpr const char* kSensapiKey = "Software\\VnLinkhostTest\\Sensapi";
// Under each: "Unloadable" (DWORD), non-zero: the library refuses to load;
// "Calls" (SZ), where each call appends "Name(arguments)=result;".
constexpr const char* kUnloadable = "Unloadable";
constexpr const char* kCalls = "Calls";

inline LSTATUS Get(const char* key, const char* name, DWORD flags, void* data, DWORD* size)
{
    return ::RegGetValueA(HKEY_CURRENT_USER, key, name, flags, nullptr, data, size);
}
inline LSTATUS Get(const wchar_t* key, const wchar_t* name, DWORD flags, void* data, DWORD* size)
{
    return ::RegGetValueW(HKEY_CURRENT_USER, key, name, flags, nullptr, data, size);
}
inline void Set(const char* key, const char* name, DWORD type, const void* data, size_t size)
{
    ::RegSetKeyValueA(HKEY_CURRENT_USER, key, name, type, data, static_cast<DWORD>(size));
}
inline void Set(const wchar_t* key, const wchar_t* name, DWORD type, const void* data, size_t size)
{
    ::RegSetKeyValueW(HKEY_CURRENT_USER, key, name, type, data, static_cast<DWORD>(size));
}

template <typename C>
DWORD ReadDword(const C* key, const C* name, DWORD fallback)
{
    DWORD value = fallback, size = sizeof value;
    return Get(key, name, RRF_RT_REG_DWORD, &value, &size) == ERROR_SUCCESS ? value : fallback;
}

template <typename C>
void WriteDword(const C* key, const C* name, DWORD value) { Set(key, name, REG_DWORD, &value, sizeof value); }

template <typename C>
std::basic_string<C> ReadText(const C* key, const C* name)
{
    DWORD size = 0;
    std::basic_string<C> text;
    if (Get(key, name, RRF_RT_REG_SZ, nullptr, &size) == ERROR_SUCCESS && size) {
        text.resize(size / sizeof(C) + 1);
        if (Get(key, name, RRF_RT_REG_SZ, &text[0], &size) != ERROR_SUCCESS)
            text.clear();
    }
    return text.c_str();
}

template <typename C, typename T>
void WriteText(const C* key, const C* name, const T& value)
{
    const std::basic_string<C> text(value);
    Set(key, name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(C));
}

// A REG_MULTI_SZ value as a list.
inline std::vector<std::string> ReadList(const char* key, const char* name)
{
    std::vector<std::string> list;
    DWORD size = 0;
    if (Get(key, name, RRF_RT_REG_MULTI_SZ, nullptr, &size) != ERROR_SUCCESS)
        return list;
    std::vector<char> data(size + 2, '\0');
    if (Get(key, name, RRF_RT_REG_MULTI_SZ, data.data(), &size) == ERROR_SUCCESS)
        for (const char* p = data.data(); *p; p += ::lstrlenA(p) + 1)
            list.emplace_back(p);
    return list;
}

inline void WriteList(const char* key, const char* name, const std::vector<std::string>& list)
{
    std::string data;
    for (const std::string& item : list)
        data += item + '\0';
    data.append(list.empty() ? 2 : 1, '\0');
    Set(key, name, REG_MULTI_SZ, data.data(), data.size());
}

inline void Journal(const char* key, const std::string& entry) { WriteText(key, kCalls, ReadText(key, kCalls) + entry + ";"); }

}  // namespace vn_standin
