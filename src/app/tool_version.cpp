#include "app/tool_version.h"

#include "base/hash.h"
#include "base/strings.h"
#include "fs/directory_source.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace zv::app {
namespace {

// The running program's own file; empty where the platform cannot say.
std::filesystem::path programFile() {
#ifdef _WIN32
  wchar_t name[32768];
  DWORD length = GetModuleFileNameW(nullptr, name, DWORD(std::size(name)));
  if (length == 0 || length >= std::size(name)) return {};
  return std::filesystem::path(std::wstring(name, length));
#else
  return "/proc/self/exe";
#endif
}

// The program's bytes eight at a time, the tail byte by byte: a byte-at-a-time hash of a
// build with debug information cost more than drawing a whole batch's thumbnails. Words
// are assembled little-end first, so every platform gives the same value for the same bytes.
uint64_t programHash(const uint8_t* data, size_t size) {
  uint64_t h = 0xcbf29ce484222325ull ^ size;
  size_t i = 0;
  for (; i + 8 <= size; i += 8) {
    uint64_t word = 0;
    for (int k = 0; k < 8; ++k) word |= uint64_t(data[i + size_t(k)]) << (8 * k);
    h = (h ^ word) * 0x100000001b3ull;
    h ^= h >> 29;
  }
  return h ^ fnv1a64(data + i, size - i);
}

}  // namespace

std::string toolVersion() {
  static const std::string version = [] {
    std::string text = ZV_TOOL_VERSION;
    auto bytes = fs::readDiskFile(programFile());
    if (bytes) text += format("+%016llx", static_cast<unsigned long long>(programHash(bytes->data(), bytes->size())));
    return text;
  }();
  return version;
}

}  // namespace zv::app
