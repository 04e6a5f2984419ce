#include "fs/game_info.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace zv::fs {
namespace {

using zv::testing::TempDir;

TEST(GameInfo, ReadsSearchPathsInOrderWithTheirIds) {
  // Values are folders: a back-slash is kept as it is, never read as an escape.
  std::vector<std::string> notes;
  auto paths = parseGameInfo(R"("GameInfo" { game "Example" FileSystem { SearchPaths {
    Game |mod|.
    GameBin bin
    game+Mod common
    Mod |mod|extra\new
  } } })",
                             notes);
  ASSERT_TRUE(paths) << paths.message();
  ASSERT_EQ(paths->size(), 4u);
  EXPECT_EQ((*paths)[0].pathIds, std::vector<std::string>{"Game"});
  EXPECT_EQ((*paths)[0].value, "|mod|.");
  EXPECT_EQ((*paths)[2].pathIds, (std::vector<std::string>{"game", "Mod"}));
  EXPECT_EQ((*paths)[3].value, "|mod|extra\\new");
  EXPECT_TRUE(notes.empty());
  EXPECT_FALSE(parseGameInfo("\"GameInfo\" { game x }", notes));
  // A file that ends before its sections close still gives its search paths, and says so.
  auto open = parseGameInfo("GameInfo {\n FileSystem { SearchPaths { Game |mod|.\n", notes);
  ASSERT_TRUE(open) << open.message();
  ASSERT_EQ(open->size(), 1u);
  EXPECT_EQ(notes.size(), 3u);
}

TEST(GameInfo, ModNamesResolveAgainstTheGameDirectory) {
  const std::string root = zv::testing::absoluteRoot();
  EXPECT_EQ(locateMod(root + "games/g", "zorv").mod, "zorv");
  ModLocation outside = locateMod(root + "games/g", root + "elsewhere/content/mymod");
  EXPECT_EQ(outside.gameDirectory, root + "elsewhere/content");
  EXPECT_EQ(outside.mod, "mymod");
  ModLocation inside = locateMod(root + "games/g", root + "games/g/mods/x/");
  EXPECT_EQ(inside.gameDirectory, root + "games/g");
  EXPECT_EQ(inside.mod, "mods/x");
}

TEST(GameInfo, SearchPathValuesResolveModArchivesAndRelativeNames) {
  GameInfo info{"/g", "m", "/g/m", {}, false, {}};
  EXPECT_EQ(resolveSearchPathValue(info, "|mod|."), "/g/m");
  EXPECT_EQ(resolveSearchPathValue(info, "common"), "/g/common");
  // Archives are named without "_dir"; the directory file is meant.
  EXPECT_EQ(resolveSearchPathValue(info, "|MOD|content/pak01.qpk"), "/g/m/content/pak01_dir.qpk");
  EXPECT_EQ(resolveSearchPathValue(info, "|mod|content\\pak01_dir.qpk"), "/g/m/content/pak01_dir.qpk");
  EXPECT_EQ(resolveSearchPathValue(info, "/abs/folder"), "/abs/folder");
}

TEST(GameInfo, DefaultModFallsBackToTheEmbeddedInformation) {
  TempDir game;
  auto info = loadGameInfo(game.path(), kDefaultMod, false);
  ASSERT_TRUE(info) << info.message();
  EXPECT_TRUE(info->embeddedDefault);
  ASSERT_EQ(info->searchPaths.size(), 1u);
  EXPECT_EQ(resolveSearchPathValue(*info, info->searchPaths[0].value), game.path().generic_string());
}

TEST(GameInfo, NamedModWithoutItsFileIsFatal) {
  TempDir game;
  auto info = loadGameInfo(game.path(), "missingmod", true);
  ASSERT_FALSE(info);
  EXPECT_EQ(info.message().rfind("Application unable to load gameinfo.gi file from directory \"" +
                                     game.file("missingmod") + "\"\n",
                                 0),
            0u)
      << info.message();
}

}  // namespace
}  // namespace zv::fs
