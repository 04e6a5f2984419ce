// Key-value text from model files, collision files and game information.

#include <string_view>

#include "kv/keyvalues.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  for (bool escapes : {true, false}) {
    auto root = zv::KeyValues::parse(text, zv::KeyValuesOptions{.escapes = escapes});
    if (root) (void)zv::keyValuesToKv3(*root);
  }
  return 0;
}
