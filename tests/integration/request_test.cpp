// Requests from end to end: a client in this process, the server in its
// own, the loopback origin server behind it.
#include "integration/pipeline_fixture.h"

#include <fstream>
#include <vector>

#include "host/status.h"
#include "vfc/text.h"

namespace vn_test {
namespace {

class Requests : public Pipeline {
protected:
    void SetUp() override { ConfigureDirect(); }

    // Sends the request with a marker header of its own (and then `body`, if
    // any) and gives the origin's log lines of the requests that carried it.
    static std::vector<std::string> Arrivals(IVnWebRequest* request, size_t count, const std::string& body = "")
    {
        static int marks = 0;
        const std::string marker = "mark-" + std::to_string(GetTickCount()) + "-" + std::to_string(++marks);
        EXPECT_EQ(S_OK, AddHeader(request, L"X-Marker", vfc::Widen(marker)));
        EXPECT_TRUE(body.empty() || WriteBody(request, body) == S_OK);
        EXPECT_EQ(200, Answer(request).code);
        std::vector<std::string> lines;
        WaitUntil([&] { return (lines = MarkedRequests(marker)).size() >= count; }, 5000);  // logged after the answer
        Sleep(100);  // and nothing more
        lines = MarkedRequests(marker);
        EXPECT_EQ(count, lines.size()) << testing::PrintToString(lines);
        return lines;
    }
};

TEST_F(Requests, EachVerbAndFramingGivesTheServersAnswerWithItsWholeBodyAndNoErrorInTheLog)
{
    // Path, verb, bytes written to the request (with a Content-Length, or without it when negative); the code, the
    // body's length (-1: any), a text the body holds, the status that ended the body.
    const std::tuple<const char*, const wchar_t*, int, LONG, long, const char*, HRESULT> rows[] = {
        {"/bytes?n=8000000&seed=7&mode=length", L"GET", 0, 200, 8000000, "", S_OK},
        {"/bytes?n=8000000&seed=7&mode=chunked", L"GET", 0, 200, 8000000, "", S_OK},
        {"/bytes?n=8000000&seed=7&mode=close", L"GET", 0, 200, 8000000, "", S_OK},
        {"/slow?n=3000&piece=300&delay_ms=30", L"GET", 0, 200, 3000, "", S_OK},  // a waiting read wakes for each piece and the end
        // No body follows a HEAD; its Content-Length of 5000 makes the end count as short.
        {"/bytes?n=5000", L"head", 0, 200, 0, "", VN_E_STREAM_BROKEN},
        {"/echo", L"DELETE", 0, 200, -1, "\"method\": \"DELETE\"", S_OK},
        {"/echo", L"OPTIONS", 0, 200, -1, "\"method\": \"OPTIONS\"", S_OK},
        {"/upload", L"POST", 200000, 200, -1, "200000", S_OK},
        // The platform never answers Digest: its 401 is the result, and its body tells what arrived.
        {"/auth/digest", L"POST", 200000, 401, -1, "200000", S_OK},
        {"/upload", L"PUT", -20, 200, -1, "\"length\": 20", S_OK},  // cached, sent at Execute
        {"/status/404", L"GET", 0, 404, -1, "", S_OK},
        {"/status/500", L"GET", 0, 500, -1, "", S_OK},
        {"/redirect?to=/echo&code=302", L"GET", 0, 200, -1, "\"path\": \"/echo\"", S_OK},
        {"/short?n=10000&sent=4000", L"GET", 0, 200, 4000, "", VN_E_STREAM_BROKEN},
    };
    const size_t log = LogSize();
    for (auto& [path, verb, written, code, size, holds, end] : rows) {
        SCOPED_TRACE(path);
        std::string upload(std::abs(written), 'x');
        for (size_t i = 0; i < upload.size(); ++i)
            upload[i] = static_cast<char>('a' + i % 26);
        auto request = Request(Url(path), verb);
        ASSERT_EQ(S_OK, written > 0 ? AddHeader(request.get(), L"Content-Length", std::to_wstring(upload.size())) : S_OK);
        ASSERT_EQ(S_OK, written ? WriteBody(request.get(), upload) : S_OK);
        const TAnswer answer = Answer(request.get());
        ASSERT_EQ(S_OK, answer.hr);
        EXPECT_EQ(std::make_tuple(code, end), std::make_tuple(answer.code, answer.end));
        EXPECT_TRUE(size < 0 || answer.body.size() == static_cast<size_t>(size)) << answer.body.size();
        EXPECT_TRUE(size <= 0 || end != S_OK || answer.digest == Sha256(answer.body));
        for (const std::string& part : {std::string(holds), written ? Sha256(upload) : std::string()})
            EXPECT_NE(std::string::npos, answer.body.find(part)) << part << " in " << answer.body.substr(0, 400);
    }
    EXPECT_EQ(0, CountLogLinesSince(log, "Error in method")) << LogSince(log);  // the receive threads ended with the requests
}

TEST_F(Requests, ServerLoginOfTheClientAnswersInAnInteractiveSessionAndThePlatformKeepsItForTheHost)
{
    // Background: no answer to a 401; interactive: the dialogue's, and the platform's Basic login of the host after it.
    for (auto [flags, code] : {std::make_pair(0L, 401L), std::make_pair(1L, 200L), std::make_pair(0L, 200L)}) {
        auto request = Request(Url("/auth/basic?user=u&pass=p-secret&realm=r") + std::to_string(GetTickCount()), L"GET", flags);
        vfc::TBstr user(L"u"), password(L"p-secret");
        ASSERT_EQ(std::make_pair(S_OK, S_OK), std::make_pair(request->put_UserName(user.get()), request->put_Password(password.get())));
        EXPECT_EQ(code, Answer(request.get()).code) << flags;
    }
}

TEST_F(Requests, FailuresAndCertificateErrorsOfABackgroundRequestMapToTheSystemsStatusCodes)
{
    const std::pair<std::string, HRESULT> cases[] = {
        {Url("/", "refused"), static_cast<HRESULT>(0x80040202)},
        {"http://no-such-host.invalid/", static_cast<HRESULT>(0x80040202)},
        {"not a url", static_cast<HRESULT>(0x80040205)},
        {"ftp://127.0.0.1/file", static_cast<HRESULT>(0x80040205)},
        // Wine reports a reset before any byte as 12030 or as an answer without a status line.
        {Url("/reset"), static_cast<HRESULT>(0x80040203)},
        {Url("/reset?again"), static_cast<HRESULT>(0x80040203)},
        {Url("/silent?max_ms=1000"), static_cast<HRESULT>(0x80040203)},   // closed without an answer
        {Url("/silent?max_ms=20000"), static_cast<HRESULT>(0x8004020F)},  // silent past the receive time-out
        {Url("/echo?a=1\r\nX-Injected: 1"), static_cast<HRESULT>(0x80040205)},  // one request must not become two
        {Url("/echo\nGET /echo HTTP/1.1"), static_cast<HRESULT>(0x80040205)},
        {"http://127.0.0.1:84936/", static_cast<HRESULT>(0x80040205)},  // not wrapped to port 19400
        {TlsUrl("/echo", "expired"), static_cast<HRESULT>(0x80040219)}, {TlsUrl("/echo", "wrongname"), static_cast<HRESULT>(0x80040218)},
        {TlsUrl("/echo", "selfsigned"), static_cast<HRESULT>(0x80040217)}, {TlsUrl("/echo", "untrusted"), static_cast<HRESULT>(0x80040217)},
    };
    const TReceiveTimeout shortened(3000);
    const size_t log = LogSize();
    for (const auto& [url, expected] : cases) {
        auto request = Request(url, L"GET");
        vfc::TComPtr<IVnWebResult> result;
        EXPECT_EQ(expected, Execute(request.get(), result)) << url;
        EXPECT_FALSE(result) << url;
    }
    const std::string method = "Error in method [CVnProxyConfigHelper::GetUrlParts]. Message: ";
    EXPECT_EQ(2, CountLogLinesSince(log, method + "URL holds a line break."));
    EXPECT_EQ(1, CountLogLinesSince(log, method + "Port is out of range."));
    const TAnswer trusted = Answer(Request(TlsUrl("/echo"), L"GET").get());  // the test CA's own certificate for localhost
    EXPECT_EQ(std::make_tuple(200L, true), std::make_tuple(trusted.code, trusted.body.find("\"tls\": true") != std::string::npos));
}

TEST_F(Requests, VerbsAndPropertiesAreCheckedAndLockedAsTheModelDemands)
{
    EXPECT_EQ(E_FAIL, Answer(Request(Url("/echo"), L"FETCH").get()).hr) << "an unknown verb at creation shows at Execute";

    // Set later, it is refused and the verb stays as it was.
    auto request = Request(Url("/echo"), L"get");
    vfc::TBstr bad(L"FETCH"), method;
    EXPECT_EQ(static_cast<HRESULT>(0x80040206), request->put_method(bad.get()));
    request->get_method(method.put());
    EXPECT_EQ(L"GET", method.str());

    auto post = Request(Url("/upload"), L"POST");
    vfc::TComPtr<IVnStream> stream;
    ASSERT_EQ(S_OK, post->get_DataStream(stream.put()));
    vfc::TBstr url(vfc::Widen(Url("/other")));
    EXPECT_EQ(static_cast<HRESULT>(0x80040207), post->put_url(url.get()));
    EXPECT_EQ(static_cast<HRESULT>(0x80040207), AddHeader(post.get(), L"X-Late", L"1"));

    auto get = Request(Url("/echo"), L"GET");
    vfc::TComPtr<IVnStream> none;
    EXPECT_EQ(S_FALSE, get->get_DataStream(none.put()));
    EXPECT_FALSE(none);
}

TEST_F(Requests, PreflightIsABodylessHeadWithoutRedirectsOrTheRealVerbWhenHeadAuthenticationIsSkipped)
{
    auto request = Request(Url("/redirect?to=/upload&code=302"), L"POST");
    const auto lines = Arrivals(request.get(), 3, "0123456789");
    ASSERT_EQ(3u, lines.size());
    // One HEAD to the first URL only, without the request's own Content-Length.
    EXPECT_NE(std::string::npos, lines[0].find("\"method\": \"HEAD\", \"target\": \"/redirect")) << lines[0];
    EXPECT_EQ(std::string::npos, lines[0].find("[\"Content-Length\", \"10\"]")) << lines[0];
    for (size_t i = 1; i < lines.size(); ++i)
        EXPECT_EQ(std::string::npos, lines[i].find("\"HEAD\"")) << "the pre-flight must not follow the redirect";
    // The real request goes out with its body and follows the redirect.
    EXPECT_NE(std::string::npos, lines[1].find("\"method\": \"POST\"")) << lines[1];
    EXPECT_NE(std::string::npos, lines[1].find("[\"Content-Length\", \"10\"]")) << lines[1];
    EXPECT_NE(std::string::npos, lines[2].find("\"path\": \"/upload\"")) << lines[2];
    Configure({{L"proxy/skipHeadAuth", L"true"}});
    for (const std::string& line : Arrivals(Request(Url("/echo?probe=skip"), L"DELETE").get(), 2))  // pre-flight and request
        EXPECT_NE(std::string::npos, line.find("\"method\": \"DELETE\"")) << line;
}

TEST_F(Requests, HeadersThatWouldSplitTheRequestOrReplaceItsHostAreRefused)
{
    const size_t log = LogSize();
    auto request = Request(Url("/echo"), L"GET");
    const std::pair<const wchar_t*, std::wstring> refused[] = {{L"X-Other", L"1\r\nX-Injected: 1"},
        {L"X-Injected: 1\nX-Other", L"1"}, {L"Host", L"evil.example"}, {L" host : x", L"evil.example"}};
    for (const auto& [name, value] : refused)
        EXPECT_EQ(E_INVALIDARG, AddHeader(request.get(), name, value)) << vfc::Narrow(name);
    vfc::TBstr agent(L"Agent\r\nX-Injected: 1");
    EXPECT_EQ(E_INVALIDARG, request->put_UserAgent(agent.get()));
    EXPECT_EQ(5, CountLogLinesSince(log, "Error in method [CVnWebRequest::AddHeader]."));
    for (const std::string& line : Arrivals(request.get(), 2)) {  // the pre-flight and the request, nothing more
        EXPECT_NE(std::string::npos, line.find("[\"Host\", \"" + Url("").substr(7) + "\"]")) << line;
        EXPECT_EQ(std::string::npos, line.find("X-Injected")) << line;
        EXPECT_EQ(std::string::npos, line.find("evil")) << line;
    }
}

TEST_F(ProxiedRequests, GoThroughTheProxyThatAScriptOrTheManualSettingsName)
{
    const std::string port = ReadyLine("VN_PROXY")["port"];
    char folder[MAX_PATH] = {};
    GetTempPathA(MAX_PATH, folder);
    const std::string script = std::string(folder) + "vn-test-proxy.pac";
    std::ofstream(script) << "function FindProxyForURL(url, host) { return \"PROXY 127.0.0.1:" << port << "\"; }\n";
    // Script first: the platform's pool would hand a connection that went direct on to the manual row.
    for (const wchar_t* mode : {L"3", L"2"}) {
        SCOPED_TRACE(vfc::Narrow(mode));
        ConfigureProxy(port);
        Configure({{L"proxy/mode", mode}, {L"proxy/script", vfc::Widen(script)}});
        const TAnswer echo = Answer(Request(Url("/echo?via=proxy"), L"GET").get());
        EXPECT_EQ(std::make_tuple(S_OK, 200L, true), std::make_tuple(echo.hr, echo.code, echo.body.find("vn-test-proxy") != std::string::npos))
            << echo.body;
        const TAnswer tls = Answer(Request(TlsUrl("/bytes?n=100000&mode=chunked"), L"GET").get());
        EXPECT_EQ(std::make_tuple(S_OK, size_t(100000), tls.digest), std::make_tuple(tls.hr, tls.body.size(), Sha256(tls.body)));
    }
    DeleteFileA(script.c_str());
}

}  // namespace
}  // namespace vn_test
