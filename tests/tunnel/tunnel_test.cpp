// Tunnels from end to end: curl and echo clients through tunnels of this process and of the real server, to the
// origin's HTTP and echo listeners, directly and through squid and tinyproxy. Wine's wininet can neither send
// CONNECT in authority form nor hand out its socket, so the four calls of the handshake are stood in for behind
// the seam, on a real socket to the real proxy; the credential loop, the hand-over and the pump are the product's.
#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>
#include <wininet.h>
#include <wincred.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <thread>

#include "common/test_util.h"
#include "host/platform_seams.h"
#include "server/server_fixture.h"
#include "settings/credentials_managers.h"
#include "settings/proxy_credentials.h"
#include "tunnel/web_tunnel.h"
#include "vfc/text.h"
#include "web/header_text.h"

namespace {

using namespace vn_test;
int Port(const char* server, const char* name = "port") { return std::atoi(ReadyLine(server)[name].c_str()); }

// What the stand-in answers to option 67: the socket as Windows does, Wine's own answer (a size of 0, then
// socket 0), a size of 0 for ever, or no socket.
enum TSocketAnswer { AsWindows, AsWine, NoSize, NoSocket };

// The handshake as Windows does it: CONNECT host:port on a new socket to the proxy for each send, with a Basic
// login when options 43 and 44 hold one, and the socket of a 200 handed over through option 67.
class TConnectStandIn {
public:
    explicit TConnectStandIn(int proxyPort, TSocketAnswer answer = AsWindows) : m_port(proxyPort), m_answer(answer) { s_self = this; }
    ~TConnectStandIn() { for (auto& entry : m_requests) ::closesocket(entry.second.socket); }
    int sends = 0;

private:
    struct TRequest {
        std::string target;
        SOCKET socket = INVALID_SOCKET;
        DWORD status = 0;
    };
    static TRequest& Of(HINTERNET request) { return s_self->m_requests[request]; }
    static HINTERNET WINAPI Open(HINTERNET connect, LPCSTR verb, LPCSTR path, LPCSTR version, LPCSTR referrer, LPCSTR* types, DWORD flags, DWORD_PTR context)
    {
        HINTERNET request = ::HttpOpenRequestA(connect, verb, path, version, referrer, types, flags, context);
        char url[512] = {};
        DWORD size = sizeof url;
        ::InternetQueryOptionA(request, INTERNET_OPTION_URL, url, &size);  // "http://host:port/"
        TRequest& r = Of(request);  // the platform reuses the values of closed handles
        ::closesocket(r.socket);
        r = {std::string(url + 7, std::strlen(url) - 8)};
        return request;
    }
    static BOOL WINAPI Send(HINTERNET request, LPCSTR, DWORD, LPVOID, DWORD)
    {
        TRequest& r = Of(request);
        ++s_self->sends;
        ::closesocket(std::exchange(r.socket, ::socket(AF_INET, SOCK_STREAM, 0)));
        sockaddr_in proxy = {AF_INET, ::htons(static_cast<u_short>(s_self->m_port)), {}, {}};
        proxy.sin_addr.s_addr = ::inet_addr("127.0.0.1");
        if (::connect(r.socket, reinterpret_cast<sockaddr*>(&proxy), sizeof proxy) != 0)
            return ::SetLastError(ERROR_INTERNET_CANNOT_CONNECT), FALSE;
        char login[256] = {}, password[256] = {};
        DWORD size = sizeof login;
        std::string head = "CONNECT " + r.target + " HTTP/1.1\r\nHost: " + r.target + "\r\n";
        if (::InternetQueryOptionA(request, INTERNET_OPTION_PROXY_USERNAME, login, &size) && *login && (size = sizeof password) &&
            ::InternetQueryOptionA(request, INTERNET_OPTION_PROXY_PASSWORD, password, &size))
            head += "Proxy-Authorization: " + vn_http::BasicCredentials(login, password) + "\r\n";
        head += "\r\n";
        ::send(r.socket, head.data(), static_cast<int>(head.size()), 0);
        std::string answer;  // byte by byte: nothing of what follows the head is taken
        for (char c; answer.find("\r\n\r\n") == std::string::npos && ::recv(r.socket, &c, 1, 0) == 1;)
            answer += c;
        r.status = answer.size() > 12 ? std::atoi(answer.c_str() + 9) : 0;
        return TRUE;
    }
    static BOOL WINAPI Query(HINTERNET request, DWORD, LPVOID buffer, LPDWORD, LPDWORD)  // only the status is asked for
    {
        *static_cast<DWORD*>(buffer) = Of(request).status;
        return TRUE;
    }
    static BOOL WINAPI Option(HINTERNET request, DWORD option, LPVOID buffer, LPDWORD size)
    {
        const TSocketAnswer answer = s_self->m_answer;
        if (option != INTERNET_OPTION_DIAGNOSTIC_SOCKET_INFO || answer == AsWine)
            return ::InternetQueryOptionA(request, option, buffer, size);
        if (answer == NoSize || !buffer || *size < sizeof(INTERNET_DIAGNOSTIC_SOCKET_INFO)) {
            *size = answer == NoSize ? 0 : sizeof(INTERNET_DIAGNOSTIC_SOCKET_INFO);
            return ::SetLastError(ERROR_INSUFFICIENT_BUFFER), FALSE;
        }
        auto* info = static_cast<INTERNET_DIAGNOSTIC_SOCKET_INFO*>(buffer);
        info->Socket = answer == NoSocket ? INVALID_SOCKET : std::exchange(Of(request).socket, INVALID_SOCKET);
        return TRUE;
    }

    static inline TConnectStandIn* s_self = nullptr;
    int m_port;
    TSocketAnswer m_answer;
    std::map<HINTERNET, TRequest> m_requests;
    VnPlatformSeams& m_seams = PlatformSeams();
    TScopedSeam<decltype(VnPlatformSeams::HttpOpenRequestA)> m_open{m_seams.HttpOpenRequestA, Open};
    TScopedSeam<decltype(VnPlatformSeams::HttpSendRequestA)> m_send{m_seams.HttpSendRequestA, Send};
    TScopedSeam<decltype(VnPlatformSeams::HttpQueryInfoA)> m_query{m_seams.HttpQueryInfoA, Query};
    TScopedSeam<decltype(VnPlatformSeams::InternetQueryOptionA)> m_option{m_seams.InternetQueryOptionA, Option};
};

// A proxy script whose answer names no proxy: the decision that goes direct.
const std::string& DirectScript()
{
    static const std::string path = [] {
        std::string file = vn_test::BinDir() + "\\tunnel-direct.pac";
        std::ofstream(file) << "function FindProxyForURL(url, host) { return \"PROXY \"; }\n";
        return file;
    }();
    return path;
}

// A tunnel of this process to a listener of the origin, through `proxy` (empty: direct).
vfc::TComPtr<CVnWebTunnel> Tunnel(const std::string& proxy, const char* listener)
{
    CConfigData record;
    record.m_ProxyMode = proxy.empty() ? ProxyScript : ProxyManual;
    record.m_ProxyScript = DirectScript();
    record.m_ProxyAddress = proxy;
    record.m_ProxyPort = 3128;  // a name for the stored logins only: the stand-in knows where the proxy is
    vfc::TComPtr<CVnWebTunnel> tunnel;
    EXPECT_EQ(S_OK, CVnWebTunnel::CreateInstance(tunnel));
    VnProcessMonitor client(::GetCurrentProcessId());
    EXPECT_EQ(S_OK, tunnel->Init(vfc::TBstr(L"127.0.0.1").get(), Port("VN_ORIGIN", listener), record, nullptr, client));
    return tunnel;
}
LONG LocalPort(IVnWebTunnel* tunnel) { LONG port = -1; return tunnel->get_LocalPort(&port), port; }

// Sends the bytes through a local port while reading them back, then closes: what came back, with "<closed>"
// where the other end closed or reset the connection, or "<failed>". A reader that lags behind lets the echo
// pile up in the tunnel, which must then hold back what the client can't take yet.
std::string Echo(LONG port, const std::string& bytes, const char* address = "127.0.0.1", bool readerLags = false)
{
    vfc::TSocket s(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in to = {AF_INET, ::htons(static_cast<u_short>(port)), {}, {}};
    to.sin_addr.s_addr = ::inet_addr(address);
    DWORD ms = 60000;
    ::setsockopt(s.get(), SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<char*>(&ms), sizeof ms);
    if (::connect(s.get(), reinterpret_cast<sockaddr*>(&to), sizeof to) != 0)
        return "<failed>";
    std::atomic<size_t> sent{0};
    std::thread sender([&] {
        for (int n = 0; sent < bytes.size() && n >= 0;)
            if ((n = ::send(s.get(), bytes.data() + sent, static_cast<int>(std::min<size_t>(65536, bytes.size() - sent)), 0)) > 0)
                sent += n;
    });
    if (readerLags)
        vn_test::WaitUntil([&] { return sent == bytes.size(); }, 3000);
    std::string back;
    char buffer[65536];
    for (int n; back.size() < bytes.size(); back.append(buffer, n)) {
        if ((n = ::recv(s.get(), buffer, sizeof buffer, 0)) <= 0) {
            back = n == 0 || ::WSAGetLastError() == WSAECONNRESET ? back + "<closed>" : "<failed>";
            break;
        }
    }
    ::shutdown(s.get(), SD_BOTH);
    sender.join();
    return back;
}

// curl through a local port, in its own (native) process; at the end the body's SHA-256 must be the origin's.
class TCurl {
public:
    explicit TCurl(LONG port, int seed) : m_stem("/tmp/vn-tunnel-curl-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(seed))
    {
        const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/bytes?n=3000000&mode=close&seed=" + std::to_string(seed);
        // Wine starts a native program detached: its output shows up whole, under a new name, at its end.
        vn_test::TChild("/bin/sh -c \"(curl -sS --max-time 120 -D " + m_stem + ".head '" + url + "' | sha256sum | cut -c1-64; sed -n " +
                        "'s/^X-Body-Sha256: //p' " + m_stem + ".head) >" + m_stem + ".out 2>&1; mv " + m_stem + ".out " + m_stem + ".done\"");
    }
    void ExpectWholeBody() const
    {
        std::string path = "Z:" + m_stem + ".done";
        std::replace(path.begin(), path.end(), '/', '\\');
        vn_test::WaitUntil([&] { return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }, 180000);
        std::string digests = vn_test::ReadWholeFile(path);  // the body's and the origin's, on two lines
        digests.erase(std::remove(digests.begin(), digests.end(), '\r'), digests.end());
        ::DeleteFileA(path.c_str());
        ::DeleteFileA(("Z:" + m_stem + ".head").c_str());
        EXPECT_TRUE(digests.size() == 130 && digests.substr(0, 64) == digests.substr(65, 64)) << digests;
    }

private:
    std::string m_stem;
};

class Tunnels : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        WSADATA data;
        ::WSAStartup(0x0202, &data);
        const std::string auth = std::getenv("VN_SQUID_AUTH") ? std::getenv("VN_SQUID_AUTH") : ":";
        s_login = auth.substr(0, auth.find(':')), s_password = auth.substr(auth.find(':') + 1);
    }
    static inline std::string s_login, s_password;
};

TEST_F(Tunnels, CarryBytesBothWaysForManyClientsDirectlyAndThroughProxies)
{
    // Proxy name (empty: direct), the proxy the stand-in reaches, whether this process remembers a login for the
    // name; the CONNECTs sent for 18 clients (one each, and one more where the proxy wants the login).
    const std::tuple<std::string, int, bool, int> cases[] = {{"", 0, false, 0}, {"squid-login", Port("VN_SQUID"), true, 36},
                                                             {"squid-open", Port("VN_SQUID_OPEN"), false, 18}, {"tinyproxy", Port("VN_PROXY"), false, 18}};
    for (auto& [proxy, proxyPort, login, sends] : cases) {
        TConnectStandIn standIn(proxyPort);
        if (login)
            CVnProxyCredentials::_saveCredentials(proxy + ":3128", s_login, s_password);
        const size_t log = LogSize();
        // Each tunnel after the first is added while the pump waits on an array without it: the pump's rebuild finds it.
        std::vector<vfc::TComPtr<CVnWebTunnel>> echoes, origins;
        for (int i = 0; i < 3; ++i)
            echoes.push_back(Tunnel(proxy, "echo")), origins.push_back(Tunnel(proxy, "http"));
        std::vector<TCurl> curls;
        for (int i = 0; i < 6; ++i)
            curls.emplace_back(LocalPort(origins[i % 3].get()), i);
        std::vector<std::thread> clients;
        std::vector<std::string> sent(12), back(12);
        for (int i = 0; i < 12; ++i) {
            sent[i] = std::string(i == 0 ? 16 << 20 : 1 << 20, 0);
            std::generate(sent[i].begin(), sent[i].end(), [n = i * 7919u]() mutable { return char((n = n * 1103515245 + 12345) >> 16); });
            clients.emplace_back([&, i] { back[i] = Echo(LocalPort(echoes[i % 3].get()), sent[i], "127.0.0.1", i == 0); });
        }
        for (std::thread& client : clients)
            client.join();
        for (int i = 0; i < 12; ++i)
            EXPECT_TRUE(back[i] == sent[i]) << proxy << " client " << i << " got " << back[i].size() << " bytes";
        for (const TCurl& curl : curls)
            curl.ExpectWholeBody();
        // The port is on the loopback address alone; the direct path never touches the internet client.
        EXPECT_EQ("<failed>", Echo(LocalPort(echoes[0].get()), "x", "127.0.0.2"));
        EXPECT_EQ(sends, standIn.sends) << proxy;
        // Either side's close took its pair down: the echo clients closed, the origin closed after each body.
        EXPECT_TRUE(vn_test::WaitUntil([&] { return CountLogLinesSince(log, "Socket delete successfully") == 18; }, 60000));
    }
}

TEST_F(Tunnels, AskTheProxyWithStoredLoginsAndGiveUpWhereNobodyAnswers)
{
    // Login in this process's memory, in the store at rest, option 67's answer; whether the client's bytes came
    // back, the log line of the end, the CONNECTs sent (bounded where the login is wrong and nobody can be asked).
    const std::tuple<const char*, const char*, TSocketAnswer, bool, const char*, int> cases[] = {
        {"right", nullptr, AsWindows, true, nullptr, 2},
        {nullptr, "right", AsWindows, true, nullptr, 2},
        {"wrong", nullptr, AsWindows, false, "Status code not equal to 200. Error code: 407.", 2},
        {nullptr, "wrong", AsWindows, false, "GetProxyCredentials failed. Error code: -2147220988.", 2},
        {nullptr, nullptr, AsWindows, false, "GetProxyCredentials failed. Error code: -2147220988.", 1},
        {"right", nullptr, AsWine, false, "The internet client handed out no socket.", 2},
        {"right", nullptr, NoSocket, false, "The internet client handed out no socket.", 2},
        {"right", nullptr, NoSize, false, "InternetQueryOption failed. Error code: 122.", 2},
    };
    int row = 0;
    for (auto& [inMemory, inStore, socketAnswer, carried, ending, sends] : cases) {
        const std::string proxy = "squid-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++row);
        const std::wstring target = vfc::Widen(proxy + ":3128");
        auto password = [&](const char* which) { return std::string(which) == "right" ? s_password : "wrong-" + s_password; };
        if (inMemory)
            CVnProxyCredentials::_saveCredentials(proxy + ":3128", s_login, password(inMemory));
        if (inStore)
            VnCredentialsManagers::WinCredCredentialsManager().StoreCredentials(target, vfc::Widen(s_login), vfc::Widen(password(inStore)));
        TConnectStandIn standIn(Port("VN_SQUID"), socketAnswer);
        const size_t log = LogSize();
        auto tunnel = Tunnel(proxy, "echo");
        EXPECT_EQ(carried ? "through squid" : "<closed>", Echo(LocalPort(tunnel.get()), "through squid")) << row;
        EXPECT_EQ(std::make_tuple(ending ? 1 : 0, sends), std::make_tuple(ending ? CountLogLinesSince(log, ending) : 0, standIn.sends)) << row;
        ::CredDeleteW(target.c_str(), CRED_TYPE_GENERIC, 0);
    }
}

TEST_F(Tunnels, ThePumpEndsWithTheLastTunnelOrWithMoreThan64Events)
{
    // Tunnels, whether one client still gets through (62 listeners and a pair make 64 events; 65 listeners are too many).
    for (auto [count, served] : {std::make_pair(62, true), std::make_pair(65, false)}) {
        const size_t log = LogSize();
        std::vector<vfc::TComPtr<CVnWebTunnel>> tunnels;
        while (tunnels.size() < size_t(count))
            tunnels.push_back(Tunnel("", "echo"));
        if (served)
            EXPECT_EQ("64 events", Echo(LocalPort(tunnels.back().get()), "64 events"));
        else
            EXPECT_TRUE(vn_test::WaitUntil([&] { return CountLogLinesSince(log, "====== Thread finished running") == 1; }, 60000));
        EXPECT_EQ(served ? 0 : 1, CountLogLinesSince(log, "WaitEvents failed with error:  Error code: 87."));
        tunnels.clear();
        // The last tunnel's release returns when the thread and the manager are gone.
        EXPECT_EQ(std::make_tuple(1, 1, 1), std::make_tuple(CountLogLinesSince(log, "WORKED THREAD FINISHED"),
                  CountLogLinesSince(log, "Worked Thread shutdowned correctly!"), CountLogLinesSince(log, "Shutdown!!!")));
    }
}

TEST_F(Tunnels, TheServerMakesThemForASession)
{
    ASSERT_EQ(0u, vn_test::RunServer("/RegServer"));
    HRESULT hr = E_FAIL;
    vfc::TComPtr<IVnLinkhost> root = vn_test::CreateRoot(&hr);
    ASSERT_TRUE(root) << std::hex << hr;
    // Proxy mode: none gives no decision, a script that names no proxy goes direct.
    for (const wchar_t* mode : {L"0", L"3"}) {
        for (auto [key, value] : {std::make_pair(L"proxy/useSystemProxy", L"false"), std::make_pair(L"proxy/mode", mode),
                                  std::make_pair(L"dialup/useSystemConnection", L"false"), std::make_pair(L"dialup/mode", L"0")})
            root->SetConfigurationValue(vfc::TBstr(key).get(), vfc::TBstr(value).get());
        root->SetConfigurationValue(vfc::TBstr(L"proxy/script").get(), vfc::TBstr(vfc::Widen(DirectScript())).get());
        vfc::TComPtr<IVnWebSession> session;
        ASSERT_EQ(S_OK, root->CreateSession(static_cast<LONG>(::GetCurrentProcessId()), 0, 0, session.put()));
        const size_t log = LogSize();
        vfc::TComPtr<IVnWebTunnel> tunnel;
        const bool direct = *mode == L'3';
        EXPECT_EQ(direct ? S_OK : S_FALSE, session->CreateTunnel(vfc::TBstr(L"127.0.0.1").get(), Port("VN_ORIGIN", "http"), tunnel.put()));
        vfc::TBstr localHost, remoteHost;
        LONG remotePort = 0;
        tunnel->get_LocalHost(localHost.put()), tunnel->get_remoteHost(remoteHost.put()), tunnel->get_remotePort(&remotePort);
        EXPECT_EQ(std::make_tuple(std::wstring(L"127.0.0.1"), std::wstring(direct ? L"127.0.0.1" : L""), direct ? Port("VN_ORIGIN", "http") : -1),
                  std::make_tuple(localHost.str(), remoteHost.str(), remotePort));
        // Without a decision the port listens but is not handed to the pump.
        EXPECT_EQ(direct ? 1 : 0, CountLogLinesSince(log, "After added tunnel socket to queue"));
        if (direct)
            TCurl(LocalPort(tunnel.get()), 100).ExpectWholeBody();
    }
    vn_test::ShutDownServer(root);
}

}  // namespace
