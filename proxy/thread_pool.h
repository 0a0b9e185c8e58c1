// CVnThreadPool: the workers of one proxy, made on demand up to a maximum.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "proxy/thread.h"
#include "vfc/critical_section.h"

// Owns its workers, each in exactly one of the two lists. The lists are
// guarded by the pool's critical section, which its holder may take again.
class CVnThreadPool {
public:
    CVnThreadPool() = default;
    virtual ~CVnThreadPool();
    CVnThreadPool(const CVnThreadPool&) = delete;
    CVnThreadPool& operator=(const CVnThreadPool&) = delete;

    // An idle worker moved to the busy list, or a new one while the busy
    // list is below the maximum; null when none can be had.
    CVnThread* GetFreeThread();
    // Ignored below 1. Idle workers beyond the maximum are stopped at once;
    // busy ones end after their job.
    void SetMaxThreads(int maxThreads);
    int GetMaxThreads() const { return m_maxThreads; }
    int GetThreadCount();
    int GetIdleCount();
    // From the worker itself: from the busy list to the idle list. A worker
    // not in the busy list (it ran a job for a socket that kept it) stays.
    void ParkThread(CVnThread* thread);

private:
    using TList = std::vector<std::unique_ptr<CVnThread>>;
    // The first worker of the list, taken out of it; null for an empty list.
    std::unique_ptr<CVnThread> _takeFirst(TList& list);

    std::atomic<int> m_maxThreads{5};
    TList m_idle;
    TList m_busy;
    vfc::TCriticalSection m_cs;
};
