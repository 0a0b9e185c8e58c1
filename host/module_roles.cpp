// The module's side of the command line: showing the choice, taking the
// instance mutex, and running the administrative roles.
#include "host/module.h"

#include "host/messages.h"
#include "res/resource.h"

namespace {

const char* const kInstanceMutexName = "Velorin.VnLinkhost.InstanceMutex";
constexpr DWORD kInstanceWaitMs = 10000;

}  // namespace

bool CVnLinkhostModule::ParseCommandLine(const char* commandLine, HRESULT& status)
{
    status = E_FAIL;
    const TCommandLineChoice choice = ChooseRole(commandLine);
    switch (choice.outcome) {
    case TCommandLineChoice::Help:
        ShowUsage(nullptr);
        return false;
    case TCommandLineChoice::BadOption:
        ShowUsage(choice.errorMessage.c_str());
        return false;
    case TCommandLineChoice::Leftover:
        ShowUsage(LoadFormat(IDS_UNKNOWN_ARGUMENTS).c_str());
        return false;
    case TCommandLineChoice::NoRole:
        ShowUsage(LoadFormat(IDS_NO_ROLE).c_str());
        return false;
    case TCommandLineChoice::Role:
        break;
    }

    m_Role = choice.role;
    switch (m_Role) {
    case RoleConfigure:
        status = ConfigureHost();
        return false;
    case RoleRegister:
        status = RegisterHost(false);
        ReportResult(status, IDS_REGISTER_FAILED, IDS_REGISTER_OK);
        return false;
    case RoleRegServer:
        status = RegisterHost(false);
        return false;
    case RoleUnregister:
        status = UnregisterHost();
        ReportResult(status, IDS_UNREGISTER_FAILED, IDS_UNREGISTER_OK);
        return false;
    case RoleUnregServer:
        status = UnregisterHost();
        return false;
    case RoleEmbedding:
        status = TakeInstanceMutex();
        return SUCCEEDED(status);
    case RoleService:
        status = RegisterHost(true);
        // The service manager will start the process with " -e": it then
        // serves in the embedding role and finds out that it is a service.
        if (SUCCEEDED(status) && !AppendServiceArguments(" -e"))
            status = E_FAIL;
        ReportResult(status, IDS_SERVICE_FAILED, IDS_SERVICE_OK);
        return false;
    case RoleKill:
        status = KillProcess();
        return false;
    case RoleNone:
        break;
    }
    return false;
}

HRESULT CVnLinkhostModule::TakeInstanceMutex()
{
    if (m_hInstanceMutex)
        return S_OK;
    m_hInstanceMutex.reset(::CreateMutexA(nullptr, TRUE, kInstanceMutexName));
    const DWORD error = ::GetLastError();
    HRESULT status = E_FAIL;
    if (m_hInstanceMutex && error == ERROR_SUCCESS) {
        status = S_OK;
    } else if (m_hInstanceMutex && error == ERROR_ALREADY_EXISTS) {
        // Another server lives: wait for it to go, then carry on as the only one.
        DWORD wait = ::WaitForSingleObject(m_hInstanceMutex.get(), kInstanceWaitMs);
        if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED)
            status = S_OK;
    }
    if (status == E_FAIL)
        m_hInstanceMutex.reset();
    return status;
}
