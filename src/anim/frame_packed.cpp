// The frame-packed form: a header with a flag byte per bone, a constants stream and one
// fixed-size record of values per frame. Each bone takes at most one rotation and one
// position item, from the stream its flag names.

#include "anim/anim_decoder.h"
#include "anim/packing.h"
#include "base/float_sanitize.h"

namespace zv::anim {
namespace {

constexpr size_t kBoneFlagsField = 24;

// Per-bone flags, in the order they are tested.
constexpr uint8_t kFrameRotation48 = 0x08;
constexpr uint8_t kFrameRotationOmitted = 0x80;
constexpr uint8_t kConstantRotation48 = 0x02;
constexpr uint8_t kConstantRotationOmitted = 0x40;
constexpr uint8_t kFramePositionHalf = 0x04;
constexpr uint8_t kConstantPositionHalf = 0x01;
constexpr uint8_t kFramePositionFloat = 0x10;
constexpr uint8_t kConstantPositionFloat = 0x20;

// A stream of items read front to back.
struct Stream {
  const AnimData& data;
  size_t position;
  const char* what;

  uint16_t u16() {
    uint16_t value = data.read<uint16_t>(position, what);
    position += 2;
    return value;
  }
  float f32() {
    float value = data.read<float>(position, what);
    position += 4;
    return value;
  }
  Quaternion quaternion48() {
    uint16_t a = u16(), b = u16(), c = u16();
    return unpackQuaternion48(a, b, c);
  }
  Quaternion quaternionOmitted() {
    uint16_t a = u16(), b = u16(), c = u16();
    return unpackQuaternion48Omitted(a, b, c);
  }
  Vector3 halfVector() {
    uint16_t x = u16(), y = u16(), z = u16();
    return {halfToFloat(x), halfToFloat(y), halfToFloat(z)};
  }
  Vector3 floatVector() {
    float x = f32(), y = f32(), z = f32();
    return {x, y, z};
  }
};

std::optional<Quaternion> packedRotation(uint8_t flags, Stream& frame, Stream& constants) {
  if (flags & kFrameRotation48) return frame.quaternion48();
  if (flags & kFrameRotationOmitted) return frame.quaternionOmitted();
  if (flags & kConstantRotation48) return constants.quaternion48();
  if (flags & kConstantRotationOmitted) return constants.quaternionOmitted();
  return std::nullopt;
}

std::optional<Vector3> packedPosition(uint8_t flags, Stream& frame, Stream& constants) {
  if (flags & kFramePositionHalf) return frame.halfVector();
  if (flags & kConstantPositionHalf) return constants.halfVector();
  if (flags & kFramePositionFloat) return frame.floatVector();
  if (flags & kConstantPositionFloat) {
    Vector3 position = constants.floatVector();
    SanitizeVector(position);
    return position;
  }
  return std::nullopt;
}

}  // namespace

void AnimDecoder::decodeFramePacked(const Located& at, std::vector<BonePoseSample>& pose) {
  const AnimData& data = at.data;
  size_t header = at.start;
  if (!data.contains(header, kBoneFlagsField + bones_.size()))
    return data.fail(header, "frame-packed header", "leaves the data");
  int32_t constantsOffset = data.read<int32_t>(header, "frame-packed header");
  int32_t frameOffset = data.read<int32_t>(header + 4, "frame-packed header");
  int32_t bytesPerFrame = data.read<int32_t>(header + 8, "frame-packed header");
  auto constants = offsetFrom(header, constantsOffset, data.size());
  auto frame = offsetFrom(header, int64_t(frameOffset) + int64_t(at.localFrame) * bytesPerFrame, data.size());
  if (!constants || !frame) return data.fail(header, "frame-packed header", "places its streams outside the data");
  Stream frameStream{data, *frame, "frame data"};
  Stream constantStream{data, *constants, "constant data"};
  // Without a linear bone table a bone without items keeps the initial pose; with one it
  // takes the table's defaults (nothing for a delta animation).
  bool fromTable = model_.linearBones.has_value();
  bool delta = anim_.flags & kDeltaAnimation;
  size_t faults = fault_.count();
  for (size_t bone = 0; bone < bones_.size(); ++bone) {
    uint8_t flags = data.read<uint8_t>(header + kBoneFlagsField + bone, "frame-packed header");
    const BoneDefaults& d = bones_[bone];
    std::optional<Quaternion> rotation = packedRotation(flags, frameStream, constantStream);
    std::optional<Vector3> position = packedPosition(flags, frameStream, constantStream);
    if (fault_.count() != faults) return;  // a stream ran out: this bone and the rest keep their pose
    if (!rotation && fromTable) rotation = delta ? Quaternion{} : d.quaternion;
    if (!position && fromTable) position = delta ? Vector3{} : d.position;
    if (rotation) pose[bone].rotation = anglesOf(bone, *rotation);
    if (position) pose[bone].position = *position;
  }
}

}  // namespace zv::anim
