#include "importer/physics_dmx.h"

#include <set>

#include "base/strings.h"
#include "importer/dmx_skeleton.h"
#include "importer/names.h"

namespace zv {
namespace {

// The outward normal of a triangle wound outward; a degenerate one points up.
Vector3 faceNormal(const PhysicsPiece& piece, const std::array<int32_t, 3>& triangle) {
  const Vector3& a = piece.points[size_t(triangle[0])];
  Vector3 normal = cross(piece.points[size_t(triangle[1])] - a, piece.points[size_t(triangle[2])] - a);
  float size = length(normal);
  return size > 0 ? normal * (1.0f / size) : Vector3{0, 0, 1};
}

dmx::CDmElement* addHullMesh(dmx::DmElementTree& tree, dmx::CDmElement& dag, const std::string& name,
                             const PhysicsPiece& piece, const std::string& surface, int faceSetNumber) {
  auto [mesh, bind] = addMeshShape(tree, dag, name);
  mesh->setString("PhysicsSurfaceProperties", surface);

  bind->stringArray("vertexFormat") = {"position$0", "normal$0"};
  bind->setInt("jointCount", 0);
  bind->setBool("flipVCoordinates", false);
  // Every corner is its own vertex so that it can carry its triangle's normal; corners
  // share the hull's points, so the hull stays welded.
  bind->vector3Array("position$0") = piece.points;
  std::vector<int32_t>& positionIndices = bind->intArray("position$0Indices");
  std::vector<Vector3>& normals = bind->vector3Array("normal$0");
  std::vector<int32_t>& normalIndices = bind->intArray("normal$0Indices");

  dmx::CDmElement* faceSet = tree.create("DmeFaceSet", format("faceSet%d", faceSetNumber));
  faceSet->addElement("material", "DmeMaterial", surface)->setString("mtlName", surface);
  std::vector<int32_t>& faces = faceSet->intArray("faces");
  for (const auto& triangle : piece.triangles) {
    int32_t normal = int32_t(normals.size());
    normals.push_back(faceNormal(piece, triangle));
    for (int32_t point : triangle) {
      faces.push_back(int32_t(positionIndices.size()));
      positionIndices.push_back(point);
      normalIndices.push_back(normal);
    }
    faces.push_back(-1);
  }
  mesh->addElementArray("faceSets") = {faceSet};
  return mesh;
}

}  // namespace

std::vector<std::string> physicsNameStems(const std::vector<PhysicsSolid>& solids) {
  std::vector<std::string> stems;
  std::set<std::string> taken;
  for (size_t i = 0; i < solids.size(); ++i) {
    std::string stem = solids[i].name.empty() ? format("solid%zu", i) : SanitizeNodeName(solids[i].name);
    if (!taken.insert(toLower(stem)).second) {
      stem += format("_%zu", i);
      taken.insert(toLower(stem));
    }
    stems.push_back(std::move(stem));
  }
  return stems;
}

std::string physicsMeshName(const std::string& stem, size_t piece) {
  return format("%s_%zu_mesh", stem.c_str(), piece);
}

dmx::CDmElement* buildPhysicsTree(dmx::DmElementTree& tree, const std::vector<PhysicsSolid>& solids,
                                  const std::vector<SkeletonBone>& skeleton) {
  dmx::CDmElement* root = tree.create("DmElement", "root");
  dmx::CDmElement* model = addSkeletonModel(tree, "model", skeleton);
  root->setElement("skeleton", model);
  root->setElement("model", model);
  const std::vector<dmx::CDmElement*> joints = model->getElementArray("jointList");

  std::vector<std::string> stems = physicsNameStems(solids);
  int faceSets = 0;
  for (size_t s = 0; s < solids.size(); ++s) {
    for (size_t k = 0; k < solids[s].pieces.size(); ++k) {
      const PhysicsPiece& piece = solids[s].pieces[k];
      std::string name = physicsMeshName(stems[s], k);
      bool onBone = piece.bone >= 0 && size_t(piece.bone) < joints.size();
      Matrix3x4 local =
          onBone ? invertRigid(skeleton[size_t(piece.bone)].modelTransform) : Matrix3x4::identity();

      dmx::CDmElement* dag = tree.create("DmeDag", name);
      addTransform(*dag, "transform", format("%s_%zu_tm", stems[s].c_str(), k), local.translation(),
                   matrixQuaternion(local));
      addHullMesh(tree, *dag, name, piece, solids[s].surfaceProp, faceSets++);
      dag->setBool("visible", true);
      // Readers look at the shape only when a dag has no children.
      dag->addElementArray("children");
      (onBone ? joints[size_t(piece.bone)] : model)->addElementArray("children").push_back(dag);
    }
  }
  return root;
}

}  // namespace zv
