#pragma once
// How the process's heap treats freed memory. A batch converts model after model, each
// building and dropping tables and buffers of tens of megabytes; by default the C library
// hands large freed blocks back to the system, and every next model pays a page fault per
// page to get them again, which for a face with many flexes costs more than converting it.

namespace zv::heap {

// Keeps freed memory in the process for the next model: blocks up to 32 MB come from the
// heap rather than from maps of their own, and its free top is given back only past
// 256 MB. The peak is what it was; the memory stays at that peak until the process ends.
// Where the C library offers no such settings (or a sanitizer owns the heap) it does
// nothing and says so by returning false.
bool keepFreedMemoryForReuse();

}  // namespace zv::heap
