// GetProxyCredentials through the process-wide store, which on this prefix's
// Windows version is the Credential Manager with its prompt (the stand-in
// CREDUI.DLL), against a real WinInet request through a loopback proxy that
// demands a Basic login.
#include <gtest/gtest.h>

#include "credentials/credentials_support.h"
#include "host/log.h"
#include "host/status.h"
#include "settings/proxy_credentials.h"

using namespace vn_cred_test;

namespace {

class ProxyLogin : public ::testing::Test {
protected:
    void SetUp() override
    {
        VN_REQUIRE_STANDIN_CREDUI();
        ASSERT_NE(dynamic_cast<VnCredentialsManagers::WinCredCredentialsManager*>(GetCredentialsManager()), nullptr)
            << "this prefix's Windows version should choose the Credential Manager";
        ASSERT_TRUE(m_server.listening());
        m_server.RequireProxyLogin(kLogin, kPassword);
    }

    const std::string kLogin = "proxy-user";
    const std::string kPassword = "proxy-secret";
    TAuthServer m_server;
    std::string m_proxy = m_server.ProxyText();
    TCredUIAnswers m_answers;
    TStoreCleanup m_cleanup{{Wide(m_server.ProxyText())}};
};

TEST_F(ProxyLogin, Mode0AsksAndTheTypedLoginPassesTheProxy)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_answers.TypeLogin(kLogin, kPassword);

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 0), ERROR_INTERNET_FORCE_RETRY);

    EXPECT_EQ(m_answers.Prompts(), 1u);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), kLogin);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_PASSWORD), kPassword);
    EXPECT_EQ(request.Send(), 200u);
    EXPECT_EQ(m_server.LastProxyAuthorization(), BasicHeader(kLogin, kPassword));
    std::string login, password;
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), 0);
    EXPECT_EQ(login, kLogin);
    EXPECT_EQ(password, kPassword);
    TStoredCredential stored = ReadStored(Wide(m_proxy));
    ASSERT_TRUE(stored.found) << "the save tick was on";
    EXPECT_EQ(stored.userName, Wide(kLogin));
    EXPECT_EQ(stored.blob, Wide(kPassword));
}

TEST_F(ProxyLogin, Mode0AsksEvenWithAKnownLoginAndTheNewOneReplacesIt)
{
    CVnProxyCredentials::_saveCredentials(m_proxy, "old-user", "old-secret");
    ASSERT_TRUE(WriteStored(Wide(m_proxy), L"old-user", L"old-secret"));
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_answers.TypeLogin(kLogin, kPassword);

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 0), ERROR_INTERNET_FORCE_RETRY);

    EXPECT_EQ(m_answers.Prompts(), 1u);
    std::string login, password;
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), 0);
    EXPECT_EQ(login, kLogin);
    EXPECT_EQ(password, kPassword);
    EXPECT_EQ(ReadStored(Wide(m_proxy)).userName, Wide(kLogin));
    EXPECT_EQ(request.Send(), 200u);
}

TEST_F(ProxyLogin, Mode1TakesTheLoginOfTheMapBeforeTheStoreWithoutAskingAndNeverLogsThePassword)
{
    CVnProxyCredentials::_saveCredentials(m_proxy, kLogin, kPassword);
    ASSERT_TRUE(WriteStored(Wide(m_proxy), L"store-user", L"store-secret"));
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    const size_t logOffset = vn_test::LogSize();

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 1), 0);

    EXPECT_EQ(m_answers.Prompts(), 0u);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), kLogin);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_PASSWORD), kPassword);
    EXPECT_EQ(request.Send(), 200u);
    // A line of its own, not wrapped in the error form.
    EXPECT_EQ(vn_test::CountLogLinesSince(logOffset, "Message: INFO: Login information"), 0);
    EXPECT_EQ(vn_test::CountLogLinesSince(logOffset, " INFO: Login information was gotten from the storage " +
                                                         m_proxy + " " + kLogin + " ***"),
              1);
    EXPECT_EQ(vn_test::CountLogLinesSince(logOffset, kPassword), 0);
}

TEST_F(ProxyLogin, Mode1ReadsTheCredentialManagerWhenTheMapHasNothing)
{
    ASSERT_TRUE(WriteStored(Wide(m_proxy), Wide(kLogin), Wide(kPassword)));
    std::string login, password;
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), -1);
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 1), ERROR_INTERNET_FORCE_RETRY);

    EXPECT_EQ(m_answers.Prompts(), 0u);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), kLogin);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_PASSWORD), kPassword);
    EXPECT_EQ(request.Send(), 200u);
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), 0);
    EXPECT_EQ(login, kLogin);
    EXPECT_EQ(password, kPassword);
}

TEST_F(ProxyLogin, Mode1AsksWhenNothingIsKnown)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_answers.TypeLogin(kLogin, kPassword);

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 1), ERROR_INTERNET_FORCE_RETRY);

    EXPECT_EQ(m_answers.Prompts(), 1u);
    EXPECT_EQ(request.Send(), 200u);
}

TEST_F(ProxyLogin, Mode2WithNothingKnownSetsNothingAndAsksNobody)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_answers.TypeLogin(kLogin, kPassword);

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 2), 0);

    EXPECT_EQ(m_answers.Prompts(), 0u);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), "");
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_PASSWORD), "");
    std::string login, password;
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), -1);
    EXPECT_EQ(request.Send(), 407u);
}

TEST_F(ProxyLogin, Mode2TakesTheLoginOfTheMap)
{
    CVnProxyCredentials::_saveCredentials(m_proxy, kLogin, kPassword);
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 2), 0);

    EXPECT_EQ(m_answers.Prompts(), 0u);
    EXPECT_EQ(request.Send(), 200u);
    EXPECT_EQ(m_server.LastProxyAuthorization(), BasicHeader(kLogin, kPassword));
}

TEST_F(ProxyLogin, ACancelledPromptIsProxyLoginCancelledAndLeavesNoLogin)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_answers.Cancel();

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 1),
              static_cast<LONG>(VN_E_PROXY_LOGIN_CANCELLED));

    EXPECT_EQ(m_answers.Prompts(), 1u);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), "");
    std::string login, password;
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), -1);
    EXPECT_FALSE(ReadStored(Wide(m_proxy)).found);
}

TEST_F(ProxyLogin, WithTheTickTakenOffTheLoginHoldsForThisProcessOnly)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_answers.TypeLogin(kLogin, kPassword);
    m_answers.LeaveTick(false);

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 0), ERROR_INTERNET_FORCE_RETRY);

    EXPECT_EQ(request.Send(), 200u);
    std::string login, password;
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), 0);
    EXPECT_FALSE(ReadStored(Wide(m_proxy)).found);
}

TEST_F(ProxyLogin, ThePromptNamesTheProxyAndOffersTheSaveTick)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    ASSERT_EQ(request.Send(), 407u);
    m_answers.TypeLogin(kLogin, kPassword);

    ASSERT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.get(), nullptr, 0), ERROR_INTERNET_FORCE_RETRY);

    EXPECT_EQ(m_answers.Text(L"Target"), Wide(m_proxy));
    EXPECT_EQ(m_answers.Text(L"Message"),
              L"Bitte geben Sie das Passwort f\u00fcr den Proxy " + Wide(m_proxy) + L" an.");
    EXPECT_EQ(m_answers.Text(L"Caption"), L"Velorin Linkhost");
    EXPECT_EQ(m_answers.Dword(L"Flags"), static_cast<DWORD>(CREDUI_FLAGS_GENERIC_CREDENTIALS |
                                                           CREDUI_FLAGS_DO_NOT_PERSIST |
                                                           CREDUI_FLAGS_EXCLUDE_CERTIFICATES |
                                                           CREDUI_FLAGS_SHOW_SAVE_CHECK_BOX));
    EXPECT_EQ(m_answers.Dword(L"TickIn"), 1u);
    EXPECT_EQ(m_answers.Dword(L"LoginChars"), 514u);
    EXPECT_EQ(m_answers.Dword(L"PasswordChars"), 257u);
    EXPECT_EQ(m_answers.Dword(L"InfoSize"), static_cast<DWORD>(sizeof(CREDUI_INFOW)));
    EXPECT_EQ(m_answers.Dword(L"Context"), 0u);
}

TEST_F(ProxyLogin, WithoutAHandleNothingIsAskedOrSet)
{
    m_answers.TypeLogin(kLogin, kPassword);
    for (int mode = 0; mode <= 2; ++mode)
        EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, nullptr, nullptr, mode), -1) << "mode " << mode;
    EXPECT_EQ(m_answers.Prompts(), 0u);
    std::string login, password;
    EXPECT_EQ(CVnProxyCredentials::GetPassLogin(m_proxy, login, password), -1);
}

TEST_F(ProxyLogin, AnEmptyProxyNameRepeatsWithoutAsking)
{
    TRequest request = TRequest::ThroughProxy(m_server);
    m_answers.TypeLogin(kLogin, kPassword);

    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials("", request.get(), nullptr, 0), ERROR_INTERNET_FORCE_RETRY);

    EXPECT_EQ(m_answers.Prompts(), 0u);
}

TEST_F(ProxyLogin, AnOptionTheHandleRefusesIsGivenBackWithItsLogLine)
{
    CVnProxyCredentials::_saveCredentials(m_proxy, kLogin, kPassword);
    TRequest request = TRequest::ThroughProxy(m_server);
    const size_t logOffset = vn_test::LogSize();

    // WinInet keeps no login options on a session handle.
    EXPECT_EQ(CVnProxyCredentials::GetProxyCredentials(m_proxy, request.session(), nullptr, 1),
              ERROR_INTERNET_INVALID_OPTION);

    EXPECT_EQ(vn_test::CountLogLinesSince(logOffset, "Error in method [CVnProxyCredentials::GetProxyCredentials]. "
                                                     "Message: InternetSetOption failed Error code: 12009."),
              1);
}

}  // namespace
