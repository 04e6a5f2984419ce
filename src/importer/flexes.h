#pragma once
// Flexes become morph targets of the mesh parts, with the controls and rules that drive
// them. The model-wide part (names, controls, rule expressions) is built once; each part
// then gathers its targets through the same vertex gathering that built its positions.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "importer/tables.h"
#include "legacy/mdl.h"

namespace zv {

// Names, controls and the rules the converter understands. A rule it cannot express is
// left out with a warning naming it and the model; its target stays.
FlexModel buildFlexModel(const legacy::MdlFile& mdl, const std::string& modelPath);

// Adds the morph targets of a part gathered from one sub-model: sources[i] is the
// resolved vertex index that the part's vertex i was gathered from. A target is one
// descriptor and weight window, merged over the sub-model's meshes; a delta moves every
// vertex of the part gathered from its legacy vertex, and vertices the part does not
// hold (a coarser LOD) are skipped, as are targets left without deltas.
void addMorphTargets(MeshPart& part, const legacy::SubModel& model, std::span<const int32_t> sources,
                     const FlexModel& flexes);

// What one part file needs of the model's flexes: the rules that compute its targets'
// weights (also through the descriptors they read), and the controls that drive them,
// each with the names of the targets it drives.
struct PartControl {
  const FlexControl* control = nullptr;
  std::vector<std::string> targets;
};
struct PartFlexes {
  std::vector<const FlexRuleExpression*> rules;
  std::vector<PartControl> controls;
};
PartFlexes selectPartFlexes(const MeshPart& part, const FlexModel& flexes);

}  // namespace zv
