// What the stand-in CREDUI.DLL and the tests that drive it share: the key
// under which a test says how the "user" answers the password prompt, and
// under which the stand-in writes down what it was asked; in HKCU of the test
// prefix, so that a child test process sees the same answers as its parent.
//
// Told by the test:
//   "Unloadable" (DWORD)      non-zero: the library refuses to load.
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
