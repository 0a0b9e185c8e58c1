#include "proxy/thread_proxy_manager.h"

#include <algorithm>

CVnThreadProxyManager::~CVnThreadProxyManager() { WaitAll(INFINITE); }

CVnThread* CVnThreadProxyManager::_find(CVnProxySocket* socket) const
{
    auto it = std::find_if(m_map.begin(), m_map.end(), [socket](const auto& entry) { return entry.first == socket; });
    return it == m_map.end() ? nullptr : it->second;
}

int CVnThreadProxyManager::ExecuteSocket(CVnProxySocket* socket)
{
    if (!socket)
        return 0;
    vfc::TLock lock(m_cs);
    CVnThread* thread = _find(socket);
    if (!thread) {
        while (!(thread = m_pool.GetFreeThread()))
            ::Sleep(100);
        m_map.emplace_back(socket, thread);
    }
    // Also a worker fresh from the idle list may still run, or be about to
    // run, a job of a connection that kept it.
    thread->WaitForExecution(INFINITE);
    thread->SetTarget(new CVnThreadSocketTarget(socket));
    return 1;
}

int CVnThreadProxyManager::RemoveSocket(CVnProxySocket* socket)
{
    if (!socket)
        return 0;
    vfc::TLock lock(m_cs);
    auto it = std::find_if(m_map.begin(), m_map.end(), [socket](const auto& entry) { return entry.first == socket; });
    if (it == m_map.end())
        return 0;
    it->second->WaitForExecution(INFINITE);
    m_map.erase(it);
    return 1;
}

void CVnThreadProxyManager::WaitAll(unsigned timeout)
{
    // Under the lock, since the listener thread may still hand out jobs while
    // a proxy is being destroyed; no job takes this lock.
    vfc::TLock lock(m_cs);
    while (!m_map.empty()) {
        m_map.front().second->WaitForExecution(timeout);
        m_map.erase(m_map.begin());
    }
}
