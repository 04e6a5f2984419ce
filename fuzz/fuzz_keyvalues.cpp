// Key-value text from model files, collision files and game information.

#include <string>
#include <string_view>
#include <vector>

#include "kv/keyvalues.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  for (bool escapes : {true, false}) {
    std::vector<std::string> notes;
    auto root = zv::KeyValues::parse(text, notes, zv::KeyValuesOptions{.escapes = escapes});
    if (root) (void)zv::keyValuesToKv3(*root);
  }
  return 0;
}
