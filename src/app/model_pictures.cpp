#include "app/model_pictures.h"

#include "base/hash.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"

namespace zv::app {

PagePaths PagePaths::of(std::string_view htmlFile) {
  std::string file = path::toForwardSlashes(htmlFile);
  PagePaths paths;
  paths.folder = std::string(path::parent(file));
  if (paths.folder.empty()) paths.folder = ".";
  paths.pageName = std::string(path::fileName(file));
  paths.filesFolder = path::stripExtension(paths.pageName) + "_files";
  return paths;
}

std::string PagePaths::picturePath(std::string_view name) const {
  std::string link = pictureLink(name);
  return folder == "." ? link : path::join(folder, link, '/');
}

std::string PagePaths::pagePath() const { return folder == "." ? pageName : path::join(folder, pageName, '/'); }

std::string PagePaths::pictureLink(std::string_view name) const { return filesFolder + "/" + std::string(name); }

ModelCounts countsOf(const ModelTables& tables) {
  ModelCounts counts;
  counts.bodyParts = tables.bodyGroups.size();
  for (const MeshPart& part : tables.meshParts) {
    if (part.lod != 0) continue;
    ++counts.meshes;
    counts.vertices += part.vertices.size();
    for (const FaceSet& faces : part.faceSets) counts.triangles += faces.indices.size() / 3;
  }
  counts.bones = tables.skeleton.size();
  counts.animations = tables.animations.size();
  for (const SequenceRecord& sequence : tables.sequences) counts.sequences += sequence.usable;
  for (const PhysicsSolid& solid : tables.physicsSolids) counts.collisionPieces += solid.pieces.size();
  return counts;
}

namespace {

// Legacy strips wind front faces clockwise; the rasterizer takes them counter-clockwise.
thumbnail::Mesh meshOf(const ModelTables& tables) {
  thumbnail::Mesh mesh;
  for (const MeshPart& part : tables.meshParts) {
    if (part.lod != 0) continue;
    auto base = int32_t(mesh.positions.size());
    for (const GatheredVertex& v : part.vertices) mesh.positions.push_back(v.position);
    for (const FaceSet& faces : part.faceSets) {
      for (size_t k = 0; k + 2 < faces.indices.size(); k += 3)
        mesh.triangles.push_back({base + faces.indices[k], base + faces.indices[k + 2], base + faces.indices[k + 1]});
    }
  }
  return mesh;
}

thumbnail::Skeleton skeletonOf(const ModelTables& tables) {
  thumbnail::Skeleton skeleton;
  for (const SkeletonBone& bone : tables.skeleton) {
    skeleton.joints.push_back(bone.modelTransform.translation());
    skeleton.parents.push_back(bone.parent);
  }
  return skeleton;
}

}  // namespace

thumbnail::Rendered pictureOf(const ModelTables& tables) {
  thumbnail::Mesh mesh = meshOf(tables);
  if (!mesh.triangles.empty()) return thumbnail::renderMesh(mesh);
  return thumbnail::renderSkeleton(skeletonOf(tables));
}

std::string pictureName(std::string_view input) {
  std::string key = path::toForwardSlashes(input);
  return format("%016llx.png", static_cast<unsigned long long>(fnv1a64(reinterpret_cast<const uint8_t*>(key.data()), key.size())));
}

ThumbnailWriter::ThumbnailWriter(const PagePaths& page) : page_(page), output_(page.folder, nullptr) {}

std::string ThumbnailWriter::write(const ModelTables& tables, std::string_view input) {
  thumbnail::Rendered picture = pictureOf(tables);
  if (!picture.problem.empty())
    warning("The thumbnail of %.*s is blank: %s\n", int(input.size()), input.data(), picture.problem.c_str());
  std::string name = pictureName(input);
  output_.beginModel();
  std::vector<uint8_t> png = thumbnail::encodePng(picture.image);
  if (Status written = output_.write(page_.picturePath(name), png); !written) {
    warning("Unable to write the thumbnail of %.*s: %s\n", int(input.size()), input.data(), written.message().c_str());
    return {};
  }
  return page_.picturePath(name);
}

}  // namespace zv::app
