// Reads a collision file: the solids' ledge trees, triangles and points, and the text
// section.

#include "legacy/phy.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto phy = zv::legacy::PhyFile::parse("fuzz.phy", zv::ByteView(data, size));
  if (phy) {
    // Touch every corner, so an index the reader let through shows up here.
    volatile float sum = 0;
    for (const auto& solid : phy->solids) {
      for (const auto& piece : solid.pieces) {
        for (const auto& triangle : piece.triangles) {
          for (int32_t corner : triangle) sum = sum + piece.points.at(size_t(corner)).x;
        }
      }
    }
  }
  return 0;
}
