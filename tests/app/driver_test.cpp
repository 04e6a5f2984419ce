#include "app/driver.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "support/model_fixtures.h"
#include "support/test_support.h"

namespace zv::app {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::ScopedCurrentDir;
using zv::testing::ScopedEnv;
using zv::testing::TempDir;
using zv::testing::writeFamily;
using zv::testing::writeText;

const LogRecord* findRecord(const LogCapture& log, std::string_view text) {
  for (const LogRecord& r : log.records()) {
    if (r.text == text) return &r;
  }
  return nullptr;
}

// A game folder holding forged models, as the current directory.
struct GameFolder {
  TempDir dir;
  ScopedCurrentDir cwd{dir.path()};
  ScopedEnv noMod{"QMOD", nullptr};
  ScopedEnv noScm{"P4PORT", nullptr};
  void model(const std::string& folder, const std::string& name) { writeFamily(buildFiles(crateModel()), dir.file(folder), name); }
};

TEST(Driver, NoArgumentsIsUsageAndFailure) {
  GameFolder game;
  LogCapture log;
  EXPECT_EQ(runDriver({}), 1);
  EXPECT_EQ(log.count("Usage: zv_mdl_import"), 1u);
}

TEST(Driver, ConvertsEveryModelAndReportsSuccessInGreen) {
  GameFolder game;
  game.model("models", "a");
  game.model("models/sub", "b");
  LogCapture log;
  EXPECT_EQ(runDriver({"-o", "out", "-r", "models/*.mdl"}), 0);
  const LogRecord* begin = findRecord(log, "Beginning conversion of 2 models...\n");
  ASSERT_NE(begin, nullptr);
  EXPECT_EQ(begin->color, colors::kCyan);
  const LogRecord* conversion = findRecord(log, "Conversion of " + game.dir.file("models/a.mdl") + "\n");
  ASSERT_NE(conversion, nullptr);
  EXPECT_EQ(conversion->color, colors::kCyan);
  const LogRecord* summary = findRecord(log, "2 mdl files successfully converted\n");
  ASSERT_NE(summary, nullptr);
  EXPECT_EQ(summary->color, colors::kGreen);
  EXPECT_TRUE(std::filesystem::exists(game.dir.path() / "out/a_refs.txt"));
  EXPECT_TRUE(std::filesystem::exists(game.dir.path() / "out/b_refs.txt"));
}

TEST(Driver, FailedModelsDoNotStopTheOthers) {
  GameFolder game;
  game.model("models", "a");
  writeText(game.dir.file("models/broken.mdl"), "not a model");
  game.model("models", "c");
  LogCapture log;
  EXPECT_EQ(runDriver({"-o", "out", "models/*.mdl"}), 1);
  const LogRecord* summary = findRecord(log, "1 mdl files failed to convert and 2 mdl files successfully converted\n");
  ASSERT_NE(summary, nullptr);
  EXPECT_EQ(summary->color, colors::kRed);
  EXPECT_TRUE(std::filesystem::exists(game.dir.path() / "out/c_refs.txt"));
}

TEST(Driver, WithoutANamedModTheEmbeddedGameInformationServes) {
  GameFolder game;
  game.model("", "a");
  EXPECT_EQ(runDriver({"-o", "out", "a.mdl"}), 0);
}

TEST(Driver, ANamedModWithoutGameInformationIsFatal) {
  GameFolder game;
  game.model("", "a");
  for (bool fromEnvironment : {false, true}) {
    ScopedEnv mod("QMOD", fromEnvironment ? "nosuchmod" : nullptr);
    LogCapture log;
    std::vector<std::string> args = {"-o", "out", "a.mdl"};
    if (!fromEnvironment) args.insert(args.end(), {"-game", "nosuchmod"});
    EXPECT_EQ(runDriver(args), 1);
    EXPECT_EQ(log.count("Application unable to load gameinfo.gi file from directory \"" + game.dir.file("nosuchmod") + "\""), 1u)
        << log.text();
    EXPECT_EQ(log.count("Beginning conversion"), 0u);
  }
}

TEST(Driver, MaterialsAreFoundThroughTheModsSearchPaths) {
  GameFolder game;
  game.model("", "crate");
  writeText(game.dir.file("mymod/gameinfo.gi"), "\"GameInfo\" { FileSystem { SearchPaths { Game |mod|content } } }");
  writeText(game.dir.file("mymod/content/materials/models/props/crate.qmt"), "");
  ASSERT_EQ(runDriver({"-o", "plain", "crate.mdl"}), 0);
  EXPECT_EQ(zv::testing::readText(game.dir.path() / "plain/crate_refs.txt"), "importfilelist\n{\n}\n");
  ASSERT_EQ(runDriver({"-game", "mymod", "-o", "modded", "crate.mdl"}), 0);
  EXPECT_EQ(zv::testing::readText(game.dir.path() / "modded/crate_refs.txt"),
            "importfilelist\n{\n\t\"file\"\t\"materials\\models\\props\\crate.qmt\"\n}\n");
}

}  // namespace
}  // namespace zv::app
