#pragma once
// The three file writers behind build(). The description has been checked for what
// cannot be written; everything else is written as given.

#include <cstdint>
#include <optional>
#include <vector>

#include "mdlforge/description.h"
#include "mdlforge/forge.h"
#include "mdlforge/vertex_plan.h"

namespace zv::mdlforge {

struct WrittenFile {
  std::vector<uint8_t> bytes;
  OffsetMap where;
};

// The model header file, and the animation block file when any animation's tracks are in
// a block of it.
struct WrittenModel {
  WrittenFile mdl;
  std::optional<WrittenFile> ani;
};
WrittenModel writeModelFile(const Description& description, const VertexPlan& plan);
WrittenFile writeVertexFile(const Description& description, const VertexPlan& plan);
WrittenFile writeStripFile(const Description& description, const VertexPlan& plan);

// The bind pose rotation of a bone, completed from whichever form was given.
Quaternion boneQuaternion(const Bone& bone);
RadianEuler boneEuler(const Bone& bone);
// Inverse model-space bind transforms; a parent that does not come before its child
// counts as none.
std::vector<Matrix3x4> defaultPoseToBone(const std::vector<Bone>& bones);

}  // namespace zv::mdlforge
