#include "dialog/connection_page.h"

#include "dialog/dialog_ids.h"
#include "dialog/system_dialogs.h"
#include "res/resource.h"
#include "settings/config_data.h"
#include "settings/connection_manager.h"

template <class TData>
CVnLinkhostPropertySheet_Connection<TData>::CVnLinkhostPropertySheet_Connection(TData* data, const std::string& title)
    : vfc::TPropertyPage(IDD_CONNECTION_PAGE, title), m_pData(data)
{
}

template <class TData>
bool CVnLinkhostPropertySheet_Connection<TData>::Exchange(bool save, int controlId)
{
    auto wanted = [controlId](int id) { return controlId == -1 || controlId == id; };
    if (wanted(IDC_USE_SYSTEM))
        save ? void(m_pData->m_UseSystemConnection = Checked(IDC_USE_SYSTEM)) : Check(IDC_USE_SYSTEM, m_pData->m_UseSystemConnection);
    if (wanted(IDC_DIAL_NEVER)) {
        for (int i = 0; i < 3; ++i) {
            if (!save)
                Check(IDC_DIAL_NEVER + i, m_pData->m_DialMode == i);
            else if (Checked(IDC_DIAL_NEVER + i))
                m_pData->m_DialMode = i;
        }
    }
    if (wanted(IDC_ENTRIES))
        m_tree = Item(IDC_ENTRIES);
    if (wanted(IDC_DEFAULT_ENTRY))
        m_default = Item(IDC_DEFAULT_ENTRY);
    return true;
}

template <class TData>
int CVnLinkhostPropertySheet_Connection<TData>::ItemCount() const
{
    return static_cast<int>(::SendMessageA(m_tree, TVM_GETCOUNT, 0, 0));
}

template <class TData>
void CVnLinkhostPropertySheet_Connection<TData>::ShowDefault()
{
    std::string shown = m_pData->m_DefaultConnection;
    if (shown.empty()) {
        char none[64] = {};
        ::LoadStringA(::GetModuleHandleA(nullptr), IDS_NO_CONNECTION, none, sizeof none);
        shown = none;
    }
    ::SetWindowTextA(m_default, shown.c_str());
}

template <class TData>
void CVnLinkhostPropertySheet_Connection<TData>::FillConnections()
{
    m_entries.clear();
    CVnLinkhostConnectionManager().GetConnections(m_entries);
    ::SendMessageA(m_tree, TVM_DELETEITEM, 0, reinterpret_cast<LPARAM>(TVI_ROOT));
    for (const std::string& name : m_entries) {
        TVINSERTSTRUCTA insert = {};
        insert.hParent = TVI_ROOT;
        insert.hInsertAfter = TVI_LAST;
        insert.item.mask = TVIF_TEXT | TVIF_IMAGE | TVIF_SELECTEDIMAGE;
        insert.item.pszText = const_cast<char*>(name.c_str());
        auto item = reinterpret_cast<HTREEITEM>(::SendMessageA(m_tree, TVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&insert)));
        if (item && name == m_pData->m_DefaultConnection)
            ::SendMessageA(m_tree, TVM_SELECTITEM, TVGN_CARET, reinterpret_cast<LPARAM>(item));
    }
    if (ItemCount() > 0) {
        if (!::SendMessageA(m_tree, TVM_GETNEXTITEM, TVGN_CARET, 0))
            ::SendMessageA(m_tree, TVM_SELECTITEM, TVGN_CARET, ::SendMessageA(m_tree, TVM_GETNEXTITEM, TVGN_ROOT, 0));
        Enable(IDC_SET_DEFAULT, ::IsWindowEnabled(m_tree) != FALSE);
    } else {
        Enable(IDC_SET_DEFAULT, false);
    }
    ShowDefault();
    UpdateConnectionControls(!m_pData->m_UseSystemConnection);
}

template <class TData>
void CVnLinkhostPropertySheet_Connection<TData>::UpdateConnectionControls(bool enable)
{
    for (int id : {IDC_ENTRIES, IDC_CONNECTION_TEXT, IDC_WIZARD})
        Enable(id, enable);
    const bool withEntries = enable && ItemCount() > 0;
    for (int id : {IDC_SET_DEFAULT, IDC_DIAL_NEVER, IDC_DIAL_REQUIRED, IDC_DIAL_ALWAYS, IDC_DEFAULT_ENTRY})
        Enable(id, withEntries);
}

template <class TData>
BOOL CVnLinkhostPropertySheet_Connection<TData>::OnInitDialog()
{
    m_tree = m_default = nullptr;
    Exchange(false, -1);
    m_images.reset(::ImageList_LoadImageA(::GetModuleHandleA(nullptr), MAKEINTRESOURCEA(IDB_CONNECTIONS), 16, 1,
                                          CLR_NONE, IMAGE_BITMAP, LR_CREATEDIBSECTION));
    ::SendMessageA(m_tree, TVM_SETIMAGELIST, TVSIL_NORMAL, reinterpret_cast<LPARAM>(m_images.get()));
    return TRUE;
}

template <class TData>
void CVnLinkhostPropertySheet_Connection<TData>::OnCommand(int id, int code)
{
    if (code != BN_CLICKED)
        return;
    switch (id) {
    case IDC_USE_SYSTEM:
        Exchange(true, -1);
        UpdateConnectionControls(!m_pData->m_UseSystemConnection);
        SetModified(true);
        break;
    case IDC_DIAL_NEVER:
    case IDC_DIAL_REQUIRED:
    case IDC_DIAL_ALWAYS:
        Exchange(true, -1);
        SetModified(true);
        break;
    case IDC_SET_DEFAULT: {
        TVITEMA item = {};
        item.hItem = reinterpret_cast<HTREEITEM>(::SendMessageA(m_tree, TVM_GETNEXTITEM, TVGN_CARET, 0));
        if (!item.hItem)
            break;
        char text[260] = {};
        item.mask = TVIF_TEXT;
        item.pszText = text;
        item.cchTextMax = sizeof text;
        ::SendMessageA(m_tree, TVM_GETITEMA, 0, reinterpret_cast<LPARAM>(&item));
        m_pData->m_DefaultConnection = text;
        ShowDefault();
        SetModified(true);
        break;
    }
    case IDC_WIZARD:
        RunAndWait("rundll32.exe netshell.dll,StartNCW", m_hWnd);
        FillConnections();
        break;
    case IDC_SYSTEM_SETTINGS:
        OpenInternetOptions(m_hWnd);
        break;
    default:
        break;
    }
}

template <class TData>
LRESULT CVnLinkhostPropertySheet_Connection<TData>::OnNotify(const NMHDR& header)
{
    switch (header.code) {
    case PSN_SETACTIVE:
        Exchange(false, -1);
        FillConnections();
        return 0;
    case PSN_APPLY:
        // Without the standard connection there must be an entry to dial.
        if (!m_pData->m_UseSystemConnection && ItemCount() == 0)
            return PSNRET_INVALID;
        Exchange(true, -1);
        return PSNRET_NOERROR;
    default:
        return 0;
    }
}

template <class TData>
bool CVnLinkhostPropertySheet_Connection<TData>::OnMessage(UINT message, WPARAM, LPARAM)
{
    if (message != WM_VN_SYSTEM_DIALOG_CLOSED)
        return false;
    FillConnections();
    return true;
}

template class CVnLinkhostPropertySheet_Connection<CConfigData>;
