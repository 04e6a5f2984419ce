// The mdlforge program: the committed samples regenerate byte for byte from their
// descriptions, and bad command lines or descriptions fail with a message.

#include <gtest/gtest.h>

#include <filesystem>

#include "support/test_support.h"

namespace zv::mdlforge {
namespace {

namespace fs = std::filesystem;
using zv::testing::TempDir;

struct ForgeRun {
  int status = -1;
  std::string errors;
};

ForgeRun runForge(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), MDLFORGE_PATH);
  zv::testing::ProgramRun run = zv::testing::runProgram(arguments);
  return {run.status, run.err};
}

std::string pathArg(const fs::path& path) { return path.string(); }

TEST(MdlforgeCli, RegeneratesEveryCommittedSampleByteForByte) {
  std::vector<fs::path> descriptions;
  for (const auto& entry : fs::directory_iterator(zv::testing::sourceDir() / "samples")) {
    if (entry.path().extension() == ".txt") descriptions.push_back(entry.path());
  }
  ASSERT_GE(descriptions.size(), 4u);
  for (const fs::path& description : descriptions) {
    SCOPED_TRACE(description.string());
    TempDir out;
    ForgeRun run = runForge({pathArg(description), pathArg(out.path() / "models")});
    ASSERT_EQ(run.status, 0) << run.errors;
    // Every file the description gives is committed, and nothing more.
    for (const char* extension : {".mdl", ".qvd", ".dx90.vtx", ".ani"}) {
      std::string name = description.stem().string() + extension;
      fs::path committed = description.parent_path() / name;
      ASSERT_EQ(fs::exists(committed), fs::exists(out.path() / "models" / name)) << name;
      if (!fs::exists(committed)) continue;
      EXPECT_EQ(zv::testing::readBytes(out.path() / "models" / name), zv::testing::readBytes(committed))
          << name << " differs from what its description gives";
    }
  }
}

TEST(MdlforgeCli, WritesOnlyTheFilesAskedForAndFailsWithAMessage) {
  TempDir dir;
  zv::testing::writeText(dir.path() / "d.txt",
                         R"("model" { "name" "models\x\thing.mdl" "stripfile" { "write" "0" } })");
  ForgeRun good = runForge({pathArg(dir.path() / "d.txt"), pathArg(dir.path() / "out")});
  ASSERT_EQ(good.status, 0) << good.errors;
  EXPECT_TRUE(fs::exists(dir.path() / "out/thing.mdl"));
  EXPECT_TRUE(fs::exists(dir.path() / "out/thing.qvd"));
  EXPECT_FALSE(fs::exists(dir.path() / "out/thing.dx90.vtx"));

  ForgeRun usage = runForge({"only-one-argument"});
  EXPECT_EQ(usage.status, 2);
  EXPECT_NE(usage.errors.find("usage: mdlforge DESCRIPTION OUTDIR"), std::string::npos);

  ForgeRun missing = runForge({pathArg(dir.path() / "absent.txt"), pathArg(dir.path())});
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.errors.find("cannot read"), std::string::npos);

  zv::testing::writeText(dir.path() / "bad.txt", R"("model" { "hull_min" "1 2" })");
  ForgeRun bad = runForge({pathArg(dir.path() / "bad.txt"), pathArg(dir.path() / "out2")});
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.errors.find("bad.txt: model > \"hull_min\" needs 3 numbers"), std::string::npos)
      << bad.errors;
  EXPECT_FALSE(fs::exists(dir.path() / "out2"));
}

}  // namespace
}  // namespace zv::mdlforge
