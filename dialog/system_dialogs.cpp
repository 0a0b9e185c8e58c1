#include "dialog/system_dialogs.h"

#include <cpl.h>
#include <process.h>

#include <memory>

#include "host/log.h"
#include "vfc/unique_resource.h"

namespace {

template <typename T>
unsigned __stdcall RunAndDelete(void* param)
{
    std::unique_ptr<T> owned(static_cast<T*>(param));
    owned->Run();
    return 0;
}

// Runs the object's Run on a thread of its own, which then owns and deletes
// it; false, and the object still the caller's, if no thread started.
template <typename T>
bool RunDetached(std::unique_ptr<T>& object)
{
    vfc::THandle thread(reinterpret_cast<HANDLE>(::_beginthreadex(nullptr, 0, &RunAndDelete<T>, object.get(), 0, nullptr)));
    if (!thread)
        return false;
    object.release();
    return true;
}

// The shell's way on old platforms: Control_RunDLL with the applet's tab.
class CVnShell32 {
public:
    explicit CVnShell32(HWND window) : m_hWnd(window), m_hModule(::LoadLibraryA("Shell32.dll"))
    {
        if (!m_hModule)
            LogLine("LoadLibrary(TEXT(Shell32.dll)) in CVnShell32::CVnShell32() is NULL. GetLastError() = %X",
                    static_cast<unsigned>(::GetLastError()));
    }
    void Run()
    {
        using RunDll = void(WINAPI*)(HWND, HINSTANCE, LPCSTR, int);
        auto run = reinterpret_cast<RunDll>(reinterpret_cast<void*>(::GetProcAddress(m_hModule.get(), "Control_RunDLLA")));
        if (!run) {
            LogLine("GetProcAddress(m_hModule, eControl_RunDLL) in CVnShell32::Control_RunDLL() is NULL. GetLastError() = %X",
                    static_cast<unsigned>(::GetLastError()));
            return;
        }
        run(m_hWnd, nullptr, m_command.c_str(), 0);
        ::SendMessageA(m_hWnd, WM_VN_SYSTEM_DIALOG_CLOSED, 0, 0);
    }

private:
    HWND m_hWnd;
    vfc::TModule m_hModule;
    std::string m_command = "Inetcpl.cpl,@0,4";
};

// A control-panel applet driven through its CPlApplet entry: the last
// applet of the file, started with an argument that names the tab.
class CVnCPLApplet {
public:
    CVnCPLApplet(const char* appletName, HWND window, const char* argument)
        : m_hWnd(window), m_hModule(::LoadLibraryA(appletName)), m_strArgument(argument)
    {
        if (!m_hModule) {
            LogFailure("LoadLibrary(szAppletName) returns NULL");
            return;
        }
        m_func = reinterpret_cast<APPLET_PROC>(reinterpret_cast<void*>(::GetProcAddress(m_hModule.get(), "CPlApplet")));
        if (!m_func) {
            LogFailure("GetProcAddress returns NULL");
            return;
        }
        m_func(m_hWnd, CPL_INIT, 0, 0);
    }
    ~CVnCPLApplet()
    {
        if (m_func)
            m_func(nullptr, CPL_EXIT, 0, 0);
    }
    bool Loaded() const { return static_cast<bool>(m_hModule); }
    void Run()
    {
        if (m_func) {
            const LONG count = m_func(m_hWnd, CPL_GETCOUNT, 0, 0);
            if (count == 0) {
                LogLine("Error in method [%s]. Message: %sCVnCPLApplet::CPLApplet_Run()m_func CPL_GETCOUNT = 0", "", "");
                return;
            }
            m_func(m_hWnd, CPL_STARTWPARMS, count - 1, reinterpret_cast<LPARAM>(m_strArgument.c_str()));
            m_func(m_hWnd, CPL_STOP, 0, 0);
        }
        ::SendMessageA(m_hWnd, WM_VN_SYSTEM_DIALOG_CLOSED, 0, 0);
    }

private:
    // The line has always put the message where the method goes and the error
    // number where the message goes; the number goes in as text, so that the
    // line stays the same and the formatter is never handed a number for a text.
    static void LogFailure(const char* message)
    {
        const std::string error = std::to_string(::GetLastError());
        LogLine("Error in method [%s]. Message: %s Error code: %i.CVnCPLApplet::CVnCPLApplet(TCHAR* szAppletName)",
                message, error.c_str(), 0);
    }

    HWND m_hWnd;
    vfc::TModule m_hModule;
    APPLET_PROC m_func = nullptr;
    std::string m_strArgument;  // the tab to open
};

// Removes the waiting messages of one type, or of all types.
void Drain(HWND window, UINT type = 0, bool all = false)
{
    MSG message;
    while (::PeekMessageA(&message, all ? nullptr : window, type, type, PM_REMOVE)) {
        if (all || type == WM_PAINT)
            ::DispatchMessageA(&message);
    }
}

}  // namespace

bool IsOldWindows()
{
    OSVERSIONINFOEXA info = {};
    info.dwOSVersionInfoSize = sizeof info;  // 156 bytes
    if (!::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info))) {
        info.dwOSVersionInfoSize = sizeof(OSVERSIONINFOA);  // 148 bytes
        if (!::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info))) {
            LogLine(vn_log::kErrorDec, "CVnLinkhostModule::SetTakeOwnershipPrivilegeVista", "GetVersionEx failed.",
                    static_cast<int>(::GetLastError()));
            return false;
        }
    }
    return (info.dwPlatformId == VER_PLATFORM_WIN32_NT && info.dwMajorVersion < 4) ||
           (info.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS && info.dwMajorVersion == 4 && info.dwMinorVersion == 10);
}

void OpenInternetOptions(HWND window)
{
    if (IsOldWindows()) {
        auto shell = std::make_unique<CVnShell32>(window);
        RunDetached(shell);
        return;
    }
    auto applet = std::make_unique<CVnCPLApplet>("Inetcpl.cpl", window, "4");
    if (applet->Loaded())
        RunDetached(applet);
}

void RunAndWait(const std::string& commandLine, HWND window)
{
    STARTUPINFOA startup = {};  // 68 bytes, zeroed
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    std::string line = commandLine;
    if (!::CreateProcessA(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return;
    vfc::THandle processHandle(process.hProcess), threadHandle(process.hThread);
    ::EnableWindow(window, FALSE);
    Drain(window, 31);
    for (;;) {
        Drain(window, WM_PAINT);
        if (::MsgWaitForMultipleObjects(1, &process.hProcess, FALSE, INFINITE, QS_PAINT) == WAIT_OBJECT_0)
            break;
    }
    processHandle.reset();
    threadHandle.reset();
    Drain(window, 0, true);
    ::EnableWindow(window, TRUE);
    ::SetFocus(window);
    ::SetForegroundWindow(window);
}
