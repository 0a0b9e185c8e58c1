// Drives a shown "Internetoptionen" sheet from outside its thread, as a user
// would: pages, clicks, keystrokes into the focused field, the buttons.
#pragma once

#include <windows.h>
#include <commctrl.h>
#include <prsht.h>

#include <string>
#include <vector>

#include "common/test_util.h"

namespace vn_dialog_test {

inline HWND FindSheet(DWORD timeoutMs = 10000)
{
    HWND sheet = nullptr;
    vn_test::WaitUntil([&] { return (sheet = ::FindWindowA(nullptr, "Internetoptionen")) != nullptr; }, timeoutMs);
    return sheet;
}

struct TSheet {
    HWND window;
    HWND Page() const { return reinterpret_cast<HWND>(::SendMessageA(window, PSM_GETCURRENTPAGEHWND, 0, 0)); }
    HWND Item(int id) const { return ::GetDlgItem(Page(), id); }
    void Select(int index) const { ::SendMessageA(window, PSM_SETCURSEL, index, 0); }
    void Click(int id) const { ::SendMessageA(Item(id), BM_CLICK, 0, 0); }
    bool Checked(int id) const { return ::SendMessageA(Item(id), BM_GETCHECK, 0, 0) == BST_CHECKED; }
    bool Enabled(int id) const { return ::IsWindowEnabled(Item(id)) != FALSE; }
    bool ApplyEnabled() const { return ::IsWindowEnabled(::GetDlgItem(window, 0x3021)) != FALSE; }
    void Press(int button) const { ::PostMessageA(window, PSM_PRESSBUTTON, button, 0); }
    std::string Text(HWND item) const
    {
        char text[512] = {};
        ::SendMessageA(item, WM_GETTEXT, sizeof text, reinterpret_cast<LPARAM>(text));
        return text;
    }
    std::string Text(int id) const { return Text(Item(id)); }
    HWND TabControl() const { return reinterpret_cast<HWND>(::SendMessageA(window, PSM_GETTABCONTROL, 0, 0)); }
    int TabCount() const { return static_cast<int>(::SendMessageA(TabControl(), TCM_GETITEMCOUNT, 0, 0)); }
    // The tabs' titles in their order (of a sheet in this process: the
    // platform does not carry the text across processes).
    std::vector<std::string> Tabs() const
    {
        const HWND tabs = TabControl();
        std::vector<std::string> titles(static_cast<size_t>(TabCount()));
        for (size_t i = 0; i < titles.size(); ++i) {
            char text[128] = {};
            TCITEMA item = {};
            item.mask = TCIF_TEXT, item.pszText = text, item.cchTextMax = sizeof text;
            ::SendMessageA(tabs, TCM_GETITEMA, i, reinterpret_cast<LPARAM>(&item));
            titles[i] = text;
        }
        return titles;
    }
};

}  // namespace vn_dialog_test
