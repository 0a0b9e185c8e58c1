#include "host/root_object.h"

#include "dialog/property_sheet.h"

#include <cstring>
#include <new>

#include "host/log.h"
#include "host/module.h"
#include "host/version_info.h"
#include "monitors/sens_network_manager.h"
#include "monitors/timer_network_manager.h"
#include "monitors/wmi_network_manager.h"
#include "settings/config_keys.h"
#include "settings/connection_state.h"
#include "settings/proxy_credentials.h"
#include "settings/xml_config_manager.h"
#include "web/request.h"
#include "web/session.h"
#include "vfc/bstr.h"
#include "vfc/text.h"

namespace {

bool GuidLess(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) < 0; }

HRESULT ToBstr(const std::wstring& text, BSTR* out)
{
    *out = ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

CVnLinkhostObject::CVnLinkhostObject() : m_pSheet(new CVnLinkhostPropertySheet), m_extensions(GuidLess)
{
    vfc::TVariant query(L"Version"), version;
    HRESULT hr = GetInfo(*query, version.get());
    if (FAILED(hr))
        LogLine(vn_log::kErrorHex, "CVnLinkhostObject::CVnLinkhostObject", "GetInfo fail to get VnLinkhost Version.",
                static_cast<unsigned>(hr));
    std::string text = version->vt == VT_BSTR ? vfc::Narrow(version->bstrVal, ::SysStringLen(version->bstrVal)) : "";
    LogLine("VnLinkhost version %s starting up", text.c_str());

    m_pConfigurationData.reset(new CConfigData);
    m_pConfigurationData->SetDefaults();
    {
        // The file overlays the defaults. A missing or bad file leaves them in
        // force and is no error to anyone; nothing is created here.
        CVnLinkhostXMLConfigManager manager;
        CConfigData* record = m_pConfigurationData.get();
        manager.LoadConfiguration(&record);
    }

    m_bExtensionsClosed = false;
    Module().SetEventHandler(nullptr);
}

CVnLinkhostObject::~CVnLinkhostObject() = default;

HRESULT CVnLinkhostObject::FinalConstruct()
{
    LoadCategoryObjects();
    m_bExtensionsClosed = true;
    Module().SetEventHandler(this);
    // The monitors do not depend on one another: one that can't start leaves its sinks silent.
    const char* const method = "CVnLinkhostObject::FinalConstruct";
    if (!CVnSensNetworkManager::getInstance()->Init())
        LogLine(vn_log::kError, method, "CVnSensNetworkManager::getInstance()->Init() failed.");
    if (!CVnWMINetworkManager::getInstance()->Init())
        LogLine(vn_log::kError, method, "CVnWMINetworkManager::getInstance()->Init() failed.");
    if (!CVnTimerNetworkManager::getInstance()->Init())
        LogLine(vn_log::kError, method, "CVnTimerNetworkManager::getInstance()->Init() failed.");
    return S_OK;
}

void CVnLinkhostObject::FinalRelease()
{
    vfc::TVariant parameter(1L);
    VnLinkhostEventResult result = static_cast<VnLinkhostEventResult>(0);
    OnEvent(static_cast<VnLinkhostEventType>(2), *parameter, &result);
    Module().SetEventHandler(nullptr);
    m_pConfigurationData.reset();
    // Hang up a dial-up link that this process started.
    CVnConnectionState::DestroyInstance();
    // The next root object builds the per-process login objects anew.
    ReleaseCredentialObjects();
    // The monitors stop in the reverse order of their start; their sinks stay
    // registered for the next root object of this process.
    CVnTimerNetworkManager::getInstance()->Release();
    CVnWMINetworkManager::getInstance()->Release();
    CVnSensNetworkManager::getInstance()->UnInit();
}

STDMETHODIMP CVnLinkhostObject::GetInfo(VARIANT query, VARIANT* result)
{
    if (!result)
        return E_POINTER;
    vfc::TVariant copy;
    HRESULT hr = ::VariantCopy(copy.get(), &query);
    if (FAILED(hr))
        return hr;
    // Compared as text, exactly: "version" is another query.
    bool isVersion = false;
    if (SUCCEEDED(::VariantChangeType(copy.get(), copy.get(), 0, VT_BSTR)) && copy->bstrVal)
        isVersion = std::wstring(copy->bstrVal, ::SysStringLen(copy->bstrVal)) == L"Version";
    if (!isVersion) {
        ::VariantClear(result);
        return S_OK;
    }
    std::string version;
    hr = CVnVersionInfo().GetFileVersion(version);
    if (hr != S_OK) {
        LogLine(vn_log::kErrorHex, "CVnLinkhostObject::GetInfo", "CVnVersionInfo::GetFileVersion failed.",
                static_cast<unsigned>(hr));
        return S_FALSE;
    }
    vfc::TVariant answer(vfc::Widen(version).c_str());
    ::VariantClear(result);
    answer.detach_to(result);
    return S_OK;
}

STDMETHODIMP CVnLinkhostObject::GetConfigurationValue(BSTR name, BSTR* value)
{
    if (!value)
        return E_POINTER;
    *value = nullptr;
    if (!m_pConfigurationData)
        return E_POINTER;
    std::wstring text;
    HRESULT hr = vn_config::GetValue(*m_pConfigurationData, std::wstring(name ? name : L"", ::SysStringLen(name)), text);
    if (hr != S_OK)
        return hr;
    return ToBstr(text, value);
}

STDMETHODIMP CVnLinkhostObject::SetConfigurationValue(BSTR name, BSTR value)
{
    if (!m_pConfigurationData)
        return E_POINTER;
    return vn_config::SetValue(*m_pConfigurationData, std::wstring(name ? name : L"", ::SysStringLen(name)),
                               std::wstring(value ? value : L"", ::SysStringLen(value)));
}

STDMETHODIMP CVnLinkhostObject::CheckShutdown(VARIANT_BOOL* inUse)
{
    LogLine("INFO: CVnLinkhostObject::CheckShutdown executing...");
    // From now on the process ends as soon as the last reference goes.
    Module().SetIdleTimeout(0);
    Module().SetPause(0);
    if (inUse)
        *inUse = Module().GetLockCount() > 0 ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

STDMETHODIMP CVnLinkhostObject::GetExtensionInterface(const GUID* iid, IUnknown** extension)
{
    if (!iid || !extension)
        return E_POINTER;
    *extension = nullptr;
    vfc::TLock lock(m_csExtension);
    auto it = m_extensions.find(*iid);
    if (it == m_extensions.end())
        return E_POINTER;
    HRESULT hr = it->second.query_to(*iid, reinterpret_cast<void**>(extension));
    return FAILED(hr) ? hr : S_OK;
}

STDMETHODIMP CVnLinkhostObject::OnEvent(VnLinkhostEventType type, VARIANT parameter, VnLinkhostEventResult* result)
{
    return FanOutEvent(m_eventSinks, static_cast<LONG>(type), parameter, result);
}

void* CVnLinkhostObject::QueryInterfaceExtra(REFIID iid)
{
    return iid == IID_IVnLinkhostExtendable ? static_cast<IVnLinkhostExtendable*>(&m_xExtendable) : nullptr;
}

HRESULT CVnLinkhostObject::AddEventSink(IVnLinkhostEventSink* sink)
{
    if (m_bExtensionsClosed)
        return E_UNEXPECTED;
    if (!sink)
        return E_POINTER;
    try {
        m_eventSinks.emplace_back(sink);
    } catch (...) {
        return S_FALSE;
    }
    return S_OK;
}

HRESULT CVnLinkhostObject::AddExtensionInterface(const GUID* id, IUnknown* object)
{
    if (m_bExtensionsClosed)
        return E_UNEXPECTED;
    if (!id)
        return E_INVALIDARG;
    vfc::TLock lock(m_csExtension);
    if (m_extensions.count(*id))
        return E_INVALIDARG;
    try {
        m_extensions.emplace(*id, vfc::TComPtr<IUnknown>(object));
    } catch (...) {
        return S_FALSE;
    }
    return S_OK;
}

STDMETHODIMP CVnLinkhostObject::CreateSession(LONG processId, LONG hWnd, LONG flags, IVnWebSession** session)
{
    if (!session)
        return E_POINTER;
    *session = nullptr;
    vfc::TComPtr<CVnWebSession> created;
    HRESULT hr = vfc::CreateInto(created);
    if (FAILED(hr))
        return hr;
    hr = created->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(session));
    if (FAILED(hr))
        return hr;
    if (!m_pConfigurationData)
        LoadConfiguration();
    // A session that fails here still exists: the client holds it already.
    return created->SetParams(*m_pConfigurationData, static_cast<DWORD>(processId),
                              static_cast<HWND>(LongToHandle(hWnd)), flags);
}

STDMETHODIMP CVnLinkhostObject::CheckNetworkAlive(VARIANT_BOOL* alive)
{
    DWORD flags = 0;
    const BOOL up = CVnSensNetworkManager::IsNetworkAliveDynamic(&flags);
    if (alive)
        *alive = up ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

STDMETHODIMP CVnLinkhostObject::CheckDestinationReachable(BSTR destination, VARIANT_BOOL* reachable)
{
    const char* const method = "CVnLinkhostObject::CheckDestinationReachable";
    VARIANT_BOOL ignored;
    VARIANT_BOOL& answer = reachable ? *reachable : ignored;
    answer = VARIANT_TRUE;
    // A complete GET through the ordinary pipeline, proxy and dial-up included.
    vfc::TComPtr<IVnWebSession> session;
    HRESULT hr = CreateSession(static_cast<LONG>(::GetCurrentProcessId()), 0, 1, session.put());
    if (FAILED(hr)) {
        answer = VARIANT_FALSE;
        LogLine(vn_log::kErrorHex, method, "CreateWebSession failed.", static_cast<unsigned>(hr));
        return S_OK;
    }
    vfc::TComPtr<IVnWebRequest> request;
    vfc::TBstr verb(L"GET");
    hr = session->CreateWebRequest(destination, verb.get(), request.put());
    if (FAILED(hr)) {
        answer = VARIANT_FALSE;
        LogLine(vn_log::kErrorHex, method, "CreateWebRequest failed.", static_cast<unsigned>(hr));
        return S_OK;
    }
    vfc::TComPtr<IVnWebResult> result;
    hr = request->Execute(result.put());
    if (FAILED(hr) || !result) {
        answer = VARIANT_FALSE;
        LogLine(vn_log::kErrorHex, method, "VnWebRequest->Execute failed.", static_cast<unsigned>(hr));
        return S_OK;
    }
    LONG code = 0;
    result->get_ResultCode(&code);
    if (code != 200) {
        answer = VARIANT_FALSE;
        LogLine(vn_log::kErrorDec, method, "VnWebRequest->Execute return wrong code.", static_cast<int>(code));
    }
    return S_OK;
}

// The dialog edits a copy; the record is replaced, and saved, only when the
// sheet ends with something applied. A second caller waits for the first.
STDMETHODIMP CVnLinkhostObject::ShowConfigurationDialog(LONG hWndParent)
{
    vfc::TLock lock(m_csConfiguration);
    if (m_pConfigurationData)
        m_pSheet->WorkingCopy() = *m_pConfigurationData;
    if (m_pSheet->ShowSheet(reinterpret_cast<HWND>(static_cast<LONG_PTR>(hWndParent))) == 1) {
        m_pConfigurationData.reset(new (std::nothrow) CConfigData(m_pSheet->WorkingCopy()));
        CVnLinkhostXMLConfigManager manager;
        manager.SaveConfiguration(m_pConfigurationData.get());
    }
    return S_OK;
}

// Both run without a lock, like the keys: the record is only replaced when a
// user confirms the dialog. A record made here because there was none stays
// zeroed with empty texts; the defaults belong to the constructor alone.
STDMETHODIMP CVnLinkhostObject::SaveConfiguration()
{
    if (!m_pConfigurationData)
        m_pConfigurationData.reset(new (std::nothrow) CConfigData);
    CVnLinkhostXMLConfigManager manager;
    return manager.SaveConfiguration(m_pConfigurationData.get());
}

STDMETHODIMP CVnLinkhostObject::LoadConfiguration()
{
    if (!m_pConfigurationData)
        m_pConfigurationData.reset(new (std::nothrow) CConfigData);
    CVnLinkhostXMLConfigManager manager;
    CConfigData* record = m_pConfigurationData.get();
    return manager.LoadConfiguration(&record);
}

namespace {

// The sink methods answer 0 whatever happens: a failed add or remove is only logged.
template <typename Manager, typename Sink>
HRESULT ChangeSinks(Manager* manager, Sink* sink, bool add, const char* method, const char* failure)
{
    if (sink && !(add ? manager->Add(sink) : manager->Remove(sink)))
        LogLine(vn_log::kError, method, failure);
    return S_OK;
}

}  // namespace

STDMETHODIMP CVnLinkhostObject::RegisterSensEventSink(IVnLinkhostSensEventSink* sink)
{
    return ChangeSinks(CVnSensNetworkManager::getInstance(), sink, true, "CVnLinkhostObject::RegisterSensEventSink",
                       "CVnSensNetworkManager::getInstance()->Add failed.");
}

STDMETHODIMP CVnLinkhostObject::UnRegisterSensEventSink(IVnLinkhostSensEventSink* sink)
{
    return ChangeSinks(CVnSensNetworkManager::getInstance(), sink, false, "CVnLinkhostObject::UnRegisterSensEventSink",
                       "CVnSensNetworkManager::getInstance()->Remove failed.");
}

STDMETHODIMP CVnLinkhostObject::RegisterWMINetworkEventSink(IVnLinkhostWMINetworkEventSink* sink)
{
    return ChangeSinks(CVnWMINetworkManager::getInstance(), sink, true, "CVnLinkhostObject::RegisterWMINetworkEventSink",
                       "CVnWMINetworkManager::getInstance()->Add failed.");
}

STDMETHODIMP CVnLinkhostObject::UnRegisterWMINetworkEventSink(IVnLinkhostWMINetworkEventSink* sink)
{
    return ChangeSinks(CVnWMINetworkManager::getInstance(), sink, false, "CVnLinkhostObject::UnRegisterWMINetworkEventSink",
                       "CVnWMINetworkManager::getInstance()->Remove failed.");
}

STDMETHODIMP CVnLinkhostObject::RegisterNetworkEventSink(IVnLinkhostNetworkEventSink* sink)
{
    return ChangeSinks(CVnTimerNetworkManager::getInstance(), sink, true, "CVnLinkhostObject::RegisterNetworkEventSink",
                       "CVnTimerNetworkManager::getInstance()->Add failed.");
}

STDMETHODIMP CVnLinkhostObject::UnRegisterNetworkEventSink(IVnLinkhostNetworkEventSink* sink)
{
    return ChangeSinks(CVnTimerNetworkManager::getInstance(), sink, false, "CVnLinkhostObject::UnRegisterNetworkEventSink",
                       "CVnTimerNetworkManager::getInstance()->Remove failed.");
}
