// The one module object of the process: roles, registration, the service,
// the class object, the lock count and the end of the process.
#pragma once

#include <windows.h>
#include <objidl.h>

#include <atomic>
#include <string>

#include "host/command_line.h"
#include "host/registry_script.h"
#include "vfc/module_lock.h"
#include "vfc/unique_resource.h"

struct IVnLinkhostEventHandler;

class CVnLinkhostModule : public vfc::TModuleLockTarget {
public:
    static constexpr DWORD kDefaultIdleTimeout = 120000;

    CVnLinkhostModule();
    virtual ~CVnLinkhostModule();

    virtual LONG Lock() override;
    virtual LONG Unlock() override;
    virtual LONG GetLockCount() const;
    // The platform's global interface table, made on first use; the caller gets a reference.
    virtual HRESULT GetGITPtr(IGlobalInterfaceTable** git);
    // The replacements of the registry script: identities, module path and file.
    virtual vn_rgs::Replacements AddCommonRGSReplacements();

    // Reads the command line and acts on its role. True when the process must
    // go on to serve; `status` receives the exit status in every case.
    bool ParseCommandLine(const char* commandLine, HRESULT& status);

    HRESULT RegisterHost(bool asService);
    HRESULT UnregisterHost();
    bool AppendServiceArguments(const char* text);
    HRESULT StartHost(int showMode);
    HRESULT KillProcess();
    HRESULT ConfigureHost();

    void LogEvent(const char* format, ...);

    // Settings that the root object changes (CheckShutdown) or reads.
    void SetIdleTimeout(DWORD ms) { m_dwTimeOut = ms; }
    void SetPause(DWORD ms) { m_dwPause = ms; }
    DWORD GetIdleTimeout() const { return m_dwTimeOut; }
    void SetEventHandler(IVnLinkhostEventHandler* handler) { m_pEventHandler = handler; }
    IVnLinkhostEventHandler* GetEventHandler() const { return m_pEventHandler; }
    bool IsService() const { return m_bService; }
    bool InitFailed() const { return m_bInitFailed; }
    bool ComInitialized() const { return m_bComInitialized; }
    ProcessRole GetRole() const { return m_Role; }
    const char* GetServiceName() const { return m_szServiceName; }

    // The message loop with the shutdown veto; public for the service thread.
    void RunMessageLoop();

private:
    friend class CVnLinkhostServiceHost;

    HRESULT TakeInstanceMutex();
    HRESULT Run(int showMode);
    HRESULT PreMessageLoop(int showMode);
    HRESULT PostMessageLoop();
    HRESULT RegisterClassObjects();
    HRESULT RevokeClassObjects();
    static DWORD WINAPI MonitorProc(LPVOID self);
    void MonitorShutdown();
    bool InstallService();
    bool RemoveService();
    bool IsServiceInstalled();
    HRESULT InsideShutdown();
    HRESULT InitializeCom();
    void ServiceMainBody();
    void HandleControl(DWORD code);
    void SetServiceState(DWORD state);

    std::atomic<LONG> m_nLockCnt{0};
    IGlobalInterfaceTable* m_pGIT = nullptr;
    DWORD m_dwMainThreadID = 0;
    vfc::THandle m_hEventShutdown;
    std::atomic<DWORD> m_dwTimeOut{kDefaultIdleTimeout};
    std::atomic<DWORD> m_dwPause{0};
    bool m_bDelayShutdown = true;
    volatile bool m_bActivity = false;
    bool m_bComInitialized = false;
    char m_szServiceName[256] = {};
    SERVICE_STATUS_HANDLE m_hServiceStatus = nullptr;
    SERVICE_STATUS m_status = {};
    bool m_bService = false;
    DWORD m_dwThreadID = 0;
    ProcessRole m_Role = RoleNone;
    IVnLinkhostEventHandler* volatile m_pEventHandler = nullptr;
    vfc::THandle m_hInstanceMutex;

    bool m_bInitFailed = false;
    DWORD m_dwClassRegister = 0;
    std::atomic<LONG> m_serviceState{SERVICE_STOPPED};
};

// Asks the service manager to stop the named service; logs a refusal.
bool StopService(const char* name);

// The id of another process whose image name is exactly `name`, or 0.
DWORD GetListProcess(const char* name);

// The class object of the root object, for tests and the module.
IClassFactory* GetRootClassFactory();

// The module of this process.
CVnLinkhostModule& Module();
