#include "legacy/qvd.h"

#include <gtest/gtest.h>

#include <tuple>

#include "legacy/family.h"
#include "mdlforge/byte_writer.h"
#include "support/model_fixtures.h"

namespace zv::legacy {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
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
  d.vertexFile.fixups = {{0, 4, 2}, {2, 0, 1}, {-1, 0, 6}, {1, 1, 3}};  // ranges below LOD 0 add nothing
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
  // Tangents and second texture coordinates (w and u = the mesh vertex) follow the same ranges.
  std::vector<float> tangentWs, extraUs;
  for (const Vector4& t : resolved.tangents()) tangentWs.push_back(t.w);
  for (const Vector2& uv : resolved.extraUvs()) extraUs.push_back(uv.x);
  EXPECT_EQ(tangentWs, xs(resolved));
  EXPECT_EQ(extraUs, xs(resolved));
  // A negative fixup count resolves to nothing rather than to a huge copy.
  mdlforge::poke<int32_t>(*files.qvd, 48, -2);
  EXPECT_TRUE(VertexFile::resolve(ByteView(*files.qvd)).vertices().empty());
}

TEST(VertexFixups, WithoutFixupsVerticesAndTangentsAreCopiedUnchanged) {
  auto files = buildFiles(sixVertexModel());
  const std::vector<uint8_t>& source = *files.qvd;
  VertexFileHeader original = *readVertexFileHeader(ByteView(source));
  std::vector<uint8_t> copy(source.size());
  EXPECT_EQ(ResolveVertexFixups(ByteView(source), copy), 6);
  // The tangent array directly follows the vertex array in the copy.
  VertexFileHeader h = *readVertexFileHeader(ByteView(copy));
  ASSERT_EQ(h.tangentOffset, original.vertexOffset + 48 * 6);
  auto bytes = [](const std::vector<uint8_t>& file, int32_t at, size_t n) {
    return std::vector<uint8_t>(file.begin() + at, file.begin() + at + ptrdiff_t(n));
  };
  EXPECT_EQ(bytes(copy, h.vertexOffset, 48 * 6), bytes(source, original.vertexOffset, 48 * 6));
  EXPECT_EQ(bytes(copy, h.tangentOffset, 16 * 6), bytes(source, original.tangentOffset, 16 * 6));
}

TEST(VertexFixups, EmptyRangesCopyNothingWhateverTheOffsets) {
  // No stored vertices, so no table offset is checked: a wild tangent offset and an empty
  // fixup range must still resolve without touching memory outside the file.
  mdlforge::Description d = sixVertexModel();
  d.vertexFile.fixupMode = mdlforge::FixupMode::Explicit;
  d.vertexFile.fixups = {{0, 0, 0}};
  std::vector<uint8_t> bytes = *buildFiles(d).qvd;
  mdlforge::poke<int32_t>(bytes, 16, 0);
  mdlforge::poke<int32_t>(bytes, 60, -100000000);
  ASSERT_TRUE(validateVertexFile("x.qvd", ByteView(bytes)));
  EXPECT_TRUE(VertexFile::resolve(ByteView(bytes)).vertices().empty());
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
    mdlforge::poke<int32_t>(bytes, field, value);
    return validateVertexFile("x.qvd", ByteView(bytes));
  };
  EXPECT_TRUE(patched(16, 6));
  const std::tuple<size_t, int32_t, const char*> cases[] = {
      {16, 7, "x.qvd: tangent array (7 x 16 bytes) at offset 352 leaves the file"},
      {16, -1, "x.qvd: vertex array has an invalid count -1"},
      {56, 1 << 30, "x.qvd: vertex array (6 x 48 bytes) at offset 1073741824 leaves the file"},
      {56, 8, "x.qvd: vertex data offset 8 lies inside the header"},
      {60, 1 << 30, "x.qvd: tangent array (6 x 16 bytes) at offset 1073741824 leaves the file"},
      {48, 1 << 20, "x.qvd: fixup table (1048576 x 12 bytes) at offset 64 leaves the file"},
  };
  for (auto [field, value, expected] : cases) {
    Status status = patched(field, value);
    ASSERT_FALSE(status) << field << " = " << value;
    EXPECT_NE(status.message().find(expected), std::string::npos) << status.message();
  }
  EXPECT_FALSE(validateVertexFile("x.qvd", ByteView(files.qvd->data(), 40)));
}

TEST(VertexFileChecks, FixupRangesMustLieInsideTheStoredVertices) {
  const std::pair<std::vector<mdlforge::Fixup>, const char*> cases[] = {
      {{{0, 5, 2}}, "vertices 5+2 lie outside the 6 stored"},
      {{{0, -1, 1}}, "vertices -1+1 lie outside"},
      {{{0, 0, -1}}, "vertices 0+-1 lie outside"},
      {{{0, 0, 6}, {1, 0, 6}}, "resolves to 12 vertices, more than the 6 stored"},
  };
  for (const auto& [fixups, expected] : cases) {
    mdlforge::Description d = sixVertexModel();
    d.vertexFile.fixupMode = mdlforge::FixupMode::Explicit;
    d.vertexFile.fixups = fixups;
    Status status = validateVertexFile("x.qvd", ByteView(*buildFiles(d).qvd));
    ASSERT_FALSE(status) << expected;
    EXPECT_NE(status.message().find(expected), std::string::npos) << status.message();
  }
}

}  // namespace
}  // namespace zv::legacy
