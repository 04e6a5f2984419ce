#include "anim/packing.h"

#include <bit>
#include <cmath>

#include "base/float_sanitize.h"

namespace zv::anim {

Quaternion unpackQuaternion48(uint16_t a, uint16_t b, uint16_t c) {
  Quaternion q;
  q.x = (float(a) - 32768.0f) / 32768.5f;
  q.y = (float(b) - 32768.0f) / 32768.5f;
  q.z = (float(c & 0x7FFF) - 16384.0f) / 16384.5f;
  q.w = std::sqrt(1.0f - q.x * q.x - q.y * q.y - q.z * q.z);
  if (c & 0x8000) q.w = -q.w;
  return q;
}

Quaternion unpackQuaternion48Omitted(uint16_t a, uint16_t b, uint16_t c) {
  const float scale = std::bit_cast<float>(0x383509E7u);  // about 1 / 23168
  float component[4];
  int first = 2 * (a >> 15) + (b >> 15);
  float stored[3] = {(float(a & 0x7FFF) - 16384.0f) * scale, (float(b & 0x7FFF) - 16384.0f) * scale,
                     (float(c & 0x7FFF) - 16384.0f) * scale};
  float squares = 0;
  for (int k = 0; k < 3; ++k) {
    component[(first + k) % 4] = stored[k];
    squares += stored[k] * stored[k];
  }
  float omitted = std::sqrt(1.0f - squares);
  component[(first + 3) % 4] = (c & 0x8000) ? -omitted : omitted;
  for (float& value : component) value = sanitizeFloat(value);
  return {component[0], component[1], component[2], component[3]};
}

Quaternion unpackQuaternion64(uint64_t q) {
  constexpr uint64_t kMask = (uint64_t{1} << 21) - 1;
  auto component = [&](int shift) { return (double((q >> shift) & kMask) - 1048576.0) / 1048576.5; };
  double x = component(0), y = component(21), z = component(42);
  double w = std::sqrt(std::max(0.0, 1.0 - x * x - y * y - z * z));
  if (q >> 63) w = -w;
  return {float(x), float(y), float(z), float(w)};
}

}  // namespace zv::anim
