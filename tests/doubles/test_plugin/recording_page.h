// A plug-in's property page that records what the sheet asks of it. With a
// title it answers GetPageInfo and shows that title as a line of text.
#pragma once

#include <windows.h>
#include <ocidl.h>
#include <olectl.h>

#include <string>
#include <utility>

#include "vfc/com_object.h"
#include "vfc/com_ptr.h"

class TRecordingPage : public vfc::TComObject<TRecordingPage, IPropertyPage> {
public:
    std::wstring title;
    std::string calls;
    HRESULT dirty = S_FALSE;
    vfc::TComPtr<IPropertyPageSite> site;

    STDMETHODIMP SetPageSite(IPropertyPageSite* s) override { calls += s ? "site;" : "nosite;"; site = s; return S_OK; }
    STDMETHODIMP Activate(HWND parent, LPCRECT rect, BOOL) override
    {
        calls += parent ? "activate;" : "activate-null;";
        if (parent && rect && !title.empty())
            m_window = ::CreateWindowExW(0, L"STATIC", title.c_str(), WS_CHILD | WS_VISIBLE, rect->left, rect->top,
                                         rect->right - rect->left, rect->bottom - rect->top, parent, nullptr, nullptr, nullptr);
        return S_OK;
    }
    STDMETHODIMP Deactivate() override { calls += "deactivate;"; ::DestroyWindow(std::exchange(m_window, nullptr)); return S_OK; }
    STDMETHODIMP GetPageInfo(PROPPAGEINFO* info) override
    {
        if (title.empty())
            return E_NOTIMPL;
        const size_t bytes = (title.size() + 1) * sizeof(wchar_t);
        info->pszTitle = static_cast<LPOLESTR>(::CoTaskMemAlloc(bytes));
        if (!info->pszTitle)
            return E_OUTOFMEMORY;
        ::CopyMemory(info->pszTitle, title.c_str(), bytes);
        info->size = SIZE{240, 120};
        return S_OK;
    }
    STDMETHODIMP SetObjects(ULONG, IUnknown**) override { calls += "objects;"; return S_OK; }
    STDMETHODIMP Show(UINT show) override { calls += "show" + std::to_string(show) + ";"; return S_OK; }
    STDMETHODIMP Move(LPCRECT) override { calls += "move;"; return S_OK; }
    STDMETHODIMP IsPageDirty() override { calls += "dirty?;"; return dirty; }
    STDMETHODIMP Apply() override { calls += "apply;"; return S_OK; }
    STDMETHODIMP Help(LPCOLESTR) override { return S_OK; }
    STDMETHODIMP TranslateAccelerator(MSG*) override { return S_FALSE; }

private:
    HWND m_window = nullptr;
};
