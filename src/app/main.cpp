// Process entry: hands the arguments after the program name to the driver.

#include <string>
#include <vector>

#include "app/driver.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  return zv::app::runDriver(args);
}
