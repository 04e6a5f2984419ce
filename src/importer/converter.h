#pragma once
// C_ZV_MDL_Import converts one legacy model at a time. The driver sets it up for an input
// file, runs the pipeline and resets it; each stage is a method that reads the tables
// earlier stages built and adds its own. Nothing carries over from one model to the next.

#include <memory>
#include <optional>
#include <string>

#include "fs/file_system.h"
#include "importer/run_options.h"
#include "legacy/family.h"

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
  explicit C_ZV_MDL_Import(const fs::FileSystem& fileSystem);

  void Setup(const RunOptions& options, size_t index);
  // The per-model pipeline; false only when the legacy files fail to load.
  bool Convert();
  void Reset();

  // Stages.
  bool LoadMDL();

  const ModelSettings& settings() const { return settings_; }
  // The loaded legacy model; nothing before LoadMDL succeeds.
  const legacy::LegacyModel* model() const { return model_ ? &*model_ : nullptr; }

 private:
  // Reads a file of the model's family; nothing when it does not read.
  std::optional<std::vector<uint8_t>> readFamilyFile(const std::string& path) const;

  const fs::FileSystem& fileSystem_;
  ModelSettings settings_;
  std::optional<legacy::LegacyModel> model_;
};

}  // namespace zv
