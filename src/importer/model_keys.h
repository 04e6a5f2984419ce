#pragma once
// The model's key-value text: one named block (the model's key values) holding sections
// such as "prop_data", "door_options", "particles" and the snapshot weight lists. It is
// read once per document; every stage looks its sections up in the same tree.

#include <optional>

#include "kv/keyvalues.h"
#include "legacy/mdl.h"

namespace zv {

// The block holding the sections; nothing when the model has no text or it does not read.
// What is lost or read leniently is warned about, naming the model: the text is read once
// per model, by the load stage.
std::optional<KeyValues> loadModelKeyValues(const legacy::MdlFile& mdl);

}  // namespace zv
