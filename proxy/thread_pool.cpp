#include "proxy/thread_pool.h"

#include <algorithm>
#include <new>

CVnThreadPool::~CVnThreadPool()
{
    // A worker is stopped outside the lock, since it may be about to park
    // itself. A busy one loses its pool first and so does not come back.
    for (TList* list : {&m_busy, &m_idle}) {
        for (;;) {
            std::unique_ptr<CVnThread> thread;
            {
                vfc::TLock lock(m_cs);
                thread = _takeFirst(*list);
            }
            if (!thread)
                break;
            if (list == &m_busy)
                thread->SetPool(nullptr);
            thread->Stop();
        }
    }
    m_maxThreads = 0;
}

std::unique_ptr<CVnThread> CVnThreadPool::_takeFirst(TList& list)
{
    if (list.empty())
        return nullptr;
    std::unique_ptr<CVnThread> first = std::move(list.front());
    list.erase(list.begin());
    return first;
}

CVnThread* CVnThreadPool::GetFreeThread()
{
    vfc::TLock lock(m_cs);
    if (GetThreadCount() > m_maxThreads)
        return nullptr;
    try {
        if (!m_idle.empty()) {
            m_busy.reserve(m_busy.size() + 1);
            std::unique_ptr<CVnThread> thread = _takeFirst(m_idle);
            m_busy.push_back(std::move(thread));
            return m_busy.back().get();
        }
        if (static_cast<int>(m_busy.size()) < m_maxThreads) {
            m_busy.reserve(m_busy.size() + 1);
            std::unique_ptr<CVnThread> thread(new CVnThread(this));
            if (!thread->IsStarted())
                return nullptr;
            m_busy.push_back(std::move(thread));
            return m_busy.back().get();
        }
    } catch (const std::bad_alloc&) {
        // The lists stay as they were.
    }
    return nullptr;
}

void CVnThreadPool::SetMaxThreads(int maxThreads)
{
    if (maxThreads < 1)
        return;
    TList surplus;
    {
        vfc::TLock lock(m_cs);
        m_maxThreads = maxThreads;
        while (GetThreadCount() > m_maxThreads && !m_idle.empty())
            surplus.push_back(_takeFirst(m_idle));
    }
    // Stopped outside the lock: an idle worker may be finishing a job and
    // need the lock to park.
    for (auto& thread : surplus) {
        thread.reset();
        ::Sleep(0);
    }
}

int CVnThreadPool::GetThreadCount()
{
    vfc::TLock lock(m_cs);
    return static_cast<int>(m_idle.size() + m_busy.size());
}

int CVnThreadPool::GetIdleCount()
{
    vfc::TLock lock(m_cs);
    return static_cast<int>(m_idle.size());
}

void CVnThreadPool::ParkThread(CVnThread* thread)
{
    vfc::TLock lock(m_cs);
    auto busy = std::find_if(m_busy.begin(), m_busy.end(), [thread](const auto& t) { return t.get() == thread; });
    if (busy == m_busy.end())
        return;
    try {
        m_idle.reserve(m_idle.size() + 1);
    } catch (const std::bad_alloc&) {
        return;  // stays busy; the next GetFreeThread makes do without it
    }
    m_idle.push_back(std::move(*busy));
    m_busy.erase(busy);
}
