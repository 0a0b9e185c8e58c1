#include "monitors/timer.h"

#include <objbase.h>

#include "host/log.h"

namespace {

void CALLBACK WakeUp(ULONG_PTR) {}

}  // namespace

bool CVnTimer::Start()
{
    if (m_hThread)
        Stop();
    m_bRunning = 1;
    // Suspended until its id is known, so that it can tell itself current.
    DWORD id = 0;
    m_hThread.reset(::CreateThread(nullptr, 0, ThreadEntry, this, CREATE_SUSPENDED, &id));
    if (!m_hThread) {
        m_bRunning = 0;
        LogLine(vn_log::kErrorDec, "CVnTimer::Start", "CreateThread failed.", static_cast<int>(::GetLastError()));
        return false;
    }
    m_threadId = id;
    ::ResumeThread(m_hThread.get());
    return true;
}

void CVnTimer::Stop()
{
    m_bRunning = 0;
    m_threadId = 0;
    if (m_hThread) {
        // An empty APC ends the thread's sleep now instead of at the next tick.
        ::QueueUserAPC(WakeUp, m_hThread.get(), 0);
        m_hThread.reset();
    }
}

DWORD WINAPI CVnTimer::ThreadEntry(LPVOID self) { return static_cast<CVnTimer*>(self)->TimerThread(); }

void CALLBACK CVnTimer::TimerRoutine(LPVOID self, DWORD, DWORD)
{
    auto* timer = static_cast<CVnTimer*>(self);
    if (timer->Current())
        timer->OnTimer();
}

void CVnTimer::OnTimer()
{
    if (Callback callback = m_pfnCallback)
        callback();
}

DWORD CVnTimer::TimerThread()
{
    // The callbacks call clients' sinks, which are proxies of the multithreaded apartment.
    const HRESULT com = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    // Unnamed: two timers of one name would be one object, and a thread that a
    // Stop passed by would cancel its successor's timer on its way out.
    vfc::THandle timer(::CreateWaitableTimerA(nullptr, FALSE, nullptr));
    if (!timer) {
        LogLine(vn_log::kErrorDec, "CVnTimer::TimerThread", "CreateWaitableTimer failed.", static_cast<int>(::GetLastError()));
    } else {
        LARGE_INTEGER due;
        due.QuadPart = -10000000LL;  // one second from now, in units of 100 ns
        if (!::SetWaitableTimer(timer.get(), &due, static_cast<LONG>(m_period.load()), TimerRoutine, this, FALSE)) {
            LogLine(vn_log::kErrorDec, "CVnTimer::TimerThread", "SetWaitableTimer failed.", static_cast<int>(::GetLastError()));
        } else {
            while (Current())
                ::SleepEx(10000, TRUE);
            ::CancelWaitableTimer(timer.get());
        }
    }
    if (SUCCEEDED(com))
        ::CoUninitialize();
    return 0;
}
