// Mesh extraction: one mesh part per body part, sub-model and exported LOD, gathered from
// the strip file and the resolved vertex file.

#include "importer/mesh_extraction.h"

#include <algorithm>
#include <set>

#include "base/float_sanitize.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "importer/converter.h"
#include "importer/flexes.h"

namespace zv {
namespace {

// Strips normally split their group's index array between them; strips that cover it
// over and over could multiply a small file into a huge list, so the list is cut there.
constexpr size_t kMaxCornerRepeats = 16;

// A tangent for vertex files that store none: a zero direction with a positive sign.
constexpr Vector4 kNoTangent{0, 0, 0, 1};

// Unique file-safe part names within a model. Names are compared ignoring case, as the
// file systems the outputs land on may do.
class PartNames {
 public:
  std::string claim(std::string_view name) {
    std::string safe = safeFileName(name);
    std::string candidate = safe;
    for (int n = 2; !used_.insert(toLower(candidate)).second; ++n)
      candidate = format("%s_%d", safe.c_str(), n);
    return candidate;
  }

 private:
  std::set<std::string> used_;
};

// The gathered form of a resolved vertex; its position is repaired in the loaded data
// first, so that every later reader sees the repaired value too.
GatheredVertex gatherVertex(legacy::VertexFile& file, int64_t index) {
  GatheredVertex out;
  if (index < 0 || size_t(index) >= file.vertices().size()) return out;
  size_t at = size_t(index);
  legacy::StudioVertex& vertex = file.vertices()[at];
  SanitizeVector(vertex.position);
  out.position = vertex.position;
  out.normal = vertex.normal;
  out.texcoord0 = vertex.uv;
  out.tangent = at < file.tangents().size() ? file.tangents()[at] : kNoTangent;
  if (at < file.extraUvs().size()) out.texcoord1 = file.extraUvs()[at];
  size_t used = std::min<size_t>(vertex.boneCount, vertex.weights.size());
  for (size_t k = 0; k < used; ++k) {
    out.weights[k] = vertex.weights[k];
    out.bones[k] = vertex.bones[k];
  }
  return out;
}

const legacy::StripModelLod* findStripLod(const legacy::VtxFile& strips, size_t bodyPart, size_t subModel,
                                          int32_t lod) {
  if (bodyPart >= strips.bodyParts.size()) return nullptr;
  const std::vector<legacy::StripModel>& models = strips.bodyParts[bodyPart].models;
  if (subModel >= models.size() || size_t(lod) >= models[subModel].lods.size()) return nullptr;
  return &models[subModel].lods[size_t(lod)];
}

}  // namespace

std::string BuildPartName(std::string_view modelName, std::string_view bodyPartName, int32_t subModelCount,
                          int32_t subModelIndex, int32_t lod) {
  if (modelName.empty()) return {};
  std::string model = toLower(path::fileBase(modelName));
  std::string bodyPart = toLower(path::fileBase(bodyPartName));
  std::string lodSuffix = lod == -1 ? std::string() : format("_lod%d", lod);
  if (subModelCount < 2) return format("%s_bg_%s%s", model.c_str(), bodyPart.c_str(), lodSuffix.c_str());
  return format("%s_bg_%s_sm%d%s", model.c_str(), bodyPart.c_str(), subModelIndex, lodSuffix.c_str());
}

std::vector<int32_t> stripGroupCorners(const legacy::StripGroup& group) {
  std::vector<int32_t> corners;
  size_t limit = kMaxCornerRepeats * std::max<size_t>(group.indices.size(), 1);
  for (const legacy::Strip& strip : group.strips) {
    int64_t first = strip.indexOffset, count = strip.indexCount;
    if (first < 0 || count < 0 || first + count > int64_t(group.indices.size())) continue;
    if (corners.size() + size_t(count) > limit) {
      warning(
          "Strip group strips repeat its %zu indices more than %zu times; the remaining strips are left "
          "out\n",
          group.indices.size(), kMaxCornerRepeats);
      break;
    }
    for (int64_t i = 0; i < count; ++i) corners.push_back(group.indices[size_t(first + i)]);
    // Positions count from the start of the whole list, also for later strips.
    for (int64_t i = 0; i + 2 < count; i += 3) std::swap(corners[size_t(i)], corners[size_t(i + 2)]);
  }
  return corners;
}

Matrix3x4 yUpToZUpMatrix() { return angleMatrix(QAngle{0, 0, 90}) * angleMatrix(QAngle{90, 0, 0}); }

void transformSkeleton(std::vector<SkeletonBone>& bones, const Matrix3x4& m) {
  for (SkeletonBone& bone : bones) bone.modelTransform = m * bone.modelTransform;
  // Parents may be listed after their children, so the new model-space transforms are
  // all in place before any local pose is derived from them. A root's local pose is its
  // model-space pose.
  for (SkeletonBone& bone : bones) {
    bool hasParent = bone.parent >= 0 && size_t(bone.parent) < bones.size();
    Matrix3x4 local = hasParent ? invertRigid(bones[size_t(bone.parent)].modelTransform) * bone.modelTransform
                                : bone.modelTransform;
    bone.position = local.translation();
    bone.orientation = matrixQuaternion(local);
  }
}

void transformPart(MeshPart& part, const Matrix3x4& m) {
  for (GatheredVertex& vertex : part.vertices) {
    vertex.position = transformPoint(m, vertex.position);
    vertex.normal = rotateVector(m, vertex.normal);
    Vector3 direction = rotateVector(m, {vertex.tangent.x, vertex.tangent.y, vertex.tangent.z});
    vertex.tangent = {direction.x, direction.y, direction.z, vertex.tangent.w};
  }
  // Deltas are differences of positions and of normals: directions.
  for (MorphTarget& target : part.morphTargets) {
    for (Vector3& delta : target.positionDeltas) delta = rotateVector(m, delta);
    for (Vector3& delta : target.normalDeltas) delta = rotateVector(m, delta);
  }
}

void C_ZV_MDL_Import::noteFlexesLeftOut() const {
  const legacy::MdlFile& mdl = model_->mdl;
  std::vector<bool> driving(mdl.flexes.controllers.size(), false);
  for (const MeshPart& part : tables_.meshParts) {
    for (const PartControl& used : selectPartFlexes(part, tables_.flexes).controls) {
      for (int32_t c : used.control->controllers) driving[size_t(c)] = true;
    }
  }
  std::string idle;
  size_t idleCount = 0;
  for (size_t c = 0; c < driving.size(); ++c) {
    if (driving[c]) continue;
    idle += (idleCount++ ? ", " : "") + tables_.flexes.controllerNames[c];
  }
  if (idleCount) {
    warning("%s: %zu flex controllers drive no morph target and get no control: %s\n", settings_.inputPath.c_str(),
            idleCount, idle.c_str());
  }
  bool eyeballs = false;
  for (const legacy::BodyPart& part : mdl.bodyParts) {
    for (const legacy::SubModel& model : part.models) eyeballs = eyeballs || model.eyeballCount > 0;
  }
  if (eyeballs) {
    warning("%s: eyeballs are not converted; eyelid shapes come out as plain morph targets\n",
            settings_.inputPath.c_str());
  }
}

MeshPart C_ZV_MDL_Import::extractPart(size_t bodyPart, size_t subModel, int32_t lod,
                                      const legacy::StripModelLod& strips, std::vector<int32_t>& sources) {
  legacy::VertexFile& vertexFile = *model_->vertices;
  const legacy::SubModel& model = model_->mdl.bodyParts[bodyPart].models[subModel];
  MeshPart part;
  sources.clear();
  part.lod = lod;
  part.texcoordSets = vertexFile.extraUvs().empty() ? 1 : 2;
  for (size_t k = 0; k < model.meshes.size(); ++k) {
    const legacy::Mesh& mesh = model.meshes[k];
    AddMaterial(lod, mesh.material);
    if (k >= strips.meshes.size()) continue;
    for (const legacy::StripGroup& group : strips.meshes[k].stripGroups) {
      // Group indices are local to the group's vertices, which are appended after the
      // part's earlier groups: the face set refers to them through that offset.
      int32_t base = int32_t(part.vertices.size());
      FaceSet faces{mesh.material, stripGroupCorners(group)};
      for (int32_t& corner : faces.indices) corner += base;
      part.faceSets.push_back(std::move(faces));
      for (const legacy::StripVertex& vertex : group.vertices) {
        int64_t index = legacy::resolvedVertexIndex(model, mesh, vertex);
        part.vertices.push_back(gatherVertex(vertexFile, index));
        sources.push_back(int32_t(index));
      }
    }
  }
  return part;
}

bool C_ZV_MDL_Import::ExtractMeshes() {
  if (!model_) return false;
  const legacy::MdlFile& mdl = model_->mdl;
  size_t slotCount = mdl.textures.size();
  tables_.materials = MaterialSlots{};
  tables_.materials.paths.resize(slotCount);
  tables_.materials.resolved.resize(slotCount, 0);
  tables_.meshParts.clear();
  tables_.bodyGroups.clear();
  tables_.referencedMaterials.clear();

  bool hasGeometry = model_->strips && model_->vertices;
  if (!hasGeometry) {
    warning("C_ZV_MDL_Import::ExtractMeshes(1902): \"%s\" has no usable %s; no mesh files are written\n",
            settings_.inputPath.c_str(), model_->vertices ? "strip file" : "vertex file");
  }
  // Without geometry the sub-models still make (empty) body group choices at LOD 0.
  int32_t lodCount = hasGeometry ? model_->strips->lodCount : 1;
  if (!settings_.allLods) lodCount = std::min(lodCount, 1);
  tables_.lodCount = lodCount;

  tables_.flexes = buildFlexModel(mdl, settings_.inputPath);
  std::vector<int32_t> sources;
  PartNames partNames;
  std::set<std::string> bodyPartNames;
  for (size_t b = 0; b < mdl.bodyParts.size(); ++b) {
    const legacy::BodyPart& bodyPart = mdl.bodyParts[b];
    BodyGroup group;
    group.name = bodyPartNames.insert(bodyPart.name).second
                     ? bodyPart.name
                     : format("%s_part%d", bodyPart.name.c_str(), int(b));
    int32_t subModelCount = int32_t(bodyPart.models.size());
    for (int32_t m = 0; m < subModelCount; ++m) {
      for (int32_t lod = 0; lod < lodCount; ++lod) {
        BodyGroupEntry entry;
        entry.choice = m;
        entry.lod = lod;
        entry.meshName = partNames.claim(BuildPartName(mdl.modelName(), group.name, subModelCount, m, lod));
        const legacy::StripModelLod* strips =
            hasGeometry ? findStripLod(*model_->strips, b, size_t(m), lod) : nullptr;
        if (strips) {
          MeshPart part = extractPart(b, size_t(m), lod, *strips, sources);
          if (!part.faceSets.empty()) {
            addMorphTargets(part, bodyPart.models[size_t(m)], sources, tables_.flexes);
            part.name = entry.meshName;
            entry.meshes.push_back({entry.meshName, strips->switchPoint});
            tables_.meshParts.push_back(std::move(part));
          }
        }
        group.entries.push_back(std::move(entry));
      }
    }
    tables_.bodyGroups.push_back(std::move(group));
  }
  finishMaterials();
  noteFlexesLeftOut();

  if (settings_.yUpToZUp) {
    Matrix3x4 m = yUpToZUpMatrix();
    transformSkeleton(tables_.skeleton, m);
    for (MeshPart& part : tables_.meshParts) transformPart(part, m);
  }
  return true;
}

}  // namespace zv
