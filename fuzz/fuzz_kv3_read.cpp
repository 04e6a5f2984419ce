// KV3 text read back; whatever reads must write again.

#include <string_view>

#include "kv/kv3.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto document = zv::readKv3Text(std::string_view(reinterpret_cast<const char*>(data), size));
  if (document) (void)zv::writeKv3Text(document->root, document->header);
  return 0;
}
