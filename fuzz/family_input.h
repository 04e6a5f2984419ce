#pragma once
// One fuzz input holds a whole model family: two little-endian u32 sizes, then the model
// header file, the strip file and the vertex file back to back. Sizes past the end are
// cut to what is there, so every input is a family.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "legacy/family.h"

namespace zv::fuzz {

inline legacy::FamilyFiles splitFamilyInput(const uint8_t* data, size_t size) {
  auto take = [&](size_t n) {
    n = std::min(n, size);
    std::vector<uint8_t> piece(data, data + n);
    data += n;
    size -= n;
    return piece;
  };
  uint32_t sizes[2] = {0, 0};
  if (size >= sizeof sizes) {
    std::memcpy(sizes, data, sizeof sizes);
    data += sizeof sizes;
    size -= sizeof sizes;
  }
  legacy::FamilyFiles files;
  files.mdlPath = "fuzz.mdl";
  files.vtxPath = "fuzz.dx90.vtx";
  files.qvdPath = "fuzz.qvd";
  files.mdl = take(sizes[0]);
  files.vtx = take(sizes[1]);
  files.qvd = take(size);
  return files;
}

inline std::vector<uint8_t> joinFamilyInput(const std::vector<uint8_t>& mdl, const std::vector<uint8_t>& vtx,
                                            const std::vector<uint8_t>& qvd) {
  uint32_t sizes[2] = {uint32_t(mdl.size()), uint32_t(vtx.size())};
  std::vector<uint8_t> out(sizeof sizes);
  std::memcpy(out.data(), sizes, sizeof sizes);
  out.insert(out.end(), mdl.begin(), mdl.end());
  out.insert(out.end(), vtx.begin(), vtx.end());
  out.insert(out.end(), qvd.begin(), qvd.end());
  return out;
}

}  // namespace zv::fuzz
