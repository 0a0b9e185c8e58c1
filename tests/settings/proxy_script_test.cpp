// What the proxy-script path makes of a script's answer and of a URL, and
// what the script engine's host functions answer.
#include <gtest/gtest.h>

#include <tuple>

#include "settings/auto_proxy_helper.h"
#include "settings/proxy_config_helper.h"

namespace {

TEST(ProxyScriptParts, AnswerLosesItsFirstProxyWordOnlyAndDirectOrNothingElseSaySo)
{
    const std::tuple<const char*, HRESULT, const char*> cases[] = {  // the answer; the status, the proxy
        {"PROXY a:8080", S_OK, "a:8080"}, {"PROXY a:8080; DIRECT", S_OK, "a:8080; DIRECT"}, {"PROXY a:1; PROXY b:2", S_OK, "a:1; PROXY b:2"},
        {"  PROXY \ta:1 \r\n", S_OK, "a:1"}, {"DIRECT; PROXY a:1", S_OK, "DIRECT; a:1"}, {"DIRECT", S_FALSE, ""},
        {"SOCKS s:1", static_cast<HRESULT>(0x8004020D), ""}, {"proxy a:1", static_cast<HRESULT>(0x8004020D), ""},
    };
    for (auto& [answer, status, expected] : cases) {
        std::string proxy = "old";
        const HRESULT given = CVnProxyConfigHelper::GetProxyFromString(answer, proxy);
        EXPECT_EQ(std::make_tuple(status, std::string(expected)), std::make_tuple(given, proxy)) << answer;
    }
}

TEST(ProxyScriptParts, UrlsSplitIntoHostPathWithQueryPortAndScheme)
{
    const std::tuple<const char*, HRESULT, std::string, std::string, INTERNET_PORT, INTERNET_SCHEME> cases[] = {
        {"http://h.example:8080/p/q?x=1&y", S_OK, "h.example", "/p/q?x=1&y", 8080, INTERNET_SCHEME_HTTP},
        {"https://h.example/", S_OK, "h.example", "/", 443, INTERNET_SCHEME_HTTPS},
        {"http://h.example", S_OK, "h.example", "", 80, INTERNET_SCHEME_HTTP},
        // A failure leaves the host the whole URL and the path empty.
        {"ftp://h.example/f", static_cast<HRESULT>(0x80040205), "ftp://h.example/f", "", 0, INTERNET_SCHEME_UNKNOWN},
        {"not a url", static_cast<HRESULT>(0x80040205), "not a url", "", 0, INTERNET_SCHEME_UNKNOWN},
    };
    for (auto& [url, status, host, path, port, scheme] : cases) {
        std::string givenHost = "old", givenPath = "old";
        INTERNET_PORT givenPort = 0;
        INTERNET_SCHEME givenScheme = INTERNET_SCHEME_UNKNOWN;
        const HRESULT given = CVnProxyConfigHelper::GetUrlParts(url, givenHost, givenPath, givenPort, givenScheme);
        EXPECT_EQ(std::make_tuple(status, host, path, port, scheme), std::make_tuple(given, givenHost, givenPath, givenPort, givenScheme)) << url;
    }
    std::string host;
    EXPECT_EQ(S_OK, CVnProxyConfigHelper::GetHostByUrl("h.example:81/x", host));
    EXPECT_EQ("h.example", host) << "a URL without a scheme is taken as HTTP";
}

// The table the platform's script engine calls, in its own layout.
struct HostFunctions {
    BOOL(WINAPI* isResolvable)(LPSTR);
    DWORD(WINAPI* getIPAddress)(LPSTR, LPDWORD);
    DWORD(WINAPI* resolveHostName)(LPSTR, LPSTR, LPDWORD);
    BOOL(WINAPI* isInNet)(LPSTR, LPSTR, LPSTR);
};

TEST(ProxyScriptParts, EngineHostFunctionsResolveNamesAndTestNets)
{
    const HostFunctions& f = **reinterpret_cast<const HostFunctions* const*>(ScriptHostFunctions());
    auto resolve = [&](std::string name, DWORD size) {  // the status, the address, the room asked for
        char text[64] = "";
        const DWORD status = f.resolveHostName(&name[0], text, &size);
        return std::to_string(status) + " " + text + " " + std::to_string(size) + "|";
    };
    EXPECT_EQ("0 127.0.0.1 64|122  10|0 127.0.0.1 64|12007  64|",
              resolve("127.0.0.1", 64) + resolve("127.0.0.1", 3) + resolve("localhost", 64) + resolve("no-such-host.invalid", 64));
    char text[64], localhost[] = "localhost", missing[] = "no-such-host.invalid";
    DWORD size = sizeof text;
    EXPECT_EQ(std::make_tuple(TRUE, FALSE, 0ul), std::make_tuple(f.isResolvable(localhost), f.isResolvable(missing), f.getIPAddress(text, &size)));
    EXPECT_NE(INADDR_NONE, ::inet_addr(text)) << text;
    char net[] = "10.1.0.0", mask[] = "255.255.0.0", in[] = "10.1.2.3", out[] = "10.2.2.3", bad[] = "ten";
    EXPECT_EQ(std::make_tuple(TRUE, FALSE, FALSE), std::make_tuple(f.isInNet(in, net, mask), f.isInNet(out, net, mask), f.isInNet(bad, net, mask)));
}

}  // namespace
