#pragma once
// One fuzz input holds a whole model family: three little-endian u32 sizes, then the
// model header file, the strip file, the vertex file and the animation block file back to
// back. Sizes past the end are cut to what is there, so every input is a family.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "legacy/family.h"

namespace zv::fuzz {

struct FuzzFamily {
  legacy::FamilyFiles files;
  std::vector<uint8_t> ani;
};

inline FuzzFamily splitFamilyInput(const uint8_t* data, size_t size) {
  auto take = [&](size_t n) {
    n = std::min(n, size);
    std::vector<uint8_t> piece(data, data + n);
    data += n;
    size -= n;
    return piece;
  };
  uint32_t sizes[3] = {0, 0, 0};
  if (size >= sizeof sizes) {
    std::memcpy(sizes, data, sizeof sizes);
    data += sizeof sizes;
    size -= sizeof sizes;
  }
  FuzzFamily family;
  legacy::FamilyFiles& files = family.files;
  files.mdlPath = "fuzz.mdl";
  files.vtxPath = "fuzz.dx90.vtx";
  files.qvdPath = "fuzz.qvd";
  files.mdl = take(sizes[0]);
  files.vtx = take(sizes[1]);
  files.qvd = take(sizes[2]);
  family.ani = take(size);
  return family;
}

inline std::vector<uint8_t> joinFamilyInput(const std::vector<uint8_t>& mdl, const std::vector<uint8_t>& vtx,
                                            const std::vector<uint8_t>& qvd, const std::vector<uint8_t>& ani) {
  uint32_t sizes[3] = {uint32_t(mdl.size()), uint32_t(vtx.size()), uint32_t(qvd.size())};
  std::vector<uint8_t> out(sizeof sizes);
  std::memcpy(out.data(), sizes, sizeof sizes);
  for (const std::vector<uint8_t>* file : {&mdl, &vtx, &qvd, &ani}) out.insert(out.end(), file->begin(), file->end());
  return out;
}

}  // namespace zv::fuzz
