// Reads DMX files we did not write; whatever loads must also save again, be held against
// the importer rules (mesh and delta state indices included) and print.

#include "dmx/dm_dump.h"
#include "dmx/dm_importer_check.h"
#include "dmx/dm_reader.h"
#include "dmx/dm_serializer.h"
#include "silent_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zv::fuzz::silenceLogs();
  auto document = zv::dmx::readDmx(zv::ByteView(data, size));
  if (document && document->root) {
    (void)zv::dmx::saveDmx(*document->root, zv::dmx::kConverterEncoding, "dmx", 22);
    (void)zv::dmx::importerProblems(*document);
    (void)zv::dmx::dumpDmx(*document);
  }
  return 0;
}
