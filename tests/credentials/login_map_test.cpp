// The process's map of proxy logins, and the life of the two process-wide
// objects beside it.
#include <gtest/gtest.h>

#include "credentials/credentials_support.h"
#include "settings/proxy_credentials.h"

using namespace vn_cred_test;

namespace {

TEST(LoginMap, GetPassLoginFindsOnlyWhatWasSaved)
{
    const std::string proxy = UniqueName("map-proxy") + ":8080";
    std::string login = "untouched", password = "untouched";
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(proxy, login, password), -1);
    EXPECT_EQ(login, "untouched");

    CVnProxyCredentials::_saveCredentials(proxy, "user", "secret");

    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(proxy, login, password), 0);
    EXPECT_EQ(login, "user");
    EXPECT_EQ(password, "secret");
}

TEST(LoginMap, ANewLoginForTheSameProxyReplacesTheOld)
{
    const std::string proxy = UniqueName("map-proxy") + ":8080";
    CVnProxyCredentials::_saveCredentials(proxy, "first", "one");
    CVnProxyCredentials::_saveCredentials(proxy, "first", "two");

    std::string login, password;
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(proxy, login, password), 0);
    EXPECT_EQ(login, "first");
    EXPECT_EQ(password, "two");

    CVnProxyCredentials::_saveCredentials(proxy, "second", "two");
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(proxy, login, password), 0);
    EXPECT_EQ(login, "second");
}

TEST(LoginMap, TwoPortsOfOneHostAreTwoProxies)
{
    const std::string host = UniqueName("map-host");
    CVnProxyCredentials::_saveCredentials(host + ":8080", "user-a", "pass-a");
    CVnProxyCredentials::_saveCredentials(host + ":8081", "user-b", "pass-b");

    std::string login, password;
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(host + ":8080", login, password), 0);
    EXPECT_EQ(login, "user-a");
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(host + ":8081", login, password), 0);
    EXPECT_EQ(login, "user-b");
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(host, login, password), -1);
}

TEST(LoginMap, TheMapOutlivesTheProcessWideObjects)
{
    const std::string proxy = UniqueName("map-proxy") + ":8080";
    CVnProxyCredentials::_saveCredentials(proxy, "user", "secret");

    ReleaseCredentialObjects();

    std::string login, password;
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(proxy, login, password), 0);
    EXPECT_EQ(login, "user");
}

TEST(CredentialObjects, ReleaseEndsTheStoreAndTheNextUseMakesItAgain)
{
    VN_REQUIRE_STANDIN_CREDUI();
    ReleaseCredentialObjects();
    ASSERT_EQ(::GetModuleHandleA("credui.dll"), nullptr) << "another test still holds CREDUI.DLL";

    // On this prefix the store is the Credential Manager, which holds
    // CREDUI.DLL for its life: the library shows when the object lives.
    ASSERT_NE(dynamic_cast<VnCredentialsManagers::WinCredCredentialsManager*>(GetCredentialsManager()), nullptr);
    EXPECT_NE(::GetModuleHandleA("credui.dll"), nullptr);

    ReleaseCredentialObjects();
    EXPECT_EQ(::GetModuleHandleA("credui.dll"), nullptr);

    EXPECT_NE(GetCredentialsManager(), nullptr);
    EXPECT_NE(::GetModuleHandleA("credui.dll"), nullptr);
    EXPECT_NE(GetINetApiHandler(), nullptr);
}

TEST(CredentialObjects, TheFactoriesGiveOneInstanceToAllThreads)
{
    ReleaseCredentialObjects();
    constexpr int kThreads = 8;
    IVnCredentialsManager* managers[kThreads] = {};
    IINetApiHandler* handlers[kThreads] = {};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&managers, &handlers, i] {
            managers[i] = GetCredentialsManager();
            handlers[i] = GetINetApiHandler();
        });
    for (std::thread& thread : threads)
        thread.join();
    for (int i = 0; i < kThreads; ++i) {
        EXPECT_EQ(managers[i], GetCredentialsManager());
        EXPECT_EQ(handlers[i], GetINetApiHandler());
    }
}

}  // namespace
