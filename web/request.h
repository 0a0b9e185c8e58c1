// CVnWebRequest: what a client fills in and executes. Execute chooses one of
// three ways of sending, drives the transceiver until the response headers
// are there, starts the receive thread when a body follows, and hands back
// the result.
#pragma once

#include <memory>
#include <string>

#include "host/counters.h"
#include "settings/config_data.h"
#include "vfc/bstr.h"
#include "vfc/com_object.h"
#include "vfc/com_ptr.h"
#include "vfc/dispatch.h"
#include "vnlinkhost.h"
#include "web/headers.h"
#include "web/process_monitor.h"
#include "web/receive_thread.h"
#include "web/result.h"
#include "web/streams.h"

enum VnExecuteModel { ModelWithoutBody = 0, ModelCachedBody = 1, ModelInstantBody = 2, ModelInvalid = 3 };

class CVnWebRequest : public vfc::TComObject<CVnWebRequest, vfc::TDispatchImpl<IVnWebRequest>> {
public:
    CVnWebRequest();
    void FinalRelease();

    // Called by the creator at once after construction. A null URL or method
    // leaves them to be set through the interface (the local proxy does so).
    void SetParams(const wchar_t* url, const wchar_t* method, const CConfigData& configuration, HWND hWnd,
                   const VnProcessMonitor& monitor);

    // IVnWebRequest
    STDMETHODIMP AddHeader(BSTR key, BSTR bstrValue) override;
    STDMETHODIMP get_Headers(IEnumVARIANT** headers) override;
    STDMETHODIMP get_UserAgent(BSTR* userAgent) override;
    STDMETHODIMP put_UserAgent(BSTR userAgent) override;
    STDMETHODIMP get_UserName(BSTR* userName) override;
    STDMETHODIMP put_UserName(BSTR userName) override;
    STDMETHODIMP get_Password(BSTR* password) override;
    STDMETHODIMP put_Password(BSTR password) override;
    STDMETHODIMP get_url(BSTR* url) override;
    STDMETHODIMP put_url(BSTR url) override;
    STDMETHODIMP get_method(BSTR* method) override;
    STDMETHODIMP put_method(BSTR method) override;
    STDMETHODIMP get_DataStream(IVnStream** stream) override;
    STDMETHODIMP Execute(IVnWebResult** result) override;

    VnExecuteModel GetExecuteModel() const { return m_ExecuteModel; }

    // Turns a code of the transceiver into the status a client sees.
    HRESULT _ErrorToHRESULT(LONG code);

private:
    HRESULT SetDefaultHeaders();
    void DetermineMode();
    HRESULT InstantStart();
    HRESULT ExecuteWithoutBody();
    HRESULT ExecuteCachedBody();
    HRESULT ExecuteInstantBody();
    HRESULT SetProxyParameters();
    HRESULT SendHeadersExecute(int iRetry);
    HRESULT DialToRepeatRequest();
    HRESULT StartReceiveThread();
    // Runs one model, dialling and repeating once when there was no connection.
    HRESULT RunWithDialRetry(HRESULT (CVnWebRequest::*model)(), const char* finished);
    bool Interactive() const { return (m_pConfigurationData->m_SessionFlags & 1) != 0; }
    CVnLinkhostWITransceiver* Transceiver() const { return m_ReceiveThreadWrapper->m_pWITransceiver.get(); }

    std::unique_ptr<CConfigData> m_pConfigurationData;
    vfc::TBstr m_url, m_method, m_userName, m_password;
    HWND m_hWnd = nullptr;
    VnProcessMonitor m_monitor;
    std::shared_ptr<ReceiveThreadWrapper> m_ReceiveThreadWrapper;
    vfc::TComPtr<CVnWebResult> m_spResult;
    vfc::TComPtr<CVnQueueWriteStream> m_spWriteStream;
    vfc::TComPtr<CVnHTTPHeaders> m_spHeaders;
    bool m_bModifiable = true;
    VnExecuteModel m_ExecuteModel = ModelInvalid;
    TLiveObject<kLiveRequests> m_live;
};
