// The thread wrapper of the foundation: a thread started through the C
// runtime, so that the runtime's per-thread data is set up and freed with it.
#pragma once

#include <windows.h>
#include <process.h>

#include "vfc/unique_resource.h"

namespace vfc {

// How a thread is started: through _beginthreadex, with the runtime's own
// stack size and no flags.
struct TCRTThreadTraits {
    using TProc = unsigned(__stdcall*)(void*);
    static HANDLE Begin(TProc proc, void* param) noexcept
    {
        return reinterpret_cast<HANDLE>(::_beginthreadex(nullptr, 0, proc, param, 0, nullptr));
    }
};

// t_bManaged: the wrapper owns the handle and closes it when it goes;
// otherwise the handle is left open for whoever took it.
template <bool t_bManaged, typename Traits>
class TThreadT {
public:
    using TProc = typename Traits::TProc;

    TThreadT() noexcept = default;
    virtual ~TThreadT()
    {
        if (!t_bManaged)
            m_hThread.detach();
    }
    TThreadT(const TThreadT&) = delete;
    TThreadT& operator=(const TThreadT&) = delete;

    // Starts the thread; false when the runtime gave no handle. A priority
    // other than 0 is set on the new thread.
    bool Create(TProc proc, void* param, int priority = 0) noexcept
    {
        m_hThread.reset(Traits::Begin(proc, param));
        if (!m_hThread)
            return false;
        if (priority != 0)
            ::SetThreadPriority(m_hThread.get(), priority);
        return true;
    }
    // True when the thread ended within the time.
    bool WaitFor(DWORD timeout = INFINITE) const noexcept
    {
        return ::WaitForSingleObject(m_hThread.get(), timeout) == WAIT_OBJECT_0;
    }
    void Close() noexcept { m_hThread.reset(); }
    HANDLE GetHandle() const noexcept { return m_hThread.get(); }

private:
    THandle m_hThread;
};

}  // namespace vfc
