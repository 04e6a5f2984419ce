#include "base/math.h"

#include <array>
#include <bit>
#include <cstdint>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "base/float_sanitize.h"
#include "base/hash.h"
#include "base/log.h"

namespace zv {
namespace {

void expectNear(const Vector3& v, float x, float y, float z, float eps = 1e-5f) {
  EXPECT_NEAR(v.x, x, eps);
  EXPECT_NEAR(v.y, y, eps);
  EXPECT_NEAR(v.z, z, eps);
}

TEST(AngleConventions, YawNinetyTurnsForwardOntoY) {
  Quaternion q = angleQuaternion({0, 90, 0});
  EXPECT_NEAR(q.x, 0, 1e-6);
  EXPECT_NEAR(q.y, 0, 1e-6);
  EXPECT_NEAR(q.z, 0.7071068f, 1e-6);
  EXPECT_NEAR(q.w, 0.7071068f, 1e-6);
  Matrix3x4 m = angleMatrix({0, 90, 0});
  expectNear(m.column(0), 0, 1, 0);
  expectNear(m.column(1), -1, 0, 0);
  expectNear(m.column(2), 0, 0, 1);
}

TEST(AngleConventions, PitchNinetyPointsForwardDown) {
  expectNear(angleMatrix({90, 0, 0}).column(0), 0, 0, -1);
}

TEST(AngleConventions, AnglesSurviveBothRoundTrips) {
  QAngle a{30, 45, 60};
  QAngle viaQuat = quaternionAngles(angleQuaternion(a));
  QAngle viaMatrix = matrixAngles(angleMatrix(a));
  for (const QAngle& back : {viaQuat, viaMatrix}) {
    EXPECT_NEAR(back.pitch, 30, 1e-4);
    EXPECT_NEAR(back.yaw, 45, 1e-4);
    EXPECT_NEAR(back.roll, 60, 1e-4);
  }
}

TEST(AngleConventions, QuaternionAndMatrixRoutesAgree) {
  QAngle a{-20, 170, 5};
  Matrix3x4 fromAngles = angleMatrix(a);
  Matrix3x4 fromQuat = quaternionMatrix(angleQuaternion(a));
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) EXPECT_NEAR(fromAngles.m[i][j], fromQuat.m[i][j], 1e-5) << i << "," << j;
  Quaternion back = matrixQuaternion(fromAngles);
  Quaternion q = angleQuaternion(a);
  float sign = (back.w * q.w + back.x * q.x + back.y * q.y + back.z * q.z) < 0 ? -1.f : 1.f;
  EXPECT_NEAR(back.x * sign, q.x, 1e-5);
  EXPECT_NEAR(back.w * sign, q.w, 1e-5);
}

TEST(AngleConventions, YupToZupMatrixMapsYOntoZ) {
  Matrix3x4 m = angleMatrix({0, 0, 90}) * angleMatrix({90, 0, 0});
  expectNear(rotateVector(m, {0, 1, 0}), 0, 0, 1);
}

TEST(AngleConventions, RadianEulerIsPitchYawRollReordered) {
  QAngle a = toQAngle(RadianEuler{0.5f, 1.0f, 1.5f});
  EXPECT_NEAR(a.pitch, 1.0f * kRadToDeg, 1e-4);
  EXPECT_NEAR(a.yaw, 1.5f * kRadToDeg, 1e-4);
  EXPECT_NEAR(a.roll, 0.5f * kRadToDeg, 1e-4);
}

uint32_t bitsOf(float f) { return std::bit_cast<uint32_t>(f); }

// A key's arithmetic as the converter does it (angles to a quaternion and back, a matrix
// moved by root motion, the key's quaternion, a point carried through), against the bits
// it gives. Written files hold these bits, so a build that rounds differently (one fusing
// multiply-adds, say) or a reordered formula shows here and not only as changed files.
TEST(KeyArithmetic, GivesTheSameBitsOnEveryBuild) {
  struct Case {
    QAngle angles;
    std::array<uint32_t, 10> bits;  // angles back, key quaternion, point
  };
  const Case cases[] = {
      {{-20.5f, 170.25f, 5.125f},
       {0xc1a40000, 0x432a4000, 0x40a40000, 0x3e29384e, 0x3da19d99, 0x3f761702, 0xbe52d327, 0x41428e05, 0x41a3db3a,
        0x420f5e11}},
      {{33.3f, -77.7f, 121.9f},
       {0x42053333, 0xc29b6666, 0x42f3cccd, 0x3f53d91b, 0xbe425da0, 0xbed12f94, 0x3eab878b, 0x4129f3c0, 0x419232a9,
        0x41f34c90}},
      {{0.37f, 12.0f, -179.5f},
       {0x3ebd70a3, 0x41400000, 0xc3338000, 0x3f6c82d4, 0x3ec3eca4, 0xbb9876af, 0xbb373612, 0x4140732d, 0x41a2ca64,
        0x41f0db20}},
      {{85.0f, 45.0f, -30.0f},
       {0x42aa0000, 0x42340000, 0xc1f00014, 0xbf0f18c8, 0x3ec62bf5, 0x3f15851b, 0x3ee30665, 0x414d5771, 0x41b119e6,
        0x42025015}},
  };
  for (const Case& c : cases) {
    QAngle back = quaternionAngles(angleQuaternion(c.angles));
    Matrix3x4 moved = angleMatrix(QAngle{0, 33.0f, 0}, {10, 20, 30}) * angleMatrix(back, {1.5f, -2.25f, 3.0f});
    Quaternion key = matrixQuaternion(moved);
    Vector3 point = transformPoint(moved, {0.7f, -1.3f, 2.9f});
    std::array<uint32_t, 10> got{bitsOf(back.pitch), bitsOf(back.yaw), bitsOf(back.roll), bitsOf(key.x),
                                 bitsOf(key.y),      bitsOf(key.z),     bitsOf(key.w),     bitsOf(point.x),
                                 bitsOf(point.y),    bitsOf(point.z)};
    for (size_t i = 0; i < got.size(); ++i)
      EXPECT_EQ(got[i], c.bits[i]) << "angles " << c.angles.pitch << " " << c.angles.yaw << " " << c.angles.roll
                                   << ", value " << i;
  }
}

TEST(MatrixAlgebra, ProductAppliesRightOperandFirstAndInverseUndoesIt) {
  Matrix3x4 a = angleMatrix({10, 20, 30}, {1, 2, 3});
  Matrix3x4 b = angleMatrix({0, 90, 0}, {10, 0, 0});
  Vector3 p{4, 5, 6};
  expectNear(transformPoint(b * a, p), transformPoint(b, transformPoint(a, p)).x,
             transformPoint(b, transformPoint(a, p)).y, transformPoint(b, transformPoint(a, p)).z, 1e-4f);
  Vector3 back = transformPoint(invertRigid(a), transformPoint(a, p));
  expectNear(back, 4, 5, 6, 1e-4f);
}

TEST(Hashing, FnvMatchesKnownValuesAndMixes) {
  EXPECT_EQ(fnv1a32(""), 0x811c9dc5u);
  EXPECT_EQ(fnv1a32("a"), 0xe40c292cu);
  uint32_t h = fnv1a32("bone");
  EXPECT_EQ(nameHash("bone"), (h ^ (h << 17)) + (h >> 21));
}

TEST(Hashing, TableHashTellsApartEveryByteAndLengthAndSpreadsItsLowBits) {
  const std::string name = "bip01_l_forearm_twist";  // two whole words and a tail
  std::set<uint64_t> seen;
  size_t variants = 0;
  for (size_t at = 0; at < name.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string changed = name;
      changed[at] = char(changed[at] ^ (1 << bit));
      seen.insert(tableHash(changed));
      ++variants;
    }
  }
  for (size_t length = 0; length <= name.size(); ++length, ++variants) seen.insert(tableHash(name.substr(0, length)));
  seen.insert(tableHash("a"));
  seen.insert(tableHash(std::string("a\0", 2)));  // a trailing NUL still counts
  variants += 2;
  EXPECT_EQ(seen.size(), variants);

  // Tables use the low bits: names alike but for a number fill a 2^13 table about as
  // well as random values would (3,223 places expected for 4,096 names).
  std::set<uint64_t> places;
  for (int i = 0; i < 4096; ++i) places.insert(tableHash("bone" + std::to_string(i)) & 8191);
  EXPECT_GT(places.size(), 3000u);
}

TEST(FloatSanitize, RepairsNonFiniteValuesAndWarnsOncePerProcess) {
  resetInvalidFloatRepairsForTesting();
  LogCapture capture;
  Vector3 v{std::numeric_limits<float>::quiet_NaN(), 1, std::numeric_limits<float>::infinity()};
  SanitizeVector(v);
  EXPECT_EQ(v, (Vector3{0, 1, 0}));
  EXPECT_EQ(sanitizeFloat(-std::numeric_limits<float>::infinity()), 0.0f);
  EXPECT_EQ(sanitizeFloat(3.5f), 3.5f);
  EXPECT_EQ(capture.count("mdl to dmx: zeroing out invalid vertices\n"), 1u);
  EXPECT_EQ(invalidFloatRepairs(), 3u);
  EXPECT_FALSE(isInvalidFloat(std::numeric_limits<float>::max()));
  EXPECT_FALSE(isInvalidFloat(std::numeric_limits<float>::denorm_min()));
}

}  // namespace
}  // namespace zv
