#pragma once
// What identifies this build of the tool in run reports: its version, and a fingerprint of
// the program file itself, so that an incremental run never trusts outputs of another build.

#include <string>

namespace zv::app {

std::string toolVersion();

}  // namespace zv::app
