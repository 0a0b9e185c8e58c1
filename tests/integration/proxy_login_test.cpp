// Proxy logins from end to end: a client in this process, the server in its
// own, squids that demand a Basic, an NTLM or a Digest login, and the origin
// behind them.
#include "integration/pipeline_fixture.h"

#include <shlobj.h>

#include <filesystem>
#include <sstream>
#include <tuple>

#include "host/status.h"
#include "settings/credentials_managers.h"
#include "vfc/text.h"

namespace vn_test {
namespace {

// The lines that a squid's log (VN_SQUID..._LOG) got after `offset`, each naming a request.
std::vector<std::string> Logged(const std::string& squid, size_t offset)
{
    const std::string text = ReadWholeFile(std::getenv((squid + "_LOG").c_str()));
    std::istringstream added(text.size() > offset ? text.substr(offset) : "");
    std::vector<std::string> lines;
    for (std::string line; std::getline(added, line);)
        if (line.find(" error:") == std::string::npos)  // a connection that ended before a request
            lines.push_back(line);
    return lines;
}

// The first file under `folder` that holds `text`, in narrow or wide characters; "" when none does.
std::string FileHolding(const std::string& folder, const std::string& text)
{
    const std::wstring wide = vfc::Widen(text);
    const std::string utf16(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t));
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, error)) {
        const std::string bytes = entry.is_regular_file() ? ReadWholeFile(entry.path().string()) : "";
        if (bytes.find(text) != std::string::npos || bytes.find(utf16) != std::string::npos)
            return entry.path().string();
    }
    return error ? folder + ": " + error.message() : "";
}

// The squids demand the login VN_SQUID_AUTH (user:password); the tests write
// it, or a wrong one, to the platform's store under the proxy's name.
class ProxyLogins : public ProxiedRequests {
protected:
    void TearDown() override
    {
        for (const char* squid : {"VN_SQUID", "VN_SQUID_NTLM", "VN_SQUID_DIGEST"})
            Forget(squid);
    }
    static std::string Proxy(const std::string& squid) { return "127.0.0.1:" + ReadyLine(squid.c_str())["port"]; }
    static void Forget(const std::string& squid) { CredDeleteW(vfc::Widen(Proxy(squid)).c_str(), CRED_TYPE_GENERIC, 0); }
    const std::string auth = std::getenv("VN_SQUID_AUTH"), user = auth.substr(0, auth.find(':'));
    const std::string password = auth.substr(auth.find(':') + 1);
};

TEST_F(ProxyLogins, LoginsThroughBasicNtlmAndDigestSquidsInBothModesAreBoundedAndThePasswordGoesOnlyToItsProxy)
{
    const char* const kMissing = "Background mode: cached proxy credentials are missing.";
    const char* const kWrong = "Background mode: cached proxy credentials are wrong.";
    const char* const kCancelled = "Message: Execute failed. Error code: 80040204.";
    // Under 64 KiB: squid stops reading a refused request's body past that, and under Wine each leg of an NTLM
    // handshake carries the whole body.
    const std::string body(60000, 'b'), echo = Url("/echo?"), upload = Url("/upload?"), tls = TlsUrl("/echo?");
    // The squid, the store's login (null: none), session flags, URL, verb, whether a new server process follows (which
    // forgets the logins in memory and closes the old one's tunnels); the status, a line of the server's log, the
    // requests squid sees and the status of the last.
    const std::tuple<const char*, const char*, LONG, std::string, const wchar_t*, bool, HRESULT, const char*, size_t,
                     const char*>
        cases[] = {
            // A wrong login: the prompt that should replace it can't be shown without a display; background tries it once.
            {"", "wrong-", 1, echo, L"GET", false, VN_E_PROXY_LOGIN_CANCELLED, kCancelled, 3, "/407 "},
            {"", "wrong-", 0, echo, L"GET", true, E_FAIL, kWrong, 3, "/407 "},
            {"", nullptr, 0, echo, L"GET", false, E_FAIL, kMissing, 1, "/407 "},  // nothing stored, nothing in memory
            // Background consults this process's memory only.
            {"", "", 0, echo, L"GET", false, E_FAIL, kMissing, 1, "/407 "},
            {"_NTLM", "", 0, echo, L"GET", false, E_FAIL, kMissing, 1, "/407 "},
            {"_DIGEST", "", 0, echo, L"GET", false, E_FAIL, kMissing, 1, "/407 "},
            // Interactive takes the login from the store. The pre-flight meets a 407, goes again on a new handle with the
            // login (whose 407 the platform answers), and the request sends the login ahead.
            {"", "", 1, echo, L"GET", false, S_OK, "", 4, "/200 "},
            {"", "", 1, upload, L"POST", false, S_OK, "", 4, "/200 "},
            {"", "", 0, echo, L"GET", false, S_OK, "", 4, "/200 "},
            {"", "", 0, upload, L"POST", false, S_OK, "", 4, "/200 "},
            // The login sent ahead stays with the first hop; the next is answered by the platform, after a 407.
            {"", "", 0, Url("/redirect?to=/echo%3F"), L"GET", false, S_OK, "", 6, "/200 "},
            {"", "", 0, tls, L"GET", true, S_OK, "", 3, "/200 "},  // one tunnel for both, logged as it closes
            // NTLM: three legs each for the pre-flight and for the request; the dialogue runs again for a body.
            {"_NTLM", "", 1, echo, L"GET", false, S_OK, "", 7, "/200 "},
            {"_NTLM", "", 1, upload, L"POST", false, S_OK, "", 11, "/200 "},
            {"_NTLM", "", 0, echo, L"GET", false, S_OK, "", 7, "/200 "},
            {"_NTLM", "", 0, upload, L"PUT", false, S_OK, "", 11, "/200 "},
            {"_NTLM", "", 0, tls, L"GET", true, S_OK, "", 4, "/200 "},
            // The platform never answers Digest: the stored login is tried once, then the prompt can't be shown.
            {"_DIGEST", "", 1, echo, L"GET", false, VN_E_PROXY_LOGIN_CANCELLED, kCancelled, 2, "/407 "},
            {"_DIGEST", "", 1, upload, L"POST", false, VN_E_PROXY_LOGIN_CANCELLED, "", 2, "/407 "},  // at DataStream
            {"_DIGEST", "", 0, echo, L"GET", false, E_FAIL, kWrong, 2, "/407 "},
            {"_DIGEST", "", 0, upload, L"POST", false, E_FAIL, kWrong, 4, "/407 "},  // a dialogue at DataStream and Execute
        };
    int row = 0;
    for (auto& [scheme, secret, flags, url, verb, renew, expected, line, count, last] : cases) {
        SCOPED_TRACE(testing::Message() << ++row << ' ' << scheme << ' ' << flags << ' ' << url);
        const std::string squid = std::string("VN_SQUID") + scheme, method = " " + vfc::Narrow(verb) + " ";
        ConfigureProxy(ReadyLine(squid.c_str())["port"]);
        Forget(squid);
        if (secret) {
            ASSERT_TRUE(VnCredentialsManagers::WinCredCredentialsManager().StoreCredentials(
                vfc::Widen(Proxy(squid)), vfc::Widen(user), vfc::Widen(secret + password)));
        }
        const size_t log = LogSize(), logged = ReadWholeFile(std::getenv((squid + "_LOG").c_str())).size();
        const std::string marker = "login-" + std::to_string(GetTickCount()) + "-" + std::to_string(row);
        auto request = Request(url + marker, verb, flags);
        HRESULT hr = S_OK;
        if (*verb == L'P') {
            ASSERT_EQ(S_OK, AddHeader(request.get(), L"Content-Length", std::to_wstring(body.size())));
            hr = WriteBody(request.get(), body);
            // Basic lets the body go out as it is written; NTLM and Digest keep it for one send at Execute.
            const auto sent = [&] { return Count(testing::PrintToString(Logged(squid, logged)), method) > 0; };
            EXPECT_TRUE(FAILED(hr) || WaitUntil(sent, *scheme ? 0 : 5000) == !*scheme);
        }
        vfc::TComPtr<IVnWebResult> result;
        if (hr == S_OK)
            hr = Execute(request.get(), result);
        EXPECT_EQ(expected, hr);
        const std::string answer = SUCCEEDED(hr) ? Body(result.get()) : "";
        const LONG code = Code(result.get());
        result.reset();
        request.reset();
        if (renew) {
            Pipeline::TearDownTestSuite();
            Pipeline::SetUpTestSuite();
        }
        std::vector<std::string> seen;
        WaitUntil([&] { return (seen = Logged(squid, logged)).size() >= count; }, 10000);
        ASSERT_EQ(count, seen.size()) << testing::PrintToString(seen);
        EXPECT_NE(std::string::npos, seen.back().find(last)) << seen.back();
        EXPECT_EQ(*line != 0, CountLogLinesSince(log, *line ? line : "Background mode") > 0);
        if (FAILED(expected))
            continue;
        EXPECT_EQ(200, code);
        EXPECT_NE(std::string::npos, answer.find(*verb == L'P' ? Sha256(body) : marker)) << answer;
        // The real request went through squid under the user's name; what reached the origin carried no login.
        EXPECT_NE(std::string::npos, seen.back().find(url.rfind("https:", 0) ? method + "http" : " CONNECT ")) << seen.back();
        EXPECT_NE(std::string::npos, seen.back().find(" " + user + " ")) << seen.back();
        for (const auto& hop : MarkedRequests(marker))
            EXPECT_EQ(std::string::npos, hop.find("Authorization")) << hop;
    }
    // The password went to no proxy but the one that asked for Basic, and into no log or file of the system's.
    for (const char* log : {"VN_SQUID_LOG", "VN_SQUID_NTLM_LOG", "VN_SQUID_DIGEST_LOG", "VN_ORIGIN_LOG"}) {
        const std::string text = ReadWholeFile(std::getenv(log));
        EXPECT_EQ(std::make_tuple(std::string::npos, text.find("Basic%20") != std::string::npos),
                  std::make_tuple(text.find(password), std::string(log) == "VN_SQUID_LOG"))
            << log;
    }
    char local[MAX_PATH] = {}, temp[MAX_PATH] = {};  // the system's folder, the platform's caches; the temporary files
    SHGetFolderPathA(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, local);
    GetTempPathA(MAX_PATH, temp);
    for (const char* folder : {local, temp})
        EXPECT_EQ("", FileHolding(folder, password)) << folder;
}

}  // namespace
}  // namespace vn_test
