// The WMI monitor: notification queries on the network adapters' events in
// the management service's namespace "ROOT\WMI". An adapter event is only a
// hint; the subscriber checks the network and tells its sinks one status,
// up or down, for the whole machine.
#pragma once

#include <windows.h>

#include "monitors/event_platform.h"
#include "monitors/network_manager.h"
#include "vnlinkhost.h"

class CVnWMINetworkManager : public CVnNetworkManager<IVnLinkhostWMINetworkEventSink> {
public:
    CVnWMINetworkManager();
    ~CVnWMINetworkManager() override;

    static CVnWMINetworkManager* getInstance();

    // Connects and registers the queries, unless connected already.
    bool Init();
    // Cancels the queries and lets go of the service, so that a later Init
    // starts afresh; false when there was nothing to cancel.
    bool Release();

    // Connects to the namespace and makes the stub through which the service
    // calls a new subscriber.
    bool PrepareWMI(const wchar_t* nameSpace);
    // The five queries in order; the first failure ends the walk.
    bool RegisterEvents();
    bool RegisterEvent(const wchar_t* query);

private:
    vfc::TComPtr<IWbemServices> m_pSvc;
    vfc::TComPtr<IWbemObjectSink> m_pStubSink;
};
