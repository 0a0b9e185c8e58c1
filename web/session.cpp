#include "web/session.h"

#include "host/log.h"
#include "proxy/web_proxy.h"
#include "tunnel/web_tunnel.h"
#include "vfc/com_ptr.h"
#include "web/request.h"

CVnWebSession::CVnWebSession() : m_pWorkData(new CConfigData)
{
    m_sessionConnection.SetWorkData(m_pWorkData.get());
}

HRESULT CVnWebSession::FinalConstruct()
{
    TraceLine("CVnWebSession::FinalConstruct() done.");
    return S_OK;
}

void CVnWebSession::FinalRelease()
{
    TraceLine("CVnWebSession::FinalRelease() done.");
    m_sessionConnection.SetWorkData(nullptr);
    m_pWorkData.reset();
}

HRESULT CVnWebSession::SetParams(const CConfigData& configuration, DWORD processId, HWND hWnd, LONG flags)
{
    m_monitor = processId;
    m_hWnd = hWnd;
    WatchClient(processId);
    HRESULT hr = m_sessionConnection.PrepareConfigData(configuration);
    m_pWorkData->m_SessionFlags = flags;
    if (FAILED(hr)) {
        LogLine(vn_log::kErrorDec, "CVnWebSession::SetParams", "PrepareConfigData failed.", static_cast<int>(hr));
        return hr;
    }
    hr = m_sessionConnection.CheckConnection(*m_pWorkData, m_hWnd);
    if (FAILED(hr))
        LogLine(vn_log::kErrorDec, "CVnWebSession::SetParams", "CheckConnection failed.", static_cast<int>(hr));
    return hr;
}

STDMETHODIMP CVnWebSession::get_ProcessHandle(LONG* processId)
{
    if (processId)
        *processId = static_cast<LONG>(m_monitor.GetProcessId());
    return S_OK;
}

STDMETHODIMP CVnWebSession::get_WindowHandle(LONG* hWnd)
{
    if (hWnd)
        *hWnd = static_cast<LONG>(reinterpret_cast<LONG_PTR>(m_hWnd));
    return S_OK;
}

STDMETHODIMP CVnWebSession::CreateWebRequest(BSTR url, BSTR method, IVnWebRequest** object)
{
    if (!object)
        return E_POINTER;
    *object = nullptr;
    vfc::TComPtr<CVnWebRequest> request;
    HRESULT hr = vfc::CreateInto(request);
    if (FAILED(hr))
        return hr;
    hr = request->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(object));
    if (FAILED(hr))
        return hr;
    // An unknown verb shows only later, at Execute.
    request->SetParams(url ? url : L"", method ? method : L"", *m_pWorkData, m_hWnd, m_monitor);
    return hr;
}

namespace {

// A proxy or a tunnel for the caller, tied to the client's process like its
// requests; its initialisation follows.
template <typename T, typename I>
HRESULT MakeForClient(vfc::TComPtr<T>& object, I** out, DWORD processId)
{
    if (!out)
        return E_POINTER;
    *out = nullptr;
    HRESULT hr = T::CreateInstance(object);
    if (FAILED(hr))
        return hr;
    hr = object->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(out));
    if (FAILED(hr))
        return hr;
    object->WatchClient(processId);
    return S_OK;
}

}  // namespace

STDMETHODIMP CVnWebSession::CreateProxy(IVnWebProxy** object)
{
    vfc::TComPtr<CVnWebProxy> proxy;
    const HRESULT hr = MakeForClient(proxy, object, m_monitor.GetProcessId());
    return FAILED(hr) ? hr : proxy->Init(*m_pWorkData, m_hWnd);
}

STDMETHODIMP CVnWebSession::CreateTunnel(BSTR remoteHost, LONG remotePort, IVnWebTunnel** object)
{
    vfc::TComPtr<CVnWebTunnel> tunnel;
    const HRESULT hr = MakeForClient(tunnel, object, m_monitor.GetProcessId());
    return FAILED(hr) ? hr : tunnel->Init(remoteHost, remotePort, *m_pWorkData, m_hWnd, m_monitor);
}
