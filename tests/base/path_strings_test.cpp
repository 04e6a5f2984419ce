#include <gtest/gtest.h>

#include "base/path.h"
#include "base/strings.h"

namespace zv {
namespace {

TEST(PathText, NamesAndExtensionsAcceptBothSeparators) {
  EXPECT_EQ(path::fileName("a/b\\c.mdl"), "c.mdl");
  EXPECT_EQ(path::fileBase("models\\props/crate.dx90.vtx"), "crate.dx90");
  EXPECT_EQ(path::fileBase("experiment-redux\\ammo\\9mm.mdl"), "9mm");
  EXPECT_EQ(path::parent("a/b/c.mdl"), "a/b");
  EXPECT_EQ(path::parent("c.mdl"), "");
  EXPECT_EQ(path::extension("a.b/c"), "");
  EXPECT_EQ(path::stripExtension("a.b/c"), "a.b/c");
  EXPECT_EQ(path::withExtension("d/crate.mdl", ".dx90.vtx"), "d/crate.dx90.vtx");
}

TEST(PathText, BuffersHoldAtMost259Characters) {
  std::string longName(300, 'x');
  EXPECT_EQ(path::fitPath(longName).size(), 259u);
  EXPECT_EQ(path::withExtension(longName + ".mdl", ".qvd").size(), 259u);
}

TEST(PathText, JoinsCollapsesAndNormalizes) {
  EXPECT_EQ(path::join("a", "b"), "a\\b");
  EXPECT_EQ(path::join("a/", "/b", '/'), "a/b");
  EXPECT_EQ(path::join("", "b"), "b");
  EXPECT_EQ(path::removeDoubleSlashes("materials\\\\x//y"), "materials\\x/y");
  EXPECT_EQ(path::toForwardSlashes("a\\b/c"), "a/b/c");
  EXPECT_EQ(path::normalize("/a/./b/../c"), "/a/c");
  EXPECT_EQ(path::normalize("../x/../../y"), "../../y");
  EXPECT_EQ(path::normalize("/../y"), "/y");
  EXPECT_EQ(path::normalize("C:\\a\\..\\b"), "C:\\b");
  EXPECT_TRUE(path::isAbsolute("/x"));
  EXPECT_TRUE(path::isAbsolute("d:thing"));
  EXPECT_FALSE(path::isAbsolute("models/x"));
}

TEST(StringText, CaseFoldingIsAsciiOnly) {
  EXPECT_EQ(toLower("MoDeLs\xC4"), "models\xC4");
  EXPECT_TRUE(equalsNoCase("Static_Prop", "static_prop"));
  EXPECT_TRUE(startsWithNoCase("D:\\SRC\\props", "d:\\src"));
  EXPECT_FALSE(startsWithNoCase("d:", "d:\\src"));
  EXPECT_EQ(findNoCase("abcLEAN", "lean"), 3u);
}

TEST(StringText, ReplaceSplitAndFormat) {
  EXPECT_EQ(replaceAll("a.qmt b.qmt", ".qmt", ".qmat"), "a.qmat b.qmat");
  EXPECT_EQ(split("a\n\nb", '\n'), (std::vector<std::string>{"a", "", "b"}));
  EXPECT_EQ(format("%d..", 7), "7..");
  EXPECT_EQ(format("%s", std::string(5000, 'z').c_str()).size(), 5000u);
}

}  // namespace
}  // namespace zv
