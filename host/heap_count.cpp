// The bytes that the server's own code holds through operator new, kept in
// its counters section: at rest the count goes back to where it was, or the
// server keeps something of every request. What the platform's libraries
// allocate for themselves is not in it, so a process that grows while this
// stays flat grows in the platform. Linked into the server alone.
#include <cstdlib>
#include <new>

#include "host/counters.h"

namespace {

// The size goes in front of the block; 16 bytes keep its alignment.
constexpr size_t kHeader = 16;

void* Allocate(size_t size) noexcept
{
    void* block = std::malloc(size + kHeader);
    if (!block)
        return nullptr;
    *static_cast<size_t*>(block) = size;
    CountHeapBytes(static_cast<LONG64>(size));
    return static_cast<char*>(block) + kHeader;
}

void Free(void* data) noexcept
{
    if (!data)
        return;
    char* block = static_cast<char*>(data) - kHeader;
    CountHeapBytes(-static_cast<LONG64>(*reinterpret_cast<size_t*>(block)));
    std::free(block);
}

void* AllocateOrThrow(size_t size)
{
    for (;;) {
        if (void* data = Allocate(size))
            return data;
        const std::new_handler handler = std::get_new_handler();
        if (!handler)
            throw std::bad_alloc();
        handler();
    }
}

}  // namespace

void* operator new(size_t size) { return AllocateOrThrow(size); }
void* operator new[](size_t size) { return AllocateOrThrow(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* data) noexcept { Free(data); }
void operator delete[](void* data) noexcept { Free(data); }
void operator delete(void* data, size_t) noexcept { Free(data); }
void operator delete[](void* data, size_t) noexcept { Free(data); }
void operator delete(void* data, const std::nothrow_t&) noexcept { Free(data); }
void operator delete[](void* data, const std::nothrow_t&) noexcept { Free(data); }
