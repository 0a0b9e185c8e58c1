// TClassObject: the IUnknown and LockServer of a class object that lives as
// long as its module, as a static, and does not count as a lock on it; the
// one who derives supplies CreateInstance.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include "vfc/module_lock.h"

namespace vfc {

class TClassObject : public IClassFactory {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = iid == IID_IUnknown || iid == IID_IClassFactory ? static_cast<IClassFactory*>(this) : nullptr;
        return *ppv ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP LockServer(BOOL lock) override
    {
        if (lock)
            ModuleLock();
        else
            ModuleUnlock();
        return S_OK;
    }

protected:
    TClassObject() = default;
    ~TClassObject() = default;
};

}  // namespace vfc
