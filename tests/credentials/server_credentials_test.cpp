// GetServerCredentials against a real WinInet request to a loopback origin
// that demands a Basic login. The platform's password dialog is the scripted
// one of the seam, except in the one test that shows what Wine's own dialog
// gives without a display.
#include <gtest/gtest.h>

#include "credentials/credentials_support.h"
#include "host/status.h"
#include "settings/proxy_credentials.h"

using namespace vn_cred_test;

namespace {

class ServerLogin : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_server.listening());
        // Wine remembers Basic logins per host and port for the process; a
        // login of this test alone keeps an earlier test's from passing.
        m_server.RequireServerLogin(m_login, m_password);
    }
    const std::string m_login = UniqueName("server-user");
    const std::string m_password = "server-secret";
    TAuthServer m_server;
};

class ServerLoginWithDialog : public ServerLogin {
protected:
    TScriptedDialog m_dialog;
};

TEST_F(ServerLoginWithDialog, Mode1SetsTheGivenLoginWithoutAskingAndAsksForARepeat)
{
    TRequest request = TRequest::Direct(m_server);
    ASSERT_EQ(request.Send(), 401u);
    std::string login = m_login, password = m_password;

    EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(request.get(), nullptr, 1, login, password),
              ERROR_INTERNET_FORCE_RETRY);

    EXPECT_EQ(m_dialog.calls(), 0);
    EXPECT_EQ(request.Option(INTERNET_OPTION_USERNAME), m_login);
    EXPECT_EQ(request.Option(INTERNET_OPTION_PASSWORD), m_password);
    EXPECT_EQ(request.Send(), 200u);
    EXPECT_EQ(m_server.LastAuthorization(), BasicHeader(m_login, m_password));
}

TEST_F(ServerLoginWithDialog, Mode2SetsTheGivenLoginAndGivesZero)
{
    TRequest request = TRequest::Direct(m_server);
    ASSERT_EQ(request.Send(), 401u);
    std::string login = m_login, password = m_password;

    EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(request.get(), nullptr, 2, login, password), 0);

    EXPECT_EQ(m_dialog.calls(), 0);
    EXPECT_EQ(request.Send(), 200u);
}

TEST_F(ServerLoginWithDialog, Mode0AsksEvenWithALoginGivenAndTheTypedLoginReplacesIt)
{
    TRequest request = TRequest::Direct(m_server);
    ASSERT_EQ(request.Send(), 401u);
    std::string login = "given-user", password = "given-secret";
    m_dialog.TypeLogin(m_login, m_password);
    ::SetLastError(ERROR_ACCESS_DENIED);

    EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(request.get(), nullptr, 0, login, password),
              ERROR_INTERNET_FORCE_RETRY);

    EXPECT_EQ(login, m_login);
    EXPECT_EQ(password, m_password);
    EXPECT_EQ(m_dialog.calls(), 1);
    EXPECT_EQ(m_dialog.error(), static_cast<DWORD>(ERROR_INTERNET_INCORRECT_PASSWORD));
    EXPECT_EQ(m_dialog.flags(), 7u);
    EXPECT_EQ(m_dialog.window(), ::GetDesktopWindow());
    EXPECT_EQ(m_dialog.handle(), request.get());
    EXPECT_FALSE(m_dialog.hadData());
    EXPECT_EQ(m_dialog.lastErrorOnEntry(), 0u);
    EXPECT_EQ(request.Send(), 200u);
    EXPECT_EQ(m_server.LastAuthorization(), BasicHeader(m_login, m_password));
}

TEST_F(ServerLoginWithDialog, TheDialogOpensOnTheClientsWindow)
{
    TRequest request = TRequest::Direct(m_server);
    ASSERT_EQ(request.Send(), 401u);
    m_dialog.TypeLogin(m_login, m_password);
    // The client's window handle travels untouched to the dialog; the
    // scripted dialog never uses it as a window.
    HWND clientWindow = reinterpret_cast<HWND>(static_cast<ULONG_PTR>(0x10AB0));
    std::string login, password;

    EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(request.get(), clientWindow, 0, login, password),
              ERROR_INTERNET_FORCE_RETRY);
    EXPECT_EQ(m_dialog.window(), clientWindow);
}

TEST_F(ServerLoginWithDialog, WithoutAGivenLoginEveryModeAsks)
{
    m_dialog.TypeLogin(m_login, m_password);
    for (int mode = 1; mode <= 2; ++mode) {
        TRequest request = TRequest::Direct(m_server);
        ASSERT_EQ(request.Send(), 401u);
        std::string login, password;
        EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(request.get(), nullptr, mode, login, password),
                  ERROR_INTERNET_FORCE_RETRY)
            << "mode " << mode;
        EXPECT_EQ(login, m_login) << "mode " << mode;
        EXPECT_EQ(m_dialog.calls(), mode) << "mode " << mode;
    }
}

TEST_F(ServerLoginWithDialog, ACancelledDialogIsServerLoginCancelledAndKeepsTheTexts)
{
    TRequest request = TRequest::Direct(m_server);
    ASSERT_EQ(request.Send(), 401u);
    m_dialog.Cancel();
    std::string login = "given-user", password = "given-secret";

    EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(request.get(), nullptr, 0, login, password),
              static_cast<LONG>(VN_E_SERVER_LOGIN_CANCELLED));

    EXPECT_EQ(login, "given-user");
    EXPECT_EQ(password, "given-secret");
    EXPECT_EQ(request.Option(INTERNET_OPTION_USERNAME), "");
}

TEST_F(ServerLoginWithDialog, AnyOtherAnswerOfTheDialogIsGivenBack)
{
    // The platform's dialog answers ERROR_SUCCESS when the response asks for
    // no login; the texts stay as they were.
    TRequest request = TRequest::Direct(m_server);
    m_server.DropServerLogin();
    ASSERT_EQ(request.Send(), 200u);
    m_dialog.TypeLogin(m_login, m_password);
    std::string login = "given-user", password = "given-secret";

    EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(request.get(), nullptr, 0, login, password), 0);
    EXPECT_EQ(login, "given-user");
    EXPECT_EQ(m_dialog.calls(), 1);
}

TEST_F(ServerLoginWithDialog, WithoutAHandleNothingIsAskedOrSet)
{
    std::string login = m_login, password = m_password;
    for (int mode = 0; mode <= 2; ++mode)
        EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(nullptr, nullptr, mode, login, password), -1);
    EXPECT_EQ(m_dialog.calls(), 0);
}

TEST_F(ServerLoginWithDialog, AnOptionTheHandleRefusesIsGivenBackWithItsLogLine)
{
    TRequest request = TRequest::Direct(m_server);
    std::string login = m_login, password = m_password;
    const size_t logOffset = vn_test::LogSize();

    // WinInet keeps no login options on a session handle.
    EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(request.session(), nullptr, 1, login, password),
              ERROR_INTERNET_INVALID_OPTION);

    EXPECT_EQ(vn_test::CountLogLinesSince(logOffset, "Error in method [CVnProxyCredentials::_setServerCredentials]. "
                                                     "Message: InternetSetOption failed Error code: 12009."),
              1);
    EXPECT_EQ(m_dialog.calls(), 0);
}

TEST_F(ServerLoginWithDialog, SettingTheServerLoginSkipsEmptyTexts)
{
    TRequest request = TRequest::Direct(m_server);
    EXPECT_EQ(CVnProxyCredentials::_setServerCredentials(request.get(), "", "only-password"), 0);
    EXPECT_EQ(request.Option(INTERNET_OPTION_USERNAME), "");
    EXPECT_EQ(request.Option(INTERNET_OPTION_PASSWORD), "only-password");
}

// Wine's own dialog, with no display: whatever it answers reaches the caller
// unchanged, and nothing is read back.
TEST_F(ServerLogin, TheAnswerOfThePlatformsOwnDialogIsGivenBack)
{
    char display[8];
    if (::GetEnvironmentVariableA("DISPLAY", display, sizeof display))
        GTEST_SKIP() << "with a display Wine's dialog would wait for a user";
    TRequest request = TRequest::Direct(m_server);
    ASSERT_EQ(request.Send(), 401u);
    const DWORD platform = ::InternetErrorDlg(::GetDesktopWindow(), request.get(), ERROR_INTERNET_INCORRECT_PASSWORD,
                                              7, nullptr);
    ASSERT_NE(platform, static_cast<DWORD>(ERROR_INTERNET_FORCE_RETRY));
    ASSERT_NE(platform, static_cast<DWORD>(ERROR_CANCELLED));
    std::string login = "given-user", password = "given-secret";

    EXPECT_EQ(CVnProxyCredentials::GetServerCredentials(request.get(), nullptr, 0, login, password),
              static_cast<LONG>(platform));
    EXPECT_EQ(login, "given-user");
}

}  // namespace
