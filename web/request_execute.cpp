// Executing a web request: the three models of sending, the response
// headers, and the start of the receive thread.
#include "web/request.h"

#include <string>

#include "host/counters.h"
#include "host/log.h"
#include "host/status.h"
#include "web/header_text.h"
#include "settings/proxy_config_helper.h"
#include "vfc/text.h"

namespace {

const char* const kExecuteInfo = "VnWebRequest::Execute";
const char* const kExecuteError = "CVnWebRequest::Execute";

const char* BoolText(bool value) { return value ? "true" : "false"; }

bool BodyFollows(HRESULT codeStatus, LONG code, const std::string& lastVerb)
{
    if (codeStatus != S_OK || lastVerb == "HEAD")
        return false;
    return !(code >= 100 && code <= 199) && code != 204 && code != 304;
}

}  // namespace

HRESULT CVnWebRequest::RunWithDialRetry(HRESULT (CVnWebRequest::*model)(), const char* finished)
{
    HRESULT hr = (this->*model)();
    if (hr == VN_E_NOT_CONNECTED) {
        HRESULT dial = DialToRepeatRequest();
        if (dial == S_OK)
            hr = (this->*model)();
        else
            LogLine(vn_log::kErrorHex, kExecuteError, "DialToRepeatRequest() failed.", static_cast<unsigned>(dial));
    }
    TraceLine(vn_log::kInfo, kExecuteInfo, finished);
    return hr;
}

STDMETHODIMP CVnWebRequest::Execute(IVnWebResult** result)
{
    if (!result)
        return E_POINTER;
    const TExecuteTimer timer;
    *result = nullptr;
    // A receive thread of an earlier run shares the transceiver: it must be
    // gone before the handles are opened again, or its last close would hit
    // the new request's handle. Its handles go first, so that a read waiting
    // on a silent server ends, and only then is it joined.
    const bool hadThread = m_ReceiveThreadWrapper->m_hThread.valid();
    if (hadThread) {
        m_ReceiveThreadWrapper->SignalDone();
        Transceiver()->AbandonInternetHandles();
        m_ReceiveThreadWrapper->TerminateReceiveThread();
    }
    m_spResult->SetDone(false);
    DetermineMode();
    m_bModifiable = true;
    TraceLine(vn_log::kInfo, kExecuteInfo, "Before Execute Model");

    HRESULT hr;
    switch (m_ExecuteModel) {
    case ModelWithoutBody:
        hr = RunWithDialRetry(&CVnWebRequest::ExecuteWithoutBody, "ExecuteWithoutBody() ... Finished");
        break;
    case ModelCachedBody:
        hr = RunWithDialRetry(&CVnWebRequest::ExecuteCachedBody, "ExecuteCachedBody() ... Finished");
        break;
    case ModelInstantBody:
        // Its dial retry took place in DataStream.
        hr = ExecuteInstantBody();
        TraceLine(vn_log::kInfo, kExecuteInfo, "ExecuteInstantBody() ... Finished");
        break;
    default:
        LogLine(vn_log::kError, kExecuteError, "Wrong HTTP word was set: can't proceed execute.");
        return E_FAIL;
    }
    if (hr != S_OK) {
        LogLine(vn_log::kErrorHex, kExecuteError, "Execute failed.", static_cast<unsigned>(hr));
        return hr;
    }

    std::string raw;
    LONG code = Transceiver()->ReceiveHeadersSync(raw, HTTP_QUERY_RAW_HEADERS_CRLF);
    if (code != 0) {
        LogLine(vn_log::kErrorDec, "CVnWebRequest::GetConnectionInfo(HTTP_QUERY_RAW_HEADERS_CRLF)",
                "ReceiveHeadersSync failed.", static_cast<int>(code));
        LogLine(vn_log::kErrorDec, kExecuteError, "CVnWebRequest::ReceiveHeadersExecute failed.", static_cast<int>(code));
        return _ErrorToHRESULT(code);
    }
    if (!vn_http::HasStatusLine(raw)) {
        LogLine(vn_log::kError, kExecuteError, "Response without status line");
        Transceiver()->CloseAllInternetHandles();
        return VN_E_CONNECTION_LOST;
    }
    m_spResult->SetRawHeaders(raw);
    TraceLine(vn_log::kInfo, kExecuteInfo, "Before Recive Header");

    LONG status = 0;
    const HRESULT statusResult = m_spResult->get_ResultCode(&status);
    std::string lastVerb;
    Transceiver()->_lastRequestVerb(lastVerb);
    if (BodyFollows(statusResult, status, lastVerb)) {
        // As ever, the run after one with a body finds the result marked done:
        // its thread stops at the first block and this result brings no body.
        if (hadThread)
            m_spResult->SetDone(true);
        hr = StartReceiveThread();
        if (FAILED(hr))
            return hr;
    } else {
        m_spResult->SetDone(true);
        code = Transceiver()->EndReceiveDataAsync(false);
        if (code != 0) {
            LogLine(vn_log::kErrorDec, kExecuteError, "CVnWITransceiver::EndReceiveDataAsync failed.", static_cast<int>(code));
            return _ErrorToHRESULT(code);
        }
    }
    return m_spResult->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(result));
}

HRESULT CVnWebRequest::StartReceiveThread()
{
    TraceLine(vn_log::kInfo, kExecuteInfo, "Before Terminate Receive Thread");
    // A thread of an earlier Execute is told to stop and joined first.
    m_ReceiveThreadWrapper->SignalDone();
    m_ReceiveThreadWrapper->TerminateReceiveThread();
    TraceLine(vn_log::kInfo, kExecuteInfo, "After Terminate Receive Thread");
    auto* block = new ReceiveBlock{m_spResult->GetStream(), Transceiver()};
    HANDLE thread = ::CreateThread(nullptr, 0, ReadBodyThreadProc, block, 0, nullptr);
    if (!thread) {
        delete block;
        LogLine(vn_log::kErrorDec, kExecuteError, "::CreateThread failed.", static_cast<int>(::GetLastError()));
        return E_POINTER;
    }
    m_ReceiveThreadWrapper->m_hThread.reset(thread);
    TraceLine(vn_log::kInfo, kExecuteInfo, "Start ReadBodyThreadProc");
    return S_OK;
}

HRESULT CVnWebRequest::ExecuteWithoutBody()
{
    const char* const method = "CVnWebRequest::ExecuteWithoutBody";
    HRESULT hr = SetProxyParameters();
    if (FAILED(hr))
        return hr;
    for (int i = 0;; ++i) {
        hr = SendHeadersExecute(i);
        if (hr != S_OK) {
            LogLine(vn_log::kErrorHex, method, "SendHeadersExecute failed.", static_cast<unsigned>(hr));
            return hr;
        }
        const LONG code = Transceiver()->EndSendData();
        if (code == ERROR_INTERNET_FORCE_RETRY)
            continue;
        if (code == 0)
            return S_OK;
        LogLine(vn_log::kErrorDec, method, "m_ReceiveThreadWrapper->m_pWITransceiver->EndSendData failed.",
                static_cast<int>(code));
        return _ErrorToHRESULT(code);
    }
}

HRESULT CVnWebRequest::ExecuteCachedBody()
{
    const char* const method = "CVnWebRequest::ExecuteCachedBody";
    HRESULT hr = SetProxyParameters();
    if (FAILED(hr))
        return hr;
    LONG available = 0;
    m_spWriteStream->get_AvailableBytes(&available);
    vfc::TBstr name(L"Content-Length"), value(std::to_wstring(available));
    AddHeader(name.get(), value.get());
    hr = SendHeadersExecute(0);
    if (hr != S_OK) {
        LogLine(vn_log::kErrorHex, "CVnWebRequest::ExecuteWithoutBody", "SendHeadersExecute failed.", static_cast<unsigned>(hr));
        return hr;
    }
    CVnLinkhostWITransceiver* transceiver = Transceiver();
    LONG code = 0;
    if (transceiver->IsProxyPlainAuth() && transceiver->IsServerPlainAuth()) {
        // The headers went out by HttpSendRequestEx: the body follows in blocks.
        while (!m_spWriteStream->IsEmpty() && transceiver->IsBodyChunked()) {
            LONG count = 0;
            std::unique_ptr<BYTE[]> data = m_spWriteStream->ReadFromQueue(kStreamChunkSize, &count, 0);
            if (!data || count <= 0)
                break;
            code = transceiver->SendData(data.get(), static_cast<DWORD>(count));
            if (code != 0) {
                LogLine(vn_log::kErrorDec, method, "SendData failed.", static_cast<int>(code));
                return _ErrorToHRESULT(code);
            }
        }
        code = transceiver->EndSendData();
    } else {
        // NTLM or Digest: headers and the whole body in one send.
        std::string headers;
        m_spHeaders->GetHeadersAsText(headers);
        LONG count = 0;
        std::unique_ptr<BYTE[]> body = m_spWriteStream->ReadFromQueue(0, &count, 0);
        code = transceiver->SendRequest(headers.c_str(), static_cast<DWORD>(headers.size()), body.get(),
                                        count > 0 ? static_cast<DWORD>(count) : 0);
        if (code != 0) {
            LogLine(vn_log::kErrorDec, method, "SendRequest failed.", static_cast<int>(code));
            return _ErrorToHRESULT(code);
        }
    }
    if (code == ERROR_INTERNET_FORCE_RETRY)
        code = 0;
    if (code != 0) {
        LogLine(vn_log::kErrorDec, method, "EndSendData failed.", static_cast<int>(code));
        return _ErrorToHRESULT(code);
    }
    return S_OK;
}

HRESULT CVnWebRequest::ExecuteInstantBody()
{
    LONG code = Transceiver()->EndSendData();
    if (code == ERROR_INTERNET_FORCE_RETRY)
        code = 0;
    if (code != 0) {
        LogLine(vn_log::kErrorDec, "CVnWebRequest::ExecuteInstantBody", "EndSendData failed.", static_cast<int>(code));
        return _ErrorToHRESULT(code);
    }
    return S_OK;
}

HRESULT CVnWebRequest::SetProxyParameters()
{
    const char* const method = "CVnWebRequest::SetProxyParameters";
    const CConfigData& c = *m_pConfigurationData;
    TraceLine("Info about method [%s]. m_pConfigurationData structure [Proxy settings]: \n %s = %s;\n %s = %d;\n %s = "
              "%s;\n %s = %d;\n %s = %s;\n %s = %s;\n %s = %s;\n",
              method, "m_UseSystemProxy", BoolText(c.m_UseSystemProxy),
              "m_ProxyMode (ProxyNone-0,ProxyAuto-1,ProxyManual-2,ProxyScript-3)", c.m_ProxyMode, "m_ProxyAddress",
              c.m_ProxyAddress.c_str(), "m_ProxyPort", c.m_ProxyPort, "m_ProxyExclude", c.m_ProxyExclude.c_str(),
              "m_ProxyNoLocal", BoolText(c.m_ProxyNoLocal), "m_ProxyScript", c.m_ProxyScript.c_str());
    TraceLine("Info about method [%s]. m_pConfigurationData structure[RAS settings]: \n %s = %s;\n %s = %d;\n %s = "
              "%s;\n %s = %d;\n",
              method, "m_UseSystemConnection", BoolText(c.m_UseSystemConnection),
              "m_DialMode (DialNever-0,DialRequired-1,DialAlways-2)", c.m_DialMode, "m_DefaultConnection",
              c.m_DefaultConnection.c_str(), "m_SessionFlags", c.m_SessionFlags);

    std::string proxy, bypass;
    const HRESULT hr = CVnProxyConfigHelper::GetProxyAddress(c, proxy, bypass, m_monitor, vfc::Narrow(m_url.str()));
    if (SUCCEEDED(hr))
        Transceiver()->SetProxyOptions(proxy, c.m_ProxyNoLocal, bypass);
    TraceLine("Info about method [%s]. Settings for WITransceiver:\n %s = %s;\n %s = %s;\n %s = %s;\n", method,
              "tstrProxy", proxy.c_str(), "bBypassLocal", BoolText(c.m_ProxyNoLocal), "tstrBypassList", bypass.c_str());
    Transceiver()->SetLoginData(vfc::Narrow(m_userName.str()), vfc::Narrow(m_password.str()));
    Transceiver()->SetWindow(m_hWnd);
    return hr;
}

HRESULT CVnWebRequest::SendHeadersExecute(int iRetry)
{
    ConnectionParts parts;
    HRESULT hr = CVnProxyConfigHelper::GetUrlParts(vfc::Narrow(m_url.str()), parts.host, parts.path, parts.port,
                                                   parts.scheme);
    if (hr != S_OK)
        return hr;
    parts.verb = vfc::Narrow(m_method.str());
    std::string headers;
    m_spHeaders->GetHeadersAsText(headers);
    const LONG code = Transceiver()->SendHeadersAsync(parts, headers, iRetry);
    if (code != 0) {
        LogLine(vn_log::kErrorDec, "CVnWebRequest::SendHeadersExecute", "SendHeadersAsync failed.", static_cast<int>(code));
        return _ErrorToHRESULT(code);
    }
    return S_OK;
}

HRESULT CVnWebRequest::_ErrorToHRESULT(LONG code)
{
    switch (static_cast<DWORD>(code)) {
    case 0:
        return S_OK;
    case WAIT_TIMEOUT:
        // The client died or a wait ended: break whatever still runs.
        Transceiver()->CloseAllInternetHandles();
        TraceLine(vn_log::kInfo, "CVnWebRequest::_ErrorToHRESULT",
                  "m_ReceiveThreadWrapper->m_pWITransceiver->CloseAllInternetHandles");
        return E_FAIL;
    case ERROR_INTERNET_TIMEOUT:
        return VN_E_TIMEOUT;
    case ERROR_INTERNET_NAME_NOT_RESOLVED:
    case ERROR_INTERNET_CANNOT_CONNECT:
        return VN_E_NOT_CONNECTED;
    case ERROR_INTERNET_CONNECTION_ABORTED:
    case ERROR_INTERNET_CONNECTION_RESET:
        return VN_E_CONNECTION_LOST;
    case ERROR_INTERNET_SEC_CERT_DATE_INVALID:
        return VN_E_CERT_EXPIRED;
    case ERROR_INTERNET_SEC_CERT_CN_INVALID:
        return VN_E_CERT_BAD_NAME;
    case ERROR_INTERNET_INVALID_CA:
        return VN_E_CERT_BAD_CA;
    case static_cast<DWORD>(VN_E_SERVER_LOGIN_CANCELLED):
    case static_cast<DWORD>(VN_E_PROXY_LOGIN_CANCELLED):
        return static_cast<HRESULT>(code);
    default:
        return E_FAIL;
    }
}
