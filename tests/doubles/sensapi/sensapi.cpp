// Stand-in for the platform's Sensapi.dll; Wine's IsNetworkAlive always says
// "alive, LAN". This one answers from HKCU\Software\VnLinkhostTest\Sensapi:
// "Alive" (DWORD, absent: TRUE) and "Flags" (DWORD, 1 LAN, 2 WAN; absent: 1). The system asks nothing else of it.
#include <windows.h>

#include <string>

#include "tests/doubles/rasapi32/standin_registry.h"

using vn_standin::kSensapiKey;

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    return reason != DLL_PROCESS_ATTACH || !vn_standin::ReadDword(kSensapiKey, vn_standin::kUnloadable, 0);
}

extern "C" BOOL WINAPI IsNetworkAlive(LPDWORD flags)
{
    const BOOL alive = vn_standin::ReadDword(kSensapiKey, "Alive", 1) ? TRUE : FALSE;
    const DWORD given = vn_standin::ReadDword(kSensapiKey, "Flags", 1);
    if (flags)
        *flags = given;
    vn_standin::Journal(kSensapiKey, "IsNetworkAlive=" + std::to_string(alive) + "," + std::to_string(given));
    return alive;
}
