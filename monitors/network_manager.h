// The shape that the three network monitors share: one lock and one list of
// client sinks, each held with a reference of its own. A sink may stand in
// the list more than once; Remove takes out the first entry that is the same
// pointer. A client's sink arrives as a proxy, and the platform hands out the
// same proxy for the same object, so that a client can remove what it added.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "host/log.h"
#include "vfc/com_ptr.h"
#include "vfc/critical_section.h"

template <typename Sink>
class CVnNetworkManager {
public:
    virtual ~CVnNetworkManager() = default;
    CVnNetworkManager(const CVnNetworkManager&) = delete;
    CVnNetworkManager& operator=(const CVnNetworkManager&) = delete;

    bool Add(Sink* sink)
    {
        vfc::TLock lock(m_cs);
        try {
            m_arrSinks.emplace_back(sink);
            return true;
        } catch (...) {
            LogLine(vn_log::kError, m_addMethod.c_str(), m_addFailed.c_str());
            return false;
        }
    }

    bool Remove(Sink* sink)
    {
        vfc::TComPtr<Sink> removed;  // let go after the lock: for a proxy that is a call to the client
        vfc::TLock lock(m_cs);
        for (auto it = m_arrSinks.begin(); it != m_arrSinks.end(); ++it) {
            if (it->get() == sink) {
                removed = std::move(*it);
                m_arrSinks.erase(it);
                return true;
            }
        }
        LogLine(vn_log::kError, m_removeMethod.c_str(), m_removeFailed.c_str());
        return false;
    }

    size_t GetCount()
    {
        vfc::TLock lock(m_cs);
        return m_arrSinks.size();
    }

    // A reference of the caller's own, so that a sink removed by its client in
    // the middle of a fan-out stays alive until its call has returned.
    vfc::TComPtr<Sink> GetAt(size_t index)
    {
        vfc::TLock lock(m_cs);
        return index < m_arrSinks.size() ? m_arrSinks[index] : vfc::TComPtr<Sink>();
    }

protected:
    // The class and array names of the log lines, e.g. "CVnTimerNetworkManager"
    // and "m_arrTimerNetworkEventSinks".
    CVnNetworkManager(const std::string& className, const std::string& arrayName)
        : m_addMethod(className + "::Add"), m_addFailed(arrayName + ".Add failed."),
          m_removeMethod(className + "::Remove"), m_removeFailed(arrayName + ".Remove failed.")
    {
    }

    vfc::TCriticalSection m_cs;
    std::vector<vfc::TComPtr<Sink>> m_arrSinks;

private:
    const std::string m_addMethod, m_addFailed, m_removeMethod, m_removeFailed;
};
