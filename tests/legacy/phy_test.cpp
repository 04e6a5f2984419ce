// The collision file reader: both solid forms, tree walk, units and axes, the text
// section, broken files, and the real models beside the project.

#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

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
  pelvis.pieces = {boxPiece({-4, -3, -2}, {4, 3, 2}, 0)};
  pelvis.keys = {{"name", "pelvis"}, {"mass", "12.5"}, {"surfaceprop", "flesh"}, {"damping", "0.1"}};
  mdlforge::PhysicsSolid arm;
  arm.solidHeader = false;
  arm.subtreeHulls = true;
  arm.pieces = {boxPiece({0, 0, 0}, {1, 1, 1}, 1), boxPiece({2, 0, 0}, {3, 1, 1}, 2),
                boxPiece({4, 0, 0}, {5, 1, 1})};  // no bone
  arm.keys = {{"name", "arm"}, {"parent", "pelvis"}, {"rotdamping", "2"}, {"inertia", "3"}};
  d.solids = {pelvis, arm};
  d.constraints = {{0, 1, {-10, -20, -30}, {10, 20, 30}, {1, 2, 3}}};
  d.blocks = {
      {"collisionrules", {{"selfcollisions", "0"}, {"collisionpair", "0,1"}}},
      {"editparams", {{"rootname", "pelvis"}, {"totalmass", "40"}, {"concave", "1"}, {"jointmerge", "a,b"}}},
      {"break", {{"model", "props\\gibs\\box01"}, {"health", "5"}}},
      {"break", {{"ragdoll", "props\\gibs\\box02"}, {"burst", "0.5"}}},
      {"solid", {{"index", "4"}, {"mass", "3"}}}};  // names a solid the file does not have
  return d;
}

// Ledges found by walking the ledge headers back to back, as an independent count of
// what the reader finds through the tree: pieces, and wrapping hulls (has-children set).
std::pair<size_t, size_t> flatWalkLedges(const std::vector<uint8_t>& bytes) {
  ByteView v(bytes);
  std::pair<size_t, size_t> count;  // pieces, hulls
  size_t position = size_t(v.readOr<int32_t>(0, 0));
  int32_t solids = v.readOr<int32_t>(8, 0);
  for (int32_t s = 0; s < solids; ++s) {
    size_t start = position + 4;
    size_t surface = v.readOr<uint32_t>(start, 0) == 0x59485056u /* "VPHY" */ ? start + 28 : start;
    size_t ledge = surface + 48;
    size_t points = ledge + size_t(v.readOr<int32_t>(ledge, 0));
    for (int guard = 0; ledge < points && guard < 100000; ++guard) {
      ++((v.readOr<uint32_t>(ledge + 8, 0) & 3u) == 0 ? count.first : count.second);
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
  ASSERT_EQ(flatWalkLedges(file.bytes), std::make_pair(size_t(4), size_t(2)));
  // Model (x, y, z) inches is stored as collision (x, -z, y) metres: checked on the stored
  // floats, so that the builder and the reader cannot agree on a wrong mapping.
  Vector3 stored = ByteView(file.bytes).readOr<Vector3>(file.where.at(placeKey("points", {0})), {});
  EXPECT_LT(length(stored - Vector3{-4, 2, -3} * 0.0254f), 1e-6f);
  auto phy = parseBytes(file.bytes);
  ASSERT_TRUE(phy) << phy.message();
  EXPECT_EQ(phy->checksum, kChecksum);
  ASSERT_EQ(phy->solids.size(), 2u);
  EXPECT_EQ(std::pair(phy->solids[0].hasSolidHeader, phy->solids[1].hasSolidHeader), std::pair(true, false));
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
          EXPECT_LT(length(got.points[size_t(got.triangles[t][k])] - want.points[want.triangles[t][k]]),
                    1e-3f);
      }
    }
  }
}

TEST(PhyFile, ReadsTheTextSection) {
  auto phy = parseBytes(buildPhy(ragdoll()).bytes);
  ASSERT_TRUE(phy) << phy.message();
  const PhySolidKeys& pelvis = phy->solids[0].keys;
  const PhySolidKeys& arm = phy->solids[1].keys;
  EXPECT_EQ((std::vector<std::string>{pelvis.name, pelvis.surfaceProp, arm.parent}),
            (std::vector<std::string>{"pelvis", "flesh", "pelvis"}));
  // Absent numbers keep their defaults (inertia 1).
  EXPECT_EQ((std::vector<float>{pelvis.mass, pelvis.damping, pelvis.inertia, arm.rotDamping, arm.inertia}),
            (std::vector<float>{12.5f, 0.1f, 1, 2, 3}));
  ASSERT_EQ(phy->constraints.size(), 1u);
  const RagdollConstraint& c = phy->constraints[0];
  EXPECT_EQ(std::pair(c.parent, c.child), std::pair(0, 1));
  EXPECT_EQ((std::array{c.min, c.max, c.friction}),
            (std::array<std::array<float, 3>, 3>{{{-10, -20, -30}, {10, 20, 30}, {1, 2, 3}}}));
  EXPECT_FALSE(phy->collisionRules.selfCollisions);
  EXPECT_EQ(phy->collisionRules.pairs, (std::vector<std::pair<int32_t, int32_t>>{{0, 1}}));
  EXPECT_EQ(phy->editParams.jointMerges, (std::vector<std::pair<std::string, std::string>>{{"a", "b"}}));
  ASSERT_EQ(phy->breaks.size(), 2u);
  // Back-slashes in model paths survive: the text is read without escapes.
  EXPECT_EQ(phy->breaks[0].getString("model"), "props\\gibs\\box01");
  EXPECT_EQ(phy->breaks[1].getString("ragdoll"), "props\\gibs\\box02");
  // A block for a solid that does not exist is noted, and sets nothing.
  ASSERT_EQ(phy->notes.size(), 1u);
  EXPECT_EQ(phy->notes[0], "text block for solid 4, but the file has 2 solids");
  EXPECT_FALSE(pelvis.mass == 3 || arm.mass == 3);
}

TEST(PhyFile, EveryPrefixFailsCleanly) {
  auto file = buildPhy(ragdoll());
  size_t text = file.where.at("text");
  for (size_t size = 0; size < file.bytes.size(); ++size) {
    // Each prefix in its own allocation, so the sanitizers see the exact end.
    std::vector<uint8_t> cut(file.bytes.begin(), file.bytes.begin() + ptrdiff_t(size));
    auto phy = parseBytes(cut);
    // Cut inside the text, the solids are whole and the text may still read; a block the
    // cut leaves open is closed by the end of the text, and noted.
    if (size == text + 8) {
      ASSERT_TRUE(phy) << phy.message();
      ASSERT_FALSE(phy->notes.empty());
      EXPECT_EQ(phy->notes.back(),
                "text section: line 2: the text ends inside the section opened on line 1, which is "
                "closed there");
    }
    if (size >= text) continue;
    ASSERT_FALSE(phy) << size;
  }
}

TEST(PhyFile, BrokenFramingFailsTheFile) {
  auto file = buildPhy(ragdoll());
  int32_t size = int32_t(file.bytes.size());
  // Place in the file ("" = its start), field, value, part of the message.
  const std::tuple<std::string, size_t, int32_t, const char*> patches[] = {
      {"", 0, 8, "header size 8 is outside 16.."},
      {"", 0, size + 1, "header size"},
      {"", 8, -1, "solid count -1"},
      {"", 8, 1 << 30, "solid count 1073741824 does not fit"},
      {placeKey("solid", {1}), 0, size, "solid 1 has size"},
      {placeKey("solid", {1}), 0, -4, "solid 1 has size -4"},
  };
  for (const auto& [key, field, value, expected] : patches) {
    std::vector<uint8_t> bytes = file.bytes;
    mdlforge::poke<int32_t>(bytes, (key.empty() ? 0 : file.where.at(key)) + field, value);
    auto phy = parseBytes(bytes);
    ASSERT_FALSE(phy) << expected;
    EXPECT_NE(phy.message().find(expected), std::string::npos) << phy.message();
    EXPECT_EQ(phy.message().rfind("props/box.phy: ", 0), 0u) << phy.message();
  }
}

size_t pieceCount(const PhyFile& phy, size_t solid) { return phy.solids.at(solid).pieces.size(); }

// A broken tree is not a broken solid: the ledges are read in file order instead, and
// give the same pieces.
TEST(PhyFile, AnUnusableLedgeTreeFallsBackToTheLedgesInOrder) {
  auto file = buildPhy(ragdoll());
  int32_t size = int32_t(file.bytes.size());
  std::string lastLeaf = placeKey("node", {1, 4});  // solid 1: root, leaf, inner node, leaf, leaf
  int32_t firstLedge =
      int32_t(int64_t(file.where.at(placeKey("ledge", {1, 0}))) - int64_t(file.where.at(lastLeaf)));
  const std::tuple<std::string, size_t, int32_t> patches[] = {
      {placeKey("surface", {1}), 32, size},         {placeKey("surface", {1}), 32, -size},
      {placeKey("node", {1, 0}), 0, -28},           {placeKey("node", {1, 0}), 0, 28},
      {placeKey("node", {1, 0}), 0, size},          {placeKey("node", {1, 1}), 4, size},
      {lastLeaf, 4, firstLedge},
  };
  auto clean = parseBytes(file.bytes);
  ASSERT_TRUE(clean);
  for (const auto& [key, field, value] : patches) {
    std::vector<uint8_t> bytes = file.bytes;
    mdlforge::poke<int32_t>(bytes, file.where.at(key) + field, value);
    auto phy = parseBytes(bytes);
    ASSERT_TRUE(phy) << key << "+" << field << ": " << phy.message();
    EXPECT_EQ(phy->notes, clean->notes) << key;
    ASSERT_EQ(pieceCount(*phy, 1), 3u) << key;
    for (size_t p = 0; p < 3; ++p) EXPECT_EQ(phy->solids[1].pieces[p].points, clean->solids[1].pieces[p].points);
  }
}

// As real files have them: no tree at all, the root offset at the end of the solid, and
// the wrapping hulls of a compiled solid among the ledges.
TEST(PhyFile, ASolidWithoutLedgeTreeReadsItsPiecesInOrder) {
  mdlforge::PhysicsDescription d = ragdoll();
  for (mdlforge::PhysicsSolid& solid : d.solids) solid.ledgeTree = false;
  auto file = buildPhy(d);
  auto phy = parseBytes(file.bytes);
  ASSERT_TRUE(phy) << phy.message();
  auto withTree = parseBytes(buildPhy(ragdoll()).bytes);
  ASSERT_TRUE(withTree);
  for (size_t s = 0; s < 2; ++s) {
    ASSERT_EQ(pieceCount(*phy, s), pieceCount(*withTree, s));
    for (size_t p = 0; p < pieceCount(*phy, s); ++p) {
      EXPECT_EQ(phy->solids[s].pieces[p].points, withTree->solids[s].pieces[p].points);
      EXPECT_EQ(phy->solids[s].pieces[p].bone, withTree->solids[s].pieces[p].bone);
    }
  }
  // A ledge that overruns the point array is corrupt however it is read: it costs its
  // piece, the other ledges still read.
  size_t overrunAt = file.where.at(placeKey("ledge", {1, 2}));
  mdlforge::poke<int16_t>(file.bytes, overrunAt + 12, 40);
  auto overrun = parseBytes(file.bytes);
  ASSERT_TRUE(overrun) << overrun.message();
  EXPECT_EQ(pieceCount(*overrun, 0), 1u);
  EXPECT_EQ(pieceCount(*overrun, 1), 2u);
  ASSERT_EQ(overrun->notes.size(), 2u);
  EXPECT_EQ(overrun->notes[0].rfind("solid 1: 208 bytes at offset " + std::to_string(overrunAt) +
                                        " hold no ledge and are skipped (ledge at offset " +
                                        std::to_string(overrunAt) + " has 40 triangles",
                                    0),
            0u)
      << overrun->notes[0];
}

// A real box prop's solid: a surface byte size of 0, no tree, 16 bytes that are not a
// ledge before the one ledge, whose point array lies 832 bytes on and whose size runs to
// the end of its points.
mdlforge::PhysicsDescription boxPropWithLooseLedge() {
  mdlforge::PhysicsDescription d;
  mdlforge::PhysicsSolid box;
  box.pieces = {boxPiece({-8, -8, 0}, {8, 8, 30})};
  box.ledgeTree = false;
  box.surfaceByteSize = false;
  box.bytesBeforeLedges = {0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0x27, 0, 0, 0xc3, 0xf5, 0x48, 0x40};
  box.bytesBeforePoints = 832 - (16 + 12 * 16);
  box.ledgeSizesCoverPoints = true;
  box.keys = {{"name", "box"}, {"mass", "30"}};
  d.solids = {box};
  return d;
}

TEST(PhyFile, LedgesAreFoundPastRecordsThatAreNotLedges) {
  auto file = buildPhy(boxPropWithLooseLedge());
  size_t surface = file.where.at(placeKey("surface", {0}));
  size_t ledge = file.where.at(placeKey("ledge", {0, 0}));
  ByteView view(file.bytes);
  // Forged as described: the variant is in the bytes, not only in the description.
  ASSERT_EQ(ledge, surface + 48 + 16);
  EXPECT_EQ(view.readOr<uint32_t>(surface + 28, 1), 0u);
  EXPECT_EQ(view.readOr<int32_t>(ledge, 0), 832);
  EXPECT_EQ(view.readOr<uint32_t>(ledge + 8, 0) >> 8, 60u);
  EXPECT_EQ(view.readOr<int16_t>(ledge + 12, 0), 12);

  auto phy = parseBytes(file.bytes);
  ASSERT_TRUE(phy) << phy.message();
  ASSERT_EQ(pieceCount(*phy, 0), 1u);
  EXPECT_EQ(phy->solids[0].pieces[0].points.size(), 8u);
  EXPECT_EQ(phy->solids[0].pieces[0].triangles.size(), 12u);
  EXPECT_EQ(phy->solids[0].keys.name, "box");
  ASSERT_EQ(phy->notes.size(), 1u);
  EXPECT_EQ(phy->notes[0], "solid 0: 16 bytes at offset " + std::to_string(surface + 48) +
                               " hold no ledge and are skipped (ledge at offset " + std::to_string(surface + 48) +
                               " has its point array outside the solid)");

  // The same piece as the plain layout gives.
  mdlforge::PhysicsDescription plain = boxPropWithLooseLedge();
  mdlforge::PhysicsSolid plainSolid;
  plainSolid.pieces = plain.solids[0].pieces;
  plain.solids[0] = plainSolid;
  auto clean = parseBytes(buildPhy(plain).bytes);
  ASSERT_TRUE(clean);
  EXPECT_EQ(phy->solids[0].pieces[0].points, clean->solids[0].pieces[0].points);
  EXPECT_EQ(phy->solids[0].pieces[0].triangles, clean->solids[0].pieces[0].triangles);
}

// What is broken stays refused: a solid whose only ledge is inconsistent has no pieces,
// whatever field is wrong, and bytes that hold no ledge never become one.
TEST(PhyFile, ALedgeWithInconsistentFieldsIsNeverTaken) {
  auto file = buildPhy(boxPropWithLooseLedge());
  size_t ledge = file.where.at(placeKey("ledge", {0, 0}));
  uint32_t flags = ByteView(file.bytes).readOr<uint32_t>(ledge + 8, 0) & 0xffu;
  const std::tuple<size_t, int32_t, const char*> patches[] = {
      {0, 824, "not a whole number of points"},
      // Without a point array the record is no ledge at all; what is blamed then is the
      // record that came closest to one.
      {0, int32_t(file.bytes.size()), "ledge at offset"},
      {0, 16 * 12, "12 triangles, which overrun its point array"},
      {8, int32_t(flags | (12u << 8)), "has size 192, short of its header and 12 triangles"},
      {12, 0, "0 triangles"},
      {12, 4096, "4096 triangles"},
      {16 + 5 * 16 + 8, 8, "triangle 5 names point 8 past the end of the solid"},
  };
  for (const auto& [field, value, expected] : patches) {
    std::vector<uint8_t> bytes = file.bytes;
    if (field == 12)
      mdlforge::poke<int16_t>(bytes, ledge + field, int16_t(value));
    else
      mdlforge::poke<int32_t>(bytes, ledge + field, value);
    // The points end the solid here, so a point index one past the last is out of it.
    auto phy = parseBytes(bytes);
    ASSERT_TRUE(phy) << expected << ": " << phy.message();
    EXPECT_EQ(pieceCount(*phy, 0), 0u) << expected;
    ASSERT_EQ(phy->notes.size(), 1u) << expected;
    EXPECT_NE(phy->notes[0].find(expected), std::string::npos) << phy->notes[0];
    EXPECT_NE(phy->notes[0].find("; solid 0 has no pieces"), std::string::npos) << phy->notes[0];
  }
}

// A solid that does not decode either way loses its pieces, keeps its place for the text
// and the constraints, and is noted; the other solids are whole. A broken ledge among
// several costs its own piece only.
TEST(PhyFile, ABrokenSolidCostsOnlyItsPieces) {
  auto file = buildPhy(ragdoll());
  const std::tuple<std::string, size_t, int32_t, const char*> patches[] = {
      {placeKey("solid", {0}), 4 + 6, 1, "surface type 1"},
      {placeKey("ledge", {0, 0}), 12, 0xffff, "-1 triangles"},
      {placeKey("ledge", {0, 0}), 12, 0x7fff, "32767 triangles"},
      {placeKey("ledge", {0, 0}), 12, 0, "0 triangles"},
      {placeKey("ledge", {0, 0}), 0, int32_t(file.bytes.size()), "point array outside"},
      {placeKey("ledge", {0, 0}), 16 + 4, 0xfff0, "names point 65520"},
  };
  for (const auto& [key, field, value, expected] : patches) {
    std::vector<uint8_t> bytes = file.bytes;
    mdlforge::poke<int32_t>(bytes, file.where.at(key) + field, value);
    auto phy = parseBytes(bytes);
    ASSERT_TRUE(phy) << expected << ": " << phy.message();
    ASSERT_EQ(phy->solids.size(), 2u);
    EXPECT_EQ(pieceCount(*phy, 0), 0u) << expected;
    EXPECT_EQ(pieceCount(*phy, 1), 3u) << expected;
    EXPECT_EQ(phy->solids[1].keys.name, "arm");
    ASSERT_EQ(phy->notes.size(), 2u) << expected;
    const std::string& note = phy->notes[0];
    EXPECT_EQ(note.rfind("solid 0: ", 0), 0u) << note;
    EXPECT_NE(note.find(expected), std::string::npos) << note;
    EXPECT_NE(note.find("; solid 0 has no pieces"), std::string::npos) << note;
  }
  for (size_t broken = 0; broken < 3; ++broken) {
    std::vector<uint8_t> bytes = file.bytes;
    size_t ledge = file.where.at(placeKey("ledge", {1, broken}));
    mdlforge::poke<int16_t>(bytes, ledge + 12, -1);
    auto phy = parseBytes(bytes);
    ASSERT_TRUE(phy) << phy.message();
    ASSERT_EQ(pieceCount(*phy, 1), 2u) << broken;
    EXPECT_EQ(pieceCount(*phy, 0), 1u);
    auto clean = parseBytes(file.bytes);
    for (size_t p = 0, kept = 0; p < 3; ++p) {
      if (p == broken) continue;
      EXPECT_EQ(phy->solids[1].pieces[kept++].points, clean->solids[1].pieces[p].points);
    }
    ASSERT_EQ(phy->notes.size(), 2u);
    EXPECT_NE(phy->notes[0].find("bytes at offset " + std::to_string(ledge) + " hold no ledge"), std::string::npos)
        << phy->notes[0];
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
    EXPECT_EQ(pieces, flatWalkLedges(bytes).first) << entry.path();
    EXPECT_GT(pieces, 0u) << entry.path();
    std::vector<uint8_t> mdl =
        zv::testing::readBytes(std::filesystem::path(entry.path()).replace_extension(".mdl"));
    EXPECT_EQ(phy->checksum, ByteView(mdl).readOr<int32_t>(8, 0)) << entry.path();
  }
  EXPECT_GT(files, 0);
}

}  // namespace
}  // namespace zv::legacy
