// The program entry of VnLinkhost.exe.
#include <windows.h>

#include "host/module.h"

// Builds the module during static initialisation, before the entry runs.
static CVnLinkhostModule& g_module = Module();

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int showMode)
{
    if (g_module.InitFailed())
        return -1;
    HRESULT status = S_OK;
    const char* commandLine = ::GetCommandLineA();
    if (g_module.ParseCommandLine(commandLine, status))
        status = g_module.StartHost(showMode);
    if (!g_module.IsService() && g_module.ComInitialized())
        ::CoUninitialize();
    return static_cast<int>(status);
}
