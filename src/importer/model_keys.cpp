#include "importer/model_keys.h"

#include "base/log.h"

namespace zv {

std::optional<KeyValues> loadModelKeyValues(const legacy::MdlFile& mdl) {
  if (mdl.keyValues.empty()) return std::nullopt;
  std::vector<std::string> notes;
  auto text = KeyValues::parse(mdl.keyValues, notes);
  if (!text) {
    warning("%s: its key values do not read and are not converted: %s\n", mdl.fileName().c_str(),
            text.message().c_str());
    return std::nullopt;
  }
  for (const std::string& note : notes) warning("%s: key values: %s\n", mdl.fileName().c_str(), note.c_str());
  // The sections sit inside the text's first block; text without a block holds them itself.
  const KeyValues* block = text->firstSection();
  if (block != nullptr && block == &text->children().front()) return *block;
  return std::move(text.value());
}

}  // namespace zv
