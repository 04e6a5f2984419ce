#pragma once
// The pieces of the per-model pipeline that decide rather than convert: where a model's
// outputs go, whether it is a static prop, which animations are written and how their
// progress is printed.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/log.h"

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

// How many of count animations are written, from the first: with skipIncluded, those
// before ownCount (the included models' animations come last).
size_t animationsToWrite(size_t count, size_t ownCount, bool skipIncluded);

// Prints "Writing %d Animations:", a "%d.." mark every max(1, count / 10) animations and
// "Done\n"; after each animation's mark, what writing it said (said[i], for the
// animations written), so that files written at once print as if one after the other.
void printAnimationProgress(size_t count, const std::vector<std::vector<LogRecord>>& said);

// "importfilelist" text naming each material, ".qmat" turned back into ".qmt".
std::string referenceListText(const std::vector<std::string>& materials);

}  // namespace zv
