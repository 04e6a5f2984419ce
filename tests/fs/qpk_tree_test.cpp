#include "fs/qpk_tree.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zv::fs {
namespace {

// Builds tree bytes by hand, so tests can leave out exactly the byte they mean to.
struct Tree {
  std::vector<uint8_t> bytes;

  Tree& str(std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.push_back(0);
    return *this;
  }
  Tree& u16(uint16_t v) {
    bytes.push_back(static_cast<uint8_t>(v));
    bytes.push_back(static_cast<uint8_t>(v >> 8));
    return *this;
  }
  Tree& u32(uint32_t v) { return u16(static_cast<uint16_t>(v)).u16(static_cast<uint16_t>(v >> 16)); }
  Tree& entry(uint16_t preload = 0, uint16_t archive = kQpkDirectoryArchive, uint32_t offset = 0,
              uint32_t length = 0, uint16_t terminator = kQpkEntryTerminator) {
    u32(0x12345678).u16(preload).u16(archive).u32(offset).u32(length).u16(terminator);
    bytes.insert(bytes.end(), preload, 'p');
    return *this;
  }
  ByteView view() const { return ByteView(bytes); }
};

std::vector<std::string> paths(const std::vector<QpkEntry>& entries) {
  std::vector<std::string> out;
  for (const QpkEntry& e : entries) out.push_back(e.path);
  return out;
}

std::vector<std::string> names(const std::vector<DirEntry>& entries) {
  std::vector<std::string> out;
  for (const DirEntry& e : entries) out.push_back(e.name + (e.isDirectory ? "/" : ""));
  return out;
}

TEST(QpkTree, NamesJoinFolderNameAndExtensionWithSpaceMeaningNone) {
  Tree t;
  t.str("mdl").str("models/props").str("Crate").entry(2, 3, 100, 50).str("barrel").entry().str("").str("");
  t.str(" ").str("a").str("b").entry().str("");  // folder a, file "b" without extension
  t.str(" ").str("readme").entry().str("").str("");
  t.str("txt").str(" ").str("notes").entry().str("").str("");
  t.str("");
  auto entries = parseQpkTree(t.view());
  ASSERT_TRUE(entries) << entries.message();
  EXPECT_EQ(paths(*entries), (std::vector<std::string>{"models/props/Crate.mdl", "models/props/barrel.mdl",
                                                       "a/b", "readme", "notes.txt"}));
  const QpkEntry& crate = (*entries)[0];
  EXPECT_EQ(crate.crc, 0x12345678u);
  EXPECT_EQ(crate.preloadSize, 2);
  EXPECT_EQ(crate.archiveIndex, 3);
  EXPECT_EQ(crate.offset, 100u);
  EXPECT_EQ(crate.length, 50u);
  EXPECT_EQ(crate.preloadOffset, sizeof("mdl") + sizeof("models/props") + sizeof("Crate") + kQpkEntrySize);
  EXPECT_EQ(crate.totalSize(), 52u);
}

TEST(QpkTree, StrayFolderSeparatorsAreNormalised) {
  Tree t;
  t.str("mdl").str("\\models//props/").str("x").entry().str("").str("").str("");
  auto entries = parseQpkTree(t.view());
  ASSERT_TRUE(entries) << entries.message();
  EXPECT_EQ(paths(*entries), (std::vector<std::string>{"models/props/x.mdl"}));
}

TEST(QpkTree, DamageIsReportedWithItsPlace) {
  struct Case {
    const char* what;
    Tree tree;
    const char* message;
  };
  std::vector<Case> cases;
  cases.push_back({"empty tree", Tree{}, "unterminated extension at tree offset 0"});
  cases.push_back({"extension without NUL", Tree{{'m', 'd', 'l'}}, "unterminated extension"});
  cases.push_back({"folder without NUL", Tree{}.str("mdl"), "unterminated folder name at tree offset 4"});
  {
    Tree t;
    t.str("mdl").str(" ").bytes.push_back('x');
    cases.push_back({"name without NUL", t, "unterminated file name at tree offset 6"});
  }
  {
    Tree t;
    t.str("mdl").str(" ").str("a").u32(0).u16(0);
    cases.push_back({"entry cut off", t, "entry of a.mdl cut off"});
  }
  cases.push_back({"missing terminator",
                   Tree{}.str("mdl").str(" ").str("a").entry(0, 0, 0, 0, 0x1234).str("").str("").str(""),
                   "entry of a.mdl lacks its terminator"});
  {
    Tree t;
    t.str("mdl").str(" ").str("a").u32(0).u16(10).u16(0).u32(0).u32(0).u16(kQpkEntryTerminator);
    t.bytes.insert(t.bytes.end(), 9, 'p');
    cases.push_back({"preload past the end", t, "preload bytes of a.mdl cut off"});
  }
  cases.push_back({"lists never closed", Tree{}.str("mdl").str(" ").str("a").entry().str(""),
                   "unterminated folder name"});
  cases.push_back({"name too long",
                   Tree{}.str("mdl").str(" ").str(std::string(kQpkMaxPathLength, 'n')).entry(),
                   "file name too long"});
  for (const Case& c : cases) {
    auto entries = parseQpkTree(c.tree.view());
    ASSERT_FALSE(entries) << c.what;
    EXPECT_NE(entries.message().find(c.message), std::string::npos) << c.what << ": " << entries.message();
  }
}

TEST(QpkTree, HeaderOfBothVersions) {
  Tree v1;
  v1.u32(kQpkSignature).u32(1).u32(77);
  auto h1 = parseQpkHeader(v1.view());
  ASSERT_TRUE(h1) << h1.message();
  EXPECT_EQ(h1->headerSize(), 12u);
  EXPECT_EQ(h1->dataStart(), 89u);

  Tree v2;
  v2.u32(kQpkSignature).u32(2).u32(5).u32(6).u32(7).u32(48).u32(9);
  auto h2 = parseQpkHeader(v2.view());
  ASSERT_TRUE(h2) << h2.message();
  EXPECT_EQ(h2->dataStart(), 33u);
  EXPECT_EQ(h2->dataSectionSize, 6u);
  EXPECT_EQ(h2->archiveChecksumSize, 7u);
  EXPECT_EQ(h2->otherChecksumSize, 48u);
  EXPECT_EQ(h2->signatureSize, 9u);

  v2.bytes.resize(27);
  EXPECT_NE(parseQpkHeader(v2.view()).message().find("too short"), std::string::npos);
  v1.bytes.resize(11);
  EXPECT_NE(parseQpkHeader(v1.view()).message().find("too short"), std::string::npos);
  EXPECT_NE(
      parseQpkHeader(Tree{}.u32(0x55AA1235).u32(1).u32(0).view()).message().find("not a packed archive"),
      std::string::npos);
  EXPECT_NE(parseQpkHeader(Tree{}.u32(kQpkSignature).u32(3).u32(0).view()).message().find("version 3"),
            std::string::npos);
}

TEST(QpkTree, DirectoryRefusesATreePastTheEnd) {
  Tree t;
  t.u32(kQpkSignature).u32(1).u32(2).str("");
  EXPECT_NE(parseQpkDirectory(t.view()).message().find("runs past the end"), std::string::npos);
  t.bytes.push_back(0);
  auto directory = parseQpkDirectory(t.view());
  ASSERT_TRUE(directory) << directory.message();
  EXPECT_TRUE(directory->entries.empty());
  EXPECT_TRUE(directory->index.isDirectory(""));
}

TEST(QpkIndex, FindsIgnoringCaseAndListsFoldersSorted) {
  std::vector<QpkEntry> entries(7);
  entries[0].path = "Models/Props/Crate.mdl";
  entries[1].path = "models/props/barrel.mdl";
  entries[2].path = "models/props/wood/plank.mdl";
  entries[3].path = "MODELS/PROPS/CRATE.MDL";  // a second copy: the first keeps the name
  entries[4].path = "readme";
  entries[5].path = "readme/inside.txt";  // below a file: unreachable
  entries[6].path = "models/Zeta.mdl";
  QpkIndex index(entries);

  EXPECT_EQ(index.find("models/props/crate.MDL"), 0u);
  EXPECT_EQ(index.find("README"), 4u);
  EXPECT_FALSE(index.find("readme/inside.txt"));
  EXPECT_FALSE(index.find("models/props"));
  EXPECT_FALSE(index.find("models/props/crate"));
  EXPECT_TRUE(index.isDirectory("MODELS/props/"));
  EXPECT_TRUE(index.isDirectory(""));
  EXPECT_FALSE(index.isDirectory("readme"));
  EXPECT_FALSE(index.isDirectory("models/props/crate.mdl"));

  EXPECT_EQ(names(index.list("")), (std::vector<std::string>{"Models/", "readme"}));
  EXPECT_EQ(names(index.list("models")), (std::vector<std::string>{"Props/", "Zeta.mdl"}));
  EXPECT_EQ(names(index.list("models/PROPS")),
            (std::vector<std::string>{"Crate.mdl", "barrel.mdl", "wood/"}));
  EXPECT_TRUE(index.list("readme").empty());
  EXPECT_TRUE(index.list("nowhere").empty());
  EXPECT_EQ(index.storedPath("models/props/crate.mdl"), "Models/Props/Crate.mdl");
  EXPECT_EQ(index.storedPath("MODELS/PROPS/WOOD"), "Models/Props/wood");
  EXPECT_FALSE(index.storedPath("models/none"));
}

TEST(QpkIndex, DeepNamesAreWalkedWithoutRecursion) {
  std::string deep;
  for (int i = 0; i < 500; ++i) deep += "d/";
  std::vector<QpkEntry> entries(1);
  entries[0].path = deep + "leaf.txt";
  QpkIndex index(entries);
  EXPECT_EQ(index.find(deep + "LEAF.txt"), 0u);
  EXPECT_EQ(names(index.list(deep)), (std::vector<std::string>{"leaf.txt"}));
}

TEST(QpkIndex, TreesOfDistinctDeepNamesAreRefused) {
  // 200 files, each below 499 folders of its own: far more folders than any real archive.
  auto tree = [](int files) {
    Tree t;
    t.u32(kQpkSignature).u32(1).u32(0).str("txt");
    for (int i = 0; i < files; ++i) {
      std::string folder = std::to_string(i);
      for (int depth = 1; depth < 499; ++depth) folder += "/d";
      t.str(folder).str("f").entry().str("");
    }
    t.str("").str("");
    uint32_t size = static_cast<uint32_t>(t.bytes.size() - kQpkHeaderSizeV1);
    for (int k = 0; k < 4; ++k) t.bytes[8 + k] = static_cast<uint8_t>(size >> (8 * k));
    return t;
  };
  auto refused = parseQpkDirectory(tree(200).view());
  ASSERT_FALSE(refused);
  EXPECT_NE(refused.message().find("implausibly many folders"), std::string::npos) << refused.message();
  auto accepted = parseQpkDirectory(tree(100).view());
  ASSERT_TRUE(accepted) << accepted.message();
  EXPECT_EQ(accepted->index.find(accepted->entries[99].path), 99u);
}

}  // namespace
}  // namespace zv::fs
