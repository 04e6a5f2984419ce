#include "base/math.h"

#include <cmath>

namespace zv {

float length(const Vector3& v) { return std::sqrt(dot(v, v)); }

Matrix3x4 angleMatrix(const QAngle& angles) {
  // The angles in radians as floats, their sines and cosines in double: the float versions
  // of sin and cos differ in the last bit between C libraries, the double ones do not
  // once the results are rounded to float.
  const double pitch = angles.pitch * kDegToRad, yaw = angles.yaw * kDegToRad, roll = angles.roll * kDegToRad;
  double sp = std::sin(pitch), cp = std::cos(pitch);
  double sy = std::sin(yaw), cy = std::cos(yaw);
  double sr = std::sin(roll), cr = std::cos(roll);
  Matrix3x4 out;
  auto& m = out.m;
  m[0][0] = float(cp * cy);
  m[1][0] = float(cp * sy);
  m[2][0] = float(-sp);
  m[0][1] = float(sr * sp * cy - cr * sy);
  m[1][1] = float(sr * sp * sy + cr * cy);
  m[2][1] = float(sr * cp);
  m[0][2] = float(cr * sp * cy + sr * sy);
  m[1][2] = float(cr * sp * sy - sr * cy);
  m[2][2] = float(cr * cp);
  m[0][3] = m[1][3] = m[2][3] = 0;
  return out;
}

Matrix3x4 angleMatrix(const QAngle& angles, const Vector3& position) {
  Matrix3x4 out = angleMatrix(angles);
  out.setTranslation(position);
  return out;
}

QAngle matrixAngles(const Matrix3x4& mat) {
  const auto& m = mat.m;
  double xy = std::sqrt(double(m[0][0]) * m[0][0] + double(m[1][0]) * m[1][0]);
  double pitch, yaw, roll;
  // In double: C libraries differ in the last bit of the float arc tangent, but their
  // double results agree once rounded to the float that is stored.
  if (xy > 0.001) {
    yaw = std::atan2(double(m[1][0]), double(m[0][0]));
    pitch = std::atan2(-double(m[2][0]), xy);
    roll = std::atan2(double(m[2][1]), double(m[2][2]));
  } else {
    yaw = std::atan2(-double(m[0][1]), double(m[1][1]));
    pitch = std::atan2(-m[2][0], xy);
    roll = 0;
  }
  constexpr double kDeg = 180.0 / 3.14159265358979323846;
  return {float(pitch * kDeg), float(yaw * kDeg), float(roll * kDeg)};
}

Quaternion angleQuaternion(const QAngle& angles) {
  double sp = std::sin(angles.pitch * kDegToRad * 0.5), cp = std::cos(angles.pitch * kDegToRad * 0.5);
  double sy = std::sin(angles.yaw * kDegToRad * 0.5), cy = std::cos(angles.yaw * kDegToRad * 0.5);
  double sr = std::sin(angles.roll * kDegToRad * 0.5), cr = std::cos(angles.roll * kDegToRad * 0.5);
  return {float(sr * cp * cy - cr * sp * sy), float(cr * sp * cy + sr * cp * sy),
          float(cr * cp * sy - sr * sp * cy), float(cr * cp * cy + sr * sp * sy)};
}

Matrix3x4 quaternionMatrix(const Quaternion& q) {
  Matrix3x4 out;
  auto& m = out.m;
  m[0][0] = 1 - 2 * q.y * q.y - 2 * q.z * q.z;
  m[1][0] = 2 * q.x * q.y + 2 * q.w * q.z;
  m[2][0] = 2 * q.x * q.z - 2 * q.w * q.y;
  m[0][1] = 2 * q.x * q.y - 2 * q.w * q.z;
  m[1][1] = 1 - 2 * q.x * q.x - 2 * q.z * q.z;
  m[2][1] = 2 * q.y * q.z + 2 * q.w * q.x;
  m[0][2] = 2 * q.x * q.z + 2 * q.w * q.y;
  m[1][2] = 2 * q.y * q.z - 2 * q.w * q.x;
  m[2][2] = 1 - 2 * q.x * q.x - 2 * q.y * q.y;
  m[0][3] = m[1][3] = m[2][3] = 0;
  return out;
}

Matrix3x4 quaternionMatrix(const Quaternion& q, const Vector3& position) {
  Matrix3x4 out = quaternionMatrix(q);
  out.setTranslation(position);
  return out;
}

QAngle quaternionAngles(const Quaternion& q) { return matrixAngles(quaternionMatrix(q)); }

Quaternion matrixQuaternion(const Matrix3x4& mat) {
  const auto& m = mat.m;
  double trace = double(m[0][0]) + m[1][1] + m[2][2];
  double x, y, z, w;
  if (trace > 0) {
    double s = std::sqrt(trace + 1.0) * 2;
    w = 0.25 * s;
    x = (m[2][1] - m[1][2]) / s;
    y = (m[0][2] - m[2][0]) / s;
    z = (m[1][0] - m[0][1]) / s;
  } else if (m[0][0] > m[1][1] && m[0][0] > m[2][2]) {
    double s = std::sqrt(1.0 + m[0][0] - m[1][1] - m[2][2]) * 2;
    w = (m[2][1] - m[1][2]) / s;
    x = 0.25 * s;
    y = (m[0][1] + m[1][0]) / s;
    z = (m[0][2] + m[2][0]) / s;
  } else if (m[1][1] > m[2][2]) {
    double s = std::sqrt(1.0 + m[1][1] - m[0][0] - m[2][2]) * 2;
    w = (m[0][2] - m[2][0]) / s;
    x = (m[0][1] + m[1][0]) / s;
    y = 0.25 * s;
    z = (m[1][2] + m[2][1]) / s;
  } else {
    double s = std::sqrt(1.0 + m[2][2] - m[0][0] - m[1][1]) * 2;
    w = (m[1][0] - m[0][1]) / s;
    x = (m[0][2] + m[2][0]) / s;
    y = (m[1][2] + m[2][1]) / s;
    z = 0.25 * s;
  }
  double len = std::sqrt(x * x + y * y + z * z + w * w);
  if (len <= 0) return {};
  return {float(x / len), float(y / len), float(z / len), float(w / len)};
}

Matrix3x4 operator*(const Matrix3x4& b, const Matrix3x4& a) {
  Matrix3x4 out;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 4; ++j) {
      double sum = double(b.m[i][0]) * a.m[0][j] + double(b.m[i][1]) * a.m[1][j] + double(b.m[i][2]) * a.m[2][j];
      if (j == 3) sum += b.m[i][3];
      out.m[i][j] = float(sum);
    }
  }
  return out;
}

Matrix3x4 invertRigid(const Matrix3x4& in) {
  Matrix3x4 out;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) out.m[i][j] = in.m[j][i];
  }
  Vector3 t = in.translation();
  for (int i = 0; i < 3; ++i) out.m[i][3] = -(out.m[i][0] * t.x + out.m[i][1] * t.y + out.m[i][2] * t.z);
  return out;
}

Vector3 rotateVector(const Matrix3x4& m, const Vector3& v) {
  return {m.m[0][0] * v.x + m.m[0][1] * v.y + m.m[0][2] * v.z,
          m.m[1][0] * v.x + m.m[1][1] * v.y + m.m[1][2] * v.z,
          m.m[2][0] * v.x + m.m[2][1] * v.y + m.m[2][2] * v.z};
}

Vector3 transformPoint(const Matrix3x4& m, const Vector3& p) { return rotateVector(m, p) + m.translation(); }

}  // namespace zv
