#include "importer/qmdl_paths.h"

#include "base/path.h"
#include "base/strings.h"

namespace zv {

std::string relativeToBaseFolder(std::string_view path, std::string_view baseFolder) {
  std::string relative = path::toForwardSlashes(path);
  std::string base = path::toForwardSlashes(baseFolder);
  while (!base.empty() && base.back() == '/') base.pop_back();
  if (base.empty() || !startsWithNoCase(relative, base)) return relative;
  // "out" is not the base folder of "outer/x".
  if (relative.size() > base.size() && relative[base.size()] != '/') return relative;
  relative.erase(0, base.size());
  if (!relative.empty() && relative.front() == '/') relative.erase(0, 1);
  return relative;
}

namespace {

bool isPlainCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || path::isSeparator(c);
}

}  // namespace

std::string normalizeMaterialReference(std::string_view path) {
  std::string out = toLower(path);
  for (char& c : out) {
    if (c == ' ' || c == '(' || c == ')' || c == '\'' || c == '!') c = '_';
  }
  // An absolute path names a file outside the content tree; only its spelling is evened out.
  if (!path::isAbsolute(out)) {
    for (char& c : out) {
      if (!isPlainCharacter(c)) c = '_';
    }
  }
  return path::toForwardSlashes(path::removeDoubleSlashes(out));
}

}  // namespace zv
