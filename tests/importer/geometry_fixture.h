#pragma once
// A converter over a temporary game folder holding one forged model, models/props/crate,
// for the tests of the geometry stages. Material files are created on demand under the
// folder, which is the file system's only search path unless a test adds more.

#include <filesystem>
#include <string>

#include "dmx/dm_reader.h"
#include "fs/file_system.h"
#include "importer/converter.h"
#include "output/output.h"
#include "support/model_fixtures.h"
#include "support/test_support.h"

namespace zv::testing {

struct GeometryRun {
  TempDir dir;
  fs::FileSystem fileSystem{dir.path()};
  Output output{dir.file("out"), nullptr};
  C_ZV_MDL_Import converter{fileSystem, output};

  explicit GeometryRun(const mdlforge::Description& description, bool allLods = false, bool yUpToZUp = false);

  // An empty legacy material file, e.g. material("models/props/crate") for
  // materials/models/props/crate.qmt.
  void material(const std::string& name) const;
  // LoadMDL and ExtractMeshes; false when either fails.
  bool extract();
  // extract() and WriteMeshes().
  bool extractAndWrite();

  const ModelTables& tables() const { return converter.tables(); }
  std::filesystem::path meshFolder() const { return dir.path() / "out/props/crate_refs/mesh"; }
  std::filesystem::path meshFile(const std::string& part) const { return meshFolder() / (part + ".dmx"); }
  // Reads a written mesh file back; fails the test when it does not read.
  dmx::DmDocument readMesh(const std::string& part) const;
};

}  // namespace zv::testing
