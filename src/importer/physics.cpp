// The collision stages: the model's .phy read into the physics tables (pieces brought to
// model space), and the physics file written from them.

#include <utility>

#include "anim/anim_decoder.h"
#include "base/float_sanitize.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "importer/converter.h"
#include "importer/dmx_output.h"
#include "importer/mesh_extraction.h"
#include "importer/physics_dmx.h"
#include "legacy/phy.h"

namespace zv {
namespace {

int32_t findBone(const std::vector<SkeletonBone>& skeleton, std::string_view name) {
  if (name.empty()) return -1;
  for (size_t i = 0; i < skeleton.size(); ++i) {
    if (equalsNoCase(skeleton[i].name, name)) return int32_t(i);
  }
  return -1;
}

// Turns triangles whose normal points towards the piece's centre. Files store them
// outward as far as we have seen, but nothing in the format promises it; pieces are
// convex, so the centre decides. Triangles through the centre (flat pieces) stay as stored.
void windOutward(PhysicsPiece& piece) {
  if (piece.points.empty()) return;
  Vector3 centre;
  for (const Vector3& p : piece.points) centre = centre + p;
  centre = centre * (1.0f / float(piece.points.size()));
  for (auto& triangle : piece.triangles) {
    const Vector3& a = piece.points[size_t(triangle[0])];
    const Vector3& b = piece.points[size_t(triangle[1])];
    const Vector3& c = piece.points[size_t(triangle[2])];
    Vector3 normal = cross(b - a, c - a);
    Vector3 outward = (a + b + c) * (1.0f / 3) - centre;
    if (dot(normal, outward) < -1e-4f * length(normal) * length(outward)) std::swap(triangle[1], triangle[2]);
  }
}

PhysicsPiece toModelSpace(const legacy::PhyPiece& source, int32_t bone, const Matrix3x4& toModel) {
  PhysicsPiece piece;
  piece.bone = bone;
  piece.triangles = source.triangles;
  for (const Vector3& point : source.points) {
    Vector3 p = transformPoint(toModel, point);
    SanitizeVector(p);
    piece.points.push_back(p);
  }
  windOutward(piece);
  return piece;
}

// Which frame a piece's points are in: the bone its client data names; without one, the
// bone named like the solid, else the only bone. A model of several bones whose solid
// names none of them has its collision points in model space already.
int32_t pieceBone(const legacy::PhyPiece& piece, int32_t solidBone, size_t boneCount) {
  if (piece.bone >= 0 && size_t(piece.bone) < boneCount) return piece.bone;
  if (solidBone >= 0) return solidBone;
  return boneCount == 1 ? 0 : -1;
}

// Versions before 48 kept the collision points of a model of one solid in model space
// turned by a yaw of -90 degrees, whatever its bones: collision (x, y, z) is (z, -x, -y)
// inches.
constexpr int32_t kFirstBoneSpaceVersion = 48;
const QAngle kOlderSingleSolidTurn{0, -90, 0};

// From a piece's frame to model space. A bone's frame (none: model space) is placed with
// the pose the collision model was built against: for a ragdoll (several solids) the bind
// pose, the inverse of the bone's pose-to-bone matrix; for a model of one solid the pose of
// its first animation frame, which may turn the bone away from its bind pose (it then
// turns the render mesh too, so hull and mesh line up only in that pose).
Matrix3x4 pieceToModel(const legacy::MdlFile& mdl, size_t solidCount, int32_t bone, bool yUpToZUp,
                       const std::optional<std::vector<Matrix3x4>>& firstFrame) {
  Matrix3x4 toModel = Matrix3x4::identity();
  if (solidCount == 1 && mdl.header.version < kFirstBoneSpaceVersion) {
    toModel = angleMatrix(kOlderSingleSolidTurn);
  } else if (bone >= 0) {
    toModel = solidCount == 1 && firstFrame ? (*firstFrame)[size_t(bone)]
                                            : invertRigid(mdl.bones[size_t(bone)].poseToBone);
  }
  // The mesh stage turns the skeleton and the meshes later; the hulls are turned here.
  return yUpToZUp ? yUpToZUpMatrix() * toModel : toModel;
}

}  // namespace

bool C_ZV_MDL_Import::LoadPhysics() {
  if (!model_) return false;
  std::string path = path::withExtension(settings_.inputPath, ".phy");
  auto bytes = readFamilyFile(path);
  if (!bytes) return false;
  auto phy = legacy::PhyFile::parse(path, ByteView(*bytes));
  if (!phy) {
    warning("Collision file rejected: %s\n", phy.message().c_str());
    return false;
  }
  if (phy->checksum != model_->mdl.header.checksum) {
    warning("%s: checksum %d does not match the model's %d\n", path.c_str(), phy->checksum,
            model_->mdl.header.checksum);
    return false;
  }
  for (const std::string& note : phy->notes) warning("%s: %s\n", path.c_str(), note.c_str());

  auto firstFrame = anim::firstFramePose(model_->mdl, model_->animBlocks ? &*model_->animBlocks : nullptr);
  for (size_t s = 0; s < phy->solids.size(); ++s) {
    const legacy::PhySolid& source = phy->solids[s];
    PhysicsSolid solid;
    const legacy::PhySolidKeys& keys = source.keys;
    solid.name = keys.name;
    solid.bone = findBone(tables_.skeleton, keys.name);
    // Hull surfaces are named after it; solids without one get the usual fallback.
    solid.surfaceProp = keys.surfaceProp.empty() ? std::string("default") : keys.surfaceProp;
    solid.mass = keys.mass;
    solid.damping = keys.damping;
    solid.rotDamping = keys.rotDamping;
    solid.inertia = keys.inertia;
    for (size_t k = 0; k < source.pieces.size(); ++k) {
      const legacy::PhyPiece& piece = source.pieces[k];
      if (piece.bone >= 0 && size_t(piece.bone) >= model_->mdl.bones.size()) {
        warning("%s: solid %zu piece %zu names bone %d of %zu\n", path.c_str(), s, k, piece.bone,
                model_->mdl.bones.size());
      }
      int32_t bone = pieceBone(piece, solid.bone, model_->mdl.bones.size());
      Matrix3x4 toModel = pieceToModel(model_->mdl, phy->solids.size(), bone, settings_.yUpToZUp, firstFrame);
      solid.pieces.push_back(toModelSpace(piece, bone, toModel));
    }
    tables_.physicsSolids.push_back(std::move(solid));
  }
  for (const legacy::RagdollConstraint& c : phy->constraints) {
    tables_.physicsConstraints.push_back({c.parent, c.child, c.min, c.max, c.friction});
  }
  tables_.breakPieces = phy->breaks;
  return true;
}

bool C_ZV_MDL_Import::WritePhysics() {
  if (tables_.physicsSolids.empty()) return true;
  std::string file = paths_.physFolder + "/" + settings_.baseName + "_phy.dmx";
  dmx::DmElementTree tree;
  const dmx::CDmElement* root = buildPhysicsTree(tree, tables_.physicsSolids, tables_.skeleton);
  if (Status saved = saveDmxFile(output_, file, *root, scratch_.buffer); !saved) {
    warning("Unable to save %s\n", file.c_str());
    mainLog().log(Severity::Detail, "%s\n", saved.message().c_str());
    return false;
  }
  return true;
}

}  // namespace zv
