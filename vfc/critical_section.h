// A critical section that lives as long as its owner, and a scoped lock on it.
#pragma once

#include <windows.h>

namespace vfc {

class TCriticalSection {
public:
    TCriticalSection() noexcept { ::InitializeCriticalSection(&m_cs); }
    ~TCriticalSection() { ::DeleteCriticalSection(&m_cs); }
    TCriticalSection(const TCriticalSection&) = delete;
    TCriticalSection& operator=(const TCriticalSection&) = delete;

    void Enter() noexcept { ::EnterCriticalSection(&m_cs); }
    void Leave() noexcept { ::LeaveCriticalSection(&m_cs); }

private:
    CRITICAL_SECTION m_cs;
};

class TLock {
public:
    explicit TLock(TCriticalSection& cs) noexcept : m_cs(cs) { m_cs.Enter(); }
    ~TLock() { m_cs.Leave(); }
    TLock(const TLock&) = delete;
    TLock& operator=(const TLock&) = delete;

private:
    TCriticalSection& m_cs;
};

}  // namespace vfc
