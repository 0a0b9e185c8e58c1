// The platform's own dialogs that the configuration pages open: the Internet
// options applet on its connections tab, and the connection wizard.
#pragma once

#include <windows.h>

#include <string>

// The message a page gets when the platform's dialog has closed.
constexpr UINT WM_VN_SYSTEM_DIALOG_CLOSED = WM_USER + 1;

// True on the platforms that only have the shell's Control_RunDLL entry.
bool IsOldWindows();

// Opens the platform's Internet options on a thread of its own, which sends
// WM_VN_SYSTEM_DIALOG_CLOSED to `window` once the dialog has closed.
void OpenInternetOptions(HWND window);

// Starts a program and waits for its end while `window` repaints but takes
// no input. A program that does not start is ignored.
void RunAndWait(const std::string& commandLine, HWND window);
