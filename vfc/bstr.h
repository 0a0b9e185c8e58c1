// Owners of the automation types: BSTR and VARIANT.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <string>
#include <utility>

namespace vfc {

class TBstr {
public:
    TBstr() noexcept = default;
    explicit TBstr(const wchar_t* text) : m_b(text ? ::SysAllocString(text) : nullptr) {}
    explicit TBstr(const std::wstring& text)
        : m_b(::SysAllocStringLen(text.data(), static_cast<UINT>(text.size())))
    {
    }
    TBstr(const TBstr& other) : m_b(other.m_b ? ::SysAllocStringLen(other.m_b, other.length()) : nullptr) {}
    TBstr(TBstr&& other) noexcept : m_b(std::exchange(other.m_b, nullptr)) {}
    TBstr& operator=(TBstr other) noexcept
    {
        std::swap(m_b, other.m_b);
        return *this;
    }
    ~TBstr() { reset(); }

    BSTR get() const noexcept { return m_b; }
    UINT length() const noexcept { return ::SysStringLen(m_b); }
    std::wstring str() const { return m_b ? std::wstring(m_b, length()) : std::wstring(); }
    void reset() noexcept { ::SysFreeString(std::exchange(m_b, nullptr)); }
    BSTR* put() noexcept
    {
        reset();
        return &m_b;
    }
    void attach(BSTR b) noexcept
    {
        reset();
        m_b = b;
    }
    BSTR detach() noexcept { return std::exchange(m_b, nullptr); }

private:
    BSTR m_b = nullptr;
};

class TVariant {
public:
    TVariant() noexcept { ::VariantInit(&m_v); }
    explicit TVariant(const wchar_t* text) : TVariant()
    {
        m_v.vt = VT_BSTR;
        m_v.bstrVal = ::SysAllocString(text);
    }
    explicit TVariant(LONG value) noexcept : TVariant()
    {
        m_v.vt = VT_I4;
        m_v.lVal = value;
    }
    TVariant(const TVariant&) = delete;
    TVariant& operator=(const TVariant&) = delete;
    ~TVariant() { ::VariantClear(&m_v); }

    VARIANT* get() noexcept { return &m_v; }
    const VARIANT& operator*() const noexcept { return m_v; }
    const VARIANT* operator->() const noexcept { return &m_v; }
    // Clears what is held and hands out the address for an out parameter.
    VARIANT* put() noexcept
    {
        ::VariantClear(&m_v);
        return &m_v;
    }
    // Moves the value out to the caller; this holder is left empty.
    void detach_to(VARIANT* out) noexcept
    {
        *out = m_v;
        ::VariantInit(&m_v);
    }

private:
    VARIANT m_v;
};

}  // namespace vfc
