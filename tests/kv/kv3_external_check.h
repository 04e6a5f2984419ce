#pragma once
// Runs the independent KV3 reader from the shared tools folder on a text, for tests that
// check the written documents against a reader that is not ours.

#include <filesystem>
#include <optional>
#include <string>

#include "support/test_support.h"

namespace zv::testing {

struct ExternalReadResult {
  int exitCode = -1;
  std::string output;
};

// Nothing when python3 or the shared reader is not available.
inline std::optional<ExternalReadResult> runExternalKv3Reader(const std::string& text) {
  std::filesystem::path script = sharedDir() / "tools" / "kv3read.py";
  if (sharedDir().empty() || !std::filesystem::is_regular_file(script) || runProgram({"python3", "-c", "pass"}).status != 0) {
    return std::nullopt;
  }
  TempDir dir;
  std::string input = dir.file("doc.kv3");
  writeText(input, text);
  ProgramRun run = runProgram({"python3", script.string(), input});
  return ExternalReadResult{run.status, run.out + run.err};
}

}  // namespace zv::testing
