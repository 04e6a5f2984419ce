#include "importer/qmdl_paths.h"

#include <gtest/gtest.h>

namespace zv {
namespace {

TEST(RelativeToBaseFolder, RemovesTheBaseFolderAndTheSlashAfterIt) {
  EXPECT_EQ(relativeToBaseFolder("D:/out/models/crate_refs/mesh/a.dmx", "D:/out"),
            "models/crate_refs/mesh/a.dmx");
  // Either separator, either case, with or without a trailing separator on the base.
  EXPECT_EQ(relativeToBaseFolder("d:\\OUT\\models\\a.dmx", "D:/out/"), "models/a.dmx");
  EXPECT_EQ(relativeToBaseFolder("/tmp/x/crate_refs/mesh/a.dmx", "/tmp/x"), "crate_refs/mesh/a.dmx");
}

TEST(RelativeToBaseFolder, LeavesPathsOutsideTheBaseFolderWhole) {
  // A name that merely starts with the base folder's text is not inside it.
  EXPECT_EQ(relativeToBaseFolder("/tmp/outer/a.dmx", "/tmp/out"), "/tmp/outer/a.dmx");
  EXPECT_EQ(relativeToBaseFolder("/elsewhere/a.dmx", "/tmp/out"), "/elsewhere/a.dmx");
  EXPECT_EQ(relativeToBaseFolder("a\\b.dmx", ""), "a/b.dmx");
  EXPECT_EQ(relativeToBaseFolder("/tmp/out", "/tmp/out"), "");
}

TEST(MaterialReference, LowerCaseForwardSlashesAndSafeCharacters) {
  EXPECT_EQ(normalizeMaterialReference("materials\\Models\\Props\\Crate.qmat"),
            "materials/models/props/crate.qmat");
  EXPECT_EQ(normalizeMaterialReference("materials\\sign (red)'s!.qmat"), "materials/sign__red__s_.qmat");
  EXPECT_EQ(normalizeMaterialReference("materials\\\\a//b\\/c-1.qmat"), "materials/a/b/c-1.qmat");
  EXPECT_EQ(normalizeMaterialReference("materials\\a+b#\xE9.qmat"), "materials/a_b__.qmat");
  EXPECT_EQ(normalizeMaterialReference(""), "");
}

TEST(MaterialReference, AbsolutePathsKeepTheirOtherCharacters) {
  EXPECT_EQ(normalizeMaterialReference("C:\\Art\\Sign (Red)+1.qmat"), "c:/art/sign__red_+1.qmat");
  EXPECT_EQ(normalizeMaterialReference("/art//x#y.qmat"), "/art/x#y.qmat");
}

}  // namespace
}  // namespace zv
