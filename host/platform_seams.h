// The few platform calls that a unit test must be able to replace: calls that
// show a window, and calls inside wininet that no DLL swap reaches. One
// process-wide table, defaulting to the platform; a test swaps an entry for the
// length of a scope with TScopedSeam.
//
// The last four are the tunnel's CONNECT handshake and the hand-over of its
// socket (option 67); only the tunnel's connect calls them through here.
#pragma once

#include <windows.h>
#include <wininet.h>

struct VnPlatformSeams {
    int(WINAPI* MessageBoxA)(HWND, LPCSTR, LPCSTR, UINT);
    BOOL(WINAPI* DetectAutoProxyUrl)(LPSTR, DWORD, DWORD);
    DWORD(WINAPI* InternetErrorDlg)(HWND, HINTERNET, DWORD, DWORD, LPVOID*);
    HINTERNET(WINAPI* HttpOpenRequestA)(HINTERNET, LPCSTR, LPCSTR, LPCSTR, LPCSTR, LPCSTR*, DWORD, DWORD_PTR);
    BOOL(WINAPI* HttpSendRequestA)(HINTERNET, LPCSTR, DWORD, LPVOID, DWORD);
    BOOL(WINAPI* HttpQueryInfoA)(HINTERNET, DWORD, LPVOID, LPDWORD, LPDWORD);
    BOOL(WINAPI* InternetQueryOptionA)(HINTERNET, DWORD, LPVOID, LPDWORD);
};

VnPlatformSeams& PlatformSeams();

template <typename Fn>
class TScopedSeam {
public:
    TScopedSeam(Fn& slot, Fn replacement) : m_slot(slot), m_saved(slot) { m_slot = replacement; }
    ~TScopedSeam() { m_slot = m_saved; }
    TScopedSeam(const TScopedSeam&) = delete;
    TScopedSeam& operator=(const TScopedSeam&) = delete;

private:
    Fn& m_slot;
    Fn m_saved;
};
