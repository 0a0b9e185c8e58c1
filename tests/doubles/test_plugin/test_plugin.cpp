#include "tests/doubles/test_plugin/test_plugin.h"

#include <windows.h>
#include <ole2.h>

#include <algorithm>
#include <atomic>

#include "vnlinkhost.h"

namespace {

std::atomic<LONG> g_objects{0};

DWORD Setting(const char* name, DWORD fallback)
{
    DWORD value = fallback, size = sizeof value;
    RegGetValueA(HKEY_CURRENT_USER, kVnTestKey, name, RRF_RT_REG_DWORD, nullptr, &value, &size);
    return value;
}

// The plug-in, which lives on as the sink and the extension it registers.
class Plugin : public IVnLinkhostPlugin, public IVnLinkhostEventSink {
public:
    Plugin() { ++g_objects; }
    virtual ~Plugin() { --g_objects; }
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        *ppv = nullptr;
        if (iid == IID_IUnknown || iid == __uuidof(IVnLinkhostPlugin))
            *ppv = static_cast<IVnLinkhostPlugin*>(this);
        else if (iid == __uuidof(IVnLinkhostEventSink) || iid == IID_VnTestExtension)
            *ppv = static_cast<IVnLinkhostEventSink*>(this);
        if (!*ppv)
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_ref; }
    STDMETHODIMP_(ULONG) Release() override
    {
        ULONG left = --m_ref;
        if (!left)
            delete this;
        return left;
    }

    STDMETHODIMP Initialize(IVnLinkhost* host) override
    {
        IVnLinkhostExtendable* extendable = nullptr;
        HRESULT hr = host->QueryInterface(IID_IVnLinkhostExtendable, reinterpret_cast<void**>(&extendable));
        if (FAILED(hr))
            return hr;
        extendable->AddEventSink(this);
        extendable->AddExtensionInterface(&IID_VnTestExtension, static_cast<IVnLinkhostEventSink*>(this));
        IUnknown* unknown = nullptr;
        ILogger* logger = nullptr;
        BSTR name = SysAllocString(L"TestPlugin"), line = SysAllocString(L"initialised");
        if (SUCCEEDED(extendable->CreateLogger(name, &unknown)) &&
            SUCCEEDED(unknown->QueryInterface(IID_ILogger, reinterpret_cast<void**>(&logger)))) {
            logger->WriteLine(line);
            logger->Release();
        }
        if (unknown)
            unknown->Release();
        SysFreeString(name);
        SysFreeString(line);
        extendable->Release();
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
        char events[4096] = {};
        DWORD size = sizeof events;
        RegGetValueA(HKEY_CURRENT_USER, kVnTestKey, "Events", RRF_RT_REG_SZ, nullptr, events, &size);
        const int used = std::min(lstrlenA(events), 4000);
        wsprintfA(events + used, "%ld:%ld;", static_cast<long>(type), parameter.vt == VT_I4 ? parameter.lVal : -1L);
        RegSetKeyValueA(HKEY_CURRENT_USER, kVnTestKey, "Events", REG_SZ, events, lstrlenA(events) + 1);
        if (result)
            *result = static_cast<VnLinkhostEventResult>(Setting("SinkAnswer", 0));
        return static_cast<HRESULT>(Setting("SinkStatus", S_OK));
    }

private:
    std::atomic<ULONG> m_ref{1};
};

class Factory : public IClassFactory {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        *ppv = iid == IID_IUnknown || iid == IID_IClassFactory ? this : nullptr;
        return *ppv ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** ppv) override
    {
        if (outer)
            return CLASS_E_NOAGGREGATION;
        Plugin* plugin = new Plugin;
        HRESULT hr = plugin->QueryInterface(iid, ppv);
        plugin->Release();
        return hr;
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }
} g_factory;

}  // namespace

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)
{
    return clsid == CLSID_VnTestPlugin ? g_factory.QueryInterface(iid, ppv) : CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" HRESULT WINAPI DllCanUnloadNow() { return g_objects == 0 ? S_OK : S_FALSE; }
