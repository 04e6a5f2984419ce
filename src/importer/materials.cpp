// Material mapping: one relative material path per texture slot of the model.

#include "importer/materials.h"

#include <set>

#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "importer/converter.h"

namespace zv {
namespace {

std::string_view dropLeadingSeparator(std::string_view text) {
  if (!text.empty() && path::isSeparator(text.front())) text.remove_prefix(1);
  return text;
}

}  // namespace

bool isAbsoluteTextureName(std::string_view name) {
  bool drive = name.size() >= 2 && name[1] == ':' &&
               ((name[0] >= 'a' && name[0] <= 'z') || (name[0] >= 'A' && name[0] <= 'Z'));
  bool network = name.size() >= 2 && path::isSeparator(name[0]) && path::isSeparator(name[1]);
  return drive || network;
}

std::string materialCandidatePath(std::string_view directory, std::string_view name) {
  std::string file =
      std::string(dropLeadingSeparator(directory)) + "\\" + std::string(dropLeadingSeparator(name));
  file = path::removeDoubleSlashes(path::fitPath(file));
  std::string candidate = path::fitPath(format("materials\\%s%s", file.c_str(), ".qmt"));
  return toLower(path::removeDoubleSlashes(candidate));
}

// A strip-file replacement for this LOD wins over the model's own texture name.
const std::string& C_ZV_MDL_Import::legacyMaterialName(int32_t lod, int32_t materialIndex) const {
  const legacy::LegacyModel& model = *model_;
  if (model.strips && lod >= 0 && size_t(lod) < model.strips->materialReplacements.size()) {
    for (const legacy::MaterialReplacement& replacement : model.strips->materialReplacements[size_t(lod)]) {
      if (replacement.material == materialIndex) return replacement.name;
    }
  }
  return model.mdl.textures[size_t(materialIndex)].name;
}

void C_ZV_MDL_Import::AddMaterial(int32_t lod, int32_t materialIndex) {
  MaterialSlots& slots = tables_.materials;
  int32_t slotCount = int32_t(slots.paths.size());
  if (!model_ || materialIndex < 0 || materialIndex >= slotCount) {
    mainLog().log(
        Severity::Warning,
        "C_ZV_MDL_Import::AddMaterial(1797): Unable to add mtl %d for lod %d model has only %d mtls\n",
        materialIndex, lod, slotCount);
    return;
  }
  size_t slot = size_t(materialIndex);
  const std::string& name = legacyMaterialName(lod, materialIndex);
  auto resolve = [&](std::string materialPath) {
    slots.paths[slot] = std::move(materialPath);
    slots.resolved[slot] = 1;
    ++slots.resolvedCount;
  };
  if (isAbsoluteTextureName(name)) {
    if (!slots.resolved[slot]) {
      resolve(name);
      warning("AddMaterialsFromModel: Found absolute path for texture %s\n", name.c_str());
    }
    return;
  }
  // Directories are tried in the model's order; once resolved the slot is never
  // overwritten, so the first directory that has the file wins.
  for (const std::string& directory : model_->mdl.textureDirs) {
    if (slots.resolved[slot]) break;
    std::string candidate = materialCandidatePath(directory, name);
    bool exists = fileSystem_.fileExists(candidate);
    materialProbes_.push_back({candidate, exists});
    if (exists) resolve(std::move(candidate));
  }
}

void C_ZV_MDL_Import::finishMaterials() {
  MaterialSlots& slots = tables_.materials;
  for (size_t slot = 0; slot < slots.paths.size(); ++slot) {
    if (!slots.resolved[slot]) AddMaterial(0, int32_t(slot));
  }
  for (std::string& materialPath : slots.paths) materialPath = replaceAll(materialPath, ".qmt", ".qmat");
  nameUnresolvedMaterials();
  // Each material once, in slot order, for the reference list.
  std::set<std::string> listed;
  for (const std::string& materialPath : slots.paths) {
    if (!materialPath.empty() && listed.insert(materialPath).second)
      tables_.referencedMaterials.push_back(materialPath);
  }
}

void C_ZV_MDL_Import::nameUnresolvedMaterials() {
  MaterialSlots& slots = tables_.materials;
  const std::vector<std::string>& directories = model_->mdl.textureDirs;
  slots.meshNames = slots.paths;
  for (size_t slot = 0; slot < slots.paths.size(); ++slot) {
    if (!slots.paths[slot].empty()) continue;
    const std::string& name = legacyMaterialName(0, int32_t(slot));
    slots.meshNames[slot] =
        replaceAll(materialCandidatePath(directories.empty() ? "" : directories.front(), name), ".qmt", ".qmat");
    if (settings_.verbose) {
      mainLog().log(Severity::Detail, "Material %zu \"%s\" was found under no texture directory; mesh files name it %s\n",
                    slot, name.c_str(), slots.meshNames[slot].c_str());
    }
  }
}

}  // namespace zv
