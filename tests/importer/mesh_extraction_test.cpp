// Mesh extraction: walk order, part names, strip groups, vertex gathering and repair, and
// the turn into a Z-up frame.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/float_sanitize.h"
#include "base/log.h"
#include "geometry_fixture.h"
#include "importer/mesh_extraction.h"

namespace zv {
namespace {

using testing::crateModel;
using testing::GeometryRun;
using testing::triangleMesh;
using testing::vertexAt;

mdlforge::StripGroup stripGroup(std::vector<uint16_t> vertices, std::vector<std::vector<uint16_t>> strips) {
  mdlforge::StripGroup group;
  group.vertices = std::move(vertices);
  for (auto& indices : strips) group.strips.push_back({std::move(indices)});
  return group;
}

legacy::StripGroup legacyGroup(size_t vertexCount, std::vector<uint16_t> indices,
                               std::vector<int32_t> stripCounts) {
  legacy::StripGroup group;
  group.vertices.resize(vertexCount);
  group.indices = std::move(indices);
  int32_t offset = 0;
  for (int32_t count : stripCounts) {
    group.strips.push_back({count, offset, 0, 0, 0, 1});
    offset += count;
  }
  return group;
}

std::vector<std::string> partNames(const ModelTables& tables) {
  std::vector<std::string> names;
  for (const MeshPart& part : tables.meshParts) names.push_back(part.name);
  return names;
}

void expectNear(const Vector3& actual, const Vector3& expected, float tolerance = 1e-5f) {
  EXPECT_NEAR(actual.x, expected.x, tolerance);
  EXPECT_NEAR(actual.y, expected.y, tolerance);
  EXPECT_NEAR(actual.z, expected.z, tolerance);
}

// 1 or -1 for quaternions of the same rotation.
float dot(const Quaternion& a, const Quaternion& b) { return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w; }

// A mesh whose vertices are all used at LOD 0 and whose later LODs keep fewer of them.
mdlforge::Mesh lodMesh(int32_t material, float offset) {
  mdlforge::Mesh mesh = triangleMesh(material, 3, offset);
  mesh.lods.push_back({stripGroup({0, 1, 2, 3, 4, 5}, {{0, 1, 2, 3, 4, 5}})});
  mesh.lods.push_back({stripGroup({6, 7, 8}, {{0, 1, 2}})});
  return mesh;
}

TEST(PartNames, FollowTheModelBodyPartSubModelAndLod) {
  EXPECT_EQ(BuildPartName("models/props/crate.mdl", "body", 1, 0, 0), "crate_bg_body_lod0");
  EXPECT_EQ(BuildPartName("models/props/crate.mdl", "body", 2, 0, 0), "crate_bg_body_sm0_lod0");
  EXPECT_EQ(BuildPartName("models/props/crate.mdl", "body", 2, 1, 3), "crate_bg_body_sm1_lod3");
  EXPECT_EQ(BuildPartName("models/props/crate.mdl", "body", 0, 0, -1), "crate_bg_body");
  EXPECT_EQ(BuildPartName("Models\\Props\\Big.Crate.mdl", "Sub\\Main Body.smd", 1, 0, 1),
            "big.crate_bg_main body_lod1");
  EXPECT_EQ(BuildPartName("", "body", 1, 0, 0), "");
}

TEST(StripCorners, OneStripReversesEveryTriangle) {
  // a b c d e f -> c b a f e d
  EXPECT_EQ(stripGroupCorners(legacyGroup(6, {0, 1, 2, 3, 4, 5}, {6})),
            (std::vector<int32_t>{2, 1, 0, 5, 4, 3}));
  // A trailing partial triangle is left as it is.
  EXPECT_EQ(stripGroupCorners(legacyGroup(5, {0, 1, 2, 3, 4}, {5})), (std::vector<int32_t>{2, 1, 0, 3, 4}));
  EXPECT_TRUE(stripGroupCorners(legacyGroup(3, {0, 1, 2}, {})).empty());
}

TEST(StripCorners, LaterStripsCountPositionsFromTheStartOfTheList) {
  // The second strip's swaps fall on the first strip's entries: 3 + 3 comes out unswapped.
  EXPECT_EQ(stripGroupCorners(legacyGroup(6, {0, 1, 2, 3, 4, 5}, {3, 3})),
            (std::vector<int32_t>{0, 1, 2, 3, 4, 5}));
  // 3 + 6: the first triangle swapped twice, the second once, the third not at all.
  EXPECT_EQ(stripGroupCorners(legacyGroup(9, {0, 1, 2, 3, 4, 5, 6, 7, 8}, {3, 6})),
            (std::vector<int32_t>{0, 1, 2, 5, 4, 3, 6, 7, 8}));
}

TEST(StripCorners, StripsThatRepeatTheirIndicesEndlesslyAreCut) {
  legacy::StripGroup group = legacyGroup(3, {0, 1, 2}, {});
  group.strips.assign(1000, legacy::Strip{3, 0, 0, 0, 0, 1});
  LogCapture log;
  std::vector<int32_t> corners = stripGroupCorners(group);
  EXPECT_EQ(corners.size(), 48u);
  EXPECT_EQ(log.count("remaining strips are left out"), 1u);
}

TEST(MeshExtraction, WithoutTheLodOptionOnlyLodZeroIsExported) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].meshes = {lodMesh(0, 0)};
  GeometryRun run(d);
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.converter.model()->strips->lodCount, 3);
  EXPECT_EQ(run.tables().lodCount, 1);
  EXPECT_EQ(partNames(run.tables()), std::vector<std::string>{"crate_bg_body_lod0"});
  ASSERT_EQ(run.tables().bodyGroups.size(), 1u);
  ASSERT_EQ(run.tables().bodyGroups[0].entries.size(), 1u);
  EXPECT_EQ(run.tables().bodyGroups[0].entries[0].lod, 0);
}

TEST(MeshExtraction, AllLodsAreWalkedSubModelBySubModel) {
  mdlforge::Description d = crateModel();
  mdlforge::SubModel second{"lid", {lodMesh(0, 10)}};
  d.bodyParts[0].models = {{"crate", {lodMesh(0, 0)}}, second};
  d.strip.switchPoints = {0, 12.5f, 40};
  GeometryRun run(d, true);
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().lodCount, 3);
  EXPECT_EQ(partNames(run.tables()),
            (std::vector<std::string>{"crate_bg_body_sm0_lod0", "crate_bg_body_sm0_lod1",
                                      "crate_bg_body_sm0_lod2", "crate_bg_body_sm1_lod0",
                                      "crate_bg_body_sm1_lod1", "crate_bg_body_sm1_lod2"}));
  const std::vector<BodyGroupEntry>& entries = run.tables().bodyGroups[0].entries;
  ASSERT_EQ(entries.size(), 6u);
  const float switches[] = {0, 12.5f, 40};
  for (size_t i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(entries[i].choice, int32_t(i / 3));
    EXPECT_EQ(entries[i].lod, int32_t(i % 3));
    EXPECT_EQ(entries[i].meshName, run.tables().meshParts[i].name);
    ASSERT_EQ(entries[i].meshes.size(), 1u);
    EXPECT_EQ(entries[i].meshes[0].name, entries[i].meshName);
    EXPECT_EQ(entries[i].meshes[0].switchThreshold, switches[i % 3]);
    EXPECT_EQ(run.tables().meshParts[i].lod, int32_t(i % 3));
  }
  // LOD 2 of the lid keeps only its third triangle, reversed.
  const MeshPart& far = run.tables().meshParts[5];
  ASSERT_EQ(far.vertices.size(), 3u);
  expectNear(far.vertices[0].position, {12, 0, 0});
  EXPECT_EQ(far.faceSets[0].indices, (std::vector<int32_t>{2, 1, 0}));
}

TEST(MeshExtraction, RepeatedBodyPartNamesGetTheirIndex) {
  mdlforge::Description d = crateModel();
  mdlforge::BodyPart studio = d.bodyParts[0];
  studio.name = "studio";
  mdlforge::BodyPart other = studio;
  other.name = "other";
  d.bodyParts = {studio, studio, other, studio};
  GeometryRun run(d);
  ASSERT_TRUE(run.extract());
  std::vector<std::string> groups;
  for (const BodyGroup& group : run.tables().bodyGroups) groups.push_back(group.name);
  EXPECT_EQ(groups, (std::vector<std::string>{"studio", "studio_part1", "other", "studio_part3"}));
  EXPECT_EQ(partNames(run.tables()),
            (std::vector<std::string>{"crate_bg_studio_lod0", "crate_bg_studio_part1_lod0",
                                      "crate_bg_other_lod0", "crate_bg_studio_part3_lod0"}));
}

TEST(MeshExtraction, PartNamesAreMadeSafeAndUniqueAsFileNames) {
  mdlforge::Description d = crateModel();
  d.longName = "models/props/Crate.mdl";
  mdlforge::BodyPart colon = d.bodyParts[0];
  colon.name = "a:b";
  mdlforge::BodyPart underscore = d.bodyParts[0];
  underscore.name = "a_b";
  mdlforge::BodyPart upper = d.bodyParts[0];
  upper.name = "A_B";
  d.bodyParts = {colon, underscore, upper};
  GeometryRun run(d);
  LogCapture log;
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(partNames(run.tables()),
            (std::vector<std::string>{"crate_bg_a_b_lod0", "crate_bg_a_b_lod0_2", "crate_bg_a_b_lod0_3"}));
  EXPECT_EQ(run.tables().bodyGroups[0].name, "a:b");  // the model document keeps the legacy name
  EXPECT_EQ(run.tables().bodyGroups[1].entries[0].meshName, "crate_bg_a_b_lod0_2");
  EXPECT_EQ(log.count("cannot be used as a file name"), 1u);
  ASSERT_TRUE(run.converter.WriteMeshes());
  for (const std::string& name : partNames(run.tables()))
    EXPECT_TRUE(std::filesystem::exists(run.meshFile(name))) << name;
}

TEST(MeshExtraction, AnEmptySubModelIsAnEmptyChoice) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models.push_back({"blank", {}});
  GeometryRun run(d);
  ASSERT_TRUE(run.extract());
  const std::vector<BodyGroupEntry>& entries = run.tables().bodyGroups[0].entries;
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].meshes.size(), 1u);
  EXPECT_EQ(entries[1].choice, 1);
  EXPECT_EQ(entries[1].meshName, "crate_bg_body_sm1_lod0");
  EXPECT_TRUE(entries[1].meshes.empty());
  EXPECT_EQ(partNames(run.tables()), std::vector<std::string>{"crate_bg_body_sm0_lod0"});
}

TEST(MeshExtraction, EachStripGroupIsAFaceSetOverItsOwnVertices) {
  // Mesh 0: two strip groups (2 and 3 triangles) over separate vertices; mesh 1: one group.
  mdlforge::Description d = crateModel();
  d.textures = {"crate", "glass"};
  mdlforge::Mesh first = triangleMesh(0, 5);
  first.lods = {{stripGroup({0, 1, 2, 3, 4, 5}, {{0, 1, 2, 3, 4, 5}}),
                 stripGroup({6, 7, 8, 9, 10, 11, 12, 13, 14}, {{0, 1, 2, 3, 4, 5, 6, 7, 8}})}};
  d.bodyParts[0].models[0].meshes = {first, triangleMesh(1, 1, 20)};
  GeometryRun run(d);
  ASSERT_TRUE(run.extract());
  ASSERT_EQ(run.tables().meshParts.size(), 1u);
  const MeshPart& part = run.tables().meshParts[0];
  ASSERT_EQ(part.faceSets.size(), 3u);
  EXPECT_EQ(part.faceSets[0].material, 0);
  EXPECT_EQ(part.faceSets[1].material, 0);
  EXPECT_EQ(part.faceSets[2].material, 1);
  EXPECT_EQ(part.faceSets[0].indices, (std::vector<int32_t>{2, 1, 0, 5, 4, 3}));
  EXPECT_EQ(part.faceSets[1].indices, (std::vector<int32_t>{8, 7, 6, 11, 10, 9, 14, 13, 12}));
  EXPECT_EQ(part.faceSets[2].indices, (std::vector<int32_t>{17, 16, 15}));
  ASSERT_EQ(part.vertices.size(), 18u);
  for (size_t v = 0; v < 15; ++v) expectNear(part.vertices[v].position, first.vertices[v].position);
  expectNear(part.vertices[15].position, {20, 0, 0});
}

TEST(MeshExtraction, VerticesAreFoundThroughFixupsAndSubModelOffsets) {
  // Stored out of mesh order, in two sub-models with two meshes each; every strip vertex
  // must still land on the vertex the description gave it.
  mdlforge::Description d = crateModel();
  d.vertexFile.fixupMode = mdlforge::FixupMode::Auto;
  d.bodyParts[0].models = {{"a", {lodMesh(0, 0), lodMesh(0, 100)}},
                           {"b", {lodMesh(0, 200), lodMesh(0, 300)}}};
  GeometryRun run(d, true);
  ASSERT_TRUE(run.extract());
  ASSERT_EQ(run.tables().meshParts.size(), 6u);
  for (size_t m = 0; m < 2; ++m) {
    for (size_t lod = 0; lod < 3; ++lod) {
      const MeshPart& part = run.tables().meshParts[3 * m + lod];
      size_t at = 0;
      for (const mdlforge::Mesh& mesh : d.bodyParts[0].models[m].meshes) {
        for (uint16_t vertex : mesh.lods[lod][0].vertices) {
          ASSERT_LT(at, part.vertices.size());
          expectNear(part.vertices[at].position, mesh.vertices[vertex].position);
          EXPECT_EQ(part.vertices[at].texcoord0, mesh.vertices[vertex].uv);
          ++at;
        }
      }
      EXPECT_EQ(at, part.vertices.size());
    }
  }
}

TEST(MeshExtraction, VertexFieldsComeFromTheVertexAndItsTangent) {
  mdlforge::Description d = crateModel();
  mdlforge::Vertex& v = d.bodyParts[0].models[0].meshes[0].vertices[0];
  v.normal = {0, 1, 0};
  v.uv = {0.25f, 0.75f};
  v.tangent = {0, 0, 1, -1};
  v.weights = {0.5f, 0.3f, 0.2f};
  v.bones = {2, 1, 7};
  v.boneCount = 2;  // the third weight and bone are not in use
  GeometryRun run(d);
  ASSERT_TRUE(run.extract());
  const MeshPart& part = run.tables().meshParts[0];
  ASSERT_EQ(part.vertices.size(), 6u);
  const GatheredVertex& g = part.vertices[0];
  EXPECT_EQ(g.normal, (Vector3{0, 1, 0}));
  EXPECT_EQ(g.texcoord0, (Vector2{0.25f, 0.75f}));
  EXPECT_EQ(g.tangent, (Vector4{0, 0, 1, -1}));
  EXPECT_EQ(g.weights, (std::array<float, 4>{0.5f, 0.3f, 0, 0}));
  EXPECT_EQ(g.bones, (std::array<int32_t, 4>{2, 1, 0, 0}));
  EXPECT_EQ(part.texcoordSets, 1);
  EXPECT_EQ(g.texcoord1, (Vector2{0, 0}));
  EXPECT_EQ(part.vertices[1].tangent, (Vector4{1, 0, 0, 1}));
}

TEST(MeshExtraction, WithoutTangentDataTangentsAreZeroWithAPositiveSign) {
  mdlforge::Description d = crateModel();
  d.vertexFile.tangents = false;
  GeometryRun run(d);
  ASSERT_TRUE(run.extract());
  ASSERT_FALSE(run.converter.model()->vertices->hasTangents());
  for (const GatheredVertex& v : run.tables().meshParts[0].vertices)
    EXPECT_EQ(v.tangent, (Vector4{0, 0, 0, 1}));
}

TEST(MeshExtraction, TheExtraTableGivesEveryPartASecondTextureSet) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].meshes[0].vertices[4].uv2 = Vector2{0.5f, -2};
  d.vertexFile.fixupMode = mdlforge::FixupMode::Auto;
  GeometryRun run(d);
  ASSERT_TRUE(run.extract());
  const MeshPart& part = run.tables().meshParts[0];
  EXPECT_EQ(part.texcoordSets, 2);
  EXPECT_EQ(part.vertices[4].texcoord1, (Vector2{0.5f, -2}));
  EXPECT_EQ(part.vertices[3].texcoord1, (Vector2{0, 0}));
}

TEST(MeshExtraction, InvalidPositionsAreZeroedWithOneMessageForTheWholeRun) {
  resetInvalidFloatRepairsForTesting();
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].meshes[0].vertices[0].position = {std::numeric_limits<float>::quiet_NaN(), 1, 2};
  d.bodyParts[0].models[0].meshes[0].vertices[1].position = {3, std::numeric_limits<float>::infinity(), 4};
  d.bodyParts[0].models[0].meshes[0].vertices[2].normal = {std::numeric_limits<float>::quiet_NaN(), 0, 0};
  LogCapture log;
  GeometryRun first(d), second(d);
  ASSERT_TRUE(first.extract());
  ASSERT_TRUE(second.extract());
  EXPECT_EQ(log.count("mdl to dmx: zeroing out invalid vertices\n"), 1u);
  EXPECT_EQ(invalidFloatRepairs(), 4u);  // two positions in each of two models; normals are not checked
  const MeshPart& part = second.tables().meshParts[0];
  EXPECT_EQ(part.vertices[0].position, (Vector3{0, 1, 2}));
  EXPECT_EQ(part.vertices[1].position, (Vector3{3, 0, 4}));
  EXPECT_TRUE(std::isnan(part.vertices[2].normal.x));
  // The loaded vertex data itself is repaired.
  EXPECT_EQ(second.converter.model()->vertices->vertices()[0].position, (Vector3{0, 1, 2}));
  resetInvalidFloatRepairsForTesting();
}

TEST(MeshExtraction, WithoutAVertexFileNoPartsAreMadeAndItIsSaidOnce) {
  for (bool withoutVertexFile : {true, false}) {
    mdlforge::Description d = crateModel();
    d.bodyParts[0].models.push_back(d.bodyParts[0].models[0]);
    (withoutVertexFile ? d.vertexFile.write : d.strip.write) = false;
    GeometryRun run(d);
    run.material("models/props/crate");
    LogCapture log;
    ASSERT_TRUE(run.extract());
    EXPECT_EQ(log.count(withoutVertexFile ? "has no usable vertex file; no mesh files are written\n"
                                          : "has no usable strip file; no mesh files are written\n"),
              1u)
        << log.text();
    EXPECT_TRUE(run.tables().meshParts.empty());
    // The sub-models still make (empty) choices, and the materials are still resolved.
    ASSERT_EQ(run.tables().bodyGroups[0].entries.size(), 2u);
    EXPECT_TRUE(run.tables().bodyGroups[0].entries[1].meshes.empty());
    EXPECT_EQ(run.tables().referencedMaterials,
              std::vector<std::string>{"materials\\models\\props\\crate.qmat"});
    ASSERT_TRUE(run.converter.WriteMeshes());
    EXPECT_EQ(testing::readText(run.meshFolder() / "meshinfo.txt"),
              "{\n\"staticprop\": 0,\n\"numuvs\": 1\n}\n");
    EXPECT_EQ(run.output.written().size(), 1u);
  }
}

TEST(YUpToZUp, TheMatrixTakesYToZ) {
  Matrix3x4 m = yUpToZUpMatrix();
  expectNear(transformPoint(m, {0, 1, 0}), {0, 0, 1});
  expectNear(transformPoint(m, {0, 0, 1}), {1, 0, 0});
  expectNear(transformPoint(m, {1, 0, 0}), {0, 1, 0});
}

TEST(YUpToZUp, SkeletonAndGeometryTurnTogether) {
  mdlforge::Description d = crateModel();
  mdlforge::Bone child;
  child.name = "child";
  child.parent = 0;
  child.position = {0, 2, 0};
  child.quaternion = angleQuaternion({0, 30, 0});
  d.bones[0].position = {1, 2, 3};
  d.bones.push_back(child);
  mdlforge::Vertex& v = d.bodyParts[0].models[0].meshes[0].vertices[1];  // at (1, 0, 0)
  v.normal = {0, 0, 1};
  v.tangent = {0, 1, 0, -1};
  GeometryRun plain(d), turned(d, false, true);
  ASSERT_TRUE(plain.extract());
  ASSERT_TRUE(turned.extract());

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
