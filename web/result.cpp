#include "web/result.h"

#include <cstdlib>

#include "host/log.h"


CVnWebResult::CVnWebResult() = default;

HRESULT CVnWebResult::FinalConstruct()
{
    vfc::CreateInto(m_spStream);
    vfc::CreateInto(m_spHeaders);
    TraceLine("CVnWebResult::FinalConstruct() done");
    return S_OK;
}

void CVnWebResult::FinalRelease() { TraceLine("CVnWebResult::FinalRelease() done"); }

STDMETHODIMP CVnWebResult::get_ResultCode(LONG* code)
{
    if (!code)
        return E_POINTER;
    *code = 0;
    if (!m_spHeaders)
        return E_POINTER;
    return m_spHeaders->GetResultCode(code);
}

STDMETHODIMP CVnWebResult::get_Headers(IEnumVARIANT** headers)
{
    if (!headers)
        return E_POINTER;
    *headers = nullptr;
    if (!m_spHeaders)
        return E_POINTER;
    return m_spHeaders->QueryInterface(IID_IEnumVARIANT, reinterpret_cast<void**>(headers));
}

STDMETHODIMP CVnWebResult::get_DataStream(IVnStream** stream)
{
    if (!stream)
        return E_POINTER;
    *stream = nullptr;
    if (!m_spStream)
        return E_POINTER;
    return m_spStream->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(stream));
}

STDMETHODIMP CVnWebResult::GetHeaderValue(BSTR name, BSTR* value)
{
    if (!value)
        return E_POINTER;
    *value = nullptr;
    if (!m_spHeaders)
        return E_POINTER;
    HRESULT hr = m_spHeaders->GetHeader(name, value);
    return hr == S_OK ? S_OK : E_INVALIDARG;
}

void CVnWebResult::SetDone(bool done)
{
    if (IDoneable* doneable = GetDoneable())
        doneable->SetDone(done);
}

HRESULT CVnWebResult::SetRawHeaders(const std::string& raw)
{
    HRESULT hr = m_spHeaders->InitHeaders(raw.c_str());
    if (FAILED(hr))
        return hr;
    vfc::TBstr length;
    if (m_spHeaders->GetHeader(L"Content-Length", length.put()) == S_OK && length.get() && m_spStream)
        m_spStream->SetExpectedLength(static_cast<LONG>(std::wcstol(length.get(), nullptr, 10)));
    return hr;
}

void CVnWebResult::SetReceiveThread(std::shared_ptr<IReceiveThreadOwner> wrapper)
{
    if (m_spStream)
        m_spStream->SetReceiveThread(std::move(wrapper));
}

void CVnWebResult::WatchClientObjects(DWORD pid)
{
    WatchClient(pid);
    if (m_spStream)
        m_spStream->WatchClient(pid);
    if (m_spHeaders)
        m_spHeaders->WatchClient(pid);
}
