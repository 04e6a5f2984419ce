#pragma once
// Runs a source-control client as a child process. Arguments go to the program as a
// vector, never through a shell, so paths with spaces, quotes or '$' arrive unchanged.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zv::scm {

struct ProcessResult {
  bool started = false;   // false when the program could not be run at all
  bool timedOut = false;  // killed after the time limit
  int exitCode = -1;      // the exit status; -1 when killed by a signal or never started
  std::string out;
  std::string err;
  std::string startError;  // why it did not start

  bool ok() const { return started && !timedOut && exitCode == 0; }
};

// Runs argv[0] (searched on the PATH when it has no folder part) with the process's
// environment and standard input at the null device, so a client that wants a password
// fails instead of waiting. Output beyond kMaxCapturedOutput per stream is dropped.
ProcessResult runProcess(const std::vector<std::string>& argv,
                         std::chrono::milliseconds timeout = std::chrono::minutes(5));

inline constexpr size_t kMaxCapturedOutput = 16u << 20;

// The full path of an executable program found in the folders of pathList (the value of
// PATH), or nothing.
std::optional<std::string> findOnPath(std::string_view program, std::string_view pathList);

// The command line that hands argv to a Windows program unchanged, under the rules its C
// runtime (and CommandLineToArgvW) splits a command line by.
std::string windowsCommandLine(const std::vector<std::string>& argv);
// One argument of it: quoted where needed, with backslashes doubled before quotes.
std::string windowsArgument(std::string_view arg);

// Text for a log line: "prog arg1 'arg 2'" (quoted where a shell would need it).
std::string describeCommand(const std::vector<std::string>& argv);

}  // namespace zv::scm
