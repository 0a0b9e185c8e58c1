// Running as a Windows service, and installing and removing the service.
#include "host/module.h"

#include "host/identities.h"
#include "host/log.h"
#include "vfc/unique_resource.h"

#include <cstdio>
#include <string>

namespace {

using vn_id::kAppId;

void ShowServiceError(const char* text)
{
    ::MessageBoxA(nullptr, text, Module().GetServiceName(), 0);
}

// A stop that finds the service stopped, or already stopping, is no failure.
bool StopAccepted(DWORD error, const SERVICE_STATUS& status)
{
    return error == ERROR_SERVICE_NOT_ACTIVE ||
           (error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL && status.dwCurrentState == SERVICE_STOP_PENDING);
}

bool ModulePath(char (&path)[MAX_PATH])
{
    DWORD n = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    return n > 0 && n < MAX_PATH;
}

}  // namespace

class CVnLinkhostServiceHost {
public:
    static void WINAPI ServiceMain(DWORD, LPSTR*) { Module().ServiceMainBody(); }
    static void WINAPI Handler(DWORD code) { Module().HandleControl(code); }
};

HRESULT CVnLinkhostModule::StartHost(int showMode)
{
    vfc::TRegKey appIds, appId;
    LONG rc = ::RegOpenKeyExA(HKEY_CLASSES_ROOT, "AppID", 0, KEY_READ, appIds.put());
    if (rc == ERROR_SUCCESS)
        rc = ::RegOpenKeyExA(appIds.get(), kAppId, 0, KEY_READ, appId.put());
    if (rc != ERROR_SUCCESS) {
        m_status.dwWin32ExitCode = static_cast<DWORD>(rc);  // the platform's own code, as the service reports it
        return static_cast<HRESULT>(rc);
    }
    char localService[MAX_PATH] = {};
    DWORD size = sizeof localService;
    m_bService = ::RegQueryValueExA(appId.get(), "LocalService", nullptr, nullptr,
                                    reinterpret_cast<BYTE*>(localService), &size) == ERROR_SUCCESS;
    if (m_bService) {
        SERVICE_TABLE_ENTRYA table[] = {{m_szServiceName, CVnLinkhostServiceHost::ServiceMain}, {nullptr, nullptr}};
        if (!::StartServiceCtrlDispatcherA(table))
            m_status.dwWin32ExitCode = ::GetLastError();
        return static_cast<HRESULT>(m_status.dwWin32ExitCode);
    }
    HRESULT hr = InitializeCom();
    if (FAILED(hr))
        return hr;
    hr = Run(showMode);
    m_status.dwWin32ExitCode = static_cast<DWORD>(hr);
    return hr;
}

void CVnLinkhostModule::SetServiceState(DWORD state)
{
    m_serviceState = static_cast<LONG>(state);
    m_status.dwCurrentState = state;
    if (m_hServiceStatus)
        ::SetServiceStatus(m_hServiceStatus, &m_status);
}

void CVnLinkhostModule::ServiceMainBody()
{
    m_status.dwCurrentState = SERVICE_START_PENDING;
    m_serviceState = SERVICE_START_PENDING;
    m_dwThreadID = ::GetCurrentThreadId();
    m_hServiceStatus = ::RegisterServiceCtrlHandlerA(m_szServiceName, CVnLinkhostServiceHost::Handler);
    if (!m_hServiceStatus) {
        LogEvent("Handler not installed");
        return;
    }
    m_status.dwWin32ExitCode = 0;
    m_status.dwCheckPoint = 0;
    m_status.dwWaitHint = 0;
    SetServiceState(SERVICE_START_PENDING);
    if (FAILED(InitializeCom()))
        return;
    m_bDelayShutdown = false;
    // Unlock posts its quit to the main thread, which sits in the dispatcher:
    // only a stop request ends a service.
    m_status.dwWin32ExitCode = static_cast<DWORD>(Run(SW_HIDE));
    if (m_bComInitialized)
        ::CoUninitialize();
    SetServiceState(SERVICE_STOPPED);
    LogEvent("Service stopped");
}

void CVnLinkhostModule::HandleControl(DWORD code)
{
    switch (code) {
    case SERVICE_CONTROL_STOP:
        SetServiceState(SERVICE_STOP_PENDING);
        ::PostThreadMessageA(m_dwThreadID, WM_QUIT, 0, 0);
        break;
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE:
    case SERVICE_CONTROL_INTERROGATE:
    case SERVICE_CONTROL_SHUTDOWN:
        break;
    default:
        LogEvent("Bad service request");
        break;
    }
}

bool CVnLinkhostModule::IsServiceInstalled()
{
    vfc::TServiceHandle manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager)
        return false;
    vfc::TServiceHandle service(::OpenServiceA(manager.get(), m_szServiceName, SERVICE_QUERY_CONFIG));
    return service.valid();
}

bool CVnLinkhostModule::InstallService()
{
    if (IsServiceInstalled())
        return true;
    char path[MAX_PATH];
    if (!ModulePath(path))
        return false;
    std::string quoted = std::string("\"") + path + "\"";
    vfc::TServiceHandle manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        ShowServiceError("Could not open Service Manager");
        return false;
    }
    vfc::TServiceHandle service(::CreateServiceA(manager.get(), m_szServiceName, m_szServiceName,
                                                 SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                                 SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, quoted.c_str(),
                                                 nullptr, nullptr, "RPCSS\0", nullptr, nullptr));
    if (!service) {
        ShowServiceError("Could not start service");
        return false;
    }
    return true;
}

bool CVnLinkhostModule::RemoveService()
{
    if (!IsServiceInstalled())
        return true;
    vfc::TServiceHandle manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        ShowServiceError("Could not open Service Manager");
        return false;
    }
    vfc::TServiceHandle service(::OpenServiceA(manager.get(), m_szServiceName, SERVICE_STOP | DELETE));
    if (!service) {
        ShowServiceError("Could not open service");
        return false;
    }
    SERVICE_STATUS status = {};
    if (!::ControlService(service.get(), SERVICE_CONTROL_STOP, &status) && !StopAccepted(::GetLastError(), status))
        ShowServiceError("Could not stop service");
    if (!::DeleteService(service.get())) {
        ShowServiceError("Could not delete service");
        return false;
    }
    return true;
}

bool CVnLinkhostModule::AppendServiceArguments(const char* text)
{
    vfc::TServiceHandle manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager)
        return false;
    vfc::TServiceHandle service(::OpenServiceA(manager.get(), m_szServiceName, SERVICE_CHANGE_CONFIG));
    if (!service)
        return false;
    char path[MAX_PATH];
    if (!ModulePath(path))
        return false;
    char commandLine[262];
    if (std::snprintf(commandLine, sizeof commandLine, "\"%s\" %s", path, text) >= static_cast<int>(sizeof commandLine))
        return false;
    return ::ChangeServiceConfigA(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                  commandLine, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr) != FALSE;
}

bool StopService(const char* name)
{
    vfc::TServiceHandle manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager)
        return false;
    vfc::TServiceHandle service(::OpenServiceA(manager.get(), name, SERVICE_STOP));
    if (!service)
        return false;
    SERVICE_STATUS status = {};
    BOOL ok = ::ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
    if (!ok && !StopAccepted(::GetLastError(), status))
        LogLine(vn_log::kErrorDec, "StopService", "Could not stop service.", static_cast<int>(::GetLastError()));
    return ok != FALSE;
}
