// The mdlforge program: the committed samples regenerate byte for byte from their
// descriptions, and bad command lines or descriptions fail with a message.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "forge_check.h"
#include "support/test_support.h"

namespace zv::mdlforge {
namespace {

namespace fs = std::filesystem;
using check::Bytes;
using zv::testing::TempDir;

struct ForgeRun {
  int status = -1;
  std::string errors;
};

ForgeRun runForge(const std::string& arguments, const TempDir& scratch) {
  std::string errorFile = scratch.file("stderr.txt");
  std::string command = std::string("\"") + MDLFORGE_PATH + "\" " + arguments + " 2> \"" + errorFile + "\"";
  int raw = std::system(command.c_str());
  ForgeRun run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.errors = zv::testing::readText(errorFile);
  return run;
}

std::string quoted(const fs::path& path) { return "\"" + path.string() + "\""; }

std::vector<fs::path> sampleDescriptions() {
  std::vector<fs::path> out;
  for (const auto& entry : fs::directory_iterator(zv::testing::sourceDir() / "samples")) {
    if (entry.path().extension() == ".txt") out.push_back(entry.path());
  }
  std::sort(out.begin(), out.end());
  return out;
}

TEST(MdlforgeCli, RegeneratesEveryCommittedSampleByteForByte) {
  std::vector<fs::path> descriptions = sampleDescriptions();
  ASSERT_GE(descriptions.size(), 2u);
  for (const fs::path& description : descriptions) {
    SCOPED_TRACE(description.string());
    TempDir out;
    ForgeRun run = runForge(quoted(description) + " " + quoted(out.path() / "models"), out);
    ASSERT_EQ(run.status, 0) << run.errors;
    for (const char* extension : {".mdl", ".qvd", ".dx90.vtx"}) {
      std::string name = description.stem().string() + extension;
      fs::path committed = description.parent_path() / name;
      ASSERT_TRUE(fs::exists(committed)) << name << " is not committed";
      EXPECT_EQ(zv::testing::readBytes(out.path() / "models" / name), zv::testing::readBytes(committed))
          << name << " differs from what its description gives";
    }
  }
}

// The samples are what the demo converts: a prop with two skins and a body group whose
// second choice is empty, and a model with three levels of detail.
TEST(MdlforgeCli, SamplesHoldWhatTheDemoShows) {
  fs::path samples = zv::testing::sourceDir() / "samples";
  Bytes crate(zv::testing::readBytes(samples / "crate.mdl"));
  EXPECT_EQ(crate.i32(224), 2) << "skin families";
  EXPECT_EQ(crate.i32(204), 2) << "textures";
  EXPECT_EQ(crate.i32(212), 1) << "texture directories";
  size_t lid = static_cast<size_t>(crate.i32(236)) + 16;
  ASSERT_EQ(crate.i32(lid + 4), 2);
  EXPECT_EQ(crate.i32(crate.follow(lid, 12) + 148 + 72), 0) << "the second choice is empty";
  EXPECT_TRUE(fs::exists(samples / "materials/models/props/crate_wood.qmt"));

  Bytes pillar(zv::testing::readBytes(samples / "pillar.dx90.vtx"));
  ASSERT_EQ(pillar.i32(20), 3);
  size_t lods = pillar.follow(pillar.follow(static_cast<size_t>(pillar.i32(32)), 4), 4);
  std::vector<int32_t> indices;
  for (size_t l = 0; l < 3; ++l) {
    size_t group = pillar.follow(pillar.follow(lods + 12 * l, 4), 4);
    indices.push_back(pillar.i32(group + 8));
  }
  EXPECT_EQ(indices, (std::vector<int32_t>{48, 24, 6}));
}

TEST(MdlforgeCli, WritesOnlyTheFilesTheDescriptionAsksFor) {
  TempDir dir;
  zv::testing::writeText(dir.path() / "d.txt",
                         R"("model" { "name" "models\x\thing.mdl" "stripfile" { "write" "0" } })");
  ForgeRun run = runForge(quoted(dir.path() / "d.txt") + " " + quoted(dir.path() / "out"), dir);
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_TRUE(fs::exists(dir.path() / "out/thing.mdl"));
  EXPECT_TRUE(fs::exists(dir.path() / "out/thing.qvd"));
  EXPECT_FALSE(fs::exists(dir.path() / "out/thing.dx90.vtx"));
}

TEST(MdlforgeCli, BadCommandLinesAndDescriptionsFailWithAMessage) {
  TempDir dir;
  ForgeRun usage = runForge("only-one-argument", dir);
  EXPECT_EQ(usage.status, 2);
  EXPECT_NE(usage.errors.find("usage: mdlforge DESCRIPTION OUTDIR"), std::string::npos);

  ForgeRun missing = runForge(quoted(dir.path() / "absent.txt") + " " + quoted(dir.path()), dir);
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.errors.find("cannot read"), std::string::npos);

  zv::testing::writeText(dir.path() / "bad.txt", R"("model" { "hull_min" "1 2" })");
  ForgeRun bad = runForge(quoted(dir.path() / "bad.txt") + " " + quoted(dir.path() / "out"), dir);
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.errors.find("bad.txt: model > \"hull_min\" needs 3 numbers"), std::string::npos)
      << bad.errors;
  EXPECT_FALSE(fs::exists(dir.path() / "out"));
}

}  // namespace
}  // namespace zv::mdlforge
