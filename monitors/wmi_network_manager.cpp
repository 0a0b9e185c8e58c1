#include "monitors/wmi_network_manager.h"

#include "monitors/wmi_network_subscriber.h"
#include "vfc/bstr.h"

namespace {

CVnWMINetworkManager s_wmiNetworkManager;

// The adapters' events, in order of registration, with the line that a failed registration logs.
const struct {
    const wchar_t* query;
    const char* failure;
} kQueries[] = {
    {L"SELECT * FROM MSNdis_StatusMediaConnect", "MSNdis_StatusMediaConnect registration failed."},
    {L"SELECT * FROM MSNdis_StatusMediaDisconnect", "MSNdis_StatusMediaDisconnect registration failed."},
    {L"SELECT * FROM MSNdis_StatusMediaSpecificIndication", "MSNdis_StatusMediaSpecificIndication registration failed."},
    {L"SELECT * FROM MSNdis_NotifyAdapterArrival", "MSNdis_NotifyAdapterArrival registration failed."},
    {L"SELECT * FROM MSNdis_NotifyAdapterRemoval", "MSNdis_NotifyAdapterRemoval registration failed."},
};

// Logs a failure of PrepareWMI; false when `hr` failed.
bool Succeeded(HRESULT hr, const char* message)
{
    if (FAILED(hr))
        LogLine(vn_log::kErrorHex, "CVnWMINetworkManager::PrepareWMI", message, static_cast<unsigned>(hr));
    return SUCCEEDED(hr);
}

}  // namespace

CVnWMINetworkManager::CVnWMINetworkManager()
    : CVnNetworkManager("CVnWMINetworkManager", "m_arrWMINetworkEventSinks")
{
}

CVnWMINetworkManager::~CVnWMINetworkManager() { Release(); }

CVnWMINetworkManager* CVnWMINetworkManager::getInstance() { return &s_wmiNetworkManager; }

bool CVnWMINetworkManager::Init()
{
    if (m_pSvc)
        return true;
    if (PrepareWMI(L"ROOT\\WMI") && RegisterEvents())
        return true;
    LogLine(vn_log::kError, "CVnWMINetworkManager::Init", "PrepareWMI or RegisterEvents failed.");
    return false;
}

bool CVnWMINetworkManager::Release()
{
    if (!m_pSvc || !m_pStubSink)
        return false;
    // One cancel ends all the queries: they share the sink.
    m_pSvc->CancelAsyncCall(m_pStubSink.get());
    m_pStubSink.reset();
    m_pSvc.reset();
    return true;
}

bool CVnWMINetworkManager::PrepareWMI(const wchar_t* nameSpace)
{
    vfc::TComPtr<IWbemLocator> locator;
    if (!Succeeded(::CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_ALL, __uuidof(IWbemLocator), locator.put_void()),
                   "pLoc.CoCreateInstance(CLSID_WbemLocator) failed."))
        return false;
    const vfc::TBstr resource(nameSpace);
    if (!Succeeded(locator->ConnectServer(resource.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, m_pSvc.put()),
                   "pLoc->ConnectServer failed.") ||
        !Succeeded(::CoSetProxyBlanket(m_pSvc.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                       RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE),
                   "CoSetProxyBlanket failed."))
        return false;
    // The service calls back into this process through a stub of the
    // unsecured apartment, which then calls the subscriber.
    vfc::TComPtr<IUnsecuredApartment> apartment;
    if (!Succeeded(::CoCreateInstance(CLSID_UnsecuredApartment, nullptr, CLSCTX_ALL, __uuidof(IUnsecuredApartment),
                                      apartment.put_void()),
                   "pUnsecApp.CoCreateInstance(CLSID_UnsecuredApartment) failed."))
        return false;
    vfc::TComPtr<CVnWMINetworkSubscriber> subscriber;
    vfc::TComPtr<IUnknown> stub;
    return Succeeded(vfc::CreateInto(subscriber), "Failed to create the subscriber") &&
           Succeeded(apartment->CreateObjectStub(subscriber->GetUnknown(), stub.put()), "pUnsecApp->CreateObjectStub failed.") &&
           Succeeded(stub.query_to(m_pStubSink.put()), "pStubUnk->QueryInterface failed.");
}

bool CVnWMINetworkManager::RegisterEvents()
{
    for (const auto& event : kQueries) {
        if (!RegisterEvent(event.query)) {
            LogLine(vn_log::kError, "CVnWMINetworkManager::RegisterEvents", event.failure);
            return false;
        }
    }
    return true;
}

bool CVnWMINetworkManager::RegisterEvent(const wchar_t* query)
{
    const vfc::TBstr language(L"WQL"), text(query);
    const HRESULT hr = m_pSvc->ExecNotificationQueryAsync(language.get(), text.get(), WBEM_FLAG_SEND_STATUS, nullptr,
                                                          m_pStubSink.get());
    if (FAILED(hr)) {
        vfc::TComPtr<IErrorInfo> error;
        ::GetErrorInfo(0, error.put());  // taken off the thread; the code says enough
        LogLine(vn_log::kErrorHex, "CVnWMINetworkManager::RegisterEvent", "m_pSvc->ExecNotificationQueryAsync failed.",
                static_cast<unsigned>(hr));
        return false;
    }
    return true;
}
