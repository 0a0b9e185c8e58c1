// Plug-ins: the walk over the plug-in category and what a plug-in may
// register while it initialises.
#include "host/root_object.h"

#include "dialog/property_sheet.h"

#include <comcat.h>
#include <ocidl.h>

#include "host/identities.h"
#include "host/log.h"
#include "host/logger.h"
#include "vfc/bstr.h"
#include "vfc/text.h"

namespace {

const char* const kLoadMethod = "CVnLinkhostObject::LoadCategoryObjects";

void LogLoadError(const char* message, HRESULT hr)
{
    LogLine(vn_log::kErrorDec, kLoadMethod, message, static_cast<int>(hr));
}

// The plug-in's answer to a query, as text; empty when it has none.
std::string PluginInfo(IVnLinkhostPlugin* plugin, const wchar_t* query, const char* failure)
{
    vfc::TVariant question(query), answer;
    HRESULT hr = plugin->GetInfo(*question, answer.get());
    if (FAILED(hr)) {
        LogLine(vn_log::kErrorHex, kLoadMethod, failure, static_cast<unsigned>(hr));
        return {};
    }
    if (FAILED(::VariantChangeType(answer.get(), answer.get(), 0, VT_BSTR)) || !answer->bstrVal)
        return {};
    return vfc::Narrow(answer->bstrVal, ::SysStringLen(answer->bstrVal));
}

}  // namespace

HRESULT CVnLinkhostObject::LoadCategoryObjects()
{
    vfc::TComPtr<ICatInformation> categories;
    HRESULT hr = ::CoCreateInstance(CLSID_StdComponentCategoriesMgr, nullptr, CLSCTX_ALL, IID_ICatInformation,
                                    categories.put_void());
    if (FAILED(hr)) {
        LogLoadError("Fail to create instance of CLSID_StdComponentCategoriesMgr.", hr);
        return hr;
    }
    CATID category = vn_id::kPluginCategory;
    vfc::TComPtr<IEnumCLSID> classes;
    hr = categories->EnumClassesOfCategories(1, &category, 0, nullptr, classes.put());
    if (FAILED(hr)) {
        LogLoadError("EnumClassesOfCategories failed.", hr);
        return hr;
    }
    LogLine("Plugins found: ");
    for (;;) {
        CLSID clsid;
        hr = classes->Next(1, &clsid, nullptr);
        if (hr != S_OK)
            return hr;
        vfc::TComPtr<IVnLinkhostPlugin> plugin;
        hr = ::CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IVnLinkhostPlugin, plugin.put_void());
        if (FAILED(hr)) {
            // A broken plug-in keeps those behind it from loading.
            LogLoadError("Fail to create plugin object.", hr);
            return hr;
        }
        vfc::TComPtr<IVnLinkhost> host;
        hr = QueryInterface(IID_IVnLinkhost, host.put_void());
        if (FAILED(hr)) {
            LogLoadError("this->QueryInterface(IID_IVnLinkhost, (void**)&pVnLinkhost) failed.", hr);
            return hr;
        }
        hr = plugin->Initialize(host.get());
        if (FAILED(hr)) {
            LogLoadError("pVnLinkhostPlugin->Initialize(pVnLinkhost) failed.", hr);
            return hr;
        }
        std::string version = PluginInfo(plugin.get(), L"Version", "spVnLinkhostPlugin->GetInfo fail to get plugin Version.");
        std::string name = PluginInfo(plugin.get(), L"Name_DE-DE", "spVnLinkhostPlugin->GetInfo fail to get plugin Name.");
        LogLine("  %-30s\t%s", name.c_str(), version.c_str());
    }
}

STDMETHODIMP CVnLinkhostObject::XVnLinkhostExtendable::AddPropertyPage(IPropertyPage* page, int positionHint)
{
    if (m_outer.m_bExtensionsClosed)
        return E_UNEXPECTED;
    if (!page)
        return E_INVALIDARG;
    PROPPAGEINFO info = {};
    info.cb = sizeof info;
    HRESULT hr = page->GetPageInfo(&info);
    if (FAILED(hr)) {
        LogLine(vn_log::kErrorDec, "CVnLinkhostObject::AddPropertyPage", "Fail to get page info.", static_cast<int>(hr));
        return hr;
    }
    const std::string title = info.pszTitle ? vfc::Narrow(std::wstring(info.pszTitle)) : std::string();
    ::CoTaskMemFree(info.pszTitle);
    ::CoTaskMemFree(info.pszDocString);
    ::CoTaskMemFree(info.pszHelpFile);
    return m_outer.m_pSheet->InsertCustomPage(page, title, positionHint);
}

STDMETHODIMP CVnLinkhostObject::XVnLinkhostExtendable::AddEventSink(IVnLinkhostEventSink* sink)
{
    return m_outer.AddEventSink(sink);
}

STDMETHODIMP CVnLinkhostObject::XVnLinkhostExtendable::AddExtensionInterface(const GUID* id, IUnknown* object)
{
    return m_outer.AddExtensionInterface(id, object);
}

STDMETHODIMP CVnLinkhostObject::XVnLinkhostExtendable::CreateLogger(BSTR name, IUnknown** logger)
{
    if (m_outer.m_bExtensionsClosed)
        return E_UNEXPECTED;
    if (!logger)
        return E_POINTER;
    *logger = nullptr;
    vfc::TComPtr<CVnLogger> created;
    HRESULT hr = vfc::CreateInto(created);
    if (FAILED(hr))
        return hr;
    hr = created->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(logger));
    if (FAILED(hr))
        return hr;
    created->SetName(vfc::Narrow(name ? name : L"", ::SysStringLen(name)));
    return S_OK;
}
