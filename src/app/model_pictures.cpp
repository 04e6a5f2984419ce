#include "app/model_pictures.h"

#include <algorithm>

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

PictureSubject subjectOf(const ModelTables& tables) {
  thumbnail::Mesh mesh = meshOf(tables);
  if (!mesh.triangles.empty()) return mesh;
  return skeletonOf(tables);
}

thumbnail::Rendered render(const PictureSubject& subject) {
  if (const auto* mesh = std::get_if<thumbnail::Mesh>(&subject)) return thumbnail::renderMesh(*mesh);
  return thumbnail::renderSkeleton(std::get<thumbnail::Skeleton>(subject));
}

thumbnail::Rendered pictureOf(const ModelTables& tables) { return render(subjectOf(tables)); }

std::string pictureName(std::string_view input) {
  std::string key = path::toForwardSlashes(input);
  return format("%016llx.png", static_cast<unsigned long long>(fnv1a64(reinterpret_cast<const uint8_t*>(key.data()), key.size())));
}

ThumbnailPainter::ThumbnailPainter(const PagePaths& page, size_t threads)
    : page_(page), capacity_(2 * std::max<size_t>(1, threads)) {
  for (size_t t = 0; t < std::max<size_t>(1, threads); ++t) threads_.emplace_back([this] { paint(); });
}

ThumbnailPainter::~ThumbnailPainter() { finish(); }

std::string ThumbnailPainter::submit(const ModelTables& tables, std::string_view input) {
  Job job{subjectOf(tables), std::string(input), page_.picturePath(pictureName(input))};
  std::string blank = std::visit([](const auto& subject) { return thumbnail::blankReason(subject); }, job.subject);
  if (!blank.empty()) warning("The thumbnail of %.*s is blank: %s\n", int(input.size()), input.data(), blank.c_str());
  std::string path = job.path;
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return queue_.size() < capacity_; });
  queue_.push_back(std::move(job));
  changed_.notify_all();
  return path;
}

// Each thread writes through an output of its own; it is the only user of it.
void ThumbnailPainter::paint() {
  Output output(page_.folder, nullptr);
  for (;;) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return closing_ || !queue_.empty(); });
    if (queue_.empty()) return;
    Job job = std::move(queue_.front());
    queue_.pop_front();
    changed_.notify_all();
    lock.unlock();

    std::vector<uint8_t> png = thumbnail::encodePng(render(job.subject).image);
    output.beginModel();
    if (Status written = output.write(job.path, png); !written) {
      std::lock_guard failed(mutex_);
      failed_.push_back(job.input);
      warning("Unable to write the thumbnail of %s: %s\n", job.input.c_str(), written.message().c_str());
    }
  }
}

std::vector<std::string> ThumbnailPainter::finish() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
  std::lock_guard lock(mutex_);
  return failed_;
}

}  // namespace zv::app
