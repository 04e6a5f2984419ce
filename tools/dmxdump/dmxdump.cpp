// dmxdump [--importer] FILE: prints a binary DMX file as indented text; exit 1 when it
// cannot be read. --importer prints instead what common DMX importers would refuse or
// drop, one line each, and exits 3 when there is anything.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "dmx/dm_dump.h"
#include "dmx/dm_importer_check.h"
#include "dmx/dm_reader.h"

namespace {

bool readFile(const char* path, std::vector<uint8_t>& bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  bytes.assign(std::istreambuf_iterator<char>(in), {});
  return !in.bad();
}

}  // namespace

int main(int argc, char** argv) {
  bool importer = argc == 3 && std::string(argv[1]) == "--importer";
  if (argc != 2 && !importer) {
    std::fprintf(stderr, "usage: dmxdump [--importer] FILE\n");
    return 1;
  }
  const char* path = argv[argc - 1];
  std::vector<uint8_t> bytes;
  if (!readFile(path, bytes)) {
    std::fprintf(stderr, "dmxdump: cannot read %s\n", path);
    return 1;
  }
  zv::Result<zv::dmx::DmDocument> doc = zv::dmx::readDmx(zv::ByteView(bytes));
  if (!doc) {
    std::fprintf(stderr, "%s: %s\n", path, doc.message().c_str());
    return 1;
  }
  if (importer) {
    std::vector<std::string> problems = zv::dmx::importerProblems(*doc);
    for (const std::string& problem : problems) std::printf("IMPORTER %s\n", problem.c_str());
    return problems.empty() ? 0 : 3;
  }
  std::string text = zv::dmx::dumpDmx(*doc);
  std::fwrite(text.data(), 1, text.size(), stdout);
  return std::fflush(stdout) == 0 ? 0 : 1;
}
