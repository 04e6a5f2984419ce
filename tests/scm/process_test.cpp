#include "scm/process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

#include "base/log.h"
#include "scm_test_helpers.h"

namespace zv::scm {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

TEST(RunProcess, CapturesBothStreamsAndTheExitStatus) {
  ProcessResult result = runProcess({"sh", "-c", "printf out; printf err >&2; exit 3"});
  EXPECT_TRUE(result.started && !result.timedOut && !result.ok());
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.out + "|" + result.err, "out|err");
  EXPECT_TRUE(runProcess({"sh", "-c", "exit 0"}).ok());
  ProcessResult missing = runProcess({"zv-no-such-program-here"});
  EXPECT_FALSE(missing.started || missing.startError.empty());
}

TEST(RunProcess, ArgumentsArriveUnchangedWithoutAShellAndInputIsEmpty) {
  // cat must see the end of input at once: a client asking for a password must not wait.
  ProcessResult result = runProcess({"sh", "-c", "cat; for a in \"$@\"; do printf '[%s]' \"$a\"; done", "sh",
                                     "a b", "it's", "$HOME", "", "*"},
                                    seconds(10));
  ASSERT_TRUE(result.ok()) << result.err;
  EXPECT_EQ(result.out, "[a b][it's][$HOME][][*]");
}

TEST(RunProcess, LargeOutputOnBothStreamsDoesNotDeadlock) {
  // Far beyond a pipe's buffer on each stream, so reading one stream only would hang.
  ProcessResult result =
      runProcess({"sh", "-c", "head -c 3000000 /dev/zero; head -c 2000000 /dev/zero >&2"}, seconds(30));
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(result.out.size() + result.err.size(), 5000000u);
  EXPECT_EQ(result.err.size(), 2000000u);
}

TEST(RunProcess, TheTimeLimitKillsAHangingChildAndAGrandchildDoesNotHoldTheRun) {
  auto start = steady_clock::now();
  ProcessResult hanging = runProcess({"sh", "-c", "exec sleep 20"}, std::chrono::milliseconds(300));
  EXPECT_TRUE(hanging.started && hanging.timedOut && !hanging.ok());
  EXPECT_LT(steady_clock::now() - start, seconds(10));
  // The child exits at once; its own child keeps the pipes open for a while.
  start = steady_clock::now();
  ProcessResult result = runProcess({"sh", "-c", "sleep 4 & echo started"}, seconds(30));
  EXPECT_TRUE(result.ok());
  EXPECT_EQ(result.out, "started\n");
  EXPECT_LT(steady_clock::now() - start, seconds(3));
}

TEST(FindOnPath, TakesTheFirstExecutableMatchInPathOrder) {
  zv::testing::TempDir dir;
  testing::writeScript(dir.path() / "b/tool", "#!/bin/sh\n");
  testing::writeScript(dir.path() / "c/tool", "#!/bin/sh\n");
  testing::writeText(dir.path() / "a/tool", "not executable");
  std::string list = dir.file("missing") + ":" + dir.file("a") + ":" + dir.file("b") + ":" + dir.file("c");
  EXPECT_EQ(findOnPath("tool", list), dir.file("b/tool"));
  EXPECT_EQ(findOnPath("other", list), std::nullopt);
  EXPECT_EQ(findOnPath("b/tool", dir.str()), std::nullopt);  // names only
  // An empty entry means the current folder; an empty PATH means nothing.
  zv::testing::ScopedCurrentDir here(dir.path() / "b");
  EXPECT_TRUE(findOnPath("tool", "/nonexistent::/also-not").has_value());
  EXPECT_FALSE(findOnPath("tool", "/nonexistent:/also-not").has_value());
  EXPECT_FALSE(findOnPath("tool", "").has_value());
}

TEST(SourceControlChoice, ScmDecidesNoP4KeepsP4OutAndP4NeedsThePathAndConfiguration) {
  zv::testing::TempDir dir;
  testing::writeScript(dir.path() / "tools/p4", "#!/bin/sh\n");
  testing::writeScript(dir.path() / "tools/git", "#!/bin/sh\n");
  const std::tuple<Choice, const char*, const char*, Backend> cases[] = {
      {{}, "", "", Backend::None},
      {{}, "P4PORT", "ssl:server:1666", Backend::P4},
      {{}, "P4CONFIG", ".p4config", Backend::P4},
      {{}, "P4PORT", "", Backend::None},             // set but empty is not configured
      {{}, "GIT_DIR", "/somewhere", Backend::None},  // git is never chosen unasked
      {{.forced = {}, .noP4 = true}, "P4PORT", "server:1666", Backend::None},
      {{.forced = Backend::P4, .noP4 = true}, "P4PORT", "server:1666", Backend::None},
      {{.forced = Backend::Git, .noP4 = true}, "", "", Backend::Git},  // -nop4 is about p4 only
      {{.forced = Backend::None}, "P4PORT", "server:1666", Backend::None},
      {{.forced = Backend::Git}, "P4PORT", "server:1666", Backend::Git},
      {{.forced = Backend::P4}, "", "", Backend::P4},  // asked for, p4 may use its own defaults
  };
  for (const auto& [choice, variable, value, expected] : cases) {
    auto environment = testing::fixedEnvironment({{"PATH", dir.file("tools")}, {variable, value}});
    EXPECT_EQ(chooseSourceControl(choice, environment)->backend(), expected)
        << variable << "=" << value << " -nop4 " << choice.noP4;
  }
  // Not on the PATH: none, with a warning when the client was asked for.
  auto elsewhere = testing::fixedEnvironment({{"PATH", dir.file("nowhere")}, {"P4PORT", "server:1666"}});
  LogCapture log;
  EXPECT_EQ(chooseSourceControl({}, elsewhere)->backend(), Backend::None);
  EXPECT_EQ(log.records().size(), 0u);
  EXPECT_EQ(chooseSourceControl({.forced = Backend::Git}, elsewhere)->backend(), Backend::None);
  EXPECT_EQ(chooseSourceControl({.forced = Backend::P4}, elsewhere)->backend(), Backend::None);
  EXPECT_EQ(log.count("no git program is on the PATH"), 1u);
  EXPECT_EQ(log.count("no p4 program is on the PATH"), 1u);
}

}  // namespace
}  // namespace zv::scm
