// A proxy login through GetProxyCredentials and the process-wide store, which
// on this prefix's Windows version is the Credential Manager with its prompt
// (the stand-in CREDUI.DLL), against a real WinInet request through a
// loopback proxy that demands a Basic login; the prompt of that store on its
// own; and one login dialog at a time.
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
    std::tuple<LONG, DWORD, DWORD, std::string, std::wstring> outcome;  // result, prompts, status of the repeat, map's, store's login
};
void PrintTo(const ProxyCase& c, std::ostream* os) { *os << c.name; }

const LONG kRetry = ERROR_INTERNET_FORCE_RETRY;
const ProxyCase kProxyCases[] = {
    {"Mode0AsksAndTheTypedLoginPassesAndIsKept", 0, nullptr, nullptr, "proxy-user", true, {kRetry, 1, 200, "proxy-user", L"proxy-user"}},
    {"Mode0AsksDespiteKnownLoginsAndReplacesThem", 0, "old-user", "old-user", "proxy-user", true,
     {kRetry, 1, 200, "proxy-user", L"proxy-user"}},
    {"Mode1TakesTheMapBeforeTheStore", 1, "proxy-user", "old-user", "old-user", true, {0, 0, 200, "proxy-user", L"old-user"}},
    {"Mode1ReadsTheStoreWhenTheMapHasNothing", 1, nullptr, "proxy-user", "old-user", true, {kRetry, 0, 200, "proxy-user", L"proxy-user"}},
    {"Mode1AsksWhenNothingIsKnown", 1, nullptr, nullptr, "proxy-user", true, {kRetry, 1, 200, "proxy-user", L"proxy-user"}},
    {"Mode2WithNothingKnownSetsNothing", 2, nullptr, nullptr, "proxy-user", true, {0, 0, 407, "", L""}},
    {"Mode2TakesTheMap", 2, "proxy-user", nullptr, "old-user", true, {0, 0, 200, "proxy-user", L""}},
    {"CancelledPrompt", 1, nullptr, nullptr, nullptr, true, {LONG(VN_E_PROXY_LOGIN_CANCELLED), 1, 407, "", L""}},
    {"UntickedLoginHoldsForThisProcessOnly", 0, nullptr, nullptr, "proxy-user", false, {kRetry, 1, 200, "proxy-user", L""}},
};

class ProxyLogin : public testing::TestWithParam<ProxyCase> {};

TEST_P(ProxyLogin, FindsTheLoginWhereTheModeSaysAndPutsItOnTheRequest)
{
    VN_REQUIRE_STANDIN_CREDUI();
    ASSERT_NE(nullptr, dynamic_cast<WinCredCredentialsManager*>(GetCredentialsManager())) << "this prefix's version has it";
    const ProxyCase& c = GetParam();
    TAuthServer server;
    server.Require(Basic("proxy-user", "proxy-user-secret"), "");
    const std::string proxy = UniqueName("proxy") + ":3128";  // the name the login is kept under
    if (c.inMap)
        CVnProxyCredentials::_saveCredentials(proxy, c.inMap, std::string(c.inMap) + "-secret");
    ASSERT_TRUE(!c.inStore || Store(proxy, Wide(c.inStore), Wide(c.inStore) + L"-secret"));
    PromptAnswer(c.typed, c.tick);
    TRequest request(&server);
    ASSERT_EQ(407u, request.Send());
    const size_t log = vn_test::LogSize();

    const LONG result = CVnProxyCredentials::GetProxyCredentials(proxy, request.get(), nullptr, c.mode);
    std::string login, password;
    CVnProxyCredentials::GetPassLogin(proxy, login, password);
    EXPECT_EQ(c.outcome, std::make_tuple(result, cu::ReadDword(L"Prompts", 0), request.Send(), login, std::get<0>(Stored(proxy))));
    EXPECT_EQ(login.empty() ? "" : login + "-secret", password);
    // A login from the map is logged on a line of its own; a password never is.
    EXPECT_EQ(c.mode && c.inMap ? 1 : 0, vn_test::CountLogLinesSince(log, "] pID " + std::to_string(::GetCurrentProcessId()) +
        " tID " + std::to_string(::GetCurrentThreadId()) + " INFO: Login information was gotten from the storage " + proxy + " " +
        (c.inMap ? c.inMap : "") + " ***"));
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
    cu::Clear();
}
INSTANTIATE_TEST_SUITE_P(Modes, ProxyLogin, testing::ValuesIn(kProxyCases), [](const auto& info) { return std::string(info.param.name); });

TEST(ProxyLoginEdges, NoHandleAndNoNameAskNobodyAndARefusedOptionIsGivenBackWithItsLine)
{
    VN_REQUIRE_STANDIN_CREDUI();
    const std::string proxy = UniqueName("edge-proxy");
    std::string login, password;
    PromptAnswer("user");
    TRequest request;
    for (int mode : {0, 1, 2})
        EXPECT_EQ(-1, CVnProxyCredentials::GetProxyCredentials(proxy, nullptr, nullptr, mode));
    EXPECT_EQ(kRetry, CVnProxyCredentials::GetProxyCredentials("", request.get(), nullptr, 0));
    EXPECT_EQ(std::make_tuple(0ul, -1L), std::make_tuple(cu::ReadDword(L"Prompts", 0), CVnProxyCredentials::GetPassLogin(proxy, login, password)));
    CVnProxyCredentials::_saveCredentials(proxy, "user", "secret");
    const size_t log = vn_test::LogSize();
    EXPECT_EQ(LONG(ERROR_INTERNET_INVALID_OPTION), CVnProxyCredentials::GetProxyCredentials(proxy, request.session(), nullptr, 1));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnProxyCredentials::GetProxyCredentials]. "
                                                  "Message: InternetSetOption failed Error code: 12009."));
    cu::Clear();
}

TEST(CredentialManagerPrompt, WithoutSavingShowsNoTickAndWritesNothingAndARefusedLoginIsNotKept)
{
    VN_REQUIRE_STANDIN_CREDUI();
    WinCredCredentialsManager manager;
    IINetApiHandler* handler = GetINetApiHandler();
    const std::string proxy = UniqueName("prompt-proxy") + ":3128";
    std::string login, password;
    TRequest request;
    PromptAnswer("user", true);
    EXPECT_TRUE(manager.GetCredentials(nullptr, proxy, request.get(), handler, 0, false));
    EXPECT_EQ(std::make_tuple(DWORD(CREDUI_FLAGS_GENERIC_CREDENTIALS | CREDUI_FLAGS_DO_NOT_PERSIST | CREDUI_FLAGS_EXCLUDE_CERTIFICATES),
                              0ul, std::wstring(), std::string("user"), 0L),
              std::make_tuple(cu::ReadDword(L"Flags", 0), cu::ReadDword(L"TickIn", 9), std::get<0>(Stored(proxy)),
                              request.Option(INTERNET_OPTION_PROXY_USERNAME), CVnProxyCredentials::GetPassLogin(proxy, login, password)));
    // WinInet keeps no login options on a session handle.
    const size_t log = vn_test::LogSize();
    EXPECT_FALSE(manager.GetCredentials(nullptr, proxy + "-refused", request.session(), handler, 0, false));
    EXPECT_EQ(-1, CVnProxyCredentials::GetPassLogin(proxy + "-refused", login, password));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnProxyCredentials::SetCredentials]. "
                                                  "Message: InternetSetOption failed Error code: 12009."));
    // No name asks nobody; a missing handler is an error named as it stands.
    EXPECT_TRUE(manager.GetCredentials(nullptr, "", request.get(), handler, 0, true));
    EXPECT_EQ("WinCredCredentialsManager::GetCredentials called with pHandleModifier == NULL",
              ThrownBy([&] { manager.GetCredentials(nullptr, proxy, request.get(), nullptr, 0, true); }));
    EXPECT_EQ(2ul, cu::ReadDword(L"Prompts", 0));
    cu::Clear();
}

// Each dialog stays open a while unless a second one opens beside it.
template <typename Call>
void TwiceAtOnce(Call call)
{
    std::thread first(call, 0), second(call, 1);
    first.join();
    second.join();
}

TEST(OneDialogAtATime, ProxyPromptsServerDialogsAndTheLsaStoresDialogsOpenOneAfterTheOther)
{
    VN_REQUIRE_STANDIN_CREDUI();
    const std::string proxies[2] = {UniqueName("lock-a") + ":1", UniqueName("lock-b") + ":1"};
    LONG results[2] = {};
    TRequest unsent[2];
    PromptAnswer("user", true, 1000);
    TwiceAtOnce([&](int i) { results[i] = CVnProxyCredentials::GetProxyCredentials(proxies[i], unsent[i].get(), nullptr, 0); });
    EXPECT_EQ(std::make_tuple(kRetry, kRetry, 2ul, 1ul),
              std::make_tuple(results[0], results[1], cu::ReadDword(L"Prompts", 0), cu::ReadDword(L"MaxOpen", 0)));

    TAuthServer server;
    const std::string user = UniqueName("lock-user");
    server.Require(Basic(user, user + "-secret"), Basic(user, user + "-secret"));
    TRequest direct[2] = {{&server, false}, {&server, false}}, proxied[2] = {{&server}, {&server}};
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(std::make_tuple(401u, 407u), std::make_tuple(direct[i].Send(), proxied[i].Send()));
    {
        TScriptedDialog dialog(user.c_str(), 1000);
        TwiceAtOnce([&](int i) {
            std::string login, password;
            results[i] = CVnProxyCredentials::GetServerCredentials(direct[i].get(), nullptr, 0, login, password);
        });
        EXPECT_EQ(std::make_tuple(kRetry, kRetry, 2, 1), std::make_tuple(results[0], results[1], dialog.calls.load(), dialog.maxOpen.load()));
    }
    TScriptedDialog dialog(user.c_str(), 1000);
    VnCredentialsManagers::LSACredentialsManager manager;
    TwiceAtOnce([&](int i) { results[i] = manager.GetCredentials(nullptr, proxies[i], proxied[i].get(), GetINetApiHandler(), 0, true); });
    EXPECT_EQ(std::make_tuple(1L, 1L, 2, 1), std::make_tuple(results[0], results[1], dialog.calls.load(), dialog.maxOpen.load()));
    for (auto& proxy : proxies)
        Forget(proxy);
    cu::Clear();
}

}  // namespace
