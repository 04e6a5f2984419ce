// Reads DMX files we did not write; whatever loads must also save again.

#include "base/log.h"
#include "dmx/dm_reader.h"
#include "dmx/dm_serializer.h"

namespace {
class Silent : public zv::LogSink {
 public:
  void write(const zv::LogRecord&) override {}
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Silent silent;
  static zv::ScopedLogSink quiet(silent);
  auto document = zv::dmx::readDmx(zv::ByteView(data, size));
  if (document && document->root) {
    (void)zv::dmx::saveDmx(*document->root, zv::dmx::kConverterEncoding, "dmx", 22);
  }
  return 0;
}
