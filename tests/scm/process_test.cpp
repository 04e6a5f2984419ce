#include "scm/process.h"

#include <gtest/gtest.h>

#include <chrono>

#include "scm_test_helpers.h"
#include "support/test_support.h"

namespace zv::scm {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(RunProcess, CapturesBothStreamsAndTheExitStatus) {
  ProcessResult result = runProcess({"sh", "-c", "printf out; printf err >&2; exit 3"});
  EXPECT_TRUE(result.started);
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.out, "out");
  EXPECT_EQ(result.err, "err");
  EXPECT_FALSE(result.ok());
  EXPECT_TRUE(runProcess({"sh", "-c", "exit 0"}).ok());
}

TEST(RunProcess, ArgumentsArriveUnchangedWithoutAShell) {
  ProcessResult result = runProcess(
      {"sh", "-c", "for a in \"$@\"; do printf '[%s]' \"$a\"; done", "sh", "a b", "it's", "$HOME", "", "*"});
  ASSERT_TRUE(result.ok()) << result.err;
  EXPECT_EQ(result.out, "[a b][it's][$HOME][][*]");
}

TEST(RunProcess, AMissingProgramDoesNotStart) {
  ProcessResult result = runProcess({"zv-no-such-program-here"});
  EXPECT_FALSE(result.started);
  EXPECT_FALSE(result.ok());
  EXPECT_FALSE(result.startError.empty());
  EXPECT_FALSE(runProcess({}).started);
}

TEST(RunProcess, LargeOutputOnBothStreamsDoesNotDeadlock) {
  // Far beyond a pipe's buffer on each stream, so reading one stream only would hang.
  ProcessResult result = runProcess({"sh", "-c", "head -c 3000000 /dev/zero; head -c 2000000 /dev/zero >&2"},
                                    std::chrono::seconds(30));
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(result.out.size(), 3000000u);
  EXPECT_EQ(result.err.size(), 2000000u);
}

TEST(RunProcess, TheTimeLimitKillsAHangingChild) {
  auto start = steady_clock::now();
  ProcessResult result = runProcess({"sh", "-c", "exec sleep 20"}, milliseconds(300));
  EXPECT_TRUE(result.started);
  EXPECT_TRUE(result.timedOut);
  EXPECT_FALSE(result.ok());
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(RunProcess, StandardInputIsEmpty) {
  // A client asking for a password must see end of input, not wait for a terminal.
  ProcessResult result = runProcess({"sh", "-c", "cat; echo end"}, std::chrono::seconds(10));
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.out, "end\n");
}

TEST(RunProcess, ReturnsWhenTheChildExitsEvenIfItsOwnChildKeepsThePipes) {
  auto start = steady_clock::now();
  ProcessResult result = runProcess({"sh", "-c", "sleep 4 & echo started"}, std::chrono::seconds(30));
  EXPECT_TRUE(result.ok());
  EXPECT_EQ(result.out, "started\n");
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(3));
}

TEST(FindOnPath, TakesTheFirstExecutableMatchInPathOrder) {
  zv::testing::TempDir dir;
  testing::writeScript(dir.path() / "b" / "tool", "#!/bin/sh\n");
  testing::writeScript(dir.path() / "c" / "tool", "#!/bin/sh\n");
  zv::testing::writeText(dir.path() / "a" / "tool", "not executable");
  std::string list = dir.file("missing") + ":" + dir.file("a") + ":" + dir.file("b") + ":" + dir.file("c");
  EXPECT_EQ(findOnPath("tool", list), (dir.path() / "b" / "tool").string());
  EXPECT_EQ(findOnPath("tool", dir.file("a")), std::nullopt);
  EXPECT_EQ(findOnPath("other", list), std::nullopt);
  EXPECT_EQ(findOnPath("b/tool", dir.str()), std::nullopt);  // names only
}

TEST(FindOnPath, EmptyEntriesMeanTheCurrentFolderButNoPathMeansNothing) {
  zv::testing::TempDir dir;
  testing::writeScript(dir.path() / "tool", "#!/bin/sh\n");
  zv::testing::ScopedCurrentDir here(dir.path());
  EXPECT_TRUE(findOnPath("tool", "/nonexistent::/also-not").has_value());
  EXPECT_FALSE(findOnPath("tool", "/nonexistent:/also-not").has_value());
  EXPECT_FALSE(findOnPath("tool", "").has_value());
}

}  // namespace
}  // namespace zv::scm
