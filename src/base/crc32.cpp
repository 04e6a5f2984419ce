#include "base/crc32.h"

#include <array>

namespace zv {
namespace {

constexpr std::array<uint32_t, 256> makeTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t c = i;
    for (int bit = 0; bit < 8; ++bit) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    table[i] = c;
  }
  return table;
}

constexpr std::array<uint32_t, 256> kTable = makeTable();

}  // namespace

uint32_t crc32(std::span<const uint8_t> bytes, uint32_t previous) {
  uint32_t c = ~previous;
  for (uint8_t b : bytes) c = kTable[(c ^ b) & 0xFF] ^ (c >> 8);
  return ~c;
}

}  // namespace zv
