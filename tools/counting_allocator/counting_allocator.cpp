#include "counting_allocator.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#ifdef _WIN32
#include <malloc.h>
#endif
#include <new>

namespace {

std::atomic<uint64_t> g_allocations{0};

void* allocate(std::size_t size, std::size_t alignment) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  if (size == 0) size = 1;
  if (alignment == 0) return std::malloc(size);
#ifdef _WIN32
  return _aligned_malloc(size, alignment);
#else
  // aligned_alloc wants a size that is a multiple of the alignment.
  return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
#endif
}

// What the aligned forms allocated is freed apart on Windows.
void freeAligned(void* p) {
#ifdef _WIN32
  _aligned_free(p);
#else
  std::free(p);
#endif
}

void* allocateOrThrow(std::size_t size, std::size_t alignment) {
  if (void* p = allocate(size, alignment)) return p;
  throw std::bad_alloc();
}

// Prints the count when the program ends and ZV_COUNT_ALLOCATIONS is set, so a script can
// read it from any program that links this file.
struct ExitReport {
  ~ExitReport() {
    if (std::getenv("ZV_COUNT_ALLOCATIONS"))
      std::fprintf(stderr, "allocations: %llu\n", static_cast<unsigned long long>(g_allocations.load()));
  }
} g_exitReport;

}  // namespace

namespace zv::alloc_count {
uint64_t allocations() { return g_allocations.load(std::memory_order_relaxed); }
}  // namespace zv::alloc_count

void* operator new(std::size_t size) { return allocateOrThrow(size, 0); }
void* operator new[](std::size_t size) { return allocateOrThrow(size, 0); }
void* operator new(std::size_t size, std::align_val_t a) { return allocateOrThrow(size, std::size_t(a)); }
void* operator new[](std::size_t size, std::align_val_t a) { return allocateOrThrow(size, std::size_t(a)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, 0); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, 0); }
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
  return allocate(size, std::size_t(a));
}
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
  return allocate(size, std::size_t(a));
}

void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { freeAligned(p); }
void operator delete[](void* p, std::align_val_t) noexcept { freeAligned(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { freeAligned(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { freeAligned(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { freeAligned(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { freeAligned(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
