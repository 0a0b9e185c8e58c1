// A periodic timer on a thread of its own: the thread sleeps alertably and a
// waitable timer's completion routine calls the callback on it, the first
// time one second after the start and then once per period.
#pragma once

#include <windows.h>

#include <atomic>

#include "vfc/unique_resource.h"

class CVnTimer {
public:
    using Callback = void (*)();

    CVnTimer() = default;
    CVnTimer(const CVnTimer&) = delete;
    CVnTimer& operator=(const CVnTimer&) = delete;
    ~CVnTimer() { Stop(); }

    // Starts a new thread, stopping a running one first. False when the
    // thread can't be created.
    bool Start();
    // Tells the thread to end and wakes it; it does not wait for it.
    void Stop();
    bool StartWithPeriod(DWORD ms)
    {
        SetPeriod(ms);
        return Start();
    }
    // Takes effect at the next Start.
    void SetPeriod(DWORD ms) { m_period = ms; }
    void SetCallback(Callback callback) { m_pfnCallback = callback; }
    bool Running() const { return m_bRunning != 0; }

protected:
    virtual DWORD TimerThread();
    virtual void OnTimer();

private:
    static DWORD WINAPI ThreadEntry(LPVOID self);
    static void CALLBACK TimerRoutine(LPVOID self, DWORD, DWORD);
    // Only the thread of the latest Start goes on; one that a Stop passed
    // by ends at its next wake even when a new Start set the flag again.
    bool Current() const { return m_bRunning && m_threadId == ::GetCurrentThreadId(); }

    std::atomic<DWORD> m_period{1000};
    std::atomic<Callback> m_pfnCallback{nullptr};
    std::atomic<LONG> m_bRunning{0};
    vfc::THandle m_hThread;
    std::atomic<DWORD> m_threadId{0};
};
