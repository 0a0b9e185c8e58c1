#include "dialog/proxy_page.h"

#include "dialog/dialog_ids.h"
#include "dialog/system_dialogs.h"
#include "res/resource.h"
#include "settings/config_data.h"

namespace {

const int kManualGroup[] = {IDC_ADDRESS_LABEL, IDC_ADDRESS, IDC_PORT_LABEL, IDC_PORT, IDC_EXCLUDE_LABEL,
                            IDC_EXCLUDE, IDC_EXAMPLE, IDC_NO_LOCAL};
const int kScriptGroup[] = {IDC_SCRIPT_LABEL, IDC_SCRIPT};

}  // namespace

template <class TData>
CVnLinkhostPropertySheet_Proxy<TData>::CVnLinkhostPropertySheet_Proxy(TData* data, const std::string& title)
    : vfc::TPropertyPage(IDD_PROXY_PAGE, title), m_pData(data)
{
}

template <class TData>
bool CVnLinkhostPropertySheet_Proxy<TData>::Exchange(bool save, int controlId)
{
    TData& data = *m_pData;
    auto wanted = [controlId](int id) { return controlId == -1 || controlId == id; };
    auto text = [&](int id, std::string& field) {
        if (wanted(id))
            save ? void(field = Text(id)) : SetText(id, field);
    };
    auto check = [&](int id, bool& field) {
        if (wanted(id))
            save ? void(field = Checked(id)) : Check(id, field);
    };
    check(IDC_USE_SYSTEM, data.m_UseSystemProxy);
    if (wanted(IDC_MODE_NONE)) {
        if (!save) {
            for (int i = 0; i < 4; ++i)
                Check(IDC_MODE_NONE + i, data.m_ProxyMode == i);
        }
        for (int i = 0; save && i < 4; ++i) {
            if (Checked(IDC_MODE_NONE + i))
                data.m_ProxyMode = i;
        }
    }
    text(IDC_ADDRESS, data.m_ProxyAddress);
    if (wanted(IDC_PORT) && !ExchangePort(save))
        return false;
    text(IDC_EXCLUDE, data.m_ProxyExclude);
    check(IDC_NO_LOCAL, data.m_ProxyNoLocal);
    text(IDC_SCRIPT, data.m_ProxyScript);
    return true;
}

// A port that is no number from 1 to 65535 is mended to 80, with a message.
template <class TData>
bool CVnLinkhostPropertySheet_Proxy<TData>::ExchangePort(bool save)
{
    if (!save) {
        ::SetDlgItemInt(m_hWnd, IDC_PORT, static_cast<UINT>(m_pData->m_ProxyPort), FALSE);
        return true;
    }
    BOOL ok = FALSE;
    const UINT port = ::GetDlgItemInt(m_hWnd, IDC_PORT, &ok, FALSE);
    if (ok && port >= 1 && port <= 65535) {
        m_pData->m_ProxyPort = static_cast<int>(port);
        return true;
    }
    char message[256] = {};
    ::LoadStringA(::GetModuleHandleA(nullptr), IDS_BAD_PORT, message, sizeof message);
    ::MessageBoxA(m_hWnd, message, nullptr, MB_ICONEXCLAMATION);
    ::SetDlgItemInt(m_hWnd, IDC_PORT, 80, FALSE);
    ::SetFocus(Item(IDC_PORT));
    return false;
}

template <class TData>
void CVnLinkhostPropertySheet_Proxy<TData>::UpdateProxyControls(bool enable, int mode)
{
    for (int id = IDC_MODE_NONE; id <= IDC_MODE_SCRIPT; ++id)
        Enable(id, enable);
    if (enable && (mode < 0 || mode > 3))
        return;  // an unknown mode leaves both groups as they are
    const bool manual = enable && mode == 2, script = enable && mode == 3;
    for (int id : kManualGroup)
        Enable(id, manual);
    for (int id : kScriptGroup)
        Enable(id, script);
}

template <class TData>
BOOL CVnLinkhostPropertySheet_Proxy<TData>::OnInitDialog()
{
    Exchange(false, -1);
    ::SendDlgItemMessageA(m_hWnd, IDC_PORT, EM_LIMITTEXT, 5, 0);
    ::SendDlgItemMessageA(m_hWnd, IDC_ADDRESS, EM_LIMITTEXT, 256, 0);
    return TRUE;
}

template <class TData>
void CVnLinkhostPropertySheet_Proxy<TData>::OnCommand(int id, int code)
{
    switch (id) {
    case IDC_USE_SYSTEM:
    case IDC_MODE_NONE:
    case IDC_MODE_AUTO:
    case IDC_MODE_MANUAL:
    case IDC_MODE_SCRIPT:
    case IDC_NO_LOCAL:
        if (code == BN_CLICKED) {
            Exchange(true, -1);
            UpdateProxyControls(!m_pData->m_UseSystemProxy, m_pData->m_ProxyMode);
            SetModified(true);
        }
        break;
    case IDC_ADDRESS:
    case IDC_PORT:
    case IDC_EXCLUDE:
    case IDC_SCRIPT:
        // Only typing writes through: filling the fields from the record does not mark the page.
        if (code == EN_CHANGE && ::GetFocus() == Item(id)) {
            Exchange(true, id);
            SetModified(true);
        }
        break;
    case IDC_SYSTEM_SETTINGS:
        if (code == BN_CLICKED)
            OpenInternetOptions(m_hWnd);
        break;
    default:
        break;
    }
}

template <class TData>
LRESULT CVnLinkhostPropertySheet_Proxy<TData>::OnNotify(const NMHDR& header)
{
    switch (header.code) {
    case PSN_SETACTIVE:
        Exchange(false, -1);
        UpdateProxyControls(!m_pData->m_UseSystemProxy, m_pData->m_ProxyMode);
        return 0;
    case PSN_APPLY:
        return Exchange(true, -1) ? PSNRET_NOERROR : PSNRET_INVALID;
    default:
        return 0;
    }
}

template class CVnLinkhostPropertySheet_Proxy<CConfigData>;
