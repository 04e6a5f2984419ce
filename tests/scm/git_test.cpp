#include "scm/git_source_control.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/log.h"
#include "scm/p4_file.h"
#include "scm_test_helpers.h"

namespace zv::scm {
namespace {
namespace fs = std::filesystem;
using Names = std::vector<std::string>;

size_t warnings(const LogCapture& capture) {
  return std::count_if(capture.records().begin(), capture.records().end(),
                       [](const LogRecord& r) { return r.severity >= Severity::Warning; });
}

// Real repositories in a temporary folder. Git is reached through a wrapper first on
// the PATH that records each call and hands it to the real git.
class GitRepository : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* path = std::getenv("PATH");
    realGit_ = findOnPath("git", path ? path : "").value_or("");
    if (realGit_.empty()) GTEST_SKIP() << "git is not installed";
    testing::writeScript(dir_.path() / "bin/git",
                         "#!/bin/sh\nprintf x >>'" + calls_ + "'\nexec '" + realGit_ + "' \"$@\"\n");
    repo_ = makeRepository("repo");
    system_ = chooseSourceControl({.forced = Backend::Git},
                                  testing::fixedEnvironment({{"PATH", dir_.file("bin")}}));
    ASSERT_EQ(sourceControlBanner(*system_), "Source control: git\n");
  }

  fs::path makeRepository(const std::string& name) {
    fs::create_directories(dir_.path() / name);
    git(dir_.path() / name, {"init", "-q"});
    return dir_.path() / name;
  }
  // Runs the real git, not the counting wrapper.
  std::string git(const fs::path& top, std::vector<std::string> args) {
    args.insert(args.begin(), {realGit_, "-C", top.string(), "-c", "user.name=B", "-c",
                               "user.email=b@example.invalid", "-c", "commit.gpgsign=false"});
    ProcessResult result = runProcess(args);
    EXPECT_TRUE(result.ok()) << describeCommand(args) << ": " << result.err;
    return result.out;
  }
  Names tracked(const fs::path& top) {
    Names files = split(git(top, {"ls-files"}), '\n');
    std::erase(files, "");
    return files;
  }
  // Writes a file through the write protocol, as every writer of the converter does.
  void write(const fs::path& file, const std::string& text = "x") {
    ScopedSourceControlWrite guard(system_.get(), file.string());
    testing::writeText(file, text);
  }
  // The wrapper writes one byte per call.
  size_t gitCalls() const { return fs::exists(calls_) ? fs::file_size(calls_) : 0; }

  zv::testing::TempDir dir_;
  std::string calls_ = dir_.file("git-calls"), realGit_;
  fs::path repo_;
  std::unique_ptr<SourceControl> system_;
};

TEST_F(GitRepository, NewFilesAreAddedAtFlushLiterallyOnceAndByTheirRepository) {
  fs::path other = makeRepository("other");
  testing::writeText(repo_ / "axb.dmx", "not ours");  // what "a*b.dmx" would match as a pattern
  testing::writeText(repo_ / "x.dmx", "not ours");    // and "[x].dmx"
  for (fs::path file : {repo_ / "props/mesh/crate.dmx", other / "b.dmx", repo_ / "a*b.dmx", repo_ / "[x].dmx",
                        repo_ / "with space's.dmx", repo_ / "props/mesh/crate.dmx"})
    write(file);
  {
    zv::testing::ScopedCurrentDir inside(repo_ / "props");
    write("../rel.dmx");
  }
  EXPECT_EQ(gitCalls(), 0u);  // nothing per file: it waits for the batch
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_),
            (Names{"[x].dmx", "a*b.dmx", "props/mesh/crate.dmx", "rel.dmx", "with space's.dmx"}));
  EXPECT_EQ(tracked(other), Names{"b.dmx"});
  EXPECT_EQ(gitCalls(), 4u);  // a listing and an add per repository
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(gitCalls(), 4u);  // nothing left: no call
}

TEST_F(GitRepository, TrackedIgnoredAndOutsideFilesStayAsTheyWere) {
  for (fs::path at = dir_.path(); at != at.parent_path(); at = at.parent_path()) {
    if (fs::exists(at / ".git")) GTEST_SKIP() << "the temporary folder is inside a repository";
  }
  testing::writeText(repo_ / ".gitignore", "*.log\nbuild/\n");
  testing::writeText(repo_ / "model.qmdl", "old");
  git(repo_, {"add", "--", ".gitignore", "model.qmdl"});
  git(repo_, {"commit", "-q", "-m", "fixture"});
  LogCapture capture;
  for (fs::path file :
       {repo_ / "model.qmdl", repo_ / "convert.log", repo_ / "build/out.dmx", dir_.path() / "loose/a.dmx"})
    write(file);
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(git(repo_, {"status", "--porcelain"}), " M model.qmdl\n");  // not staged
  EXPECT_EQ(tracked(repo_), (Names{".gitignore", "model.qmdl"}));
  EXPECT_EQ(gitCalls(), 1u);  // the repository's listing found nothing to add; the loose file asks nothing
  EXPECT_EQ(warnings(capture), 0u) << capture.text();
}

TEST_F(GitRepository, ThousandsOfFilesCostAFewCalls) {
  constexpr size_t kFiles = 1000;
  for (size_t i = 0; i < kFiles; ++i)
    write(repo_ / ("model" + std::to_string(i % 20)) / (std::to_string(i) + ".dmx"));
  EXPECT_TRUE(system_->flush());
  EXPECT_EQ(tracked(repo_).size(), kFiles);
  // A listing and an add per batch of files.
  EXPECT_LE(gitCalls(), 2 * ((kFiles + GitSourceControl::kBatchFiles - 1) / GitSourceControl::kBatchFiles));
}

TEST_F(GitRepository, AFailingAddIsReportedAndTheLastBatchIsAddedWhenTheSystemGoes) {
  // Another git process holding the index makes the add fail.
  testing::writeText(repo_ / ".git/index.lock", "");
  LogCapture capture;
  write(repo_ / "a.dmx");
  EXPECT_FALSE(system_->flush());
  EXPECT_EQ(capture.count("git: adding 1 files in"), 1u) << capture.text();
  fs::remove(repo_ / ".git/index.lock");
  write(repo_ / "b.dmx");
  system_.reset();
  EXPECT_EQ(tracked(repo_), Names{"b.dmx"});
}

}  // namespace
}  // namespace zv::scm
