#pragma once
// The qpkpack command line, callable in-process so tests need not spawn the tool.

#include <string>
#include <vector>

namespace zv::qpkpack {

// Runs "qpkpack [-v1|-v2] [-max-dir-bytes N] [-preload N] [-max-data-bytes N]
// OUT_dir.qpk FOLDER" (args without the program name). Lines for the user go to out,
// problems to err. Returns the exit code: 0 done, 1 failed, 2 bad usage.
int runQpkpack(const std::vector<std::string>& args, std::string& out, std::string& err);

}  // namespace zv::qpkpack
