#include "monitors/sens_network_subscriber.h"

#include "monitors/sens_network_manager.h"

HRESULT CVnSensNetworkSubscriber::FanOut(ULONG status, BSTR connection, ULONG type)
{
    CVnSensNetworkManager* manager = CVnSensNetworkManager::getInstance();
    for (size_t i = 0; i < manager->GetCount(); ++i) {
        const auto sink = manager->GetAt(i);
        const HRESULT hr = sink ? sink->NetworkStatusChanged(status, connection, type) : S_OK;
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}
