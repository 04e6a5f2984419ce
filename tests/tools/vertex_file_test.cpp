// The vertex file: header, vertex and tangent placement, fixups and the extra-data table.

#include <gtest/gtest.h>

#include "forge_check.h"

namespace zv::mdlforge {
namespace {

using check::Bytes;
using check::forge;
using check::quadMesh;

Description oneQuad() {
  Description d;
  Mesh mesh = quadMesh(0, 3);
  mesh.vertices[2].weights = {0.25f, 0.75f, 0};
  mesh.vertices[2].bones = {4, 7, 0};
  mesh.vertices[2].boneCount = 2;
  mesh.vertices[2].normal = {0, 1, 0};
  mesh.vertices[2].tangent = {0, 0, 1, -1};
  d.bodyParts = {BodyPart{"body", {}, {SubModel{"m", {mesh}}}}};
  return d;
}

TEST(VertexFile, HeaderVerticesAndTangentsFollowTheLayout) {
  ModelFiles files = forge(oneQuad());
  ASSERT_TRUE(files.qvd);
  Bytes qvd(*files.qvd);
  EXPECT_EQ(std::string(files.qvd->begin(), files.qvd->begin() + 4), "IDSV");
  EXPECT_EQ(qvd.i32(4), 4);
  EXPECT_EQ(qvd.i32(8), Bytes(files.mdl).i32(8)) << "checksum matches the model's";
  EXPECT_EQ(qvd.i32(12), 1);
  EXPECT_EQ(qvd.i32(16), 4);
  EXPECT_EQ(qvd.i32(16 + 4 * 7), 4);
  EXPECT_EQ(qvd.i32(48), 0) << "no fixups";

  size_t vertices = static_cast<size_t>(qvd.i32(56));
  size_t tangents = static_cast<size_t>(qvd.i32(60));
  EXPECT_EQ(vertices % 16, 0u);
  EXPECT_EQ(tangents, vertices + 4 * 48) << "tangents directly follow the vertices";
  EXPECT_EQ(qvd.size(), tangents + 4 * 16);

  size_t v2 = vertices + 2 * 48;
  EXPECT_EQ(qvd.f32(v2), 0.25f);
  EXPECT_EQ(qvd.f32(v2 + 4), 0.75f);
  EXPECT_EQ(qvd.u8(v2 + 12), 4);
  EXPECT_EQ(qvd.u8(v2 + 13), 7);
  EXPECT_EQ(qvd.u8(v2 + 15), 2);
  EXPECT_EQ(qvd.f32(v2 + 16), 1.0f);
  EXPECT_EQ(qvd.f32(v2 + 24), 3.0f) << "position z";
  EXPECT_EQ(qvd.f32(v2 + 32), 1.0f) << "normal y";
  EXPECT_EQ(qvd.f32(v2 + 40), 1.0f) << "u";
  EXPECT_EQ(qvd.f32(v2 + 44), 1.0f) << "v";
  EXPECT_EQ(qvd.f32(tangents + 2 * 16 + 8), 1.0f);
  EXPECT_EQ(qvd.f32(tangents + 2 * 16 + 12), -1.0f);
}

TEST(VertexFile, OverridesAndLeavingThingsOut) {
  Description d = oneQuad();
  d.vertexFile.id = 0x56434449;
  d.vertexFile.version = 3;
  d.vertexFile.checksum = 99;
  d.vertexFile.tangents = false;
  ModelFiles files = forge(d);
  ASSERT_TRUE(files.qvd);
  Bytes qvd(*files.qvd);
  EXPECT_EQ(qvd.i32(0), 0x56434449);
  EXPECT_EQ(qvd.i32(4), 3);
  EXPECT_EQ(qvd.i32(8), 99);
  EXPECT_EQ(qvd.i32(60), 0) << "no tangents";
  EXPECT_EQ(qvd.size(), static_cast<size_t>(qvd.i32(56)) + 4 * 48);

  d.vertexFile.write = false;
  d.strip.write = false;
  ModelFiles mdlOnly = forge(d);
  EXPECT_FALSE(mdlOnly.qvd);
  EXPECT_FALSE(mdlOnly.vtx);
  EXPECT_FALSE(mdlOnly.mdl.empty());
}

// Mesh A uses vertices 2 and 3 up to LOD 1, mesh B its vertex 0: those are stored first.
Description lodModel() {
  Description d;
  Mesh a = quadMesh(0, 0);
  a.lods.push_back({triangleGroup(0, {})});
  a.lods[1][0].vertices = {2, 3};
  a.lods[1][0].strips[0].indices = {0, 1, 1};
  Mesh b = quadMesh(0, 1);
  b.vertices.pop_back();
  b.lods = {{triangleGroup(3, {0, 1, 2})}, {triangleGroup(0, {})}};
  b.lods[1][0].vertices = {0};
  d.bodyParts = {BodyPart{"body", {}, {SubModel{"m", {a, b}}}}};
  return d;
}

// What a reader does: append each fixup's range, in table order.
std::vector<float> resolvedHeights(const Bytes& qvd) {
  std::vector<float> out;
  size_t fixups = static_cast<size_t>(qvd.i32(52));
  size_t vertices = static_cast<size_t>(qvd.i32(56));
  for (int32_t f = 0; f < qvd.i32(48); ++f) {
    size_t entry = fixups + 12 * static_cast<size_t>(f);
    for (int32_t i = 0; i < qvd.i32(entry + 8); ++i) {
      out.push_back(qvd.f32(vertices + 48 * static_cast<size_t>(qvd.i32(entry + 4) + i) + 24));
    }
  }
  return out;
}

TEST(VertexFile, AutomaticFixupsStoreCoarseLodVerticesFirstAndResolveToMeshOrder) {
  Description d = lodModel();
  for (auto& mesh : d.bodyParts[0].models[0].meshes) {
    for (size_t i = 0; i < mesh.vertices.size(); ++i) mesh.vertices[i].position.z += 0.1f * float(i);
  }
  d.vertexFile.fixupMode = FixupMode::Auto;
  ModelFiles files = forge(d);
  Bytes qvd(*files.qvd);
  EXPECT_EQ(qvd.i32(12), 2);
  EXPECT_EQ(qvd.i32(16), 7);
  EXPECT_EQ(qvd.i32(20), 3) << "vertices kept at root LOD 1";
  ASSERT_EQ(qvd.i32(48), 3);
  size_t table = static_cast<size_t>(qvd.i32(52));
  const int32_t expected[3][3] = {{0, 3, 2}, {1, 0, 3}, {0, 5, 2}};
  for (size_t f = 0; f < 3; ++f) {
    for (size_t k = 0; k < 3; ++k)
      EXPECT_EQ(qvd.i32(table + 12 * f + 4 * k), expected[f][k]) << f << "," << k;
  }
  size_t vertices = static_cast<size_t>(qvd.i32(56));
  EXPECT_FLOAT_EQ(qvd.f32(vertices + 24), 0.2f) << "stored first: mesh A vertex 2";

  std::vector<float> heights = resolvedHeights(qvd);
  const float meshOrder[] = {0, 0.1f, 0.2f, 0.3f, 1, 1.1f, 1.2f};
  ASSERT_EQ(heights.size(), 7u);
  for (size_t i = 0; i < 7; ++i) EXPECT_FLOAT_EQ(heights[i], meshOrder[i]) << i;

  Bytes mdl(files.mdl);
  size_t meshA = files.where.mdl.at("mesh[0][0][0]");
  EXPECT_EQ(mdl.i32(meshA + 52), 4);
  EXPECT_EQ(mdl.i32(meshA + 56), 2);
  EXPECT_EQ(mdl.i32(meshA + 60), 2) << "past the last LOD the count repeats";
  EXPECT_EQ(mdl.i32(meshA + 116 + 56), 1) << "mesh B at LOD 1";
}

TEST(VertexFile, ExplicitFixupsAndStoredOrderAreWrittenAsGiven) {
  Description d = oneQuad();
  d.vertexFile.fixupMode = FixupMode::Explicit;
  d.vertexFile.fixups = {{0, 2, 2}, {1, 0, 2}, {-1, 0, 5}};
  d.vertexFile.storedOrder = {2, 3, 0, 1};
  ModelFiles files = forge(d);
  Bytes qvd(*files.qvd);
  ASSERT_EQ(qvd.i32(48), 3);
  size_t table = static_cast<size_t>(qvd.i32(52));
  EXPECT_EQ(qvd.i32(table + 24), -1);
  EXPECT_EQ(qvd.i32(table + 32), 5);
  size_t vertices = static_cast<size_t>(qvd.i32(56));
  EXPECT_EQ(qvd.f32(vertices + 16), 1.0f) << "stored first: vertex 2 at (1, 1)";
  EXPECT_EQ(qvd.f32(vertices + 20), 1.0f);
  EXPECT_EQ(qvd.f32(vertices + 2 * 48 + 16), 0.0f);

  d.vertexFile.storedOrder = {0, 4};
  auto refused = build(d);
  ASSERT_FALSE(refused.ok());
  EXPECT_NE(refused.message().find("vertex 4"), std::string::npos);
}

TEST(VertexFile, SecondTextureCoordinatesGoToTheExtraDataTable) {
  Description d = oneQuad();
  auto& vertices = d.bodyParts[0].models[0].meshes[0].vertices;
  vertices[1].uv2 = Vector2{0.5f, 0.75f};
  vertices[3].uv2 = Vector2{0.25f, 1.0f};
  ModelFiles files = forge(d);
  Bytes qvd(*files.qvd);
  size_t extra = static_cast<size_t>(qvd.i32(60)) + 4 * 16;
  EXPECT_EQ(extra, files.where.qvd.at("extra"));
  EXPECT_EQ(qvd.i32(extra), 1);
  EXPECT_EQ(qvd.i32(extra + 4), 8 + 12 + 4 * 8);
  EXPECT_EQ(qvd.i32(extra + 8), 1) << "type: second texture coordinate";
  EXPECT_EQ(qvd.i32(extra + 16), 8) << "bytes per vertex";
  size_t data = extra + static_cast<size_t>(qvd.i32(extra + 12));
  EXPECT_EQ(qvd.f32(data), 0.0f) << "vertex 0 has none";
  EXPECT_EQ(qvd.f32(data + 8), 0.5f);
  EXPECT_EQ(qvd.f32(data + 12), 0.75f);
  EXPECT_EQ(qvd.f32(data + 28), 1.0f);
  EXPECT_EQ(qvd.size(), data + 4 * 8);
}

}  // namespace
}  // namespace zv::mdlforge
