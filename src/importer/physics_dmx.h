#pragma once
// The physics file: the model's skeleton with one hull mesh per convex piece, and the
// names by which the model document refers to those meshes.

#include <string>
#include <vector>

#include "dmx/dm_element.h"
#include "importer/tables.h"

namespace zv {

// Per solid, the stem of its pieces' names: the solid's name made a node name, "solid%d"
// when it has none, with "_%d" (the solid index) added when an earlier solid took it
// (ignoring case).
std::vector<std::string> physicsNameStems(const std::vector<PhysicsSolid>& solids);
// "<stem>_<piece>_mesh": the piece's dag and mesh in the file, and its hull file node.
std::string physicsMeshName(const std::string& stem, size_t piece);

// Builds root -> DmeModel (skeleton and hulls) in tree and returns the root. Hull points
// are in model space; a piece that moves with a bone hangs under that bone's joint with
// the inverse of the bone's bind pose as its transform, so it lands in model space.
dmx::CDmElement* buildPhysicsTree(dmx::DmElementTree& tree, const std::vector<PhysicsSolid>& solids,
                                  const std::vector<SkeletonBone>& skeleton);

}  // namespace zv
