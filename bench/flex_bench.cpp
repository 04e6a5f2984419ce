// What flexes add to writing a model's meshes: the mesh stage (load, extract, write the
// part files) of a forged face of 100 flexes over 20,000 vertices and of the real hair
// model of ../shared/corpus, each with its flexes and with them taken out, beside the cost
// of writing the delta arrays alone. Flexes should cost little more than their deltas.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "base/heap.h"
#include "base/log.h"
#include "dmx/dm_serializer.h"
#include "fs/file_system.h"
#include "importer/converter.h"
#include "legacy/mdl.h"
#include "mdlforge/byte_writer.h"
#include "mdlforge/forge.h"
#include "output/output.h"

namespace zv {
namespace {

namespace stdfs = std::filesystem;

// The tool's process keeps freed memory for the next model; so does this one, or every
// iteration would pay the page faults of its first.
const bool kHeapKeptLikeTheTool = heap::keepFreedMemoryForReuse();

constexpr int kColumns = 200;
constexpr int kRows = 100;  // 20,000 vertices
constexpr int kFlexes = 100;
constexpr int kMovedPerFlex = 4000;

struct Family {
  std::vector<uint8_t> mdl, vtx, qvd;
};

mdlforge::Mesh gridMesh() {
  mdlforge::Mesh mesh;
  for (int r = 0; r < kRows; ++r) {
    for (int c = 0; c < kColumns; ++c) {
      mdlforge::Vertex v;
      v.position = {float(c) - kColumns / 2, 0, float(r)};
      v.uv = {float(c) / kColumns, float(r) / kRows};
      mesh.vertices.push_back(v);
    }
  }
  std::vector<uint16_t> corners;
  for (int r = 0; r + 1 < kRows; ++r) {
    for (int c = 0; c + 1 < kColumns; ++c) {
      auto a = uint16_t(r * kColumns + c);
      corners.insert(corners.end(), {a, uint16_t(a + 1), uint16_t(a + kColumns + 1), a, uint16_t(a + kColumns + 1),
                                     uint16_t(a + kColumns)});
    }
  }
  mesh.lods = {{mdlforge::triangleGroup(mesh.vertices.size(), corners)}};
  return mesh;
}

// Flex f moves a band of kMovedPerFlex vertices starting at f * 160, the odd ones stereo.
mdlforge::Description forgedFace() {
  mdlforge::Description d;
  d.name = "models/bench/face.mdl";
  d.bones = {mdlforge::Bone{}};
  d.bones[0].name = "head";
  d.textures = {"skin"};
  mdlforge::Mesh mesh = gridMesh();
  for (int f = 0; f < kFlexes; ++f) {
    d.flexDescriptors.push_back("shape" + std::to_string(f));
    d.flexControllers.push_back({"face", "control" + std::to_string(f), 0, 1});
    d.flexRules.push_back({f, {mdlforge::FlexOp{2, 0, f}}});
    mdlforge::MeshFlex flex;
    flex.descriptor = f;
    flex.partner = f % 2 ? f - 1 : 0;
    for (int k = 0; k < kMovedPerFlex; ++k) {
      mdlforge::VertexDelta delta;
      delta.vertex = uint16_t((f * 160 + k) % (kColumns * kRows));
      delta.side = uint8_t(k % 256);
      delta.position = {0.01f * float(k % 7), 0.02f, -0.01f * float(f % 5)};
      delta.normal = {0, 0.001f * float(k % 3), 0};
      flex.deltas.push_back(delta);
    }
    mesh.flexes.push_back(std::move(flex));
  }
  d.bodyParts = {mdlforge::BodyPart{"face", {}, {mdlforge::SubModel{"face", {mesh}}}}};
  return d;
}

Family familyOf(const mdlforge::Description& d) {
  auto files = mdlforge::build(d);
  if (!files) throw std::runtime_error(files.message());
  return {files->mdl, *files->vtx, *files->qvd};
}

std::vector<uint8_t> readFile(const stdfs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// The same model with every mesh's flex count set to 0.
std::vector<uint8_t> withoutMeshFlexes(const std::vector<uint8_t>& mdl) {
  auto parsed = legacy::MdlFile::parse("bench.mdl", mdl);
  std::vector<uint8_t> out = mdl;
  if (!parsed) return out;
  for (const auto& part : parsed->bodyParts)
    for (const auto& model : part.models)
      for (const auto& mesh : model.meshes) mdlforge::poke<int32_t>(out, mesh.recordOffset + 16, 0);
  return out;
}

// A scratch game folder holding one family, and a converter that runs its mesh stage.
class MeshStage {
 public:
  explicit MeshStage(const Family& family) : folder_(stdfs::temp_directory_path() / "zv-flex-bench") {
    stdfs::remove_all(folder_);
    stdfs::create_directories(folder_ / "models");
    write("models/m.mdl", family.mdl);
    write("models/m.dx90.vtx", family.vtx);
    write("models/m.qvd", family.qvd);
    fileSystem_ = std::make_unique<fs::FileSystem>(folder_.string());
    if (!fileSystem_->addSearchPath("", "LOCAL", fs::Placement::Tail)) throw std::runtime_error("no search path");
    output_ = std::make_unique<Output>((folder_ / "out").string(), nullptr);
    options_.inputFiles = {(folder_ / "models/m.mdl").string()};
    options_.baseNames = {"m"};
    options_.outputFolders = {(folder_ / "out").string()};
    options_.outputRoot = (folder_ / "out").string();
  }
  ~MeshStage() { stdfs::remove_all(folder_); }

  bool run() {
    C_ZV_MDL_Import converter(*fileSystem_, *output_);
    converter.Setup(options_, 0);
    return converter.LoadMDL() && converter.ExtractMeshes() && converter.WriteMeshes();
  }

 private:
  void write(const std::string& name, const std::vector<uint8_t>& bytes) {
    std::ofstream(folder_ / name, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
  }

  stdfs::path folder_;
  std::unique_ptr<fs::FileSystem> fileSystem_;
  std::unique_ptr<Output> output_;
  RunOptions options_;
};

void runStage(benchmark::State& state, const Family& family) {
  LogCapture quiet;
  MeshStage stage(family);
  for (auto _ : state) {
    if (!stage.run()) state.SkipWithError("the mesh stage failed");
  }
}

const Family& face() {
  static const Family family = familyOf(forgedFace());
  return family;
}

void BM_ForgedFace(benchmark::State& state) {
  Family family = face();
  if (state.range(0) == 0) family.mdl = withoutMeshFlexes(family.mdl);
  runStage(state, family);
}
BENCHMARK(BM_ForgedFace)->ArgName("flexes")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

void BM_HairModel(benchmark::State& state) {
  stdfs::path stem = stdfs::path(ZV_SOURCE_DIR).parent_path() / "shared/corpus/models/hair/sniper_nohat";
  if (!stdfs::exists(stem.string() + ".mdl")) return state.SkipWithError("no corpus hair model");
  Family family{readFile(stem.string() + ".mdl"), readFile(stem.string() + ".dx90.vtx"), readFile(stem.string() + ".qvd")};
  if (state.range(0) == 0) family.mdl = withoutMeshFlexes(family.mdl);
  runStage(state, family);
}
BENCHMARK(BM_HairModel)->ArgName("flexes")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

// The floor: writing the forged face's delta arrays (positions, normals and their
// indices) to a file, with no mesh around them.
void BM_WriteForgedFaceDeltasOnly(benchmark::State& state) {
  dmx::DmElementTree tree;
  dmx::CDmElement* root = tree.create("DmElement", "root");
  auto& deltas = root->addElementArray("deltaStates");
  for (int f = 0; f < kFlexes; ++f) {
    dmx::CDmElement* delta = tree.create("DmeVertexDeltaData", "shape" + std::to_string(f));
    delta->vector3Array("position$0").assign(kMovedPerFlex, Vector3{0.01f, 0.02f, 0});
    delta->intArray("position$0Indices").assign(kMovedPerFlex, f);
    delta->vector3Array("normal$0").assign(kMovedPerFlex * 2 / 3, Vector3{0, 0.001f, 0});
    delta->intArray("normal$0Indices").assign(kMovedPerFlex * 2 / 3, f);
    deltas.push_back(delta);
  }
  stdfs::path file = stdfs::temp_directory_path() / "zv-flex-bench-deltas.dmx";
  for (auto _ : state) {
    auto saved = dmx::saveDmx(*root, dmx::kConverterEncoding, dmx::kConverterFormat, dmx::kConverterFormatVersion);
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(saved->data()), std::streamsize(saved->size()));
  }
  stdfs::remove(file);
}
BENCHMARK(BM_WriteForgedFaceDeltasOnly)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zv
