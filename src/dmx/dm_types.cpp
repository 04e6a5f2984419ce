#include "dmx/dm_types.h"

#include <cmath>
#include <cstdio>
#include <limits>

namespace zv::dmx {
namespace {

constexpr std::array<std::string_view, 17> kScalarNames = {
    "unknown", "element", "int",     "float",  "bool",       "string", "binary", "time", "color",
    "vector2", "vector3", "vector4", "qangle", "quaternion", "matrix", "uint64", "uint8"};
constexpr std::array<std::string_view, 17> kArrayNames = {
    "unknown",      "element_array",    "int_array",    "float_array",   "bool_array",    "string_array",
    "binary_array", "time_array",       "color_array",  "vector2_array", "vector3_array", "vector4_array",
    "qangle_array", "quaternion_array", "matrix_array", "uint64_array",  "uint8_array"};

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string_view typeName(DmType type) {
  auto id = static_cast<uint8_t>(type);
  if (isScalarId(id)) return kScalarNames[id];
  if (isArrayId(id)) return kArrayNames[id - kArrayIdOffset];
  return kScalarNames[0];
}

std::string typeNameOfId(uint8_t id) { return std::string(typeName(typeFromId(id))); }

DmTime DmTime::fromSeconds(double seconds) {
  double ticks = std::floor(seconds * kTicksPerSecond + 0.5);
  if (!(ticks == ticks)) return {};  // NaN
  constexpr double kMin = std::numeric_limits<int32_t>::min();
  constexpr double kMax = std::numeric_limits<int32_t>::max();
  return {static_cast<int32_t>(ticks < kMin ? kMin : (ticks > kMax ? kMax : ticks))};
}

DmElementId DmElementId::fromNumber(uint32_t number, uint32_t tag) {
  DmElementId id;
  for (int i = 0; i < 4; ++i) {
    id.bytes[i] = static_cast<uint8_t>(number >> (8 * i));
    id.bytes[4 + i] = static_cast<uint8_t>(tag >> (8 * i));
  }
  return id;
}

std::string DmElementId::toString() const {
  const auto& b = bytes;
  char text[kElementIdTextMax + 1];
  std::snprintf(text, sizeof text, "{%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                b[3], b[2], b[1], b[0], b[5], b[4], b[7], b[6], b[8], b[9], b[10], b[11], b[12], b[13], b[14],
                b[15]);
  return text;
}

std::optional<DmElementId> DmElementId::parse(std::string_view text) {
  if (text.size() == kElementIdTextMax && text.front() == '{' && text.back() == '}') {
    text = text.substr(1, text.size() - 2);
  }
  if (text.size() != 36) return std::nullopt;
  // Byte order of the hex pairs: the first three groups are little-endian numbers.
  constexpr std::array<int, 16> kByteOfPair = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  DmElementId id;
  size_t pair = 0;
  for (size_t i = 0; i < text.size();) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (text[i] != '-') return std::nullopt;
      ++i;
      continue;
    }
    int hi = hexDigit(text[i]), lo = hexDigit(text[i + 1]);
    if (hi < 0 || lo < 0) return std::nullopt;
    id.bytes[kByteOfPair[pair++]] = static_cast<uint8_t>(hi * 16 + lo);
    i += 2;
  }
  return id;
}

}  // namespace zv::dmx
