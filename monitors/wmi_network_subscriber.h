// The object that the management service calls, through its stub, with the
// adapters' events. It does not keep the process alive.
#pragma once

#include <windows.h>

#include "monitors/event_platform.h"
#include "vfc/com_object.h"

class CVnWMINetworkSubscriber : public vfc::TComObject<CVnWMINetworkSubscriber, IWbemObjectSink> {
public:
    static constexpr bool LocksModule = false;
    // How long an event gives the network to reach the state it announces, and how often it asks meanwhile.
    static constexpr int kSettleMs = 2000, kSettleStepMs = 200;

    // Starts from the state of the network now; that state is not reported.
    CVnWMINetworkSubscriber();

    // Handles the objects in order, each with its own check.
    STDMETHODIMP Indicate(LONG count, IWbemClassObject** objects) override;
    STDMETHODIMP SetStatus(LONG, HRESULT, BSTR, IWbemClassObject*) override { return S_OK; }

private:
    // Waits up to kSettleMs for the network to be `up`; reports it if it got
    // there and differs from what was reported last.
    void Settle(bool up);

    // Touched only by Indicate, which the service does not run twice at once.
    LONG m_bNetworkAlive;
};
