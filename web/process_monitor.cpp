#include "web/process_monitor.h"

#include "host/log.h"

void VnProcessMonitor::SetProcessId(DWORD processId) noexcept
{
    if (processId == dwProcessId)
        return;
    hProcess.reset();
    dwProcessId = processId;
}

HANDLE VnProcessMonitor::GetProcess() noexcept
{
    if (dwProcessId != 0 && !hProcess) {
        hProcess.reset(::OpenProcess(SYNCHRONIZE, FALSE, dwProcessId));
        if (!hProcess)
            LogLine(vn_log::kErrorDec, "VnProcessMonitor::GetProcess", "::OpenProcess failed ",
                    static_cast<int>(::GetLastError()));
    }
    return hProcess.get();
}

DWORD VnProcessMonitor::Wait(HANDLE hEvent, DWORD dwMilliseconds) noexcept
{
    HANDLE handles[2] = {hEvent, GetProcess()};
    const DWORD count = handles[1] ? 2 : 1;
    return ::WaitForMultipleObjects(count, handles, FALSE, dwMilliseconds);
}
