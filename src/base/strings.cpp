#include "base/strings.h"

#include <cstdio>

namespace zv {

std::string toLower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = toLowerAscii(c);
  return out;
}

bool equalsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (toLowerAscii(a[i]) != toLowerAscii(b[i])) return false;
  }
  return true;
}

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && equalsNoCase(text.substr(0, prefix.size()), prefix);
}

size_t findNoCase(std::string_view text, std::string_view needle) {
  if (needle.size() > text.size()) return std::string_view::npos;
  for (size_t i = 0; i + needle.size() <= text.size(); ++i) {
    if (equalsNoCase(text.substr(i, needle.size()), needle)) return i;
  }
  return std::string_view::npos;
}

bool containsNoCase(std::string_view text, std::string_view needle) {
  return findNoCase(text, needle) != std::string_view::npos;
}

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
  if (from.empty()) return std::string(text);
  std::string out;
  size_t pos = 0;
  for (size_t hit; (hit = text.find(from, pos)) != std::string_view::npos; pos = hit + from.size()) {
    out.append(text.substr(pos, hit - pos)).append(to);
  }
  out.append(text.substr(pos));
  return out;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  size_t start = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == separator) {
      pieces.emplace_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  return pieces;
}

std::string formatV(const char* fmt, va_list args) {
  va_list copy;
  va_copy(copy, args);
  int needed = std::vsnprintf(nullptr, 0, fmt, copy);
  va_end(copy);
  if (needed <= 0) return {};
  std::string out(static_cast<size_t>(needed) + 1, '\0');
  std::vsnprintf(out.data(), out.size(), fmt, args);
  out.resize(static_cast<size_t>(needed));
  return out;
}

std::string format(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string out = formatV(fmt, args);
  va_end(args);
  return out;
}

}  // namespace zv
