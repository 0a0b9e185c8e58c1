// What the credentials tests share: a loopback HTTP server that plays a proxy
// and an origin demanding Basic logins, WinInet request handles against it,
// direct looks at the Credential Manager, and the stand-in CREDUI.DLL's
// answers. Everything here talks to the platform itself and not through the
// code under test, so that a test can check that code against it.
#pragma once

#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>
#include <wininet.h>
#include <wincred.h>

#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/test_util.h"
#include "host/platform_seams.h"
#include "tests/doubles/credui/credui_standin.h"
#include "vfc/unique_resource.h"

namespace vn_cred_test {

inline std::string Base64(const std::string& text)
{
    static const char* const kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    size_t i = 0;
    for (; i + 2 < text.size(); i += 3) {
        unsigned v = (unsigned char)text[i] << 16 | (unsigned char)text[i + 1] << 8 | (unsigned char)text[i + 2];
        out += kAlphabet[v >> 18 & 63];
        out += kAlphabet[v >> 12 & 63];
        out += kAlphabet[v >> 6 & 63];
        out += kAlphabet[v & 63];
    }
    if (i + 1 == text.size()) {
        unsigned v = (unsigned char)text[i] << 16;
        out += kAlphabet[v >> 18 & 63];
        out += kAlphabet[v >> 12 & 63];
        out += "==";
    } else if (i + 2 == text.size()) {
        unsigned v = (unsigned char)text[i] << 16 | (unsigned char)text[i + 1] << 8;
        out += kAlphabet[v >> 18 & 63];
        out += kAlphabet[v >> 12 & 63];
        out += kAlphabet[v >> 6 & 63];
        out += '=';
    }
    return out;
}

inline std::string BasicHeader(const std::string& login, const std::string& password)
{
    return "Basic " + Base64(login + ":" + password);
}

// A text that no other test of this run or of an earlier run uses.
inline std::string UniqueName(const std::string& tag)
{
    static std::atomic<int> counter{0};
    return tag + "-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(::GetTickCount()) + "-" +
           std::to_string(++counter);
}

// A server on 127.0.0.1 at a port of its own. A request whose target is an
// absolute URL is served as a proxy: without the required Proxy-Authorization
// it gets 407 with a Basic challenge. Any request without the required
// Authorization gets 401 with a Basic challenge. Otherwise 200. Every response
// closes its connection, so one thread serves all clients in turn.
//
// The port is never one that an earlier server of this process had: the
// tests name proxies by their address, and the process's map of proxy
// logins must not see an earlier test's proxy again.
class TAuthServer {
public:
    TAuthServer()
    {
        WSADATA data;
        ::WSAStartup(MAKEWORD(2, 2), &data);
        std::vector<vfc::TSocket> refused;
        for (int attempt = 0; attempt < 20 && !m_listener; ++attempt) {
            vfc::TSocket candidate(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
            sockaddr_in address = {};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            if (::bind(candidate.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
                continue;
            int length = sizeof address;
            ::getsockname(candidate.get(), reinterpret_cast<sockaddr*>(&address), &length);
            USHORT port = ntohs(address.sin_port);
            if (!UsedPorts().insert(port).second) {
                refused.push_back(std::move(candidate));  // held until a new port is found
                continue;
            }
            if (::listen(candidate.get(), 16) != 0)
                continue;
            m_port = port;
            m_listener = std::move(candidate);
        }
        m_realm = "vn-" + std::to_string(m_port);
        if (m_listener)
            m_thread = std::thread([this] { Serve(); });
    }

    ~TAuthServer()
    {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
        ::WSACleanup();
    }

    TAuthServer(const TAuthServer&) = delete;
    TAuthServer& operator=(const TAuthServer&) = delete;

    bool listening() const { return m_listener.valid(); }
    USHORT port() const { return m_port; }
    // The proxy text of a request through this server.
    std::string ProxyText() const { return "127.0.0.1:" + std::to_string(m_port); }

    void RequireProxyLogin(const std::string& login, const std::string& password)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_proxyExpected = BasicHeader(login, password);
    }
    void RequireServerLogin(const std::string& login, const std::string& password)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_serverExpected = BasicHeader(login, password);
    }
    void DropServerLogin()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_serverExpected.clear();
    }
    // The header values of the last request, or "<none>".
    std::string LastProxyAuthorization()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastProxyAuthorization;
    }
    std::string LastAuthorization()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastAuthorization;
    }
    int Requests()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_requests;
    }

private:
    static std::set<USHORT>& UsedPorts()
    {
        static std::set<USHORT> ports;
        return ports;
    }

    static std::string HeaderValue(const std::string& head, const std::string& name)
    {
        std::string lowerHead = head, lowerName = "\r\n" + name + ":";
        for (char& c : lowerHead)
            c = static_cast<char>(::tolower(static_cast<unsigned char>(c)));
        for (char& c : lowerName)
            c = static_cast<char>(::tolower(static_cast<unsigned char>(c)));
        size_t at = lowerHead.find(lowerName);
        if (at == std::string::npos)
            return "<none>";
        size_t start = head.find_first_not_of(' ', at + lowerName.size());
        size_t end = head.find("\r\n", start);
        return head.substr(start, end - start);
    }

    void Serve()
    {
        while (!m_stop) {
            fd_set readable;
            FD_ZERO(&readable);
            FD_SET(m_listener.get(), &readable);
            timeval wait = {0, 100000};
            if (::select(0, &readable, nullptr, nullptr, &wait) <= 0)
                continue;
            vfc::TSocket client(::accept(m_listener.get(), nullptr, nullptr));
            if (client)
                Answer(client.get());
        }
    }

    void Answer(SOCKET client)
    {
        DWORD timeoutMs = 5000;
        ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&timeoutMs), sizeof timeoutMs);
        std::string head;
        char buffer[2048];
        while (head.find("\r\n\r\n") == std::string::npos && head.size() < 65536) {
            int n = ::recv(client, buffer, sizeof buffer, 0);
            if (n <= 0)
                return;
            head.append(buffer, static_cast<size_t>(n));
        }
        const bool throughProxy = head.compare(head.find(' ') + 1, 7, "http://") == 0;
        std::string response;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_requests;
            m_lastProxyAuthorization = HeaderValue(head, "Proxy-Authorization");
            m_lastAuthorization = HeaderValue(head, "Authorization");
            if (throughProxy && !m_proxyExpected.empty() && m_lastProxyAuthorization != m_proxyExpected)
                response = "HTTP/1.1 407 Proxy Authentication Required\r\nProxy-Authenticate: Basic realm=\"" +
                           m_realm + "\"\r\n";
            else if (!m_serverExpected.empty() && m_lastAuthorization != m_serverExpected)
                response = "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"" + m_realm + "\"\r\n";
            else
                response = "HTTP/1.1 200 OK\r\n";
        }
        response += "Content-Length: 0\r\nConnection: close\r\n\r\n";
        ::send(client, response.data(), static_cast<int>(response.size()), 0);
        ::shutdown(client, SD_SEND);
    }

    vfc::TSocket m_listener;
    USHORT m_port = 0;
    std::string m_realm;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    std::mutex m_mutex;
    std::string m_proxyExpected, m_serverExpected;
    std::string m_lastProxyAuthorization = "<none>", m_lastAuthorization = "<none>";
    int m_requests = 0;
};

// One WinInet request, synchronous, in a session of its own: WinInet keeps
// proxy and server logins per session, so no test sees another's.
class TRequest {
public:
    // A GET of http://origin.invalid/ through `server` as the proxy.
    static TRequest ThroughProxy(const TAuthServer& server)
    {
        TRequest r;
        r.m_session.reset(::InternetOpenA("vn-credentials-test", INTERNET_OPEN_TYPE_PROXY, server.ProxyText().c_str(),
                                          nullptr, 0));
        r.m_connect.reset(::InternetConnectA(r.m_session.get(), "origin.invalid", INTERNET_DEFAULT_HTTP_PORT, nullptr,
                                             nullptr, INTERNET_SERVICE_HTTP, 0, 0));
        r.Open();
        return r;
    }
    // A GET of / on `server` as the origin, without a proxy.
    static TRequest Direct(const TAuthServer& server)
    {
        TRequest r;
        r.m_session.reset(::InternetOpenA("vn-credentials-test", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
        r.m_connect.reset(::InternetConnectA(r.m_session.get(), "127.0.0.1", server.port(), nullptr, nullptr,
                                             INTERNET_SERVICE_HTTP, 0, 0));
        r.Open();
        return r;
    }
    // A request handle that is never sent, for what needs only a handle.
    static TRequest Unsent()
    {
        TRequest r;
        r.m_session.reset(::InternetOpenA("vn-credentials-test", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
        r.m_connect.reset(::InternetConnectA(r.m_session.get(), "origin.invalid", INTERNET_DEFAULT_HTTP_PORT, nullptr,
                                             nullptr, INTERNET_SERVICE_HTTP, 0, 0));
        r.Open();
        return r;
    }

    HINTERNET get() const { return m_request.get(); }
    // The session's handle: WinInet refuses login options on it (12009).
    HINTERNET session() const { return m_session.get(); }

    // Sends the request and gives the response's status, or 0 when the send failed.
    DWORD Send()
    {
        if (!::HttpSendRequestA(m_request.get(), nullptr, 0, nullptr, 0))
            return 0;
        DWORD status = 0, size = sizeof status;
        if (!::HttpQueryInfoA(m_request.get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size,
                              nullptr))
            return 0;
        return status;
    }

    // A text option of the handle as the platform reports it, or "<failed>".
    std::string Option(DWORD option) const
    {
        char buffer[4096] = {};
        DWORD size = sizeof buffer;
        if (!::InternetQueryOptionA(m_request.get(), option, buffer, &size))
            return "<failed>";
        return buffer;
    }

private:
    void Open()
    {
        m_request.reset(::HttpOpenRequestA(m_connect.get(), "GET", "/", nullptr, nullptr, nullptr,
                                           INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE |
                                               INTERNET_FLAG_PRAGMA_NOCACHE,
                                           0));
    }

    vfc::TInternetHandle m_session, m_connect, m_request;
};

// A generic credential of the Credential Manager as the platform holds it.
struct TStoredCredential {
    bool found = false;
    std::wstring userName;
    std::wstring blob;  // the blob's bytes read as wide characters
    DWORD blobBytes = 0;
    DWORD persist = 0;
    DWORD flags = 0;
};

inline TStoredCredential ReadStored(const std::wstring& target)
{
    TStoredCredential stored;
    PCREDENTIALW credential = nullptr;
    if (!::CredReadW(target.c_str(), CRED_TYPE_GENERIC, 0, &credential))
        return stored;
    stored.found = true;
    stored.userName = credential->UserName ? credential->UserName : L"";
    stored.blobBytes = credential->CredentialBlobSize;
    if (credential->CredentialBlob)
        stored.blob.assign(reinterpret_cast<const wchar_t*>(credential->CredentialBlob),
                           credential->CredentialBlobSize / sizeof(wchar_t));
    stored.persist = credential->Persist;
    stored.flags = credential->Flags;
    ::CredFree(credential);
    return stored;
}

inline bool WriteStored(const std::wstring& target, const std::wstring& login, const std::wstring& password)
{
    CREDENTIALW credential = {};
    credential.Type = CRED_TYPE_GENERIC;
    credential.TargetName = const_cast<wchar_t*>(target.c_str());
    credential.UserName = const_cast<wchar_t*>(login.c_str());
    credential.CredentialBlob = reinterpret_cast<BYTE*>(const_cast<wchar_t*>(password.data()));
    credential.CredentialBlobSize = static_cast<DWORD>(password.size() * sizeof(wchar_t));
    credential.Persist = CRED_PERSIST_LOCAL_MACHINE;
    return ::CredWriteW(&credential, 0) != FALSE;
}

// Removes the named credentials of the Credential Manager when made and when
// gone: the store outlives the test process in the prefix.
class TStoreCleanup {
public:
    explicit TStoreCleanup(std::vector<std::wstring> targets) : m_targets(std::move(targets)) { Remove(); }
    ~TStoreCleanup() { Remove(); }

private:
    void Remove()
    {
        for (const std::wstring& target : m_targets)
            ::CredDeleteW(target.c_str(), CRED_TYPE_GENERIC, 0);
    }
    std::vector<std::wstring> m_targets;
};

inline std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

// The answers of the stand-in CREDUI.DLL for one test, forgotten afterwards.
class TCredUIAnswers {
public:
    TCredUIAnswers() { vn_credui_standin::Clear(); }
    ~TCredUIAnswers() { vn_credui_standin::Clear(); }
    TCredUIAnswers(const TCredUIAnswers&) = delete;
    TCredUIAnswers& operator=(const TCredUIAnswers&) = delete;

    void TypeLogin(const std::string& login, const std::string& password)
    {
        vn_credui_standin::WriteDword(L"Answer", 0);
        vn_credui_standin::WriteText(L"Login", Wide(login));
        vn_credui_standin::WriteText(L"Password", Wide(password));
    }
    void Cancel() { vn_credui_standin::WriteDword(L"Answer", ERROR_CANCELLED); }
    void LeaveTick(bool on) { vn_credui_standin::WriteDword(L"Tick", on ? 1 : 0); }
    void HoldEachPrompt(DWORD ms) { vn_credui_standin::WriteDword(L"HoldMs", ms); }
    void MakeUnloadable() { vn_credui_standin::WriteDword(L"Unloadable", 1); }

    DWORD Prompts() const { return vn_credui_standin::ReadDword(L"Prompts", 0); }
    DWORD MaxOpen() const { return vn_credui_standin::ReadDword(L"MaxOpen", 0); }
    DWORD Dword(const wchar_t* name) const { return vn_credui_standin::ReadDword(name, 0xFFFFFFFFu); }
    std::wstring Text(const wchar_t* name) const { return vn_credui_standin::ReadText(name); }
};

// Stands in for the platform's authentication dialog (InternetErrorDlg)
// through the seam, and acts as the platform's dialog does when the user
// confirms: it looks at the response on the handle and puts the typed login
// on it, as options 43 and 44 after a 407 and as 28 and 29 after a 401, then
// asks for the request to be sent again (12032). A response that is neither
// gets ERROR_SUCCESS, as from the platform. It writes down what it was given.
class TScriptedDialog {
public:
    TScriptedDialog() : m_seam(PlatformSeams().InternetErrorDlg, &TScriptedDialog::Dialog)
    {
        m_overlap = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
        Current() = this;
    }
    ~TScriptedDialog()
    {
        Current() = nullptr;
        ::CloseHandle(m_overlap);
    }
    TScriptedDialog(const TScriptedDialog&) = delete;
    TScriptedDialog& operator=(const TScriptedDialog&) = delete;

    void TypeLogin(const std::string& login, const std::string& password)
    {
        m_login = login;
        m_password = password;
        m_cancel = false;
    }
    void Cancel() { m_cancel = true; }
    // Each dialog stays open this long, or until a second opens beside it.
    void HoldEach(DWORD ms) { m_holdMs = ms; }

    int calls() const { return m_calls; }
    int maxOpen() const { return m_maxOpen; }
    HWND window() const { return m_window; }
    HINTERNET handle() const { return m_handle; }
    DWORD error() const { return m_error; }
    DWORD flags() const { return m_flags; }
    bool hadData() const { return m_hadData; }
    DWORD lastErrorOnEntry() const { return m_lastErrorOnEntry; }

private:
    static TScriptedDialog*& Current()
    {
        static TScriptedDialog* current = nullptr;
        return current;
    }

    static DWORD WINAPI Dialog(HWND window, HINTERNET handle, DWORD error, DWORD flags, LPVOID* data)
    {
        TScriptedDialog& self = *Current();
        self.m_lastErrorOnEntry = ::GetLastError();
        int open = ++self.m_open;
        if (open > 1)
            ::SetEvent(self.m_overlap);
        for (int seen = self.m_maxOpen; open > seen && !self.m_maxOpen.compare_exchange_weak(seen, open);)
            ;
        ++self.m_calls;
        {
            std::lock_guard<std::mutex> lock(self.m_mutex);
            self.m_window = window;
            self.m_handle = handle;
            self.m_error = error;
            self.m_flags = flags;
            self.m_hadData = data != nullptr;
        }
        if (self.m_holdMs)
            ::WaitForSingleObject(self.m_overlap, self.m_holdMs);
        DWORD answer = self.Answer(handle);
        --self.m_open;
        return answer;
    }

    DWORD Answer(HINTERNET handle)
    {
        if (m_cancel)
            return ERROR_CANCELLED;
        DWORD status = 0, size = sizeof status;
        if (!::HttpQueryInfoA(handle, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, nullptr))
            return ERROR_SUCCESS;
        DWORD loginOption, passwordOption;
        if (status == HTTP_STATUS_PROXY_AUTH_REQ) {
            loginOption = INTERNET_OPTION_PROXY_USERNAME;
            passwordOption = INTERNET_OPTION_PROXY_PASSWORD;
        } else if (status == HTTP_STATUS_DENIED) {
            loginOption = INTERNET_OPTION_USERNAME;
            passwordOption = INTERNET_OPTION_PASSWORD;
        } else {
            return ERROR_SUCCESS;
        }
        ::InternetSetOptionA(handle, loginOption, const_cast<char*>(m_login.c_str()),
                             static_cast<DWORD>(m_login.size() + 1));
        ::InternetSetOptionA(handle, passwordOption, const_cast<char*>(m_password.c_str()),
                             static_cast<DWORD>(m_password.size() + 1));
        return ERROR_INTERNET_FORCE_RETRY;
    }

    using DialogFn = DWORD(WINAPI*)(HWND, HINTERNET, DWORD, DWORD, LPVOID*);
    TScopedSeam<DialogFn> m_seam;
    std::mutex m_mutex;
    std::string m_login, m_password;
    bool m_cancel = true;
    DWORD m_holdMs = 0;
    HANDLE m_overlap = nullptr;
    std::atomic<int> m_calls{0}, m_open{0}, m_maxOpen{0};
    HWND m_window = nullptr;
    HINTERNET m_handle = nullptr;
    DWORD m_error = 0, m_flags = 0, m_lastErrorOnEntry = 0;
    bool m_hadData = false;
};

// Whether CREDUI.DLL resolves to the stand-in beside the test program, which
// needs WINEDLLOVERRIDES="credui=n".
inline bool StandinCredUIActive()
{
    vfc::TModule module(::LoadLibraryA("CREDUI.DLL"));
    if (!module)
        return false;
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(module.get(), path, MAX_PATH);
    return ::lstrcmpiA(std::string(path).substr(0, vn_test::BinDir().size()).c_str(), vn_test::BinDir().c_str()) == 0;
}

#define VN_REQUIRE_STANDIN_CREDUI()                                                                       \
    ASSERT_TRUE(::vn_cred_test::StandinCredUIActive())                                                    \
        << "CREDUI.DLL is not the stand-in beside the test program; run with WINEDLLOVERRIDES=credui=n"

}  // namespace vn_cred_test
