// The page "Verbindungen": whether and what the system dials. It edits the
// sheet's working copy of the configuration record and lists the platform's
// dial-up entries in a tree.
#pragma once

#include <string>
#include <vector>

#include "vfc/property_page.h"
#include "vfc/unique_resource.h"

template <class TData>
class CVnLinkhostPropertySheet_Connection : public vfc::TPropertyPage {
public:
    CVnLinkhostPropertySheet_Connection(TData* data, const std::string& title);

    bool Exchange(bool save, int controlId);
    // Lists the entries anew, selects the default one and sets the enabling.
    void FillConnections();
    void UpdateConnectionControls(bool enable);

protected:
    BOOL OnInitDialog() override;
    void OnCommand(int id, int code) override;
    LRESULT OnNotify(const NMHDR& header) override;
    bool OnMessage(UINT message, WPARAM wParam, LPARAM lParam) override;

private:
    int ItemCount() const;
    void ShowDefault();

    TData* m_pData;
    HWND m_tree = nullptr;
    HWND m_default = nullptr;
    std::vector<std::string> m_entries;
    vfc::TImageList m_images;
};
