#include "fs/file_system.h"

#include <gtest/gtest.h>

#include "fs_test_util.h"
#include "support/test_support.h"

namespace zv::fs {
namespace {

using zv::testing::TempDir;
using zv::testing::writeText;

TEST(SearchPaths, EarlierPathWinsHeadGoesFirstIdsSelectAndCaseIsIgnored) {
  TempDir first, second, head;
  writeText(first.file("Models/A.mdl"), "first");
  writeText(second.file("models/a.mdl"), "second");
  writeText(second.file("models/b.mdl"), "only second");
  writeText(head.file("models/a.mdl"), "head");
  FileSystem fs(first.path());
  ASSERT_TRUE(fs.addSearchPath(first.str(), "LOCAL", Placement::Tail));
  ASSERT_TRUE(fs.addSearchPath(second.str(), "GAME", Placement::Tail));

  EXPECT_EQ(asText(fs.readFile("models/a.mdl")), "first");
  EXPECT_EQ(asText(fs.readFile("MODELS\\b.mdl")), "only second");
  EXPECT_EQ(asText(fs.readFile("models/A.MDL", "game")), "second");
  EXPECT_FALSE(fs.readFile("models/b.mdl", "LOCAL"));
  EXPECT_FALSE(fs.readFile("models/b.mdl", "NOSUCHID"));
  EXPECT_TRUE(fs.fileExists("./models//B.mdl"));
  EXPECT_FALSE(fs.fileExists("models/a.mdl.bak"));
  EXPECT_FALSE(fs.fileExists("models"));
  EXPECT_TRUE(fs.isDirectory("MODELS"));
  // The name as it is spelled on disk.
  EXPECT_EQ(fs.fullPath("models/a.mdl", "LOCAL"), first.file("Models/A.mdl"));

  // Absolute names go straight to disk, whatever the ID.
  EXPECT_EQ(asText(fs.readFile(second.file("MODELS/B.MDL"), "LOCAL")), "only second");
  EXPECT_EQ(fs.fullPath(second.file("models/a.mdl"), "LOCAL"), second.file("models/a.mdl"));
  EXPECT_FALSE(fs.fullPath(second.file("models/none.mdl"), "LOCAL"));
  ASSERT_TRUE(fs.addSearchPath(head.str(), "LOCAL", Placement::Head));
  EXPECT_EQ(asText(fs.readFile("models/a.mdl", "LOCAL")), "head");
}

TEST(SearchPaths, ListingMergesPathsSortsAndFiltersByPattern) {
  TempDir a, b;
  for (const char* name : {"m/zeta.mdl", "m/alpha.mdl", "m/notes.txt"}) writeText(a.file(name), "");
  for (const char* name : {"m/ALPHA.mdl", "m/beta.mdl", "m/sub/x.mdl", "m/crate.mdl.bak"})
    writeText(b.file(name), "");
  FileSystem fs(a.path());
  ASSERT_TRUE(fs.addSearchPath(a.str(), "LOCAL", Placement::Tail));
  ASSERT_TRUE(fs.addSearchPath(b.str(), "LOCAL", Placement::Tail));
  EXPECT_EQ(entryNames(fs.listFolder("m", "*.MDL", "LOCAL")), (Names{"alpha.mdl", "beta.mdl", "zeta.mdl"}));
  EXPECT_EQ(entryNames(fs.listFolder("m", "?eta*", "LOCAL")), (Names{"beta.mdl", "zeta.mdl"}));
  EXPECT_EQ(entryNames(fs.listFolder("m", "*", "LOCAL")),
            (Names{"alpha.mdl", "beta.mdl", "crate.mdl.bak", "notes.txt", "sub/", "zeta.mdl"}));
  EXPECT_TRUE(fs.listFolder("nowhere", "*", "LOCAL").empty());
  // Many stars against names that do not match must still finish quickly.
  EXPECT_TRUE(fs.listFolder("m", std::string(200, '*') + "q", "LOCAL").empty());
}

TEST(SearchPaths, ArchivePathsSplitAtTheArchiveName) {
  auto split = splitArchivePath("QPK:content/pak01_dir.qpk:models\\props/a.mdl");
  ASSERT_TRUE(split);
  EXPECT_EQ(split->archive, "content/pak01_dir.qpk");
  EXPECT_EQ(split->inner, "models/props/a.mdl");
  EXPECT_FALSE(splitArchivePath("qpk:nothing-here"));
  EXPECT_FALSE(splitArchivePath("models/a.mdl"));
}

}  // namespace
}  // namespace zv::fs
