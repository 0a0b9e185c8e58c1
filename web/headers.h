// CVnHTTPHeaders: the one container of HTTP header fields of the system.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/counters.h"
#include "vfc/bstr.h"
#include "vfc/com_object.h"

// An ordered list of name and value pairs, in the order of first insertion,
// plus the status line of a response. Clients enumerate it through
// IEnumVARIANT, one "name: value" text per pair; inside the process it is a
// plain collection.
//
// Storing compares names exactly and lookup without regard to the capitals
// A to Z, so two names that differ only in capitals can stand side by side
// and lookup finds the first.
//
// There is no lock: a request's headers are touched by the client's calls
// alone, and a result's are written once inside Execute, before the client
// gets the result.
class CVnHTTPHeaders : public vfc::TComObject<CVnHTTPHeaders, IEnumVARIANT> {
public:
    CVnHTTPHeaders();
    ~CVnHTTPHeaders() override;

    // IEnumVARIANT.
    STDMETHODIMP Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) override;
    STDMETHODIMP Skip(ULONG celt) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumVARIANT** ppEnum) override;

    // Adds, replaces (an existing name with a value), or removes (an
    // existing name with an empty value) one pair. S_OK, or S_FALSE when
    // nothing was done: an empty name, or an empty value for an absent name.
    // Null counts as empty.
    HRESULT AddHeader(const wchar_t* name, const wchar_t* value);
    // A copy of the value of the first pair whose name matches; S_FALSE and
    // null without one. The caller owns the text.
    HRESULT GetHeader(const wchar_t* name, BSTR* value) const;
    // The status code from the status line: S_OK for a code, S_FALSE when
    // the three characters read as 0, E_FAIL when the line is too short.
    HRESULT GetResultCode(LONG* code) const;
    // Empties the list and fills it from a raw block of header lines, such as
    // the platform's raw header text; the first line is the status line.
    HRESULT InitHeaders(const char* raw);
    // Every pair as "name: value" CR LF, and one more CR LF behind the last.
    HRESULT GetHeadersAsText(std::string& text) const;
    // S_FALSE and an empty text when there is no status line.
    HRESULT GetStatusLine(std::string& text) const;
    // Builds the list anew from the other's pairs and starts the enumeration
    // over; the status line stays. E_INVALIDARG without a source.
    HRESULT CopyFrom(const CVnHTTPHeaders* other);

    // The number of pairs.
    size_t GetCount() const noexcept { return m_pList ? m_pList->names.size() : 0; }

private:
    // The names and values side by side, with one count, and the position of
    // each name under its sort key, so that storing finds a name without
    // walking the list. Its own heap object.
    struct THeaderList {
        std::vector<vfc::TBstr> names;
        std::vector<vfc::TBstr> values;
        std::unordered_map<std::string, size_t> positions;
    };

    // The index of the pair whose name is exactly `name`, or -1 without one;
    // `key` receives the name's sort key. False when no key could be made.
    bool _findExact(const wchar_t* name, std::string& key, LONG& index) const;

    std::unique_ptr<THeaderList> m_pList;
    LONG m_iEnumPos = 0;
    std::string m_tstrStatusLine;
    TLiveObject<kLiveHeaders> m_live;
};
