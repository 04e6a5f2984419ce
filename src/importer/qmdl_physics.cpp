// Model document stages for the collision data: body markups, ragdoll joints and hull
// file references after the LOD groups, and the break pieces near the end.

#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "importer/physics_dmx.h"
#include "importer/qmdl_paths.h"
#include "importer/qmdl_writer.h"
#include "kv/keyvalues.h"

namespace zv {
namespace {

// Ranges below this many degrees count as locked.
constexpr float kFreeRange = 1.0f;
// Ranges beyond this are a full turn: no limit.
constexpr float kFullTurn = 359.0f;

// A conical joint's own axis is the child's x axis (the legacy twist axis) turned onto
// its z axis.
const QAngle kConicalTurn{90, 0, 0};

struct Ranges {
  float x, y, z;
};

Ranges rangesOf(const PhysicsConstraint& c) {
  return {c.max[0] - c.min[0], c.max[1] - c.min[1], c.max[2] - c.min[2]};
}

bool isConical(const Ranges& r) {
  return r.x > kFreeRange || r.y > kFreeRange || (r.z > kFreeRange && (r.y > kFreeRange || r.z > kFullTurn));
}

void setConicalLimits(modeldoc::Node& joint, const PhysicsConstraint& c, const Ranges& r) {
  if (r.y <= kFullTurn || r.z <= kFullTurn) {
    joint.set("enable_swing_limit", true);
    joint.set("swing_limit", documentFloat((r.y + r.z) / 4));
    joint.set("swing_offset_angle",
              documentAngles({0, (c.min[1] + c.max[1]) / 2, -(c.min[2] + c.max[2]) / 2}));
  }
  if (r.x <= kFullTurn) {
    joint.set("enable_twist_limit", true);
    joint.set("min_twist_angle", documentFloat(c.min[0]));
    joint.set("max_twist_angle", documentFloat(c.max[0]));
  }
  joint.set("friction", documentFloat((c.friction[0] + c.friction[1] + c.friction[2]) / 3));
}

void setRevoluteLimits(modeldoc::Node& joint, const PhysicsConstraint& c) {
  joint.set("friction", documentFloat(c.friction[2]));
  joint.set("enable_limit", true);
  joint.set("min_angle", documentFloat(c.min[2]));
  joint.set("max_angle", documentFloat(c.max[2]));
}

}  // namespace

std::string QmdlWriter::physicsBodyName(const PhysicsSolid& solid) const { return boneReference(solid.bone); }

void QmdlWriter::writePhysicsBodies() {
  modeldoc::Node* list = document_.rootList("PhysicsBodyMarkupList");
  if (list == nullptr) return;
  for (const PhysicsSolid& solid : tables_.physicsSolids) {
    if (!(solid.mass > 0 || solid.inertia > 1.0f || solid.damping != 0 || solid.rotDamping != 0)) continue;
    modeldoc::Node* markup = document_.createNode("PhysicsBodyMarkup", "", list);
    if (markup == nullptr) continue;
    markup->set("target_body", physicsBodyName(solid));
    markup->set("mass_override", documentFloat(solid.mass));
    markup->set("inertia_scale", documentFloat(solid.inertia));
    markup->set("linear_damping", documentFloat(solid.damping));
    markup->set("angular_damping", documentFloat(solid.rotDamping));
  }
}

// The joint frame is the child bone's bind pose seen from the parent bone:
// inverse(parent) * child, times the conical turn. Its origin is the child bone's.
void QmdlWriter::setJointFrame(modeldoc::Node& joint, const PhysicsSolid& parent, const PhysicsSolid& child,
                               bool conical) const {
  const std::vector<SkeletonBone>& bones = tables_.skeleton;
  if (parent.bone < 0 || child.bone < 0) return;
  Matrix3x4 frame =
      invertRigid(bones[size_t(parent.bone)].modelTransform) * bones[size_t(child.bone)].modelTransform;
  if (conical) frame = frame * angleMatrix(kConicalTurn);
  joint.set("anchor_origin", documentVector(frame.translation()));
  joint.set("anchor_angles", documentAngles(matrixAngles(frame)));
}

void QmdlWriter::writePhysicsJoints() {
  modeldoc::Node* list = document_.rootList("PhysicsJointList");
  if (list == nullptr) return;
  const std::vector<PhysicsSolid>& solids = tables_.physicsSolids;
  for (const PhysicsConstraint& c : tables_.physicsConstraints) {
    if (c.parent < 0 || c.child < 0 || size_t(c.parent) >= solids.size() || size_t(c.child) >= solids.size())
      continue;
    Ranges r = rangesOf(c);
    bool conical = isConical(r);
    const char* kind = conical            ? "PhysicsJointConical"
                       : r.z > kFreeRange ? "PhysicsJointRevolute"
                                          : "PhysicsJointWeld";
    modeldoc::Node* joint = document_.createNode(kind, "", list);
    if (joint == nullptr) continue;
    const PhysicsSolid& parent = solids[size_t(c.parent)];
    const PhysicsSolid& child = solids[size_t(c.child)];
    joint->set("parent_body", physicsBodyName(parent));
    joint->set("child_body", physicsBodyName(child));
    setJointFrame(*joint, parent, child, conical);
    if (conical) {
      setConicalLimits(*joint, c, r);
    } else if (r.z > kFreeRange) {
      setRevoluteLimits(*joint, c);
    }
  }
}

void QmdlWriter::writePhysicsHullFiles() {
  const std::string& baseName = converter_.settings().baseName;
  std::string file = relativeToBaseFolder(path::join(converter_.paths().physFolder, baseName + "_phy.dmx"),
                                          converter_.settings().outputRoot);
  if (!file.empty() && file.front() == '/') file.erase(0, 1);
  const std::vector<PhysicsSolid>& solids = tables_.physicsSolids;
  std::vector<std::string> stems = physicsNameStems(solids);
  for (size_t s = 0; s < solids.size(); ++s) {
    for (size_t k = 0; k < solids[s].pieces.size(); ++k) {
      std::string mesh = physicsMeshName(stems[s], k);
      modeldoc::Node* hull = createInList("PhysicsShapeList", "PhysicsHullFile", mesh);
      if (hull == nullptr) {
        warning("Failed to create CModelDocPhysicsHullFile Node\n");
        continue;
      }
      hull->set("parent_bone", boneReference(solids[s].pieces[k].bone));
      hull->set("surface_prop", solids[s].surfaceProp);
      hull->set("filename", file);
      hull->set("mesh_name", mesh);
    }
  }
}

void QmdlWriter::writePhysics() {
  if (tables_.physicsSolids.empty()) return;
  writePhysicsBodies();
  writePhysicsJoints();
  writePhysicsHullFiles();
}

void QmdlWriter::writeBreakList() {
  for (const KeyValues& entry : tables_.breakPieces) {
    modeldoc::Node* piece = createInList("BreakPieceList", "BreakPieceExternal", "");
    if (piece == nullptr) continue;
    piece->set("break_keys", Kv3Value::makeObject());
    for (const KeyValues& key : entry.children()) {
      if (key.isSection()) continue;
      const std::string& name = key.name();
      if (equalsNoCase(name, "model") || equalsNoCase(name, "ragdoll")) {
        piece->set("model", key.value());
      } else if (equalsNoCase(name, "angularburst")) {
        piece->set("angular_burst", documentFloat(textToFloat(key.value())));
      } else if (equalsNoCase(name, "burst") || equalsNoCase(name, "burst_scale")) {
        piece->set("burst_scale", documentFloat(textToFloat(key.value())));
      } else {
        piece->setEntry("break_keys", name, key.value());
      }
    }
  }
}

}  // namespace zv
