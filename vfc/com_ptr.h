// The counted interface pointer of the system.
#pragma once

#include <unknwn.h>

#include <utility>

namespace vfc {

template <typename T>
class TComPtr {
public:
    TComPtr() noexcept = default;
    TComPtr(std::nullptr_t) noexcept {}
    // Takes a reference of its own.
    TComPtr(T* p) noexcept : m_p(p)
    {
        if (m_p)
            m_p->AddRef();
    }
    TComPtr(const TComPtr& other) noexcept : TComPtr(other.m_p) {}
    TComPtr(TComPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    TComPtr& operator=(TComPtr other) noexcept
    {
        std::swap(m_p, other.m_p);
        return *this;
    }
    ~TComPtr() { reset(); }

    T* get() const noexcept { return m_p; }
    T* operator->() const noexcept { return m_p; }
    explicit operator bool() const noexcept { return m_p != nullptr; }

    void reset() noexcept
    {
        if (T* p = std::exchange(m_p, nullptr))
            p->Release();
    }
    // Releases what is held and hands out the address for an out parameter.
    T** put() noexcept
    {
        reset();
        return &m_p;
    }
    void** put_void() noexcept { return reinterpret_cast<void**>(put()); }
    // Takes over a reference that the caller owned.
    void attach(T* p) noexcept
    {
        reset();
        m_p = p;
    }
    // Hands the reference over to the caller.
    T* detach() noexcept { return std::exchange(m_p, nullptr); }
    // Gives the caller a reference of its own.
    void copy_to(T** out) const noexcept
    {
        if (m_p)
            m_p->AddRef();
        *out = m_p;
    }
    template <typename Q>
    HRESULT query_to(Q** out) const noexcept
    {
        return query_to(__uuidof(Q), reinterpret_cast<void**>(out));
    }
    HRESULT query_to(REFIID iid, void** out) const noexcept
    {
        if (!out)
            return E_POINTER;
        *out = nullptr;
        return m_p ? m_p->QueryInterface(iid, out) : E_POINTER;
    }

private:
    T* m_p = nullptr;
};

}  // namespace vfc
