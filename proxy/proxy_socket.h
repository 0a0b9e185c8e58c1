// CVnProxySocket: one accepted client of the local proxy, a translator between
// the client's byte stream and the objects of the web request pipeline.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <memory>
#include <string>

#include "proxy/request_head.h"
#include "proxy/sockets/sockets.h"
#include "settings/config_data.h"
#include "vfc/com_ptr.h"
#include "vfc/critical_section.h"
#include "vfc/unique_resource.h"
#include "vnlinkhost.h"
#include "web/headers.h"
#include "web/process_monitor.h"
#include "web/streams.h"

// It collects bytes until a request's head is whole, fills a web request from
// it, passes the body on, executes the request and writes the response back:
// a head built from the result's headers, then the body as it comes from the
// result's stream. After a response it is ready for the next request on the
// same connection; the remote side is always asked to close.
//
// Threading: all work is done in ExecuteRequest, which a pool worker runs for
// each read or write event, one job at a time per connection, so the fields
// need no lock. A job never waits for the client: it takes what has come and
// returns, and the fields carry the state to the next event. The listener
// thread reads only m_hEvent and m_networkEvents; m_bTerminate is the one
// field that two threads write.
class CVnProxySocket {
public:
    CVnProxySocket(std::unique_ptr<CSocket> socket, const CConfigData* pConfigData, HWND hWindow,
                   const VnProcessMonitor& monitor);
    ~CVnProxySocket();
    CVnProxySocket(const CVnProxySocket&) = delete;
    CVnProxySocket& operator=(const CVnProxySocket&) = delete;

    WSAEVENT GetEvent() const { return m_hEvent.get(); }
    // Whether the client has already gone without a request: its close may
    // have come while the accepted socket still shared the listener's events,
    // and then this connection's own events never tell of it.
    bool HasLeft() const;
    // FD_READ, FD_WRITE, FD_CLOSE or 0. A read reported together with the
    // close counts as a read.
    int GetReadEventStatus();
    HRESULT ExecuteRequest();
    void SetTerminate(bool terminate);
    bool IsTerminate();

private:
    HRESULT InitHeaders();
    HRESULT InitBody(std::unique_ptr<char[]>& buffer, DWORD& size);
    HRESULT Execute();
    HRESULT _sendResponseHead();
    HRESULT SendRequestResult();
    // Sends the held piece from where the last send stopped; in `error` the
    // platform's code that stopped it (0: all sent).
    void _sendPending(int& error);
    void _dropPending();
    void ClearAfterExecute();
    void _newRequest();

    vfc::TWsaEvent m_hEvent;
    WSANETWORKEVENTS m_networkEvents = {};
    // A close that came in one record with bytes to read: the read is served
    // first, and the close is told at the listener's next look.
    bool m_bCloseDeferred = false;
    std::unique_ptr<CSocket> m_pSocket;  // null while the object is destroyed
    const CConfigData* m_pConfigData;    // the proxy's
    HWND m_hWindow;
    VnProcessMonitor m_monitor;
    // m_strHead, the body fragment and m_bodyReceived.
    CVnRequestHead m_head;
    int m_headPending = 1;
    HRESULT m_headersPending = 1;  // 1: again, 0: done, else failed
    HRESULT m_bodyPending = 1;
    int m_resultPending = 1;
    DWORD m_contentLength = 0;
    vfc::TComPtr<IVnWebRequest> m_spRequest;
    vfc::TComPtr<CVnHTTPHeaders> m_spRequestHeaders;
    vfc::TComPtr<IVnWebResult> m_spResult;
    vfc::TComPtr<CVnHTTPHeaders> m_spResultHeaders;
    vfc::TComPtr<CVnQueueReadStream> m_spResultStream;
    vfc::TComPtr<CVnQueueWriteStream> m_spRequestStream;
    bool m_bTerminate = false;
    vfc::TCriticalSection m_terminateLock;
    // A response piece that could not be sent yet, and how much of it went.
    std::unique_ptr<BYTE[]> m_pPendingData;
    LONG m_pendingSize = 0;
    LONG m_pendingSent = 0;
    // How the current response's body is framed for the client.
    vn_proxy::TBodyFraming m_framing = vn_proxy::FramingAsIs;
    bool m_bLastChunkQueued = false;
};
