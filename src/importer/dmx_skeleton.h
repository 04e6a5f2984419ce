#pragma once
// The skeleton as every DMX file of a model carries it: a DmeModel whose children are the
// root joints, with every joint in legacy bone order in "jointList" (blend indices and
// animation channels refer to that order), the bind pose in "baseStates" and the axis
// system.

#include <string>
#include <string_view>
#include <vector>

#include "dmx/dm_element.h"
#include "importer/tables.h"

namespace zv {

// The name of bone `index` in every DMX file: its converted name, or "bone<index>" for a
// bone without one (importers drop unnamed joints).
std::string jointName(const std::vector<SkeletonBone>& bones, size_t index);

// Creates the DmeModel in tree. Joints carry their parent-relative bind pose and are named
// through ConvertBoneName. Callers add their own nodes to the model's "children" after
// the root joints.
dmx::CDmElement* addSkeletonModel(dmx::DmElementTree& tree, std::string_view modelName,
                                  const std::vector<SkeletonBone>& bones);

// Whether two bone lists give the same skeleton model: the same names, parents and bind
// pose, bit for bit.
bool sameSkeletonModel(const std::vector<SkeletonBone>& a, const std::vector<SkeletonBone>& b);

// A DmeTransform with the given pose, set as element attribute `attribute` of owner.
dmx::CDmElement* addTransform(dmx::CDmElement& owner, std::string_view attribute, std::string_view name,
                              const Vector3& position, const Quaternion& orientation);

// A visible DmeMesh set as the "shape" of dag, with one DmeVertexData ("bind") that is its
// bind, current and only base state; the caller fills the vertex data.
struct MeshShape {
  dmx::CDmElement* mesh;
  dmx::CDmElement* bind;
};
MeshShape addMeshShape(dmx::DmElementTree& tree, dmx::CDmElement& dag, std::string_view name);

}  // namespace zv
