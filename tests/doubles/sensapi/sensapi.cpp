// Stand-in for the platform's Sensapi.dll. Under Wine, IsNetworkAlive always
// says "alive, LAN"; this one answers from HKCU\Software\VnLinkhostTest\Sensapi
// of the test prefix:
//   "Alive" (DWORD) - the result of IsNetworkAlive; absent: TRUE.
//   "Flags" (DWORD) - the flags it gives (1 LAN, 2 WAN); absent: 1.
// Each call of IsNetworkAlive is journalled in "Calls".
#include <windows.h>

#include <cstdio>

#include "tests/doubles/rasapi32/standin_registry.h"

using vn_standin::kSensapiKey;

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    return reason != DLL_PROCESS_ATTACH || !vn_standin::ReadDword(kSensapiKey, vn_standin::kUnloadable, 0);
}

extern "C" BOOL WINAPI IsNetworkAlive(LPDWORD flags)
{
    BOOL alive = vn_standin::ReadDword(kSensapiKey, "Alive", 1) ? TRUE : FALSE;
    DWORD given = vn_standin::ReadDword(kSensapiKey, "Flags", 1);
    if (flags)
        *flags = given;
    char entry[64];
    std::snprintf(entry, sizeof entry, "IsNetworkAlive=%d,%lu", alive, static_cast<unsigned long>(given));
    vn_standin::Journal(kSensapiKey, entry);
    return alive;
}

// The platform's two other entry points; nothing in the system calls them.
extern "C" BOOL WINAPI IsDestinationReachableA(LPCSTR, void*) { return FALSE; }
extern "C" BOOL WINAPI IsDestinationReachableW(LPCWSTR, void*) { return FALSE; }
