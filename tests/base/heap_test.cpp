// The heap keeps what a model freed for the next one: taking a large block again costs no
// new page faults.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "base/heap.h"

#if defined(__GLIBC__)
#include <sys/resource.h>
#endif

namespace zv {
namespace {

#if defined(__GLIBC__)
long minorFaults() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

// Takes a block, writes every page of it, gives it back; returns the page faults that cost.
long faultsToFill(size_t bytes) {
  long before = minorFaults();
  char* block = static_cast<char*>(std::malloc(bytes));
  std::memset(block, 1, bytes);
  asm volatile("" : : "r"(block) : "memory");  // the writes happen
  std::free(block);
  return minorFaults() - before;
}
#endif

TEST(Heap, ABlockOfTensOfMegabytesFreedAndTakenAgainCostsNoNewPageFaults) {
#if defined(__GLIBC__)
  if (!heap::keepFreedMemoryForReuse()) GTEST_SKIP() << "a sanitizer owns the heap of this build";
  constexpr size_t kBytes = 24 << 20;
  constexpr long kPages = long(kBytes / 4096);
  faultsToFill(kBytes);  // the first time pays for its pages
  EXPECT_LT(faultsToFill(kBytes), kPages / 20);
  // Several models' worth in turn: still nothing new.
  for (int model = 0; model < 3; ++model) EXPECT_LT(faultsToFill(kBytes - size_t(model) * 4096), kPages / 20);
#else
  EXPECT_FALSE(heap::keepFreedMemoryForReuse());
  GTEST_SKIP() << "this C library's heap gives back freed memory in its own way";
#endif
}

}  // namespace
}  // namespace zv
