#include "scm_test_helpers.h"

#include <cstdlib>
#include <stdexcept>

#include "base/strings.h"
#include "scm/process.h"

namespace zv::scm::testing {
namespace fs = std::filesystem;

void writeScript(const fs::path& file, const std::string& text) {
  zv::testing::writeText(file, text);
  fs::permissions(file, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec,
                  fs::perm_options::replace);
}

std::string programOnPath(const char* name) {
  const char* path = std::getenv("PATH");
  return findOnPath(name, path ? path : "").value_or("");
}

EnvironmentLookup FakeEnvironment::lookup() const {
  return [values = values](const std::string& name) -> std::optional<std::string> {
    auto it = values.find(name);
    if (it == values.end()) return std::nullopt;
    return it->second;
  };
}

P4Double::P4Double() : env_("ZV_P4_DOUBLE_DIR", dir_.str().c_str()) {
  // Copied so that the test does not depend on the checkout keeping the execute bit.
  writeScript(program(), zv::testing::readText(zv::testing::sourceDir() / "tests" / "scm" / "p4"));
  fs::create_directories(workspace());
}

void P4Double::addFile(const std::string& clientPath, int rev, const std::string& headAction,
                       const std::string& action) {
  std::string table = fs::exists(dir_.path() / "depot") ? zv::testing::readText(dir_.path() / "depot") : "";
  table += clientPath + "|//depot" + clientPath + "|" + std::to_string(rev) + "|" + headAction + "|" +
           action + "|" + (action.empty() ? "" : "default") + "\n";
  zv::testing::writeText(dir_.path() / "depot", table);
}

void P4Double::goOffline() { zv::testing::writeText(dir_.path() / "offline", ""); }

std::vector<std::vector<std::string>> P4Double::calls() const {
  std::vector<std::vector<std::string>> calls;
  if (!fs::exists(dir_.path() / "calls")) return calls;
  for (const std::string& line : split(zv::testing::readText(dir_.path() / "calls"), '\n')) {
    if (!line.empty()) calls.push_back(split(line, '\t'));
  }
  return calls;
}

}  // namespace zv::scm::testing
