#include "fs/game_info.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "support/test_support.h"

namespace zv::fs {
namespace {

using zv::testing::TempDir;
using zv::testing::writeText;

constexpr const char* kGameInfo = R"("GameInfo"
{
	game	"Example"
	FileSystem
	{
		SearchPaths
		{
			Game	|mod|.
			GameBin	bin
			game+Mod	common
			Mod	|mod|extra
		}
	}
}
)";

TEST(GameInfo, ReadsSearchPathsInOrderWithTheirIds) {
  auto paths = parseGameInfo(kGameInfo);
  ASSERT_TRUE(paths) << paths.message();
  ASSERT_EQ(paths->size(), 4u);
  EXPECT_EQ((*paths)[0].pathIds, std::vector<std::string>{"Game"});
  EXPECT_EQ((*paths)[0].value, "|mod|.");
  EXPECT_EQ((*paths)[2].pathIds, (std::vector<std::string>{"game", "Mod"}));
  EXPECT_FALSE(parseGameInfo("\"GameInfo\" { game x }"));
  EXPECT_FALSE(parseGameInfo("\"GameInfo\" { FileSystem { SearchPaths {"));
}

TEST(GameInfo, ModNamesResolveAgainstTheGameDirectory) {
  EXPECT_EQ(locateMod("/games/g", "zorv").mod, "zorv");
  ModLocation outside = locateMod("/games/g", "/elsewhere/content/mymod");
  EXPECT_EQ(outside.gameDirectory, "/elsewhere/content");
  EXPECT_EQ(outside.mod, "mymod");
  ModLocation inside = locateMod("/games/g", "/games/g/mods/x/");
  EXPECT_EQ(inside.gameDirectory, "/games/g");
  EXPECT_EQ(inside.mod, "mods/x");
}

TEST(GameInfo, SearchPathValuesResolveModArchivesAndRelativeNames) {
  GameInfo info{"/g", "m", "/g/m", {}, false};
  EXPECT_EQ(resolveSearchPathValue(info, "|mod|."), "/g/m");
  EXPECT_EQ(resolveSearchPathValue(info, "common"), "/g/common");
  EXPECT_EQ(resolveSearchPathValue(info, "|mod|content/pak01.qpk"), "/g/m/content/pak01_dir.qpk");
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
                                     game.file("missingmod") + "\"\n", 0),
            0u)
      << info.message();
}

TEST(GameInfo, MountsGameAndModPathsAndWarnsOfMissingArchives) {
  TempDir game;
  writeText(game.file("mymod/gameinfo.gi"), R"("GameInfo" { FileSystem { SearchPaths {
    Game |mod|.
    Game |mod|packs/missing.qpk
    Platform platform
    Game+Mod common
  } } })");
  writeText(game.file("mymod/models/a.mdl"), "mod copy");
  writeText(game.file("common/models/a.mdl"), "common copy");
  writeText(game.file("common/models/b.mdl"), "common only");
  auto info = loadGameInfo(game.path(), "mymod", true);
  ASSERT_TRUE(info) << info.message();
  FileSystem fs(game.path());
  LogCapture log;
  mountGameInfo(fs, *info);
  EXPECT_EQ(log.count("missing_dir.qpk"), 1u);
  ASSERT_EQ(fs.searchPaths().size(), 3u);  // |mod|. under Game, common under Game and Mod
  auto a = fs.readFile("models/a.mdl", "GAME");
  ASSERT_TRUE(a);
  EXPECT_EQ(std::string(a->begin(), a->end()), "mod copy");
  EXPECT_TRUE(fs.fileExists("models/b.mdl", "Mod"));
  EXPECT_FALSE(fs.fileExists("models/a.mdl", "Platform"));
}

}  // namespace
}  // namespace zv::fs
