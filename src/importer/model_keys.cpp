#include "importer/model_keys.h"

namespace zv {

std::optional<KeyValues> loadModelKeyValues(const legacy::MdlFile& mdl) {
  if (mdl.keyValues.empty()) return std::nullopt;
  auto text = KeyValues::parse(mdl.keyValues);
  if (!text) return std::nullopt;
  // The sections sit inside the text's first block; text without a block holds them itself.
  const KeyValues* block = text->firstSection();
  if (block != nullptr && block == &text->children().front()) return *block;
  return std::move(text.value());
}

}  // namespace zv
