// What the transceiver does with an error of a platform call: certificate
// trouble in an interactive session goes to the platform's dialog, a few
// errors are overlooked by flag, everything else is handed back.
#pragma once

#include <windows.h>
#include <wininet.h>

class CVnHttpsHandler {
public:
    // 12032 when the call is to be repeated, otherwise `code` (0 stays 0).
    static LONG HandleError(DWORD code, HINTERNET hRequest, HWND hWnd, bool bInteractive);

private:
    // Adds a security flag to the request; false when the platform refuses.
    static bool _bypassError(HINTERNET hRequest, DWORD dwFlag);
};
