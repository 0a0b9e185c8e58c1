// The key under which a test tells the stand-in CREDUI.DLL how the "user"
// answers ("Unloadable", "Answer" (absent: cancelled), "Login", "Password",
// "Tick", "HoldMs"), and the stand-in writes down what it was asked: the
// number of "Prompts", the most open at once ("MaxOpen"), the call's arguments.
#pragma once

#include "tests/doubles/rasapi32/standin_registry.h"

namespace vn_credui_standin {

constexpr const wchar_t* kKey = L"Software\\VnLinkhostTest\\CredUI";

inline DWORD ReadDword(const wchar_t* name, DWORD fallback) { return vn_standin::ReadDword(kKey, name, fallback); }
inline void WriteDword(const wchar_t* name, DWORD value) { vn_standin::WriteDword(kKey, name, value); }
inline std::wstring ReadText(const wchar_t* name) { return vn_standin::ReadText(kKey, name); }
inline void WriteText(const wchar_t* name, const std::wstring& text) { vn_standin::WriteText(kKey, name, text); }
inline void Clear() { ::RegDeleteTreeW(HKEY_CURRENT_USER, kKey); }
inline bool HasValue(const wchar_t* name) { return !vn_standin::Get(kKey, name, RRF_RT_ANY, nullptr, nullptr); }

}  // namespace vn_credui_standin
