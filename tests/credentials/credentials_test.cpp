// Proxy and server logins on real WinInet request handles, through the stores (the Credential Manager with the stand-in
// CREDUI.DLL's prompt) or the platform's dialog (scripted behind the seam). Every login's password is login + "-secret".
#include <gtest/gtest.h>

#include <windows.h>
#include <wininet.h>
#include <wincred.h>

#include <atomic>
#include <thread>

#include "host/platform_seams.h"
#include "host/status.h"
#include "settings/credentials_managers.h"
#include "settings/proxy_credentials.h"
#include "tests/doubles/credui/credui_standin.h"
#include "common/test_util.h"
#include "vfc/text.h"
#include "vfc/unique_resource.h"

namespace {

namespace cu = vn_credui_standin;
using VnCredentialsManagers::LSACredentialsManager;
using VnCredentialsManagers::WinCredCredentialsManager;
using Cred = CVnProxyCredentials;
const LONG kRetry = ERROR_INTERNET_FORCE_RETRY;
const std::string kRefused = "]. Message: InternetSetOption failed Error code: 12009.";

std::string UniqueName(const std::string& tag)  // unused by any other test of this run or an earlier one
{
    static std::atomic<int> counter{0};
    return tag + "-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(::GetTickCount()) + "-" + std::to_string(++counter);
}

// A request handle of a session of its own (WinInet keeps logins per session), never sent.
struct TRequest {
    vfc::TInternetHandle session{::InternetOpenA("vn-test", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)};
    vfc::TInternetHandle connect{::InternetConnectA(session.get(), "origin.invalid", 80, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0)};
    vfc::TInternetHandle request{::HttpOpenRequestA(connect.get(), "GET", "/", nullptr, nullptr, nullptr, INTERNET_FLAG_RELOAD, 0)};
    HINTERNET get() const { return request.get(); }
    std::string Option(DWORD option) const  // "" when not set
    {
        char buffer[4096] = {};
        DWORD size = sizeof buffer;
        return ::InternetQueryOptionA(get(), option, buffer, &size) ? buffer : "<failed>";
    }
};

// A generic credential as the platform holds it: login, password, persistence, flags; or nothing.
std::tuple<std::wstring, std::wstring, DWORD, DWORD> Stored(const std::string& target)
{
    PCREDENTIALW c = nullptr;
    if (!::CredReadW(vfc::Widen(target).c_str(), CRED_TYPE_GENERIC, 0, &c))
        return {};
    std::tuple<std::wstring, std::wstring, DWORD, DWORD> stored{c->UserName ? c->UserName : L"",
        std::wstring(reinterpret_cast<wchar_t*>(c->CredentialBlob), c->CredentialBlobSize / 2), c->Persist, c->Flags};
    ::CredFree(c);
    return stored;
}
void Forget(const std::string& target) { ::CredDeleteW(vfc::Widen(target).c_str(), CRED_TYPE_GENERIC, 0); }

// How the "user" answers the stand-in's password prompt: types a login, or cancels (null).
void PromptAnswer(const char* login, bool tick = true, DWORD holdMs = 0)
{
    cu::Clear();
    cu::WriteDword(L"Answer", login ? NO_ERROR : ERROR_CANCELLED);
    cu::WriteText(L"Login", vfc::Widen(login ? login : ""));
    cu::WriteText(L"Password", vfc::Widen(login ? std::string(login) + "-secret" : ""));
    cu::WriteDword(L"Tick", tick);
    cu::WriteDword(L"HoldMs", holdMs);
}

// The platform's login dialog behind the seam; answering 12032 it puts the login on the handle (43 and 44, or 28 and 29).
class TScriptedDialog {
public:
    TScriptedDialog(DWORD answer, const char* login = "", bool proxy = true) : m_answer(answer), m_login(login), m_proxy(proxy)
    {
        s_current = this;
    }
    ~TScriptedDialog() { s_current = m_previous; }
    int calls = 0;
    std::tuple<HWND, HINTERNET, DWORD, DWORD, bool, DWORD> last;  // window, handle, error, flags, data, last error

private:
    static DWORD WINAPI Dialog(HWND window, HINTERNET handle, DWORD error, DWORD flags, LPVOID* data)
    {
        TScriptedDialog& self = *s_current;
        self.last = std::make_tuple(window, handle, error, flags, data != nullptr, ::GetLastError());
        ++self.calls;
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
    TScriptedDialog* m_previous = s_current;
    TScopedSeam<DWORD(WINAPI*)(HWND, HINTERNET, DWORD, DWORD, LPVOID*)> m_seam{PlatformSeams().InternetErrorDlg, &Dialog};
};

TEST(ProxyLogin, IsFoundWhereTheModeSaysAndPutOnTheRequest)
{
    // Mode, logins in the map and the store, what the user types (null: cancels), tick; result, prompts, login on the handle, map, store.
    const std::tuple<int, const char*, const char*, const char*, bool, std::tuple<LONG, DWORD, std::string, std::string, std::wstring>> cases[] = {
        {0, nullptr, nullptr, "user", true, {kRetry, 1, "user", "user", L"user"}},
        {0, "old", "old", "user", true, {kRetry, 1, "user", "user", L"user"}},  // asks despite known logins and replaces them
        {1, "user", "old", "old", true, {0, 0, "user", "user", L"old"}},        // the map before the store
        {1, nullptr, "user", "old", true, {kRetry, 0, "user", "user", L"user"}},
        {1, nullptr, nullptr, "user", true, {kRetry, 1, "user", "user", L"user"}},
        {2, nullptr, nullptr, "user", true, {0, 0, "", "", L""}},
        {2, "user", nullptr, "old", true, {0, 0, "user", "user", L""}},
        {1, nullptr, nullptr, nullptr, true, {LONG(VN_E_PROXY_LOGIN_CANCELLED), 1, "", "", L""}},
        {0, nullptr, nullptr, "user", false, {kRetry, 1, "user", "user", L""}},  // without the tick: this process only
    };
    for (auto& [mode, inMap, inStore, typed, tick, outcome] : cases) {
        const std::string proxy = UniqueName("proxy") + ":3128";  // the name the login is kept under
        if (inMap)
            Cred::_saveCredentials(proxy, inMap, std::string(inMap) + "-secret");
        ASSERT_TRUE(!inStore || WinCredCredentialsManager().StoreCredentials(vfc::Widen(proxy), vfc::Widen(inStore), vfc::Widen(inStore) + L"-secret"));
        PromptAnswer(typed, tick);
        TRequest request;
        const size_t log = vn_test::LogSize();
        const LONG result = Cred::GetProxyCredentials(proxy, request.get(), nullptr, mode);
        std::string login, password, onHandle = request.Option(INTERNET_OPTION_PROXY_USERNAME);
        Cred::GetPassLogin(proxy, login, password);
        EXPECT_EQ(outcome, std::make_tuple(result, cu::ReadDword(L"Prompts", 0), onHandle, login, std::get<0>(Stored(proxy)))) << mode << inMap;
        EXPECT_EQ(std::make_tuple(onHandle.empty() ? "" : onHandle + "-secret", login.empty() ? "" : login + "-secret"),
                  std::make_tuple(request.Option(INTERNET_OPTION_PROXY_PASSWORD), password));
        // A login from the map is logged on a line of its own; a password never is.
        EXPECT_EQ(std::make_tuple(mode && inMap ? 1 : 0, std::string::npos), std::make_tuple(vn_test::CountLogLinesSince(log, " tID " + std::to_string(
            ::GetCurrentThreadId()) + " INFO: Login information was gotten from the storage " + proxy + " " + (inMap ? inMap : "") + " ***"),
            vn_test::LogSince(log).find("-secret")));
        if (std::get<1>(outcome)) {
            EXPECT_EQ(std::make_tuple(vfc::Widen(proxy), L"Bitte geben Sie das Passwort f\u00fcr den Proxy " + vfc::Widen(proxy) + L" an.",
                          std::wstring(L"Velorin Linkhost"), DWORD(CREDUI_FLAGS_GENERIC_CREDENTIALS | CREDUI_FLAGS_DO_NOT_PERSIST |
                          CREDUI_FLAGS_EXCLUDE_CERTIFICATES | CREDUI_FLAGS_SHOW_SAVE_CHECK_BOX | CREDUI_FLAGS_ALWAYS_SHOW_UI), 1ul, 514ul, 257ul),
                      std::make_tuple(cu::ReadText(L"Target"), cu::ReadText(L"Message"), cu::ReadText(L"Caption"), cu::ReadDword(L"Flags", 0),
                          cu::ReadDword(L"TickIn", 9), cu::ReadDword(L"LoginChars", 0), cu::ReadDword(L"PasswordChars", 0)));
        }
        Forget(proxy);
    }
    const std::string proxy = UniqueName("edge-proxy");
    std::string login, password;
    TRequest request;
    PromptAnswer("user");
    for (int mode : {0, 1, 2})
        EXPECT_EQ(-1, Cred::GetProxyCredentials(proxy, nullptr, nullptr, mode));
    EXPECT_EQ(kRetry, Cred::GetProxyCredentials("", request.get(), nullptr, 0));
    EXPECT_EQ(std::make_tuple(0ul, -1L), std::make_tuple(cu::ReadDword(L"Prompts", 0), Cred::GetPassLogin(proxy, login, password)));
    Cred::_saveCredentials(proxy, "user", "user-secret");
    const size_t log = vn_test::LogSize();
    EXPECT_EQ(LONG(ERROR_INTERNET_INVALID_OPTION), Cred::GetProxyCredentials(proxy, request.session.get(), nullptr, 1));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnProxyCredentials::GetProxyCredentials" + kRefused));
    // Wine's prompt gives a name typed without a domain back as "<target>\name": proxy and store get the name; a domain stays.
    for (const std::string& sent : {std::string("user"), std::string("other\\user")}) {
        TRequest prompted;
        PromptAnswer((sent == "user" ? proxy + "\\user" : sent).c_str());
        EXPECT_EQ(kRetry, Cred::GetProxyCredentials(proxy, prompted.get(), nullptr, 0));
        EXPECT_EQ(std::make_tuple(sent, vfc::Widen(sent)), std::make_tuple(prompted.Option(INTERNET_OPTION_PROXY_USERNAME), std::get<0>(Stored(proxy))));
    }
    Forget(proxy);
    cu::Clear();
}

TEST(ServerLogin, GivenLoginIsSetUnlessTheModeOrItsAbsenceAsksTheUser)
{
    const HWND client = reinterpret_cast<HWND>(ULONG_PTR(0x10AB0));  // travels untouched; never used as a window
    // mode, login given, the dialog's answer, on the client's window; outcome: result, dialogs, the texts' and the handle's login
    const std::tuple<int, const char*, DWORD, bool, std::tuple<LONG, int, std::string, std::string>> cases[] = {
        {1, "given", kRetry, false, {kRetry, 0, "given", "given"}},
        {2, "given", kRetry, false, {0, 0, "given", "given"}},
        {0, "given", kRetry, true, {kRetry, 1, "typed", "typed"}},
        {2, "", kRetry, false, {kRetry, 1, "typed", "typed"}},
        {0, "given", ERROR_CANCELLED, false, {LONG(VN_E_SERVER_LOGIN_CANCELLED), 1, "given", ""}},
        {0, "given", ERROR_SUCCESS, false, {0, 1, "given", ""}},  // any other answer is given back
    };
    for (auto& [mode, given, answer, fromClient, outcome] : cases) {
        TRequest request;
        TScriptedDialog dialog(answer, "typed", false);
        std::string login = given, password = login + "-secret";
        ::SetLastError(ERROR_ACCESS_DENIED);
        const LONG result = Cred::GetServerCredentials(request.get(), fromClient ? client : nullptr, mode, login, password);
        EXPECT_EQ(outcome, std::make_tuple(result, dialog.calls, login, request.Option(INTERNET_OPTION_USERNAME))) << mode << given;
        EXPECT_EQ(std::make_tuple(login + "-secret", request.Option(INTERNET_OPTION_USERNAME).empty() ? "" : login + "-secret"),
                  std::make_tuple(password, request.Option(INTERNET_OPTION_PASSWORD)));
        EXPECT_TRUE(!dialog.calls || dialog.last == std::make_tuple(fromClient ? client : ::GetDesktopWindow(), request.get(),
                                                                   DWORD(ERROR_INTERNET_INCORRECT_PASSWORD), 7ul, false, 0ul));
    }
    TRequest request;
    TScriptedDialog dialog(kRetry, "typed", false);
    std::string login = "user", password = "secret";
    for (int mode : {0, 1, 2})
        EXPECT_EQ(-1, Cred::GetServerCredentials(nullptr, nullptr, mode, login, password));
    const size_t log = vn_test::LogSize();
    EXPECT_EQ(LONG(ERROR_INTERNET_INVALID_OPTION), Cred::GetServerCredentials(request.session.get(), nullptr, 1, login, password));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnProxyCredentials::_setServerCredentials" + kRefused));
    EXPECT_EQ(0, dialog.calls);
}

TEST(OneDialogAtATime, TwoProxyPromptsOpenOneAfterTheOther)
{
    const std::string proxies[2] = {UniqueName("lock-a") + ":1", UniqueName("lock-b") + ":1"};
    LONG results[2] = {};
    TRequest requests[2];
    PromptAnswer("user", true, 1000);  // each stays open a while, unless a second one opens beside it
    std::thread first([&] { results[0] = Cred::GetProxyCredentials(proxies[0], requests[0].get(), nullptr, 0); });
    std::thread second([&] { results[1] = Cred::GetProxyCredentials(proxies[1], requests[1].get(), nullptr, 0); });
    first.join(), second.join();
    EXPECT_EQ(std::make_tuple(kRetry, kRetry, 2ul, 1ul), std::make_tuple(results[0], results[1], cu::ReadDword(L"Prompts", 0), cu::ReadDword(L"MaxOpen", 0)));
    Forget(proxies[0]), Forget(proxies[1]), cu::Clear();
}

TEST(CredentialManagerStore, KeepsOneGenericCredentialPerProxyNameWithinThePlatformsLimits)
{
    WinCredCredentialsManager store;
    const std::string host = UniqueName("store"), a = host + ":8080", b = host + ":8081";
    std::wstring login, password = L"x";
    ASSERT_TRUE(store.StoreCredentials(vfc::Widen(a), L"user-a", L"p\u00e4ss") && store.StoreCredentials(vfc::Widen(b), L"user-b", L"pass-b"));
    EXPECT_EQ(std::make_tuple(std::wstring(L"user-a"), std::wstring(L"p\u00e4ss"), DWORD(CRED_PERSIST_LOCAL_MACHINE), 0ul), Stored(a));
    EXPECT_EQ(L"user-b", std::get<0>(Stored(b)));
    ASSERT_TRUE(store.StoreCredentials(vfc::Widen(a), L"someone", L""));  // no blob: an empty password
    EXPECT_TRUE(store.RetrieveCredentials(vfc::Widen(a), login, password));
    EXPECT_EQ(std::make_tuple(std::wstring(L"someone"), std::wstring()), std::make_tuple(login, password));
    EXPECT_FALSE(store.RetrieveCredentials(vfc::Widen(host), login, password) || store.RetrieveCredentials(L"", login, password));
    // Wine's Credential Manager takes what the platform's limits forbid; the store keeps to them.
    const std::tuple<std::string, std::wstring, std::wstring> limits[] = {{"", L"user", L"secret"}, {host, L"", L"secret"},
        {host, std::wstring(514, L'u'), L"secret"}, {host, L"user", std::wstring(1281, L'p')}, {host, std::wstring(513, L'u'), std::wstring(1280, L'p')}};
    for (auto& [target, user, secret] : limits) {
        Forget(target);
        EXPECT_EQ(user.size() == 513, store.StoreCredentials(vfc::Widen(target), user, secret));
        EXPECT_EQ(user.size() == 513 ? user : L"", std::get<0>(Stored(target)));
    }
    Forget(host);
    TRequest request;
    PromptAnswer("user", true);
    const size_t log = vn_test::LogSize();
    std::string typed, secret;
    EXPECT_FALSE(store.GetCredentials(nullptr, a, request.session.get(), GetINetApiHandler(), 0, false));
    EXPECT_EQ(-1, Cred::GetPassLogin(a, typed, secret));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnProxyCredentials::SetCredentials" + kRefused));
    EXPECT_EQ(std::make_tuple(true, 1ul), std::make_tuple(store.GetCredentials(nullptr, "", request.get(), nullptr, 0, true), cu::ReadDword(L"Prompts", 0)));
    for (auto& target : {a, b, host})
        Forget(target);
    cu::Clear();
}

TEST(LsaStore, ManagerAsksThePlatformDialogThroughTheHandlerAndSplitsSecretsAtTheFirstUnitSeparator)
{
    LSACredentialsManager manager;
    IINetApiHandler* handler = GetINetApiHandler();
    const std::string proxy = UniqueName("lsa-proxy");
    std::wstring wLogin, wPassword;
    EXPECT_FALSE(manager.StoreCredentials(L"", L"user", L"secret") || manager.StoreCredentials(vfc::Widen(proxy), L"", L"secret"));
    // A secret splits at its first unit separator, unless that is missing or last.
    for (auto& [secret, user, rest] : {std::make_tuple(L"user\x1f" L"s\x1f" L"t", L"user", L"s\x1f" L"t"), std::make_tuple(L"user", L"user", L""),
             std::make_tuple(L"user\x1f", L"user\x1f", L"")}) {
        VnCredentialsManagers::SplitLsaSecret(secret, wLogin, wPassword = L"stale");
        EXPECT_EQ(std::make_tuple(std::wstring(user), std::wstring(rest)), std::make_tuple(wLogin, wPassword));
    }
    std::string login, password;
    TRequest request, next;
    TScriptedDialog dialog(kRetry, "lsa-user");
    EXPECT_TRUE(manager.GetCredentials(nullptr, proxy, request.get(), handler, 1, true));
    EXPECT_EQ(std::make_tuple(::GetDesktopWindow(), request.get(), 0ul, 7ul, std::string("lsa-user"), -1L),
              std::make_tuple(std::get<0>(dialog.last), std::get<1>(dialog.last), std::get<2>(dialog.last), std::get<3>(dialog.last),
                              request.Option(INTERNET_OPTION_PROXY_USERNAME), Cred::GetPassLogin(proxy, login, password)));
    EXPECT_TRUE(manager.GetCredentials(nullptr, proxy, next.get(), handler, 2, true));  // never asks
    EXPECT_TRUE(manager.GetCredentials(nullptr, "", next.get(), handler, 0, true));     // nobody to ask for
    EXPECT_EQ(1, dialog.calls);
    TScriptedDialog cancel(ERROR_CANCELLED);
    EXPECT_FALSE(manager.GetCredentials(nullptr, proxy, next.get(), handler, 0, true));
    // The handler between store and handle leaves an empty part off, and reads back what the handle holds.
    EXPECT_TRUE(handler->SetCredentials(next.get(), proxy + "-handler", "user", ""));
    EXPECT_TRUE(handler->GetCredentials(next.get(), login, password));
    EXPECT_EQ(std::make_tuple(std::string("user"), std::string()), std::make_tuple(login, password));
    EXPECT_FALSE(handler->GetCredentials(nullptr, login, password));
    EXPECT_EQ("", login + password);
    const size_t log = vn_test::LogSize();
    EXPECT_FALSE(handler->GetCredentials(next.session.get(), login, password));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnLinkhostWITransceiver::GetCredentials]. "
                                                  "Message: InternetQueryOption failed while quering for login."));
}

// The process-wide store: the Credential Manager on this prefix's Windows version, the LSA store without CREDUI.DLL.
TEST(CredentialObjects, StoreFollowsItsLibraryAndIsOneForAllThreadsUntilReleasedWhileTheMapStays)
{
    const std::string host = UniqueName("map");
    std::string login = "untouched", password = "untouched";
    EXPECT_EQ(-1, Cred::GetPassLogin(host + ":8080", login, password));
    EXPECT_EQ("untouched", login);
    Cred::_saveCredentials(host + ":8080", "first", "one");
    Cred::_saveCredentials(host + ":8080", "first", "two");
    Cred::_saveCredentials(host + ":8081", "other", "three");
    for (DWORD unloadable : {1, 0}) {
        cu::Clear();
        cu::WriteDword(L"Unloadable", unloadable);
        ReleaseCredentialObjects();
        EXPECT_EQ(nullptr, ::GetModuleHandleA("credui.dll"));
        std::pair<IVnCredentialsManager*, IINetApiHandler*> made[2];
        std::thread first([&] { made[0] = {GetCredentialsManager(), GetINetApiHandler()}; });
        std::thread second([&] { made[1] = {GetCredentialsManager(), GetINetApiHandler()}; });
        first.join(), second.join();  // one for all threads
        EXPECT_EQ(std::make_tuple(made[0], !unloadable, unloadable != 0), std::make_tuple(made[1], dynamic_cast<WinCredCredentialsManager*>(made[0].first)
                                                       != nullptr, dynamic_cast<LSACredentialsManager*>(made[0].first) != nullptr));
    }
    EXPECT_NE(nullptr, ::GetModuleHandleA("credui.dll")) << "the Credential Manager holds CREDUI.DLL for its life";
    ReleaseCredentialObjects();
    EXPECT_EQ(nullptr, ::GetModuleHandleA("credui.dll"));
    cu::Clear();
    std::string other, secret, none;
    EXPECT_EQ(std::make_tuple(0L, 0L, -1L), std::make_tuple(Cred::GetPassLogin(host + ":8080", login, password),
              Cred::GetPassLogin(host + ":8081", other, secret), Cred::GetPassLogin(host, none, none)));
    EXPECT_EQ("firsttwo|otherthree", login + password + "|" + other + secret);
}

}  // namespace
