#include "guard/child_heap.h"

#include <malloc.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "guard/sanitized_build.h"

namespace koli {
namespace {

constexpr size_t kLargePage = 2097152;  // bytes; where it is another size the advice is without effect
constexpr size_t kLargePages = 8;       // taken one by one, as the heap grows
constexpr int kHeapBlock = 32 << 20;    // blocks up to here come from the heap; a larger value is refused

void* gap;  // before the large pages: stays taken, and untouched, to the end

}  // namespace

void ChildHeapUseLargePages() {
    if (kSanitizedBuild) return;  // an allocator of its own
    mallopt(M_MMAP_THRESHOLD, kHeapBlock);
    mallopt(M_TRIM_THRESHOLD, kHeapBlock);

    // Nothing free is as large, so the block is the heap's new end.
    void* block = malloc((kLargePages + 1) * kLargePage);
    if (block == nullptr) return;
    const size_t past_boundary = reinterpret_cast<uintptr_t>(block) % kLargePage;
    const size_t to_boundary = kLargePage - past_boundary;
    madvise(static_cast<char*>(block) + to_boundary, kLargePages * kLargePage, MADV_HUGEPAGE);
    gap = realloc(block, to_boundary);  // what is behind goes back to the allocator
}

}  // namespace koli
