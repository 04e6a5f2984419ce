// Saving and loading DMX trees: one mesh of about a million array values, and a tree of
// many small elements such as animation files have.

#include <benchmark/benchmark.h>

#include <memory>

#include "dmx/dm_reader.h"
#include "dmx/dm_serializer.h"

namespace zv::dmx {
namespace {

constexpr int32_t kVertices = 100000;
constexpr int32_t kTriangles = 50000;

// Vertex data of a mesh: four value arrays with their index lists, and the faces.
std::unique_ptr<DmElementTree> buildMesh() {
  auto tree = std::make_unique<DmElementTree>();
  CDmElement* root = tree->create("DmElement", "root");
  CDmElement* mesh = root->addElement("model", "DmeModel", "model")->addElement("shape", "DmeMesh", "mesh");
  CDmElement* data = mesh->addElement("bindState", "DmeVertexData", "bind");
  data->stringArray("vertexFormat") = {"position$0", "normal$0", "texcoord$0", "tangent$0"};
  auto& positions = data->vector3Array("position$0");
  auto& normals = data->vector3Array("normal$0");
  auto& texcoords = data->vector2Array("texcoord$0");
  auto& tangents = data->vector4Array("tangent$0");
  positions.reserve(kVertices);
  normals.reserve(kVertices);
  texcoords.reserve(kVertices);
  tangents.reserve(kVertices);
  for (int32_t i = 0; i < kVertices; ++i) {
    float f = static_cast<float>(i);
    positions.push_back({f, f * 0.5f, -f});
    normals.push_back({0, 0, 1});
    texcoords.push_back({f / kVertices, 1 - f / kVertices});
    tangents.push_back({1, 0, 0, 1});
  }
  for (const char* name : {"position$0Indices", "normal$0Indices", "texcoord$0Indices", "tangent$0Indices"}) {
    auto& indices = data->intArray(name);
    indices.resize(kVertices);
    for (int32_t i = 0; i < kVertices; ++i) indices[i] = i;
  }
  auto& faces = mesh->addElementArray("faceSets");
  faces.push_back(tree->create("DmeFaceSet", "faceSet"));
  auto& corners = faces.back()->intArray("faces");
  corners.reserve(kTriangles * 4);
  for (int32_t t = 0; t < kTriangles; ++t) corners.insert(corners.end(), {t, t + 1, t + 2, -1});
  return tree;
}

// An animation-like tree: many small elements, each with a few short attributes.
std::unique_ptr<DmElementTree> buildChannels(int channels) {
  auto tree = std::make_unique<DmElementTree>();
  CDmElement* root = tree->create("DmElement", "root");
  auto& list = root->addElement("clip", "DmeChannelsClip", "clip")->addElementArray("channels");
  for (int i = 0; i < channels; ++i) {
    CDmElement* channel = tree->create("DmeChannel", "bone" + std::to_string(i) + "_p");
    channel->setString("toAttribute", "position");
    channel->setInt("mode", 3);
    CDmElement* layer = channel->addElement("log", "DmeVector3Log", "vector3 log")
                            ->addElementArray("layers")
                            .emplace_back(tree->create("DmeVector3LogLayer", "vector3 log"));
    layer->timeArray("times").assign(30, DmTime{333});
    layer->vector3Array("values").assign(30, Vector3{1, 2, 3});
    list.push_back(channel);
  }
  return tree;
}

void BM_BuildMesh(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(buildMesh());
}
BENCHMARK(BM_BuildMesh)->Unit(benchmark::kMillisecond);

void saveBench(benchmark::State& state, const CDmElement& root) {
  size_t bytes = 0;
  for (auto _ : state) {
    auto saved = saveDmx(root, kConverterEncoding, kConverterFormat, kConverterFormatVersion);
    bytes = saved->size();
    benchmark::DoNotOptimize(saved->data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes * state.iterations()));
  state.counters["file_bytes"] = static_cast<double>(bytes);
}

void loadBench(benchmark::State& state, const CDmElement& root) {
  auto saved = saveDmx(root, kConverterEncoding, kConverterFormat, kConverterFormatVersion);
  for (auto _ : state) {
    Result<DmDocument> doc = readDmx(ByteView(*saved));
    if (!doc) state.SkipWithError(doc.message().c_str());
    benchmark::DoNotOptimize(doc->root);
  }
  state.SetBytesProcessed(static_cast<int64_t>(saved->size() * state.iterations()));
}

void BM_SaveMesh(benchmark::State& state) {
  auto tree = buildMesh();
  saveBench(state, *tree->element(0));
}
BENCHMARK(BM_SaveMesh)->Unit(benchmark::kMillisecond);

void BM_LoadMesh(benchmark::State& state) {
  auto tree = buildMesh();
  loadBench(state, *tree->element(0));
}
BENCHMARK(BM_LoadMesh)->Unit(benchmark::kMillisecond);

void BM_SaveChannels(benchmark::State& state) {
  auto tree = buildChannels(static_cast<int>(state.range(0)));
  saveBench(state, *tree->element(0));
}
BENCHMARK(BM_SaveChannels)->Arg(2000)->Unit(benchmark::kMillisecond);

void BM_LoadChannels(benchmark::State& state) {
  auto tree = buildChannels(static_cast<int>(state.range(0)));
  loadBench(state, *tree->element(0));
}
BENCHMARK(BM_LoadChannels)->Arg(2000)->Unit(benchmark::kMillisecond);

// What "memory speed" means on this machine: one copy of the mesh file's size.
void BM_CopyMeshSizedBuffer(benchmark::State& state) {
  auto tree = buildMesh();
  auto saved = saveDmx(*tree->element(0), kConverterEncoding, kConverterFormat, kConverterFormatVersion);
  for (auto _ : state) {
    std::vector<uint8_t> copy(saved->begin(), saved->end());
    benchmark::DoNotOptimize(copy.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(saved->size() * state.iterations()));
}
BENCHMARK(BM_CopyMeshSizedBuffer)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zv::dmx
