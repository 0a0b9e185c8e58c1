// The handler through which the stores act on a WinInet request handle.
#include <gtest/gtest.h>

#include "credentials/credentials_support.h"
#include "settings/proxy_credentials.h"

using namespace vn_cred_test;

namespace {

TEST(INetApiHandler, SetCredentialsPutsTheLoginOnTheHandleAndIntoTheProcessMap)
{
    TRequest request = TRequest::Unsent();
    const std::string proxy = UniqueName("handler-proxy") + ":8080";

    EXPECT_TRUE(GetINetApiHandler()->SetCredentials(request.get(), proxy, "user", "secret"));

    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), "user");
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_PASSWORD), "secret");
    std::string login, password;
    ASSERT_EQ(CVnProxyCredentials::GetPassLogin(proxy, login, password), 0);
    EXPECT_EQ(login, "user");
    EXPECT_EQ(password, "secret");
}

TEST(INetApiHandler, SetCredentialsLeavesAnEmptyPartOffTheHandle)
{
    TRequest request = TRequest::Unsent();
    EXPECT_TRUE(GetINetApiHandler()->SetCredentials(request.get(), UniqueName("handler-proxy"), "user", ""));
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_USERNAME), "user");
    EXPECT_EQ(request.Option(INTERNET_OPTION_PROXY_PASSWORD), "");
}

TEST(INetApiHandler, GetCredentialsReadsLoginsLongerThanTheFirstBuffer)
{
    TRequest request = TRequest::Unsent();
    const std::string longLogin(300, 'l'), longPassword(700, 'p');
    ASSERT_TRUE(::InternetSetOptionA(request.get(), INTERNET_OPTION_PROXY_USERNAME, const_cast<char*>(longLogin.c_str()),
                                     static_cast<DWORD>(longLogin.size() + 1)));
    ASSERT_TRUE(::InternetSetOptionA(request.get(), INTERNET_OPTION_PROXY_PASSWORD,
                                     const_cast<char*>(longPassword.c_str()),
                                     static_cast<DWORD>(longPassword.size() + 1)));

    std::string login, password;
    EXPECT_TRUE(GetINetApiHandler()->GetCredentials(request.get(), login, password));
    EXPECT_EQ(login, longLogin);
    EXPECT_EQ(password, longPassword);
}

TEST(INetApiHandler, GetCredentialsWithoutAHandleGivesEmptyTexts)
{
    std::string login = "stale", password = "stale";
    EXPECT_FALSE(GetINetApiHandler()->GetCredentials(nullptr, login, password));
    EXPECT_EQ(login, "");
    EXPECT_EQ(password, "");
}

TEST(INetApiHandler, AFailedReadIsLoggedUnderTheTransceiversName)
{
    TRequest request = TRequest::Unsent();
    const size_t logOffset = vn_test::LogSize();
    std::string login, password;

    // A session handle answers no login options.
    EXPECT_FALSE(GetINetApiHandler()->GetCredentials(request.session(), login, password));

    EXPECT_EQ(vn_test::CountLogLinesSince(logOffset, "Error in method [CVnLinkhostWITransceiver::GetCredentials]. "
                                                     "Message: InternetQueryOption failed while quering for login."),
              1);
}

TEST(INetApiHandler, ShowDialogIsTrueOnlyWhenTheDialogAsksForARepeat)
{
    TAuthServer server;
    ASSERT_TRUE(server.listening());
    server.RequireProxyLogin("user", "secret");
    TRequest request = TRequest::ThroughProxy(server);
    ASSERT_EQ(request.Send(), 407u);
    TScriptedDialog dialog;

    dialog.Cancel();
    EXPECT_FALSE(GetINetApiHandler()->ShowDialog(request.get(), nullptr));
    dialog.TypeLogin("user", "secret");
    EXPECT_TRUE(GetINetApiHandler()->ShowDialog(request.get(), nullptr));

    EXPECT_EQ(dialog.error(), 0u);
    EXPECT_EQ(dialog.flags(), 7u);
    EXPECT_EQ(dialog.window(), ::GetDesktopWindow());
    EXPECT_EQ(request.Send(), 200u);
}

}  // namespace
