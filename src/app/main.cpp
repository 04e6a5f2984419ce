// Process entry: hands the arguments after the program name to the driver.

#include <string>
#include <vector>

#include "app/driver.h"
#include "base/native_path.h"

int main(int argc, char** argv) { return zv::app::runDriver(zv::native::commandLineArguments(argc, argv)); }
