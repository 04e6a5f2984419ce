#pragma once
// A replacement of the global allocation functions that counts every allocation, for the
// programs that link it (a benchmark build of the tool, allocation tests). Linking it
// into a program is what turns counting on.

#include <cstdint>

namespace zv::alloc_count {

// Allocations made through operator new since the program started, on every thread.
uint64_t allocations();

}  // namespace zv::alloc_count
