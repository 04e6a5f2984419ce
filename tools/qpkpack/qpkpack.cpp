// qpkpack: packs a folder into a packed archive. See qpkpack_main.h for the options.

#include <cstdio>
#include <string>
#include <vector>

#include "qpkpack/qpkpack_main.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  std::string out, err;
  int code = zv::qpkpack::runQpkpack(args, out, err);
  std::fputs(out.c_str(), stdout);
  std::fputs(err.c_str(), stderr);
  return code;
}
