#include "cli/heap_ahead.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace mrpcalc::cli {

namespace {
constexpr size_t kPerRequestByte = 5;
constexpr size_t kLargest = size_t{60} << 20;  // below the heap's mmap threshold
constexpr size_t kSmallest = size_t{4} << 20;  // two huge pages
constexpr uintptr_t kStep = uintptr_t{2} << 20;  // a huge page
}  // namespace

size_t HeapAheadFor(size_t request_bytes) {
  const size_t bytes =
      request_bytes > kLargest / kPerRequestByte ? kLargest : request_bytes * kPerRequestByte;
  return bytes < kSmallest ? 0 : bytes;
}

HeapAhead::HeapAhead(size_t bytes) {
  if (bytes == 0) return;
  void* block = std::malloc(bytes);
  if (!block) return;
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto from = (reinterpret_cast<uintptr_t>(block) + page - 1) & ~(page - 1);
  const auto to = (reinterpret_cast<uintptr_t>(block) + bytes) & ~(page - 1);
  // Back at the top of the heap, which keeps it mapped.
  std::free(block);
  if (from >= to) return;
  // Mapping pages does not touch what they hold, so the heap may hand them
  // out while this runs. Either call may be refused (an older kernel, no
  // transparent huge pages): the pages are then mapped when first touched.
  helper_ = std::thread([from, to] {
    madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
#ifdef MADV_POPULATE_WRITE
    // A huge page at a time: the system holds the process's address space
    // while it maps, and the heap's own growth (the main thread's, and the
    // other threads' arenas) waits for that. In steps, it waits for one
    // step at most.
    for (uintptr_t at = from; at < to;) {
      const uintptr_t next = std::min(to, (at + kStep) & ~(kStep - 1));
      madvise(reinterpret_cast<void*>(at), next - at, MADV_POPULATE_WRITE);
      at = next;
    }
#endif
  });
}

HeapAhead::~HeapAhead() {
  if (helper_.joinable()) helper_.join();
}

}  // namespace mrpcalc::cli
