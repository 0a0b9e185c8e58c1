// The key under which a test tells the stand-in CREDUI.DLL how the "user"
// answers the password prompt, and the stand-in writes down what it was asked.
// Told: "Unloadable" (DWORD); "Answer" (DWORD, 0 is OK; absent: 1223, cancelled);
// "Login", "Password" (SZ), what the user types; "Tick" (DWORD), the save tick
// as the user leaves it (absent: as shown); "HoldMs" (DWORD), how long each
// prompt stays open unless a second one opens beside it.
// Written, for the last prompt: "Prompts" and "MaxOpen" (DWORD), the prompts
// shown and the most open at once; the call's arguments "Target", "Message",
// "Caption" (SZ), "Flags", "TickIn", "LoginChars", "PasswordChars", "InfoSize",
// "Context" (DWORD).
#pragma once

#include "tests/doubles/rasapi32/standin_registry.h"

namespace vn_credui_standin {

constexpr const wchar_t* kKey = L"Software\\VnLinkhostTest\\CredUI";

inline DWORD ReadDword(const wchar_t* name, DWORD fallback) { return vn_standin::ReadDword(kKey, name, fallback); }
inline void WriteDword(const wchar_t* name, DWORD value) { vn_standin::WriteDword(kKey, name, value); }
inline std::wstring ReadText(const wchar_t* name) { return vn_standin::ReadText(kKey, name); }
inline void WriteText(const wchar_t* name, const std::wstring& text) { vn_standin::WriteText(kKey, name, text); }
inline void Clear() { ::RegDeleteTreeW(HKEY_CURRENT_USER, kKey); }
inline bool HasValue(const wchar_t* name)
{
    return vn_standin::Get(kKey, name, RRF_RT_ANY, nullptr, nullptr) == ERROR_SUCCESS;
}

}  // namespace vn_credui_standin
