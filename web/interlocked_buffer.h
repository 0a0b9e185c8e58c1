// InterlockedBuffer: the bounded queue of byte chunks between the two threads
// of a body, with a lock and two events.
#pragma once

#include <windows.h>

#include <deque>
#include <memory>

#include "vfc/critical_section.h"
#include "vfc/unique_resource.h"
#include "web/process_monitor.h"

// Bytes are copied once into chunks of at most maxChunkSize bytes and once out
// again. One thread writes and one reads; the lock guards the queue and the
// counts, hDataEvent wakes a waiting reader and hSpaceEvent a waiting writer.
//
// A writer waits for room only when bWaitWhenFull holds; it then watches the
// client through the monitor, so that a dead client frees it. A chunk waits
// until it fits whole, so at most dwMaxSize bytes are ever queued by a waiting
// writer. Without bWaitWhenFull the queue grows without limit.
class InterlockedBuffer {
public:
    // Throws std::range_error when maxChunkSize is 0 or above dwMaxSize.
    InterlockedBuffer(DWORD dwMaxSize, bool bWaitWhenFull, bool bWaitWhenEmpty, DWORD maxChunkSize);
    virtual ~InterlockedBuffer();
    InterlockedBuffer(const InterlockedBuffer&) = delete;
    InterlockedBuffer& operator=(const InterlockedBuffer&) = delete;

    // Queues cb bytes, waiting for room as described above. Gives whether the
    // queue is below its limit afterwards; false also when the client died
    // while this call waited or the writer is released (ReleaseWriter), in
    // which case what was queued before stays.
    // Throws std::invalid_argument for null data.
    bool Write(const BYTE* pbData, DWORD cb);
    // Takes up to cb bytes from the front and gives their count; 0 at once
    // from an empty queue unless bWaitWhenEmpty holds. Throws
    // std::invalid_argument for a null target.
    DWORD Read(BYTE* pb, DWORD cb);
    // Bytes queued in total.
    DWORD GetSize();
    // Throws away all that is queued and wakes a writer waiting for room.
    void Drain();
    // While released, a writer waiting for room gives up as if its client had
    // died: nobody will make room in a queue whose reader has been let go.
    void ReleaseWriter(bool release);
    // The client whose death ends a wait for room. Set before the writer starts.
    void SetMonitor(const VnProcessMonitor& monitor) noexcept { m_monitor = monitor; }

    // False when the events could not be made; the owner then refuses to exist.
    bool IsValid() const noexcept { return hSpaceEvent.valid() && hDataEvent.valid(); }

private:
    // One chunk, its own heap block.
    struct Chunk {
        std::unique_ptr<BYTE[]> pbData;
        DWORD cb;
    };

    // Waits outside the lock; false when the client died while the writer waited.
    bool _waitForSpace();

    const DWORD maxChunkSize;
    const DWORD dwMaxSize;
    const bool bWaitWhenFull;
    const bool bWaitWhenEmpty;

    std::deque<Chunk> m_chunks;
    DWORD cbQueued = 0;
    DWORD cbFrontConsumed = 0;
    vfc::TCriticalSection m_cs;
    vfc::THandle hSpaceEvent;
    vfc::THandle hDataEvent;
    // Under the lock: how many of each side wait on their event. Each side
    // sets the other's event only when someone waits for it, since under Wine
    // every set is a call to the server, which would otherwise come with
    // every chunk.
    int m_cWritersWaiting = 0;
    int m_cReadersWaiting = 0;
    bool m_bWriterReleased = false;
    VnProcessMonitor m_monitor;
};
