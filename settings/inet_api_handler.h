// The few operations that the credentials managers need on a request handle of
// the internet client, behind an interface, so that a manager can put a login
// on a handle, read one back and ask the platform's dialog without knowing the
// internet client itself.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <string>

// The slot order is fixed: the managers call through these four slots. The
// one process-wide instance is reached through GetINetApiHandler and ended
// by ReleaseCredentialObjects (settings/proxy_credentials.h); nobody deletes
// it through this interface, hence the protected destructor.
class IINetApiHandler {
public:
    // Puts the proxy login on the handle (options 43 and 44, each only when
    // its text is not empty) and remembers it in the process's map of proxy
    // logins under `name`. False, with a log line, when an option fails.
    virtual bool SetCredentials(HINTERNET hHandle, const std::string& name, const std::string& login,
                                const std::string& password) = 0;
    // Kept in its slot for the managers' sake; gives an empty text for any handle.
    virtual std::string GetHandleText(HINTERNET hHandle) = 0;
    // The platform's authentication dialog for the response on the handle, on
    // the given window or on the desktop window. True when the dialog asks
    // for the request to be sent again (12032), which means that the user
    // confirmed a login and the dialog has put it on the handle.
    virtual bool ShowDialog(HINTERNET hHandle, HWND hWnd) = 0;
    // Reads the proxy login back from the handle (options 43 and 44). A null
    // handle gives false with both texts empty; a failed read logs and gives false.
    virtual bool GetCredentials(HINTERNET hHandle, std::string& login, std::string& password) = 0;

protected:
    ~IINetApiHandler() = default;
};

namespace VnINetApiHandlers {

// The implementation over WinInet. It has no state, so any thread may use it.
class WinINetHandler final : public IINetApiHandler {
public:
    bool SetCredentials(HINTERNET hHandle, const std::string& name, const std::string& login,
                        const std::string& password) override;
    std::string GetHandleText(HINTERNET hHandle) override;
    bool ShowDialog(HINTERNET hHandle, HWND hWnd) override;
    bool GetCredentials(HINTERNET hHandle, std::string& login, std::string& password) override;
};

// Reads a text option of the handle with InternetQueryOptionA, starting with
// a buffer of 256 bytes and growing it to the size the client asks for while
// it reports error 122. Gives 0 and the text, or the platform's error number.
DWORD QueryTextOption(HINTERNET hHandle, DWORD dwOption, std::string& text);

// Sets a text option of the handle with InternetSetOptionA. Gives 0 or the
// platform's error number.
DWORD SetTextOption(HINTERNET hHandle, DWORD dwOption, const std::string& text);

}  // namespace VnINetApiHandlers
