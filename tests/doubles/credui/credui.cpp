// Stand-in for the platform's CREDUI.DLL: Wine's prompt fails at once without
// a display, and CredUIPromptForCredentialsA even ends the process. It answers
// as a user would and writes down what it was asked (see credui_standin.h).
#include <windows.h>
#include <wincred.h>

#include <algorithm>

#include "tests/doubles/credui/credui_standin.h"

namespace st = vn_credui_standin;

namespace {

// Prompts open now, and an event set when a second opens beside the first.
LONG g_open = 0;
HANDLE g_overlap = nullptr;
// Keeps the journal's read-modify-write steps of two prompting threads apart.
SRWLOCK g_journal = SRWLOCK_INIT;

}  // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH && st::ReadDword(L"Unloadable", 0))
        return FALSE;
    if (reason == DLL_PROCESS_ATTACH)
        g_overlap = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    else if (reason == DLL_PROCESS_DETACH && g_overlap)
        ::CloseHandle(g_overlap);
    return TRUE;
}

// Exported as CredUIPromptForCredentialsW (credui.def), apart from wincred.h's declaration.
extern "C" DWORD WINAPI StandinPromptForCredentialsW(PCREDUI_INFOW info, PCWSTR target, PCtxtHandle, DWORD,
                                                    PWSTR userName, ULONG userNameChars, PWSTR password,
                                                    ULONG passwordChars, BOOL* save, DWORD flags)
{
    ::AcquireSRWLockExclusive(&g_journal);
    const LONG open = ::InterlockedIncrement(&g_open);
    if (open > 1)
        ::SetEvent(g_overlap);
    st::WriteDword(L"MaxOpen", std::max(static_cast<DWORD>(open), st::ReadDword(L"MaxOpen", 0)));
    st::WriteDword(L"Prompts", st::ReadDword(L"Prompts", 0) + 1);
    st::WriteText(L"Target", target ? target : L"");
    st::WriteText(L"Message", info && info->pszMessageText ? info->pszMessageText : L"");
    st::WriteText(L"Caption", info && info->pszCaptionText ? info->pszCaptionText : L"");
    const std::pair<const wchar_t*, DWORD> asked[] = {{L"Flags", flags}, {L"LoginChars", userNameChars},
        {L"TickIn", save ? static_cast<DWORD>(*save) : 0xFFFFFFFFu}, {L"PasswordChars", passwordChars}};
    for (const auto& value : asked)
        st::WriteDword(value.first, value.second);
    ::ReleaseSRWLockExclusive(&g_journal);

    if (DWORD holdMs = st::ReadDword(L"HoldMs", 0))
        ::WaitForSingleObject(g_overlap, holdMs);
    const DWORD answer = st::ReadDword(L"Answer", ERROR_CANCELLED);
    if (answer == NO_ERROR) {
        lstrcpynW(userName, st::ReadText(L"Login").c_str(), userNameChars);
        lstrcpynW(password, st::ReadText(L"Password").c_str(), passwordChars);
        if (save && st::HasValue(L"Tick"))
            *save = st::ReadDword(L"Tick", 0) ? TRUE : FALSE;
    }
    ::InterlockedDecrement(&g_open);
    return answer;
}
