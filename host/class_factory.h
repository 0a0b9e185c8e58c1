// The class object of the server: a factory that hands every client the one
// live root object, without holding a reference of its own (a weak singleton).
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <new>

#include "vfc/class_object.h"
#include "vfc/critical_section.h"

// T with a Release that runs wholly under the factory's lock: the count falls,
// the factory's pointer is cleared and the object is torn down in one step.
// A client that arrives while the last one leaves either gets the old object
// with a fresh reference or, once the old one is gone with its shutdown
// handler and per-process singletons, builds a new one; never two at once.
template <typename T>
class CComObjectPh : public T {
public:
    CComObjectPh(T** slot, vfc::TCriticalSection* lock) : m_ppSlot(slot), m_pLock(lock) {}

    STDMETHODIMP_(ULONG) Release() override
    {
        vfc::TLock lock(*m_pLock);
        const ULONG left = this->InternalRelease();
        if (left == 0 && *m_ppSlot) {
            *m_ppSlot = nullptr;
            this->InternalAddRef();  // a stable count while FinalRelease runs
            this->FinalRelease();
            delete this;
        }
        return left;
    }

private:
    T** m_ppSlot;
    vfc::TCriticalSection* m_pLock;
};

template <typename T>
class CComClassFactoryPhSingleton : public vfc::TClassObject {
public:
    CComClassFactoryPhSingleton() = default;
    virtual ~CComClassFactoryPhSingleton() = default;

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** ppv) override
    {
        if (!ppv)
            return S_OK;
        *ppv = nullptr;
        if (outer)
            return CLASS_E_NOAGGREGATION;
        vfc::TLock lock(m_lock);
        HRESULT hr = S_OK;
        const bool created = !m_pObject;
        if (created) {
            auto* obj = new (std::nothrow) CComObjectPh<T>(&m_pObject, &m_lock);
            if (!obj)
                return E_OUTOFMEMORY;
            obj->InternalAddRef();
            hr = obj->FinalConstruct();
            obj->InternalRelease();
            if (FAILED(hr)) {
                delete obj;
                return hr;
            }
            m_pObject = obj;
        }
        hr = m_pObject->QueryInterface(iid, ppv);
        if (FAILED(hr) && created) {
            // Nobody holds the new object: undo it rather than leave it live at count 0.
            T* obj = m_pObject;
            m_pObject = nullptr;
            obj->InternalAddRef();
            obj->FinalRelease();
            delete obj;
        }
        return hr;
    }

    // The live object, or null. For tests and the module's own use.
    T* LiveObject() const { return m_pObject; }

private:
    vfc::TCriticalSection m_lock;
    T* m_pObject = nullptr;  // uncounted
};
