// The strip file: header, the body part to strip chain in both record layouts, LODs and
// material replacements.

#include <gtest/gtest.h>

#include "forge_check.h"

namespace zv::mdlforge {
namespace {

using check::Bytes;
using check::forge;
using check::quadMesh;

// One mesh whose LOD 0 has two strip groups, the second with two strips.
Description twoGroups(StripLayout layout) {
  Description d;
  Mesh mesh = quadMesh(3, 0, 5);
  mesh.vertices[3].bones = {5, 6, 0};
  mesh.vertices[3].boneCount = 2;
  StripGroup second;
  second.vertices = {3, 2, 1, 0};
  second.flags = 0x2;
  second.strips = {Strip{{0, 1, 2}}, Strip{{2, 3, 0, 1, 2, 3}, 1}};
  mesh.lods[0].push_back(second);
  mesh.stripFlags = 0x1;
  d.bodyParts = {BodyPart{"body", {}, {SubModel{"m", {mesh}}}}};
  d.strip.layout = layout;
  return d;
}

struct LayoutCase {
  StripLayout layout;
  int32_t version;
  size_t groupSize;
  size_t stripSize;
};

class StripChain : public ::testing::TestWithParam<LayoutCase> {};

TEST_P(StripChain, LeadsFromTheHeaderToStripsVerticesAndIndices) {
  const LayoutCase& c = GetParam();
  Description d = twoGroups(c.layout);
  d.version = c.version;
  ModelFiles files = forge(d);
  ASSERT_TRUE(files.vtx);
  Bytes vtx(*files.vtx);
  EXPECT_EQ(vtx.i32(0), 7);
  EXPECT_EQ(vtx.i32(4), 24);
  EXPECT_EQ(vtx.u16(8), 53);
  EXPECT_EQ(vtx.u16(10), 9);
  EXPECT_EQ(vtx.i32(12), 3);
  EXPECT_EQ(vtx.i32(16), d.checksum);
  EXPECT_EQ(vtx.i32(20), 1);
  ASSERT_EQ(vtx.i32(28), 1);

  size_t part = static_cast<size_t>(vtx.i32(32));
  ASSERT_EQ(vtx.i32(part), 1);
  size_t model = vtx.follow(part, 4);
  ASSERT_EQ(vtx.i32(model), 1);
  size_t lod = vtx.follow(model, 4);
  ASSERT_EQ(vtx.i32(lod), 1);
  EXPECT_EQ(vtx.f32(lod + 8), 0.0f) << "switch point of LOD 0";
  size_t mesh = vtx.follow(lod, 4);
  ASSERT_EQ(vtx.i32(mesh), 2);
  EXPECT_EQ(vtx.u8(mesh + 8), 0x1);
  size_t group0 = vtx.follow(mesh, 4);
  size_t group1 = group0 + c.groupSize;
  EXPECT_EQ(group1, files.where.vtx.at("stripgroup[0][0][0][0][1]"));

  EXPECT_EQ(vtx.i32(group1), 4);
  EXPECT_EQ(vtx.i32(group1 + 8), 9) << "index count of both strips";
  ASSERT_EQ(vtx.i32(group1 + 16), 2);
  EXPECT_EQ(vtx.u8(group1 + 24), 0x2);
  size_t strip0 = vtx.follow(group1, 20);
  size_t strip1 = strip0 + c.stripSize;
  EXPECT_EQ(strip1, files.where.vtx.at("strip[0][0][0][0][1][1]"));
  EXPECT_EQ(vtx.i32(strip1), 6);
  EXPECT_EQ(vtx.i32(strip1 + 4), 3) << "first index, counted in indices";
  EXPECT_EQ(vtx.i32(strip1 + 8), 4);
  EXPECT_EQ(vtx.i16(strip1 + 16), 2) << "bones 5 and 6";
  EXPECT_EQ(vtx.u8(strip1 + 18), 1);

  size_t indices = vtx.follow(group1, 12);
  EXPECT_EQ(vtx.u16(indices + 2 * 3), 2) << "first index of the second strip";
  size_t vertices = vtx.follow(group1, 4);
  EXPECT_EQ(vtx.u8(vertices + 3), 2) << "bone count of mesh vertex 3";
  EXPECT_EQ(vtx.u16(vertices + 4), 3) << "mesh vertex index";
  EXPECT_EQ(vtx.u8(vertices + 6), 5);
  EXPECT_EQ(vtx.u8(vertices + 7), 6);
  EXPECT_EQ(vtx.u16(vertices + 9 + 4), 2) << "records are packed 9 bytes apart";

  // The group's own strip lies right after the last strip group: records run contiguously.
  EXPECT_EQ(vtx.follow(group0, 20), group1 + c.groupSize);
}

INSTANTIATE_TEST_SUITE_P(Layouts, StripChain,
                         ::testing::Values(LayoutCase{StripLayout::Short, 49, 25, 27},
                                           LayoutCase{StripLayout::Extended, 48, 33, 35},
                                           LayoutCase{StripLayout::Auto, 48, 25, 27},
                                           LayoutCase{StripLayout::Auto, 49, 33, 35}));

TEST(StripFile, LodsAreParallelToTheModelsMeshesWithTheirSwitchPoints) {
  Description d;
  Mesh full = quadMesh(0, 0);
  full.lods.push_back({triangleGroup(4, {0, 1, 2})});
  full.lods.push_back({triangleGroup(3, {0, 1, 2})});
  Mesh near = quadMesh(1, 1);  // LOD 0 only
  d.bodyParts = {BodyPart{"body", {}, {SubModel{"m", {full, near}}}}};
  d.strip.switchPoints = {0, 12.5f};
  ModelFiles files = forge(d);
  Bytes vtx(*files.vtx);
  EXPECT_EQ(vtx.i32(20), 3) << "the most LODs of any mesh";
  size_t model = vtx.follow(static_cast<size_t>(vtx.i32(32)), 4);
  ASSERT_EQ(vtx.i32(model), 3);
  size_t lod0 = vtx.follow(model, 4);
  for (size_t l = 0; l < 3; ++l) EXPECT_EQ(vtx.i32(lod0 + 12 * l), 2) << "meshes in LOD " << l;
  EXPECT_EQ(vtx.f32(lod0 + 12 + 8), 12.5f);
  EXPECT_EQ(vtx.f32(lod0 + 24 + 8), 20.0f) << "default switch point";

  size_t lod2Mesh = vtx.follow(lod0 + 24, 4);
  EXPECT_EQ(vtx.i32(lod2Mesh), 1);
  size_t group = vtx.follow(lod2Mesh, 4);
  EXPECT_EQ(vtx.i32(group + 8), 3) << "one triangle at LOD 2";
  EXPECT_EQ(vtx.i32(lod2Mesh + 9), 0) << "the second mesh has no strip groups at LOD 2";

  Bytes qvd(*files.qvd);
  EXPECT_EQ(qvd.i32(12), 3);
  EXPECT_EQ(qvd.i32(16 + 8), 3) << "vertices still used at LOD 2";

  d.strip.lodCount = 1;
  EXPECT_EQ(Bytes(*forge(d).vtx).i32(20), 1);
}

TEST(StripFile, MaterialReplacementListsHoldOneListPerLod) {
  Description d;
  Mesh mesh = quadMesh(0, 0);
  mesh.lods.push_back(mesh.lods[0]);
  d.bodyParts = {BodyPart{"body", {}, {SubModel{"m", {mesh}}}}};
  d.strip.replacements = {{}, {MaterialReplacement{2, "wood_lod1"}, MaterialReplacement{0, "metal_lod1"}}};
  ModelFiles files = forge(d);
  Bytes vtx(*files.vtx);
  size_t lists = static_cast<size_t>(vtx.i32(24));
  EXPECT_EQ(vtx.i32(lists), 0);
  ASSERT_EQ(vtx.i32(lists + 8), 2);
  size_t first = vtx.follow(lists + 8, 4);
  EXPECT_EQ(vtx.i16(first), 2);
  EXPECT_EQ(vtx.name(first, 2), "wood_lod1");
  size_t second = first + 6;
  EXPECT_EQ(vtx.i16(second), 0);
  EXPECT_EQ(vtx.name(second, 2), "metal_lod1");

  d.strip.replacements.push_back({});
  EXPECT_FALSE(build(d).ok()) << "more replacement lists than LODs";
}

TEST(StripFile, VersionAndChecksumOverrides) {
  Description d = twoGroups(StripLayout::Short);
  d.strip.version = 6;
  d.strip.checksum = 5;
  Bytes vtx(*forge(d).vtx);
  EXPECT_EQ(vtx.i32(0), 6);
  EXPECT_EQ(vtx.i32(16), 5);
}

}  // namespace
}  // namespace zv::mdlforge
