// Loads a model family from one input: every table check of the legacy readers, the
// strip-file layout decision and the vertex fixup resolution.

#include "family_input.h"
#include "silent_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zv::fuzz::silenceLogs();
  auto model = zv::legacy::loadModelFamily(zv::fuzz::splitFamilyInput(data, size).files);
  if (model && model->vertices) {
    // Touch what the stages will walk, so a bad index shows up here too.
    volatile float sum = 0;
    for (const auto& v : model->vertices->vertices()) sum = sum + v.position.x;
  }
  return 0;
}
