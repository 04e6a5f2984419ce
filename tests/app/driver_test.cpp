#include "app/driver.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "support/model_fixtures.h"
#include "support/test_support.h"

namespace zv::app {
namespace {

using zv::testing::ScopedEnv;
using zv::testing::writeText;
namespace stdfs = std::filesystem;

const LogRecord* findRecord(const LogCapture& log, std::string_view text) {
  for (const LogRecord& r : log.records()) {
    if (r.text == text) return &r;
  }
  return nullptr;
}

// A game folder holding forged models, as the current directory.
struct GameFolder {
  zv::testing::TempDir dir;
  zv::testing::ScopedCurrentDir cwd{dir.path()};
  ScopedEnv noMod{"QMOD", nullptr};
  ScopedEnv noScm{"P4PORT", nullptr};
  void model(const std::string& folder, const std::string& name) {
    zv::testing::writeFamily(zv::testing::buildFiles(zv::testing::crateModel()), dir.file(folder), name);
  }
};

TEST(Driver, WithoutANamedModTheEmbeddedGameInformationServesAndSuccessIsGreen) {
  GameFolder game;
  game.model("", "a");
  LogCapture log;
  EXPECT_EQ(runDriver({}), 1);
  EXPECT_EQ(log.count("Usage: zv_mdl_import"), 1u);
  EXPECT_EQ(runDriver({"-o", "out", "a.mdl"}), 0);
  const LogRecord* summary = findRecord(log, "1 mdl files successfully converted\n");
  ASSERT_NE(summary, nullptr) << log.text();
  EXPECT_EQ(summary->color, colors::kGreen);
  EXPECT_TRUE(stdfs::exists(game.dir.path() / "out/a_refs.txt"));
}

TEST(Driver, AFailedModelDoesNotStopTheOthersAndFailsTheRunInRed) {
  GameFolder game;
  game.model("models", "a");
  writeText(game.dir.file("models/broken.mdl"), "not a model");
  game.model("models/sub", "c");
  LogCapture log;
  EXPECT_EQ(runDriver({"-o", "out", "-r", "models/*.mdl"}), 1);
  for (const std::string& line : {std::string("Beginning conversion of 3 models...\n"),
                                  "Conversion of " + zv::testing::nativeSpelling(game.dir.file("models/broken.mdl")) + "\n"}) {
    const LogRecord* r = findRecord(log, line);
    ASSERT_NE(r, nullptr) << log.text();
    EXPECT_EQ(r->color, colors::kCyan);
  }
  const LogRecord* summary =
      findRecord(log, "1 mdl files failed to convert and 2 mdl files successfully converted\n");
  ASSERT_NE(summary, nullptr) << log.text();
  EXPECT_EQ(summary->color, colors::kRed);
  EXPECT_TRUE(stdfs::exists(game.dir.path() / "out/a_refs.txt"));
  EXPECT_TRUE(stdfs::exists(game.dir.path() / "out/c_refs.txt"));
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
    EXPECT_EQ(log.count("Application unable to load gameinfo.gi file from directory \"" +
                        game.dir.file("nosuchmod") + "\""),
              1u)
        << log.text();
    EXPECT_EQ(log.count("Beginning conversion"), 0u);
  }
}

TEST(Driver, MaterialsAreFoundThroughTheModsSearchPaths) {
  GameFolder game;
  game.model("", "crate");
  writeText(game.dir.file("mymod/gameinfo.gi"),
            "\"GameInfo\" { FileSystem { SearchPaths { Game |mod|content } } }");
  writeText(game.dir.file("mymod/content/materials/models/props/crate.qmt"), "");
  ASSERT_EQ(runDriver({"-o", "plain", "crate.mdl"}), 0);
  EXPECT_EQ(zv::testing::readText(game.dir.path() / "plain/crate_refs.txt"), "importfilelist\n{\n}\n");
  ASSERT_EQ(runDriver({"-game", "mymod", "-o", "modded", "crate.mdl"}), 0);
  EXPECT_EQ(zv::testing::readText(game.dir.path() / "modded/crate_refs.txt"),
            "importfilelist\n{\n\t\"file\"\t\"materials\\models\\props\\crate.qmt\"\n}\n");
}

}  // namespace
}  // namespace zv::app
