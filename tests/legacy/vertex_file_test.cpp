#include "legacy/qvd.h"

#include <gtest/gtest.h>

#include "legacy/family.h"
#include "support/model_fixtures.h"

namespace zv::legacy {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::familyFiles;
using zv::testing::vertexAt;

// A model whose one mesh has six vertices told apart by their x coordinate (0..5).
mdlforge::Description sixVertexModel() {
  mdlforge::Description d = crateModel();
  mdlforge::Mesh& mesh = d.bodyParts[0].models[0].meshes[0];
  for (size_t i = 0; i < mesh.vertices.size(); ++i) {
    mesh.vertices[i] = vertexAt(float(i), 0, 0);
    mesh.vertices[i].tangent = {0, 0, 1, float(i)};
    mesh.vertices[i].uv2 = Vector2{float(i), -1};
  }
  return d;
}

std::vector<float> xs(const VertexFile& file) {
  std::vector<float> out;
  for (const StudioVertex& v : file.vertices()) out.push_back(v.position.x);
  return out;
}

TEST(VertexFixups, RangesOfEveryLodAreConcatenatedInTableOrder) {
  mdlforge::Description d = sixVertexModel();
  d.vertexFile.fixupMode = mdlforge::FixupMode::Explicit;
  d.vertexFile.storedOrder = {5, 4, 3, 2, 1, 0};  // stored position i holds mesh vertex 5 - i
  d.vertexFile.fixups = {{0, 4, 2}, {2, 0, 1}, {1, 1, 3}};
  auto files = buildFiles(d);
  ByteView source(*files.qvd);
  ASSERT_TRUE(validateVertexFile("x.qvd", source));

  std::vector<uint8_t> copy(files.qvd->size(), 0xEE);
  EXPECT_EQ(ResolveVertexFixups(source, copy), 6);
  VertexFileHeader h = *readVertexFileHeader(ByteView(copy));
  EXPECT_EQ(h.fixupCount, 0);
  EXPECT_EQ(h.tangentOffset, h.vertexOffset + 48 * 6);

  VertexFile resolved = VertexFile::resolve(source);
  // Stored positions 4,5 then 0 then 1,2,3 hold mesh vertices 1,0,5,4,3,2.
  EXPECT_EQ(xs(resolved), (std::vector<float>{1, 0, 5, 4, 3, 2}));
  ASSERT_EQ(resolved.tangents().size(), 6u);
  EXPECT_EQ(resolved.tangents()[2].w, 5.0f);
  // The second texture coordinates follow the same ranges.
  ASSERT_EQ(resolved.extraUvs().size(), 6u);
  EXPECT_EQ(resolved.extraUvs()[0].x, 1.0f);
  EXPECT_EQ(resolved.extraUvs()[2].x, 5.0f);
}

TEST(VertexFixups, WithoutFixupsVerticesAndTangentsAreCopiedUnchanged) {
  mdlforge::Description d = sixVertexModel();
  auto files = buildFiles(d);
  ByteView source(*files.qvd);
  VertexFileHeader original = *readVertexFileHeader(source);
  std::vector<uint8_t> copy(files.qvd->size());
  EXPECT_EQ(ResolveVertexFixups(source, copy), 6);
  size_t vertexBytes = 48 * 6, tangentBytes = 16 * 6;
  EXPECT_TRUE(std::equal(copy.begin() + original.vertexOffset, copy.begin() + original.vertexOffset + vertexBytes,
                         files.qvd->begin() + original.vertexOffset));
  // The tangent array directly follows the vertex array in the copy.
  VertexFileHeader h = *readVertexFileHeader(ByteView(copy));
  EXPECT_EQ(h.tangentOffset, original.vertexOffset + int32_t(vertexBytes));
  EXPECT_TRUE(std::equal(copy.begin() + h.tangentOffset, copy.begin() + h.tangentOffset + tangentBytes,
                         files.qvd->begin() + original.tangentOffset));
}

TEST(VertexFixups, NegativeLodRangesAndNegativeCountsAddNothing) {
  mdlforge::Description d = sixVertexModel();
  d.vertexFile.fixupMode = mdlforge::FixupMode::Explicit;
  d.vertexFile.fixups = {{0, 0, 3}, {-1, 3, 3}};
  auto files = buildFiles(d);
  EXPECT_EQ(xs(VertexFile::resolve(ByteView(*files.qvd))), (std::vector<float>{0, 1, 2}));

  std::vector<uint8_t> bytes = *files.qvd;
  int32_t negative = -2;
  std::memcpy(bytes.data() + 48, &negative, 4);
  EXPECT_TRUE(VertexFile::resolve(ByteView(bytes)).vertices().empty());
}

TEST(VertexFixups, TheBuildersAutomaticFixupsResolveToMeshOrder) {
  mdlforge::Description d = sixVertexModel();
  mdlforge::Mesh& mesh = d.bodyParts[0].models[0].meshes[0];
  mesh.lods.push_back({mdlforge::triangleGroup(3, {0, 1, 2})});  // LOD 1 uses only vertices 0..2
  d.vertexFile.fixupMode = mdlforge::FixupMode::Auto;
  auto files = buildFiles(d);
  ASSERT_GT(readVertexFileHeader(ByteView(*files.qvd))->fixupCount, 1);
  auto model = loadModelFamily(familyFiles(files));
  ASSERT_TRUE(model) << model.message();
  EXPECT_EQ(xs(*model->vertices), (std::vector<float>{0, 1, 2, 3, 4, 5}));
}

TEST(VertexFixups, AFileWithoutTangentsSaysSo) {
  mdlforge::Description d = sixVertexModel();
  d.vertexFile.tangents = false;
  auto files = buildFiles(d);
  // Vertices end the file: no room for tangents is needed when there are none.
  EXPECT_TRUE(validateVertexFile("x.qvd", ByteView(*files.qvd)));
  VertexFile resolved = VertexFile::resolve(ByteView(*files.qvd));
  EXPECT_EQ(resolved.vertices().size(), 6u);
  EXPECT_FALSE(resolved.hasTangents());
  EXPECT_EQ(resolved.header().tangentOffset, 0);
}

TEST(VertexFileChecks, RangesThatLeaveTheFileAreRefused) {
  auto files = buildFiles(crateModel());  // tangents end the file: no extra data after them
  auto patched = [&](size_t field, int32_t value) {
    std::vector<uint8_t> bytes = *files.qvd;
    std::memcpy(bytes.data() + field, &value, 4);
    return validateVertexFile("x.qvd", ByteView(bytes));
  };
  EXPECT_TRUE(patched(16, 6));
  EXPECT_FALSE(patched(16, 7));            // one vertex more than stored
  EXPECT_FALSE(patched(16, -1));           // negative count
  EXPECT_FALSE(patched(56, 1 << 30));      // vertex data past the end
  EXPECT_FALSE(patched(56, 8));            // vertex data inside the header
  EXPECT_FALSE(patched(60, 1 << 30));      // tangents past the end
  EXPECT_FALSE(patched(48, 1 << 20));      // fixup table past the end
  Status message = patched(56, 1 << 30);
  EXPECT_NE(message.message().find("x.qvd: vertex array"), std::string::npos) << message.message();
  EXPECT_FALSE(validateVertexFile("x.qvd", ByteView(files.qvd->data(), 40)));
}

TEST(VertexFileChecks, FixupRangesMustLieInsideTheStoredVertices) {
  for (mdlforge::Fixup bad : {mdlforge::Fixup{0, 5, 2}, mdlforge::Fixup{0, -1, 1}, mdlforge::Fixup{0, 0, -1}}) {
    mdlforge::Description d = sixVertexModel();
    d.vertexFile.fixupMode = mdlforge::FixupMode::Explicit;
    d.vertexFile.fixups = {bad};
    auto files = buildFiles(d);
    EXPECT_FALSE(validateVertexFile("x.qvd", ByteView(*files.qvd))) << bad.source << "+" << bad.count;
  }
  mdlforge::Description tooMany = sixVertexModel();
  tooMany.vertexFile.fixupMode = mdlforge::FixupMode::Explicit;
  tooMany.vertexFile.fixups = {{0, 0, 6}, {1, 0, 6}};  // twelve vertices into room for six
  auto files = buildFiles(tooMany);
  Status status = validateVertexFile("x.qvd", ByteView(*files.qvd));
  ASSERT_FALSE(status);
  EXPECT_NE(status.message().find("more than the"), std::string::npos);
}

}  // namespace
}  // namespace zv::legacy
