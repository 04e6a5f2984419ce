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

// The child (tests/support/child_main.cpp) is one program on every platform, so these
// tests run the same under Windows, where there is no shell to lean on.
const std::string kChild = ZV_TEST_CHILD_PATH;

#ifdef _WIN32
constexpr char kListSeparator = ';';
const std::string kProgramSuffix = ".exe";
#else
constexpr char kListSeparator = ':';
const std::string kProgramSuffix;
#endif

// A file the platform would start as a program: executable here, a ".exe" on Windows.
std::filesystem::path writeProgram(const std::filesystem::path& file) {
  std::filesystem::path program = file;
  program += kProgramSuffix;
  testing::writeScript(program, "#!/bin/sh\n");
  return program;
}

TEST(RunProcess, CapturesBothStreamsAndTheExitStatus) {
  ProcessResult result = runProcess({kChild, "exit", "3", "out", "err"});
  EXPECT_TRUE(result.started && !result.timedOut && !result.ok());
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.out + "|" + result.err, "out|err");
  EXPECT_TRUE(runProcess({kChild, "exit", "0", "", ""}).ok());
  ProcessResult missing = runProcess({"zv-no-such-program-here"});
  EXPECT_FALSE(missing.started || missing.startError.empty());
}

TEST(RunProcess, ArgumentsArriveUnchangedWithoutAShellAndInputIsEmpty) {
  // What a shell would expand or split, and what a Windows command line must quote and
  // escape: spaces, quotes, backslashes before quotes and at the end, empty arguments.
  // The child must also see the end of its input at once: a client asking for a password
  // must not wait.
  const std::vector<std::string> args = {"a b", "it's", "$HOME", "", "*", "say \"hi\"", "\"", "\\\"",
                                         "back\\slash", "end\\", "two ends\\\\", "tab\there", "%PATH%",
                                         "a&b|c>d", "\xC3\xBCn\xC3\xAF \xE2\x98\x83"};
  std::vector<std::string> argv{kChild, "args"};
  argv.insert(argv.end(), args.begin(), args.end());
  ProcessResult result = runProcess(argv, seconds(10));
  ASSERT_TRUE(result.ok()) << result.err;
  std::string expected;
  for (const std::string& arg : args) expected += "[" + arg + "]";
  EXPECT_EQ(result.out, expected);
}

TEST(RunProcess, WindowsCommandLinesQuoteOnlyWhatNeedsIt) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain", "plain"},
      {"C:\\dir\\file.mdl", "C:\\dir\\file.mdl"},  // backslashes alone are literal
      {"end\\", "end\\"},
      {"", "\"\""},
      {"a b", "\"a b\""},
      {"a b\\", "\"a b\\\\\""},  // doubled, or it would escape the closing quote
      {"say \"hi\"", "\"say \\\"hi\\\"\""},
      {"a\\\"b", "\"a\\\\\\\"b\""},
      {"tab\there", "\"tab\there\""},
  };
  for (const auto& [arg, quoted] : cases) EXPECT_EQ(windowsArgument(arg), quoted) << arg;
  EXPECT_EQ(windowsCommandLine({"C:\\Program Files\\p4.exe", "fstat", "a b"}),
            "\"C:\\Program Files\\p4.exe\" fstat \"a b\"");
}

TEST(RunProcess, LargeOutputOnBothStreamsDoesNotDeadlock) {
  // Far beyond a pipe's buffer on each stream, so reading one stream only would hang.
  ProcessResult result = runProcess({kChild, "flood", "3000000", "2000000"}, seconds(30));
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(result.out.size(), 3000000u);
  EXPECT_EQ(result.err.size(), 2000000u);
}

TEST(RunProcess, TheTimeLimitKillsAHangingChildAndAGrandchildDoesNotHoldTheRun) {
  auto start = steady_clock::now();
  ProcessResult hanging = runProcess({kChild, "sleep", "20000"}, std::chrono::milliseconds(300));
  EXPECT_TRUE(hanging.started && hanging.timedOut && !hanging.ok());
  EXPECT_LT(steady_clock::now() - start, seconds(10));
  // The child exits at once; its own child keeps the pipes open far longer than starting
  // a program can take on a loaded machine (under wine too), so only waiting for it fails.
  start = steady_clock::now();
  ProcessResult result = runProcess({kChild, "orphan", "8000"}, seconds(60));
  EXPECT_TRUE(result.ok());
  EXPECT_EQ(result.out, "started\n");
  EXPECT_LT(steady_clock::now() - start, seconds(6));
}

TEST(FindOnPath, TakesTheFirstExecutableMatchInPathOrder) {
  zv::testing::TempDir dir;
  std::filesystem::path found = writeProgram(dir.path() / "b/tool");
  writeProgram(dir.path() / "c/tool");
  testing::writeText(dir.path() / "a/tool", "not a program");
  auto list = [&](std::initializer_list<std::string> folders) {
    std::string text;
    for (const std::string& folder : folders) text += (text.empty() ? "" : std::string(1, kListSeparator)) + folder;
    return text;
  };
  std::string path = list({dir.file("missing"), dir.file("a"), dir.file("b"), dir.file("c")});
  std::optional<std::string> tool = findOnPath("tool", path);
  ASSERT_TRUE(tool);
  EXPECT_TRUE(std::filesystem::equivalent(*tool, found)) << *tool;
  EXPECT_EQ(findOnPath("other", path), std::nullopt);
  EXPECT_EQ(findOnPath("b/tool", dir.str()), std::nullopt);  // names only
#ifdef _WIN32
  EXPECT_EQ(findOnPath("b\\tool", dir.str()), std::nullopt);
  EXPECT_TRUE(findOnPath("TOOL.EXE", path).has_value());           // the extension given
  EXPECT_TRUE(findOnPath("tool", "\"" + dir.file("b") + "\"").has_value());  // a quoted entry
#endif
  // An empty entry means the current folder; an empty PATH means nothing.
  zv::testing::ScopedCurrentDir here(dir.path() / "b");
  EXPECT_TRUE(findOnPath("tool", list({dir.file("none"), "", dir.file("also-not")})).has_value());
  EXPECT_FALSE(findOnPath("tool", list({dir.file("none"), dir.file("also-not")})).has_value());
  EXPECT_FALSE(findOnPath("tool", "").has_value());
}

TEST(SourceControlChoice, ScmDecidesNoP4KeepsP4OutAndP4NeedsThePathAndConfiguration) {
  zv::testing::TempDir dir;
  writeProgram(dir.path() / "tools/p4");
  writeProgram(dir.path() / "tools/git");
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
