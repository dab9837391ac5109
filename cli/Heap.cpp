#include "cli/Heap.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

namespace vessa::cli {

namespace {

constexpr std::size_t kStep = std::size_t(1) << 30;            // address space; pages come when touched
constexpr std::uintptr_t kHugePage = std::uintptr_t(2) << 20;  // the x86-64 transparent huge page

}  // namespace

void preferLargePages() {
    mallopt(M_ARENA_MAX, 1);
    // Requests up to 32 MiB come from the heap, which grows by kStep at a time and is not trimmed.
    if (mallopt(M_MMAP_THRESHOLD, 32 << 20) == 0 || mallopt(M_TRIM_THRESHOLD, static_cast<int>(kStep)) == 0 ||
        mallopt(M_TOP_PAD, static_cast<int>(kStep)) == 0) {
        return;
    }
    // One request larger than what is left makes the heap grow now; freed, it stays in the heap.
    void* probe = std::malloc(4 << 20);
    if (probe == nullptr) {
        return;
    }
    const auto from = (reinterpret_cast<std::uintptr_t>(probe) + kHugePage - 1) & ~(kHugePage - 1);
    std::free(probe);
    const auto top = reinterpret_cast<std::uintptr_t>(::sbrk(0));
    if (top != static_cast<std::uintptr_t>(-1) && top > from) {
        ::madvise(reinterpret_cast<void*>(from), top - from, MADV_HUGEPAGE);  // advice; a refusal is fine
    }
}

}  // namespace vessa::cli
