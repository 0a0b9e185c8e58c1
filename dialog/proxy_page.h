// The page "Proxyeinstellungen": how the system reaches a proxy. It edits
// the sheet's working copy of the configuration record.
#pragma once

#include "vfc/property_page.h"

template <class TData>
class CVnLinkhostPropertySheet_Proxy : public vfc::TPropertyPage {
public:
    CVnLinkhostPropertySheet_Proxy(TData* data, const std::string& title);

    // Fills the controls from the record (`save` false) or reads them into it;
    // `controlId` -1 for all, else that control. Stops at the first failure.
    bool Exchange(bool save, int controlId);
    // Enables the mode buttons and, by the mode, the manual or the script group.
    void UpdateProxyControls(bool enable, int mode);

protected:
    BOOL OnInitDialog() override;
    void OnCommand(int id, int code) override;
    LRESULT OnNotify(const NMHDR& header) override;

private:
    bool ExchangePort(bool save);

    TData* m_pData;
};
