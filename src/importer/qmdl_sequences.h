#pragma once
// The sequence node writer and the weight list writer, shared by the model document and
// the weapon animation prefab: every node they create is named with a prefix (empty for
// the model document), and every reference between them carries it too.

#include <string>
#include <string_view>

#include "importer/tables.h"
#include "modeldoc/model_document.h"

namespace zv {

struct SequenceNodeOptions {
  std::string prefix;
  std::string baseFolder;  // animation files are named relative to it, as render meshes are
  bool overrideLean = false;
};

// One node per usable sequence record under the AnimationList: an AnimFile for a sequence
// of one animation, an AnimBlendGrid for a grid of several, with its events and layers.
void writeSequenceNodes(modeldoc::ModelDocument& document, const ModelTables& tables,
                        const SequenceNodeOptions& options);

// One WeightList per weight list record. A bone whose weight equals its parent's (within
// 0.001) is left out, so that it inherits it; root bones are always listed.
void writeWeightListNodes(modeldoc::ModelDocument& document, const ModelTables& tables, std::string_view prefix);

// The sequence_keys of a sequence: its key-value text with the "ExtraSeqFlags" block and,
// when it has anim tags, the "AnimTags" block.
Kv3Value sequenceKeys(const SequenceRecord& sequence);

// A cycle of an animation of frameCount frames as a frame number, to the nearest frame.
int32_t cycleToFrame(float cycle, int32_t frameCount);

}  // namespace zv
