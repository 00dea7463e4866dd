#pragma once
// Replaces the global operator new and delete of a test program with ones
// that count their calls on threads the test marks. Include it in exactly
// one source file of a test program: the replacements are definitions, and
// a program may hold only one of each.
//
// The counts show whether code run on a marked thread touched the allocator
// at all, whatever it called: a container growing, a temporary string, a
// thread started, a lambda stored in a std::function.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace counting_allocator {

struct Counts {
    int64_t allocations = 0;
    int64_t releases = 0;
    bool operator==(const Counts&) const = default;
};

inline thread_local bool t_marked = false;
inline thread_local std::size_t t_largest = 0;  // bytes, since the scope began
inline std::atomic<int64_t> g_allocations{0};
inline std::atomic<int64_t> g_releases{0};

inline Counts Now() { return {g_allocations.load(), g_releases.load()}; }

// Marks the constructing thread for the scope's life and gives the calls
// it made meanwhile.
class MarkedScope {
public:
    MarkedScope() : m_start(Now())
    {
        t_largest = 0;
        t_marked = true;
    }
    ~MarkedScope() { t_marked = false; }
    MarkedScope(const MarkedScope&) = delete;
    MarkedScope& operator=(const MarkedScope&) = delete;

    Counts SoFar() const
    {
        const Counts now = Now();
        return {now.allocations - m_start.allocations, now.releases - m_start.releases};
    }
    // The largest single request the thread made meanwhile, in bytes.
    std::size_t LargestRequest() const { return t_largest; }

private:
    Counts m_start;
};

inline void Note(std::size_t size)
{
    if (!t_marked) return;
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (size > t_largest) t_largest = size;
}

inline void* Allocate(std::size_t size)
{
    Note(size);
    return std::malloc(size == 0 ? 1 : size);
}

inline void* AllocateAligned(std::size_t size, std::align_val_t alignment)
{
    Note(size);
    const std::size_t align = static_cast<std::size_t>(alignment);
    // aligned_alloc wants a size that is a multiple of the alignment.
    const std::size_t rounded = (size + align - 1) / align * align;
    return std::aligned_alloc(align, rounded == 0 ? align : rounded);
}

// Kept out of line: inlined into a caller, the free would look to the
// compiler like the wrong partner of that caller's new.
[[gnu::noinline]] inline void Release(void* pointer)
{
    if (pointer == nullptr) return;
    if (t_marked) g_releases.fetch_add(1, std::memory_order_relaxed);
    std::free(pointer);
}

inline void* OrThrow(void* pointer)
{
    if (pointer == nullptr) throw std::bad_alloc();
    return pointer;
}

}  // namespace counting_allocator

void* operator new(std::size_t size) { return counting_allocator::OrThrow(counting_allocator::Allocate(size)); }
void* operator new[](std::size_t size) { return counting_allocator::OrThrow(counting_allocator::Allocate(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return counting_allocator::Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return counting_allocator::Allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment)
{
    return counting_allocator::OrThrow(counting_allocator::AllocateAligned(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return counting_allocator::OrThrow(counting_allocator::AllocateAligned(size, alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return counting_allocator::AllocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return counting_allocator::AllocateAligned(size, alignment);
}

void operator delete(void* pointer) noexcept { counting_allocator::Release(pointer); }
void operator delete[](void* pointer) noexcept { counting_allocator::Release(pointer); }
void operator delete(void* pointer, std::size_t) noexcept { counting_allocator::Release(pointer); }
void operator delete[](void* pointer, std::size_t) noexcept { counting_allocator::Release(pointer); }
void operator delete(void* pointer, const std::nothrow_t&) noexcept { counting_allocator::Release(pointer); }
void operator delete[](void* pointer, const std::nothrow_t&) noexcept { counting_allocator::Release(pointer); }
void operator delete(void* pointer, std::align_val_t) noexcept { counting_allocator::Release(pointer); }
void operator delete[](void* pointer, std::align_val_t) noexcept { counting_allocator::Release(pointer); }
void operator delete(void* pointer, std::size_t, std::align_val_t) noexcept { counting_allocator::Release(pointer); }
void operator delete[](void* pointer, std::size_t, std::align_val_t) noexcept { counting_allocator::Release(pointer); }
void operator delete(void* pointer, std::align_val_t, const std::nothrow_t&) noexcept
{
    counting_allocator::Release(pointer);
}
void operator delete[](void* pointer, std::align_val_t, const std::nothrow_t&) noexcept
{
    counting_allocator::Release(pointer);
}
