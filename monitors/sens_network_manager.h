// The SENS monitor: subscribes to the network events of the platform's System
// Event Notification Service through the COM+ event system and passes
// "connection made" and "connection lost" on to its sinks. It also holds the
// system's one question to the platform whether the network is alive.
#pragma once

#include <windows.h>

#include "monitors/event_platform.h"
#include "monitors/network_manager.h"
#include "vnlinkhost.h"

class CVnSensNetworkManager : public CVnNetworkManager<IVnLinkhostSensEventSink> {
public:
    CVnSensNetworkManager();
    ~CVnSensNetworkManager() override;

    static CVnSensNetworkManager* getInstance();

    // Subscribes, unless subscribed already. False where the platform has no
    // event system; the sinks then never hear anything.
    bool Init();
    // Removes the subscriptions, if any.
    bool UnInit();

    // Stores the subscriptions of the table with the event system; the first
    // failure ends the walk and leaves what was stored for UnInit to remove.
    bool RegisterSubscriptions();
    bool UnRegisterSubscriptions();

    // IsNetworkAlive of Sensapi.dll, loaded by name for each call and let go
    // afterwards. Without the library or its function: flags 0 and FALSE,
    // with one log line each time.
    static BOOL IsNetworkAliveDynamic(LPDWORD flags);

private:
    vfc::TComPtr<IEventSystem> m_spEventSystem;
};
