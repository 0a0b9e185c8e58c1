#include "monitors/timer_network_manager.h"

#include "monitors/sens_network_manager.h"
#include "vnlinkhost.h"

namespace {

CVnTimerNetworkManager s_timerNetworkManager;

constexpr DWORD kLan = 1, kWan = 2;

// The (status, type) pairs that a change of flags makes: one pair when either
// side is 0, else one for each flag that fell and then one for each that rose.
struct TChanges {
    DWORD status[4], type[4];
    size_t count = 0;

    TChanges(DWORD previous, DWORD current)
    {
        if (previous == 0 || current == 0) {
            Add(previous < current ? 1 : 0, previous | current);
            return;
        }
        for (DWORD rising : {0u, 1u})
            for (DWORD flag : {kLan, kWan})
                if (((rising ? current : previous) & flag) && !((rising ? previous : current) & flag))
                    Add(rising, flag);
    }
    void Add(DWORD s, DWORD t)
    {
        status[count] = s;
        type[count++] = t;
    }
};

}  // namespace

CVnTimerNetworkManager::CVnTimerNetworkManager()
    : CVnNetworkManager("CVnTimerNetworkManager", "m_arrTimerNetworkEventSinks")
{
}

CVnTimerNetworkManager::~CVnTimerNetworkManager() { Release(); }

CVnTimerNetworkManager* CVnTimerNetworkManager::getInstance() { return &s_timerNetworkManager; }

bool CVnTimerNetworkManager::Init()
{
    vfc::TLock lock(m_cs);
    CVnSensNetworkManager::IsNetworkAliveDynamic(&m_status);
    m_timer.SetCallback(OnTick);
    return m_timer.StartWithPeriod(m_period);
}

bool CVnTimerNetworkManager::Release()
{
    vfc::TLock lock(m_cs);
    m_timer.SetCallback(nullptr);
    m_timer.Stop();
    return true;
}

void CVnTimerNetworkManager::OnTick() { getInstance()->Poll(); }

void CVnTimerNetworkManager::SetPeriod(DWORD ms)
{
    vfc::TLock lock(m_cs);
    m_period = ms;
    if (m_timer.Running())
        m_timer.StartWithPeriod(ms);
}

DWORD CVnTimerNetworkManager::GetPeriod()
{
    vfc::TLock lock(m_cs);
    return m_period;
}

void CVnTimerNetworkManager::Poll()
{
    vfc::TLock lock(m_cs);
    // Nobody listens: the library is not even loaded, and the next sink to
    // come hears of a change made meanwhile.
    if (m_arrSinks.empty())
        return;
    DWORD current = 0;
    CVnSensNetworkManager::IsNetworkAliveDynamic(&current);
    if (current == m_status)
        return;
    const TChanges changes(m_status, current);
    // A sink that fails, or whose client is gone, is no reason to skip the
    // others. A sink may add or remove sinks from inside its call.
    for (size_t i = 0; i < m_arrSinks.size(); ++i) {
        const vfc::TComPtr<IVnLinkhostNetworkEventSink> sink = m_arrSinks[i];
        for (size_t c = 0; sink && c < changes.count; ++c)
            sink->NetworkStatusChanged(changes.status[c], changes.type[c]);
    }
    m_status = current;
}
