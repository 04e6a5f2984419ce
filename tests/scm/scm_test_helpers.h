#pragma once
// Shared pieces of the source-control tests: scripts, a fixed environment and the p4
// stand-in on a private PATH.

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/strings.h"
#include "scm/process.h"
#include "scm/source_control.h"
#include "support/test_support.h"

namespace zv::scm::testing {

using Calls = std::vector<std::vector<std::string>>;
using zv::testing::readText;
using zv::testing::writeText;

inline void writeScript(const std::filesystem::path& file, const std::string& text) {
  writeText(file, text);
  std::filesystem::permissions(file, std::filesystem::perms::owner_all);
}

// Exactly these variables, as the start-up choice sees the environment.
inline EnvironmentLookup fixedEnvironment(std::map<std::string, std::string> values) {
  return [values = std::move(values)](const std::string& name) -> std::optional<std::string> {
    auto it = values.find(name);
    return it == values.end() ? std::nullopt : std::optional<std::string>(it->second);
  };
}

// The p4 stand-in (p4_double.cpp) in a folder of its own, with its server table and call
// record beside it, named by ZV_P4_DOUBLE_DIR for the object's lifetime.
class P4Double {
 public:
  // The stand-in program, copied in as "p4" (with the platform's program suffix).
  P4Double() {
    std::filesystem::path program(ZV_P4_DOUBLE_PATH);
    std::filesystem::create_directories(dir_.path() / "bin");
    std::filesystem::copy_file(program, dir_.path() / "bin" / ("p4" + program.extension().string()));
  }
  std::string binFolder() const { return dir_.file("bin"); }
  std::string file(const std::string& name) const { return dir_.file("ws/" + name); }
  // Puts a file on the server, submitted at rev (0 = never) and opened by this client
  // with action ("" = not opened).
  void addFile(const std::string& clientPath, int rev, const std::string& action = "") {
    std::ofstream(dir_.path() / "depot", std::ios::binary | std::ios::app)
        << format("%s|//depot%s|%d|edit|%s|%s\n", clientPath.c_str(), clientPath.c_str(), rev, action.c_str(),
                  action.empty() ? "" : "default");
  }
  void goOffline() { writeText(dir_.path() / "offline", ""); }
  // The arguments of every call since the last time they were taken.
  Calls takeCalls() {
    Calls calls;
    std::filesystem::path record = dir_.path() / "calls";
    for (const std::string& line : split(std::filesystem::exists(record) ? readText(record) : "", '\n')) {
      if (!line.empty()) calls.push_back(split(line, '\t'));
    }
    std::filesystem::remove(record);
    return calls;
  }

 private:
  zv::testing::TempDir dir_;
  zv::testing::ScopedEnv env_{"ZV_P4_DOUBLE_DIR", dir_.str().c_str()};
};

}  // namespace zv::scm::testing
