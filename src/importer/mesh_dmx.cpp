#include "importer/mesh_dmx.h"

#include "base/path.h"
#include "base/strings.h"
#include "importer/dmx_skeleton.h"
#include "importer/flex_dmx.h"
#include "importer/model_keys.h"

namespace zv {
namespace {

// Joint slots written per vertex; the legacy files fill at most three.
constexpr size_t kJointCount = 3;

// The vertex fields of the "bind" state, created in file order before any is filled.
struct VertexFields {
  std::vector<Vector3>* positions;
  std::vector<Vector3>* normals;
  std::vector<Vector2>* texcoords0;
  std::vector<Vector4>* tangents;
  std::vector<Vector2>* texcoords1;  // nullptr for parts with one set
  std::vector<float>* weights;
  std::vector<int32_t>* joints;
  std::vector<float>* balance;  // nullptr for parts without stereo morph targets
  std::vector<std::vector<int32_t>*> indexLists;
};

VertexFields addVertexFields(dmx::CDmElement& data, bool twoSets, bool balance) {
  std::vector<std::string> format{"position$0", "normal$0", "texcoord$0", "tangent$0"};
  if (twoSets) format.push_back("texcoord$1");
  format.insert(format.end(), {"blendweights$0", "blendindices$0"});
  if (balance) format.push_back("balance$0");
  data.stringArray("vertexFormat") = format;
  data.setInt("jointCount", int32_t(kJointCount));
  // Texture coordinates are stored as the legacy files hold them.
  data.setBool("flipVCoordinates", false);

  VertexFields f{};
  auto indices = [&](const char* field) {
    f.indexLists.push_back(&data.intArray(std::string(field) + "Indices"));
  };
  f.positions = &data.vector3Array("position$0");
  indices("position$0");
  f.normals = &data.vector3Array("normal$0");
  indices("normal$0");
  f.texcoords0 = &data.vector2Array("texcoord$0");
  indices("texcoord$0");
  f.tangents = &data.vector4Array("tangent$0");
  indices("tangent$0");
  if (twoSets) {
    f.texcoords1 = &data.vector2Array("texcoord$1");
    indices("texcoord$1");
  }
  // Joint fields follow position$0 value for value and have no index list.
  f.weights = &data.floatArray("blendweights$0");
  f.joints = &data.intArray("blendindices$0");
  if (balance) {
    f.balance = &data.floatArray("balance$0");
    indices("balance$0");
  }
  return f;
}

void fillVertices(VertexFields& f, const MeshPart& part) {
  if (f.balance) *f.balance = part.balance;
  size_t count = part.vertices.size();
  f.positions->reserve(count);
  f.normals->reserve(count);
  f.texcoords0->reserve(count);
  f.tangents->reserve(count);
  if (f.texcoords1) f.texcoords1->reserve(count);
  f.weights->reserve(kJointCount * count);
  f.joints->reserve(kJointCount * count);
  for (const GatheredVertex& v : part.vertices) {
    f.positions->push_back(v.position);
    f.normals->push_back(v.normal);
    f.texcoords0->push_back(v.texcoord0);
    f.tangents->push_back(v.tangent);
    if (f.texcoords1) f.texcoords1->push_back(v.texcoord1);
    for (size_t k = 0; k < kJointCount; ++k) {
      f.weights->push_back(v.weights[k]);
      f.joints->push_back(v.bones[k]);
    }
  }
}

// A face set naming a slot the model does not have still needs a named material.
std::string materialName(const MaterialSlots& materials, int32_t slot) {
  if (slot >= 0 && size_t(slot) < materials.meshNames.size()) return materials.meshNames[size_t(slot)];
  return format("materials\\missing_material_%d.qmat", slot);
}

// One face set per strip group; corners continue from `corner`, which is advanced, and
// their vertices go on `cornerVertices`.
dmx::CDmElement* addFaceSet(dmx::DmElementTree& tree, const FaceSet& faces, const MaterialSlots& materials,
                            int32_t& corner, std::vector<int32_t>& cornerVertices) {
  dmx::CDmElement* faceSet = tree.create("DmeFaceSet", "faceSet");
  std::string material = materialName(materials, faces.material);
  dmx::CDmElement* element = faceSet->addElement("material", "DmeMaterial", material);
  element->setString("mtlName", path::toForwardSlashes(material));
  size_t triangles = faces.indices.size() / 3;
  std::vector<int32_t>& list = faceSet->intArray("faces");
  list.reserve(4 * triangles);
  for (size_t t = 0; t < triangles; ++t) {
    for (size_t k = 0; k < 3; ++k) {
      list.push_back(corner++);
      cornerVertices.push_back(faces.indices[3 * t + k]);
    }
    list.push_back(-1);
  }
  return faceSet;
}

}  // namespace

dmx::CDmElement* buildMeshPartTree(dmx::DmElementTree& tree, MeshPart& part,
                                   const std::vector<SkeletonBone>& skeleton, const MaterialSlots& materials,
                                   const FlexModel& flexes) {
  dmx::CDmElement* root = tree.create("DmElement", "root");
  dmx::CDmElement* model = addSkeletonModel(tree, "model", skeleton);
  root->setElement("skeleton", model);
  root->setElement("model", model);

  dmx::CDmElement* dag = tree.create("DmeDag", part.name);
  addTransform(*dag, "transform", part.name, {}, {});
  auto [mesh, bind] = addMeshShape(tree, *dag, part.name);
  dag->setBool("visible", true);
  // Readers look at the shape only when a dag has no children.
  dag->addElementArray("children");
  model->addElementArray("children").push_back(dag);

  std::vector<dmx::CDmElement*>& faceSets = mesh->addElementArray("faceSets");

  VertexFields fields = addVertexFields(*bind, part.texcoordSets == 2, !part.balance.empty());
  fillVertices(fields, part);
  // Every field has its own index list, and all of them are the corners' vertices.
  std::vector<int32_t>& cornerVertices = *fields.indexLists.front();
  size_t corners = 0;
  for (const FaceSet& faces : part.faceSets) corners += faces.indices.size() / 3 * 3;
  cornerVertices.reserve(corners);
  int32_t corner = 0;
  for (const FaceSet& faces : part.faceSets)
    faceSets.push_back(addFaceSet(tree, faces, materials, corner, cornerVertices));
  for (size_t k = 1; k < fields.indexLists.size(); ++k) *fields.indexLists[k] = cornerVertices;
  addMorphTargetElements(tree, *root, *mesh, part, flexes);
  return root;
}

bool allowsStaticProp(const legacy::MdlFile& mdl, const std::optional<KeyValues>& modelKeys) {
  if ((mdl.header.flags & legacy::kStaticPropFlag) == 0) return false;
  const KeyValues* propData = modelKeys ? modelKeys->find("prop_data") : nullptr;
  return !(propData && propData->getInt("allowstatic") == 0);
}

std::string meshInfoText(bool staticProp, int32_t texcoordSets) {
  return format("{\n\"staticprop\": %d,\n\"numuvs\": %d\n}\n", staticProp ? 1 : 0, texcoordSets);
}

}  // namespace zv
