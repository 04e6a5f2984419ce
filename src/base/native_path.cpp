#include "base/native_path.h"

#ifdef _WIN32
#include <windows.h>
#include <shellapi.h>
#endif

namespace zv::native {

#ifdef _WIN32

std::wstring widen(std::string_view utf8) {
  if (utf8.empty()) return {};
  int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), nullptr, 0);
  std::wstring wide(size_t(size > 0 ? size : 0), L'\0');
  if (size > 0) MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), wide.data(), size);
  return wide;
}

std::string narrow(std::wstring_view wide) {
  if (wide.empty()) return {};
  int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), int(wide.size()), nullptr, 0, nullptr, nullptr);
  std::string utf8(size_t(size > 0 ? size : 0), '\0');
  if (size > 0) WideCharToMultiByte(CP_UTF8, 0, wide.data(), int(wide.size()), utf8.data(), size, nullptr, nullptr);
  return utf8;
}

std::filesystem::path toPath(std::string_view utf8) { return std::filesystem::path(widen(utf8)); }
std::string fromPath(const std::filesystem::path& path) { return narrow(path.native()); }
std::string genericFromPath(const std::filesystem::path& path) { return narrow(path.generic_wstring()); }

std::vector<std::string> commandLineArguments(int, char**) {
  std::vector<std::string> args;
  int count = 0;
  wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
  if (!wide) return args;
  for (int i = 1; i < count; ++i) args.push_back(narrow(wide[i]));
  LocalFree(wide);
  return args;
}

#else

std::filesystem::path toPath(std::string_view utf8) { return std::filesystem::path(std::string(utf8)); }
std::string fromPath(const std::filesystem::path& path) { return path.native(); }
std::string genericFromPath(const std::filesystem::path& path) { return path.generic_string(); }

std::vector<std::string> commandLineArguments(int argc, char** argv) {
  return std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc);
}

#endif

}  // namespace zv::native
