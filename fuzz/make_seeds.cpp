// Writes the seed corpus of every fuzz target from the project's own writers: model
// families from the sample descriptions (and variants of them), DMX files, key-value and
// KV3 text, and archive directory files.
//
// Usage: make_seeds SAMPLES_FOLDER OUT_FOLDER

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "dmx/dm_element.h"
#include "dmx/dm_serializer.h"
#include "family_input.h"
#include "kv/kv3.h"
#include "mdlforge/forge.h"
#include "mdlforge/physics.h"
#include "mdlforge/text_description.h"
#include "qpkpack/qpk_writer.h"

namespace {
namespace stdfs = std::filesystem;

void writeSeed(const stdfs::path& folder, const std::string& name, const std::vector<uint8_t>& bytes) {
  stdfs::create_directories(folder);
  std::ofstream(folder / name, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

std::vector<uint8_t> bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

std::string readText(const stdfs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Each sample as it is, and in the variants that take other reader paths.
std::vector<zv::mdlforge::Description> familyVariants(const zv::mdlforge::Description& base) {
  std::vector<zv::mdlforge::Description> out{base};
  auto v44 = base;
  v44.version = 44;
  out.push_back(v44);
  auto v49 = base;
  v49.version = 49;
  v49.strip.layout = zv::mdlforge::StripLayout::Extended;
  out.push_back(v49);
  auto fixups = base;
  fixups.vertexFile.fixupMode = zv::mdlforge::FixupMode::Auto;
  out.push_back(fixups);
  auto noTangents = base;
  noTangents.vertexFile.tangents = false;
  out.push_back(noTangents);
  return out;
}

void familySeeds(const stdfs::path& samples, const stdfs::path& out) {
  int n = 0;
  for (const auto& entry : stdfs::directory_iterator(samples)) {
    if (entry.path().extension() != ".txt") continue;
    auto description = zv::mdlforge::parseDescription(readText(entry.path()));
    if (!description) continue;
    for (const auto& variant : familyVariants(*description)) {
      auto files = zv::mdlforge::build(variant);
      if (!files) continue;
      std::vector<uint8_t> seed =
          zv::fuzz::joinFamilyInput(files->mdl, files->vtx.value_or(std::vector<uint8_t>()),
                                    files->qvd.value_or(std::vector<uint8_t>()), files->ani.value_or(std::vector<uint8_t>()));
      std::string name = "family" + std::to_string(n++);
      // The loader, the animation decoder and the whole pipeline start from the same families.
      writeSeed(out / "fuzz_load_family", name, seed);
      writeSeed(out / "fuzz_decode_animations", name, seed);
      writeSeed(out / "fuzz_convert", name, seed);
    }
  }
}

// Collision files in both solid forms, with one and several pieces per solid.
void physicsSeeds(const stdfs::path& out) {
  using zv::mdlforge::boxPiece;
  zv::mdlforge::PhysicsDescription d;
  zv::mdlforge::PhysicsSolid single;
  single.pieces = {boxPiece({-1, -1, -1}, {1, 1, 1})};
  single.keys = {{"name", "root"}, {"mass", "5"}, {"surfaceprop", "wood"}};
  zv::mdlforge::PhysicsSolid several;
  several.solidHeader = false;
  several.subtreeHulls = true;
  several.pieces = {boxPiece({0, 0, 0}, {1, 1, 1}, 0), boxPiece({2, 0, 0}, {3, 1, 1}, 1), boxPiece({4, 0, 0}, {5, 1, 1}, 1)};
  d.solids = {single};
  if (auto file = zv::mdlforge::buildPhysics(d, 7)) writeSeed(out / "fuzz_load_physics", "single", file->bytes);
  d.solids = {single, several};
  d.constraints = {{0, 1, {-10, -20, -30}, {10, 20, 30}, {1, 1, 1}}};
  d.blocks = {{"collisionrules", {{"collisionpair", "0,1"}}}, {"break", {{"model", "gibs\\a"}, {"burst", "1"}}}};
  if (auto file = zv::mdlforge::buildPhysics(d, 7)) writeSeed(out / "fuzz_load_physics", "ragdoll", file->bytes);
}

void dmxSeeds(const stdfs::path& out) {
  zv::dmx::DmElementTree tree;
  zv::dmx::CDmElement* root = tree.create("DmElement", "root");
  zv::dmx::CDmElement* prefix = root->addElement("$prefix_attribute$", "DmElement", "$prefix_element$");
  prefix->setFloat("anim_frameRate", 30);
  zv::dmx::CDmElement* model = root->addElement("model", "DmeModel", "model");
  root->setElement("skeleton", model);
  model->setString("name_text", "crate");
  model->setInt("count", 3);
  model->setBool("visible", true);
  model->vector3Array("position$0") = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  model->intArray("faces") = {0, 1, 2, -1};
  model->stringArray("vertexFormat") = {"position$0", "normal$0"};
  model->addElementArray("children").push_back(tree.create("DmeJoint", "bone"));
  // A mesh with a morph target, for the importer rules on delta states.
  zv::dmx::CDmElement* mesh = model->addElement("shape", "DmeMesh", "mesh");
  zv::dmx::CDmElement* bind = mesh->addElement("bindState", "DmeVertexData", "bind");
  mesh->setElement("currentState", bind);
  bind->stringArray("vertexFormat") = {"position$0", "normal$0"};
  bind->vector3Array("position$0") = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  bind->intArray("position$0Indices") = {0, 1, 2};
  bind->vector3Array("normal$0") = {{0, 0, 1}};
  bind->intArray("normal$0Indices") = {0, 0, 0};
  zv::dmx::CDmElement* delta = tree.create("DmeVertexDeltaData", "smile");
  mesh->addElementArray("deltaStates").push_back(delta);
  delta->stringArray("vertexFormat") = {"position$0", "normal$0", "wrinkle$0"};
  delta->vector3Array("position$0") = {{0, 0, 1}};
  delta->intArray("position$0Indices") = {2};
  delta->floatArray("wrinkle$0") = {0.5f};
  delta->intArray("wrinkle$0Indices") = {0};
  for (std::string_view encoding : {"binary", "binary_seqids"}) {
    if (auto bytes = zv::dmx::saveDmx(*root, encoding, "dmx", 22)) writeSeed(out / "fuzz_dmx_read", std::string(encoding), *bytes);
  }
}

void textSeeds(const stdfs::path& out) {
  writeSeed(out / "fuzz_keyvalues", "gameinfo",
            bytesOf("\"GameInfo\"\n{\n\tgame \"x\"\n\tFileSystem\n\t{\n\t\tSearchPaths\n\t\t{\n\t\t\tGame |mod|.\n"
                    "\t\t\tGame+Mod |mod|pak01.qpk\n\t\t}\n\t}\n}\n"));
  writeSeed(out / "fuzz_keyvalues", "propdata",
            bytesOf("\"prop_data\" { \"allowstatic\" \"1\" \"base\" \"Wooden.Small\" } // note\n"
                    "snapshot_weights_all { bip_spine \"0.5\" } [$X360]\n"));
  writeSeed(out / "fuzz_keyvalues", "collision",
            bytesOf("solid {\n\"index\" \"0\"\n\"name\" \"root\"\n\"mass\" \"12.5\"\n}\n"
                    "ragdollconstraint {\n\"parent\" \"0\"\n\"child\" \"1\"\n\"xmin\" \"-30\"\n}\n"
                    "break {\n\"model\" \"gibs\\\\a\"\n}\n"));
  zv::Kv3Value root = zv::Kv3Value::makeObject();
  root.set("rootNode", zv::Kv3Value::makeObject({{"_class", "RootNode"}, {"origin", zv::Kv3Value::makeArray({1.0f, 2.5f, -3.0f})}}));
  zv::Kv3Header header{{"text", "e21c7f3c-8a33-41c5-9977-a76d3a32aa0d"}, {"modeldoc41", "12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0"}};
  if (auto text = zv::writeKv3Text(root, header)) writeSeed(out / "fuzz_kv3_read", "document", bytesOf(*text));
}

void archiveSeeds(const stdfs::path& out) {
  std::vector<zv::qpkpack::PackedFile> files = {
      {"models/props/crate.mdl", std::vector<uint8_t>(300, 7)},
      {"materials/a.qmt", {}},
      {"readme", bytesOf("no extension")},
      {"root.txt", bytesOf("in the root folder")},
  };
  for (uint32_t version : {1u, 2u}) {
    zv::qpkpack::PackOptions options;
    options.version = version;
    options.preloadBytes = version == 2 ? 16 : 0;
    options.maxDirectoryBytes = 100;
    if (auto image = zv::qpkpack::buildQpkArchive(files, options)) {
      writeSeed(out / "fuzz_qpk_directory", "v" + std::to_string(version), image->directory);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_seeds SAMPLES_FOLDER OUT_FOLDER\n");
    return 2;
  }
  familySeeds(argv[1], argv[2]);
  physicsSeeds(argv[2]);
  dmxSeeds(argv[2]);
  textSeeds(argv[2]);
  archiveSeeds(argv[2]);
  return 0;
}
