// Mesh extraction: walk order, part names, strip corners, vertex repair and the Z-up turn.
// What reaches the files is checked against the builder input in mesh_writer_test.cpp.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/float_sanitize.h"
#include "base/log.h"
#include "base/strings.h"
#include "importer/mesh_extraction.h"
#include "importer_fixture.h"

namespace zv {
namespace {

using testing::crateModel;
using testing::expectNear;
using testing::ImportRun;
using testing::triangleMesh;
using Names = std::vector<std::string>;

TEST(StripCorners, EveryTripleFromTheStartOfTheListHasItsEndsSwapped) {
  struct Case {
    std::vector<uint16_t> indices;
    std::vector<int32_t> strips;  // index counts, one strip after the other
    std::vector<int32_t> expected;
  };
  const Case cases[] = {
      {{0, 1, 2, 3, 4, 5}, {6}, {2, 1, 0, 5, 4, 3}},  // a b c d e f -> c b a f e d
      {{0, 1, 2, 3, 4}, {5}, {2, 1, 0, 3, 4}},        // a trailing partial triangle stays
      // A later strip's swaps fall on the first entries of the list: 3 + 3 comes out as
      // stored; 3 + 6 swaps the first triangle twice, the second once, the third never.
      {{0, 1, 2, 3, 4, 5}, {3, 3}, {0, 1, 2, 3, 4, 5}},
      {{0, 1, 2, 3, 4, 5, 6, 7, 8}, {3, 6}, {0, 1, 2, 5, 4, 3, 6, 7, 8}},
      {{0, 1, 2}, {3, 4}, {2, 1, 0}},  // a strip past the end of the indices is skipped
  };
  for (const Case& c : cases) {
    legacy::StripGroup group;
    group.indices = c.indices;
    for (int32_t offset = 0; int32_t count : c.strips) {
      group.strips.push_back({count, offset, 0, 0, 0, 1});
      offset += count;
    }
    EXPECT_EQ(stripGroupCorners(group), c.expected) << ::testing::PrintToString(c.strips);
  }
  // Strips that repeat their indices endlessly are cut at 16 times the index count.
  legacy::StripGroup group;
  group.indices = {0, 1, 2};
  group.strips.assign(1000, legacy::Strip{3, 0, 0, 0, 0, 1});
  LogCapture log;
  EXPECT_EQ(stripGroupCorners(group).size(), 48u);
  EXPECT_EQ(log.count("remaining strips are left out"), 1u);
}

TEST(MeshExtraction, LodsAreWalkedSubModelBySubModelOnlyWithTheLodOption) {
  // A mesh whose later LODs keep fewer of its triangles, in two sub-models.
  auto lodMesh = [](float offset) {
    mdlforge::Mesh mesh = triangleMesh(0, 3, offset);
    mesh.lods.push_back({mdlforge::triangleGroup(9, {0, 1, 2, 3, 4, 5})});
    mesh.lods.push_back({mdlforge::triangleGroup(9, {6, 7, 8})});
    return mesh;
  };
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models = {{"crate", {lodMesh(0)}}, {"lid", {lodMesh(10)}}};
  d.strip.switchPoints = {0, 12.5f, 40};
  for (bool allLods : {false, true}) {
    SCOPED_TRACE(allLods);
    ImportRun run(d, allLods);
    ASSERT_TRUE(run.extract());
    EXPECT_EQ(run.tables().lodCount, allLods ? 3 : 1);
    // Per entry: choice, LOD, mesh name, switch point; its part's name, LOD and corners.
    Names entries;
    const std::vector<BodyGroupEntry>& table = run.tables().bodyGroups.at(0).entries;
    for (size_t i = 0; i < table.size() && i < run.tables().meshParts.size(); ++i) {
      const MeshPart& part = run.tables().meshParts[i];
      ASSERT_EQ(table[i].meshes.size(), 1u);
      entries.push_back(format("%d %d %s %g %s %d %zu", table[i].choice, table[i].lod,
                               table[i].meshName.c_str(), table[i].meshes[0].switchThreshold,
                               part.name.c_str(), part.lod, part.faceSets.at(0).indices.size()));
    }
    const Names all{"0 0 crate_bg_body_sm0_lod0 0 crate_bg_body_sm0_lod0 0 9",
                    "0 1 crate_bg_body_sm0_lod1 12.5 crate_bg_body_sm0_lod1 1 6",
                    "0 2 crate_bg_body_sm0_lod2 40 crate_bg_body_sm0_lod2 2 3",
                    "1 0 crate_bg_body_sm1_lod0 0 crate_bg_body_sm1_lod0 0 9",
                    "1 1 crate_bg_body_sm1_lod1 12.5 crate_bg_body_sm1_lod1 1 6",
                    "1 2 crate_bg_body_sm1_lod2 40 crate_bg_body_sm1_lod2 2 3"};
    EXPECT_EQ(entries, (allLods ? all : Names{all[0], all[3]}));
    EXPECT_EQ(table.size(), entries.size());
  }
}

TEST(MeshExtraction, BodyPartNamesAreMadeUniqueAndPartNamesSafeAsFileNames) {
  mdlforge::Description d = crateModel();
  mdlforge::BodyPart part = d.bodyParts[0];
  d.bodyParts.clear();
  for (const char* name : {"studio", "studio", "a:b", "a_b", "A_B", "studio"}) {
    part.name = name;
    d.bodyParts.push_back(part);
  }
  ImportRun run(d);
  LogCapture log;
  ASSERT_TRUE(run.extract());
  Names groups, parts;
  for (const BodyGroup& group : run.tables().bodyGroups) groups.push_back(group.name);
  for (const MeshPart& mesh : run.tables().meshParts) parts.push_back(mesh.name);
  // The model document keeps the legacy names; a repeated one gets its index.
  EXPECT_EQ(groups, (Names{"studio", "studio_part1", "a:b", "a_b", "A_B", "studio_part5"}));
  // File names also differ ignoring case.
  EXPECT_EQ(parts, (Names{"crate_bg_studio_lod0", "crate_bg_studio_part1_lod0", "crate_bg_a_b_lod0",
                          "crate_bg_a_b_lod0_2", "crate_bg_a_b_lod0_3", "crate_bg_studio_part5_lod0"}));
  EXPECT_EQ(log.count("cannot be used as a file name"), 1u);
}

TEST(MeshExtraction, InvalidPositionsAreZeroedOnceForTheRunAndMissingTangentsFilledIn) {
  resetInvalidFloatRepairsForTesting();
  mdlforge::Description d = crateModel();
  d.vertexFile.tangents = false;
  std::vector<mdlforge::Vertex>& vertices = d.bodyParts[0].models[0].meshes[0].vertices;
  vertices[0].position = {std::numeric_limits<float>::quiet_NaN(), 1, 2};
  vertices[1].position = {3, std::numeric_limits<float>::infinity(), 4};
  vertices[2].normal = {std::numeric_limits<float>::quiet_NaN(), 0, 0};
  LogCapture log;
  ImportRun first(d), second(d);
  ASSERT_TRUE(first.extract());
  ASSERT_TRUE(second.extract());
  EXPECT_EQ(log.count("mdl to dmx: zeroing out invalid vertices\n"), 1u);
  EXPECT_EQ(invalidFloatRepairs(), 4u);  // two positions in each of two models; normals are not checked
  const MeshPart& part = second.tables().meshParts[0];
  EXPECT_EQ(part.vertices[0].position, (Vector3{0, 1, 2}));
  EXPECT_EQ(part.vertices[1].position, (Vector3{3, 0, 4}));
  EXPECT_TRUE(std::isnan(part.vertices[2].normal.x));
  // A vertex file without tangents gives a zero direction with a positive sign.
  for (const GatheredVertex& v : part.vertices) EXPECT_EQ(v.tangent, (Vector4{0, 0, 0, 1}));
  // The loaded vertex data itself is repaired, for every later reader.
  EXPECT_EQ(second.converter.model()->vertices->vertices()[0].position, (Vector3{0, 1, 2}));
  resetInvalidFloatRepairsForTesting();
}

TEST(MeshExtraction, WithoutAVertexOrStripFileNoPartsAreMadeAndItIsSaidOnce) {
  for (std::string missing : {"vertex", "strip"}) {
    mdlforge::Description d = crateModel();
    d.bodyParts[0].models.push_back(d.bodyParts[0].models[0]);
    d.textures = {"crate", "Crate"};  // one material by two names
    (missing == "vertex" ? d.vertexFile.write : d.strip.write) = false;
    ImportRun run(d);
    run.material("models/props/crate");
    LogCapture log;
    ASSERT_TRUE(run.extractAndWrite());
    EXPECT_EQ(log.count("has no usable " + missing + " file; no mesh files are written\n"), 1u) << log.text();
    EXPECT_TRUE(run.tables().meshParts.empty());
    // Empty choices remain; materials are still resolved, and listed once each.
    EXPECT_TRUE(run.tables().bodyGroups.at(0).entries.at(1).meshes.empty());
    EXPECT_EQ(run.tables().materials.paths, Names(2, "materials\\models\\props\\crate.qmat"));
    EXPECT_EQ(run.tables().referencedMaterials, Names{"materials\\models\\props\\crate.qmat"});
    EXPECT_EQ(run.output.written().size(), 1u);  // meshinfo.txt only
  }
}

// 1 or -1 for quaternions of the same rotation.
float dot(const Quaternion& a, const Quaternion& b) { return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w; }

TEST(YUpToZUp, SkeletonAndGeometryTurnTogether) {
  mdlforge::Description d = crateModel();
  d.bones = {testing::bone("root", -1, {1, 2, 3}), testing::bone("child", 0, {0, 2, 0}, {0, 30, 0})};
  mdlforge::Vertex& v = d.bodyParts[0].models[0].meshes[0].vertices[1];  // at (1, 0, 0)
  v.normal = {0, 0, 1};
  v.tangent = {0, 1, 0, -1};
  ImportRun plain(d), turned(d, false, true);
  ASSERT_TRUE(plain.extract());
  ASSERT_TRUE(turned.extract());

  // +Y goes to +Z, +Z to +X and +X to +Y.
  const std::vector<SkeletonBone>& before = plain.tables().skeleton;
  const std::vector<SkeletonBone>& after = turned.tables().skeleton;
  Matrix3x4 m = yUpToZUpMatrix();
  expectNear(after[0].position, {3, 1, 2});
  expectNear(after[0].modelTransform.translation(), {3, 1, 2});
  expectNear(after[1].modelTransform.translation(),
             transformPoint(m, before[1].modelTransform.translation()));
  // The root's frame turns with the model; the child's frame relative to it does not change.
  EXPECT_NEAR(std::abs(dot(after[0].orientation, matrixQuaternion(m))), 1, 1e-5);
  expectNear(after[1].position, before[1].position);
  EXPECT_NEAR(std::abs(dot(after[1].orientation, before[1].orientation)), 1, 1e-5);

  const GatheredVertex& g = turned.tables().meshParts[0].vertices[1];
  expectNear(g.position, {0, 1, 0});
  expectNear(g.normal, {1, 0, 0});
  expectNear({g.tangent.x, g.tangent.y, g.tangent.z}, {0, 0, 1});
  EXPECT_EQ(g.tangent.w, -1);
  // Without the option nothing turns.
  EXPECT_EQ(plain.tables().meshParts[0].vertices[1].position, (Vector3{1, 0, 0}));
  EXPECT_EQ(before[0].position, (Vector3{1, 2, 3}));
}

}  // namespace
}  // namespace zv
