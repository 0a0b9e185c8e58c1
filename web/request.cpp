// The web request's properties, its construction and the choice of how its
// body travels.
#include "web/request.h"

#include <algorithm>
#include <cwchar>

#include "host/log.h"
#include "host/messages.h"
#include "host/status.h"
#include "res/resource.h"
#include "vfc/text.h"

namespace {

const char* const kVerbs[] = {"GET", "HEAD", "DELETE", "TRACE", "CONNECT", "POST", "OPTIONS", "PUT"};

// The block of the after-write callback of an instant body.
struct WriteParam : AfterWriteParam {
    CVnQueueWriteStream* pStream = nullptr;
    CVnLinkhostWITransceiver* pTransceiver = nullptr;
};

// Runs on the client's thread inside Write, under the stream's lock: sends
// what was written at once. A failure is only logged here; it shows at
// EndSendData.
void WriteToStreamCallback(AfterWriteParam* param)
{
    const char* const method = "CVnWebRequest::WriteToStreamCallback";
    auto* block = static_cast<WriteParam*>(param);
    if (!block || !block->pStream || !block->pTransceiver) {
        LogLine(vn_log::kError, method, "Wrong input parameters.");
        return;
    }
    TraceLine(vn_log::kInfo, method, "Start stream for reading");
    while (!block->pStream->IsEmpty()) {
        LONG count = 0;
        std::unique_ptr<BYTE[]> data = block->pStream->ReadFromQueue(kStreamChunkSize, &count, 0);
        if (!data || count <= 0)
            break;
        LONG code = block->pTransceiver->SendData(data.get(), static_cast<DWORD>(count));
        if (code != 0)
            LogLine(vn_log::kErrorDec, method, "SendData failed.", static_cast<int>(code));
    }
    TraceLine(vn_log::kInfo, method, "Read Finished");
}

std::string Trimmed(const std::string& text)
{
    const char* blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The text as it goes on the wire: narrowed to the ANSI code page, where the
// platform may map a character it lacks to a near one of plain ASCII.
std::string WireText(BSTR text) { return vfc::Narrow(text ? text : L"", ::SysStringLen(text)); }

// A line end in a header's name or value would end its line on the wire and
// start one of the client's making.
bool HoldsLineEnd(const std::string& text) { return text.find_first_of("\r\n") != std::string::npos; }

// Whether a server would read the name as "Host": the text up to the first
// colon, without the blanks around it, in any capitals. The platform writes
// the Host line from the URL, and a client's own would replace it.
bool NamesHost(std::string name)
{
    name = Trimmed(name.substr(0, name.find(':')));
    return name.size() == 4 && std::equal(name.begin(), name.end(), "host", [](char c, char lower) {
               return (c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) == lower;
           });
}

HRESULT CopyOut(const vfc::TBstr& text, BSTR* out)
{
    if (!out)
        return E_POINTER;
    *out = ::SysAllocStringLen(text.get(), text.length());
    return *out || !text.length() ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

CVnWebRequest::CVnWebRequest()
{
    TraceLine("CVnWebRequest::CVnWebRequest() started");
    vfc::CreateInto(m_spWriteStream);
    vfc::CreateInto(m_spResult);
    vfc::CreateInto(m_spHeaders);
    m_ReceiveThreadWrapper = std::make_shared<ReceiveThreadWrapper>();
    Transceiver()->SetReceiveDataCallback(ReceiveDataCallbackProc);
    if (m_spResult) {
        m_ReceiveThreadWrapper->m_pDoneable = m_spResult->GetDoneable();
        m_spResult->SetReceiveThread(m_ReceiveThreadWrapper);
    }
    m_pConfigurationData.reset(new CConfigData);
    m_ReceiveThreadWrapper->m_hThread.reset();
    SetDefaultHeaders();
    m_bModifiable = true;
    m_ExecuteModel = ModelInvalid;
    TraceLine("CVnWebRequest::CVnWebRequest() done");
}

void CVnWebRequest::FinalRelease()
{
    m_pConfigurationData.reset();
    TraceLine("CVnWebRequest::FinalRelease() done");
}

HRESULT CVnWebRequest::SetDefaultHeaders()
{
    static const struct {
        UINT id;
        const wchar_t* name;
    } kDefaults[] = {{IDS_ACCEPT, L"Accept"}, {IDS_ACCEPT_ENCODING, L"Accept-Encoding"}, {IDS_USER_AGENT, L"User-Agent"}};
    for (const auto& header : kDefaults) {
        const std::string value = Trimmed(LoadFormat(header.id));
        if (value.empty())
            continue;
        HRESULT hr = m_spHeaders ? m_spHeaders->AddHeader(header.name, vfc::Widen(value).c_str()) : E_POINTER;
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

void CVnWebRequest::SetParams(const wchar_t* url, const wchar_t* method, const CConfigData& configuration, HWND hWnd,
                              const VnProcessMonitor& monitor)
{
    if (url)
        m_url = vfc::TBstr(url);
    m_monitor = monitor;
    if (method) {
        vfc::TBstr verb(method);
        put_method(verb.get());
    }
    *m_pConfigurationData = configuration;
    Transceiver()->SetInteractive(Interactive());
    Transceiver()->SetSkipHeadAuthentication(configuration.m_SkipHeadAuth);
    Transceiver()->SetMonitor(monitor);
    if (m_spResult && m_spResult->GetStream())
        m_spResult->GetStream()->SetMonitor(monitor);
    m_hWnd = hWnd;
    // What the client may hold a reference to is let go when it dies.
    const DWORD pid = monitor.GetProcessId();
    WatchClient(pid);
    if (m_spResult)
        m_spResult->WatchClientObjects(pid);
    if (m_spWriteStream)
        m_spWriteStream->WatchClient(pid);
    if (m_spHeaders)
        m_spHeaders->WatchClient(pid);
}

STDMETHODIMP CVnWebRequest::AddHeader(BSTR key, BSTR bstrValue)
{
    if (!m_bModifiable)
        return VN_E_REQUEST_LOCKED;
    if (!m_spHeaders)
        return E_POINTER;
    const std::string name = WireText(key);
    if (HoldsLineEnd(name) || HoldsLineEnd(WireText(bstrValue))) {
        LogLine(vn_log::kError, "CVnWebRequest::AddHeader", "Header name or value holds a line break.");
        return E_INVALIDARG;
    }
    if (NamesHost(name)) {
        LogLine(vn_log::kError, "CVnWebRequest::AddHeader", "The Host header is taken from the URL and cannot be set.");
        return E_INVALIDARG;
    }
    return m_spHeaders->AddHeader(key, bstrValue);
}

STDMETHODIMP CVnWebRequest::get_Headers(IEnumVARIANT** headers)
{
    if (!headers)
        return E_POINTER;
    *headers = nullptr;
    if (!m_spHeaders)
        return E_POINTER;
    return m_spHeaders->QueryInterface(IID_IEnumVARIANT, reinterpret_cast<void**>(headers));
}

STDMETHODIMP CVnWebRequest::get_UserAgent(BSTR* userAgent)
{
    if (!userAgent)
        return E_POINTER;
    *userAgent = nullptr;
    if (!m_spHeaders)
        return E_POINTER;
    return m_spHeaders->GetHeader(L"User-Agent", userAgent) == S_OK ? S_OK : S_FALSE;
}

STDMETHODIMP CVnWebRequest::put_UserAgent(BSTR userAgent)
{
    if (!m_bModifiable)
        return VN_E_REQUEST_LOCKED;
    vfc::TBstr name(L"User-Agent");
    return AddHeader(name.get(), userAgent);
}

STDMETHODIMP CVnWebRequest::get_UserName(BSTR* userName) { return CopyOut(m_userName, userName); }
STDMETHODIMP CVnWebRequest::get_Password(BSTR* password) { return CopyOut(m_password, password); }
STDMETHODIMP CVnWebRequest::get_url(BSTR* url) { return CopyOut(m_url, url); }
STDMETHODIMP CVnWebRequest::get_method(BSTR* method) { return CopyOut(m_method, method); }

STDMETHODIMP CVnWebRequest::put_UserName(BSTR userName)
{
    if (!m_bModifiable)
        return VN_E_REQUEST_LOCKED;
    m_userName = vfc::TBstr(std::wstring(userName ? userName : L"", ::SysStringLen(userName)));
    return S_OK;
}

STDMETHODIMP CVnWebRequest::put_Password(BSTR password)
{
    if (!m_bModifiable)
        return VN_E_REQUEST_LOCKED;
    m_password = vfc::TBstr(std::wstring(password ? password : L"", ::SysStringLen(password)));
    return S_OK;
}

STDMETHODIMP CVnWebRequest::put_url(BSTR url)
{
    if (!m_bModifiable)
        return VN_E_REQUEST_LOCKED;
    m_url = vfc::TBstr(std::wstring(url ? url : L"", ::SysStringLen(url)));
    return S_OK;
}

STDMETHODIMP CVnWebRequest::put_method(BSTR method)
{
    if (!m_bModifiable)
        return VN_E_REQUEST_LOCKED;
    const std::string text = vfc::Narrow(method ? method : L"", ::SysStringLen(method));
    for (const char* verb : kVerbs) {
        if (::lstrcmpiA(text.c_str(), verb) == 0) {
            m_method = vfc::TBstr(vfc::Widen(verb));
            return S_OK;
        }
    }
    m_ExecuteModel = ModelInvalid;
    return VN_E_BAD_VERB;
}

void CVnWebRequest::DetermineMode()
{
    if (!m_bModifiable)
        return;
    m_ExecuteModel = ModelInvalid;
    m_spWriteStream->ClearAfterWriteCallback();
    const std::wstring verb = m_method.str();
    if (verb == L"OPTIONS" || verb == L"POST" || verb == L"PUT") {
        m_ExecuteModel = ModelCachedBody;
        vfc::TBstr length;
        if (m_spHeaders->GetHeader(L"Content-Length", length.put()) == S_OK && length.get() &&
            std::wcstol(length.get(), nullptr, 10) > 0) {
            // The body goes out while the client writes it.
            m_ExecuteModel = ModelInstantBody;
            std::unique_ptr<WriteParam> block(new WriteParam);
            block->pStream = m_spWriteStream.get();
            block->pTransceiver = Transceiver();
            m_spWriteStream->SetAfterWriteCallback(WriteToStreamCallback, std::move(block));
        }
    } else if (verb == L"GET" || verb == L"HEAD" || verb == L"DELETE" || verb == L"TRACE" || verb == L"CONNECT") {
        m_ExecuteModel = ModelWithoutBody;
    } else {
        LogLine(vn_log::kError, "CVnWebRequest::DetermineMode", "Wrong HTTP verb was specified as input parameter.");
    }
    m_bModifiable = false;
}

HRESULT CVnWebRequest::InstantStart()
{
    HRESULT hr = SetProxyParameters();
    if (FAILED(hr))
        return hr;
    hr = SendHeadersExecute(0);
    if (hr != S_OK) {
        LogLine(vn_log::kErrorHex, "CVnWebRequest::get_DataStream", "Fail to send headers URL.", static_cast<unsigned>(hr));
        return hr;
    }
    // NTLM or Digest: the headers are not on the wire, and the body must be
    // collected for one send at Execute.
    if (!(Transceiver()->IsProxyPlainAuth() && Transceiver()->IsServerPlainAuth())) {
        m_ExecuteModel = ModelCachedBody;
        m_spWriteStream->ClearAfterWriteCallback();
    }
    return S_OK;
}

STDMETHODIMP CVnWebRequest::get_DataStream(IVnStream** stream)
{
    if (!stream)
        return E_POINTER;
    *stream = nullptr;
    DetermineMode();
    HRESULT hr = S_OK;
    if (m_ExecuteModel == ModelInstantBody) {
        hr = InstantStart();
        if (hr == VN_E_NOT_CONNECTED) {
            HRESULT dial = DialToRepeatRequest();
            if (dial == S_OK)
                hr = InstantStart();
            else
                LogLine(vn_log::kErrorHex, "CVnWebRequest::get_DataStream", "DialToRepeatRequest() failed.",
                        static_cast<unsigned>(dial));
        }
    } else if (m_ExecuteModel != ModelCachedBody) {
        return S_FALSE;
    }
    if (FAILED(hr))
        return hr;
    return m_spWriteStream->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(stream));
}
