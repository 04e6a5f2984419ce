#pragma once
// The run-length form of legacy animation data: a chain of per-bone records, each with
// raw values or value channels whose runs hold one i16 per frame.

#include <cstddef>
#include <cstdint>

#include "anim/anim_data.h"
#include "base/last_value_memo.h"
#include "base/math.h"

namespace zv::anim {

// Track flags of a bone record.
inline constexpr uint8_t kRawPosition = 0x01;
inline constexpr uint8_t kRawRotation48 = 0x02;
inline constexpr uint8_t kAnimatedPosition = 0x04;
inline constexpr uint8_t kAnimatedRotation = 0x08;
inline constexpr uint8_t kDeltaTrack = 0x10;
inline constexpr uint8_t kRawRotation64 = 0x20;

// Bones whose rotation must stay on the side of their alignment quaternion.
inline constexpr uint32_t kFixedAlignmentBone = 0x100000;

// One record of the chain: u8 bone, u8 flags, i16 offset to the next, then its payload.
struct BoneAnimRecord {
  const AnimData* data = nullptr;
  size_t position = 0;  // of the record inside data
  uint8_t bone = 0;
  uint8_t flags = 0;
};

// The value of one channel of a group (three i16 channel offsets at `triple`, each
// relative to `triple`) at frame k, times scale; with interp above 0.001 the values of
// frames k and k + 1 are blended. A channel offset of 0 or less is constantly 0, and so is
// a channel whose runs end before frame k.
float channelValue(const AnimData& data, size_t triple, int axis, int32_t frame, float interp, float scale);

Vector3 DecodeBonePosition(int32_t frame, float interp, const Vector3& defaultPosition, const Vector3& positionScale,
                           const BoneAnimRecord& anim);

// Animated angles become a quaternion through anglesToQuaternion when one is given (one
// per bone, kept across frames by the caller).
using AnglesToQuaternion = LastValueMemo<Vector3, Quaternion>;
Quaternion DecodeBoneRotation(int32_t frame, float interp, const BoneAnimRecord& anim,
                              const Quaternion& defaultQuaternion, const RadianEuler& defaultRotation,
                              const Vector3& rotationScale, uint32_t boneFlags, const Quaternion& alignment,
                              AnglesToQuaternion* anglesToQuaternion = nullptr);

}  // namespace zv::anim
