// Archive directory files: header, tree and the case-insensitive index built from it.

#include "fs/qpk_tree.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  (void)zv::fs::parseQpkDirectory(zv::ByteView(data, size));
  return 0;
}
