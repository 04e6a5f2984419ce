#include "legacy/vtx.h"

#include <gtest/gtest.h>

#include <tuple>

#include "legacy/family.h"
#include "mdlforge/byte_writer.h"
#include "support/model_fixtures.h"

namespace zv::legacy {
namespace {

using mdlforge::placeKey;
using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::triangleMesh;

// Two meshes, the first with two strip groups, the second with one group of two strips:
// enough records that only one layout reads them consistently.
mdlforge::Description multiGroupModel(int32_t version, mdlforge::StripLayout layout) {
  mdlforge::Description d = crateModel();
  d.version = version;
  d.strip.layout = layout;
  mdlforge::Mesh first = triangleMesh(0, 4);
  first.lods = {
      {mdlforge::triangleGroup(6, {0, 1, 2, 3, 4, 5}), mdlforge::triangleGroup(6, {5, 4, 3, 2, 1, 0})}};
  mdlforge::Mesh second = triangleMesh(1, 2, 10);
  mdlforge::StripGroup group = mdlforge::triangleGroup(6, {0, 1, 2});
  group.strips.push_back({{3, 4, 5}});
  second.lods = {{group}};
  d.bodyParts[0].models[0].meshes = {first, second};
  return d;
}

// The geometry as the stages see it: per mesh, per group, the strip vertices and indices.
std::vector<std::vector<uint16_t>> geometry(const VtxFile& vtx) {
  std::vector<std::vector<uint16_t>> out;
  for (const StripMesh& mesh : vtx.bodyParts.at(0).models.at(0).lods.at(0).meshes) {
    for (const StripGroup& group : mesh.stripGroups) {
      std::vector<uint16_t> g;
      for (const StripVertex& v : group.vertices) g.push_back(v.meshVertex);
      g.push_back(0xFFFF);
      g.insert(g.end(), group.indices.begin(), group.indices.end());
      for (const Strip& s : group.strips) g.push_back(uint16_t(s.indexOffset * 100 + s.indexCount));
      out.push_back(g);
    }
  }
  return out;
}

Result<VtxFile> parse(const mdlforge::ModelFiles& files, int32_t version) {
  return VtxFile::parse("m.dx90.vtx", ByteView(*files.vtx), version);
}

TEST(StripLayouts, EachLayoutIsRecognisedWhateverTheModelVersion) {
  for (int32_t version : {44, 48, 49}) {
    auto shortRead = parse(buildFiles(multiGroupModel(version, mdlforge::StripLayout::Short)), version);
    auto longRead = parse(buildFiles(multiGroupModel(version, mdlforge::StripLayout::Extended)), version);
    ASSERT_TRUE(shortRead) << shortRead.message();
    ASSERT_TRUE(longRead) << longRead.message();
    EXPECT_EQ(shortRead->layout, StripLayout::WithoutTopology) << version;
    EXPECT_EQ(longRead->layout, StripLayout::WithTopology) << version;
    EXPECT_EQ(geometry(*shortRead), geometry(*longRead));
    EXPECT_EQ(geometry(*shortRead).size(), 3u);
  }
}

TEST(StripLayouts, ATieGoesToTheLayoutTheModelVersionUsuallyHas) {
  // With the one strip moved away from its group, nothing tells the layouts apart: both
  // readings hold and neither packs its records.
  for (auto [version, expected] :
       {std::pair{48, StripLayout::WithoutTopology}, std::pair{49, StripLayout::WithTopology}}) {
    for (auto written : {mdlforge::StripLayout::Short, mdlforge::StripLayout::Extended}) {
      mdlforge::Description d = crateModel();
      d.version = version;
      d.strip.layout = written;
      auto files = buildFiles(d);
      size_t group = files.where.vtx.at(placeKey("stripgroup", {0, 0, 0, 0, 0}));
      auto strip = files.vtx->begin() + ptrdiff_t(files.where.vtx.at(placeKey("strip", {0, 0, 0, 0, 0, 0})));
      std::vector<uint8_t> moved(strip, strip + 35);
      mdlforge::poke<int32_t>(*files.vtx, group + 20, int32_t(files.vtx->size() - group));
      files.vtx->insert(files.vtx->end(), moved.begin(), moved.end());
      auto read = parse(files, version);
      ASSERT_TRUE(read) << read.message();
      EXPECT_EQ(read->layout, expected) << version;
      EXPECT_EQ(geometry(*read),
                (std::vector<std::vector<uint16_t>>{{0, 1, 2, 3, 4, 5, 0xFFFF, 0, 1, 2, 3, 4, 5, 6}}));
    }
  }
}

// Each case breaks one field of an otherwise valid file; the message says what.
TEST(StripChecks, RecordsThatDoNotFitTogetherAreRefused) {
  auto files = buildFiles(multiGroupModel(48, mdlforge::StripLayout::Short));
  auto at = [&](const char* name, std::initializer_list<size_t> path) {
    return files.where.vtx.at(placeKey(name, path));
  };
  size_t secondMesh = at("mesh", {0, 0, 0, 1});
  size_t strip = at("strip", {0, 0, 0, 0, 0, 0});
  const std::tuple<size_t, int32_t, std::string> cases[] = {
      {at("indices", {0, 0, 0, 0, 0}) + 2 * 4, 6,
       "stripgroup[0]: index[4] = 6 is past the group's 6 vertices"},
      {strip, 99,
       "strip[0] at offset " + std::to_string(strip) + ": indices 0..0+99 lie outside the group's 6 indices"},
      // The second mesh's group array moved into the first mesh's.
      {secondMesh + 4, int32_t(at("stripgroup", {0, 0, 0, 0, 0}) + 25 - secondMesh), "overlap"},
  };
  for (const auto& [field, value, expected] : cases) {
    std::vector<uint8_t> bytes = *files.vtx;
    mdlforge::poke<int32_t>(bytes, field, value);
    auto read = VtxFile::parse("m.dx90.vtx", ByteView(bytes), 48);
    ASSERT_FALSE(read) << expected;
    EXPECT_NE(read.message().find(expected), std::string::npos) << read.message();
  }
}

}  // namespace
}  // namespace zv::legacy
