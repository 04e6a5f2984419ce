#pragma once
// Paths are UTF-8 text everywhere inside the tool. The system's own form (UTF-16 on
// Windows, bytes elsewhere) exists only in std::filesystem::path values handed to the
// system; these functions are where the two meet, and nothing else converts.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace zv::native {

// UTF-8 text as a path for the system. Text that is not valid UTF-8 never throws: on
// Windows each bad byte becomes U+FFFD.
std::filesystem::path toPath(std::string_view utf8);
// A path as UTF-8 text, with the system's separators.
std::string fromPath(const std::filesystem::path& path);
// A path as UTF-8 text with "/" separators.
std::string genericFromPath(const std::filesystem::path& path);

// The arguments after the program name, as UTF-8 (on Windows taken from the wide
// command line, since argv holds the ANSI code page's approximation of it).
std::vector<std::string> commandLineArguments(int argc, char** argv);

#ifdef _WIN32
std::wstring widen(std::string_view utf8);
std::string narrow(std::wstring_view wide);
#endif

}  // namespace zv::native
