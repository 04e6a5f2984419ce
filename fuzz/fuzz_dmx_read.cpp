// Reads DMX files we did not write; whatever loads must also save again.

#include "dmx/dm_reader.h"
#include "dmx/dm_serializer.h"
#include "silent_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zv::fuzz::silenceLogs();
  auto document = zv::dmx::readDmx(zv::ByteView(data, size));
  if (document && document->root) {
    (void)zv::dmx::saveDmx(*document->root, zv::dmx::kConverterEncoding, "dmx", 22);
  }
  return 0;
}
