#pragma once

// Counts C++ heap allocations of the whole program: include in exactly one
// unit of a benchmark, which then replaces the global operator new. ZeroMQ's
// own buffers come from malloc and are not in the count.

#include <atomic>
#include <cstdlib>
#include <new>

namespace lumo::bench {
inline std::atomic<long> allocations{0};
}

void* operator new(std::size_t size) {
    lumo::bench::allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
// The replaced operator new allocates with malloc, so free is the match; the
// compiler cannot see that pairing across the replacement.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
#pragma GCC diagnostic pop
