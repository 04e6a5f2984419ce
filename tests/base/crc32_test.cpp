#include "base/crc32.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

namespace zv {
namespace {

std::span<const uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

TEST(Crc32, MatchesTheStandardCheckValues) {
  EXPECT_EQ(crc32({}), 0u);
  EXPECT_EQ(crc32(bytesOf("123456789")), 0xCBF43926u);
  EXPECT_EQ(crc32(bytesOf("The quick brown fox jumps over the lazy dog")), 0x414FA339u);
  std::vector<uint8_t> zeros(32, 0);
  EXPECT_EQ(crc32(zeros), 0x190A55ADu);
}

TEST(Crc32, PiecesChainToTheWholeChecksum) {
  std::string_view text = "preload bytes then the rest";
  uint32_t whole = crc32(bytesOf(text));
  for (size_t cut = 0; cut <= text.size(); ++cut) {
    EXPECT_EQ(crc32(bytesOf(text.substr(cut)), crc32(bytesOf(text.substr(0, cut)))), whole) << cut;
  }
}

}  // namespace
}  // namespace zv
