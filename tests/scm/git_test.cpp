#include "scm/git_source_control.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/log.h"
#include "base/strings.h"
#include "scm/p4_file.h"
#include "scm/process.h"
#include "scm_test_helpers.h"
#include "support/test_support.h"

namespace zv::scm {
namespace {
namespace fs = std::filesystem;

size_t warnings(const LogCapture& capture) {
  return static_cast<size_t>(
      std::count_if(capture.records().begin(), capture.records().end(),
                    [](const LogRecord& r) { return r.severity >= Severity::Warning; }));
}

// Real repositories in a temporary folder. Git is reached through a wrapper first on
// the PATH that records each call and hands it to the real git.
class GitRepository : public ::testing::Test {
 protected:
  void SetUp() override {
    realGit_ = testing::programOnPath("git");
    if (realGit_.empty()) GTEST_SKIP() << "git is not installed";
    testing::writeScript(dir_.path() / "bin" / "git", "#!/bin/sh\necho \"$*\" >>'" + dir_.file("git-calls") +
                                                          "'\nexec '" + realGit_ + "' \"$@\"\n");
    repo_ = makeRepository("repo");
    testing::FakeEnvironment env{{{"PATH", dir_.file("bin")}}};
    system_ = chooseSourceControl({.forced = Backend::Git}, env.lookup());
    ASSERT_EQ(system_->backend(), Backend::Git);
  }

  fs::path makeRepository(const std::string& name) {
    fs::path top = dir_.path() / name;
    fs::create_directories(top);
    git(top, {"init", "-q"});
    git(top, {"config", "user.email", "builder@example.invalid"});
    git(top, {"config", "user.name", "Builder"});
    git(top, {"config", "commit.gpgsign", "false"});
    return top;
  }

  // Runs the real git, not the counting wrapper.
  std::string git(const fs::path& top, std::vector<std::string> args) {
    args.insert(args.begin(), {realGit_, "-C", top.string()});
    ProcessResult result = runProcess(args);
    EXPECT_TRUE(result.ok()) << describeCommand(args) << ": " << result.err;
    return result.out;
  }

  std::vector<std::string> tracked(const fs::path& top) {
    std::vector<std::string> files = split(git(top, {"ls-files"}), '\n');
    files.erase(std::remove(files.begin(), files.end(), ""), files.end());
    return files;
  }

  void commitFile(const fs::path& top, const std::string& name, const std::string& text) {
    zv::testing::writeText(top / name, text);
    git(top, {"add", "--", name});
    git(top, {"commit", "-q", "-m", "fixture"});
    fs::remove(dir_.path() / "git-calls");
  }

  // Writes a file through the write protocol, as every writer of the converter does.
  void writeThroughProtocol(const fs::path& file, const std::string& text) {
    ScopedSourceControlWrite write(system_.get(), file.string());
    zv::testing::writeText(file, text);
  }

  size_t gitCalls() const {
    fs::path log = dir_.path() / "git-calls";
    if (!fs::exists(log)) return 0;
    std::string text = zv::testing::readText(log);
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
  }

  zv::testing::TempDir dir_;
  std::string realGit_;
  fs::path repo_;
  std::unique_ptr<SourceControl> system_;
};

TEST_F(GitRepository, ANewFileIsAddedWhenTheBatchIsFlushed) {
  writeThroughProtocol(repo_ / "props" / "crate_refs" / "mesh" / "crate.dmx", "mesh");
  EXPECT_EQ(gitCalls(), 0u);  // nothing per file: it waits for the batch
  EXPECT_TRUE(tracked(repo_).empty());
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_), std::vector<std::string>{"props/crate_refs/mesh/crate.dmx"});
  EXPECT_EQ(sourceControlBanner(*system_), "Source control: git\n");
}

TEST_F(GitRepository, ATrackedFileStaysAsItWas) {
  commitFile(repo_, "model.qmdl", "old");
  writeThroughProtocol(repo_ / "model.qmdl", "new");
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(git(repo_, {"diff", "--cached", "--name-only"}), "");  // not staged
  EXPECT_EQ(git(repo_, {"status", "--porcelain"}), " M model.qmdl\n");
  EXPECT_EQ(gitCalls(), 1u);  // the listing found nothing to add
}

TEST_F(GitRepository, AnIgnoredFileIsNotAddedAndNothingFails) {
  commitFile(repo_, ".gitignore", "*.log\nbuild/\n");
  LogCapture capture;
  writeThroughProtocol(repo_ / "convert.log", "log");
  writeThroughProtocol(repo_ / "build" / "out.dmx", "dmx");
  writeThroughProtocol(repo_ / "kept.dmx", "dmx");
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_), (std::vector<std::string>{".gitignore", "kept.dmx"}));
  EXPECT_EQ(warnings(capture), 0u) << capture.text();
}

TEST_F(GitRepository, AFileOutsideAnyRepositoryIsLeftAlone) {
  for (fs::path at = dir_.path(); at != at.parent_path(); at = at.parent_path()) {
    if (fs::exists(at / ".git")) GTEST_SKIP() << "the temporary folder is inside a repository";
  }
  LogCapture capture;
  writeThroughProtocol(dir_.path() / "loose" / "a.dmx", "x");
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(gitCalls(), 0u);
  EXPECT_EQ(warnings(capture), 0u) << capture.text();
}

TEST_F(GitRepository, ThousandsOfFilesCostAFewCalls) {
  constexpr int kFiles = 1000;
  for (int i = 0; i < kFiles; ++i) {
    writeThroughProtocol(repo_ / ("model" + std::to_string(i % 20)) / ("anim_" + std::to_string(i) + ".dmx"),
                         "a");
  }
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_).size(), static_cast<size_t>(kFiles));
  // A listing and an add per batch of files.
  size_t batches = (kFiles + GitSourceControl::kBatchFiles - 1) / GitSourceControl::kBatchFiles;
  EXPECT_LE(gitCalls(), 2 * batches);
}

TEST_F(GitRepository, OneBatchServesEachRepositoryItTouches) {
  fs::path other = makeRepository("other");
  writeThroughProtocol(repo_ / "a.dmx", "a");
  writeThroughProtocol(other / "b.dmx", "b");
  writeThroughProtocol(repo_ / "sub" / "c.dmx", "c");
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_), (std::vector<std::string>{"a.dmx", "sub/c.dmx"}));
  EXPECT_EQ(tracked(other), std::vector<std::string>{"b.dmx"});
  EXPECT_EQ(gitCalls(), 4u);
}

TEST_F(GitRepository, NamesAreTakenLiterallyNotAsPatterns) {
  zv::testing::writeText(repo_ / "axb.dmx", "not ours");
  zv::testing::writeText(repo_ / "x.dmx", "not ours");
  writeThroughProtocol(repo_ / "a*b.dmx", "ours");
  writeThroughProtocol(repo_ / "[x].dmx", "ours");
  writeThroughProtocol(repo_ / "with space's.dmx", "ours");
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_), (std::vector<std::string>{"[x].dmx", "a*b.dmx", "with space's.dmx"}));
}

TEST_F(GitRepository, AFileWrittenTwiceIsAddedOnce) {
  writeThroughProtocol(repo_ / "a.dmx", "1");
  writeThroughProtocol(repo_ / "a.dmx", "2");
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_), std::vector<std::string>{"a.dmx"});
  EXPECT_TRUE(system_->flush());  // nothing left: no call
  EXPECT_EQ(gitCalls(), 2u);
}

TEST_F(GitRepository, RelativePathsAreAddedToTheRightRepository) {
  fs::create_directories(repo_ / "deep");
  zv::testing::ScopedCurrentDir inRepo(repo_ / "deep");
  writeThroughProtocol("../rel.dmx", "r");
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_), std::vector<std::string>{"rel.dmx"});
}

TEST_F(GitRepository, TheLastBatchIsAddedWhenTheSystemGoes) {
  writeThroughProtocol(repo_ / "late.dmx", "x");
  system_.reset();
  EXPECT_EQ(tracked(repo_), std::vector<std::string>{"late.dmx"});
}

TEST_F(GitRepository, AFailingAddIsReportedAndTheRunGoesOn) {
  // Another git process holding the index makes the add fail.
  zv::testing::writeText(repo_ / ".git" / "index.lock", "");
  LogCapture capture;
  writeThroughProtocol(repo_ / "a.dmx", "x");
  EXPECT_FALSE(system_->flush());
  EXPECT_EQ(capture.count("git: adding 1 files in"), 1u) << capture.text();
  EXPECT_TRUE(fs::exists(repo_ / "a.dmx"));

  fs::remove(repo_ / ".git" / "index.lock");
  writeThroughProtocol(repo_ / "b.dmx", "x");
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_), std::vector<std::string>{"b.dmx"});
}

}  // namespace
}  // namespace zv::scm
