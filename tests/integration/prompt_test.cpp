// What the user is asked, from end to end. The platform's InternetErrorDlg (a server's login, a certificate) is
// answered behind the seam, for requests of sessions made in this process. A server process's proxy prompt is
// the stand-in CREDUI.DLL's (ctest's "prompts" run, WINEDLLOVERRIDES=credui=n) or Wine's own on a display,
// typed into with xdotool ("prompt_dialog"). squid demands the Basic login VN_SQUID_AUTH.
#include "integration/pipeline_fixture.h"

#include <wincred.h>

#include <cstring>
#include <sstream>
#include <vector>

#include "host/platform_seams.h"
#include "host/status.h"
#include "settings/inet_api_handler.h"
#include "tests/doubles/credui/credui_standin.h"
#include "vfc/text.h"
#include "web/session.h"

namespace vn_test {
namespace {

namespace cu = vn_credui_standin;
const DWORD kRetry = ERROR_INTERNET_FORCE_RETRY;

// InternetErrorDlg as a user answers it: unless cancelled, a server's login typed (user "u") or a certificate
// accepted, left on the handle as the platform's dialog leaves them.
struct TErrorDialog {
    explicit TErrorDialog(DWORD answer, const std::string& password = "") : answer(answer), password(password) { s_self = this; }
    static DWORD WINAPI Show(HWND, HINTERNET handle, DWORD error, DWORD flags, LPVOID*)
    {
        s_self->errors.push_back(error), s_self->flags = flags;
        DWORD security = 0, size = sizeof security;
        if (s_self->answer != ERROR_CANCELLED && error == ERROR_INTERNET_INCORRECT_PASSWORD) {
            VnINetApiHandlers::SetTextOption(handle, INTERNET_OPTION_USERNAME, "u");
            VnINetApiHandlers::SetTextOption(handle, INTERNET_OPTION_PASSWORD, s_self->password);
        } else if (s_self->answer != ERROR_CANCELLED && ::InternetQueryOptionA(handle, INTERNET_OPTION_SECURITY_FLAGS, &security, &size)) {
            security |= SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;
            ::InternetSetOptionA(handle, INTERNET_OPTION_SECURITY_FLAGS, &security, sizeof security);
        }
        return s_self->answer;
    }
    static inline TErrorDialog* s_self = nullptr;
    DWORD answer, flags = 0;
    std::string password;
    std::vector<DWORD> errors;  // one per dialog shown
    TScopedSeam<decltype(VnPlatformSeams::InternetErrorDlg)> seam{PlatformSeams().InternetErrorDlg, &Show};
};

// Direct requests of sessions of this process, which need no server.
class LocalRequests : public Pipeline {
protected:
    static void SetUpTestSuite() {}
    static void TearDownTestSuite() {}
    static TAnswer Send(const std::string& url, LONG flags, const char* login = "", const std::string& password = "")
    {
        vfc::TComPtr<CVnWebSession> session;
        vfc::TComPtr<IVnWebRequest> request;
        vfc::TBstr u(vfc::Widen(url)), verb(L"GET"), user(vfc::Widen(login)), secret(vfc::Widen(password));
        EXPECT_EQ(S_OK, vfc::CreateInto(session));
        EXPECT_EQ(S_OK, session->SetParams(CConfigData(), ::GetCurrentProcessId(), nullptr, flags));
        EXPECT_EQ(S_OK, session->CreateWebRequest(u.get(), verb.get(), request.put()));
        request->put_UserName(user.get()), request->put_Password(secret.get());
        return Answer(request.get());
    }
};

TEST_F(LocalRequests, AServerLoginOfTheClientGoesFirstThenAnInteractiveSessionAsksWhileBackgroundGetsThe401)
{
    // The client's login (null: none; "x" is wrong), session flags, the user's answer; the status, the code, the dialogs.
    const std::tuple<const char*, LONG, DWORD, HRESULT, LONG, size_t> rows[] = {
        {"u", 1, ERROR_CANCELLED, S_OK, 200, 0}, {"x", 1, kRetry, S_OK, 200, 1}, {nullptr, 1, kRetry, S_OK, 200, 1},
        {"x", 1, ERROR_CANCELLED, VN_E_SERVER_LOGIN_CANCELLED, -1, 1}, {"u", 0, kRetry, S_OK, 401, 0}, {nullptr, 0, kRetry, S_OK, 401, 0},
    };
    int row = 0;
    for (auto& [login, flags, answer, hr, code, dialogs] : rows) {
        // A password of each row's own: the platform sends the last Basic login that passed to the host ahead.
        const std::string password = "p-" + std::to_string(::GetTickCount()) + "-" + std::to_string(++row);
        TErrorDialog dialog(answer, password);
        const TAnswer got = Send(Url("/auth/basic?user=u&pass=") + password, flags, login ? login : "", password);
        EXPECT_EQ(std::make_tuple(hr, code, std::vector<DWORD>(dialogs, ERROR_INTERNET_INCORRECT_PASSWORD)),
                  std::make_tuple(got.hr, got.code, dialog.errors)) << "row " << row;
    }
}

TEST_F(LocalRequests, ACertificateErrorOfAnInteractiveSessionGoesToThePlatformsDialogAndTheAcceptedRequestIsRepeated)
{
    // The origin's listener, the user's answer; the status and the dialog's error. The platform trusts a server
    // whose certificate was accepted for the rest of the process: each listener is cancelled before it is accepted.
    const std::tuple<const char*, DWORD, HRESULT, DWORD> rows[] = {
        {"selfsigned", ERROR_CANCELLED, VN_E_CERT_BAD_CA, 12045}, {"selfsigned", ERROR_SUCCESS, S_OK, 12045},
        {"untrusted", kRetry, S_OK, 12045},  // its revocation error is overlooked without a dialog
        {"wrongname", ERROR_CANCELLED, VN_E_CERT_BAD_NAME, 12038}, {"wrongname", kRetry, S_OK, 12038},
        {"expired", ERROR_CANCELLED, VN_E_CERT_EXPIRED, 12037}, {"notyet", ERROR_SUCCESS, S_OK, 12037},
    };
    for (auto& [listener, answer, hr, error] : rows) {
        TErrorDialog dialog(answer);
        const TAnswer got = Send(TlsUrl("/echo", listener), 1);
        EXPECT_EQ(std::make_tuple(hr, std::vector<DWORD>{error}, 7ul, SUCCEEDED(hr)), std::make_tuple(got.hr, dialog.errors,
                  dialog.flags, got.body.find("\"tls\": true") != std::string::npos)) << listener << " " << answer;
    }
}

// A server process of its own, started by COM with the DLL overrides this program started with.
class ProxyPrompts : public Pipeline {
protected:
    static void SetUpTestSuite() {}  // the first test that runs starts it
    virtual const char* Missing()
    {
        const char* overrides = std::getenv("WINEDLLOVERRIDES");
        return overrides && std::strstr(overrides, "credui=n") ? nullptr : "the stand-in prompt answers with WINEDLLOVERRIDES=credui=n";
    }
    void SetUp() override
    {
        if (const char* missing = Missing())
            GTEST_SKIP() << missing << " (ctest's runs prompts and prompt_dialog)";
        if (!s_root)
            Pipeline::SetUpTestSuite();
        ConfigureProxy(ReadyLine("VN_SQUID")["port"]);
        Forget();
    }
    void TearDown() override { Forget(), cu::Clear(); }
    void Forget() { ::CredDeleteW(vfc::Widen(proxy).c_str(), CRED_TYPE_GENERIC, 0); }
    std::string Stored()  // the login that the Credential Manager holds
    {
        PCREDENTIALW held = nullptr;
        const std::string login = ::CredReadW(vfc::Widen(proxy).c_str(), CRED_TYPE_GENERIC, 0, &held) ? vfc::Narrow(held->UserName) : "";
        return ::CredFree(held), login;
    }
    // Ends the server once this client let go of it all, and lets COM start a new one.
    void Restart()
    {
        const TServerProcess old;
        Pipeline::TearDownTestSuite();
        Pipeline::SetUpTestSuite();
        ConfigureProxy(ReadyLine("VN_SQUID")["port"]);
        EXPECT_NE(old.pid(), TServerProcess().pid());
    }
    // A GET through squid: the status, and squid's lines of it once it logged as many as a login costs (the
    // pre-flight's 407, a 407 to the resend, which the platform answers with the login, the 200, the GET), or
    // the one 407 of a failure. The last line must be the GET that reached the origin under the user's name.
    HRESULT Get(LONG flags)
    {
        static int count = 0;
        const std::string marker = "prompt-" + std::to_string(::GetTickCount()) + "-" + std::to_string(++count);
        const HRESULT hr = Answer(Request(Url("/echo?") + marker, L"GET", flags).get()).hr;
        std::vector<std::string> seen;
        WaitUntil([&] {
            std::istringstream log(ReadWholeFile(std::getenv("VN_SQUID_LOG")));
            seen.clear();
            for (std::string line; std::getline(log, line);)
                if (line.find(marker) != std::string::npos)
                    seen.push_back(line);
            return seen.size() >= (SUCCEEDED(hr) ? 4u : 1u);
        }, 5000);
        EXPECT_EQ(SUCCEEDED(hr) ? 4u : 1u, seen.size()) << testing::PrintToString(seen);
        for (const std::string& part : {std::string(" TCP_MISS/200 "), " GET http://127.0.0.1:" + ReadyLine("VN_ORIGIN")["http"] + "/echo?", " " + user + " HIER_DIRECT"})
            EXPECT_TRUE(FAILED(hr) || (!seen.empty() && seen.back().find(part) != std::string::npos)) << part << " in " << testing::PrintToString(seen);
        return hr;
    }
    const std::string auth = std::getenv("VN_SQUID_AUTH"), user = auth.substr(0, auth.find(':'));
    const std::string password = auth.substr(auth.find(':') + 1), proxy = "127.0.0.1:" + ReadyLine("VN_SQUID")["port"];
};

TEST_F(ProxyPrompts, ATypedLoginHoldsForTheServersLifeAndOutlivesItWhereTheTickStoredIt)
{
    // A new server process first, the user's answer (typed, or cancelled), the tick, session flags; the status,
    // the prompts, whether the login is in the store afterwards.
    const std::tuple<bool, bool, bool, LONG, HRESULT, DWORD, bool> rows[] = {
        {false, true, false, 1, S_OK, 1, false}, {false, false, false, 0, S_OK, 0, false},  // and in background mode
        {true, false, false, 1, VN_E_PROXY_LOGIN_CANCELLED, 1, false},                     // asked again; cancelled
        {false, true, true, 1, S_OK, 1, true}, {true, false, false, 1, S_OK, 0, true},      // read from the store
    };
    const size_t log = LogSize();
    for (auto& [restart, typed, tick, flags, hr, prompts, stored] : rows) {
        if (restart)
            Restart();
        cu::Clear();
        cu::WriteDword(L"Answer", typed ? NO_ERROR : ERROR_CANCELLED), cu::WriteDword(L"Tick", tick);
        cu::WriteText(L"Login", vfc::Widen(user)), cu::WriteText(L"Password", vfc::Widen(password));
        const HRESULT status = Get(flags);
        EXPECT_EQ(std::make_tuple(hr, prompts, std::string(stored ? user : ""), std::string(prompts ? proxy : "")),
                  std::make_tuple(status, cu::ReadDword(L"Prompts", 0), Stored(), vfc::Narrow(cu::ReadText(L"Target"))));
    }
    EXPECT_EQ(std::string::npos, LogSince(log).find(password));
}

// Wine's own prompt in the server, on the display, answered with xdotool as a user would.
class RealPrompt : public ProxyPrompts {
protected:
    const char* Missing() override { return std::getenv("DISPLAY") ? nullptr : "Wine's prompt needs a display"; }
};

TEST_F(RealPrompt, WinesOwnPromptTypedIntoCarriesTheRequestThroughSquidAndItsTickDecidesTheStore)
{
    // What the user does once the prompt has the keyboard (the tick starts set); the status and the stored login.
    const std::string login = "xdotool type " + user + "; xdotool key Tab; xdotool type " + password + "; xdotool key ";
    const std::tuple<std::string, HRESULT, bool> rows[] = {
        {login + "Return", S_OK, true}, {login + "Tab space Return", S_OK, false}, {"xdotool key Escape", VN_E_PROXY_LOGIN_CANCELLED, false}};
    for (size_t row = 0; row < std::size(rows); ++row) {
        auto& [keys, hr, stored] = rows[row];
        if (row)
            Restart();  // the last server keeps the login in its memory
        Forget();
        // Types once the prompt has the keyboard; bounded, and gone by itself when it has typed.
        TChild typist("/bin/sh -c \"for i in $(seq 300); do w=$(xdotool search --name '^Velorin Linkhost$' | head -n 1); f=$(xdotool "
                      "getwindowfocus 2>/dev/null); [ ${w:-none} = ${f:-unset} ] && break; sleep 0.1; done; " + keys + "\"");
        const HRESULT status = Get(1);
        EXPECT_EQ(std::make_tuple(hr, std::string(stored ? user : "")), std::make_tuple(status, Stored())) << keys;
    }
}

}  // namespace
}  // namespace vn_test
