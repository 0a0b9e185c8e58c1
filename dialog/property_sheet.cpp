#include "dialog/property_sheet.h"

#include <prsht.h>

#include "host/log.h"
#include "res/resource.h"

namespace {

// The sheet is made with a callback; it leaves every stage as the platform has it.
int CALLBACK SheetCallback(HWND, UINT, LPARAM) { return 0; }

// A blank record: empty texts, port 1, dialling when needed.
CConfigData BlankRecord()
{
    CConfigData data;
    data.m_ProxyPort = 1;
    data.m_DialMode = DialRequired;
    return data;
}

}  // namespace

CVnLinkhostPropertySheet::CVnLinkhostPropertySheet()
    : m_data(BlankRecord()),
      m_proxyPage(&m_data, "Proxyeinstellungen"),
      m_connectionPage(&m_data, "Verbindungen"),
      m_pages{{-300, &m_proxyPage}, {-200, &m_connectionPage}}
{
}

INT_PTR CVnLinkhostPropertySheet::ShowSheet(HWND parent)
{
    INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_TREEVIEW_CLASSES | ICC_STANDARD_CLASSES};
    ::InitCommonControlsEx(&controls);
    std::vector<HPROPSHEETPAGE> pages;
    for (auto& entry : m_pages) {
        // A page that can't be made is left out.
        if (HPROPSHEETPAGE page = ::CreatePropertySheetPageA(&entry.second->Record()))
            pages.push_back(page);
    }
    char title[128] = {};
    ::LoadStringA(::GetModuleHandleA(nullptr), IDS_SHEET_TITLE, title, sizeof title);
    PROPSHEETHEADERA header = {};
    header.dwSize = sizeof header;
    header.dwFlags = PSH_USECALLBACK;
    header.hwndParent = parent;
    header.hInstance = ::GetModuleHandleA(nullptr);
    header.pszCaption = title;
    header.nPages = static_cast<UINT>(pages.size());
    header.phpage = pages.data();
    header.pfnCallback = &SheetCallback;
    return ::PropertySheetA(&header);
}

HRESULT CVnLinkhostPropertySheet::InsertCustomPage(IPropertyPage* page, const std::string& title, int positionHint)
{
    const char* const method = "CVnLinkhostPropertySheet::InsertCustomPage";
    auto wrapper = std::make_unique<CVnLinkhostPropertySheet_Plugin>();
    HRESULT hr = wrapper->InitPlugin(page, title);
    if (FAILED(hr)) {
        LogLine(vn_log::kErrorDec, method, "m_CVnLinkhostPropertySheet_Plugin.InitPlugin failed.", static_cast<int>(hr));
        return hr;
    }
    // The first page at a hint holds; a later one is kept with the sheet but never shown.
    if (!m_pages.emplace(positionHint, wrapper.get()).second)
        LogLine(vn_log::kError, method, "InsertPageObject(iPositionHint, *pPlugin) failed.");
    m_pluginPages.push_back(std::move(wrapper));
    return hr;
}
