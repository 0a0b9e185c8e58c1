// The workers of the local proxy's pool: a thread that sleeps on an event and
// runs one job at a time, and the jobs it is handed.
#pragma once

#include <windows.h>

#include <atomic>

#include "vfc/critical_section.h"
#include "vfc/thread.h"
#include "vfc/unique_resource.h"

class CVnThreadPool;
class CVnProxySocket;

// Taken by a worker while it parks itself in its pool after a job.
extern vfc::TCriticalSection g_threadPoolLock;

// A job. The worker deletes it after running it while m_bAutoDelete is set,
// which it is from the constructor on.
class CVnThreadTargetAbstract {
public:
    CVnThreadTargetAbstract() = default;
    virtual ~CVnThreadTargetAbstract() = default;
    CVnThreadTargetAbstract(const CVnThreadTargetAbstract&) = delete;
    CVnThreadTargetAbstract& operator=(const CVnThreadTargetAbstract&) = delete;
    virtual void Execute() = 0;

    bool m_bAutoDelete = true;
};

// The job of one event of a client connection: the connection's
// ExecuteRequest. The connection is not owned; its critical section is held
// by the worker for the whole job.
class CVnThreadSocketTarget : public CVnThreadTargetAbstract {
public:
    explicit CVnThreadSocketTarget(CVnProxySocket* socket) : m_pSocket(socket) {}
    void Execute() override;

private:
    CVnProxySocket* m_pSocket;
    vfc::TCriticalSection m_cs;
};

// One worker. It starts in its constructor and wakes at least once a second
// to see whether it has been told to stop. The listener thread hands it jobs;
// between jobs it parks itself in its pool's idle list.
class CVnThread {
public:
    explicit CVnThread(CVnThreadPool* pool);
    virtual ~CVnThread();
    CVnThread(const CVnThread&) = delete;
    CVnThread& operator=(const CVnThread&) = delete;

    static unsigned __stdcall ThreadFunction(void* param);
    void ExecThread();

    // Hands over a job and wakes the worker. The caller makes sure that the
    // worker holds no other job (WaitForExecution), since one would be lost.
    void SetTarget(CVnThreadTargetAbstract* target);
    void SetPool(CVnThreadPool* pool) { m_pVnPool = pool; }
    // No job held, neither waiting to be taken nor running.
    bool IsFree() const { return m_pTarget == nullptr; }
    bool IsExecuting() const { return m_bExecuting; }
    // False when the platform gave no thread.
    bool IsStarted() const { return m_thread.GetHandle() != nullptr; }
    // Waits until the worker holds no job; WAIT_OBJECT_0 at once when it
    // holds none, else the result of the last wait.
    DWORD WaitForExecution(DWORD timeout);
    // Tells the thread to end and waits for it without limit.
    void Stop();

private:
    // Read across threads: the listener looks at them while the worker runs.
    std::atomic<bool> m_bExecuting{false};
    std::atomic<int> m_state{0};
    std::atomic<CVnThreadPool*> m_pVnPool;
    std::atomic<CVnThreadTargetAbstract*> m_pTarget{nullptr};
    vfc::TThreadT<true, vfc::TCRTThreadTraits> m_thread;
    // Auto-reset: a job or a stop is there.
    vfc::THandle m_hWakeEvent;
    // Manual-reset: reset when a job is handed over, set when it has ended,
    // so that every thread that waits for the job (the listener and a
    // destroying proxy) sees the end.
    vfc::THandle m_hDoneEvent;
};
