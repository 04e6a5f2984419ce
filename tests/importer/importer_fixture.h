#pragma once
// A converter over a temporary game folder (its only search path) holding one forged
// model, models/props/crate, writing into out/props under the output root out.

#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "dmx/dm_reader.h"
#include "fs/file_system.h"
#include "importer/converter.h"
#include "kv/kv3.h"
#include "output/output.h"
#include "support/model_fixtures.h"
#include "support/test_support.h"

namespace zv::testing {

mdlforge::Bone bone(std::string name, int32_t parent, Vector3 position = {}, QAngle angles = {});

struct ImportRun {
  TempDir dir;
  fs::FileSystem fileSystem{dir.path()};
  Output output{dir.file("out"), nullptr};
  C_ZV_MDL_Import converter{fileSystem, output};
  RunOptions options;

  // Tests that change options call setup() again.
  explicit ImportRun(const mdlforge::Description& description, bool allLods = false, bool yUpToZUp = false);
  void setup() { converter.Setup(options, 0); }

  // An empty legacy material file: material("m/a") makes materials/m/a.qmt.
  void material(const std::string& name) const { writeText(dir.path() / "materials" / (name + ".qmt"), ""); }
  bool extract() { return converter.LoadMDL() && converter.ExtractMeshes(); }
  bool extractAndWrite() { return extract() && converter.WriteMeshes(); }

  const ModelTables& tables() const { return converter.tables(); }
  std::filesystem::path out(std::string_view relative) const { return dir.path() / "out/props" / relative; }
  std::filesystem::path meshFile(const std::string& p) const { return out("crate_refs/mesh/" + p + ".dmx"); }
  // A written DMX file read back; throws when it does not read, and fails the test when
  // common importers would refuse it.
  dmx::DmDocument readDmx(const std::filesystem::path& file) const;
  // The saved model document's rootNode, read with the strict reader.
  Kv3Value readDocument(std::string_view file = "crate.qmdl") const;
};

void expectNear(const Vector3& actual, const Vector3& expected, float tolerance = 1e-5f);

std::vector<const Kv3Value*> childrenOf(const Kv3Value& node, std::string_view nodeClass = {});
// The first child of that class; fails the test when there is none.
const Kv3Value& childOf(const Kv3Value& node, std::string_view nodeClass);
// A key's value as text: strings as they are, numbers in full precision (-0 as 0), arrays
// as "[a, b]", objects as "{k=v, ...}"; "<unset>" for an absent key, so it never passes
// for an empty or false value.
std::string valueOf(const Kv3Value& node, std::string_view key);
// Each node as the values of keys, joined by spaces; listed() so shows the nodes of a root
// list, none when the document has no such list.
std::vector<std::string> shown(const std::vector<const Kv3Value*>& nodes,
                               std::initializer_list<std::string_view> keys);
std::vector<std::string> listed(const Kv3Value& root, std::string_view listClass,
                                std::initializer_list<std::string_view> keys);
void expectAngles(const Kv3Value& node, std::string_view key, QAngle expected);

}  // namespace zv::testing
