// The packed numbers of animation data against values worked out by hand from their bits.

#include "anim/packing.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/float_sanitize.h"
#include "base/log.h"

namespace zv::anim {
namespace {

TEST(HalfFloat, RebiasedExponentSignAndOverflow) {
  const std::pair<uint16_t, float> cases[] = {
      {0x3C00, 1.0f},   {0x3E00, 1.5f},        {0xC000, -2.0f},         {0x7BFF, 65504.0f},
      {0x0000, 0.0f},   {0x0001, 5.9604645e-8f} /* 2^-24 */, {0x0400, 6.1035156e-5f} /* 2^-14 */,
  };
  for (auto [bits, value] : cases) EXPECT_EQ(halfToFloat(bits), value) << std::hex << bits;
  EXPECT_TRUE(std::signbit(halfToFloat(0x8000)));
  // 65536 and more have every exponent bit set: infinity, or NaN with a mantissa.
  EXPECT_EQ(halfToFloat(0x7C00), INFINITY);
  EXPECT_EQ(halfToFloat(0xFC00), -INFINITY);
  EXPECT_TRUE(std::isnan(halfToFloat(0x7E00)));
}

void expectQuaternion(const Quaternion& q, const Quaternion& want, float tolerance = 1e-4f) {
  EXPECT_NEAR(q.x, want.x, tolerance);
  EXPECT_NEAR(q.y, want.y, tolerance);
  EXPECT_NEAR(q.z, want.z, tolerance);
  EXPECT_NEAR(q.w, want.w, tolerance);
}

TEST(Quaternion48, ComponentsOverTheirRangesAndTheSignOfW) {
  expectQuaternion(unpackQuaternion48(32768, 32768, 16384), {0, 0, 0, 1}, 0);
  expectQuaternion(unpackQuaternion48(32768, 32768, 16384 | 0x8000), {0, 0, 0, -1}, 0);
  // z over 14 bits: 0.7071 * 16384.5 + 16384 = 27970.
  expectQuaternion(unpackQuaternion48(32768, 32768, 27970), {0, 0, 0.70712f, 0.70709f});
  // x from a, y from b: -0.5 is 16384 below the middle.
  expectQuaternion(unpackQuaternion48(16384, 49152, 16384), {-0.49999f, 0.49999f, 0, 0.70712f});
}

TEST(Quaternion48, StoredComponentsBeyondUnitLengthGiveANaNW) {
  Quaternion q = unpackQuaternion48(65535, 65535, 16384);
  EXPECT_NEAR(q.x, 0.99995f, 1e-5f);
  EXPECT_TRUE(std::isnan(q.w));
}

TEST(Quaternion48Omitted, TheTopBitsNameTheFirstStoredComponent) {
  // 0.6 / 4.3162985e-5 = 13901 steps above 16384.
  const uint16_t zero = 16384, sixTenths = 16384 + 13901;
  // First stored x (0): x, y, z stored, w computed.
  expectQuaternion(unpackQuaternion48Omitted(zero, zero, sixTenths), {0, 0, 0.6f, 0.8f});
  // First stored y (1): y, z, w stored, x computed and negative.
  expectQuaternion(unpackQuaternion48Omitted(zero, 0x8000 | zero, 0x8000 | sixTenths), {-0.8f, 0, 0, 0.6f});
  // First stored z (2): z, w, x stored, y computed.
  expectQuaternion(unpackQuaternion48Omitted(0x8000 | sixTenths, zero, zero), {0, 0.8f, 0.6f, 0});
  // First stored w (3): w, x, y stored, z computed.
  expectQuaternion(unpackQuaternion48Omitted(0x8000 | sixTenths, 0x8000 | zero, zero), {0, 0, 0.8f, 0.6f});
}

TEST(Quaternion48Omitted, ANonFiniteComponentBecomesZeroWithTheSharedWarning) {
  resetInvalidFloatRepairsForTesting();
  LogCapture log;
  Quaternion q = unpackQuaternion48Omitted(0x7FFF, 0x7FFF, 0x7FFF);  // stored components far beyond 1
  EXPECT_EQ(q.w, 0.0f);
  EXPECT_NEAR(q.x, 16383 * 4.3162985e-5f, 1e-6f);
  EXPECT_EQ(invalidFloatRepairs(), 1u);
  EXPECT_EQ(log.count("mdl to dmx: zeroing out invalid vertices\n"), 1u);
}

TEST(Quaternion64, TwentyOneBitFieldsAndAClampedW) {
  constexpr uint64_t kMiddle = 1048576;
  auto pack = [](uint64_t x, uint64_t y, uint64_t z, bool negativeW) {
    return x | (y << 21) | (z << 42) | (uint64_t(negativeW) << 63);
  };
  expectQuaternion(unpackQuaternion64(pack(kMiddle, kMiddle, kMiddle, false)), {0, 0, 0, 1}, 0);
  expectQuaternion(unpackQuaternion64(pack(kMiddle, kMiddle, kMiddle, true)), {0, 0, 0, -1}, 0);
  // 0.6 is 629146 steps above the middle.
  expectQuaternion(unpackQuaternion64(pack(kMiddle, kMiddle + 629146, kMiddle, false)), {0, 0.6f, 0, 0.8f}, 1e-6f);
  // Beyond unit length the radicand is clamped: w is 0, not NaN.
  Quaternion q = unpackQuaternion64(pack(2097151, 2097151, kMiddle, false));
  EXPECT_EQ(q.w, 0.0f);
}

}  // namespace
}  // namespace zv::anim
