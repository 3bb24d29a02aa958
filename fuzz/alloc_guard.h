// The per-input allocation check of the loader targets: under a sanitizer
// runtime (the fuzz build, `make sanitize`) malloc and free hooks keep the
// live heap bytes, and an input whose load needs more than `factor` bytes
// per byte of input, plus a fixed allowance, aborts as a finding.  Without a
// sanitizer the check is off.
#ifndef VRNCAL_FUZZ_ALLOC_GUARD_H
#define VRNCAL_FUZZ_ALLOC_GUARD_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, std::size_t),
                                              void (*)(const volatile void*)) __attribute__((weak));
std::size_t __sanitizer_get_allocated_size(const volatile void*) __attribute__((weak));
}

namespace vrncal_check {

struct HeapCount {
    std::int64_t live = 0;
    std::int64_t peak = 0;
};

inline HeapCount& heapCount() {
    static HeapCount count;
    return count;
}

inline void countMalloc(const volatile void*, std::size_t n) {
    HeapCount& c = heapCount();
    c.live += static_cast<std::int64_t>(n);
    if (c.live > c.peak) c.peak = c.live;
}

inline void countFree(const volatile void* p) {
    if (p != nullptr) heapCount().live -= static_cast<std::int64_t>(__sanitizer_get_allocated_size(p));
}

inline bool heapCounted() {
    static const bool installed = __sanitizer_install_malloc_and_free_hooks != nullptr &&
                                  __sanitizer_get_allocated_size != nullptr &&
                                  __sanitizer_install_malloc_and_free_hooks(countMalloc, countFree) != 0;
    return installed;
}

// Checks the heap growth between its construction and its destruction.
class AllocGuard {
public:
    AllocGuard(std::size_t inputSize, double factor, std::int64_t allowance = 4 << 20)
        : limit_(static_cast<std::int64_t>(factor * static_cast<double>(inputSize)) + allowance) {
        if (!heapCounted()) return;
        start_ = heapCount().live;
        heapCount().peak = start_;
        on_ = true;
    }
    ~AllocGuard() {
        if (!on_) return;
        const std::int64_t used = heapCount().peak - start_;
        if (used > limit_) {
            std::fprintf(stderr, "allocation finding: %lld bytes for this input, limit %lld\n",
                         static_cast<long long>(used), static_cast<long long>(limit_));
            std::abort();
        }
    }
    AllocGuard(const AllocGuard&) = delete;
    AllocGuard& operator=(const AllocGuard&) = delete;

private:
    std::int64_t limit_;
    std::int64_t start_ = 0;
    bool on_ = false;
};

}  // namespace vrncal_check

#endif
