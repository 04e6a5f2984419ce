// The collision file reader: both solid forms, tree walk, units and axes, the text
// section, broken files, and the real models beside the project.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>

#include "legacy/phy.h"
#include "mdlforge/byte_writer.h"
#include "mdlforge/physics.h"
#include "support/test_support.h"

namespace zv::legacy {
namespace {

using mdlforge::boxPiece;
using mdlforge::placeKey;

constexpr int32_t kChecksum = 0x1234abcd;

mdlforge::PhysicsFile buildPhy(const mdlforge::PhysicsDescription& d) {
  auto file = mdlforge::buildPhysics(d, kChecksum);
  if (!file) throw std::runtime_error(file.message());
  return std::move(file.value());
}

Result<PhyFile> parseBytes(const std::vector<uint8_t>& bytes) {
  return PhyFile::parse("props/box.phy", ByteView(bytes));
}

// A ragdoll-like file: a one-piece solid with its header, a three-piece solid without it
// (with wrapping hulls on the inner tree nodes), constraints and every kind of block.
mdlforge::PhysicsDescription ragdoll() {
  mdlforge::PhysicsDescription d;
  mdlforge::PhysicsSolid pelvis;
  pelvis.pieces = {boxPiece({-4, -4, -2}, {4, 4, 2}, 0)};
  pelvis.keys = {{"name", "pelvis"}, {"mass", "12.5"}, {"surfaceprop", "flesh"}, {"damping", "0.1"}};
  mdlforge::PhysicsSolid arm;
  arm.solidHeader = false;
  arm.subtreeHulls = true;
  arm.pieces = {boxPiece({0, 0, 0}, {1, 1, 1}, 1), boxPiece({2, 0, 0}, {3, 1, 1}, 2),
                boxPiece({4, 0, 0}, {5, 1, 1}, 3)};
  arm.keys = {{"name", "arm"}, {"parent", "pelvis"}, {"rotdamping", "2"}, {"inertia", "3"}};
  d.solids = {pelvis, arm};
  d.constraints = {{0, 1, {-10, -20, -30}, {10, 20, 30}, {1, 2, 3}}};
  d.blocks = {
      {"collisionrules", {{"selfcollisions", "0"}, {"collisionpair", "0,1"}}},
      {"editparams", {{"rootname", "pelvis"}, {"totalmass", "40"}, {"concave", "1"}, {"jointmerge", "a,b"}}},
      {"break", {{"model", "props\\gibs\\box01"}, {"health", "5"}}},
      {"break", {{"ragdoll", "props\\gibs\\box02"}, {"burst", "0.5"}}}};
  return d;
}

void expectNear(const Vector3& a, const Vector3& b) {
  EXPECT_NEAR(a.x, b.x, 1e-3f);
  EXPECT_NEAR(a.y, b.y, 1e-3f);
  EXPECT_NEAR(a.z, b.z, 1e-3f);
}

// Ledges found by walking the ledge headers back to back, as an independent count of
// what the reader finds through the tree: pieces, and wrapping hulls (has-children set).
struct LedgeCount {
  size_t pieces = 0;
  size_t hulls = 0;
  friend bool operator==(const LedgeCount&, const LedgeCount&) = default;
};

LedgeCount flatWalkLedges(const std::vector<uint8_t>& bytes) {
  ByteView v(bytes);
  LedgeCount count;
  size_t position = size_t(v.readOr<int32_t>(0, 0));
  int32_t solids = v.readOr<int32_t>(8, 0);
  for (int32_t s = 0; s < solids; ++s) {
    size_t start = position + 4;
    size_t surface = v.readOr<uint32_t>(start, 0) == 0x59485056u /* "VPHY" */ ? start + 28 : start;
    size_t ledge = surface + 48;
    size_t points = ledge + size_t(v.readOr<int32_t>(ledge, 0));
    for (int guard = 0; ledge < points && guard < 100000; ++guard) {
      ++((v.readOr<uint32_t>(ledge + 8, 0) & 3u) == 0 ? count.pieces : count.hulls);
      ledge += 16 + 16 * size_t(v.readOr<int16_t>(ledge + 12, 0));
    }
    position = start + size_t(v.readOr<int32_t>(position, 0));
  }
  return count;
}

TEST(PhyFile, DecodesBothSolidFormsAndEveryPieceOfTheTree) {
  mdlforge::PhysicsDescription d = ragdoll();
  auto file = buildPhy(d);
  // Written as the compiler lays them out: the flat ledge list also holds the two hulls.
  ASSERT_EQ(flatWalkLedges(file.bytes), (LedgeCount{4, 2}));
  auto phy = parseBytes(file.bytes);
  ASSERT_TRUE(phy) << phy.message();
  EXPECT_EQ(phy->checksum, kChecksum);
  ASSERT_EQ(phy->solids.size(), 2u);
  EXPECT_TRUE(phy->solids[0].hasSolidHeader);
  EXPECT_FALSE(phy->solids[1].hasSolidHeader);
  // The wrapping hulls of the inner nodes are not pieces; pieces come in tree order.
  ASSERT_EQ(phy->solids[1].pieces.size(), 3u);
  for (size_t s = 0; s < 2; ++s) {
    for (size_t p = 0; p < phy->solids[s].pieces.size(); ++p) {
      const PhyPiece& got = phy->solids[s].pieces[p];
      const mdlforge::PhysicsPiece& want = d.solids[s].pieces[p];
      EXPECT_EQ(got.bone, want.bone);
      ASSERT_EQ(got.points.size(), want.points.size());
      ASSERT_EQ(got.triangles.size(), want.triangles.size());
      // Points are numbered by first use, so compare corners by position.
      for (size_t t = 0; t < got.triangles.size(); ++t) {
        for (size_t k = 0; k < 3; ++k)
          expectNear(got.points[size_t(got.triangles[t][k])], want.points[want.triangles[t][k]]);
      }
    }
  }
}

TEST(PhyFile, ConvertsMetresAndAxesIntoModelSpace) {
  // Model (x, y, z) inches is collision (x, -z, y) metres: check the stored floats too, so
  // that the builder and the reader cannot agree on a wrong mapping.
  mdlforge::PhysicsDescription d;
  mdlforge::PhysicsPiece piece;
  piece.points = {{39.3700787f, 78.7401574f, 118.1102362f}, {0, 0, 0}, {0, 39.3700787f, 0}};
  piece.triangles = {{0, 1, 2}};
  d.solids = {{{piece}, true, false, {}}};
  auto file = buildPhy(d);
  size_t points = file.where.at(placeKey("points", {0}));
  float stored[3];
  std::memcpy(stored, file.bytes.data() + points, sizeof stored);
  EXPECT_NEAR(stored[0], 1.0f, 1e-6f);
  EXPECT_NEAR(stored[1], -3.0f, 1e-6f);
  EXPECT_NEAR(stored[2], 2.0f, 1e-6f);
  auto phy = parseBytes(file.bytes);
  ASSERT_TRUE(phy) << phy.message();
  expectNear(phy->solids[0].pieces[0].points[0], {39.3700787f, 78.7401574f, 118.1102362f});
  EXPECT_EQ(phy->solids[0].pieces[0].bone, -1);  // client data 0 names no bone
}

TEST(PhyFile, ReadsTheTextSection) {
  auto phy = parseBytes(buildPhy(ragdoll()).bytes);
  ASSERT_TRUE(phy) << phy.message();
  const PhySolidKeys& pelvis = phy->solids[0].keys;
  EXPECT_EQ(pelvis.name, "pelvis");
  EXPECT_EQ(pelvis.surfaceProp, "flesh");
  EXPECT_FLOAT_EQ(pelvis.mass, 12.5f);
  EXPECT_FLOAT_EQ(pelvis.damping, 0.1f);
  EXPECT_FLOAT_EQ(pelvis.inertia, 1.0f);  // absent: the default
  const PhySolidKeys& arm = phy->solids[1].keys;
  EXPECT_EQ(arm.parent, "pelvis");
  EXPECT_FLOAT_EQ(arm.rotDamping, 2.0f);
  EXPECT_FLOAT_EQ(arm.inertia, 3.0f);

  ASSERT_EQ(phy->constraints.size(), 1u);
  const RagdollConstraint& c = phy->constraints[0];
  EXPECT_EQ(c.child, 1);
  EXPECT_EQ(c.min, (std::array<float, 3>{-10, -20, -30}));
  EXPECT_EQ(c.max, (std::array<float, 3>{10, 20, 30}));
  EXPECT_EQ(c.friction, (std::array<float, 3>{1, 2, 3}));

  EXPECT_FALSE(phy->collisionRules.selfCollisions);
  EXPECT_EQ(phy->collisionRules.pairs, (std::vector<std::pair<int32_t, int32_t>>{{0, 1}}));
  EXPECT_EQ(phy->editParams.jointMerges, (std::vector<std::pair<std::string, std::string>>{{"a", "b"}}));

  ASSERT_EQ(phy->breaks.size(), 2u);
  // Back-slashes in model paths survive: the text is read without escapes.
  EXPECT_EQ(phy->breaks[0].getString("model"), "props\\gibs\\box01");
  EXPECT_EQ(phy->breaks[1].getString("ragdoll"), "props\\gibs\\box02");
  EXPECT_TRUE(phy->notes.empty());
}

TEST(PhyFile, TextForMissingSolidsIsNotedAndBrokenTextRefused) {
  mdlforge::PhysicsDescription d;
  d.solids = {{{boxPiece({0, 0, 0}, {1, 1, 1})}, true, false, {}}};
  d.text = "solid {\n\"index\" \"4\"\n\"mass\" \"3\"\n}\n";
  auto phy = parseBytes(buildPhy(d).bytes);
  ASSERT_TRUE(phy) << phy.message();
  ASSERT_EQ(phy->notes.size(), 1u);
  EXPECT_NE(phy->notes[0].find("solid 4"), std::string::npos);
  EXPECT_FLOAT_EQ(phy->solids[0].keys.mass, 0.0f);

  d.text = "solid { \"index\" \"0\"";  // unterminated block
  phy = parseBytes(buildPhy(d).bytes);
  ASSERT_FALSE(phy);
  EXPECT_NE(phy.message().find("text section"), std::string::npos) << phy.message();
}

TEST(PhyFile, EveryPrefixOfTheSolidsFailsCleanly) {
  auto file = buildPhy(ragdoll());
  size_t text = file.where.at("text");
  for (size_t size = 0; size < file.bytes.size(); ++size) {
    // Each prefix in its own allocation, so the sanitizers see the exact end.
    std::vector<uint8_t> cut(file.bytes.begin(), file.bytes.begin() + ptrdiff_t(size));
    auto phy = parseBytes(cut);
    // Cut inside the text, the solids are whole and the text may still read.
    if (size < text) {
      EXPECT_FALSE(phy) << size;
    }
  }
}

struct Patch {
  const char* what;
  std::string key;  // place in the file; "" = file start
  size_t field;
  int32_t value;
  const char* expected;  // part of the message
};

TEST(PhyFile, BrokenFieldsAreRefusedWithTheirPlace) {
  auto file = buildPhy(ragdoll());
  int32_t size = int32_t(file.bytes.size());
  // Solid 1 has no solid header; its tree is root, leaf, inner node, leaf, leaf.
  std::string lastLeaf = placeKey("node", {1, 4});
  int32_t firstLedge =
      int32_t(int64_t(file.where.at(placeKey("ledge", {1, 0}))) - int64_t(file.where.at(lastLeaf)));
  const Patch patches[] = {
      {"short header size", "", 0, 8, "header size 8"},
      {"header past the end", "", 0, size + 1, "header size"},
      {"negative solid count", "", 8, -1, "solid count -1"},
      {"huge solid count", "", 8, 1 << 30, "solid count"},
      {"solid size past the end", placeKey("solid", {1}), 0, size, "solid 1 has size"},
      {"negative solid size", placeKey("solid", {1}), 0, -4, "solid 1 has size -4"},
      {"other surface type", placeKey("solid", {0}), 4 + 6, 1, "surface type 1"},
      {"root outside the solid", placeKey("surface", {1}), 32, size, "root offset"},
      {"root before the solid", placeKey("surface", {1}), 32, -size, "root offset"},
      {"right child pointing back", placeKey("node", {1, 0}), 0, -28, "right-child offset -28"},
      {"right child on itself", placeKey("node", {1, 0}), 0, 28, "right-child offset 28"},
      {"right child outside", placeKey("node", {1, 0}), 0, size, "right child outside"},
      {"leaf outside the solid", placeKey("node", {1, 1}), 4, size, "names a ledge outside"},
      {"leaf naming a taken ledge", lastLeaf, 4, firstLedge, "named twice"},
      {"negative triangle count", placeKey("ledge", {1, 0}), 12, 0xffff, "-1 triangles"},
      {"huge triangle count", placeKey("ledge", {1, 0}), 12, 0x7fff, "32767 triangles"},
      {"no triangles", placeKey("ledge", {1, 0}), 12, 0, "0 triangles"},
      {"point array outside", placeKey("ledge", {1, 0}), 0, size, "point array outside"},
      {"point index out of range", placeKey("ledge", {1, 0}), 16 + 4, 0xfff0, "names point 65520"},
  };
  for (const Patch& p : patches) {
    std::vector<uint8_t> bytes = file.bytes;
    mdlforge::poke<int32_t>(bytes, (p.key.empty() ? 0 : file.where.at(p.key)) + p.field, p.value);
    auto phy = parseBytes(bytes);
    ASSERT_FALSE(phy) << p.what;
    EXPECT_NE(phy.message().find(p.expected), std::string::npos) << p.what << ": " << phy.message();
    EXPECT_EQ(phy.message().rfind("props/box.phy: ", 0), 0u) << phy.message();
  }
}

// The real models: every collision file reads, with the pieces that the flat walk finds.
TEST(PhyFile, RealCollisionFilesReadWithEveryPiece) {
  std::filesystem::path models = zv::testing::sharedDir() / "corpus" / "models";
  if (zv::testing::sharedDir().empty() || !std::filesystem::is_directory(models)) GTEST_SKIP() << "no corpus";
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(models)) {
    if (entry.path().extension() != ".phy") continue;
    ++files;
    std::vector<uint8_t> bytes = zv::testing::readBytes(entry.path());
    auto phy = PhyFile::parse(entry.path().string(), ByteView(bytes));
    ASSERT_TRUE(phy) << phy.message();
    size_t pieces = 0;
    for (const PhySolid& solid : phy->solids) pieces += solid.pieces.size();
    EXPECT_EQ(pieces, flatWalkLedges(bytes).pieces) << entry.path();
    EXPECT_GT(pieces, 0u) << entry.path();
    std::vector<uint8_t> mdl =
        zv::testing::readBytes(std::filesystem::path(entry.path()).replace_extension(".mdl"));
    EXPECT_EQ(phy->checksum, ByteView(mdl).readOr<int32_t>(8, 0)) << entry.path();
  }
  EXPECT_GT(files, 0);
}

}  // namespace
}  // namespace zv::legacy
