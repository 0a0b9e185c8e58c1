#include "tests/doubles/test_plugin/test_plugin.h"

#include <windows.h>
#include <ole2.h>

#include <cstdio>
#include <string>

#include "tests/doubles/rasapi32/standin_registry.h"
#include "tests/doubles/test_plugin/recording_page.h"
#include "vfc/bstr.h"
#include "vfc/com_object.h"
#include "vnlinkhost.h"

namespace {

// The plug-in, which lives on as the sink and the extension it registers.
class Plugin : public vfc::TComObject<Plugin, IVnLinkhostPlugin, IVnLinkhostEventSink> {
public:
    explicit Plugin(bool first) : m_first(first) {}
    const bool m_first;  // the second plug-in of this DLL, which comes first
    void* QueryInterfaceExtra(REFIID iid) { return iid == IID_VnTestExtension ? static_cast<IVnLinkhostEventSink*>(this) : nullptr; }
    STDMETHODIMP Initialize(IVnLinkhost* host) override
    {
        vfc::TComPtr<IVnLinkhostExtendable> extendable;
        HRESULT hr = host->QueryInterface(IID_IVnLinkhostExtendable, extendable.put_void());
        if (FAILED(hr))
            return hr;
        auto publish = [&] {  // the answer goes to "Published", in hex
            char answer[16];
            std::snprintf(answer, sizeof answer, "%08lX", static_cast<unsigned long>(extendable->AddExtensionInterface(
                                                              &IID_VnTestExtension, static_cast<IVnLinkhostEventSink*>(this))));
            vn_standin::WriteText(kVnTestKey, "Published", std::string(answer));
        };
        if (m_first) {
            const std::string second = vn_standin::ReadText(kVnTestKey, "Second");
            if (second == "same")
                publish();
            return second == "fail" ? E_FAIL : S_OK;
        }
        extendable->AddEventSink(this);
        publish();
        vfc::TComPtr<TRecordingPage> page;
        if (SUCCEEDED(vfc::CreateInto(page))) {
            page->title = L"Testseite";
            extendable->AddPropertyPage(page.get(), -250);
        }
        vfc::TComPtr<IUnknown> unknown;
        vfc::TComPtr<ILogger> logger;
        vfc::TBstr name(L"TestPlugin"), line(L"initialised");
        if (SUCCEEDED(extendable->CreateLogger(name.get(), unknown.put())) &&
            SUCCEEDED(unknown->QueryInterface(IID_ILogger, logger.put_void())))
            logger->WriteLine(line.get());
        return S_OK;
    }
    STDMETHODIMP GetInfo(VARIANT query, VARIANT* result) override
    {
        VariantInit(result);
        if (query.vt == VT_BSTR) {
            result->vt = VT_BSTR;
            result->bstrVal = SysAllocString(lstrcmpW(query.bstrVal, L"Version") == 0 ? L"7.1" : L"Testerweiterung");
        }
        return S_OK;
    }
    STDMETHODIMP OnEvent(VnLinkhostEventType type, VARIANT parameter, VnLinkhostEventResult* result) override
    {
        const long value = parameter.vt == VT_I4 ? parameter.lVal : -1;
        vn_standin::WriteText(kVnTestKey, "Events", vn_standin::ReadText(kVnTestKey, "Events") + std::to_string(type) +
                                                        ":" + std::to_string(value) + ";");
        if (result)
            *result = static_cast<VnLinkhostEventResult>(vn_standin::ReadDword(kVnTestKey, "SinkAnswer", 0));
        return S_OK;
    }
};

class Factory : public vfc::TComObject<Factory, IClassFactory> {
public:
    explicit Factory(bool first) : m_first(first) {}
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** ppv) override
    {
        vfc::TComPtr<Plugin> plugin;
        const HRESULT hr = outer ? CLASS_E_NOAGGREGATION : vfc::CreateInto(plugin, m_first);
        return SUCCEEDED(hr) ? plugin->QueryInterface(iid, ppv) : hr;
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }  // the server never locks a plug-in's factory
    const bool m_first;
};

}  // namespace

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)
{
    vfc::TComPtr<Factory> factory;
    const bool known = clsid == CLSID_VnTestPlugin || clsid == CLSID_VnTestPluginFirst;
    const HRESULT hr = known ? vfc::CreateInto(factory, clsid == CLSID_VnTestPluginFirst) : CLASS_E_CLASSNOTAVAILABLE;
    return SUCCEEDED(hr) ? factory->QueryInterface(iid, ppv) : hr;
}

extern "C" HRESULT WINAPI DllCanUnloadNow() { return vfc::ModuleLockCountWithoutTarget() == 0 ? S_OK : S_FALSE; }
