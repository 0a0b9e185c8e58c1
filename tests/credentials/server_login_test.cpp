// A server login through GetServerCredentials against a real WinInet request
// to a loopback origin that demands a Basic login. The platform's dialog is
// the scripted one of the seam, except where Wine's own shows what it gives
// without a display.
#include <gtest/gtest.h>

#include "credentials/credentials_support.h"

using namespace vn_cred_test;

namespace {

TEST(ServerLogin, GivenLoginIsSetUnlessTheModeOrItsAbsenceAsksTheUser)
{
    const HWND client = reinterpret_cast<HWND>(ULONG_PTR(0x10AB0));  // travels untouched; never used as a window
    enum { None, Right, Other };
    const struct {
        int mode, given;
        bool needed, cancels, fromClient;
        std::tuple<LONG, int, bool, DWORD> outcome;  // result, dialogs, texts now the right login, status of the repeat
    } cases[] = {
        {1, Right, true, false, false, {ERROR_INTERNET_FORCE_RETRY, 0, true, 200}},
        {2, Right, true, false, false, {0, 0, true, 200}},
        {0, Other, true, false, true, {ERROR_INTERNET_FORCE_RETRY, 1, true, 200}},
        {1, None, true, false, false, {ERROR_INTERNET_FORCE_RETRY, 1, true, 200}},
        {2, None, true, false, false, {ERROR_INTERNET_FORCE_RETRY, 1, true, 200}},
        {0, Other, true, true, false, {LONG(VN_E_SERVER_LOGIN_CANCELLED), 1, false, 401}},
        {0, Other, false, false, false, {0, 1, false, 200}},  // the platform's answer to a response that needs no login
    };
    for (auto& c : cases) {
        TAuthServer server;  // Wine remembers Basic logins per host and port: a server and a user of its own
        const std::string user = UniqueName("server-user"), given = c.given == Right ? user : c.given == Other ? "given" : "";
        server.Require("", c.needed ? Basic(user, user + "-secret") : "");
        TRequest request(&server, false);
        ASSERT_EQ(c.needed ? 401u : 200u, request.Send());
        TScriptedDialog dialog(c.cancels ? nullptr : user.c_str());
        std::string login = given, password = given + "-secret";
        ::SetLastError(ERROR_ACCESS_DENIED);
        const LONG result = CVnProxyCredentials::GetServerCredentials(request.get(), c.fromClient ? client : nullptr, c.mode, login, password);
        EXPECT_EQ(c.outcome, std::make_tuple(result, dialog.calls.load(), login == user && password == user + "-secret", request.Send()))
            << c.mode << c.given << c.needed;
        EXPECT_TRUE(std::get<2>(c.outcome) || login == given) << "texts are kept unless a login was typed";
        EXPECT_TRUE(!dialog.calls || dialog.last == std::make_tuple(c.fromClient ? client : ::GetDesktopWindow(), request.get(),
                                                                   DWORD(ERROR_INTERNET_INCORRECT_PASSWORD), 7ul, false, 0ul));
    }
}

TEST(ServerLogin, NoHandleAsksNobodyAndARefusedOptionIsGivenBackWithItsLine)
{
    TRequest request;
    TScriptedDialog dialog("user");
    std::string login = "user", password = "secret";
    for (int mode : {0, 1, 2})
        EXPECT_EQ(-1, CVnProxyCredentials::GetServerCredentials(nullptr, nullptr, mode, login, password));
    const size_t log = vn_test::LogSize();
    EXPECT_EQ(LONG(ERROR_INTERNET_INVALID_OPTION), CVnProxyCredentials::GetServerCredentials(request.session(), nullptr, 1, login, password));
    EXPECT_EQ(1, vn_test::CountLogLinesSince(log, "Error in method [CVnProxyCredentials::_setServerCredentials]. "
                                                  "Message: InternetSetOption failed Error code: 12009."));
    EXPECT_EQ(0, dialog.calls.load());
    EXPECT_EQ(0, CVnProxyCredentials::_setServerCredentials(request.get(), "", "only-password"));
    EXPECT_EQ(std::make_tuple(std::string(), std::string("only-password")),
              std::make_tuple(request.Option(INTERNET_OPTION_USERNAME), request.Option(INTERNET_OPTION_PASSWORD)));
}

TEST(ServerLogin, TheAnswerOfThePlatformsOwnDialogIsGivenBack)
{
    char display[8];
    if (::GetEnvironmentVariableA("DISPLAY", display, sizeof display))
        GTEST_SKIP() << "with a display Wine's dialog would wait for a user";
    TAuthServer server;
    const std::string user = UniqueName("platform-user");
    server.Require("", Basic(user, "secret"));
    TRequest request(&server, false);
    ASSERT_EQ(401u, request.Send());
    const DWORD platform = ::InternetErrorDlg(::GetDesktopWindow(), request.get(), ERROR_INTERNET_INCORRECT_PASSWORD, 7, nullptr);
    ASSERT_TRUE(platform != ERROR_INTERNET_FORCE_RETRY && platform != ERROR_CANCELLED) << platform;
    std::string login = "given", password = "secret";
    EXPECT_EQ(LONG(platform), CVnProxyCredentials::GetServerCredentials(request.get(), nullptr, 0, login, password));
    EXPECT_EQ("given", login);
}

}  // namespace
