// A strip vertex finds its vertex at: mesh vertex offset + sub-model vertex index / 48 +
// the strip vertex's mesh vertex index. Walked here through the three files for a model
// of several body parts, sub-models and meshes, and compared with the description.

#include <gtest/gtest.h>

#include "forge_check.h"

namespace zv::mdlforge {
namespace {

using check::Bytes;
using check::forge;

// Every vertex gets a unique position (body part, sub-model, mesh*10 + vertex), and strip
// groups use the vertices in a scrambled order, so no wrong index can read a right value.
Description scrambledModel() {
  Description d;
  const size_t meshCounts[2][2] = {{2, 1}, {3, 0}};
  for (size_t b = 0; b < 2; ++b) {
    BodyPart part{"part" + std::to_string(b), {}, {}};
    for (size_t m = 0; m < 2; ++m) {
      SubModel model{"model" + std::to_string(m), {}};
      for (size_t k = 0; k < meshCounts[b][m]; ++k) {
        Mesh mesh;
        size_t count = 3 + k + b;
        for (size_t i = 0; i < count; ++i) {
          Vertex v;
          v.position = {float(b), float(m), float(k * 10 + i)};
          mesh.vertices.push_back(v);
        }
        StripGroup group;
        for (size_t i = 0; i < count; ++i)
          group.vertices.push_back(static_cast<uint16_t>((i * 2 + 1) % count));
        group.strips = {Strip{{0, 1, 2}}};
        StripGroup coarse;
        coarse.vertices = {static_cast<uint16_t>(count - 1), 0};
        mesh.lods = {{group}, {coarse}};
        model.meshes.push_back(mesh);
      }
      part.models.push_back(model);
    }
    d.bodyParts.push_back(part);
  }
  return d;
}

// The vertex array in mesh order, with the fixups applied when there are any.
std::vector<Vector3> resolvedPositions(const Bytes& qvd) {
  size_t vertices = static_cast<size_t>(qvd.i32(56));
  std::vector<size_t> order;
  if (qvd.i32(48) == 0) {
    for (int32_t i = 0; i < qvd.i32(16); ++i) order.push_back(static_cast<size_t>(i));
  }
  for (int32_t f = 0; f < qvd.i32(48); ++f) {
    size_t entry = static_cast<size_t>(qvd.i32(52)) + 12 * static_cast<size_t>(f);
    for (int32_t i = 0; i < qvd.i32(entry + 8); ++i)
      order.push_back(static_cast<size_t>(qvd.i32(entry + 4) + i));
  }
  std::vector<Vector3> out;
  for (size_t i : order) {
    size_t at = vertices + 48 * i + 16;
    out.push_back({qvd.f32(at), qvd.f32(at + 4), qvd.f32(at + 8)});
  }
  return out;
}

// Walks every strip vertex of LOD lod and checks the vertex that the relation finds.
void checkEveryStripVertex(const ModelFiles& files, const Description& d, size_t lod) {
  Bytes mdl(files.mdl), vtx(*files.vtx), qvd(*files.qvd);
  std::vector<Vector3> positions = resolvedPositions(qvd);
  size_t checked = 0;
  size_t mdlPart = static_cast<size_t>(mdl.i32(236));
  size_t vtxPart = static_cast<size_t>(vtx.i32(32));
  for (size_t b = 0; b < static_cast<size_t>(mdl.i32(232)); ++b, mdlPart += 16, vtxPart += 8) {
    size_t mdlModel = mdl.follow(mdlPart, 12);
    size_t vtxModel = vtx.follow(vtxPart, 4);
    for (int32_t m = 0; m < mdl.i32(mdlPart + 4); ++m, mdlModel += 148, vtxModel += 8) {
      size_t mdlMesh = mdl.follow(mdlModel, 76);
      size_t vtxMesh = vtx.follow(vtx.follow(vtxModel, 4) + 12 * lod, 4);
      for (int32_t k = 0; k < mdl.i32(mdlModel + 72); ++k, mdlMesh += 116, vtxMesh += 9) {
        size_t group = vtx.follow(vtxMesh, 4);
        ASSERT_EQ(vtx.i32(vtxMesh), 1);
        size_t stripVertex = vtx.follow(group, 4);
        for (int32_t s = 0; s < vtx.i32(group); ++s, stripVertex += 9) {
          uint16_t meshVertex = vtx.at<uint16_t>(stripVertex + 4);
          size_t index =
              static_cast<size_t>(mdl.i32(mdlMesh + 12) + mdl.i32(mdlModel + 84) / 48 + meshVertex);
          ASSERT_LT(index, positions.size());
          const Mesh& mesh = d.bodyParts[b].models[static_cast<size_t>(m)].meshes[static_cast<size_t>(k)];
          EXPECT_EQ(positions[index], mesh.vertices[meshVertex].position) << b << " " << m << " " << k;
          ++checked;
        }
      }
    }
  }
  EXPECT_GT(checked, 10u);
}

TEST(VertexIndex, EveryStripVertexFindsItsVertexThroughTheThreeFiles) {
  Description d = scrambledModel();
  ModelFiles files = forge(d);
  checkEveryStripVertex(files, d, 0);
  checkEveryStripVertex(files, d, 1);
}

TEST(VertexIndex, HoldsAfterFixupsAreResolved) {
  Description d = scrambledModel();
  d.vertexFile.fixupMode = FixupMode::Auto;
  ModelFiles files = forge(d);
  EXPECT_GT(Bytes(*files.qvd).i32(48), 1) << "the model needs several fixups to be a real check";
  checkEveryStripVertex(files, d, 0);
  checkEveryStripVertex(files, d, 1);
}

TEST(Determinism, TheSameDescriptionGivesTheSameBytes) {
  Description d = scrambledModel();
  d.vertexFile.fixupMode = FixupMode::Auto;
  d.bones.resize(2);
  d.bones[1].position = {1, 2, 3};  // a derived pose-to-bone matrix
  d.sequences.resize(2);
  d.textures = {"a", "b"};
  ModelFiles first = forge(d);
  ModelFiles second = forge(d);
  EXPECT_EQ(first.mdl, second.mdl);
  EXPECT_EQ(first.qvd, second.qvd);
  EXPECT_EQ(first.vtx, second.vtx);
  EXPECT_EQ(first.where.mdl.all(), second.where.mdl.all());
}

}  // namespace
}  // namespace zv::mdlforge
