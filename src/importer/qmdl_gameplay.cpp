// Model document stages for gameplay: hit box sets, IK chains, sequences (through the
// shared sequence node writer), jiggle bones and the weight lists.

#include <cmath>
#include <unordered_map>

#include "base/log.h"
#include "importer/names.h"
#include "importer/qmdl_sequences.h"
#include "importer/qmdl_writer.h"

namespace zv {
namespace {

constexpr size_t kIkChainLinks = 3;

// Jiggle flags.
constexpr int32_t kJiggleFlexible = 0x01;
constexpr int32_t kJiggleRigid = 0x02;
constexpr int32_t kJiggleYawConstraint = 0x04;
constexpr int32_t kJigglePitchConstraint = 0x08;
constexpr int32_t kJiggleAngleConstraint = 0x10;
constexpr int32_t kJiggleLengthConstraint = 0x20;
constexpr int32_t kJiggleBaseSpring = 0x40;

// The 29 jiggle settings in record order.
constexpr const char* kJiggleValueKeys[] = {
    "length",           "tip_mass",        "yaw_stiffness",      "yaw_damping",   "pitch_stiffness",
    "pitch_damping",    "along_stiffness", "along_damping",      "angle_limit",   "min_yaw",
    "max_yaw",          "yaw_friction",    "yaw_bounce",         "min_pitch",     "max_pitch",
    "pitch_friction",   "pitch_bounce",    "base_mass",          "base_stiffness", "base_damping",
    "base_left_min",    "base_left_max",   "base_left_friction", "base_up_min",   "base_up_max",
    "base_up_friction", "base_forward_min", "base_forward_max",  "base_forward_friction",
};
static_assert(std::size(kJiggleValueKeys) == 29);

}  // namespace

// A static prop gets hit boxes only when its key values turn the static prop off.
void QmdlWriter::writeHitboxSets() {
  if (mdl_.header.flags & legacy::kStaticPropFlag) {
    const KeyValues* propData = modelSection("prop_data");
    if (propData == nullptr || propData->getInt("allowstatic") != 0) return;
  }
  for (const legacy::HitboxSet& set : mdl_.hitboxSets) {
    modeldoc::Node* node = createInList("HitboxSetList", "HitboxSet", SanitizeNodeName(set.name));
    if (node == nullptr) continue;
    for (const legacy::Hitbox& box : set.hitboxes) writeHitbox(*node, box);
  }
}

// Radius below 1 (read as an integer): a box; otherwise a sphere when the corners meet,
// else a capsule between them.
void QmdlWriter::writeHitbox(modeldoc::Node& set, const legacy::Hitbox& box) {
  bool sphere = box.radiusBits >= 1 && length(box.max - box.min) == 0;
  const char* shapeClass = box.radiusBits < 1 ? "Hitbox" : (sphere ? "HitboxSphere" : "HitboxCapsule");
  modeldoc::Node* shape = document_.createNode(shapeClass, "", &set);
  if (shape == nullptr) return;
  if (box.radiusBits < 1) {
    shape->set("mins", documentVector(box.min));
    shape->set("maxs", documentVector(box.max));
  } else if (sphere) {
    shape->set("center", documentVector(box.min));
    shape->set("radius", documentFloat(box.radius));
  } else {
    shape->set("point0", documentVector(box.min));
    shape->set("point1", documentVector(box.max));
    shape->set("radius", documentFloat(box.radius));
  }
  bool known = box.bone >= 0 && size_t(box.bone) < mdl_.bones.size();
  shape->set("surface_property", known ? mdl_.bones[size_t(box.bone)].surfaceProp : std::string());
  shape->set("group_id", box.group);
  shape->set("parent_bone", boneReference(box.bone));
}

void QmdlWriter::writeIkChains() {
  if (mdl_.ikChains.empty()) return;
  modeldoc::Node* list = document_.rootList("IKData");
  if (list == nullptr) return;
  for (const legacy::IkChain& chain : mdl_.ikChains) writeIkChain(*list, chain);
}

void QmdlWriter::writeIkChain(modeldoc::Node& list, const legacy::IkChain& chain) {
  const char* model = mdl_.modelName().c_str();
  if (chain.linkType != 0) {
    warning("Warning! MDL %s mstudioikchain_t %s has a linktype of %d expecting 0\n", model, chain.name.c_str(),
            chain.linkType);
  }
  if (chain.links.size() != kIkChainLinks) {
    warning("Warning! MDL %s mstudioikchain_t %s has %d mstudioiklink_t's expecting 3 - ignoring ik chain\n", model,
            chain.name.c_str(), int(chain.links.size()));
    return;
  }
  // Every link must name a bone the document's skeleton has.
  std::unordered_map<std::string, int32_t> exported;
  for (size_t i = 0; i < tables_.skeleton.size(); ++i) exported.emplace(boneReference(int32_t(i)), int32_t(i));
  std::vector<std::string> bones;
  for (const legacy::IkLink& link : chain.links) {
    std::string name = boneReference(link.bone);
    auto found = exported.find(name);
    if (name.empty() || found == exported.end() || found->second < 0) {
      warning("Warning! MDL %s mstudioikchain_t %s referencing unknown bone %s - ignoring ik chain\n", model,
              chain.name.c_str(), name.c_str());
      return;
    }
    bones.push_back(name);
  }
  modeldoc::Node* parent = document_.createNode("IKChain", SanitizeNodeName(chain.name), &list);
  if (parent == nullptr) return;
  parent->set("end_effector_bone", bones.back());
  for (const std::string& bone : bones) {
    modeldoc::Node* joint = document_.createNode("IKChainJoint", bone, parent);
    if (joint == nullptr) return;
    joint->set("bone_name", bone);
    parent = joint;
  }
}

void QmdlWriter::writeSequences() {
  SequenceNodeOptions options{"", converter_.settings().outputRoot, converter_.settings().overrideLean};
  writeSequenceNodes(document_, tables_, options);
}

void QmdlWriter::writeJiggleBones() {
  for (size_t i = 0; i < mdl_.bones.size() && i < tables_.skeleton.size(); ++i) {
    const std::optional<legacy::JiggleParams>& jiggle = mdl_.bones[i].jiggle;
    if (!jiggle) continue;
    std::string bone = boneReference(int32_t(i));
    modeldoc::Node* node = createInList("JiggleBoneList", "JiggleBone", bone + "_jiggle");
    if (node == nullptr) continue;
    int32_t flags = jiggle->flags;
    node->set("jiggle_root_bone", bone);
    node->set("jiggle_type", (flags & kJiggleFlexible) ? 1 : ((flags & kJiggleRigid) ? 0 : 2));
    node->set("has_yaw_constraint", (flags & kJiggleYawConstraint) != 0);
    node->set("has_pitch_constraint", (flags & kJigglePitchConstraint) != 0);
    node->set("has_angle_constraint", (flags & kJiggleAngleConstraint) != 0);
    node->set("has_base_spring", (flags & kJiggleBaseSpring) != 0);
    node->set("allow_length_flex", (flags & kJiggleLengthConstraint) != 0);
    for (size_t k = 0; k < jiggle->values.size(); ++k) node->set(kJiggleValueKeys[k], documentFloat(jiggle->values[k]));
  }
}

void QmdlWriter::writeWeightLists() { writeWeightListNodes(document_, tables_, ""); }

// Snapshot weight lists of the key-value text; an empty section weighs every bone fully.
void QmdlWriter::writeSnapshotWeights() {
  if (!tables_.modelKeys) return;
  for (const char* section : {"snapshot_weights_all", "snapshot_weights_upperbody"}) {
    const KeyValues* weights = modelSection(section);
    if (weights == nullptr) continue;
    auto add = [&](const std::string& bone, const std::string& weight) {
      modeldoc::Node* node = document_.createNode("GenericGameData", "", nullptr);
      if (node == nullptr) return;
      node->set("game_class", section);
      node->setGameKey("bonename", bone);
      node->setGameKey("weight", weight);
    };
    if (weights->children().empty()) add("", "1.0");
    for (const KeyValues& member : weights->children()) add(ConvertBoneName(member.name()), member.value());
  }
}

}  // namespace zv
