// A property-sheet page over a dialog template of this module: the page
// record that CreatePropertySheetPageA takes, and one dialog procedure that
// hands the page window's messages to the page object.
#pragma once

#include <string>

#include "vfc/unique_resource.h"  // the platform headers, in their one order

namespace vfc {

class TPropertyPage {
public:
    TPropertyPage(UINT dialogId, const std::string& title);
    virtual ~TPropertyPage() = default;
    TPropertyPage(const TPropertyPage&) = delete;
    TPropertyPage& operator=(const TPropertyPage&) = delete;

    // The record to create the page from; it points back at this object.
    PROPSHEETPAGEA& Record() { return m_psp; }
    void SetTitle(const std::string& title);
    HWND Window() const { return m_hWnd; }

protected:
    virtual BOOL OnInitDialog() { return TRUE; }
    virtual void OnCommand(int, int) {}
    // The answer to a notification, as the sheet reads it from DWLP_MSGRESULT.
    virtual LRESULT OnNotify(const NMHDR&) { return 0; }
    virtual bool OnMessage(UINT, WPARAM, LPARAM) { return false; }
    virtual void OnDestroy() {}

    HWND Item(int id) const { return ::GetDlgItem(m_hWnd, id); }
    void Enable(int id, bool on) const { ::EnableWindow(Item(id), on); }
    bool Checked(int id) const { return ::IsDlgButtonChecked(m_hWnd, id) == BST_CHECKED; }
    void Check(int id, bool on) const { ::CheckDlgButton(m_hWnd, id, on ? BST_CHECKED : BST_UNCHECKED); }
    std::string Text(int id) const;
    void SetText(int id, const std::string& text) const { ::SetDlgItemTextA(m_hWnd, id, text.c_str()); }
    // Sends PSM_CHANGED or PSM_UNCHANGED for this page to its sheet.
    void SetModified(bool changed) const;

    HWND m_hWnd = nullptr;

private:
    static INT_PTR CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    PROPSHEETPAGEA m_psp = {};
    std::string m_title;
};

// PSM_CHANGED or PSM_UNCHANGED for the page window `page` to its sheet.
void SetPageModified(HWND page, bool changed);

}  // namespace vfc
