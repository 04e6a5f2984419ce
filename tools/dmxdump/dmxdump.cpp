// dmxdump FILE: prints a binary DMX file as indented text; exit 1 when it cannot be read.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "dmx/dm_dump.h"
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
  if (argc != 2) {
    std::fprintf(stderr, "usage: dmxdump FILE\n");
    return 1;
  }
  std::vector<uint8_t> bytes;
  if (!readFile(argv[1], bytes)) {
    std::fprintf(stderr, "dmxdump: cannot read %s\n", argv[1]);
    return 1;
  }
  zv::Result<zv::dmx::DmDocument> doc = zv::dmx::readDmx(zv::ByteView(bytes));
  if (!doc) {
    std::fprintf(stderr, "%s: %s\n", argv[1], doc.message().c_str());
    return 1;
  }
  std::string text = zv::dmx::dumpDmx(*doc);
  std::fwrite(text.data(), 1, text.size(), stdout);
  return std::fflush(stdout) == 0 ? 0 : 1;
}
