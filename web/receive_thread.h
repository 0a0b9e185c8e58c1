// ReceiveThreadWrapper: owns the transceiver of a request and the one thread
// that pulls a response body from the network into the result's read stream.
// The request and the read stream share it, so the transceiver lives while a
// body still arrives for a request that the client has already dropped.
#pragma once

#include <windows.h>

#include <memory>

#include "host/counters.h"
#include "vfc/unique_resource.h"
#include "web/streams.h"
#include "web/transceiver.h"

class ReceiveThreadWrapper : public IReceiveThreadOwner {
public:
    ReceiveThreadWrapper();
    ~ReceiveThreadWrapper() override;

    // Tells the read stream, while a thread runs, that its body must end.
    void SignalDone();
    // Joins the receive thread; never ends it by force.
    void TerminateReceiveThread();

    // IReceiveThreadOwner, for the read stream's destructor.
    void ReleaseDoneable() override;
    void StopReceiveThread() override;

    // Owned here; deleted by whichever comes first of the read stream's end
    // and this object's end.
    std::unique_ptr<CVnLinkhostWITransceiver> m_pWITransceiver;
    // The read stream's IDoneable; not owned.
    IDoneable* m_pDoneable = nullptr;
    vfc::THandle m_hThread;

private:
    TLiveObject<kLiveReceiveOwners> m_live;
};

// The receive thread's start block: two plain pointers, no references. The
// thread may use them because nothing frees them before it has been joined.
struct ReceiveBlock {
    CVnQueueReadStream* pStream;
    CVnLinkhostWITransceiver* pTransceiver;
};

// The thread's entry; deletes its block.
DWORD WINAPI ReadBodyThreadProc(LPVOID block);

// Stored in every transceiver: moves each block read into the read stream.
LONG ReceiveDataCallbackProc(BYTE* buffer, DWORD cbBuffer, DWORD cbRead, void* block);
