#include "monitors/sens_network_manager.h"

#include "monitors/sens_network_subscriber.h"
#include "settings/network_alive.h"
#include "vfc/bstr.h"

namespace {

CVnSensNetworkManager s_sensNetworkManager;

// One subscription for each method of ISensNetwork, under ids of our own.
struct TSubscription {
    GUID id;
    const wchar_t* name;
    const wchar_t* method;
};
const TSubscription kSubscriptions[] = {
    {{0x570690CE, 0x54AD, 0x4828, {0x95, 0xA3, 0x49, 0x98, 0x1D, 0xE2, 0xC9, 0x63}},
     L"VnLinkhost Subscription to SENS NetAlive Event", L"ConnectionMade"},
    {{0x05857FA4, 0xAB32, 0x4B13, {0x96, 0x5F, 0xD5, 0x7A, 0x0A, 0x41, 0xA6, 0xAA}},
     L"VnLinkhost Subscription to SENS NetAliveNoQOCInfo Event", L"ConnectionMadeNoQOCInfo"},
    {{0x72AF3D5D, 0xB365, 0x4A7F, {0x9E, 0xA7, 0xC6, 0xF0, 0x07, 0xB9, 0x3D, 0x95}},
     L"VnLinkhost Subscription to SENS NetLost Event", L"ConnectionLost"},
    {{0xE6752ACE, 0x7CAD, 0x48D7, {0xB6, 0x0A, 0xF5, 0x29, 0xA9, 0x96, 0x62, 0x53}},
     L"VnLinkhost Subscription to SENS DestinationReachable Event", L"DestinationReachable"},
    {{0x78941445, 0x04C8, 0x4EB3, {0x88, 0xEF, 0x73, 0xF1, 0xEA, 0x71, 0x7D, 0x02}},
     L"VnLinkhost Subscription to SENS DestinationReachableNoQOCInfo Event", L"DestinationReachableNoQOCInfo"},
};

vfc::TBstr GuidText(const GUID& id)
{
    wchar_t text[40];
    ::StringFromGUID2(id, text, 40);
    return vfc::TBstr(text);
}

// Logs a failure of RegisterSubscriptions; false when `hr` failed.
bool Succeeded(HRESULT hr, const char* message)
{
    if (FAILED(hr))
        LogLine(vn_log::kErrorHex, "CVnSensNetworkManager::RegisterSubscriptions", message, static_cast<unsigned>(hr));
    return SUCCEEDED(hr);
}

}  // namespace

CVnSensNetworkManager::CVnSensNetworkManager()
    : CVnNetworkManager("CVnSensNetworkManager", "m_arrSensNetworkEventSinks")
{
}

CVnSensNetworkManager::~CVnSensNetworkManager() { UnInit(); }

CVnSensNetworkManager* CVnSensNetworkManager::getInstance() { return &s_sensNetworkManager; }

bool CVnSensNetworkManager::Init()
{
    if (m_spEventSystem)
        return true;
    if (RegisterSubscriptions())
        return true;
    LogLine(vn_log::kError, "CVnSensNetworkManager::Init", "RegisterSubscriptions failed.");
    return false;
}

bool CVnSensNetworkManager::UnInit()
{
    if (!m_spEventSystem)
        return true;
    if (UnRegisterSubscriptions())
        return true;
    LogLine(vn_log::kError, "CVnSensNetworkManager::UnInit", "UnRegisterSubscriptions failed.");
    return false;
}

bool CVnSensNetworkManager::RegisterSubscriptions()
{
    const vfc::TBstr eventClass = GuidText(vn_events::kSensNetworkEventClass);
    const vfc::TBstr progId(vn_events::kProgIdEventSubscription);
    if (!Succeeded(::CoCreateInstance(vn_events::kClsidEventSystem, nullptr, CLSCTX_ALL, __uuidof(IEventSystem),
                                      m_spEventSystem.put_void()),
                   "Failed to create EventSystem object"))
        return false;
    // One subscriber for all rows; the event system keeps its own references.
    vfc::TComPtr<CVnSensNetworkSubscriber> subscriber;
    if (!Succeeded(vfc::CreateInto(subscriber), "Failed to create the subscriber"))
        return false;
    for (const TSubscription& row : kSubscriptions) {
        vfc::TComPtr<IEventSubscription> subscription;
        const vfc::TBstr id = GuidText(row.id), name(row.name), method(row.method);
        if (!Succeeded(::CoCreateInstance(vn_events::kClsidEventSubscription, nullptr, CLSCTX_ALL,
                                          __uuidof(IEventSubscription), subscription.put_void()),
                       "Error getting spEventSubscription object") ||
            !Succeeded(subscription->put_SubscriptionID(id.get()), "spEventSubscription->put_SubscriptionID failed") ||
            !Succeeded(subscription->put_SubscriptionName(name.get()), "spEventSubscription->put_SubscriptionName failed") ||
            !Succeeded(subscription->put_MethodName(method.get()), "spEventSubscription->put_MethodName failed") ||
            !Succeeded(subscription->put_EventClassID(eventClass.get()), "spEventSubscription->put_EventClassID failed") ||
            !Succeeded(subscription->put_SubscriberInterface(subscriber->GetUnknown()),
                       "spEventSubscription->put_SubscriberInterface failed") ||
            !Succeeded(subscription->put_PerUser(TRUE), "spEventSubscription->put_PerUser failed") ||
            !Succeeded(m_spEventSystem->Store(progId.get(), subscription.get()), "m_spEventSystem->Store failed"))
            return false;
    }
    return true;
}

bool CVnSensNetworkManager::UnRegisterSubscriptions()
{
    if (!m_spEventSystem) {
        LogLine(vn_log::kError, "CVnSensNetworkManager::UnRegisterSubscriptions", "m_spEventSystem.p is NULL");
        return false;
    }
    const vfc::TBstr progId(vn_events::kProgIdEventSubscription);
    for (const TSubscription& row : kSubscriptions) {
        const vfc::TBstr query(L"SubscriptionID=" + GuidText(row.id).str());
        int errorIndex = 0;
        const HRESULT hr = m_spEventSystem->Remove(progId.get(), query.get(), &errorIndex);
        if (FAILED(hr)) {
            LogLine(vn_log::kErrorHex, "CVnSensNetworkManager::UnRegisterSubscriptions", "m_spEventSystem->Remove failed",
                    static_cast<unsigned>(hr));
            return false;
        }
    }
    m_spEventSystem.reset();
    return true;
}

BOOL CVnSensNetworkManager::IsNetworkAliveDynamic(LPDWORD flags)
{
    DWORD given = 0;
    const vn_network::TNetworkAnswer answer = vn_network::AskNetworkAlive(given);
    if (flags)
        *flags = given;
    if (answer == vn_network::TNetworkAnswer::NotAvailable) {
        LogLine(vn_log::kError, "CVnSensNetworkManager::IsNetworkAliveDynamic", "No find function in DLL.");
        return FALSE;
    }
    return answer == vn_network::TNetworkAnswer::Alive ? TRUE : FALSE;
}
