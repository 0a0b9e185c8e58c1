// The object that the event system calls with SENS's network events. It holds
// no state but its count and finds its sinks through the manager. It does not
// keep the process alive: the event system holds it until the manager removes
// the subscriptions.
#pragma once

#include <windows.h>

#include "monitors/event_platform.h"
#include "vfc/com_object.h"

class CVnSensNetworkSubscriber : public vfc::TComObject<CVnSensNetworkSubscriber, ISensNetwork> {
public:
    static constexpr bool LocksModule = false;

    // IDispatch: nothing is reached by name.
    STDMETHODIMP GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }

    // ISensNetwork: only the two events without quality information are passed on.
    STDMETHODIMP ConnectionMade(BSTR, ULONG, LPSENS_QOCINFO) override { return E_NOTIMPL; }
    STDMETHODIMP ConnectionMadeNoQOCInfo(BSTR connection, ULONG type) override { return FanOut(1, connection, type); }
    STDMETHODIMP ConnectionLost(BSTR connection, ULONG type) override { return FanOut(0, connection, type); }
    STDMETHODIMP DestinationReachable(BSTR, BSTR, ULONG, LPSENS_QOCINFO) override { return E_NOTIMPL; }
    STDMETHODIMP DestinationReachableNoQOCInfo(BSTR, BSTR, ULONG) override { return E_NOTIMPL; }

private:
    // Calls the sinks in order, without the manager's lock; the first that
    // fails ends the walk, and its status goes back to the event system.
    static HRESULT FanOut(ULONG status, BSTR connection, ULONG type);
};
