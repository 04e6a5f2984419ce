#include "anim/run_length.h"

#include <algorithm>

#include "anim/packing.h"
#include "base/float_sanitize.h"

namespace zv::anim {
namespace {

constexpr float kInterpolationThreshold = 0.001f;

// A run: u8 valid count, u8 frame count, then `valid` i16 values.
struct Run {
  size_t position = 0;
  uint8_t valid = 0;
  uint8_t total = 0;
  size_t next() const { return position + 2 + 2 * size_t(valid); }
};

// The run header at position; false, with the fault, when it leaves the data.
inline bool readRun(const AnimData& data, size_t position, Run& run) {
  if (!data.contains(position, 2)) {
    data.fail(position, "value run", "leaves the data");
    return false;
  }
  run = {position, data.read<uint8_t>(position, "value run"), data.read<uint8_t>(position + 1, "value run")};
  return true;
}

// Value i of a run; index -1 reads the run's own header, as the data was laid out to allow.
float runValue(const AnimData& data, const Run& run, int32_t index) {
  return float(data.read<int16_t>(size_t(int64_t(run.position) + 2 + 2 * int64_t(index)), "run value"));
}

// The first value of the run after `run`.
float nextRunValue(const AnimData& data, const Run& run) { return float(data.read<int16_t>(run.next() + 2, "run value")); }

Vector3 rawPosition(const BoneAnimRecord& anim) {
  size_t at = anim.position + 4 + ((anim.flags & kRawRotation48) ? 6 : 0) + ((anim.flags & kRawRotation64) ? 8 : 0);
  const AnimData& d = *anim.data;
  return {halfToFloat(d.read<uint16_t>(at, "raw position")), halfToFloat(d.read<uint16_t>(at + 2, "raw position")),
          halfToFloat(d.read<uint16_t>(at + 4, "raw position"))};
}

float squaredLength(const Quaternion& q) { return q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w; }

}  // namespace

float channelValue(const AnimData& data, size_t triple, int axis, int32_t frame, float interp, float scale) {
  int16_t offset = data.read<int16_t>(triple + 2 * size_t(axis), "channel offset");
  if (offset <= 0) return 0;
  Run run;
  if (!readRun(data, triple + size_t(offset), run)) return 0;
  int32_t k = std::max(frame, 0);
  // Each step moves on by at least one run header, so the walk ends within the data.
  while (run.total <= k) {
    k -= run.total;
    if (!readRun(data, run.next(), run)) return 0;
    if (run.total == 0) return 0;
  }
  float a, b;
  if (run.valid > k) {
    a = runValue(data, run, k);
    if (interp <= kInterpolationThreshold) return a * scale;
    b = run.valid > k + 1 ? runValue(data, run, k + 1) : (run.total > k + 1 ? a : nextRunValue(data, run));
  } else {
    a = runValue(data, run, int32_t(run.valid) - 1);
    if (interp <= kInterpolationThreshold) return a * scale;
    b = run.total > k + 1 ? a : nextRunValue(data, run);
  }
  return (a * (1 - interp) + b * interp) * scale;
}

Vector3 DecodeBonePosition(int32_t frame, float interp, const Vector3& defaultPosition, const Vector3& positionScale,
                           const BoneAnimRecord& anim) {
  bool delta = anim.flags & kDeltaTrack;
  if (anim.flags & kRawPosition) return rawPosition(anim);
  if (anim.flags & kAnimatedPosition) {
    size_t triple = anim.position + ((anim.flags & kAnimatedRotation) ? 10 : 4);
    Vector3 position;
    for (int i = 0; i < 3; ++i) position[i] = channelValue(*anim.data, triple, i, frame, interp, positionScale[i]);
    return delta ? position : position + defaultPosition;
  }
  return delta ? Vector3{} : defaultPosition;
}

Quaternion DecodeBoneRotation(int32_t frame, float interp, const BoneAnimRecord& anim,
                              const Quaternion& defaultQuaternion, const RadianEuler& defaultRotation,
                              const Vector3& rotationScale, uint32_t boneFlags, const Quaternion& alignment,
                              AnglesToQuaternion* anglesToQuaternion) {
  const AnimData& d = *anim.data;
  size_t payload = anim.position + 4;
  bool delta = anim.flags & kDeltaTrack;
  if (anim.flags & kRawRotation48) {
    return unpackQuaternion48(d.read<uint16_t>(payload, "raw rotation"), d.read<uint16_t>(payload + 2, "raw rotation"),
                              d.read<uint16_t>(payload + 4, "raw rotation"));
  }
  if (anim.flags & kRawRotation64) return unpackQuaternion64(d.read<uint64_t>(payload, "raw rotation"));
  if (!(anim.flags & kAnimatedRotation)) return delta ? Quaternion{} : defaultQuaternion;

  Vector3 angles;
  for (int i = 0; i < 3; ++i) angles[i] = channelValue(d, payload, i, frame, interp, rotationScale[i]);
  SanitizeVector(angles);
  if (!delta) angles = angles + Vector3{defaultRotation.x, defaultRotation.y, defaultRotation.z};
  auto toQuaternion = [](const Vector3& a) { return angleQuaternion(toQAngle(RadianEuler{a.x, a.y, a.z})); };
  Quaternion q = anglesToQuaternion ? anglesToQuaternion->get(angles, toQuaternion) : toQuaternion(angles);
  if (!delta && (boneFlags & kFixedAlignmentBone)) {
    Quaternion sum{alignment.x + q.x, alignment.y + q.y, alignment.z + q.z, alignment.w + q.w};
    Quaternion difference{alignment.x - q.x, alignment.y - q.y, alignment.z - q.z, alignment.w - q.w};
    if (squaredLength(sum) < squaredLength(difference)) q = {-q.x, -q.y, -q.z, -q.w};
  }
  return q;
}

}  // namespace zv::anim
