// What the credentials tests share: WinInet request handles, direct looks at
// the Credential Manager, the stand-in CREDUI.DLL's answers, and a scripted
// platform login dialog behind the seam. Every login of these tests has the
// password login + "-secret".
#pragma once

#include <gtest/gtest.h>

#include <windows.h>
#include <wininet.h>
#include <wincred.h>

#include <atomic>
#include <string>
#include <thread>
#include <tuple>

#include "common/test_util.h"
#include "host/platform_seams.h"
#include "host/status.h"
#include "settings/credentials_managers.h"
#include "settings/proxy_credentials.h"
#include "tests/doubles/credui/credui_standin.h"
#include "vfc/unique_resource.h"

namespace vn_cred_test {

namespace cu = vn_credui_standin;
const LONG kRetry = ERROR_INTERNET_FORCE_RETRY;

// A text that no other test of this run or of an earlier run uses.
inline std::string UniqueName(const std::string& tag)
{
    static std::atomic<int> counter{0};
    return tag + "-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(::GetTickCount()) + "-" + std::to_string(++counter);
}
inline std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }
// A WinInet request handle of a session of its own (WinInet keeps logins per
// session), never sent.
class TRequest {
public:
    TRequest()
    {
        m_session.reset(::InternetOpenA("vn-test", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
        m_connect.reset(::InternetConnectA(m_session.get(), "origin.invalid", 80, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0));
        m_request.reset(::HttpOpenRequestA(m_connect.get(), "GET", "/", nullptr, nullptr, nullptr, INTERNET_FLAG_RELOAD, 0));
    }
    HINTERNET get() const { return m_request.get(); }
    HINTERNET session() const { return m_session.get(); }  // WinInet refuses login options on it (12009)
    std::string Option(DWORD option) const  // "" when not set
    {
        char buffer[4096] = {};
        DWORD size = sizeof buffer;
        return ::InternetQueryOptionA(get(), option, buffer, &size) ? buffer : "<failed>";
    }

private:
    vfc::TInternetHandle m_session, m_connect, m_request;
};

// A generic credential as the platform holds it: login, password, persistence, flags; or nothing.
inline std::tuple<std::wstring, std::wstring, DWORD, DWORD> Stored(const std::string& target)
{
    PCREDENTIALW c = nullptr;
    if (!::CredReadW(Wide(target).c_str(), CRED_TYPE_GENERIC, 0, &c))
        return {};
    std::tuple<std::wstring, std::wstring, DWORD, DWORD> stored{c->UserName ? c->UserName : L"",
        std::wstring(reinterpret_cast<wchar_t*>(c->CredentialBlob), c->CredentialBlobSize / 2), c->Persist, c->Flags};
    ::CredFree(c);
    return stored;
}
inline bool Store(const std::string& target, const std::wstring& login, const std::wstring& password)
{
    CREDENTIALW c = {};
    std::wstring name = Wide(target);
    c.Type = CRED_TYPE_GENERIC, c.TargetName = &name[0], c.UserName = const_cast<wchar_t*>(login.c_str());
    c.CredentialBlob = reinterpret_cast<BYTE*>(const_cast<wchar_t*>(password.data()));
    c.CredentialBlobSize = DWORD(password.size() * 2), c.Persist = CRED_PERSIST_LOCAL_MACHINE;
    return ::CredWriteW(&c, 0) != FALSE;
}
inline void Forget(const std::string& target) { ::CredDeleteW(Wide(target).c_str(), CRED_TYPE_GENERIC, 0); }

// How the "user" answers the stand-in's password prompt (WINEDLLOVERRIDES=credui=n):
// types a login, or cancels (null); with the save tick left on or taken off.
inline void PromptAnswer(const char* login, bool tick = true, DWORD holdMs = 0)
{
    cu::Clear();
    cu::WriteDword(L"Answer", login ? NO_ERROR : ERROR_CANCELLED);
    cu::WriteText(L"Login", Wide(login ? login : ""));
    cu::WriteText(L"Password", Wide(login ? std::string(login) + "-secret" : ""));
    cu::WriteDword(L"Tick", tick);
    cu::WriteDword(L"HoldMs", holdMs);
}

// The platform's login dialog (InternetErrorDlg) behind the seam, acting as
// the platform's does: with the answer 12032 it has put the typed login on the
// handle first (options 43 and 44 for a proxy, 28 and 29 for a server). Each
// dialog stays open up to `holdMs`, unless a second one opens beside it.
class TScriptedDialog {
public:
    TScriptedDialog(DWORD answer, const char* login = "", bool proxy = true, DWORD holdMs = 0)
        : m_answer(answer), m_login(login), m_proxy(proxy), m_holdMs(holdMs)
    {
        s_current = this;
    }
    ~TScriptedDialog() { s_current = m_previous; }
    std::atomic<int> calls{0}, open{0}, maxOpen{0};
    std::tuple<HWND, HINTERNET, DWORD, DWORD, bool, DWORD> last;  // window, handle, error, flags, data, last error

private:
    static DWORD WINAPI Dialog(HWND window, HINTERNET handle, DWORD error, DWORD flags, LPVOID* data)
    {
        TScriptedDialog& self = *s_current;
        self.last = std::make_tuple(window, handle, error, flags, data != nullptr, ::GetLastError());
        ++self.calls;
        for (int now = ++self.open, seen = self.maxOpen; now > seen && !self.maxOpen.compare_exchange_weak(seen, now);) {
        }
        for (DWORD waited = 0; waited < self.m_holdMs && self.maxOpen < 2; waited += 10)
            ::Sleep(10);
        --self.open;
        std::string login = self.m_login, password = login + "-secret";
        if (self.m_answer == ERROR_INTERNET_FORCE_RETRY) {
            ::InternetSetOptionA(handle, self.m_proxy ? 43 : 28, &login[0], DWORD(login.size() + 1));
            ::InternetSetOptionA(handle, self.m_proxy ? 44 : 29, &password[0], DWORD(password.size() + 1));
        }
        return self.m_answer;
    }
    static inline TScriptedDialog* s_current = nullptr;
    DWORD m_answer;
    std::string m_login;
    bool m_proxy;
    DWORD m_holdMs;
    TScriptedDialog* m_previous = s_current;
    TScopedSeam<DWORD(WINAPI*)(HWND, HINTERNET, DWORD, DWORD, LPVOID*)> m_seam{PlatformSeams().InternetErrorDlg, &Dialog};
};

// What a call throws, or "<nothing>".
template <typename Call>
std::string ThrownBy(Call call)
{
    try {
        call();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "<nothing>";
}

}  // namespace vn_cred_test
