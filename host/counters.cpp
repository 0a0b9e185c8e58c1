#include "host/counters.h"

#include <cstdio>

#include "vfc/unique_resource.h"

VnCounters* ProcessCounters() noexcept
{
    // Made once and kept for the life of the process; a failure is not
    // retried, since nothing the process does depends on the counters.
    static VnCounters* const counters = []() -> VnCounters* {
        char name[64];
        std::snprintf(name, sizeof name, kCountersNameFormat, static_cast<unsigned long>(::GetCurrentProcessId()));
        vfc::THandle section(
            ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(VnCounters), name));
        auto* view = section ? static_cast<VnCounters*>(::MapViewOfFile(section.get(), FILE_MAP_WRITE, 0, 0,
                                                                          sizeof(VnCounters)))
                             : nullptr;
        if (!view)
            return nullptr;
        LARGE_INTEGER frequency;
        ::QueryPerformanceFrequency(&frequency);
        view->llFrequency = frequency.QuadPart;
        section.detach();  // kept open with the view: the section lives as long as the process
        return view;
    }();
    return counters;
}

TExecuteTimer::~TExecuteTimer()
{
    VnCounters* counters = ProcessCounters();
    if (!counters)
        return;
    LARGE_INTEGER now;
    ::QueryPerformanceCounter(&now);
    ::InterlockedExchangeAdd64(&counters->llExecuteTicks, now.QuadPart - m_start.QuadPart);
    ::InterlockedIncrement64(&counters->llExecutes);
}

void CountLiveObjects(VnLiveKind kind, LONG64 delta) noexcept
{
    if (VnCounters* counters = ProcessCounters())
        ::InterlockedExchangeAdd64(&counters->llLiveObjects[kind], delta);
}

void CountHeapBytes(LONG64 delta) noexcept
{
    if (VnCounters* counters = ProcessCounters())
        ::InterlockedExchangeAdd64(&counters->llHeapBytes, delta);
}
