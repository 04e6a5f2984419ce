#pragma once
// DMX files leave the converter here: saved in the converter's encoding and written
// through the output layer.

#include <string_view>

#include "base/result.h"
#include "dmx/dm_buffer.h"
#include "dmx/dm_element.h"
#include "output/output.h"

namespace zv {

// Saves the tree under root ("binary_seqids", format "dmx" 22) to path, through buffer:
// the caller keeps one for file after file. A buffer grown past a size worth keeping is
// given back afterwards, so one huge file does not hold its room for the rest of a run.
Status saveDmxFile(Output& output, std::string_view path, const dmx::CDmElement& root, dmx::DmOutputBuffer& buffer);
// The same for writers running at once: the file is listed in `written` (see Output).
Status saveDmxFile(Output& output, std::string_view path, const dmx::CDmElement& root, dmx::DmOutputBuffer& buffer,
                   std::vector<WrittenFile>& written);

}  // namespace zv
