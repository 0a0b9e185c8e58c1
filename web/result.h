// CVnWebResult: what Execute hands to the client: the response code, the
// response headers and the stream from which the body is read.
#pragma once

#include <memory>
#include <string>

#include "host/counters.h"
#include "vfc/com_object.h"
#include "vfc/com_ptr.h"
#include "vfc/dispatch.h"
#include "vnlinkhost.h"
#include "web/headers.h"
#include "web/streams.h"

class CVnWebResult : public vfc::TComObject<CVnWebResult, vfc::TDispatchImpl<IVnWebResult>> {
public:
    CVnWebResult();
    HRESULT FinalConstruct();
    void FinalRelease();

    // IVnWebResult
    STDMETHODIMP get_ResultCode(LONG* code) override;
    STDMETHODIMP get_Headers(IEnumVARIANT** headers) override;
    STDMETHODIMP get_DataStream(IVnStream** stream) override;
    STDMETHODIMP GetHeaderValue(BSTR name, BSTR* value) override;

    // For the request.
    void SetDone(bool done);
    CVnQueueReadStream* GetStream() const { return m_spStream.get(); }
    IDoneable* GetDoneable() const { return m_spStream ? static_cast<IDoneable*>(m_spStream.get()) : nullptr; }
    bool IsDone() const { return m_spStream && m_spStream->IsDone(); }
    HRESULT SetRawHeaders(const std::string& raw);
    void SetReceiveThread(std::shared_ptr<IReceiveThreadOwner> wrapper);
    // The result, its stream and its headers go with the client's process.
    void WatchClientObjects(DWORD pid);

private:
    vfc::TComPtr<CVnQueueReadStream> m_spStream;
    vfc::TComPtr<CVnHTTPHeaders> m_spHeaders;
    TLiveObject<kLiveResults> m_live;
};
