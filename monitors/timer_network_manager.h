// The timer monitor: asks IsNetworkAlive once per period and tells its sinks
// each change of the local (LAN) and the wide (WAN) network.
#pragma once

#include <windows.h>

#include "monitors/network_manager.h"
#include "monitors/timer.h"
#include "vnlinkhost.h"

class CVnTimerNetworkManager : public CVnNetworkManager<IVnLinkhostNetworkEventSink> {
public:
    static constexpr DWORD kDefaultPeriod = 3000;

    CVnTimerNetworkManager();
    ~CVnTimerNetworkManager() override;

    static CVnTimerNetworkManager* getInstance();

    // Takes the present flags as the reference state, with no notification,
    // and starts polling. Always true: a thread that can't make its timer
    // leaves the monitor silent.
    bool Init();
    bool Release();
    // One round on the timer's thread; the sinks are called under the lock.
    void Poll();
    // Stores the period and restarts a running timer with it.
    void SetPeriod(DWORD ms);
    DWORD GetPeriod();

private:
    static void OnTick();

    DWORD m_status = 0;
    DWORD m_period = kDefaultPeriod;
    CVnTimer m_timer;
};
