#include "settings/inet_api_handler.h"

#include <vector>

#include "host/log.h"
#include "host/platform_seams.h"
#include "settings/proxy_credentials.h"

namespace VnINetApiHandlers {

namespace {

// The client names the size it needs after error 122; a value that keeps
// changing would be a fault of the client, so the growth is bounded.
constexpr int kMaxQueryRounds = 8;
constexpr DWORD kFirstQuerySize = 256;

// A failure that leaves no error number must not read as success.
DWORD LastErrorOrGeneric()
{
    DWORD error = ::GetLastError();
    return error ? error : ERROR_GEN_FAILURE;
}

}  // namespace

DWORD QueryTextOption(HINTERNET hHandle, DWORD dwOption, std::string& text)
{
    std::vector<char> buffer(kFirstQuerySize, '\0');
    for (int round = 0; round < kMaxQueryRounds; ++round) {
        DWORD size = static_cast<DWORD>(buffer.size());
        if (::InternetQueryOptionA(hHandle, dwOption, buffer.data(), &size)) {
            // The size given back counts the characters without the terminator,
            // but the terminator is what ends the text for certain.
            buffer.push_back('\0');
            text.assign(buffer.data());
            return 0;
        }
        DWORD error = LastErrorOrGeneric();
        if (error != ERROR_INSUFFICIENT_BUFFER)
            return error;
        buffer.assign(size > buffer.size() ? size : buffer.size() * 2, '\0');
    }
    return ERROR_INSUFFICIENT_BUFFER;
}

DWORD SetTextOption(HINTERNET hHandle, DWORD dwOption, const std::string& text)
{
    // The length of a text option counts characters; the terminator goes with it.
    if (::InternetSetOptionA(hHandle, dwOption, const_cast<char*>(text.c_str()), static_cast<DWORD>(text.size() + 1)))
        return 0;
    return LastErrorOrGeneric();
}

bool WinINetHandler::SetCredentials(HINTERNET hHandle, const std::string& name, const std::string& login,
                                    const std::string& password)
{
    const DWORD options[2] = {INTERNET_OPTION_PROXY_USERNAME, INTERNET_OPTION_PROXY_PASSWORD};
    const std::string* texts[2] = {&login, &password};
    for (int i = 0; i < 2; ++i) {
        if (texts[i]->empty())
            continue;
        DWORD error = SetTextOption(hHandle, options[i], *texts[i]);
        if (error) {
            LogLine(vn_log::kErrorDec, "CVnProxyCredentials::SetCredentials", "InternetSetOption failed",
                    static_cast<int>(error));
            return false;
        }
    }
    CVnProxyCredentials::_saveCredentials(name, login, password);
    return true;
}

std::string WinINetHandler::GetHandleText(HINTERNET)
{
    return std::string();
}

bool WinINetHandler::ShowDialog(HINTERNET hHandle, HWND hWnd)
{
    HWND owner = hWnd ? hWnd : ::GetDesktopWindow();
    DWORD result = PlatformSeams().InternetErrorDlg(owner, hHandle, ERROR_SUCCESS,
                                                   FLAGS_ERROR_UI_FILTER_FOR_ERRORS | FLAGS_ERROR_UI_FLAGS_CHANGE_OPTIONS |
                                                       FLAGS_ERROR_UI_FLAGS_GENERATE_DATA,
                                                   nullptr);
    return result == ERROR_INTERNET_FORCE_RETRY;
}

bool WinINetHandler::GetCredentials(HINTERNET hHandle, std::string& login, std::string& password)
{
    login.clear();
    password.clear();
    if (!hHandle)
        return false;
    DWORD error = QueryTextOption(hHandle, INTERNET_OPTION_PROXY_USERNAME, login);
    if (error) {
        LogLine(vn_log::kErrorDec, "CVnLinkhostWITransceiver::GetCredentials",
                "InternetQueryOption failed while quering for login.", static_cast<int>(error));
        return false;
    }
    error = QueryTextOption(hHandle, INTERNET_OPTION_PROXY_PASSWORD, password);
    if (error) {
        LogLine(vn_log::kErrorDec, "CVnLinkhostWITransceiver::GetCredentials",
                "InternetQueryOption failed while quering for password.", static_cast<int>(error));
        return false;
    }
    return true;
}

}  // namespace VnINetApiHandlers
