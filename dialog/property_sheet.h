// The configuration dialog "Internetoptionen": a modal property sheet over a
// working copy of the configuration record, with the proxy page, the
// connection page and the pages that plug-ins add, ordered by position hint.
#pragma once

#include <ocidl.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dialog/connection_page.h"
#include "dialog/plugin_page.h"
#include "dialog/proxy_page.h"
#include "settings/config_data.h"

class CVnLinkhostPropertySheet {
public:
    CVnLinkhostPropertySheet();

    // The record that the pages edit; the caller fills it before showing.
    CConfigData& WorkingCopy() { return m_data; }

    // Shows the sheet modally; 1 when a page was applied.
    INT_PTR ShowSheet(HWND parent);

    // Wraps a plug-in's page and enters it at `positionHint`; a hint that is
    // taken leaves the page out and still succeeds.
    HRESULT InsertCustomPage(IPropertyPage* page, const std::string& title, int positionHint);

private:
    CConfigData m_data;
    CVnLinkhostPropertySheet_Proxy<CConfigData> m_proxyPage;
    CVnLinkhostPropertySheet_Connection<CConfigData> m_connectionPage;
    std::vector<std::unique_ptr<CVnLinkhostPropertySheet_Plugin>> m_pluginPages;
    std::map<int, vfc::TPropertyPage*> m_pages;
};
