// The class object of the server and the configure role's private root object.
#include "host/class_factory.h"
#include "host/interface_pins.h"
#include "host/module.h"
#include "host/root_object.h"
#include "vfc/com_ptr.h"

namespace {

CComClassFactoryPhSingleton<CVnLinkhostObject>& ClassFactory()
{
    static CComClassFactoryPhSingleton<CVnLinkhostObject> factory;
    return factory;
}

CVnInterfacePins& Pins()
{
    static CVnInterfacePins pins;
    return pins;
}

}  // namespace

IClassFactory* GetRootClassFactory() { return &ClassFactory(); }

HRESULT CVnLinkhostModule::RegisterClassObjects()
{
    const HRESULT hr = ::CoRegisterClassObject(CLSID_VnLinkhostObject, &ClassFactory(), CLSCTX_LOCAL_SERVER,
                                               REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED, &m_dwClassRegister);
    if (SUCCEEDED(hr))
        Pins().Pin();
    return hr;
}

HRESULT CVnLinkhostModule::RevokeClassObjects()
{
    if (!m_dwClassRegister)
        return S_OK;
    HRESULT hr = ::CoRevokeClassObject(m_dwClassRegister);
    m_dwClassRegister = 0;
    Pins().Unpin();
    return hr;
}

HRESULT CVnLinkhostModule::ConfigureHost()
{
    // A private root object of this process alone, outside the class object.
    vfc::TComPtr<CVnLinkhostObject> host;
    HRESULT hr = vfc::CreateInto(host);
    if (FAILED(hr))
        return hr;
    hr = host->ShowConfigurationDialog(0);
    m_dwTimeOut = 0;
    m_dwPause = 0;
    return hr;
}
