// How fast a response body crosses a read stream from the receive thread to
// a client, measured against a plain copy of the same bytes in the same run,
// and how much memory the crossing holds. Run by hand:
//   wine bench_stream_throughput.exe [MiB]
#include <windows.h>
#include <psapi.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "vfc/com_ptr.h"
#include "web/stream_arrays.h"
#include "web/streams.h"

namespace {

constexpr DWORD kBlock = 4096;      // what the receive thread writes at a time
constexpr LONG kReadSize = 65536;   // what the client asks for at a time

double Now()
{
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        ::QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER t;
    ::QueryPerformanceCounter(&t);
    return static_cast<double>(t.QuadPart) / static_cast<double>(frequency.QuadPart);
}

PROCESS_MEMORY_COUNTERS Memory()
{
    PROCESS_MEMORY_COUNTERS pmc = {};
    pmc.cb = sizeof pmc;
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &pmc, sizeof pmc);
    return pmc;
}

// Every block carries its number in its first bytes, so the reader can tell
// that nothing was lost or reordered without a costly checksum.
void Stamp(BYTE* block, uint64_t number) { std::memcpy(block, &number, sizeof number); }

// Checks the stamps of all blocks that begin inside [offset, offset + size).
bool StampsHold(const BYTE* data, uint64_t offset, size_t size)
{
    uint64_t first = (offset + kBlock - 1) / kBlock * kBlock;
    for (uint64_t at = first; at + sizeof(uint64_t) <= offset + size; at += kBlock) {
        uint64_t number = 0;
        std::memcpy(&number, data + (at - offset), sizeof number);
        if (number != at / kBlock)
            return false;
    }
    return true;
}

// The receive thread writes blocks into the stream; this thread reads them
// through IVnStream::Read, as a client does. Gives the seconds taken, or a
// negative value when the bytes came out wrong.
double ThroughStream(uint64_t total)
{
    vfc::TComPtr<CVnQueueReadStream> stream;
    if (FAILED(CVnQueueReadStream::Create(stream.put())))
        return -1;
    const double start = Now();
    std::thread producer([&] {
        std::vector<BYTE> block(kBlock, 0xA5);
        for (uint64_t off = 0; off < total; off += kBlock) {
            Stamp(block.data(), off / kBlock);
            stream->WriteToQueue(block.data(), 0, kBlock);
        }
        stream->SetDone(true);
    });
    uint64_t received = 0;
    bool good = true;
    for (;;) {
        vn_streams::TSafeArray array;
        if (stream->Read(kReadSize, array.put()) != S_OK) {
            good = false;
            break;
        }
        LONG upper = -1;
        ::SafeArrayGetUBound(array.get(), 1, &upper);
        const size_t size = static_cast<size_t>(upper + 1);
        if (size == 0)
            break;
        void* data = nullptr;
        ::SafeArrayAccessData(array.get(), &data);
        good = good && StampsHold(static_cast<const BYTE*>(data), received, size);
        ::SafeArrayUnaccessData(array.get());
        received += size;
    }
    producer.join();
    const double seconds = Now() - start;
    return good && received == total ? seconds : -1;
}

// The same bytes copied the same two times on one thread, with no stream:
// a 4096-byte block into a ring of the queue's size, and out of the ring in
// pieces of the client's read size.
double PlainCopy(uint64_t total)
{
    std::vector<BYTE> block(kBlock, 0xA5);
    std::vector<BYTE> ring(kStreamQueueLimit);
    std::vector<BYTE> piece(kReadSize);
    const double start = Now();
    size_t filled = 0;
    uint64_t received = 0;
    bool good = true;
    for (uint64_t off = 0; off < total; off += kBlock) {
        Stamp(block.data(), off / kBlock);
        std::memcpy(ring.data() + filled, block.data(), kBlock);
        filled += kBlock;
        if (filled == ring.size()) {
            for (size_t at = 0; at < filled; at += piece.size()) {
                std::memcpy(piece.data(), ring.data() + at, piece.size());
                good = good && StampsHold(piece.data(), received, piece.size());
                received += piece.size();
            }
            filled = 0;
        }
    }
    const double seconds = Now() - start;
    return good && received == total ? seconds : -1;
}

double MiB(SIZE_T bytes) { return static_cast<double>(bytes) / (1024.0 * 1024.0); }

}  // namespace

int main(int argc, char** argv)
{
    const uint64_t mib = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 256;
    const uint64_t total = mib * 1024 * 1024;
    if (total == 0 || total % kStreamQueueLimit != 0) {
        std::fprintf(stderr, "the size must be a positive multiple of 0.25 MiB\n");
        return 2;
    }

    const PROCESS_MEMORY_COUNTERS before = Memory();
    const double streamSeconds = ThroughStream(total);
    const PROCESS_MEMORY_COUNTERS after = Memory();
    const double copySeconds = PlainCopy(total);
    if (streamSeconds < 0 || copySeconds < 0) {
        std::fprintf(stderr, "bytes were lost or reordered\n");
        return 1;
    }

    const double streamRate = static_cast<double>(mib) / streamSeconds;
    const double copyRate = static_cast<double>(mib) / copySeconds;
    std::printf("body                      %llu MiB in blocks of %lu bytes, read %ld bytes at a time\n",
                static_cast<unsigned long long>(mib), static_cast<unsigned long>(kBlock), static_cast<long>(kReadSize));
    std::printf("read stream, two threads  %8.1f MiB/s\n", streamRate);
    std::printf("plain copy, one thread    %8.1f MiB/s\n", copyRate);
    std::printf("stream / plain copy       %8.3f\n", streamRate / copyRate);
    std::printf("peak working set          %8.2f MiB before, %8.2f MiB after (+%.0f KiB; queue bound %lu KiB)\n",
                MiB(before.PeakWorkingSetSize), MiB(after.PeakWorkingSetSize),
                static_cast<double>(after.PeakWorkingSetSize - before.PeakWorkingSetSize) / 1024.0,
                static_cast<unsigned long>(kStreamQueueLimit / 1024));
    std::printf("peak pagefile usage       %8.2f MiB before, %8.2f MiB after (+%.0f KiB)\n",
                MiB(before.PeakPagefileUsage), MiB(after.PeakPagefileUsage),
                static_cast<double>(after.PeakPagefileUsage - before.PeakPagefileUsage) / 1024.0);
    return 0;
}
