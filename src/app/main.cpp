// Process entry: sets the heap up for a batch and hands the arguments after the program
// name to the driver.

#include <string>
#include <vector>

#include "app/driver.h"
#include "base/heap.h"
#include "base/native_path.h"

int main(int argc, char** argv) {
  zv::heap::keepFreedMemoryForReuse();
  return zv::app::runDriver(zv::native::commandLineArguments(argc, argv));
}
