// Proxy and server logins put on real WinInet request handles:
// GetProxyCredentials through the process-wide store, on this prefix's
// Windows version the Credential Manager with its prompt (the stand-in
// CREDUI.DLL); GetServerCredentials through the platform's dialog (scripted
// behind the seam, and Wine's own without a display); one dialog at a time.
#include <gtest/gtest.h>

#include <ostream>

#include "credentials/credentials_support.h"

using namespace vn_cred_test;
using VnCredentialsManagers::WinCredCredentialsManager;

namespace {

struct ProxyCase {
    const char* name;
    int mode;
    const char *inMap, *inStore, *typed;  // logins known beforehand, and what the user types (null: cancels)
    bool tick;
    std::tuple<LONG, DWORD, std::string, std::string, std::wstring> outcome;  // result, prompts, the handle's, map's, store's login
};
void PrintTo(const ProxyCase& c, std::ostream* os) { *os << c.name; }

const ProxyCase kProxyCases[] = {
    {"Mode0AsksAndTheTypedLoginPassesAndIsKept", 0, nullptr, nullptr, "user", true, {kRetry, 1, "user", "user", L"user"}},
    {"Mode0AsksDespiteKnownLoginsAndReplacesThem", 0, "old", "old", "user", true, {kRetry, 1, "user", "user", L"user"}},
    {"Mode1TakesTheMapBeforeTheStore", 1, "user", "old", "old", true, {0, 0, "user", "user", L"old"}},
    {"Mode1ReadsTheStoreWhenTheMapHasNothing", 1, nullptr, "user", "old", true, {kRetry, 0, "user", "user", L"user"}},
    {"Mode1AsksWhenNothingIsKnown", 1, nullptr, nullptr, "user", true, {kRetry, 1, "user", "user", L"user"}},
    {"Mode2WithNothingKnownSetsNothing", 2, nullptr, nullptr, "user", true, {0, 0, "", "", L""}},
    {"Mode2TakesTheMap", 2, "user", nullptr, "old", true, {0, 0, "user", "user", L""}},
    {"CancelledPrompt", 1, nullptr, nullptr, nullptr, true, {LONG(VN_E_PROXY_LOGIN_CANCELLED), 1, "", "", L""}},
    {"UntickedLoginHoldsForThisProcessOnly", 0, nullptr, nullptr, "user", false, {kRetry, 1, "user", "user", L""}},
};

class ProxyLogin : public testing::TestWithParam<ProxyCase> {};

TEST_P(ProxyLogin, FindsTheLoginWhereTheModeSaysAndPutsItOnTheRequest)
{
    ASSERT_NE(nullptr, dynamic_cast<WinCredCredentialsManager*>(GetCredentialsManager())) << "run with WINEDLLOVERRIDES=credui=n";
    const ProxyCase& c = GetParam();
    const std::string proxy = UniqueName("proxy") + ":3128";  // the name the login is kept under
    if (c.inMap)
        CVnProxyCredentials::_saveCredentials(proxy, c.inMap, std::string(c.inMap) + "-secret");
    ASSERT_TRUE(!c.inStore || Store(proxy, Wide(c.inStore), Wide(c.inStore) + L"-secret"));
    PromptAnswer(c.typed, c.tick);
    TRequest request;
    const size_t log = vn_test::LogSize();
    const LONG result = CVnProxyCredentials::GetProxyCredentials(proxy, request.get(), nullptr, c.mode);
    std::string login, password;
    CVnProxyCredentials::GetPassLogin(proxy, login, password);
    const std::string onHandle = request.Option(INTERNET_OPTION_PROXY_USERNAME);
    EXPECT_EQ(c.outcome, std::make_tuple(result, cu::ReadDword(L"Prompts", 0), onHandle, login, std::get<0>(Stored(proxy))));
    EXPECT_EQ(std::make_tuple(onHandle.empty() ? "" : onHandle + "-secret", login.empty() ? "" : login + "-secret"),
              std::make_tuple(request.Option(INTERNET_OPTION_PROXY_PASSWORD), password));
    // A login from the map is logged on a line of its own; a password never is.
    EXPECT_EQ(c.mode && c.inMap ? 1 : 0, vn_test::CountLogLinesSince(log, " tID " + std::to_string(::GetCurrentThreadId()) +
        " INFO: Login information was gotten from the storage " + proxy + " " + (c.inMap ? c.inMap : "") + " ***"));
    EXPECT_EQ(std::string::npos, vn_test::LogSince(log).find("-secret"));
    if (std::get<1>(c.outcome)) {
        EXPECT_EQ(std::make_tuple(Wide(proxy), L"Bitte geben Sie das Passwort f\u00fcr den Proxy " + Wide(proxy) + L" an.",
                                  std::wstring(L"Velorin Linkhost"), DWORD(CREDUI_FLAGS_GENERIC_CREDENTIALS | CREDUI_FLAGS_DO_NOT_PERSIST |
                                  CREDUI_FLAGS_EXCLUDE_CERTIFICATES | CREDUI_FLAGS_SHOW_SAVE_CHECK_BOX), 1ul, 514ul, 257ul, DWORD(sizeof(CREDUI_INFOW)), 0ul),
                  std::make_tuple(cu::ReadText(L"Target"), cu::ReadText(L"Message"), cu::ReadText(L"Caption"), cu::ReadDword(L"Flags", 0),
                                  cu::ReadDword(L"TickIn", 9), cu::ReadDword(L"LoginChars", 0), cu::ReadDword(L"PasswordChars", 0),
                                  cu::ReadDword(L"InfoSize", 0), cu::ReadDword(L"Context", 9)));
    }
    Forget(proxy);
}
INSTANTIATE_TEST_SUITE_P(Modes, ProxyLogin, testing::ValuesIn(kProxyCases), [](const auto& info) { return std::string(info.param.name); });

TEST(ProxyLoginEdges, NoHandleOrNameAsksNobodyAndRefusedOptionsAreGivenBackWithTheirLines)
{
    const std::string proxy = UniqueName("edge-proxy");
    const std::string refused = "]. Message: InternetSetOption failed Error code: 12009.";
    std::string login, password;
    TRequest request;
    PromptAnswer("user", true);
    for (int mode : {0, 1, 2})
        EXPECT_EQ(-1, CVnProxyCredentials::GetProxyCredentials(proxy, nullptr, nullptr, mode));
    EXPECT_EQ(kRetry, CVnProxyCredentials::GetProxyCredentials("", request.get(), nullptr, 0));
    EXPECT_EQ(std::make_tuple(0ul, -1L), std::make_tuple(cu::ReadDword(L"Prompts", 0), CVnProxyCredentials::GetPassLogin(proxy, login, password)));
    CVnProxyCredentials::_saveCredentials(proxy, "user", "secret");
    size_t log = vn_test::LogSize();
    EXPECT_EQ(LONG(ERROR_INTERNET_INVALID_OPTION), CVnProxyCredentials::GetProxyCredentials(proxy, request.session(), nullptr, 1));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnProxyCredentials::GetProxyCredentials" + refused));

    // The Credential Manager's prompt without saving: no tick, nothing written, and a login the handle refuses is not kept.
    WinCredCredentialsManager manager;
    EXPECT_TRUE(manager.GetCredentials(nullptr, proxy + "-unsaved", request.get(), GetINetApiHandler(), 0, false));
    EXPECT_EQ(std::make_tuple(DWORD(CREDUI_FLAGS_GENERIC_CREDENTIALS | CREDUI_FLAGS_DO_NOT_PERSIST | CREDUI_FLAGS_EXCLUDE_CERTIFICATES),
                              0ul, std::wstring(), std::string("user"), 0L),
              std::make_tuple(cu::ReadDword(L"Flags", 0), cu::ReadDword(L"TickIn", 9), std::get<0>(Stored(proxy + "-unsaved")),
                              request.Option(INTERNET_OPTION_PROXY_USERNAME), CVnProxyCredentials::GetPassLogin(proxy + "-unsaved", login, password)));
    log = vn_test::LogSize();
    EXPECT_FALSE(manager.GetCredentials(nullptr, proxy + "-refused", request.session(), GetINetApiHandler(), 0, false));
    EXPECT_EQ(-1, CVnProxyCredentials::GetPassLogin(proxy + "-refused", login, password));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnProxyCredentials::SetCredentials" + refused));
    EXPECT_TRUE(manager.GetCredentials(nullptr, "", request.get(), GetINetApiHandler(), 0, true));
    EXPECT_EQ("WinCredCredentialsManager::GetCredentials called with pHandleModifier == NULL",
              ThrownBy([&] { manager.GetCredentials(nullptr, proxy, request.get(), nullptr, 0, true); }));
    EXPECT_EQ(2ul, cu::ReadDword(L"Prompts", 0));

    // A server login on a handle that refuses it, or without a handle.
    TScriptedDialog dialog(ERROR_INTERNET_FORCE_RETRY, "user", false);
    log = vn_test::LogSize();
    EXPECT_EQ(LONG(ERROR_INTERNET_INVALID_OPTION), CVnProxyCredentials::GetServerCredentials(request.session(), nullptr, 1, login, password));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnProxyCredentials::_setServerCredentials" + refused));
    for (int mode : {0, 1, 2})
        EXPECT_EQ(-1, CVnProxyCredentials::GetServerCredentials(nullptr, nullptr, mode, login, password));
    EXPECT_EQ(0, dialog.calls.load());
    EXPECT_EQ(0, CVnProxyCredentials::_setServerCredentials(request.get(), "", "only-password"));
    EXPECT_EQ(std::make_tuple(std::string(), std::string("only-password")),
              std::make_tuple(request.Option(INTERNET_OPTION_USERNAME), request.Option(INTERNET_OPTION_PASSWORD)));
    cu::Clear();
}

TEST(ServerLogin, GivenLoginIsSetUnlessTheModeOrItsAbsenceAsksTheUser)
{
    const HWND client = reinterpret_cast<HWND>(ULONG_PTR(0x10AB0));  // travels untouched; never used as a window
    const struct {
        int mode;
        const char* given;
        DWORD answer;  // of the dialog
        bool fromClient;
        std::tuple<LONG, int, std::string, std::string> outcome;  // result, dialogs, the texts' and the handle's login
    } cases[] = {
        {1, "given", kRetry, false, {kRetry, 0, "given", "given"}},
        {2, "given", kRetry, false, {0, 0, "given", "given"}},
        {0, "given", kRetry, true, {kRetry, 1, "typed", "typed"}},
        {1, "", kRetry, false, {kRetry, 1, "typed", "typed"}},
        {2, "", kRetry, false, {kRetry, 1, "typed", "typed"}},
        {0, "given", ERROR_CANCELLED, false, {LONG(VN_E_SERVER_LOGIN_CANCELLED), 1, "given", ""}},
        {0, "given", ERROR_SUCCESS, false, {0, 1, "given", ""}},  // any other answer is given back
    };
    for (auto& c : cases) {
        TRequest request;
        TScriptedDialog dialog(c.answer, "typed", false);
        std::string login = c.given, password = login + "-secret";
        ::SetLastError(ERROR_ACCESS_DENIED);
        const LONG result = CVnProxyCredentials::GetServerCredentials(request.get(), c.fromClient ? client : nullptr, c.mode, login, password);
        EXPECT_EQ(c.outcome, std::make_tuple(result, dialog.calls.load(), login, request.Option(INTERNET_OPTION_USERNAME))) << c.mode << c.given;
        EXPECT_EQ(std::make_tuple(login + "-secret", request.Option(INTERNET_OPTION_USERNAME).empty() ? "" : login + "-secret"),
                  std::make_tuple(password, request.Option(INTERNET_OPTION_PASSWORD)));
        EXPECT_TRUE(!dialog.calls || dialog.last == std::make_tuple(c.fromClient ? client : ::GetDesktopWindow(), request.get(),
                                                                   DWORD(ERROR_INTERNET_INCORRECT_PASSWORD), 7ul, false, 0ul));
    }
    // Wine's own dialog, with no display: whatever it answers reaches the caller.
    if (char display[8]; !::GetEnvironmentVariableA("DISPLAY", display, sizeof display)) {
        TRequest request;
        const DWORD platform = ::InternetErrorDlg(::GetDesktopWindow(), request.get(), ERROR_INTERNET_INCORRECT_PASSWORD, 7, nullptr);
        ASSERT_TRUE(platform != ERROR_INTERNET_FORCE_RETRY && platform != ERROR_CANCELLED) << platform;
        std::string login = "given", password;
        EXPECT_EQ(LONG(platform), CVnProxyCredentials::GetServerCredentials(request.get(), nullptr, 0, login, password));
        EXPECT_EQ("given", login);
    }
}

template <typename Call>
void TwiceAtOnce(Call call)
{
    std::thread first(call, 0), second(call, 1);
    first.join();
    second.join();
}

TEST(OneDialogAtATime, ProxyPromptsServerDialogsAndTheLsaStoresDialogsOpenOneAfterTheOther)
{
    const std::string proxies[2] = {UniqueName("lock-a") + ":1", UniqueName("lock-b") + ":1"};
    LONG results[2] = {};
    TRequest requests[2];
    PromptAnswer("user", true, 1000);  // each stays open a while, unless a second one opens beside it
    TwiceAtOnce([&](int i) { results[i] = CVnProxyCredentials::GetProxyCredentials(proxies[i], requests[i].get(), nullptr, 0); });
    EXPECT_EQ(std::make_tuple(kRetry, kRetry, 2ul, 1ul), std::make_tuple(results[0], results[1], cu::ReadDword(L"Prompts", 0), cu::ReadDword(L"MaxOpen", 0)));
    {
        TScriptedDialog dialog(ERROR_INTERNET_FORCE_RETRY, "user", false, 1000);
        TwiceAtOnce([&](int i) {
            std::string login, password;
            results[i] = CVnProxyCredentials::GetServerCredentials(requests[i].get(), nullptr, 0, login, password);
        });
        EXPECT_EQ(std::make_tuple(kRetry, kRetry, 2, 1), std::make_tuple(results[0], results[1], dialog.calls.load(), dialog.maxOpen.load()));
    }
    TScriptedDialog dialog(ERROR_INTERNET_FORCE_RETRY, "user", true, 1000);
    VnCredentialsManagers::LSACredentialsManager manager;
    TwiceAtOnce([&](int i) { results[i] = manager.GetCredentials(nullptr, proxies[i], requests[i].get(), GetINetApiHandler(), 0, true); });
    EXPECT_EQ(std::make_tuple(1L, 1L, 2, 1), std::make_tuple(results[0], results[1], dialog.calls.load(), dialog.maxOpen.load()));
    for (auto& proxy : proxies)
        Forget(proxy);
    cu::Clear();
}

}  // namespace
