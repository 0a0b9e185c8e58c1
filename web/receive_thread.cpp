#include "web/receive_thread.h"

#include <vector>

#include "host/log.h"

ReceiveThreadWrapper::ReceiveThreadWrapper() : m_pWITransceiver(new CVnLinkhostWITransceiver) {}

ReceiveThreadWrapper::~ReceiveThreadWrapper()
{
    TraceLine("ReceiveThreadWrapper::~ReceiveThreadWrapper() started");
    SignalDone();
    if (m_pWITransceiver)
        m_pWITransceiver->AbandonInternetHandles();
    TerminateReceiveThread();
    m_pWITransceiver.reset();
    TraceLine("ReceiveThreadWrapper::~ReceiveThreadWrapper() done");
}

void ReceiveThreadWrapper::SignalDone()
{
    if (m_hThread && m_pDoneable)
        m_pDoneable->SetDone(true);
}

void ReceiveThreadWrapper::TerminateReceiveThread()
{
    if (!m_hThread)
        return;
    if (::WaitForSingleObject(m_hThread.get(), INFINITE) == WAIT_TIMEOUT)
        LogLine(vn_log::kError, "ReceiveThreadWrapper::TerminateReceiveThread", "WAIT_TIMEOUT");
    m_hThread.reset();
}

void ReceiveThreadWrapper::ReleaseDoneable()
{
    if (m_pDoneable)
        m_pDoneable->SetDone(true);
    m_pDoneable = nullptr;
}

void ReceiveThreadWrapper::StopReceiveThread()
{
    // Taking the handles away breaks a read that is stuck in the platform;
    // they close in the background, since closing may read the rest of a
    // body first, and the client must not wait for that.
    if (m_pWITransceiver)
        m_pWITransceiver->AbandonInternetHandles();
    TerminateReceiveThread();
    m_pWITransceiver.reset();
}

DWORD WINAPI ReadBodyThreadProc(LPVOID param)
{
    std::unique_ptr<ReceiveBlock> block(static_cast<ReceiveBlock*>(param));
    TraceLine("CVnWebRequest::ReadBodyThreadProc() started");
    std::vector<BYTE> buffer(4096);
    CVnLinkhostWITransceiver* transceiver = block->pTransceiver;
    LONG code = transceiver->ReceiveDataAsync(buffer.data(), static_cast<DWORD>(buffer.size()), block.get());
    if (code != 0) {
        block->pStream->SetDone(true);
        LogLine(vn_log::kErrorDec, "CVnWebResult::ReadBodyThreadProc", "CVnWITransceiver::ReceiveDataAsync failed.",
                static_cast<int>(code));
        if (code == WAIT_TIMEOUT)  // closing may read the rest of a body: not on this thread
            transceiver->AbandonInternetHandles();
        return static_cast<DWORD>(code);
    }
    block->pStream->SetDone(true);
    code = transceiver->EndReceiveDataAsync(false);
    if (code != 0)
        LogLine(vn_log::kErrorDec, "CVnWebResult::ReadBodyThreadProc", "CVnWITransceiver::EndReceiveDataAsync failed.",
                static_cast<int>(code));
    return static_cast<DWORD>(code);
}

LONG ReceiveDataCallbackProc(BYTE* buffer, DWORD, DWORD cbRead, void* param)
{
    CVnQueueReadStream* stream = static_cast<ReceiveBlock*>(param)->pStream;
    // The client has gone, or a read failed: drop this block and stop.
    if (stream->IsDone())
        return 1;
    if (cbRead > 0)
        stream->WriteToQueue(buffer, 0, static_cast<LONG>(cbRead));
    else
        stream->SetDone(true);
    return 0;
}
