#include "web/headers.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "host/log.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"
#include "web/header_text.h"

namespace {

bool IsEmptyText(const wchar_t* text) noexcept { return !text || !*text; }

// The platform's sort key of a name under the user's locale and no flags.
// Storing compares names as VarBstrCmp does with that locale and no flags,
// which finds two names equal exactly when these keys are equal: capitals
// differ, but a sharp s and "ss" match. Keyed so, a name is found without
// walking the list, and adding many headers stays linear.
bool SortKey(const wchar_t* name, std::string& key)
{
    const int size = ::LCMapStringW(LOCALE_USER_DEFAULT, LCMAP_SORTKEY, name, -1, nullptr, 0);
    if (size <= 0)
        return false;
    key.assign(static_cast<size_t>(size), '\0');
    return ::LCMapStringW(LOCALE_USER_DEFAULT, LCMAP_SORTKEY, name, -1, reinterpret_cast<LPWSTR>(&key[0]), size) == size;
}

// Equal without regard to the capitals A to Z; every other character must
// match exactly.
bool EqualsIgnoringAsciiCase(const wchar_t* a, const wchar_t* b) noexcept
{
    auto fold = [](wchar_t c) { return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - L'a' + L'A') : c; };
    for (; *a && *b; ++a, ++b) {
        if (fold(*a) != fold(*b))
            return false;
    }
    return *a == *b;
}

}  // namespace

CVnHTTPHeaders::CVnHTTPHeaders() : m_pList(new (std::nothrow) THeaderList) {}

CVnHTTPHeaders::~CVnHTTPHeaders() = default;

bool CVnHTTPHeaders::_findExact(const wchar_t* name, std::string& key, LONG& index) const
{
    index = -1;
    if (!SortKey(name, key))
        return false;
    const auto found = m_pList->positions.find(key);
    if (found != m_pList->positions.end())
        index = static_cast<LONG>(found->second);
    return true;
}

HRESULT CVnHTTPHeaders::AddHeader(const wchar_t* name, const wchar_t* value)
{
    if (IsEmptyText(name) || !m_pList)
        return S_FALSE;
    try {
        THeaderList& list = *m_pList;
        std::string key;
        LONG index = -1;
        if (!_findExact(name, key, index))
            return S_FALSE;
        if (index >= 0) {
            if (IsEmptyText(value)) {
                // Removing moves the later pairs up by one.
                list.names.erase(list.names.begin() + index);
                list.values.erase(list.values.begin() + index);
                list.positions.erase(key);
                for (auto& position : list.positions) {
                    if (position.second > static_cast<size_t>(index))
                        --position.second;
                }
                return S_OK;
            }
            vfc::TBstr replacement(value);
            if (!replacement.get())
                return S_FALSE;
            list.values[index] = std::move(replacement);
            return S_OK;
        }
        if (IsEmptyText(value))
            return S_FALSE;
        vfc::TBstr newName(name);
        vfc::TBstr newValue(value);
        if (!newName.get() || !newValue.get())
            return S_FALSE;
        // Both arrays and the positions grow by one, or none does.
        const size_t count = list.names.size();
        list.names.push_back(std::move(newName));
        try {
            list.values.push_back(std::move(newValue));
            list.positions.emplace(std::move(key), count);
        } catch (const std::bad_alloc&) {
            list.names.pop_back();
            if (list.values.size() > count)
                list.values.pop_back();
            throw;
        }
        return S_OK;
    } catch (const std::bad_alloc&) {
        return S_FALSE;
    }
}

HRESULT CVnHTTPHeaders::GetHeader(const wchar_t* name, BSTR* value) const
{
    if (!value)
        return S_FALSE;
    *value = nullptr;
    if (!m_pList || !name)
        return S_FALSE;
    for (size_t i = 0; i < m_pList->names.size(); ++i) {
        const BSTR stored = m_pList->names[i].get();
        if (stored && EqualsIgnoringAsciiCase(stored, name)) {
            *value = ::SysAllocStringLen(m_pList->values[i].get(), m_pList->values[i].length());
            return *value ? S_OK : S_FALSE;
        }
    }
    return S_FALSE;
}

HRESULT CVnHTTPHeaders::GetResultCode(LONG* code) const
{
    std::string line = m_tstrStatusLine;
    const size_t blank = line.find(' ');
    const long long i = blank == std::string::npos ? -1 : static_cast<long long>(blank);
    if (i + 3 >= static_cast<long long>(line.size())) {
        LogLine(vn_log::kError, "CVnHTTPHeaders::GetResultCode", "Fail to get result code.");
        return E_FAIL;
    }
    // Without a blank the line is read from its start, so a line of three
    // letters gives the number 0.
    line = vn_http::TrimWhiteSpace(line.substr(static_cast<size_t>(i + 1))).substr(0, 3);
    const LONG number = std::atol(line.c_str());
    if (code)
        *code = number;
    return number != 0 ? S_OK : S_FALSE;
}

HRESULT CVnHTTPHeaders::InitHeaders(const char* raw)
{
    if (m_pList) {
        m_pList->names.clear();
        m_pList->values.clear();
        m_pList->positions.clear();
    }
    if (!raw) {
        LogLine(vn_log::kError, "CVnHTTPHeaders::InitHeaders", "Headers buffer is empty.");
        return E_FAIL;
    }
    try {
        // Each pair goes through AddHeader, whose result is not needed: a
        // repeated name replaces the earlier value and an empty value removes it.
        vn_http::SplitRawHeaders(raw, m_tstrStatusLine, [this](const std::string& name, const std::string& value) {
            AddHeader(vfc::Widen(name).c_str(), vfc::Widen(value).c_str());
        });
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT CVnHTTPHeaders::GetHeadersAsText(std::string& text) const
{
    text.clear();
    try {
        for (size_t i = 0; m_pList && i < m_pList->names.size(); ++i) {
            text += vfc::Narrow(m_pList->names[i].str());
            text += ": ";
            text += vfc::Narrow(m_pList->values[i].str());
            text += "\r\n";
        }
        text += "\r\n";
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT CVnHTTPHeaders::GetStatusLine(std::string& text) const
{
    if (m_tstrStatusLine.empty()) {
        text.clear();
        return S_FALSE;
    }
    text = m_tstrStatusLine;
    return S_OK;
}

HRESULT CVnHTTPHeaders::CopyFrom(const CVnHTTPHeaders* other)
{
    if (!other || !other->m_pList)
        return E_INVALIDARG;
    try {
        // Built aside and then swapped in, so that a copy from itself keeps its pairs.
        std::unique_ptr<THeaderList> list(new THeaderList);
        list->names = other->m_pList->names;
        list->values = other->m_pList->values;
        list->positions = other->m_pList->positions;
        for (size_t i = 0; i < list->names.size(); ++i) {
            if (!list->names[i].get() || !list->values[i].get())
                return E_OUTOFMEMORY;
        }
        m_pList = std::move(list);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    m_iEnumPos = 0;
    return S_OK;
}

STDMETHODIMP CVnHTTPHeaders::Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched)
{
    if (pCeltFetched)
        *pCeltFetched = 0;
    if (!rgVar)
        return E_INVALIDARG;
    for (ULONG i = 0; i < celt; ++i)
        ::VariantClear(&rgVar[i]);
    const LONG count = static_cast<LONG>(GetCount());
    ULONG done = 0;
    while (done < celt && m_iEnumPos < count) {
        const size_t pos = static_cast<size_t>(m_iEnumPos);
        std::wstring text = m_pList->values[pos].str();
        text.insert(0, m_pList->names[pos].str() + L": ");
        BSTR item = ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        if (!item)
            return E_OUTOFMEMORY;
        rgVar[done].vt = VT_BSTR;
        rgVar[done].bstrVal = item;
        ++m_iEnumPos;
        ++done;
        if (pCeltFetched)  // filled, as the enumerator contract asks and callers read it
            *pCeltFetched = done;
    }
    return done == celt ? S_OK : S_FALSE;
}

STDMETHODIMP CVnHTTPHeaders::Skip(ULONG celt)
{
    const ULONGLONG target = static_cast<ULONGLONG>(m_iEnumPos) + celt;
    m_iEnumPos = static_cast<LONG>(std::min<ULONGLONG>(target, GetCount()));
    return S_OK;
}

STDMETHODIMP CVnHTTPHeaders::Reset()
{
    m_iEnumPos = 0;
    return S_OK;
}

STDMETHODIMP CVnHTTPHeaders::Clone(IEnumVARIANT** ppEnum)
{
    if (!ppEnum)
        return E_POINTER;
    *ppEnum = nullptr;
    vfc::TComPtr<CVnHTTPHeaders> copy;
    HRESULT hr = CVnHTTPHeaders::Create(copy.put());
    if (FAILED(hr))
        return hr;
    hr = copy->CopyFrom(this);
    if (FAILED(hr))
        return hr;
    *ppEnum = copy.detach();
    return S_OK;
}
