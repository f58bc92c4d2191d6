// Memory for a call, mapped ahead on a thread of its own.
#pragma once

#include <cstddef>
#include <thread>

namespace mrpcalc::cli {

// Grows the main thread's heap by `bytes` at once and gives them straight
// back, so that the heap's next allocations are carved from that block;
// meanwhile a helper thread has the system map the block (in huge pages
// where it gives them). The request's buffers and the calculation then find
// memory already there instead of stopping at a page fault for every 4 KB
// of it, and the mapping is done in one piece, on the other core, while the
// request is read. Nothing waits for the helper but the destructor, which
// joins it. Relies on the process keeping freed memory (a trim threshold
// above `bytes`, as main sets).
class HeapAhead {
 public:
  explicit HeapAhead(size_t bytes);
  ~HeapAhead();
  HeapAhead(const HeapAhead&) = delete;
  HeapAhead& operator=(const HeapAhead&) = delete;

 private:
  std::thread helper_;
};

// What a call on a request of `request_bytes` maps ahead: about what the
// main thread's heap touches for a report (five times its request), so that
// nothing is mapped that would not be used; never more than the heap takes
// in one piece (60 MB), nothing for a small request.
size_t HeapAheadFor(size_t request_bytes);

}  // namespace mrpcalc::cli
