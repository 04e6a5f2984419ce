#pragma once
// Shared pieces of the source-control tests: executable scripts, the p4 stand-in on a
// private PATH, and an environment for the start-up choice.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "scm/source_control.h"
#include "support/test_support.h"

namespace zv::scm::testing {

// Writes an executable script.
void writeScript(const std::filesystem::path& file, const std::string& text);

// The full path of a program on this process's PATH, or "".
std::string programOnPath(const char* name);

// A fixed set of environment variables, as the start-up choice sees them.
struct FakeEnvironment {
  std::map<std::string, std::string> values;
  EnvironmentLookup lookup() const;
};

// The p4 stand-in (tests/scm/p4) in a folder of its own, with its server table and call
// record in a temporary folder named by ZV_P4_DOUBLE_DIR for the object's lifetime.
class P4Double {
 public:
  P4Double();

  std::string program() const { return (dir_.path() / "bin" / "p4").string(); }
  std::string binFolder() const { return (dir_.path() / "bin").string(); }
  // A folder for the workspace's files.
  std::filesystem::path workspace() const { return dir_.path() / "ws"; }

  // Puts a file on the server: submitted at rev (0 = never submitted), opened by this
  // client with action ("" = not opened).
  void addFile(const std::string& clientPath, int rev, const std::string& headAction = "edit",
               const std::string& action = "");
  void goOffline();
  // Every call so far, one argument vector each.
  std::vector<std::vector<std::string>> calls() const;

 private:
  zv::testing::TempDir dir_;
  zv::testing::ScopedEnv env_;
};

}  // namespace zv::scm::testing
