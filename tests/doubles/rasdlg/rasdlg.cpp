// Stand-in for the platform's Rasdlg.dll, told under HKCU\Software\VnLinkhostTest\Rasdlg:
// "Answer" (DWORD), what RasPhonebookDlgA returns (absent: 0, Cancel), and "Dials"
// (SZ), the entry the user dials, which joins the stand-in RAS's connections.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "settings/ras_types.h"
#include "tests/doubles/rasapi32/standin_registry.h"

using vn_standin::kRasdlgKey;

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    return reason != DLL_PROCESS_ATTACH || !vn_standin::ReadDword(kRasdlgKey, vn_standin::kUnloadable, 0);
}

extern "C" BOOL WINAPI RasPhonebookDlgA(LPCSTR, LPCSTR, vn_ras::TRasPhonebookDlg* info)
{
    BOOL answer = FALSE;
    if (info && info->dwSize == sizeof(vn_ras::TRasPhonebookDlg)) {
        answer = vn_standin::ReadDword(kRasdlgKey, "Answer", 0) ? TRUE : FALSE;
        const std::string dialled = vn_standin::ReadText(kRasdlgKey, "Dials");
        if (answer && !dialled.empty()) {
            std::vector<std::string> connected = vn_standin::ReadList(vn_standin::kRasKey, "Connected");
            connected.push_back(dialled);
            vn_standin::WriteList(vn_standin::kRasKey, "Connected", connected);
        }
    }
    char entry[96];
    std::snprintf(entry, sizeof entry, "RasPhonebookDlgA(%lu,%llx)=%d", info ? static_cast<unsigned long>(info->dwSize) : 0ul,
                  info ? static_cast<unsigned long long>(reinterpret_cast<ULONG_PTR>(info->hwndOwner)) : 0ull, answer);
    vn_standin::Journal(kRasdlgKey, entry);
    return answer;
}
