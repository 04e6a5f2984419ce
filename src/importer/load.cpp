// The load stage: the model's family of files read through the file system and checked.

#include "base/log.h"
#include "base/path.h"
#include "importer/converter.h"

namespace zv {

std::optional<std::vector<uint8_t>> C_ZV_MDL_Import::readFamilyFile(const std::string& path) const {
  auto bytes = fileSystem_.readFile(path);
  if (!bytes) return std::nullopt;
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
  return true;
}

}  // namespace zv
