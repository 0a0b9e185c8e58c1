// Two requests that need a login at the same time get one dialog after the
// other. Each dialog of these tests stays open for a while unless a second
// one opens beside it, which it notices at once; so the result does not hang
// on how the threads are scheduled, only on whether a second dialog opens.
#include <gtest/gtest.h>

#include "credentials/credentials_support.h"
#include "settings/proxy_credentials.h"

using namespace vn_cred_test;

namespace {

constexpr DWORD kHoldMs = 1000;

// Runs `call` on two threads that start together.
template <typename Call>
void RunTwiceAtOnce(Call call)
{
    HANDLE start = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::thread first([&] {
        ::WaitForSingleObject(start, INFINITE);
        call(0);
    });
    std::thread second([&] {
        ::WaitForSingleObject(start, INFINITE);
        call(1);
    });
    ::SetEvent(start);
    first.join();
    second.join();
    ::CloseHandle(start);
}

TEST(OneDialogAtATime, TwoProxyPromptsOpenOneAfterTheOther)
{
    VN_REQUIRE_STANDIN_CREDUI();
    const std::string proxies[2] = {UniqueName("lock-proxy-a") + ":3128", UniqueName("lock-proxy-b") + ":3128"};
    TStoreCleanup cleanup({Wide(proxies[0]), Wide(proxies[1])});
    TCredUIAnswers answers;
    answers.TypeLogin("user", "secret");
    answers.HoldEachPrompt(kHoldMs);
    TRequest requests[2] = {TRequest::Unsent(), TRequest::Unsent()};
    LONG results[2] = {};

    RunTwiceAtOnce([&](int i) {
        results[i] = CVnProxyCredentials::GetProxyCredentials(proxies[i], requests[i].get(), nullptr, 0);
    });

    EXPECT_EQ(results[0], ERROR_INTERNET_FORCE_RETRY);
    EXPECT_EQ(results[1], ERROR_INTERNET_FORCE_RETRY);
    EXPECT_EQ(answers.Prompts(), 2u);
    EXPECT_EQ(answers.MaxOpen(), 1u);
}

TEST(OneDialogAtATime, TwoServerDialogsOpenOneAfterTheOther)
{
    TAuthServer server;
    ASSERT_TRUE(server.listening());
    const std::string user = UniqueName("lock-user");
    server.RequireServerLogin(user, "secret");
    TRequest requests[2] = {TRequest::Direct(server), TRequest::Direct(server)};
    ASSERT_EQ(requests[0].Send(), 401u);
    ASSERT_EQ(requests[1].Send(), 401u);
    TScriptedDialog dialog;
    dialog.TypeLogin(user, "secret");
    dialog.HoldEach(kHoldMs);
    LONG results[2] = {};

    RunTwiceAtOnce([&](int i) {
        std::string login, password;
        results[i] = CVnProxyCredentials::GetServerCredentials(requests[i].get(), nullptr, 0, login, password);
    });

    EXPECT_EQ(results[0], ERROR_INTERNET_FORCE_RETRY);
    EXPECT_EQ(results[1], ERROR_INTERNET_FORCE_RETRY);
    EXPECT_EQ(dialog.calls(), 2);
    EXPECT_EQ(dialog.maxOpen(), 1);
}

TEST(OneDialogAtATime, TheLsaStoreShowsOneProxyDialogAtATime)
{
    TAuthServer servers[2];
    for (TAuthServer& server : servers) {
        ASSERT_TRUE(server.listening());
        server.RequireProxyLogin("user", "secret");
    }
    TRequest requests[2] = {TRequest::ThroughProxy(servers[0]), TRequest::ThroughProxy(servers[1])};
    ASSERT_EQ(requests[0].Send(), 407u);
    ASSERT_EQ(requests[1].Send(), 407u);
    TScriptedDialog dialog;
    dialog.TypeLogin("user", "secret");
    dialog.HoldEach(kHoldMs);
    VnCredentialsManagers::LSACredentialsManager manager;
    bool results[2] = {};

    RunTwiceAtOnce([&](int i) {
        results[i] = manager.GetCredentials(nullptr, servers[i].ProxyText(), requests[i].get(), GetINetApiHandler(), 0,
                                            true);
    });

    EXPECT_TRUE(results[0]);
    EXPECT_TRUE(results[1]);
    EXPECT_EQ(dialog.calls(), 2);
    EXPECT_EQ(dialog.maxOpen(), 1);
}

}  // namespace
