#include "importer/dmx_output.h"

#include "dmx/dm_serializer.h"

namespace zv {

Status saveDmxFile(Output& output, std::string_view path, const dmx::CDmElement& root) {
  auto bytes = dmx::saveDmx(root, dmx::kConverterEncoding, dmx::kConverterFormat, dmx::kConverterFormatVersion);
  if (!bytes) return Error{"the element tree could not be serialized"};
  return output.write(path, *bytes);
}

}  // namespace zv
