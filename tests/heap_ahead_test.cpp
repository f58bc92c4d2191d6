// Memory mapped ahead for a call.
#include "cli/heap_ahead.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <vector>

namespace mrpcalc::testing {
namespace {

// The block must come from the heap, so that the request and answer that
// follow reuse its warmed pages: it stays below the mmap threshold the
// program sets, grows with the request, and a small request gets none.
TEST(HeapAhead, AlwaysAHeapBlockGrowingWithTheRequest) {
  constexpr size_t kMmapThreshold = size_t{64} << 20;  // as main sets it
  size_t before = 0;
  for (size_t request = 1; request < (size_t{1} << 34); request = request * 3 / 2 + 1) {
    const size_t block = cli::HeapAheadFor(request);
    EXPECT_LT(block, kMmapThreshold) << request;
    EXPECT_GE(block, before) << request;
    if (block > 0 && block < kMmapThreshold / 2) EXPECT_GE(block, request) << request;
    before = block;
  }
  EXPECT_EQ(cli::HeapAheadFor(100'000), 0u);
  EXPECT_GT(cli::HeapAheadFor(size_t{8} << 20), 0u);
}

// Mapping the block never touches what it holds: a buffer the heap carves
// from it, filled while the helper may still be at work, reads back whole.
TEST(HeapAhead, MapsWithoutTouchingWhatTheHeapHandsOut) {
  mallopt(M_MMAP_THRESHOLD, 64 << 20);  // as the program keeps its heap
  mallopt(M_TRIM_THRESHOLD, 256 << 20);
  auto value = [](size_t i) { return i * 0x9E3779B97F4A7C15ull; };
  std::vector<uint64_t> filled;
  {
    const cli::HeapAhead heap(size_t{32} << 20);
    filled.resize(size_t{2} << 20);  // 16 MB
    for (size_t i = 0; i < filled.size(); ++i) filled[i] = value(i);
  }  // the helper is done
  for (size_t i = 0; i < filled.size(); ++i) ASSERT_EQ(filled[i], value(i)) << i;
  const cli::HeapAhead nothing(0);  // no helper to join
}

}  // namespace
}  // namespace mrpcalc::testing
