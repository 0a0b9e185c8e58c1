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

bool VnProcessMonitor::Ended() noexcept
{
    if (dwProcessId == 0)
        return false;
    const HANDLE process = GetProcess();
    return !process || ::WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
}

DWORD VnProcessMonitor::Wait(HANDLE hEvent, DWORD dwMilliseconds) noexcept
{
    return Wait(hEvent, dwMilliseconds, nullptr);
}

DWORD VnProcessMonitor::Wait(HANDLE hEvent, DWORD dwMilliseconds, HANDLE hCancel) noexcept
{
    // The answers keep their numbers whichever of the handles are missing.
    HANDLE handles[3];
    DWORD meaning[3];
    DWORD count = 0;
    const HANDLE candidates[3] = {hEvent, GetProcess(), hCancel};
    for (DWORD i = 0; i < 3; ++i)
        if (candidates[i]) {
            handles[count] = candidates[i];
            meaning[count++] = WAIT_OBJECT_0 + i;
        }
    const DWORD result = ::WaitForMultipleObjects(count, handles, FALSE, dwMilliseconds);
    return result < WAIT_OBJECT_0 + count ? meaning[result - WAIT_OBJECT_0] : result;
}
