// The COM object template of the system: QueryInterface from a list of
// interfaces, an atomic reference count, and a lock on the module for as long
// as the object lives.
#pragma once

#include <unknwn.h>

#include <atomic>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

#include "vfc/client_objects.h"
#include "vfc/com_ptr.h"
#include "vfc/module_lock.h"

namespace vfc {

namespace detail {
template <typename T, typename = void>
struct interface_of {
    using type = T;
};
// Implementation helpers such as TDispatchImpl<I> name the interface they stand for.
template <typename T>
struct interface_of<T, std::void_t<typename T::interface_type>> {
    using type = typename T::interface_type;
};
}  // namespace detail

// Derived may define:
//   HRESULT FinalConstruct()   - runs once the object holds its first reference;
//   void FinalRelease()        - runs when the last reference goes, before delete;
//   void* QueryInterfaceExtra(REFIID) - interfaces not in the list (nested parts);
//   static constexpr bool LocksModule = false - for objects that must not keep
//                                               the process alive.
template <typename Derived, typename... Interfaces>
class TComObject : public Interfaces... {
    using First = typename detail::interface_of<std::tuple_element_t<0, std::tuple<Interfaces...>>>::type;

public:
    static constexpr bool LocksModule = true;

    TComObject() noexcept
    {
        if (Derived::LocksModule)
            ModuleLock();
    }
    virtual ~TComObject()
    {
        if (m_bClientWatched)
            TClientObjects::getInstance().Remove(this);
        if (Derived::LocksModule)
            ModuleUnlock();
    }
    TComObject(const TComObject&) = delete;
    TComObject& operator=(const TComObject&) = delete;

    HRESULT FinalConstruct() { return S_OK; }
    void FinalRelease() {}
    void* QueryInterfaceExtra(REFIID) { return nullptr; }

    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = Find(iid);
        if (!*ppv)
            return E_NOINTERFACE;
        static_cast<IUnknown*>(*ppv)->AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_cRef; }
    STDMETHODIMP_(ULONG) Release() override
    {
        const ULONG left = --m_cRef;
        if (left == 0) {
            // Guard against a resurrecting AddRef/Release pair inside
            // FinalRelease; TryAddRef sees the object dying first.
            m_bDying = true;
            m_cRef = 1;
            static_cast<Derived*>(this)->FinalRelease();
            delete static_cast<Derived*>(this);
        }
        return left;
    }

    // A reference only while the object is not on its way out: for holders
    // of uncounted pointers that must not bring an object back from 0.
    bool TryAddRef() noexcept
    {
        ULONG count = m_cRef;
        do {
            if (count == 0)
                return false;
        } while (!m_cRef.compare_exchange_weak(count, count + 1));
        if (m_bDying) {
            --m_cRef;
            return false;
        }
        return true;
    }

    // Ties the object to a client process: when that process ends, the
    // references it held are let go (see TClientObjects).
    void WatchClient(DWORD pid) noexcept
    {
        m_bClientWatched = true;
        TClientObjects::getInstance().Add(pid, this, GetUnknown(),
                                          [](void* self) { return static_cast<TComObject*>(self)->TryAddRef(); });
    }

    // The count alone, for wrappers that decide themselves when to delete.
    ULONG InternalAddRef() noexcept { return ++m_cRef; }
    ULONG InternalRelease() noexcept { return --m_cRef; }

    IUnknown* GetUnknown() noexcept { return static_cast<First*>(static_cast<Derived*>(this)); }

    // Creates an object with one reference for the caller and runs FinalConstruct.
    template <typename... Args>
    static HRESULT Create(Derived** out, Args&&... args) noexcept
    {
        *out = nullptr;
        Derived* obj = new (std::nothrow) Derived(std::forward<Args>(args)...);
        if (!obj)
            return E_OUTOFMEMORY;
        obj->AddRef();
        HRESULT hr = obj->FinalConstruct();
        if (FAILED(hr)) {
            obj->Release();
            return hr;
        }
        *out = obj;
        return S_OK;
    }

private:
    void* Find(REFIID iid) noexcept
    {
        Derived* self = static_cast<Derived*>(this);
        if (iid == IID_IUnknown)
            return GetUnknown();
        void* found = nullptr;
        ((found = found ? found : Match<Interfaces>(iid)), ...);
        if (!found && iid == IID_IDispatch)
            ((found = found ? found : AsDispatch<Interfaces>()), ...);
        return found ? found : self->QueryInterfaceExtra(iid);
    }
    template <typename I>
    void* Match(REFIID iid) noexcept
    {
        using Itf = typename detail::interface_of<I>::type;
        return iid == __uuidof(Itf) ? static_cast<Itf*>(static_cast<I*>(this)) : nullptr;
    }
    template <typename I>
    void* AsDispatch() noexcept
    {
        using Itf = typename detail::interface_of<I>::type;
        if constexpr (std::is_base_of_v<IDispatch, Itf>)
            return static_cast<IDispatch*>(static_cast<Itf*>(static_cast<I*>(this)));
        else
            return nullptr;
    }

    std::atomic<ULONG> m_cRef{0};
    std::atomic<bool> m_bDying{false};
    bool m_bClientWatched = false;
};

// Creates an object of class T (a TComObject) into a counted pointer; the
// status of the creation, with the pointer empty on failure.
template <typename T, typename... Args>
HRESULT CreateInto(TComPtr<T>& out, Args&&... args)
{
    T* raw = nullptr;
    HRESULT hr = T::Create(&raw, std::forward<Args>(args)...);
    out.attach(raw);
    return hr;
}

}  // namespace vfc
