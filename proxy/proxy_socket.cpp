// CVnProxySocket: the connection's events and the reading of a request.
#include "proxy/proxy_socket.h"

#include <shlwapi.h>

#include "host/log.h"
#include "vfc/bstr.h"
#include "vfc/com_object.h"
#include "vfc/text.h"
#include "web/request.h"

CVnProxySocket::CVnProxySocket(std::unique_ptr<CSocket> socket, const CConfigData* pConfigData, HWND hWindow,
                               const VnProcessMonitor& monitor)
    : m_hEvent(::WSACreateEvent()),
      m_pSocket(std::move(socket)),
      m_pConfigData(pConfigData),
      m_hWindow(hWindow),
      m_monitor(monitor)
{
    ::WSAEventSelect(m_pSocket->GetSocket(), m_hEvent.get(), FD_READ | FD_WRITE | FD_CLOSE);
    _newRequest();
}

bool CVnProxySocket::HasLeft() const
{
    char byte = 0;
    const int got = ::recv(m_pSocket->GetSocket(), &byte, 1, MSG_PEEK);
    return got == 0 || (got == SOCKET_ERROR && ::WSAGetLastError() != WSAEWOULDBLOCK);
}

CVnProxySocket::~CVnProxySocket()
{
    std::unique_ptr<CSocket> socket = std::move(m_pSocket);
    ::WSASetEvent(m_hEvent.get());
    socket.reset();
    m_hEvent.reset();
    m_pPendingData.reset();
    m_head.m_bodyFragment.clear();
    m_spRequest.reset();
}

void CVnProxySocket::_newRequest()
{
    vfc::TComPtr<CVnWebRequest> request;
    if (SUCCEEDED(vfc::CreateInto(request)))
        request->SetParams(nullptr, nullptr, *m_pConfigData, m_hWindow, m_monitor);
    m_spRequest = request.get();
}

void CVnProxySocket::SetTerminate(bool terminate)
{
    vfc::TLock lock(m_terminateLock);
    m_bTerminate = terminate;
}

bool CVnProxySocket::IsTerminate()
{
    vfc::TLock lock(m_terminateLock);
    return m_bTerminate;
}

int CVnProxySocket::GetReadEventStatus()
{
    const SOCKET s = m_pSocket ? m_pSocket->GetSocket() : INVALID_SOCKET;
    // A socket closed here (CSocket::Close) is no socket to the platform.
    if (::WSAEnumNetworkEvents(s, m_hEvent.get(), &m_networkEvents) == SOCKET_ERROR &&
        ::WSAGetLastError() == WSAENOTSOCK)
        return FD_CLOSE;
    const long events = m_networkEvents.lNetworkEvents;
    if ((events & FD_READ) && m_networkEvents.iErrorCode[FD_READ_BIT] == 0) {
        // The record holds a close only once, so the event is raised again
        // to bring the listener back for it.
        if (events & FD_CLOSE) {
            m_bCloseDeferred = true;
            ::WSASetEvent(m_hEvent.get());
        }
        return FD_READ;
    }
    if ((events & FD_WRITE) && m_networkEvents.iErrorCode[FD_WRITE_BIT] == 0)
        return FD_WRITE;
    if ((events & FD_CLOSE) || m_bCloseDeferred)
        return FD_CLOSE;
    LogLine(vn_log::kInfo, "CVnProxySocket::GetReadEventStatus", "Event == 0");
    return 0;
}

HRESULT CVnProxySocket::ExecuteRequest()
{
    if (!m_pSocket)
        return E_FAIL;
    std::unique_ptr<char[]> buffer;
    DWORD size = 0;
    m_pSocket->ReceiveBytes(buffer, size);
    if (m_headPending == 1)
        m_headPending = m_head.ParseRequestHead(buffer, size);
    if (m_headPending == 0 && m_headersPending == 1)
        m_headersPending = InitHeaders();
    if (m_headersPending == 0 && m_contentLength > 0)
        m_bodyPending = InitBody(buffer, size);
    // Bytes that no step took are dropped with the buffer.
    if (m_bodyPending != 0 && (m_headersPending != 0 || m_contentLength != 0))
        return S_OK;
    m_head.m_bodyFragment.clear();
    const HRESULT hr = Execute();
    ClearAfterExecute();
    return hr;
}

HRESULT CVnProxySocket::InitHeaders()
{
    const char* const method = "CVnProxySocket::ExecuteRequest";
    vfc::TComPtr<IEnumVARIANT> headers;
    if (!m_spRequest || FAILED(m_spRequest->get_Headers(headers.put())) || !headers) {
        LogLine(vn_log::kError, "CVnProxySocket::InitHeaders", "WebRequest->get_Headers failed.");
        return E_FAIL;
    }
    // The pipeline's objects are made in this process: the interface is the object.
    m_spRequestHeaders = static_cast<CVnHTTPHeaders*>(headers.get());
    // The remote side is always asked to close, whatever the client wanted.
    std::string& head = m_head.m_strHead;
    head += "Connection: Close";
    head += head.find("\r\n") != std::string::npos ? "\r\n" : "\n";
    m_spRequestHeaders->InitHeaders(head.c_str());

    vfc::TBstr value;
    m_contentLength = 0;
    if (m_spRequestHeaders->GetHeader(L"Content-Length", value.put()) == S_OK && value.get())
        m_contentLength = static_cast<DWORD>(::StrToIntA(vfc::Narrow(value.str()).c_str()));

    std::string line;
    if (m_spRequestHeaders->GetStatusLine(line) != S_OK) {
        LogLine(vn_log::kError, method, "CVnHTTPHeaders.GetStatusLine(tstrStatusLine)");
        return 1;
    }
    vfc::TBstr host;
    const bool hasHost = m_spRequestHeaders->GetHeader(L"Host", host.put()) == S_OK && host.get();
    const std::string hostText = hasHost ? vfc::Narrow(host.str()) : std::string();
    std::string verb, url;
    switch (vn_proxy::SplitRequestLine(line, hasHost ? hostText.c_str() : nullptr, verb, url)) {
    case vn_proxy::RequestLineNoBlank:
        LogLine(vn_log::kError, method, "StatusLine header error.");
        return E_FAIL;
    case vn_proxy::RequestLineNoHost:
        LogLine(vn_log::kError, method, "GetHeaderValue(Host) not found.");
        return 1;
    case vn_proxy::RequestLineOk:
        break;
    }
    vfc::TBstr verbText(vfc::Widen(verb)), urlText(vfc::Widen(url));
    m_spRequest->put_method(verbText.get());
    m_spRequest->put_url(urlText.get());
    return 0;
}

HRESULT CVnProxySocket::InitBody(std::unique_ptr<char[]>& buffer, DWORD& size)
{
    if (m_contentLength == 0)
        return 1;
    if (m_contentLength > m_head.m_bodyReceived)
        m_head.m_bodyReceived += size;
    if (!m_spRequestStream) {
        vfc::TComPtr<IVnStream> stream;
        if (FAILED(m_spRequest->get_DataStream(stream.put())) || !stream) {
            LogLine(vn_log::kError, "CVnProxySocket::InitBody", "WebRequest->get_DataStream failed.");
            return E_FAIL;
        }
        m_spRequestStream = static_cast<CVnQueueWriteStream*>(stream.get());
    }
    // The whole body is queued before the request runs; bytes beyond the
    // Content-Length go too.
    if (buffer) {
        m_spRequestStream->WriteToQueue(reinterpret_cast<const BYTE*>(buffer.get()), 0, static_cast<LONG>(size));
        buffer.reset();
        size = 0;
    } else if (!m_head.m_bodyFragment.empty()) {
        // The bytes that came with the head go once: a later pass that reads
        // nothing must not queue them again.
        m_spRequestStream->WriteToQueue(reinterpret_cast<const BYTE*>(m_head.m_bodyFragment.data()), 0,
                                        static_cast<LONG>(m_head.m_bodyFragment.size()));
        m_head.m_bodyFragment.clear();
    }
    return m_contentLength > m_head.m_bodyReceived ? 1 : 0;
}
