#include "vfc/property_page.h"

#include <prsht.h>

namespace vfc {

TPropertyPage::TPropertyPage(UINT dialogId, const std::string& title)
{
    m_psp.dwSize = sizeof m_psp;
    m_psp.hInstance = ::GetModuleHandleA(nullptr);
    m_psp.pszTemplate = MAKEINTRESOURCEA(dialogId);
    m_psp.pfnDlgProc = &TPropertyPage::DialogProc;
    m_psp.lParam = reinterpret_cast<LPARAM>(this);
    SetTitle(title);
}

void TPropertyPage::SetTitle(const std::string& title)
{
    m_title = title;
    m_psp.pszTitle = m_title.c_str();
    m_psp.dwFlags |= PSP_USETITLE;
}

std::string TPropertyPage::Text(int id) const
{
    const HWND item = Item(id);
    std::string text(static_cast<size_t>(::GetWindowTextLengthA(item)) + 1, '\0');
    text.resize(static_cast<size_t>(::GetWindowTextA(item, &text[0], static_cast<int>(text.size()))));
    return text;
}

void TPropertyPage::SetModified(bool changed) const { SetPageModified(m_hWnd, changed); }

void SetPageModified(HWND page, bool changed)
{
    ::SendMessageA(::GetParent(page), changed ? PSM_CHANGED : PSM_UNCHANGED, reinterpret_cast<WPARAM>(page), 0);
}

INT_PTR CALLBACK TPropertyPage::DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    // The sheet hands over its own copy of the record, whose lParam is the page object.
    if (message == WM_INITDIALOG) {
        auto* page = reinterpret_cast<TPropertyPage*>(reinterpret_cast<const PROPSHEETPAGEA*>(lParam)->lParam);
        ::SetWindowLongPtrA(window, DWLP_USER, reinterpret_cast<LONG_PTR>(page));
        page->m_hWnd = window;
        return page->OnInitDialog();
    }
    auto* page = reinterpret_cast<TPropertyPage*>(::GetWindowLongPtrA(window, DWLP_USER));
    if (!page)
        return FALSE;
    switch (message) {
    case WM_COMMAND:
        page->OnCommand(LOWORD(wParam), HIWORD(wParam));
        return TRUE;
    case WM_NOTIFY:
        ::SetWindowLongPtrA(window, DWLP_MSGRESULT, page->OnNotify(*reinterpret_cast<const NMHDR*>(lParam)));
        return TRUE;
    case WM_DESTROY:
        page->OnDestroy();
        page->m_hWnd = nullptr;
        ::SetWindowLongPtrA(window, DWLP_USER, 0);
        return FALSE;
    default:
        return page->OnMessage(message, wParam, lParam);
    }
}

}  // namespace vfc
