// Memory mapped ahead for a call.
#include "cli/heap_ahead.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <vector>

namespace mrpcalc::testing {
namespace {

TEST(HeapAhead, SizedByTheRequest) {
  EXPECT_EQ(cli::HeapAheadFor(0), 0u);
  EXPECT_EQ(cli::HeapAheadFor(100'000), 0u);  // a small request: nothing
  EXPECT_EQ(cli::HeapAheadFor(size_t{1} << 20), size_t{5} << 20);
  EXPECT_EQ(cli::HeapAheadFor(size_t{12} << 20), size_t{60} << 20);
  EXPECT_EQ(cli::HeapAheadFor(SIZE_MAX / 2), size_t{60} << 20);
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
