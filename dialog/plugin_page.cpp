#include "dialog/plugin_page.h"

#include "dialog/dialog_ids.h"
#include "host/log.h"

namespace {

const char* const kShow = "CVnLinkhostPropertySheet::CVnLinkhostPropertySheet_Plugin::ShowPlugin";
const char* const kHide = "CVnLinkhostPropertySheet::CVnLinkhostPropertySheet_Plugin::HidePlugin";

}  // namespace

STDMETHODIMP CVnLinkhostPropertyPageSite::OnStatusChange(DWORD flags)
{
    if (m_page)
        vfc::SetPageModified(m_page, flags == PROPPAGESTATUS_DIRTY);
    return S_OK;
}

CVnLinkhostPropertySheet_Plugin::CVnLinkhostPropertySheet_Plugin() : vfc::TPropertyPage(IDD_PLUGIN_PAGE, "Plugin") {}

HRESULT CVnLinkhostPropertySheet_Plugin::InitPlugin(IPropertyPage* page, const std::string& title)
{
    if (!page) {
        LogLine(vn_log::kError, "CVnLinkhostPropertySheet::CVnLinkhostPropertySheet_Plugin::InitPlugin",
                "Invalid page pointer.");
        return E_POINTER;
    }
    m_spVnPlugin = page;
    SetTitle(title);
    return S_OK;
}

HRESULT CVnLinkhostPropertySheet_Plugin::ShowPlugin()
{
    if (!m_spVnPlugin) {
        LogLine(vn_log::kError, kShow, "Invelid plugin pointer.");
        return E_POINTER;
    }
    RECT area = {};
    if (!::GetWindowRect(m_hWnd, &area) || !::ScreenToClient(m_hWnd, reinterpret_cast<POINT*>(&area.left)) ||
        !::ScreenToClient(m_hWnd, reinterpret_cast<POINT*>(&area.right))) {
        LogLine(vn_log::kError, kShow, "GetWindowRect failed.");
        return E_FAIL;
    }
    vfc::TComPtr<CVnLinkhostPropertyPageSite> site;
    HRESULT hr = vfc::CreateInto(site);
    if (SUCCEEDED(hr) && site)
        site->SetPage(m_hWnd);
    else
        LogLine(vn_log::kErrorDec, kShow, "spVnLinkhostPropertyPageSite.CreateInstance failed.", static_cast<int>(hr));
    hr = m_spVnPlugin->SetPageSite(site.get());
    if (FAILED(hr))
        LogLine(vn_log::kErrorDec, kShow, "m_spVnPlugin->SetPageSite failed.", static_cast<int>(hr));
    hr = m_spVnPlugin->Activate(m_hWnd, &area, FALSE);
    if (FAILED(hr)) {
        LogLine(vn_log::kErrorDec, kShow, "m_spVnPlugin->Activate failed.", static_cast<int>(hr));
        return hr;
    }
    hr = m_spVnPlugin->Show(SW_SHOW);
    if (FAILED(hr))
        LogLine(vn_log::kErrorDec, kShow, "m_spVnPlugin->Show failed.", static_cast<int>(hr));
    return hr;
}

HRESULT CVnLinkhostPropertySheet_Plugin::HidePlugin()
{
    if (!m_spVnPlugin) {
        LogLine(vn_log::kError, kHide, "Invalid plugin pointer.");
        return E_POINTER;
    }
    HRESULT hr = m_spVnPlugin->SetPageSite(nullptr);
    if (FAILED(hr))
        LogLine(vn_log::kErrorDec, kHide, "m_spVnPlugin->SetPageSite failed.", static_cast<int>(hr));
    hr = m_spVnPlugin->Deactivate();
    if (FAILED(hr))
        LogLine(vn_log::kErrorDec, kHide, "m_spVnPlugin->Deactivate failed.", static_cast<int>(hr));
    return hr;
}

BOOL CVnLinkhostPropertySheet_Plugin::OnInitDialog()
{
    ShowPlugin();
    return TRUE;
}

void CVnLinkhostPropertySheet_Plugin::OnDestroy() { HidePlugin(); }

LRESULT CVnLinkhostPropertySheet_Plugin::OnNotify(const NMHDR& header)
{
    if (header.code != PSN_APPLY || !m_spVnPlugin)
        return 0;
    if (m_spVnPlugin->IsPageDirty() != S_OK)
        return 0;
    return m_spVnPlugin->Apply();
}
