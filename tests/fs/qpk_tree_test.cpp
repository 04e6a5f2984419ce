#include "fs/qpk_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <tuple>

#include "fs_test_util.h"

namespace zv::fs {
namespace {

using ::testing::HasSubstr;

// Builds tree bytes by hand, so tests can leave out exactly the byte they mean to.
struct Tree {
  std::vector<uint8_t> bytes;

  Tree& str(std::initializer_list<std::string_view> texts) {
    for (std::string_view text : texts) {
      bytes.insert(bytes.end(), text.begin(), text.end());
      bytes.push_back(0);
    }
    return *this;
  }
  Tree& u16(uint16_t v) {
    bytes.insert(bytes.end(), {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)});
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

TEST(QpkTree, NamesJoinFolderNameAndExtensionWithSpaceMeaningNone) {
  Tree t;
  t.str({"mdl", "\\models//props/", "Crate"}).entry(2, 3, 100, 50).str({"barrel"}).entry().str({"", ""});
  t.str({" ", "a", "b"}).entry().str({""});  // folder a, file "b" without extension
  t.str({" ", "readme"}).entry().str({"", "", "txt", " ", "notes"}).entry().str({"", "", ""});
  auto entries = parseQpkTree(t.view());
  ASSERT_TRUE(entries) << entries.message();
  Names paths;
  for (const QpkEntry& e : *entries) paths.push_back(e.path);
  EXPECT_EQ(paths,
            (Names{"models/props/Crate.mdl", "models/props/barrel.mdl", "a/b", "readme", "notes.txt"}));
  const QpkEntry& crate = (*entries)[0];
  EXPECT_EQ(std::tuple(crate.crc, crate.preloadSize, crate.archiveIndex, crate.offset, crate.length),
            std::tuple(0x12345678u, uint16_t{2}, uint16_t{3}, 100u, 50u));
  EXPECT_EQ(crate.preloadOffset,
            sizeof("mdl") + sizeof("\\models//props/") + sizeof("Crate") + kQpkEntrySize);
}

TEST(QpkTree, EveryCutAndDamageIsReportedWithItsPlace) {
  Tree whole;
  whole.str({"mdl", "m", "a"}).entry(3).str({"", "", " ", " ", "readme"}).entry().str({"", "", ""});
  ASSERT_TRUE(parseQpkTree(whole.view()));
  const std::map<size_t, std::string> places = {{0, "unterminated extension at tree offset 0"},
                                                {5, "unterminated folder name at tree offset 4"},
                                                {7, "unterminated file name at tree offset 6"},
                                                {10, "entry of m/a.mdl cut off at tree offset 8"},
                                                {27, "preload bytes of m/a.mdl cut off at tree offset 8"}};
  for (size_t size = 0; size < whole.bytes.size(); ++size) {
    auto entries = parseQpkTree(ByteView(whole.bytes.data(), size));
    ASSERT_FALSE(entries) << size;
    std::string expected = places.count(size) ? places.at(size) : "the tree is damaged: ";
    EXPECT_THAT(entries.message(), HasSubstr(expected)) << size;
  }
  Tree badTerminator, longName;
  badTerminator.str({"mdl", " ", "a"}).entry(0, 0, 0, 0, 0x1234);
  EXPECT_THAT(parseQpkTree(badTerminator.view()).message(), HasSubstr("entry of a.mdl lacks its terminator"));
  longName.str({"mdl", " ", std::string(kQpkMaxPathLength, 'n')}).entry();
  EXPECT_THAT(parseQpkTree(longName.view()).message(), HasSubstr("file name too long"));
}

TEST(QpkTree, HeadersOfBothVersionsAndTheirDamage) {
  Tree v2, v3, v1;
  v2.u32(kQpkSignature).u32(2).u32(5).u32(6).u32(7).u32(48).u32(9);
  auto h2 = parseQpkHeader(v2.view());
  ASSERT_TRUE(h2) << h2.message();
  EXPECT_EQ(std::tuple(h2->dataStart(), h2->otherChecksumSize), std::tuple(uint64_t{33}, 48u));
  v3.u32(kQpkSignature).u32(3).u32(0);
  EXPECT_THAT(parseQpkHeader(v3.view()).message(), HasSubstr("unsupported archive version 3"));
  // The directory parser checks the tree's extent itself: it also runs on bytes alone.
  v1.u32(kQpkSignature).u32(1).u32(2).str({""});
  EXPECT_THAT(parseQpkDirectory(v1.view()).message(), HasSubstr("tree (2 bytes) runs past the end"));
}

// When two entries share a name the first keeps it; an entry below a file cannot be reached.
TEST(QpkIndex, FirstOfTwoNamesWinsAndNothingHidesBelowAFile) {
  std::vector<QpkEntry> entries;
  for (const char* path : {"Models/Crate.mdl", "readme", "MODELS/CRATE.MDL", "readme/inside.txt", "models/b"})
    entries.push_back(QpkEntry{.path = path});
  QpkIndex index(entries);
  EXPECT_EQ(index.find("models/crate.MDL"), 0u);
  EXPECT_FALSE(index.find("readme/inside.txt"));
  EXPECT_FALSE(index.isDirectory("readme"));
  EXPECT_TRUE(index.list("readme").empty());
  EXPECT_EQ(entryNames(index.list("MODELS")), (Names{"Crate.mdl", "b"}));
  EXPECT_EQ(index.storedPath("MODELS/CRATE.mdl"), "Models/Crate.mdl");
}

TEST(QpkIndex, TreesOfDistinctDeepNamesAreRefused) {
  // Each file below 499 folders of its own: 200 such files make far more folders than any
  // real archive.
  auto tree = [](int files) {
    Tree t;
    t.u32(kQpkSignature).u32(1).u32(0).str({"txt"});
    for (int i = 0; i < files; ++i) {
      std::string folder = std::to_string(i);
      for (int depth = 1; depth < 499; ++depth) folder += "/d";
      t.str({folder, "f"}).entry().str({""});
    }
    t.str({"", ""});
    uint32_t size = static_cast<uint32_t>(t.bytes.size() - kQpkHeaderSizeV1);
    for (int k = 0; k < 4; ++k) t.bytes[8 + k] = static_cast<uint8_t>(size >> (8 * k));
    return t;
  };
  auto refused = parseQpkDirectory(tree(200).view());
  ASSERT_FALSE(refused);
  EXPECT_THAT(refused.message(), HasSubstr("implausibly many folders"));
  auto accepted = parseQpkDirectory(tree(100).view());
  ASSERT_TRUE(accepted) << accepted.message();
  EXPECT_EQ(accepted->index.find(accepted->entries[99].path), 99u);
}

}  // namespace
}  // namespace zv::fs
