// A plug-in's own IPropertyPage, living inside an empty page of the sheet,
// and the site through which it tells the sheet that it has changes.
#pragma once

#include <ocidl.h>

#include "vfc/com_object.h"
#include "vfc/com_ptr.h"
#include "vfc/property_page.h"

class CVnLinkhostPropertyPageSite : public vfc::TComObject<CVnLinkhostPropertyPageSite, IPropertyPageSite> {
public:
    // Plug-ins may keep the site; it keeps no process alive.
    static constexpr bool LocksModule = false;

    void SetPage(HWND page) { m_page = page; }

    STDMETHODIMP OnStatusChange(DWORD flags) override;
    STDMETHODIMP GetLocaleID(LCID*) override { return S_OK; }
    STDMETHODIMP GetPageContainer(IUnknown**) override { return S_OK; }
    STDMETHODIMP TranslateAccelerator(MSG*) override { return S_OK; }

private:
    HWND m_page = nullptr;
};

class CVnLinkhostPropertySheet_Plugin : public vfc::TPropertyPage {
public:
    CVnLinkhostPropertySheet_Plugin();

    HRESULT InitPlugin(IPropertyPage* page, const std::string& title);

protected:
    BOOL OnInitDialog() override;
    void OnDestroy() override;
    LRESULT OnNotify(const NMHDR& header) override;

private:
    HRESULT ShowPlugin();
    HRESULT HidePlugin();

    vfc::TComPtr<IPropertyPage> m_spVnPlugin;
};
