// Model document stages for what the model shows: material groups, body groups and their
// presets, LOD groups, render mesh files and the prefab reference.

#include <algorithm>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "importer/names.h"
#include "importer/qmdl_paths.h"
#include "importer/qmdl_writer.h"

namespace zv {
namespace {

// How many choices a body group's entries make: one per run of entries of one sub-model,
// so that the LODs of a sub-model count once.
size_t choiceCount(const BodyGroup& group) {
  size_t count = 0;
  int64_t current = -1;
  for (const BodyGroupEntry& entry : group.entries) {
    if (entry.choice != current) ++count;
    current = entry.choice;
  }
  return count;
}

// Mesh references name render mesh file nodes, whose names are sanitised.
std::string meshReference(const std::string& meshName) { return SanitizeNodeName(meshName); }

}  // namespace

void QmdlWriter::writeMaterialGroups() {
  const legacy::MdlHeader& header = mdl_.header;
  if (header.skinFamilyCount <= 1 || header.skinReferenceCount <= 0 || mdl_.skins.empty()) return;
  const std::vector<std::string>& materials = tables_.materials.paths;
  auto reference = [&materials](int16_t material) -> std::string {
    if (material < 0 || size_t(material) >= materials.size()) return {};
    return normalizeMaterialReference(materials[size_t(material)]);
  };
  // One column per material, within the skin table's rows.
  size_t columns = std::min({materials.size(), size_t(header.skinReferenceCount), mdl_.skins[0].size()});
  std::vector<std::string> base;
  for (size_t j = 0; j < columns; ++j) base.push_back(reference(mdl_.skins[0][j]));
  // Family 0 is the default and needs no group.
  size_t families = std::min(size_t(header.skinFamilyCount), mdl_.skins.size());
  for (size_t i = 1; i < families; ++i) {
    modeldoc::Node* group =
        createInList("MaterialGroupList", "MaterialGroup", SanitizeNodeName(std::to_string(i)));
    if (group == nullptr) continue;
    const std::vector<int16_t>& row = mdl_.skins[i];
    for (size_t j = 0; j < columns && j < row.size(); ++j) {
      group->append("remaps", Kv3Value::makeObject({{"from", base[j]}, {"to", reference(row[j])}}));
    }
  }
}

void QmdlWriter::writeBodyGroups() {
  modeldoc::Node* list = document_.rootList("BodyGroupList");
  for (const BodyGroup& group : tables_.bodyGroups) {
    // A body part with a single sub-model has nothing to choose between.
    if (choiceCount(group) < 2) continue;
    modeldoc::Node* node =
        list != nullptr ? document_.createNode("BodyGroup", SanitizeNodeName(group.name), list) : nullptr;
    if (node == nullptr) {
      warning("Bodygroup error %s\n", group.name.c_str());
      continue;
    }
    modeldoc::Node* choice = nullptr;
    int64_t current = -1;
    for (const BodyGroupEntry& entry : group.entries) {
      if (entry.choice != current) {
        current = entry.choice;
        choice = document_.createNode("BodyGroupChoice", "", node);
        // An empty sub-model is a real choice: showing nothing.
        if (choice != nullptr) choice->set("meshes", std::vector<std::string>{});
      }
      if (choice != nullptr && !entry.meshes.empty()) choice->append("meshes", meshReference(entry.meshName));
    }
  }
}

std::string QmdlWriter::bodyGroupName(size_t bodyPart) const {
  // The body group table has one entry per body part, with repeated names made unique.
  if (bodyPart < tables_.bodyGroups.size()) return tables_.bodyGroups[bodyPart].name;
  return mdl_.bodyParts[bodyPart].name;
}

void QmdlWriter::writeBodyGroupPresets() {
  for (const legacy::BodyGroupPreset& preset : mdl_.bodyGroupPresets) {
    modeldoc::Node* node = document_.createNode("GenericGameData", "", nullptr);
    if (node == nullptr) continue;
    node->set("game_class", "bodygroup_preset");
    node->setGameKey("name", preset.name);
    // Value and mask encode one digit per body part in the mixed radix of the parts'
    // sub-model counts; a mask digit of 1 marks a part the preset sets.
    int k = 0;
    for (size_t p = 0; p < mdl_.bodyParts.size(); ++p) {
      const legacy::BodyPart& part = mdl_.bodyParts[p];
      int64_t base = part.base;
      int64_t count = int64_t(part.models.size());
      if (base <= 0 || count <= 0) continue;
      if ((preset.mask / base) % count != 1) continue;
      int64_t choice = (preset.value / base) % count;
      node->setGameKey(format("bodygroup_name_%d", k), SanitizeNodeName(bodyGroupName(p)));
      node->setGameKey(format("bodygroup_choice_%d", k), std::to_string(choice));
      ++k;
    }
  }
}

void QmdlWriter::writeLodGroups() {
  if (tables_.lodCount <= 1) return;
  for (int32_t lod = 0; lod < tables_.lodCount; ++lod) {
    modeldoc::Node* group = createInList("LODGroupList", "LODGroup", "");
    if (group == nullptr) continue;
    group->set("meshes", std::vector<std::string>{});
    for (const BodyGroup& bodyGroup : tables_.bodyGroups) {
      for (const BodyGroupEntry& entry : bodyGroup.entries) {
        if (entry.lod != lod || entry.meshes.empty()) continue;
        const BodyGroupMesh& mesh = entry.meshes.front();
        group->append("meshes", meshReference(mesh.name));
        // Every mesh of a LOD switches at the same distance; the last one met decides.
        group->set("switch_threshold", documentFloat(mesh.switchThreshold));
      }
    }
  }
}

void QmdlWriter::writeRenderMeshFiles() {
  modeldoc::Node* list = document_.rootList("RenderMeshList");
  const ModelPaths& paths = converter_.paths();
  const std::string& baseFolder = converter_.settings().outputRoot;
  for (const BodyGroup& group : tables_.bodyGroups) {
    for (const BodyGroupEntry& entry : group.entries) {
      if (entry.meshes.empty()) continue;
      std::string file =
          relativeToBaseFolder(path::join(paths.meshFolder, entry.meshName + ".dmx"), baseFolder);
      modeldoc::Node* node = list != nullptr
                                 ? document_.createNode("RenderMeshFile", meshReference(entry.meshName), list)
                                 : nullptr;
      if (node == nullptr) {
        warning("Warning! MDL %s body part %s failed CreateNode bodyPart\n", mdl_.modelName().c_str(),
                entry.meshName.c_str());
        continue;
      }
      node->set("filename", file);
    }
  }
}

void QmdlWriter::writePrefab() {
  const std::string& prefab = converter_.settings().weaponAnimPrefab;
  if (prefab.empty()) return;
  if (modeldoc::Node* node = document_.createNode("Prefab", "", document_.root()))
    node->set("target_file", prefab);
}

}  // namespace zv
