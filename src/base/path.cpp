#include "base/path.h"

#include <vector>

namespace zv::path {

std::string fitPath(std::string_view text) {
  return std::string(text.substr(0, std::min(text.size(), kMaxPath - 1)));
}

bool isAbsolute(std::string_view path) {
  if (!path.empty() && isSeparator(path[0])) return true;
  return path.size() >= 2 && path[1] == ':' &&
         ((path[0] >= 'a' && path[0] <= 'z') || (path[0] >= 'A' && path[0] <= 'Z'));
}

static size_t lastSeparator(std::string_view path) {
  for (size_t i = path.size(); i > 0; --i) {
    if (isSeparator(path[i - 1])) return i - 1;
  }
  return std::string_view::npos;
}

std::string_view fileName(std::string_view path) {
  size_t sep = lastSeparator(path);
  return sep == std::string_view::npos ? path : path.substr(sep + 1);
}

std::string_view extension(std::string_view path) {
  std::string_view name = fileName(path);
  size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? std::string_view() : name.substr(dot + 1);
}

std::string_view fileBase(std::string_view path) {
  std::string_view name = fileName(path);
  size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? name : name.substr(0, dot);
}

std::string_view parent(std::string_view path) {
  size_t sep = lastSeparator(path);
  return sep == std::string_view::npos ? std::string_view() : path.substr(0, sep);
}

std::string stripExtension(std::string_view path) {
  std::string_view ext = extension(path);
  if (ext.empty() && (path.empty() || path.back() != '.')) return fitPath(path);
  return fitPath(path.substr(0, path.size() - ext.size() - 1));
}

std::string withExtension(std::string_view path, std::string_view ext) {
  return fitPath(stripExtension(path) + std::string(ext));
}

static std::string replaceSeparators(std::string_view path, char separator) {
  std::string out(path);
  for (char& c : out) {
    if (isSeparator(c)) c = separator;
  }
  return out;
}

std::string toForwardSlashes(std::string_view path) { return replaceSeparators(path, '/'); }
std::string toBackSlashes(std::string_view path) { return replaceSeparators(path, '\\'); }

std::string removeDoubleSlashes(std::string_view path) {
  std::string out;
  out.reserve(path.size());
  for (char c : path) {
    if (isSeparator(c) && !out.empty() && isSeparator(out.back())) continue;
    out.push_back(c);
  }
  return out;
}

std::string join(std::string_view a, std::string_view b, char separator) {
  if (a.empty()) return std::string(b);
  if (b.empty()) return std::string(a);
  std::string out(a);
  bool aEnds = isSeparator(out.back());
  bool bStarts = isSeparator(b.front());
  if (aEnds && bStarts) {
    b.remove_prefix(1);
  } else if (!aEnds && !bStarts) {
    out.push_back(separator);
  }
  out.append(b);
  return out;
}

std::string normalize(std::string_view path) {
  // Split into components, remembering each component's following separator.
  std::string prefix;
  size_t start = 0;
  if (path.size() >= 2 && path[1] == ':') {
    prefix = std::string(path.substr(0, 2));
    start = 2;
  }
  while (start < path.size() && isSeparator(path[start])) prefix.push_back(path[start++]);
  char separator = '/';
  for (char c : path) {
    if (isSeparator(c)) {
      separator = c;
      break;
    }
  }
  std::vector<std::string_view> parts;
  size_t i = start;
  while (i <= path.size()) {
    size_t end = i;
    while (end < path.size() && !isSeparator(path[end])) ++end;
    std::string_view part = path.substr(i, end - i);
    if (part == "..") {
      if (!parts.empty() && parts.back() != "..") {
        parts.pop_back();
      } else if (prefix.empty()) {
        parts.push_back(part);
      }
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    i = end + 1;
  }
  std::string out = prefix;
  for (size_t k = 0; k < parts.size(); ++k) {
    if (k) out.push_back(separator);
    out.append(parts[k]);
  }
  return out;
}

}  // namespace zv::path
