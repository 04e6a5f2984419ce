#pragma once
#include <string>
#include <vector>

namespace zv::app {

// Runs the tool on the arguments after the program name: start-up, command line, one
// conversion per input model, summary. Returns 0 when every model converted, else 1.
int runDriver(const std::vector<std::string>& args);

}  // namespace zv::app
