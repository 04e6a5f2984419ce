// Models converted straight out of packed archives, as users keep their content.

#include <gtest/gtest.h>

#include "app/driver.h"
#include "base/log.h"
#include "qpkpack/qpk_writer.h"
#include "support/model_fixtures.h"
#include "support/test_support.h"

namespace zv::app {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::readBytes;
using zv::testing::ScopedCurrentDir;
using zv::testing::ScopedEnv;
using zv::testing::TempDir;
using zv::testing::writeFamily;
using zv::testing::writeText;

namespace stdfs = std::filesystem;

// Every file below root, by relative path.
std::map<std::string, std::vector<uint8_t>> tree(const stdfs::path& root) {
  std::map<std::string, std::vector<uint8_t>> files;
  for (const auto& entry : stdfs::recursive_directory_iterator(root)) {
    if (entry.is_regular_file()) files[stdfs::relative(entry.path(), root).generic_string()] = readBytes(entry.path());
  }
  return files;
}

struct ArchiveGame {
  TempDir dir;
  ScopedCurrentDir cwd{dir.path()};
  ScopedEnv noMod{"QMOD", nullptr};
  ScopedEnv noScm{"P4PORT", nullptr};

  ArchiveGame() {
    mdlforge::Description d = crateModel();
    d.textures = {"crate", "crate_lid"};
    writeFamily(buildFiles(d), dir.file("loose/models/props"), "crate");
    writeFamily(buildFiles(d), dir.file("loose/models/props/big"), "bigcrate");
    writeText(dir.file("loose/materials/models/props/crate.qmt"), "");
    writeText(dir.file("loose/materials/models/props/crate_lid.qmt"), "");
    auto files = qpkpack::collectFolder(dir.path() / "loose");
    EXPECT_TRUE(files) << files.message();
    qpkpack::PackOptions options;
    options.maxDirectoryBytes = 64;  // most files go to a numbered data file
    options.preloadBytes = 16;
    auto written = qpkpack::writeQpkArchive(*files, dir.file("content/pak01_dir.qpk"), options);
    EXPECT_TRUE(written) << written.message();
  }
};

TEST(ArchiveConversion, ModelsFromAnArchiveMatchTheSameModelsConvertedLoose) {
  ArchiveGame game;
  LogCapture log;
  ASSERT_EQ(runDriver({"-i", "loose", "-o", "from_loose", "-r", "loose/models/*.mdl"}), 0) << log.text();
  ASSERT_EQ(runDriver({"-i", "content", "-o", "from_archive", "-r", "qpk:content/pak01_dir.qpk:models/*.mdl"}), 0)
      << log.text();
  auto loose = tree(game.dir.path() / "from_loose");
  auto packed = tree(game.dir.path() / "from_archive");
  // The archive's inner folders map below the output root like the loose folders do.
  EXPECT_TRUE(loose.count("models/props/big/bigcrate.qmdl"));
  EXPECT_TRUE(loose.count("models/props/crate_refs/mesh/crate_bg_body_lod0.dmx"));
  ASSERT_EQ(loose.size(), packed.size());
  for (const auto& [name, bytes] : loose) {
    ASSERT_TRUE(packed.count(name)) << name;
    EXPECT_EQ(bytes, packed[name]) << name;
  }
  // The materials are found inside the archive when converting from it.
  EXPECT_NE(std::string(packed["models/props/crate_refs.txt"].begin(), packed["models/props/crate_refs.txt"].end())
                .find("crate_lid.qmt"),
            std::string::npos);
}

}  // namespace
}  // namespace zv::app
