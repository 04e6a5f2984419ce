#pragma once
// C_ZV_MDL_Import converts one legacy model at a time. The driver sets it up for an input
// file, runs the pipeline and resets it; each stage is a method that reads the tables
// earlier stages built and adds its own. Nothing carries over from one model to the next.

#include <optional>
#include <string>
#include <unordered_set>

#include "fs/file_system.h"
#include "importer/pipeline.h"
#include "importer/run_options.h"
#include "importer/tables.h"
#include "legacy/family.h"
#include "output/output.h"

namespace zv::modeldoc {
class ModelDocument;
}

namespace zv {

// The per-model settings, copied from the run options for one input file.
struct ModelSettings {
  std::string inputPath;
  std::string baseName;
  std::string outputFolder;
  std::string outputRoot;
  std::string inputRoot;
  std::string weaponAnimPrefab;
  bool verbose = false;
  bool skipCommonDmxWrite = false;
  bool yUpToZUp = false;
  bool overrideLean = false;
  bool writeWeaponAnimPrefab = false;
  bool headerHullBounds = false;
  bool allLods = false;
};

class C_ZV_MDL_Import {
 public:
  C_ZV_MDL_Import(const fs::FileSystem& fileSystem, Output& output);

  void Setup(const RunOptions& options, size_t index);
  // The per-model pipeline; false only when the legacy files fail to load.
  bool Convert();
  void Reset();

  // Stages, in pipeline order.
  bool LoadMDL();
  bool LoadPhysics();
  bool ExtractAnims();
  bool ExtractMeshes();
  bool WriteAnimation(size_t index);
  bool WriteMeshes();
  bool WritePhysics();
  bool WriteQmdl(bool isStatic);
  // WriteQmdl into a document the caller made, e.g. one with a node limit.
  bool writeModelDocument(modeldoc::ModelDocument& document, bool isStatic);
  bool WriteRefs();
  bool WritePrefab();

  // Resolves material slot materialIndex for a LOD of the strip file: the first texture
  // directory under which its legacy material exists wins; a resolved slot is kept.
  void AddMaterial(int32_t lod, int32_t materialIndex);

  const ModelSettings& settings() const { return settings_; }
  const ModelPaths& paths() const { return paths_; }
  ModelTables& tables() { return tables_; }
  const ModelTables& tables() const { return tables_; }
  // The loaded legacy model; nothing before LoadMDL succeeds.
  const legacy::LegacyModel* model() const { return model_ ? &*model_ : nullptr; }
  // Whether the last Convert found the model to be a static prop.
  bool isStatic() const { return isStatic_; }

 private:
  std::optional<std::vector<uint8_t>> readFamilyFile(const std::string& path) const;
  // The model's animation block file, found by the name it stores or beside the model;
  // nothing when the model has no blocks or the file does not read (then every animation
  // in a block reports it).
  std::optional<legacy::AnimBlockFile> readAnimBlockFile(const legacy::MdlFile& mdl, const std::string& mdlPath) const;
  std::vector<std::string> subModelNames() const;
  // The bind pose from the loaded bones, with model-space transforms.
  void buildSkeleton();
  void indexAnimationNames();
  // Mesh extraction helpers.
  const std::string& legacyMaterialName(int32_t lod, int32_t materialIndex) const;
  void finishMaterials();
  void nameUnresolvedMaterials();
  MeshPart extractPart(size_t bodyPart, size_t subModel, int32_t lod, const legacy::StripModelLod& strips);

  const fs::FileSystem& fileSystem_;
  Output& output_;
  ModelSettings settings_;
  ModelPaths paths_;
  std::optional<legacy::LegacyModel> model_;
  ModelTables tables_;
  std::unordered_set<uint32_t> animationNameIndex_;
  bool isStatic_ = false;
};

}  // namespace zv
