// CVnProxySocket: running the request and writing the response back.
#include "proxy/proxy_socket.h"

#include "host/log.h"
#include "vfc/bstr.h"
#include "vfc/text.h"
#include "web/result.h"

namespace {

int AddressOf(const void* object) { return static_cast<int>(reinterpret_cast<INT_PTR>(object)); }

// The value of a response header, empty without one.
std::string HeaderText(CVnHTTPHeaders* headers, const wchar_t* name)
{
    vfc::TBstr value;
    if (headers->GetHeader(name, value.put()) != S_OK || !value.get())
        return std::string();
    return vfc::Narrow(value.str());
}

}  // namespace

HRESULT CVnProxySocket::Execute()
{
    if (!m_pPendingData && m_pendingSize < 1) {
        const HRESULT hr = _sendResponseHead();
        if (hr != S_OK)
            return hr;
    }
    if (SendRequestResult() != S_OK || m_resultPending != 0)
        return S_OK;  // the response goes on at a later event

    const std::string proxyConnection = HeaderText(m_spResultHeaders.get(), L"Proxy-Connection");
    TraceLine(vn_log::kInfo, "CVnProxySocket::ClearAfterExecute, ProxyConnection", proxyConnection.c_str());
    if (::lstrcmpiA(proxyConnection.c_str(), "close") == 0 || m_framing == vn_proxy::FramingUntilClose) {
        m_pSocket->Close();
        // A closed socket reports no more events of its own: the listener is
        // woken to find it closed and let it go.
        ::WSASetEvent(m_hEvent.get());
    }
    TraceLine(vn_log::kInfo, "CVnProxySocket::Execute", "----==== BODY FINISHED ====---");
    return S_OK;
}

// The first pass of a request: runs it and sends the response's head.
HRESULT CVnProxySocket::_sendResponseHead()
{
    const char* const method = "CVnProxySocket::ExecuteRequest";
    TraceLine(vn_log::kInfo, "CVnProxySocket::Execute", "Executing ...");
    vfc::TComPtr<IVnWebResult> result;
    if (FAILED(m_spRequest->Execute(result.put())) || !result) {
        LogLine(vn_log::kError, method, "WebRequest->Execute failed.");
        return E_FAIL;
    }
    m_spResult = result;
    TraceLine(vn_log::kInfo, "CVnProxySocket::Execute", "Execute finished.");

    vfc::TComPtr<IEnumVARIANT> headers;
    if (FAILED(m_spResult->get_Headers(headers.put())) || !headers) {
        LogLine(vn_log::kError, method, "WebRequest->get_Headers failed.");
        return E_FAIL;
    }
    m_spResultHeaders = static_cast<CVnHTTPHeaders*>(headers.get());
    std::string head, fields;
    if (m_spResultHeaders->GetStatusLine(head) != S_OK) {
        LogLine(vn_log::kError, method, "GetHeaderValue(StatusLine) not found.");
        return 1;
    }
    // The remote server's status line and every one of its headers.
    m_spResultHeaders->GetHeadersAsText(fields);
    head += "\r\n" + fields;

    LogLine(vn_log::kInfo, "CVnProxySocket::Execute", "Getting Data Stream...");
    vfc::TComPtr<IVnStream> stream;
    if (FAILED(m_spResult->get_DataStream(stream.put())) || !stream) {
        LogLine(vn_log::kError, method, "WebRequest->get_DataStream failed.");
        return E_FAIL;
    }
    m_spResultStream = static_cast<CVnQueueReadStream*>(stream.get());
    TraceLine(vn_log::kInfo, "CVnProxySocket::Execute", "DataStream Finished.");

    vfc::TBstr verb;
    m_spRequest->get_method(verb.put());
    LONG status = 0;
    m_spResult->get_ResultCode(&status);
    m_framing = vn_proxy::ResponseFraming(vfc::Narrow(verb.str()), status,
                                          !HeaderText(m_spResultHeaders.get(), L"Content-Length").empty(),
                                          HeaderText(m_spResultHeaders.get(), L"Transfer-Encoding"));
    m_bLastChunkQueued = false;
    if (!m_pSocket)
        return E_FAIL;
    m_pSocket->SendBytes(head);
    return S_OK;
}

void CVnProxySocket::_sendPending(int& error)
{
    error = 0;
    while (m_pendingSent < m_pendingSize) {
        const int sent = m_pSocket->SendBytes(reinterpret_cast<const char*>(m_pPendingData.get()) + m_pendingSent,
                                              m_pendingSize - m_pendingSent);
        if (sent == SOCKET_ERROR) {
            error = ::WSAGetLastError();
            break;
        }
        // A short count (Wine gives one where Windows takes the whole piece)
        // is followed by the rest at once.
        m_pendingSent += sent;
    }
}

void CVnProxySocket::_dropPending()
{
    m_pPendingData.reset();
    m_pendingSize = 0;
    m_pendingSent = 0;
}

HRESULT CVnProxySocket::SendRequestResult()
{
    const char* const method = "CVnProxySocket::SendRequestResult";
    int error = 0;
    if (m_pPendingData && m_pendingSize > 0) {
        // The rest of an earlier pass, first.
        if (!m_pSocket) {
            _dropPending();
            return E_FAIL;
        }
        // A socket still full keeps its piece for the next write event, even
        // when nothing of it went out this time. Dropping it would cut bytes
        // out of the middle of the body, and the request would then run
        // again into the same stream, whose receive thread still waits for
        // room in the queue that this connection no longer empties.
        _sendPending(error);
        if (error == WSAEWOULDBLOCK)
            return S_OK;
        if (error != 0) {
            LogLine(vn_log::kErrorDec, method, "m_pSocket->SendBytes (previous fragment) failed.", error);
            _dropPending();
            LogLine(vn_log::kErrorDec, method, "m_pSocket->SendBytes (previous fragment) failed.", error);
            return E_FAIL;
        }
        _dropPending();
    }
    TraceLine(vn_log::kInfoStatus, method, "----==== BODY START ====---", AddressOf(this));
    for (;;) {
        if (IsTerminate()) {
            TraceLine(vn_log::kInfo, method, "Loop is terminated");
            break;
        }
        LONG count = 0;
        const HRESULT hr = m_spResultStream->get_AvailableBytes(&count);
        if (FAILED(hr)) {
            LogLine(vn_log::kErrorDec, method, "VnQueueReadtream::get_AvailableBytes failed.", static_cast<int>(hr));
            return E_FAIL;
        }
        if (count < 0 && (m_framing != vn_proxy::FramingChunked || m_bLastChunkQueued)) {
            m_resultPending = 0;
            TraceLine(vn_log::kInfoStatus, method, "----==== BODY OK ====---", AddressOf(this));
            break;
        }
        if (count < 0) {
            m_pPendingData = vn_proxy::FrameChunk(nullptr, 0, m_pendingSize);  // the last chunk
            m_bLastChunkQueued = true;
        } else {
            // Waits without a limit of its own: a silent server holds the worker here.
            m_pPendingData = m_spResultStream->ReadFromQueue(count, &m_pendingSize, INFINITE);
            // A body that broke off must not look whole to the client: no
            // last chunk, and the connection is closed at its end. (The
            // stream of a HEAD answer reads as short against its length.)
            if (m_pendingSize < 0 && m_framing != vn_proxy::FramingNone)
                m_framing = vn_proxy::FramingUntilClose;
            if (m_framing == vn_proxy::FramingChunked && m_pendingSize > 0)
                m_pPendingData = vn_proxy::FrameChunk(m_pPendingData.get(), m_pendingSize, m_pendingSize);
        }
        m_pendingSent = 0;
        if (!m_pSocket) {
            _dropPending();
            return E_FAIL;
        }
        if (m_pendingSize > 0) {
            _sendPending(error);
            if (error == WSAEWOULDBLOCK)
                return S_OK;  // the piece stays; the next write event brings the job back
            if (error != 0)
                LogLine(vn_log::kError, method, "m_pSocket->SendBytes send LESS then REQUIRED.");
        }
        _dropPending();
    }
    return S_OK;
}

void CVnProxySocket::ClearAfterExecute()
{
    if (m_resultPending == 1)
        return;
    m_headPending = m_headersPending = m_bodyPending = m_resultPending = 1;
    m_contentLength = 0;
    _dropPending();
    m_spRequestHeaders.reset();
    m_spRequestStream.reset();
    m_spResultStream.reset();
    m_spResult.reset();
    m_spResultHeaders.reset();
    m_spRequest.reset();
    // m_strHead and m_bodyReceived stay: the next head puts them right.
    _newRequest();
    TraceLine(vn_log::kInfoStatus, "CVnProxySocket::ClearAfterExecute", "Do clear objects.", AddressOf(this));
}
