#include "host/module.h"

#include <cstdarg>
#include <cstdio>

#include "host/log.h"
#include "res/resource.h"
#include "vnlinkhost.h"

CVnLinkhostModule& Module()
{
    static CVnLinkhostModule module;
    return module;
}

CVnLinkhostModule::CVnLinkhostModule()
{
    m_dwMainThreadID = ::GetCurrentThreadId();
    if (::LoadStringA(::GetModuleHandleA(nullptr), IDS_PROJNAME, m_szServiceName, sizeof m_szServiceName) <= 0)
        lstrcpynA(m_szServiceName, "Velorin Linkhost", sizeof m_szServiceName);
    m_status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    m_status.dwCurrentState = SERVICE_STOPPED;
    m_status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    vfc::SetModuleLockTarget(this);
}

CVnLinkhostModule::~CVnLinkhostModule()
{
    vfc::SetModuleLockTarget(nullptr);
    if (m_hInstanceMutex) {
        ::ReleaseMutex(m_hInstanceMutex.get());
        m_hInstanceMutex.reset();
    }
    m_pEventHandler = nullptr;
    if (m_pGIT) {
        m_pGIT->Release();
        m_pGIT = nullptr;
    }
    ::CoUninitialize();
}

LONG CVnLinkhostModule::Lock() { return ++m_nLockCnt; }

LONG CVnLinkhostModule::Unlock()
{
    const LONG left = --m_nLockCnt;
    if (left == 0) {
        if (m_bDelayShutdown) {
            m_bActivity = true;
            if (m_hEventShutdown)
                ::SetEvent(m_hEventShutdown.get());
        } else {
            ::PostThreadMessageA(m_dwMainThreadID, WM_QUIT, 0, 0);
        }
    }
    return left;
}

LONG CVnLinkhostModule::GetLockCount() const { return m_nLockCnt.load(); }

HRESULT CVnLinkhostModule::GetGITPtr(IGlobalInterfaceTable** git)
{
    if (!git)
        return E_POINTER;
    *git = nullptr;
    if (!m_pGIT) {
        HRESULT hr = ::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                        IID_IGlobalInterfaceTable, reinterpret_cast<void**>(&m_pGIT));
        if (FAILED(hr))
            return hr;
    }
    m_pGIT->AddRef();
    *git = m_pGIT;
    return S_OK;
}

void CVnLinkhostModule::LogEvent(const char* format, ...)
{
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text - 1, format, args);
    va_end(args);
    text[sizeof text - 1] = '\0';
    if (!m_bService)
        std::printf("%s\n", text);
    vfc::TEventSource source(::RegisterEventSourceA(nullptr, m_szServiceName));
    if (source) {
        const char* strings[] = {text};
        ::ReportEventA(source.get(), EVENTLOG_INFORMATION_TYPE, 0, 0, nullptr, 1, 0, strings, nullptr);
    }
}

HRESULT CVnLinkhostModule::InitializeCom()
{
    HRESULT hr = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(hr)) {
        // A hosted runtime may have chosen the apartment already; that is fine.
        if (hr == RPC_E_CHANGED_MODE && ::GetModuleHandleA("Mscoree.dll"))
            return S_OK;
        return hr;
    }
    m_bComInitialized = true;
    return hr;
}

HRESULT CVnLinkhostModule::Run(int showMode)
{
    HRESULT hr = PreMessageLoop(showMode);
    if (hr == S_OK)
        RunMessageLoop();
    if (FAILED(hr))
        return hr;
    return PostMessageLoop();
}

HRESULT CVnLinkhostModule::PreMessageLoop(int)
{
    HRESULT hr = S_OK;
    if (m_bService) {
        hr = ::CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE, RPC_C_IMP_LEVEL_IDENTIFY,
                                    nullptr, EOAC_NONE, nullptr);
        if (FAILED(hr))
            return hr;
    }
    hr = RegisterClassObjects();
    if (FAILED(hr))
        return hr;
    if (hr == S_FALSE) {
        m_bDelayShutdown = false;
        return S_FALSE;
    }
    auto markRunning = [this] {
        LONG expected = SERVICE_START_PENDING;
        if (m_bService && m_serviceState.compare_exchange_strong(expected, SERVICE_RUNNING)) {
            LogEvent("Service started/resumed");
            m_status.dwCurrentState = SERVICE_RUNNING;
            if (m_hServiceStatus)
                ::SetServiceStatus(m_hServiceStatus, &m_status);
        }
    };
    if (m_bDelayShutdown) {
        m_hEventShutdown.reset(::CreateEventA(nullptr, FALSE, FALSE, nullptr));
        if (!m_hEventShutdown) {
            hr = E_FAIL;
        } else {
            vfc::THandle thread(::CreateThread(nullptr, 0, MonitorProc, this, 0, nullptr));
            if (!thread) {
                m_hEventShutdown.reset();
                hr = E_FAIL;
            } else {
                markRunning();
                hr = ::CoResumeClassObjects();
                if (FAILED(hr)) {
                    ::SetEvent(m_hEventShutdown.get());
                    ::WaitForSingleObject(thread.get(), m_dwTimeOut * 2);
                }
            }
        }
    } else {
        markRunning();
        hr = ::CoResumeClassObjects();
    }
    if (FAILED(hr))
        RevokeClassObjects();
    return hr;
}

HRESULT CVnLinkhostModule::PostMessageLoop()
{
    HRESULT hr = RevokeClassObjects();
    if (m_bDelayShutdown)
        ::Sleep(m_dwPause);
    return hr;
}

DWORD WINAPI CVnLinkhostModule::MonitorProc(LPVOID self)
{
    static_cast<CVnLinkhostModule*>(self)->MonitorShutdown();
    return 0;
}

void CVnLinkhostModule::MonitorShutdown()
{
    for (;;) {
        ::WaitForSingleObject(m_hEventShutdown.get(), INFINITE);
        DWORD wait;
        do {
            m_bActivity = false;
            wait = ::WaitForSingleObject(m_hEventShutdown.get(), m_dwTimeOut);
        } while (wait == WAIT_OBJECT_0);
        // Quiet for a whole time-out: stop taking clients, then look once more.
        if (!m_bActivity && m_nLockCnt == 0) {
            ::CoSuspendClassObjects();
            if (m_nLockCnt == 0)
                break;
        }
    }
    m_hEventShutdown.reset();
    ::PostThreadMessageA(m_dwMainThreadID, WM_QUIT, 0, 0);
}

void CVnLinkhostModule::RunMessageLoop()
{
    MSG msg;
    for (;;) {
        ::GetMessageA(&msg, nullptr, 0, 0);
        if (msg.message == WM_QUIT) {
            IVnLinkhostEventHandler* handler = m_pEventHandler;
            if (!handler)
                break;
            // Ask the root object's sinks first; any answer but 0 keeps the process.
            VARIANT parameter;
            ::VariantInit(&parameter);
            parameter.vt = VT_I4;
            parameter.lVal = 1;
            // The host speaks in plain numbers: 1 asks, 2 tells, a result of 0 agrees.
            auto result = static_cast<VnLinkhostEventResult>(0);
            if (handler->OnEvent(static_cast<VnLinkhostEventType>(1), parameter, &result) == S_OK && result == 0 &&
                handler->OnEvent(static_cast<VnLinkhostEventType>(2), parameter, &result) == S_OK && result == 0)
                break;
        }
        ::TranslateMessage(&msg);
        ::DispatchMessageA(&msg);
    }
}
