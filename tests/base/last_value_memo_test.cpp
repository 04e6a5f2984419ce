#include "base/last_value_memo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/math.h"

namespace zv {
namespace {

TEST(LastValueMemo, ComputesOnlyWhenTheBytesOfTheInputChange) {
  LastValueMemo<Vector3, float> memo;
  int calls = 0;
  auto length = [&](const Vector3& v) {
    ++calls;
    return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
  };
  EXPECT_EQ(memo.get({3, 4, 0}, length), 5.f);
  EXPECT_EQ(memo.get({3, 4, 0}, length), 5.f);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(memo.get({0, 0, 2}, length), 2.f);
  EXPECT_EQ(calls, 2);
  // A value equal as a number but not as bytes is computed afresh: the result may differ.
  float nan = std::numeric_limits<float>::quiet_NaN();
  LastValueMemo<float, float> sign;
  int signCalls = 0;
  auto copySign = [&](float f) {
    ++signCalls;
    return std::copysign(1.f, f);
  };
  EXPECT_EQ(sign.get(0.f, copySign), 1.f);
  EXPECT_EQ(sign.get(-0.f, copySign), -1.f);
  EXPECT_EQ(signCalls, 2);
  // The same NaN twice is the same input.
  sign.get(nan, copySign);
  sign.get(nan, copySign);
  EXPECT_EQ(signCalls, 3);
}

TEST(LastValueMemo, TheFirstInputIsComputedEvenWhenItLooksLikeTheDefault) {
  LastValueMemo<int, int> memo;
  int calls = 0;
  EXPECT_EQ(memo.get(0, [&](int) { return ++calls; }), 1);
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace zv
