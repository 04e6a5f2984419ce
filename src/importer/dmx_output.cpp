#include "importer/dmx_output.h"

#include "dmx/dm_serializer.h"

namespace zv {
namespace {

// Larger than nearly every file a model gives; keeping more would raise a run's memory.
constexpr size_t kKeptBufferBytes = size_t{64} << 20;

}  // namespace

Status saveDmxFile(Output& output, std::string_view path, const dmx::CDmElement& root, dmx::DmOutputBuffer& buffer) {
  std::vector<WrittenFile> written;
  Status saved = saveDmxFile(output, path, root, buffer, written);
  output.addWritten(written);
  return saved;
}

Status saveDmxFile(Output& output, std::string_view path, const dmx::CDmElement& root, dmx::DmOutputBuffer& buffer,
                   std::vector<WrittenFile>& written) {
  buffer.clear();
  bool saved = dmx::serializeDmx(root, buffer, dmx::kConverterEncoding, dmx::kConverterFormat,
                                 dmx::kConverterFormatVersion);
  Status status =
      saved ? output.write(path, buffer.bytes(), written) : Status(Error{"the element tree could not be serialized"});
  if (buffer.capacity() > kKeptBufferBytes) buffer.release();
  return status;
}

}  // namespace zv
