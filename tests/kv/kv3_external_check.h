#pragma once
// Runs the independent KV3 reader from the shared tools folder on a text, for tests that
// check the written documents against a reader that is not ours.

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include <sys/wait.h>

#include "support/test_support.h"

namespace zv::testing {

struct ExternalReadResult {
  int exitCode = -1;
  std::string output;
};

// Nothing when python3 or the shared reader is not available.
inline std::optional<ExternalReadResult> runExternalKv3Reader(const std::string& text) {
  std::filesystem::path script = sharedDir() / "tools" / "kv3read.py";
  if (sharedDir().empty() || !std::filesystem::is_regular_file(script) ||
      std::system("python3 -c pass >/dev/null 2>&1") != 0) {
    return std::nullopt;
  }
  TempDir dir;
  std::string input = dir.file("doc.kv3");
  std::string output = dir.file("out.txt");
  writeText(input, text);
  std::string command = "python3 '" + script.string() + "' '" + input + "' >'" + output + "' 2>&1";
  int status = std::system(command.c_str());
  return ExternalReadResult{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readText(output)};
}

}  // namespace zv::testing
