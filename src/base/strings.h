#pragma once
// Small string helpers. ASCII only: legacy names are 8-bit text, and case folding must
// not depend on the locale.

#include <cstdarg>
#include <string>
#include <string_view>
#include <vector>

// printf-style checking of a format argument. MinGW's compilers read plain "printf" as
// the system C library's dialect, which lacks %zu; the C99 dialect is the one used.
#ifdef __MINGW32__
#define ZV_PRINTF_FORMAT(fmt, args) __attribute__((format(gnu_printf, fmt, args)))
#else
#define ZV_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))
#endif

namespace zv {

constexpr char toLowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }
std::string toLower(std::string_view text);
bool equalsNoCase(std::string_view a, std::string_view b);
bool startsWithNoCase(std::string_view text, std::string_view prefix);
bool containsNoCase(std::string_view text, std::string_view needle);
// Position of needle in text ignoring case, or npos.
size_t findNoCase(std::string_view text, std::string_view needle);
std::string replaceAll(std::string_view text, std::string_view from, std::string_view to);
std::vector<std::string> split(std::string_view text, char separator);

// printf into a std::string.
std::string format(const char* fmt, ...) ZV_PRINTF_FORMAT(1, 2);
std::string formatV(const char* fmt, va_list args);

}  // namespace zv
