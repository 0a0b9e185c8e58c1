// The root object: the one object that clients create. It owns the
// configuration record, answers the host's queries, and passes host events on
// to the sinks that plug-ins registered.
#pragma once

#include <windows.h>

#include <map>
#include <memory>
#include <vector>

#include "host/event_fanout.h"
#include "settings/config_data.h"
#include "vfc/com_object.h"
#include "vfc/critical_section.h"
#include "vfc/dispatch.h"
#include "vnlinkhost.h"

class CVnLinkhostPropertySheet;

class CVnLinkhostObject
    : public vfc::TComObject<CVnLinkhostObject, vfc::TDispatchImpl<IVnLinkhost>, IVnLinkhostEventHandler> {
public:
    CVnLinkhostObject();
    ~CVnLinkhostObject() override;

    HRESULT FinalConstruct();
    void FinalRelease();

    // IVnLinkhost
    STDMETHODIMP ShowConfigurationDialog(LONG hWndParent) override;
    STDMETHODIMP GetConfigurationValue(BSTR name, BSTR* value) override;
    STDMETHODIMP SetConfigurationValue(BSTR name, BSTR value) override;
    STDMETHODIMP CreateSession(LONG processId, LONG hWnd, LONG flags, IVnWebSession** session) override;
    STDMETHODIMP GetInfo(VARIANT query, VARIANT* result) override;
    STDMETHODIMP GetExtensionInterface(const GUID* iid, IUnknown** extension) override;
    STDMETHODIMP CheckShutdown(VARIANT_BOOL* inUse) override;
    STDMETHODIMP SaveConfiguration() override;
    STDMETHODIMP LoadConfiguration() override;
    STDMETHODIMP CheckNetworkAlive(VARIANT_BOOL* alive) override;
    STDMETHODIMP CheckDestinationReachable(BSTR destination, VARIANT_BOOL* reachable) override;
    STDMETHODIMP RegisterSensEventSink(IVnLinkhostSensEventSink* sink) override;
    STDMETHODIMP UnRegisterSensEventSink(IVnLinkhostSensEventSink* sink) override;
    STDMETHODIMP RegisterWMINetworkEventSink(IVnLinkhostWMINetworkEventSink* sink) override;
    STDMETHODIMP UnRegisterWMINetworkEventSink(IVnLinkhostWMINetworkEventSink* sink) override;
    STDMETHODIMP RegisterNetworkEventSink(IVnLinkhostNetworkEventSink* sink) override;
    STDMETHODIMP UnRegisterNetworkEventSink(IVnLinkhostNetworkEventSink* sink) override;

    // IVnLinkhostEventHandler: the fan-out to the registered sinks.
    STDMETHODIMP OnEvent(VnLinkhostEventType type, VARIANT parameter, VnLinkhostEventResult* result) override;

    // Registration of the plug-in side (used while plug-ins initialise).
    HRESULT AddEventSink(IVnLinkhostEventSink* sink);
    HRESULT AddExtensionInterface(const GUID* id, IUnknown* object);
    bool ExtensionsClosed() const { return m_bExtensionsClosed; }

    void* QueryInterfaceExtra(REFIID iid);

    // The plug-ins' door into the root object, open only while they initialise.
    // Its IUnknown is the root object's.
    class XVnLinkhostExtendable : public IVnLinkhostExtendable {
    public:
        explicit XVnLinkhostExtendable(CVnLinkhostObject& outer) : m_outer(outer) {}
        STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override { return m_outer.QueryInterface(iid, ppv); }
        STDMETHODIMP_(ULONG) AddRef() override { return m_outer.AddRef(); }
        STDMETHODIMP_(ULONG) Release() override { return m_outer.Release(); }
        STDMETHODIMP AddPropertyPage(IPropertyPage* page, int positionHint) override;
        STDMETHODIMP AddEventSink(IVnLinkhostEventSink* sink) override;
        STDMETHODIMP AddExtensionInterface(const GUID* id, IUnknown* object) override;
        STDMETHODIMP CreateLogger(BSTR name, IUnknown** logger) override;

    private:
        CVnLinkhostObject& m_outer;
    };

private:
    // Creates and initialises each class of the plug-in category once.
    HRESULT LoadCategoryObjects();

    XVnLinkhostExtendable m_xExtendable{*this};
    // Built once with the object; plug-ins add their pages while they initialise.
    std::unique_ptr<CVnLinkhostPropertySheet> m_pSheet;
    std::unique_ptr<CConfigData> m_pConfigurationData;
    std::map<GUID, vfc::TComPtr<IUnknown>, bool (*)(const GUID&, const GUID&)> m_extensions;
    std::vector<vfc::TComPtr<IVnLinkhostEventSink>> m_eventSinks;
    bool m_bExtensionsClosed = false;
    vfc::TCriticalSection m_csConfiguration;
    vfc::TCriticalSection m_csExtension;
};
