// The load stage: the model's family of files read through the file system and checked.

#include "base/hash.h"
#include "base/log.h"
#include "base/path.h"
#include "importer/converter.h"
#include "importer/model_keys.h"

namespace zv {

std::optional<std::vector<uint8_t>> C_ZV_MDL_Import::readFamilyFile(const std::string& path) const {
  auto bytes = fileSystem_.readFile(path);
  InputFile& record = inputsRead_.emplace_back(InputFile{path, bytes.ok(), 0});
  if (!bytes) return std::nullopt;
  if (settings_.fingerprintInputs) record.hash = fnv1a64(bytes->data(), bytes->size());
  return std::move(bytes.value());
}

bool C_ZV_MDL_Import::LoadMDL() {
  const std::string& mdlPath = settings_.inputPath;
  auto mdl = readFamilyFile(mdlPath);
  if (!mdl) {
    warning("C_ZV_MDL_Import::LoadMDL(413): Load of MDL \"%s\" failed\n", mdlPath.c_str());
    return false;
  }
  legacy::FamilyFiles files;
  files.mdlPath = mdlPath;
  files.mdl = std::move(*mdl);
  // Some content ships only the strip files built for other hardware; they share the format.
  for (const char* extension : {".dx90.vtx", ".dx80.vtx", ".sw.vtx"}) {
    files.vtxPath = path::withExtension(mdlPath, extension);
    files.vtx = readFamilyFile(files.vtxPath);
    if (files.vtx) {
      if (settings_.verbose) mainLog().log(Severity::Detail, "Using strip file %s\n", files.vtxPath.c_str());
      break;
    }
  }
  if (!files.vtx) files.vtxPath = path::withExtension(mdlPath, ".dx90.vtx");
  files.qvdPath = path::withExtension(mdlPath, ".qvd");
  files.qvd = readFamilyFile(files.qvdPath);

  auto model = legacy::loadModelFamily(std::move(files));
  if (!model) {
    warning("%s\n", model.message().c_str());
    warning("C_ZV_MDL_Import::LoadMDL(413): Load of MDL \"%s\" failed\n", mdlPath.c_str());
    return false;
  }
  model_ = std::move(model.value());
  model_->animBlocks = readAnimBlockFile(model_->mdl, mdlPath);
  tables_.modelKeys = loadModelKeyValues(model_->mdl);
  buildSkeleton();
  return true;
}

std::optional<legacy::AnimBlockFile> C_ZV_MDL_Import::readAnimBlockFile(const legacy::MdlFile& mdl,
                                                                         const std::string& mdlPath) const {
  if (mdl.animBlocks.empty()) return std::nullopt;
  // The name the model stores, then the model's own name beside it.
  for (const std::string& candidate : {mdl.animBlockName, path::withExtension(mdlPath, ".ani")}) {
    if (candidate.empty()) continue;
    auto bytes = readFamilyFile(candidate);
    if (!bytes) continue;
    auto file = legacy::AnimBlockFile::parse(candidate, std::move(*bytes), mdl.animBlocks);
    if (!file) {
      warning("%s\n", file.message().c_str());
      return std::nullopt;
    }
    for (const std::string& note : file->notes()) warning("%s\n", note.c_str());
    return std::move(file.value());
  }
  return std::nullopt;
}

void C_ZV_MDL_Import::buildSkeleton() {
  std::vector<SkeletonBone>& skeleton = tables_.skeleton;
  for (const legacy::Bone& bone : model_->mdl.bones) {
    skeleton.push_back({bone.name, bone.parent, bone.position, bone.quaternion,
                        quaternionMatrix(bone.quaternion, bone.position)});
  }
  // Parents may come after their children in the table. Each bone's unfinished ancestors
  // are composed top down; the load checked that every parent chain ends.
  std::vector<bool> done(skeleton.size(), false);
  std::vector<size_t> chain;
  for (size_t i = 0; i < skeleton.size(); ++i) {
    for (size_t at = i; !done[at]; at = size_t(skeleton[at].parent)) {
      chain.push_back(at);
      if (skeleton[at].parent < 0) break;
    }
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
      SkeletonBone& bone = skeleton[*it];
      if (bone.parent >= 0) bone.modelTransform = skeleton[size_t(bone.parent)].modelTransform * bone.modelTransform;
      done[*it] = true;
    }
    chain.clear();
  }
}

}  // namespace zv
