#pragma once
// The small math set and the angle conventions of the legacy data: a QAngle is
// (pitch, yaw, roll) in degrees, pitch about Y, yaw about Z, roll about X; matrices are
// 3x4 with the translation in column 3; M = B * A applies A first.

#include <array>
#include <bit>
#include <cstdint>

namespace zv {

struct Vector2 {
  float x = 0, y = 0;
  friend bool operator==(const Vector2&, const Vector2&) = default;
};

struct Vector3 {
  float x = 0, y = 0, z = 0;
  friend bool operator==(const Vector3&, const Vector3&) = default;
  float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
  float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
};

struct Vector4 {
  float x = 0, y = 0, z = 0, w = 0;
  friend bool operator==(const Vector4&, const Vector4&) = default;
};

struct Quaternion {
  float x = 0, y = 0, z = 0, w = 1;
  friend bool operator==(const Quaternion&, const Quaternion&) = default;
};

// Degrees: pitch (about Y), yaw (about Z), roll (about X).
struct QAngle {
  float pitch = 0, yaw = 0, roll = 0;
  friend bool operator==(const QAngle&, const QAngle&) = default;
};

// Radians; the same rotation as QAngle{pitch = y, yaw = z, roll = x}.
struct RadianEuler {
  float x = 0, y = 0, z = 0;
  friend bool operator==(const RadianEuler&, const RadianEuler&) = default;
};

struct Matrix3x4 {
  std::array<std::array<float, 4>, 3> m{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}};
  static Matrix3x4 identity() { return {}; }
  Vector3 translation() const { return {m[0][3], m[1][3], m[2][3]}; }
  void setTranslation(const Vector3& t) { m[0][3] = t.x; m[1][3] = t.y; m[2][3] = t.z; }
  Vector3 column(int j) const { return {m[0][j], m[1][j], m[2][j]}; }
  friend bool operator==(const Matrix3x4&, const Matrix3x4&) = default;
};

inline constexpr float kRadToDeg = 57.295776f;
inline constexpr float kDegToRad = 0.017453292f;

// Inline: the animation path calls these for every key.
inline Vector3 operator+(const Vector3& a, const Vector3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vector3 operator-(const Vector3& a, const Vector3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vector3 operator*(const Vector3& a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline float dot(const Vector3& a, const Vector3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vector3 cross(const Vector3& a, const Vector3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
float length(const Vector3& v);

inline QAngle toQAngle(const RadianEuler& r) { return {r.y * kRadToDeg, r.z * kRadToDeg, r.x * kRadToDeg}; }
inline RadianEuler toRadianEuler(const QAngle& a) {
  return {a.roll * kDegToRad, a.pitch * kDegToRad, a.yaw * kDegToRad};
}

Matrix3x4 angleMatrix(const QAngle& angles);
Matrix3x4 angleMatrix(const QAngle& angles, const Vector3& position);
QAngle matrixAngles(const Matrix3x4& m);

Quaternion angleQuaternion(const QAngle& angles);
Matrix3x4 quaternionMatrix(const Quaternion& q);
Matrix3x4 quaternionMatrix(const Quaternion& q, const Vector3& position);
QAngle quaternionAngles(const Quaternion& q);
// The rotation part of m as a unit quaternion.
Quaternion matrixQuaternion(const Matrix3x4& m);

// B * A: applies A first, translations included.
Matrix3x4 operator*(const Matrix3x4& b, const Matrix3x4& a);
// Rigid inverse (rotation transposed); the matrices here are rotations with translation.
Matrix3x4 invertRigid(const Matrix3x4& m);
// m applied to a point (with translation) and to a direction (rotation only).
Vector3 transformPoint(const Matrix3x4& m, const Vector3& p);
Vector3 rotateVector(const Matrix3x4& m, const Vector3& v);

// A 16-bit float as the legacy files store positions and deltas: sign, 5 exponent and 10
// mantissa bits, exponent bias 15; the top exponent holds infinity and NaN. Inline and
// without float arithmetic for normal values: faces decode hundreds of thousands.
inline float halfToFloat(uint16_t h) {
  uint32_t sign = uint32_t(h & 0x8000u) << 16;
  uint32_t exponent = (h >> 10) & 0x1Fu;
  uint32_t mantissa = h & 0x3FFu;
  if (exponent == 0) {
    float magnitude = float(mantissa) * 5.9604645e-8f;  // 2^-24: zero and subnormals, exactly
    return sign ? -magnitude : magnitude;
  }
  if (exponent == 31) return std::bit_cast<float>(sign | 0x7F800000u | mantissa << 13);
  return std::bit_cast<float>(sign | (exponent + 112) << 23 | mantissa << 13);
}

}  // namespace zv
