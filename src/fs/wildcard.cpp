#include "fs/wildcard.h"

#include "base/strings.h"

namespace zv::fs {

bool wildcardMatch(std::string_view pattern, std::string_view text) {
  size_t p = 0, t = 0;
  size_t starP = std::string_view::npos, starT = 0;
  while (t < text.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || toLowerAscii(pattern[p]) == toLowerAscii(text[t]))) {
      ++p;
      ++t;
    } else if (p < pattern.size() && pattern[p] == '*') {
      starP = p++;
      starT = t;
    } else if (starP != std::string_view::npos) {
      p = starP + 1;
      t = ++starT;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

}  // namespace zv::fs
