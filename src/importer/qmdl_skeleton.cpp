// Model document stages for the skeleton side: bounds hull, bones, bone markup, pose
// parameters and attachments.

#include <string>
#include <unordered_map>
#include <vector>

#include "base/hash.h"
#include "base/log.h"
#include "importer/names.h"
#include "importer/qmdl_writer.h"

namespace zv {
namespace {

bool sameValues(const legacy::PoseParam& a, const legacy::PoseParam& b) {
  return a.flags == b.flags && a.start == b.start && a.end == b.end && a.loop == b.loop;
}

}  // namespace

void QmdlWriter::writeBoundsHull() {
  if (!converter_.settings().headerHullBounds) return;
  modeldoc::Node* hull = document_.createNode("BoundsHull", "bounds_hull", document_.root());
  if (hull == nullptr) return;
  hull->set("mins", documentVector(mdl_.header.hullMin));
  hull->set("maxs", documentVector(mdl_.header.hullMax));
}

void QmdlWriter::writeBones() {
  const std::vector<SkeletonBone>& bones = tables_.skeleton;
  modeldoc::Node* skeleton = document_.rootList("Skeleton");
  // Every bone exists before any is wired, so a child listed before its parent still
  // finds it.
  std::vector<modeldoc::Node*> nodes(bones.size(), nullptr);
  for (size_t i = 0; i < bones.size(); ++i) {
    if (skeleton != nullptr) nodes[i] = document_.createNode("Bone", bones[i].name, skeleton);
    if (nodes[i] == nullptr)
      mainLog().log(Severity::Warning, "Failed to create bone '%s'\n", bones[i].name.c_str());
  }
  for (size_t i = 0; i < bones.size(); ++i) {
    modeldoc::Node* node = nodes[i];
    if (node == nullptr) continue;
    int32_t parent = bones[i].parent;
    // A bone whose parent failed stays at the top of the skeleton.
    if (parent >= 0 && size_t(parent) < nodes.size() && nodes[size_t(parent)] != nullptr) {
      document_.reparent(node, nodes[size_t(parent)]);
    }
    node->set("origin", documentVector(bones[i].position));
    node->set("angles", documentAngles(quaternionAngles(bones[i].orientation)));
    node->set("scale", 1.0f);
  }
}

void QmdlWriter::writeBoneMarkup() {
  if (tables_.skeleton.empty()) return;
  if (modeldoc::Node* markup = document_.rootList("BoneMarkupList")) markup->set("bone_cull_type", 2);
}

bool QmdlWriter::writePoseParameters() {
  const std::vector<legacy::PoseParam>& params = mdl_.poseParams;
  if (params.empty()) return true;
  modeldoc::Node* list = document_.rootList("PoseParamList");
  // Names that sanitise alike are one parameter: the first definition wins.
  std::unordered_map<std::string, size_t, NameHasher> firstUse;
  for (size_t i = 0; i < params.size(); ++i) {
    const legacy::PoseParam& param = params[i];
    std::string name = SanitizeNodeName(param.name);
    auto [known, inserted] = firstUse.emplace(name, i);
    if (!inserted) {
      if (!sameValues(param, params[known->second])) {
        warning("Pose param name %s duplicated, with different values\n", name.c_str());
      }
      continue;
    }
    modeldoc::Node* node = list != nullptr ? document_.createNode("PoseParam", name, list) : nullptr;
    if (node == nullptr) {
      mainLog().log(Severity::Error, "C_ZV_MDL_Import::WriteQmdl: Couldn't create pose parameter \"%s\"\n",
                    name.c_str());
      return false;
    }
    bool looping = (param.flags & 1) != 0;
    float loop = param.loop;
    // A full circle of angle wraps, whatever the flags say.
    if (!looping && param.start == -180.0f && param.end == 180.0f) {
      looping = true;
      loop = 360.0f;
    }
    node->set("poseparam_min", documentFloat(param.start));
    node->set("poseparam_max", documentFloat(param.end));
    node->set("poseparam_looping", looping);
    node->set("poseparam_loop", documentFloat(loop));
  }
  return true;
}

std::string QmdlWriter::boneReference(int32_t bone) const {
  if (bone < 0 || size_t(bone) >= tables_.skeleton.size()) return {};
  return ConvertBoneName(tables_.skeleton[size_t(bone)].name);
}

void QmdlWriter::writeAttachments() {
  for (const legacy::Attachment& attachment : mdl_.attachments) {
    modeldoc::Node* node = createInList("AttachmentList", "Attachment", SanitizeNodeName(attachment.name));
    if (node == nullptr) continue;
    node->set("parent_bone", boneReference(attachment.bone));
    node->set("relative_origin", documentVector(attachment.local.translation()));
    node->set("relative_angles", documentAngles(matrixAngles(attachment.local)));
    node->set("weight", 1.0f);
  }
}

}  // namespace zv
