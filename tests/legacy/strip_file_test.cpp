#include "legacy/vtx.h"

#include <gtest/gtest.h>

#include "legacy/family.h"
#include "support/model_fixtures.h"

namespace zv::legacy {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::familyFiles;
using zv::testing::triangleMesh;

// Two meshes, the first with two strip groups, the second with one group of two strips:
// enough records that only one layout reads them consistently.
mdlforge::Description multiGroupModel(int32_t version, mdlforge::StripLayout layout) {
  mdlforge::Description d = crateModel();
  d.version = version;
  d.strip.layout = layout;
  d.textures = {"a", "b"};
  mdlforge::Mesh first = triangleMesh(0, 4);
  first.lods = {{mdlforge::triangleGroup(6, {0, 1, 2, 3, 4, 5}), mdlforge::triangleGroup(6, {5, 4, 3, 2, 1, 0})}};
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
    auto shortFiles = buildFiles(multiGroupModel(version, mdlforge::StripLayout::Short));
    auto longFiles = buildFiles(multiGroupModel(version, mdlforge::StripLayout::Extended));
    auto shortRead = parse(shortFiles, version);
    auto longRead = parse(longFiles, version);
    ASSERT_TRUE(shortRead) << shortRead.message();
    ASSERT_TRUE(longRead) << longRead.message();
    EXPECT_EQ(shortRead->layout, StripLayout::WithoutTopology) << version;
    EXPECT_EQ(longRead->layout, StripLayout::WithTopology) << version;
    EXPECT_EQ(geometry(*shortRead), geometry(*longRead));
    EXPECT_EQ(geometry(*shortRead).size(), 3u);
  }
}

TEST(StripLayouts, ASingleRecordTieGoesToTheVersionsUsualLayout) {
  // One group with one strip: both readings give the same geometry.
  for (auto [version, expected] : {std::pair{48, StripLayout::WithoutTopology}, std::pair{49, StripLayout::WithTopology}}) {
    mdlforge::Description d = crateModel();
    d.version = version;
    auto files = buildFiles(d);
    auto read = parse(files, version);
    ASSERT_TRUE(read) << read.message();
    EXPECT_EQ(geometry(*read).size(), 1u);
    EXPECT_EQ(geometry(*read)[0], (std::vector<uint16_t>{0, 1, 2, 3, 4, 5, 0xFFFF, 0, 1, 2, 3, 4, 5, 6}));
  }
}

TEST(StripLayouts, MaterialReplacementsArePerLod) {
  mdlforge::Description d = crateModel();
  d.textures = {"a", "b", "c"};
  d.bodyParts[0].models[0].meshes[0].lods.push_back({mdlforge::triangleGroup(6, {0, 1, 2})});
  d.strip.replacements = {{{2, "other/c_lod0"}}, {{0, "a_far"}, {2, "c_far"}}};
  auto read = parse(buildFiles(d), 48);
  ASSERT_TRUE(read) << read.message();
  EXPECT_EQ(read->lodCount, 2);
  ASSERT_EQ(read->materialReplacements.size(), 2u);
  ASSERT_EQ(read->materialReplacements[1].size(), 2u);
  EXPECT_EQ(read->materialReplacements[0][0].material, 2);
  EXPECT_EQ(read->materialReplacements[0][0].name, "other/c_lod0");
  EXPECT_EQ(read->materialReplacements[1][1].name, "c_far");
}

TEST(StripChecks, IndicesAndStripsMustStayInsideTheirGroup) {
  {
    mdlforge::Description d = crateModel();
    d.bodyParts[0].models[0].meshes[0].lods[0][0].strips[0].indices[4] = 6;  // the group has 6 vertices
    auto read = parse(buildFiles(d), 48);
    ASSERT_FALSE(read);
    EXPECT_NE(read.message().find("index[4] = 6 is past the group's 6 vertices"), std::string::npos) << read.message();
  }
  {
    auto files = buildFiles(crateModel());
    size_t strip = files.where.vtx.at(mdlforge::placeKey("strip", {0, 0, 0, 0, 0, 0}));
    int32_t count = 99;
    std::memcpy(files.vtx->data() + strip, &count, 4);
    auto read = parse(files, 48);
    ASSERT_FALSE(read);
    EXPECT_NE(read.message().find("lie outside the group's 6 indices"), std::string::npos) << read.message();
  }
}

TEST(StripChecks, OverlappingGroupArraysAreRefused) {
  auto files = buildFiles(multiGroupModel(48, mdlforge::StripLayout::Short));
  // Point the second mesh's group array at the first mesh's groups.
  size_t firstMesh = files.where.vtx.at(mdlforge::placeKey("mesh", {0, 0, 0, 0}));
  size_t secondMesh = files.where.vtx.at(mdlforge::placeKey("mesh", {0, 0, 0, 1}));
  int32_t firstGroups = ByteView(*files.vtx).readOr<int32_t>(firstMesh + 4, 0) + int32_t(firstMesh);
  int32_t relative = firstGroups + 25 - int32_t(secondMesh);
  std::memcpy(files.vtx->data() + secondMesh + 4, &relative, 4);
  auto read = parse(files, 48);
  ASSERT_FALSE(read);
}

}  // namespace
}  // namespace zv::legacy
