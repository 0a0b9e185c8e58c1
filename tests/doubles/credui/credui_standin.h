// What the stand-in CREDUI.DLL of the test tree and the tests that drive it
// share: the key under which a test says how the "user" answers the password
// prompt, and under which the stand-in writes down what it was asked. All of
// it lives in HKCU\Software\VnLinkhostTest\CredUI of the test prefix, so that
// a child test process sees the same answers as its parent.
//
// Told by the test:
//   "Unloadable" (DWORD)      non-zero: the library refuses to load, as on a
//                             machine without it.
//   "Answer" (DWORD)          what the prompt gives back; 0 is OK. Absent:
//                             1223, the user cancelled.
//   "Login", "Password" (SZ)  what the user types.
//   "Tick" (DWORD)            how the user leaves the save tick; absent: as shown.
//   "HoldMs" (DWORD)          keeps each prompt open this long, or until a
//                             second prompt opens beside it.
// Written by the stand-in, for the last prompt:
//   "Prompts" (DWORD)         number of prompts shown since the key was made.
//   "MaxOpen" (DWORD)         the most prompts that were open at one time.
//   "Target", "Message", "Caption" (SZ), "Flags", "TickIn", "LoginChars",
//   "PasswordChars", "InfoSize", "Context" (DWORD): the call's arguments.
#pragma once

#include <windows.h>

#include <string>

namespace vn_credui_standin {

constexpr const wchar_t* kKey = L"Software\\VnLinkhostTest\\CredUI";

inline DWORD ReadDword(const wchar_t* name, DWORD fallback)
{
    DWORD value = fallback, size = sizeof value;
    if (::RegGetValueW(HKEY_CURRENT_USER, kKey, name, RRF_RT_REG_DWORD, nullptr, &value, &size) != ERROR_SUCCESS)
        return fallback;
    return value;
}

inline bool HasValue(const wchar_t* name)
{
    return ::RegGetValueW(HKEY_CURRENT_USER, kKey, name, RRF_RT_ANY, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

inline void WriteDword(const wchar_t* name, DWORD value)
{
    ::RegSetKeyValueW(HKEY_CURRENT_USER, kKey, name, REG_DWORD, &value, sizeof value);
}

inline std::wstring ReadText(const wchar_t* name)
{
    DWORD size = 0;
    if (::RegGetValueW(HKEY_CURRENT_USER, kKey, name, RRF_RT_REG_SZ, nullptr, nullptr, &size) != ERROR_SUCCESS || !size)
        return std::wstring();
    std::wstring text(size / sizeof(wchar_t) + 1, L'\0');
    if (::RegGetValueW(HKEY_CURRENT_USER, kKey, name, RRF_RT_REG_SZ, nullptr, &text[0], &size) != ERROR_SUCCESS)
        return std::wstring();
    text.resize(::lstrlenW(text.c_str()));
    return text;
}

inline void WriteText(const wchar_t* name, const std::wstring& text)
{
    ::RegSetKeyValueW(HKEY_CURRENT_USER, kKey, name, REG_SZ, text.c_str(),
                      static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

inline void Clear()
{
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
}

}  // namespace vn_credui_standin
