#include "importer/converter.h"

#include "base/log.h"
#include "base/path.h"

namespace zv {

C_ZV_MDL_Import::C_ZV_MDL_Import(const fs::FileSystem& fileSystem) : fileSystem_(fileSystem) {}

void C_ZV_MDL_Import::Setup(const RunOptions& options, size_t index) {
  Reset();
  ModelSettings& s = settings_;
  s.inputPath = path::toForwardSlashes(options.inputFiles.at(index));
  s.baseName = path::toForwardSlashes(options.baseNames.at(index));
  // An archive path without ".qpk:" adds no output folder, which shifts the later ones;
  // an input left without a folder writes into the output root.
  std::string root = options.outputRoot.value_or("");
  s.outputFolder = path::toForwardSlashes(index < options.outputFolders.size() ? options.outputFolders[index] : root);
  s.outputRoot = path::toForwardSlashes(root);
  s.inputRoot = path::toForwardSlashes(options.inputRoot.value_or(""));
  s.weaponAnimPrefab = path::toForwardSlashes(options.weaponAnimPrefab);
  s.verbose = options.verbose;
  s.skipCommonDmxWrite = options.skipCommonDmxWrite;
  s.yUpToZUp = options.yUpToZUp;
  s.overrideLean = options.overrideLean;
  s.writeWeaponAnimPrefab = options.writeWeaponAnimPrefab;
  s.headerHullBounds = options.headerHullBounds;
  s.allLods = options.allLods;
}

void C_ZV_MDL_Import::Reset() {
  settings_ = ModelSettings();
  model_.reset();
}

bool C_ZV_MDL_Import::Convert() { return LoadMDL(); }

}  // namespace zv
