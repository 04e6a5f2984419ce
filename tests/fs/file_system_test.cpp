#include "fs/file_system.h"

#include <gtest/gtest.h>

#include "fs/wildcard.h"
#include "support/test_support.h"

namespace zv::fs {
namespace {

using zv::testing::TempDir;
using zv::testing::writeText;

std::string text(const Result<std::vector<uint8_t>>& bytes) {
  return bytes ? std::string(bytes->begin(), bytes->end()) : "<" + bytes.message() + ">";
}

std::vector<std::string> names(const std::vector<DirEntry>& entries) {
  std::vector<std::string> out;
  for (const DirEntry& e : entries) out.push_back(e.name + (e.isDirectory ? "/" : ""));
  return out;
}

TEST(Wildcards, StarsAndQuestionMarksIgnoringCase) {
  EXPECT_TRUE(wildcardMatch("*.mdl", "Crate.MDL"));
  EXPECT_TRUE(wildcardMatch("c?ate*", "crate.mdl"));
  EXPECT_TRUE(wildcardMatch("*", ""));
  EXPECT_FALSE(wildcardMatch("*.mdl", "crate.mdl.bak"));
  EXPECT_FALSE(wildcardMatch("?", ""));
  EXPECT_TRUE(wildcardMatch("*a*b*c*", "xxaxxbxxcxx"));
  // Many stars against a long non-matching text must still finish quickly.
  EXPECT_FALSE(wildcardMatch(std::string(200, '*') + "z", std::string(5000, 'a')));
}

TEST(SearchPaths, EarlierPathWinsAndIdsSelectPaths) {
  TempDir first, second;
  writeText(first.file("models/a.mdl"), "first");
  writeText(second.file("models/a.mdl"), "second");
  writeText(second.file("models/b.mdl"), "only second");
  FileSystem fs(first.path());
  ASSERT_TRUE(fs.addSearchPath(second.str(), "GAME", Placement::Tail));
  ASSERT_TRUE(fs.addSearchPath(first.str(), "LOCAL", Placement::Head));

  EXPECT_EQ(text(fs.readFile("models/a.mdl")), "first");
  EXPECT_EQ(text(fs.readFile("models\\b.mdl")), "only second");
  EXPECT_EQ(text(fs.readFile("models/a.mdl", "game")), "second");
  EXPECT_FALSE(fs.readFile("models/b.mdl", "LOCAL"));
  EXPECT_FALSE(fs.readFile("models/b.mdl", "NOSUCHID"));
  EXPECT_TRUE(fs.fileExists("./models//b.mdl"));
  EXPECT_FALSE(fs.fileExists("models"));
  EXPECT_TRUE(fs.isDirectory("models"));
}

TEST(SearchPaths, HeadPlacementGoesBeforeEarlierPaths) {
  TempDir a, b;
  writeText(a.file("x.txt"), "a");
  writeText(b.file("x.txt"), "b");
  FileSystem fs(a.path());
  ASSERT_TRUE(fs.addSearchPath(a.str(), "LOCAL", Placement::Tail));
  ASSERT_TRUE(fs.addSearchPath(b.str(), "LOCAL", Placement::Head));
  EXPECT_EQ(text(fs.readFile("x.txt", "LOCAL")), "b");
  ASSERT_EQ(fs.searchPaths().size(), 2u);
  EXPECT_EQ(fs.searchPaths()[0].source->location(), b.path().generic_string());
}

TEST(SearchPaths, LookupsIgnoreCaseOnEveryPlatform) {
  TempDir root;
  writeText(root.file("Materials/Props/Crate.QMT"), "m");
  FileSystem fs(root.path());
  ASSERT_TRUE(fs.addSearchPath(root.str(), "GAME", Placement::Tail));
  EXPECT_TRUE(fs.fileExists("materials\\props\\crate.qmt"));
  EXPECT_EQ(text(fs.readFile("MATERIALS/props/crate.qmt")), "m");
  EXPECT_EQ(fs.fullPath("materials/props/crate.qmt", "GAME"), root.file("Materials/Props/Crate.QMT"));
  EXPECT_FALSE(fs.fileExists("materials/props/crate.qmt.bak"));
}

TEST(SearchPaths, AbsoluteNamesBypassSearchPaths) {
  TempDir root;
  writeText(root.file("a/b.txt"), "abs");
  FileSystem fs(root.path());
  EXPECT_EQ(text(fs.readFile(root.file("a/b.txt"))), "abs");
  EXPECT_EQ(text(fs.readFile(root.file("A/B.TXT"))), "abs");
  EXPECT_EQ(fs.fullPath(root.file("a/b.txt"), "LOCAL"), root.file("a/b.txt"));
  EXPECT_FALSE(fs.fullPath(root.file("a/none.txt"), "LOCAL"));
}

TEST(SearchPaths, ListingMergesPathsSortsAndFiltersByPattern) {
  TempDir a, b;
  writeText(a.file("m/zeta.mdl"), "");
  writeText(a.file("m/alpha.mdl"), "");
  writeText(a.file("m/notes.txt"), "");
  writeText(b.file("m/ALPHA.mdl"), "");
  writeText(b.file("m/beta.mdl"), "");
  writeText(b.file("m/sub/x.mdl"), "");
  FileSystem fs(a.path());
  ASSERT_TRUE(fs.addSearchPath(a.str(), "LOCAL", Placement::Tail));
  ASSERT_TRUE(fs.addSearchPath(b.str(), "LOCAL", Placement::Tail));
  EXPECT_EQ(names(fs.listFolder("m", "*.mdl", "LOCAL")), (std::vector<std::string>{"alpha.mdl", "beta.mdl", "zeta.mdl"}));
  EXPECT_EQ(names(fs.listFolder("m", "*", "LOCAL")),
            (std::vector<std::string>{"alpha.mdl", "beta.mdl", "notes.txt", "sub/", "zeta.mdl"}));
  EXPECT_TRUE(fs.listFolder("nowhere", "*", "LOCAL").empty());
}

TEST(SearchPaths, ArchivePathsSplitAtTheArchiveName) {
  auto split = splitArchivePath("qpk:content/pak01_dir.qpk:models\\props/a.mdl");
  ASSERT_TRUE(split);
  EXPECT_EQ(split->archive, "content/pak01_dir.qpk");
  EXPECT_EQ(split->inner, "models/props/a.mdl");
  EXPECT_FALSE(splitArchivePath("qpk:nothing-here"));
  EXPECT_FALSE(splitArchivePath("models/a.mdl"));
}

TEST(SearchPaths, CreatesFolderHierarchies) {
  TempDir root;
  EXPECT_TRUE(FileSystem::createDirHierarchy(root.file("a/b/c")));
  EXPECT_TRUE(std::filesystem::is_directory(root.path() / "a/b/c"));
  EXPECT_TRUE(FileSystem::createDirHierarchy(root.file("a/b/c")));
  writeText(root.file("file"), "");
  EXPECT_FALSE(FileSystem::createDirHierarchy(root.file("file/below")));
}

}  // namespace
}  // namespace zv::fs
