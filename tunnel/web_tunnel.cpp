#include "tunnel/web_tunnel.h"

#include "host/log.h"
#include "settings/proxy_config_helper.h"
#include "vfc/text.h"

namespace {

const char* const kStartMethod = "CVnWebTunnel::Start";

// A narrow text as a new BSTR, or null for none.
HRESULT CopyText(const char* text, BSTR* out)
{
    if (!out)
        return E_POINTER;
    *out = text ? ::SysAllocString(vfc::Widen(text).c_str()) : nullptr;
    return S_OK;
}

HRESULT CopyNumber(LONG value, LONG* out)
{
    if (!out)
        return E_POINTER;
    *out = value;
    return S_OK;
}

}  // namespace

CVnWebTunnel::CVnWebTunnel() : m_pConfigData(new CConfigData), m_pTunnel(new CVnLinkhostWinInetTunnel) {}

HRESULT CVnWebTunnel::CreateInstance(vfc::TComPtr<CVnWebTunnel>& tunnel) noexcept
{
    return CatchSocketErrors("CVnWebTunnel::CVnWebTunnel", [&] { tunnel = vfc::TComPtr<CVnWebTunnel>(new CVnWebTunnel); });
}

HRESULT CVnWebTunnel::Init(BSTR remoteHost, LONG remotePort, const CConfigData& configData, HWND hWindow,
                           const VnProcessMonitor& monitor)
{
    m_monitor = monitor;
    m_hWindow = hWindow;
    *m_pConfigData = configData;
    m_pTunnel->SetInteractive(static_cast<BYTE>(m_pConfigData->m_SessionFlags & 1));
    return Start(vfc::Narrow(remoteHost ? remoteHost : L""), remotePort);
}

HRESULT CVnWebTunnel::Start(const std::string& remoteHost, LONG remotePort)
{
    CVnTunnelParams params;
    const HRESULT hr = CVnProxyConfigHelper::GetProxyAddress(*m_pConfigData, params.strProxy, params.strProxyBypass,
                                                             m_monitor, remoteHost);
    if (hr != S_OK)
        return hr;
    params.hWindow = m_hWindow;
    params.strRemoteHost = remoteHost;
    params.remotePort = remotePort;
    LONG code = m_pTunnel->Connect(params);
    if (code != 0) {
        LogLine(vn_log::kErrorDec, kStartMethod, "Connect failed. Start tunnel aborted.", static_cast<int>(code));
        return S_OK;
    }
    code = m_pTunnel->Start();
    if (code != 0)
        LogLine(vn_log::kErrorDec, kStartMethod, "Start failed. Start tunnel aborted.", static_cast<int>(code));
    // The caller learns of a failure from the log only.
    return S_OK;
}

STDMETHODIMP CVnWebTunnel::get_LocalHost(BSTR* localHost)
{
    return m_pTunnel ? CopyText(m_pTunnel->GetLocalHost(), localHost) : E_POINTER;
}

STDMETHODIMP CVnWebTunnel::get_LocalPort(LONG* localPort)
{
    return m_pTunnel ? CopyNumber(m_pTunnel->GetLocalPort(), localPort) : E_POINTER;
}

STDMETHODIMP CVnWebTunnel::get_remoteHost(BSTR* remoteHost)
{
    return m_pTunnel ? CopyText(m_pTunnel->GetRemoteHost(), remoteHost) : E_POINTER;
}

STDMETHODIMP CVnWebTunnel::get_remotePort(LONG* remotePort)
{
    return m_pTunnel ? CopyNumber(m_pTunnel->GetRemotePort(), remotePort) : E_POINTER;
}
