#pragma once
// What a conversion read, so that a later run can tell whether it would come out the same:
// every file asked for (found or not, with a fingerprint of its bytes) and every material
// looked up.

#include <cstdint>
#include <string>

namespace zv {

struct InputFile {
  std::string path;
  bool exists = false;
  uint64_t hash = 0;  // FNV-1a 64 of the content
};

struct MaterialProbe {
  std::string path;
  bool exists = false;
};

}  // namespace zv
