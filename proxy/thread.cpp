#include "proxy/thread.h"

#include <new>

#include "host/log.h"
#include "proxy/proxy_socket.h"
#include "proxy/thread_pool.h"

vfc::TCriticalSection g_threadPoolLock;

void CVnThreadSocketTarget::Execute()
{
    vfc::TLock lock(m_cs);
    if (!m_pSocket)
        return;
    // The job's result goes nowhere: what a failure leaves is its log line
    // and the connection's state. Nothing thrown leaves a worker either.
    try {
        m_pSocket->ExecuteRequest();
    } catch (...) {
        LogLine(vn_log::kError, "CVnThreadSocketTarget::Execute", "ExecuteRequest failed.");
    }
}

CVnThread::CVnThread(CVnThreadPool* pool)
    : m_pVnPool(pool),
      m_hWakeEvent(::CreateEventA(nullptr, FALSE, FALSE, nullptr)),
      m_hDoneEvent(::CreateEventA(nullptr, TRUE, FALSE, nullptr))
{
    if (m_hWakeEvent && m_hDoneEvent)
        m_thread.Create(ThreadFunction, this);
}

CVnThread::~CVnThread()
{
    Stop();
    m_thread.Close();
}

unsigned __stdcall CVnThread::ThreadFunction(void* param)
{
    if (!param) {
        LogLine(vn_log::kError, "CVnThread::ThreadFunction", "pParam is NULL.");
        return 0;
    }
    static_cast<CVnThread*>(param)->ExecThread();
    return 0;
}

void CVnThread::ExecThread()
{
    m_state = 0;
    ::Sleep(1);
    while (m_state != -1) {
        if (::WaitForSingleObject(m_hWakeEvent.get(), 1000) == WAIT_TIMEOUT || m_state == -1)
            continue;
        if (CVnThreadTargetAbstract* target = m_pTarget) {
            m_bExecuting = true;
            target->Execute();
            m_bExecuting = false;
            if (target->m_bAutoDelete)
                delete target;
            // Set before the job is let go: the next SetTarget, which can come
            // as soon as the worker looks free, resets it for its own job.
            ::SetEvent(m_hDoneEvent.get());
            m_pTarget = nullptr;
        }
        CVnThreadPool* pool = m_pVnPool;
        if (!pool) {
            LogLine(vn_log::kError, "CVnThread::ExecThread", "this->m_pVnPool is NULL.");
            break;
        }
        vfc::TLock lock(g_threadPoolLock);
        if (pool->GetThreadCount() <= pool->GetMaxThreads())
            pool->ParkThread(this);
        else
            m_state = -1;  // a maximum lowered below the busy workers: this one ends
    }
}

void CVnThread::SetTarget(CVnThreadTargetAbstract* target)
{
    if (target)
        ::ResetEvent(m_hDoneEvent.get());
    m_pTarget = target;
    if (target)
        ::SetEvent(m_hWakeEvent.get());
}

DWORD CVnThread::WaitForExecution(DWORD timeout)
{
    DWORD result = WAIT_OBJECT_0;
    // A job handed over and not yet taken counts as much as a running one.
    while (!IsFree() || IsExecuting()) {
        result = ::WaitForSingleObject(m_hDoneEvent.get(), timeout);
        if (result == WAIT_FAILED)
            LogLine(vn_log::kErrorDec, "CVnThread::WaitForExecution", "WaitForSingleObject is failed.",
                    static_cast<int>(::GetLastError()));
        if (result != WAIT_OBJECT_0)
            break;
    }
    return result;
}

void CVnThread::Stop()
{
    m_state = -1;
    ::SetEvent(m_hWakeEvent.get());
    ::Sleep(0);
    if (IsStarted())
        m_thread.WaitFor(INFINITE);
}
