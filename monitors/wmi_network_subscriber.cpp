#include "monitors/wmi_network_subscriber.h"

#include <string>

#include "monitors/sens_network_manager.h"
#include "monitors/wmi_network_manager.h"
#include "vfc/bstr.h"

namespace {

BOOL Alive()
{
    DWORD flags = 0;
    return CVnSensNetworkManager::IsNetworkAliveDynamic(&flags);
}

}  // namespace

CVnWMINetworkSubscriber::CVnWMINetworkSubscriber() : m_bNetworkAlive(Alive() ? 1 : 0) {}

STDMETHODIMP CVnWMINetworkSubscriber::Indicate(LONG count, IWbemClassObject** objects)
{
    for (LONG i = 0; objects && i < count; ++i) {
        vfc::TVariant eventClass;
        if (!objects[i] || FAILED(objects[i]->Get(L"__CLASS", 0, eventClass.get(), nullptr, nullptr)) ||
            eventClass->vt != VT_BSTR || !eventClass->bstrVal)
            continue;
        const std::wstring name(eventClass->bstrVal, ::SysStringLen(eventClass->bstrVal));
        if (name == L"MSNdis_StatusMediaConnect" || name == L"MSNdis_NotifyAdapterArrival")
            Settle(true);
        else if (name == L"MSNdis_StatusMediaDisconnect" || name == L"MSNdis_NotifyAdapterRemoval")
            Settle(false);
    }
    return S_OK;
}

void CVnWMINetworkSubscriber::Settle(bool up)
{
    bool alive = Alive() != FALSE;
    for (int left = kSettleMs; alive != up && left >= 1; left -= kSettleStepMs) {
        ::Sleep(kSettleStepMs);
        alive = Alive() != FALSE;
    }
    if (alive != up || (m_bNetworkAlive != 0) == up)
        return;
    m_bNetworkAlive = up ? 1 : 0;
    // Every sink hears it, whatever the others answer.
    CVnWMINetworkManager* manager = CVnWMINetworkManager::getInstance();
    for (size_t i = 0; i < manager->GetCount(); ++i)
        if (const auto sink = manager->GetAt(i))
            sink->NetworkStatusChanged(up ? 1 : 0);
}
