#pragma once
// The pieces of the per-model pipeline that decide rather than convert: where a model's
// outputs go, whether it is a static prop, and the animation-writing loop with its
// progress marks.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zv {

struct ModelPaths {
  std::string document;      // O/B.qmdl
  std::string animFolder;    // O/B_refs/anim
  std::string meshFolder;    // O/B_refs/mesh
  std::string physFolder;    // O/B_refs/phys
  std::string prefabFolder;  // O/B_refs/prefab
  std::string referenceList; // O/B_refs.txt
};

// Joined with "\" as the legacy layout has them, then every separator made "/".
ModelPaths buildModelPaths(std::string_view outputFolder, std::string_view baseName);

// A model is a static prop when its only sub-model is named "static_prop" and every
// sequence (none counts as every) is an idle: base name "idle" or "@idle".
bool isStaticModel(const std::vector<std::string>& subModelNames, const std::vector<std::string>& sequenceNames);

// Writes animations 0..count-1 through write, printing "Writing %d Animations:", a "%d.."
// mark every max(1, count / 10) animations and "Done\n". With skipIncluded, animations at
// or past ownCount (those of included models) are not written.
void writeAnimationsWithProgress(size_t count, size_t ownCount, bool skipIncluded,
                                 const std::function<void(size_t)>& write);

// "importfilelist" text naming each material, ".qmat" turned back into ".qmt".
std::string referenceListText(const std::vector<std::string>& materials);

}  // namespace zv
