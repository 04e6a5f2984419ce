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

}  // namespace

std::string toolVersion() {
  static const std::string version = [] {
    std::string text = ZV_TOOL_VERSION;
    auto bytes = fs::readDiskFile(programFile());
    if (bytes) text += format("+%016llx", static_cast<unsigned long long>(fnv1a64(bytes->data(), bytes->size())));
    return text;
  }();
  return version;
}

}  // namespace zv::app
