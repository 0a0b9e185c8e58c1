#include "tunnel/wininet_connect.h"

#include <algorithm>
#include <vector>

#include "host/log.h"
#include "host/platform_seams.h"
#include "settings/proxy_credentials.h"

namespace {

const char* const kConnectMethod = "CWinInetConnect::Connect";

// How the next proxy login is got: asking, stored then asking, stored only.
enum { AuthAsk = 0, AuthStoredThenAsk = 1, AuthStoredOnly = 2 };

// The platform answers the size of the socket record first; Wine answers a
// size of 0 every time. A few questions, and then the tunnel gives up.
constexpr int kSocketInfoQuestions = 3;

bool IsChallenge(DWORD code) { return code == HTTP_STATUS_DENIED || code == HTTP_STATUS_PROXY_AUTH_REQ; }

LONG LogFailure(const char* method, const char* text)
{
    const LONG error = static_cast<LONG>(::GetLastError());
    LogLine(vn_log::kErrorDec, method, text, static_cast<int>(error));
    return error;
}

}  // namespace

LONG CWinInetConnect::Connect(const CVnTunnelParams& params)
{
    int mode = m_bInteractive ? AuthStoredThenAsk : AuthStoredOnly;
    bool first = true;
    m_strRemoteHost = params.strRemoteHost;
    m_remotePort = params.remotePort;

    if (params.strProxy.empty()) {
        m_pRemoteSocket.reset(new CSocketClient(params.strRemoteHost, static_cast<unsigned short>(params.remotePort)));
        m_flags |= kConnected;
        return 0;
    }

    LONG err = _initonnection(params);
    if (err != 0)
        LogLine(vn_log::kErrorDec, kConnectMethod, "CWinInetConnect::_initonnection failed.", static_cast<int>(err));

    // The first pass only sends; each later one reads the proxy's answer and,
    // for a challenge, puts a login on the request before sending again. From
    // the second challenge on the user is asked (mode 0); where nobody can
    // answer, the credential layer says so and the loop ends.
    DWORD code = 0;
    do {
        code = 0;
        err = CheckStatus(code);
        if (err != 0) {
            LogLine(vn_log::kErrorDec, kConnectMethod, "CheckStatus failed.", static_cast<int>(err));
            return err;
        }
        if (IsChallenge(code)) {
            if (mode != AuthStoredOnly || first) {
                err = CVnProxyCredentials::GetProxyCredentials(params.strProxy, m_hRequest.get(), params.hWindow, mode);
                if (err != 0 && err != ERROR_INTERNET_FORCE_RETRY) {
                    LogLine(vn_log::kErrorDec, kConnectMethod, "CVnProxyCredentials::GetProxyCredentials failed.",
                            static_cast<int>(err));
                    return err;
                }
                if (first)
                    err = ERROR_INTERNET_FORCE_RETRY;
                else if (mode != AuthStoredOnly)
                    mode = AuthAsk;
            } else {
                LogLine(vn_log::kError, kConnectMethod, "Background mode: cached proxy credentials are wrong.");
                return -1;
            }
        } else {
            if (!first)
                break;
            err = ERROR_INTERNET_FORCE_RETRY;
        }
        if (!PlatformSeams().HttpSendRequestA(m_hRequest.get(), nullptr, 0, nullptr, 0))
            return static_cast<LONG>(::GetLastError());
        first = false;
    } while (err == ERROR_INTERNET_FORCE_RETRY);

    if (err != 0 && err != ERROR_INTERNET_FORCE_RETRY) {
        LogLine(vn_log::kErrorDec, kConnectMethod, "CVnProxyCredentials::GetProxyCredentials failed.",
                static_cast<int>(err));
        return err;
    }
    err = CheckStatus(code);
    if (err != 0) {
        LogLine(vn_log::kErrorDec, kConnectMethod, "CheckStatus failed.", static_cast<int>(err));
        return err;
    }
    if (code == HTTP_STATUS_OK)
        return SaveSocket();
    LogLine(vn_log::kErrorDec, kConnectMethod, "Status code not equal to 200.", static_cast<int>(code));
    return -1;
}

LONG CWinInetConnect::_initonnection(const CVnTunnelParams& params)
{
    m_hInternet.reset(::InternetOpenA(nullptr, INTERNET_OPEN_TYPE_PROXY, params.strProxy.c_str(),
                                      params.strProxyBypassArg.c_str(), 0));
    if (!m_hInternet)
        return LogFailure(kConnectMethod, "InternetOpen failed.");
    m_hConnect.reset(::InternetConnectA(m_hInternet.get(), params.strRemoteHost.c_str(),
                                        static_cast<INTERNET_PORT>(params.remotePort), nullptr, nullptr,
                                        INTERNET_SERVICE_HTTP, 0, 0));
    if (!m_hConnect)
        return LogFailure(kConnectMethod, "InternetConnect failed.");
    m_hRequest.reset(PlatformSeams().HttpOpenRequestA(m_hConnect.get(), "CONNECT", "/", nullptr, nullptr, nullptr,
                                                      INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_KEEP_CONNECTION, 0));
    if (!m_hRequest)
        return LogFailure(kConnectMethod, "HttpOpenRequest failed.");
    return 0;
}

LONG CWinInetConnect::CheckStatus(DWORD& code)
{
    // Before the first send the platform answers with no status: code stays 0.
    DWORD size = sizeof code, index = 0;
    if (PlatformSeams().HttpQueryInfoA(m_hRequest.get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &code, &size,
                                       &index))
        return 0;
    return LogFailure("CVnLinkhostWITransceiver::_geckStatus", "HttpQueryInfo(HTTP_QUERY_STATUS_CODE) failed");
}

LONG CWinInetConnect::SaveSocket()
{
    // The buffer is never smaller than the record read from it, whatever
    // size the platform named.
    std::vector<char> buffer;
    DWORD size = 0;
    bool answered = false;
    for (int question = 0; question < kSocketInfoQuestions && !answered; ++question) {
        answered = PlatformSeams().InternetQueryOptionA(m_hRequest.get(), INTERNET_OPTION_DIAGNOSTIC_SOCKET_INFO,
                                                        buffer.empty() ? nullptr : buffer.data(), &size) != FALSE;
        if (answered)
            break;
        if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            return LogFailure("CWinInetConnect::SaveSocket", "InternetQueryOption failed.");
        buffer.assign(std::max<size_t>(size, sizeof(INTERNET_DIAGNOSTIC_SOCKET_INFO)), '\0');
        size = static_cast<DWORD>(buffer.size());
    }
    if (!answered) {
        ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return LogFailure("CWinInetConnect::SaveSocket", "InternetQueryOption failed.");
    }
    if (buffer.empty())
        return 0;
    const auto* info = reinterpret_cast<const INTERNET_DIAGNOSTIC_SOCKET_INFO*>(buffer.data());
    const SOCKET socket = static_cast<SOCKET>(info->Socket);
    // Wine answers socket 0, which is no socket on any system.
    if (socket == INVALID_SOCKET || socket == 0)
        return 0;
    m_pRemoteSocket.reset(new CSocket(socket));
    m_sourcePort = info->SourcePort;
    m_destPort = info->DestPort;
    m_flags |= kConnected;
    return 0;
}

void CWinInetConnect::Disconnect()
{
    m_hRequest.reset();
    m_hConnect.reset();
    m_hInternet.reset();
    m_flags &= ~kConnected;
    m_pRemoteSocket.reset();
}
