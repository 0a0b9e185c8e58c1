#include "vfc/client_objects.h"

#include <objbase.h>

#include <vector>

namespace vfc {

TClientObjects& TClientObjects::getInstance()
{
    // Never destroyed: pool waits may still fire while the process ends.
    static TClientObjects* instance = new TClientObjects;
    return *instance;
}

void TClientObjects::Add(DWORD pid, void* self, IUnknown* unknown, TryAddRefFn tryAddRef)
{
    if (pid == 0 || pid == ::GetCurrentProcessId())
        return;
    TLock lock(m_cs);
    if (const ULONG_PTR watch = _watchOf(pid))
        m_objects[self] = Entry{watch, unknown, tryAddRef};
}

ULONG_PTR TClientObjects::_watchOf(DWORD pid)
{
    // A watch whose process has ended belongs to an earlier owner of the id;
    // its own wait disconnects that owner's objects.
    for (const auto& [id, watch] : m_watches)
        if (watch.pid == pid && ::WaitForSingleObject(watch.hProcess, 0) == WAIT_TIMEOUT)
            return id;
    Watch watch = {pid, ::OpenProcess(SYNCHRONIZE, FALSE, pid), nullptr};
    if (!watch.hProcess)
        return 0;
    const ULONG_PTR id = ++m_lastWatch;
    if (!::RegisterWaitForSingleObject(&watch.hWait, watch.hProcess, OnProcessEnded, reinterpret_cast<PVOID>(id), INFINITE,
                                       WT_EXECUTEONLYONCE | WT_EXECUTELONGFUNCTION)) {
        ::CloseHandle(watch.hProcess);
        return 0;
    }
    m_watches[id] = watch;
    return id;
}

void TClientObjects::Remove(void* self)
{
    TLock lock(m_cs);
    m_objects.erase(self);
}

VOID CALLBACK TClientObjects::OnProcessEnded(PVOID param, BOOLEAN)
{
    const HRESULT init = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    getInstance()._disconnect(reinterpret_cast<ULONG_PTR>(param));
    if (SUCCEEDED(init))
        ::CoUninitialize();
}

void TClientObjects::_disconnect(ULONG_PTR watchId)
{
    // References are taken under the lock, so that no object is freed while
    // it is in hand, and the disconnects run outside it: they release the
    // stubs' references, and the objects may go, removing themselves.
    std::vector<IUnknown*> held;
    {
        TLock lock(m_cs);
        for (auto it = m_objects.begin(); it != m_objects.end();) {
            if (it->second.watch != watchId) {
                ++it;
                continue;
            }
            if (it->second.tryAddRef(it->first))
                held.push_back(it->second.unknown);
            it = m_objects.erase(it);
        }
        auto watch = m_watches.find(watchId);
        if (watch != m_watches.end()) {
            ::UnregisterWait(watch->second.hWait);
            ::CloseHandle(watch->second.hProcess);
            m_watches.erase(watch);
        }
    }
    for (IUnknown* unknown : held) {
        ::CoDisconnectObject(unknown, 0);
        unknown->Release();
    }
}

}  // namespace vfc
