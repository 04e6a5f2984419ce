#include "importer/dmx_skeleton.h"

#include <algorithm>
#include <cstring>

#include "base/strings.h"
#include "importer/names.h"

namespace zv {
namespace {

dmx::CDmElement* createTransform(dmx::DmElementTree& tree, std::string_view name, const Vector3& position,
                                 const Quaternion& orientation) {
  dmx::CDmElement* transform = tree.create("DmeTransform", name);
  transform->setVector3("position", position);
  transform->setQuaternion("orientation", orientation);
  return transform;
}

// Dag attributes in the order readers expect: transform, shape, visible, children.
dmx::CDmElement* createJoint(dmx::DmElementTree& tree, const SkeletonBone& bone, const std::string& name) {
  dmx::CDmElement* joint = tree.create("DmeJoint", name);
  joint->setElement("transform", createTransform(tree, name, bone.position, bone.orientation));
  joint->setElement("shape", nullptr);
  joint->setBool("visible", true);
  joint->addElementArray("children");
  joint->setBool("lockInfluenceWeights", false);
  return joint;
}

}  // namespace

std::string jointName(const std::vector<SkeletonBone>& bones, size_t index) {
  std::string name = ConvertBoneName(bones[index].name);
  return name.empty() ? format("bone%zu", index) : name;
}

dmx::CDmElement* addTransform(dmx::CDmElement& owner, std::string_view attribute, std::string_view name,
                              const Vector3& position, const Quaternion& orientation) {
  dmx::CDmElement* transform = createTransform(*owner.file(), name, position, orientation);
  owner.setElement(attribute, transform);
  return transform;
}

dmx::CDmElement* addSkeletonModel(dmx::DmElementTree& tree, std::string_view modelName,
                                  const std::vector<SkeletonBone>& bones) {
  dmx::CDmElement* model = tree.create("DmeModel", modelName);
  addTransform(*model, "transform", modelName, {}, {});
  model->setElement("shape", nullptr);
  model->setBool("visible", true);
  std::vector<dmx::CDmElement*>& children = model->addElementArray("children");

  std::vector<dmx::CDmElement*> joints;
  joints.reserve(bones.size());
  for (size_t i = 0; i < bones.size(); ++i) joints.push_back(createJoint(tree, bones[i], jointName(bones, i)));
  for (size_t i = 0; i < bones.size(); ++i) {
    int32_t parent = bones[i].parent;
    bool hasParent = parent >= 0 && size_t(parent) < bones.size() && size_t(parent) != i;
    (hasParent ? joints[size_t(parent)]->addElementArray("children") : children).push_back(joints[i]);
  }
  model->addElementArray("jointList") = joints;

  dmx::CDmElement* base = tree.create("DmeTransformList", "base");
  std::vector<dmx::CDmElement*>& transforms = base->addElementArray("transforms");
  for (size_t i = 0; i < bones.size(); ++i) {
    transforms.push_back(createTransform(tree, jointName(bones, i), bones[i].position, bones[i].orientation));
  }
  model->addElementArray("baseStates") = {base};

  dmx::CDmElement* axes = model->addElement("axisSystem", "DmeAxisSystem", "axisSystem");
  axes->setInt("upAxis", 3);
  axes->setInt("forwardParity", 1);
  axes->setInt("coordSys", 0);
  return model;
}

bool sameSkeletonModel(const std::vector<SkeletonBone>& a, const std::vector<SkeletonBone>& b) {
  auto sameBits = [](const auto& x, const auto& y) { return std::memcmp(&x, &y, sizeof x) == 0; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](const SkeletonBone& x, const SkeletonBone& y) {
    return x.name == y.name && x.parent == y.parent && sameBits(x.position, y.position) &&
           sameBits(x.orientation, y.orientation);
  });
}

MeshShape addMeshShape(dmx::DmElementTree& tree, dmx::CDmElement& dag, std::string_view name) {
  dmx::CDmElement* mesh = dag.addElement("shape", "DmeMesh", name);
  mesh->setBool("visible", true);
  dmx::CDmElement* bind = tree.create("DmeVertexData", "bind");
  mesh->setElement("bindState", bind);
  mesh->setElement("currentState", bind);
  mesh->addElementArray("baseStates") = {bind};
  mesh->addElementArray("deltaStates");
  return {mesh, bind};
}

}  // namespace zv
