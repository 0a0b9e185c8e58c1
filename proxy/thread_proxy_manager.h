// CVnThreadProxyManager: which worker belongs to which client connection, so
// that the jobs of one connection never overlap.
#pragma once

#include <utility>
#include <vector>

#include "proxy/thread_pool.h"
#include "vfc/critical_section.h"

class CVnProxySocket;

// A connection keeps the worker that it first got for as long as it is in the
// map, even though that worker parks after each job and may meanwhile run
// jobs of other connections. So a second job of a connection waits for the
// first, and while it waits it blocks the caller, the proxy's listener
// thread, with it. Owns neither the connections nor the workers in its map.
//
// Locks: the manager's, then the pool's.
class CVnThreadProxyManager {
public:
    CVnThreadProxyManager() = default;
    virtual ~CVnThreadProxyManager();
    CVnThreadProxyManager(const CVnThreadProxyManager&) = delete;
    CVnThreadProxyManager& operator=(const CVnThreadProxyManager&) = delete;

    // Hands the connection a job: 1, or 0 for a null connection. With the
    // pool exhausted it asks again every 100 ms, without limit.
    int ExecuteSocket(CVnProxySocket* socket);
    // Forgets a connection once its worker's job has ended: 1 if it was known.
    int RemoveSocket(CVnProxySocket* socket);
    void SetMaxThreads(int maxThreads) { m_pool.SetMaxThreads(maxThreads); }
    // Waits for the worker of each mapped connection and empties the map.
    void WaitAll(unsigned timeout);

private:
    // The worker of the connection, or null.
    CVnThread* _find(CVnProxySocket* socket) const;

    CVnThreadPool m_pool;
    std::vector<std::pair<CVnProxySocket*, CVnThread*>> m_map;
    vfc::TCriticalSection m_cs;
};
