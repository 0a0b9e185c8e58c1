// What the credentials tests share: a loopback server that plays a proxy and
// an origin demanding Basic logins, WinInet requests against it, direct looks
// at the Credential Manager, the answers of the stand-in CREDUI.DLL, and a
// scripted platform login dialog behind the seam. All of it talks to the
// platform itself, not through the code under test.
#pragma once

#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>
#include <wininet.h>
#include <wincred.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "common/test_util.h"
#include "host/platform_seams.h"
#include "host/status.h"
#include "settings/credentials_managers.h"
#include "settings/proxy_credentials.h"
#include "tests/doubles/credui/credui_standin.h"
#include "vfc/unique_resource.h"

namespace vn_cred_test {

namespace cu = vn_credui_standin;

// A text that no other test of this run or of an earlier run uses.
inline std::string UniqueName(const std::string& tag)
{
    static std::atomic<int> counter{0};
    return tag + "-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(::GetTickCount()) + "-" +
           std::to_string(++counter);
}
inline std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }
inline std::string Basic(const std::string& login, const std::string& password)
{
    const std::string in = login + ":" + password, digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < in.size(); i += 3) {
        const unsigned v = BYTE(in[i]) << 16 | (i + 1 < in.size() ? BYTE(in[i + 1]) << 8 : 0) | (i + 2 < in.size() ? BYTE(in[i + 2]) : 0);
        for (size_t k = 0; k < 4; ++k)
            out += i + k <= in.size() ? digits[v >> (18 - 6 * k) & 63] : '=';
    }
    return "Basic " + out;
}

// A server on 127.0.0.1. A request for an absolute URL is served as a proxy
// and gets 407 without the required Proxy-Authorization; any request without
// the required Authorization gets 401; otherwise 200. Each response closes
// its connection, so one thread serves all clients in turn.
class TAuthServer {
public:
    TAuthServer()
    {
        WSADATA data;
        ::WSAStartup(MAKEWORD(2, 2), &data);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int length = sizeof address;
        m_listener.reset(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
        ::bind(m_listener.get(), reinterpret_cast<sockaddr*>(&address), length);
        ::listen(m_listener.get(), 16);
        ::getsockname(m_listener.get(), reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(address.sin_port);
        m_thread = std::thread([this] { Serve(); });
    }
    ~TAuthServer()
    {
        m_stop = true;
        m_thread.join();
        ::WSACleanup();
    }
    std::string ProxyText() const { return "127.0.0.1:" + std::to_string(port); }
    void Require(const std::string& proxyHeader, const std::string& serverHeader)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_required[0] = proxyHeader, m_required[1] = serverHeader;
    }
    std::string LastAuthorization(int server)  // 0 the proxy's, 1 the origin's; "" when none was sent
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_last[server];
    }
    USHORT port = 0;

private:
    void Serve()
    {
        while (!m_stop) {
            fd_set readable;
            FD_ZERO(&readable);
            FD_SET(m_listener.get(), &readable);
            timeval wait = {0, 50000};
            if (::select(0, &readable, nullptr, nullptr, &wait) <= 0)
                continue;
            vfc::TSocket client(::accept(m_listener.get(), nullptr, nullptr));
            std::string head, response = "HTTP/1.1 200 OK\r\n", realm = " realm=\"vn-" + std::to_string(port) + "\"\r\n";
            char buffer[4096];
            for (int n; head.find("\r\n\r\n") == std::string::npos && (n = ::recv(client.get(), buffer, sizeof buffer, 0)) > 0;)
                head.append(buffer, size_t(n));
            std::lock_guard<std::mutex> lock(m_mutex);
            for (int i = 0; i < 2; ++i) {
                const std::string name = i ? "\r\nAuthorization: " : "\r\nProxy-Authorization: ";
                const size_t at = head.find(name), end = head.find("\r\n", at + name.size());
                m_last[i] = at == std::string::npos ? "" : head.substr(at + name.size(), end - at - name.size());
            }
            if (head.find(" http://") < head.find("\r\n") && !m_required[0].empty() && m_last[0] != m_required[0])
                response = "HTTP/1.1 407 Proxy Authentication Required\r\nProxy-Authenticate: Basic" + realm;
            else if (!m_required[1].empty() && m_last[1] != m_required[1])
                response = "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic" + realm;
            response += "Content-Length: 0\r\nConnection: close\r\n\r\n";
            ::send(client.get(), response.data(), int(response.size()), 0);
            ::shutdown(client.get(), SD_SEND);
        }
    }
    vfc::TSocket m_listener;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    std::mutex m_mutex;
    std::string m_required[2], m_last[2];
};

// One synchronous WinInet GET in a session of its own, as WinInet keeps
// logins per session: of http://origin.invalid/ through `server` as the
// proxy, of / on `server` as the origin, or (without a server) never sent.
class TRequest {
public:
    TRequest(const TAuthServer* server = nullptr, bool viaProxy = true)
    {
        const bool proxy = server && viaProxy;
        m_session.reset(::InternetOpenA("vn-credentials-test", proxy ? INTERNET_OPEN_TYPE_PROXY : INTERNET_OPEN_TYPE_DIRECT,
                                        proxy ? server->ProxyText().c_str() : nullptr, nullptr, 0));
        m_connect.reset(::InternetConnectA(m_session.get(), server && !viaProxy ? "127.0.0.1" : "origin.invalid",
                                           server && !viaProxy ? server->port : 80, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0));
        m_request.reset(::HttpOpenRequestA(m_connect.get(), "GET", "/", nullptr, nullptr, nullptr,
                                           INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE, 0));
    }
    HINTERNET get() const { return m_request.get(); }
    HINTERNET session() const { return m_session.get(); }  // WinInet refuses login options on it (12009)
    DWORD Send()  // the response's status, or 0 when the send failed
    {
        DWORD status = 0, size = sizeof status;
        ::HttpSendRequestA(get(), nullptr, 0, nullptr, 0) &&
            ::HttpQueryInfoA(get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, nullptr);
        return status;
    }
    std::string Option(DWORD option) const
    {
        char buffer[4096] = {};
        DWORD size = sizeof buffer;
        return ::InternetQueryOptionA(get(), option, buffer, &size) ? buffer : "<failed>";
    }

private:
    vfc::TInternetHandle m_session, m_connect, m_request;
};

// The Credential Manager as the platform holds it: login, password and the
// credential's persistence and flags, or nothing.
inline std::tuple<std::wstring, std::wstring, DWORD, DWORD> Stored(const std::string& target)
{
    PCREDENTIALW c = nullptr;
    if (!::CredReadW(Wide(target).c_str(), CRED_TYPE_GENERIC, 0, &c))
        return {};
    std::tuple<std::wstring, std::wstring, DWORD, DWORD> stored{
        c->UserName ? c->UserName : L"", std::wstring(reinterpret_cast<wchar_t*>(c->CredentialBlob), c->CredentialBlobSize / 2),
        c->Persist, c->Flags};
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

// How the "user" answers the stand-in's password prompt: types a login, or
// cancels (no login); with the save tick left on or taken off.
inline void PromptAnswer(const char* login, bool tick = true, DWORD holdMs = 0)
{
    cu::Clear();
    cu::WriteDword(L"Answer", login ? NO_ERROR : ERROR_CANCELLED);
    cu::WriteText(L"Login", Wide(login ? login : ""));
    cu::WriteText(L"Password", Wide(login ? std::string(login) + "-secret" : ""));
    cu::WriteDword(L"Tick", tick);
    cu::WriteDword(L"HoldMs", holdMs);
}

// The platform's login dialog (InternetErrorDlg) through the seam, acting as
// the platform's does when the user confirms: it puts the typed login on the
// handle, as options 43 and 44 after a 407 and 28 and 29 after a 401, and
// asks for a repeat (12032); any other response gets ERROR_SUCCESS. A null
// login cancels. It notes what it was given, and how many were open at once.
class TScriptedDialog {
public:
    explicit TScriptedDialog(const char* login, DWORD holdMs = 0)
        : m_login(login ? login : ""), m_cancel(!login), m_holdMs(holdMs), m_seam(PlatformSeams().InternetErrorDlg, &Dialog)
    {
        Current() = this;
    }
    ~TScriptedDialog() { Current() = m_previous; }
    std::atomic<int> calls{0}, maxOpen{0};
    std::tuple<HWND, HINTERNET, DWORD, DWORD, bool, DWORD> last;  // window, handle, error, flags, data, last error on entry

private:
    static TScriptedDialog*& Current()
    {
        static TScriptedDialog* current = nullptr;
        return current;
    }
    static DWORD WINAPI Dialog(HWND window, HINTERNET handle, DWORD error, DWORD flags, LPVOID* data)
    {
        TScriptedDialog& self = *Current();
        self.last = std::make_tuple(window, handle, error, flags, data != nullptr, ::GetLastError());
        const int open = ++self.m_open;
        for (int seen = self.maxOpen; open > seen && !self.maxOpen.compare_exchange_weak(seen, open);)
            ;
        ++self.calls;
        for (DWORD waited = 0; waited < self.m_holdMs && self.maxOpen < 2; waited += 10)
            ::Sleep(10);  // stays open a while, unless a second dialog opens beside it
        DWORD status = 0, size = sizeof status;
        ::HttpQueryInfoA(handle, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, nullptr);
        DWORD answer = self.m_cancel ? ERROR_CANCELLED : ERROR_SUCCESS;
        if (!self.m_cancel && (status == 407 || status == 401)) {
            const std::string password = self.m_login + "-secret";
            ::InternetSetOptionA(handle, status == 407 ? 43 : 28, &self.m_login[0], DWORD(self.m_login.size() + 1));
            ::InternetSetOptionA(handle, status == 407 ? 44 : 29, const_cast<char*>(password.c_str()), DWORD(password.size() + 1));
            answer = ERROR_INTERNET_FORCE_RETRY;
        }
        --self.m_open;
        return answer;
    }
    std::string m_login;
    bool m_cancel;
    DWORD m_holdMs;
    std::atomic<int> m_open{0};
    TScriptedDialog* m_previous = Current();
    TScopedSeam<DWORD(WINAPI*)(HWND, HINTERNET, DWORD, DWORD, LPVOID*)> m_seam;
};

// CREDUI.DLL must be the stand-in beside the test program (WINEDLLOVERRIDES="credui=n").
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

#define VN_REQUIRE_STANDIN_CREDUI()                                                                               \
    do {                                                                                                          \
        vfc::TModule credui(::LoadLibraryA("CREDUI.DLL"));                                                        \
        char path[MAX_PATH] = {};                                                                                 \
        ::GetModuleFileNameA(credui.get(), path, MAX_PATH);                                                       \
        ASSERT_TRUE(credui && !::_strnicmp(path, vn_test::BinDir().c_str(), vn_test::BinDir().size())) << "credui=n?"; \
    } while (0)

}  // namespace vn_cred_test
