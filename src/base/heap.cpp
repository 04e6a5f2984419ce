#include "base/heap.h"

#include <cstdlib>  // defines __GLIBC__ where that is the C library

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace zv::heap {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizedHeap = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool kSanitizedHeap = true;
#else
constexpr bool kSanitizedHeap = false;
#endif
#else
constexpr bool kSanitizedHeap = false;
#endif

}  // namespace

bool keepFreedMemoryForReuse() {
#if defined(__GLIBC__)
  if (kSanitizedHeap) return false;
  constexpr int kLargestHeapBlock = 32 << 20;  // the library's own ceiling for this setting
  constexpr int kFreeTopKept = 256 << 20;
  return mallopt(M_MMAP_THRESHOLD, kLargestHeapBlock) == 1 && mallopt(M_TRIM_THRESHOLD, kFreeTopKept) == 1;
#else
  return false;
#endif
}

}  // namespace zv::heap
