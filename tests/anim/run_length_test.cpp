// Run-length tracks on bytes laid out by hand: channel values with and without
// interpolation, and which defaults each combination of track flags takes.

#include "anim/run_length.h"

#include <gtest/gtest.h>

#include "mdlforge/byte_writer.h"

namespace zv::anim {
namespace {

// A group of three channel offsets at 0: x at 6, y constantly 0, z negative (also 0).
// x holds 10, 20 (repeated once), then 30 for two frames, then the end of the channel.
// A stray value after the end shows what "the next run's first value" reads there.
std::vector<uint8_t> channelGroup() {
  mdlforge::ByteWriter w;
  for (int16_t offset : {6, 0, -2}) w.i16(offset);
  w.u8(2), w.u8(3), w.i16(10), w.i16(20);
  w.u8(1), w.u8(2), w.i16(30);
  w.u8(0), w.u8(0), w.i16(99);
  return w.take();
}

struct Data {
  explicit Data(std::vector<uint8_t> b) : bytes(std::move(b)), data(ByteView(bytes), {&file, &name, 0}, fault) {}
  std::string file = "models/box.mdl", name = "walk";
  std::vector<uint8_t> bytes;
  AnimFault fault;
  AnimData data;
};

TEST(ChannelValue, RunsRepeatTheirLastValueAndEndInZero) {
  Data d(channelGroup());
  const float expected[] = {5, 10, 10, 15, 15, 0, 0};  // scale 0.5
  for (int32_t frame = 0; frame < 7; ++frame) {
    EXPECT_EQ(channelValue(d.data, 0, 0, frame, 0, 0.5f), expected[frame]) << frame;
    EXPECT_EQ(channelValue(d.data, 0, 1, frame, 0, 0.5f), 0.0f);
    EXPECT_EQ(channelValue(d.data, 0, 2, frame, 0, 0.5f), 0.0f);
  }
  EXPECT_FALSE(d.fault.any());
}

TEST(ChannelValue, InterpolationBlendsWithinARunAndIntoTheNext) {
  Data d(channelGroup());
  const std::pair<int32_t, float> cases[] = {
      {0, 15},    // 10 and 20, both stored
      {1, 20},    // the last stored value repeats within the run
      {2, 25},    // past the stored values, the next run's first value
      {4, 64.5f}, // the run's last frame: whatever follows the end of the channel
  };
  for (auto [frame, value] : cases) EXPECT_EQ(channelValue(d.data, 0, 0, frame, 0.5f, 1), value) << frame;
  // At or below the threshold nothing is blended.
  EXPECT_EQ(channelValue(d.data, 0, 0, 0, 0.001f, 1), 10.0f);
}

TEST(ChannelValue, RunsLeavingTheDataGiveZeroAndAFault) {
  std::vector<uint8_t> bytes = channelGroup();
  bytes.resize(12);  // cut before the second run
  Data d(bytes);
  EXPECT_EQ(channelValue(d.data, 0, 0, 0, 0, 1), 10.0f);
  EXPECT_FALSE(d.fault.any());
  EXPECT_EQ(channelValue(d.data, 0, 0, 3, 0, 1), 0.0f);
  EXPECT_EQ(d.fault.message(), "models/box.mdl: animation \"walk\" block 0: value run at offset 12 leaves the data");
}

// One bone record with the given flags: an optional raw payload, then the channel
// groups the flags ask for, each pointing at a run of one value v for every frame.
std::vector<uint8_t> boneRecord(uint8_t flags, std::initializer_list<uint16_t> raw, int16_t v) {
  mdlforge::ByteWriter w;
  w.u8(0), w.u8(flags), w.i16(0);
  for (uint16_t word : raw) w.u16(word);
  int groups = ((flags & kAnimatedRotation) ? 1 : 0) + ((flags & kAnimatedPosition) ? 1 : 0);
  for (int g = 0; g < groups; ++g) {
    // Each channel's run follows the groups; offsets count from the group's own start.
    for (int axis = 0; axis < 3; ++axis) w.i16(int16_t(6 * (groups - g) + 4 * (3 * g + axis)));
  }
  for (int channel = 0; channel < 3 * groups; ++channel) w.u8(1), w.u8(255), w.i16(int16_t(v + channel));
  return w.take();
}

const Vector3 kDefaultPosition{1, 2, 3};
const Quaternion kDefaultQuaternion{0, 0, 0.6f, 0.8f};
const RadianEuler kDefaultRotation{0.1f, 0.2f, 0.3f};

TEST(DecodeBonePosition, RawValuesStandAloneAndDefaultsFillTheRest) {
  const Vector3 scale{0.5f, 0.5f, 0.5f};
  struct Case {
    uint8_t flags;
    std::initializer_list<uint16_t> raw;
    Vector3 expected;
  } cases[] = {
      // A raw position (after a 48-bit raw rotation) is never offset, even on a non-delta bone.
      {kRawPosition | kRawRotation48, {32768, 32768, 16384, 0x3C00, 0x4000, 0xBC00}, {1, 2, -1}},
      // Animated: channel values times the scale, plus the default unless delta.
      {kAnimatedPosition, {}, {1 + 5, 2 + 5.5f, 3 + 6}},
      {kAnimatedPosition | kDeltaTrack, {}, {5, 5.5f, 6}},
      // With an animated rotation the position group comes second.
      {kAnimatedPosition | kAnimatedRotation, {}, {1 + 6.5f, 2 + 7, 3 + 7.5f}},
      {0, {}, kDefaultPosition},
      {kDeltaTrack, {}, {0, 0, 0}},
  };
  for (const Case& c : cases) {
    Data d(boneRecord(c.flags, c.raw, 10));
    EXPECT_EQ(DecodeBonePosition(3, 0, kDefaultPosition, scale, {&d.data, 0, 0, c.flags}), c.expected)
        << int(c.flags);
    EXPECT_FALSE(d.fault.any()) << d.fault.message();
  }
}

void expectSameRotation(const Quaternion& a, const Quaternion& b) {
  EXPECT_NEAR(a.x, b.x, 1e-5f);
  EXPECT_NEAR(a.y, b.y, 1e-5f);
  EXPECT_NEAR(a.z, b.z, 1e-5f);
  EXPECT_NEAR(a.w, b.w, 1e-5f);
}

TEST(DecodeBoneRotation, RawPackingsAnimatedAnglesAndDefaults) {
  const Vector3 scale{0.01f, 0.01f, 0.01f};
  auto decode = [&](uint8_t flags, std::initializer_list<uint16_t> raw, uint32_t boneFlags = 0,
                    Quaternion alignment = {}) {
    Data d(boneRecord(flags, raw, 10));
    return DecodeBoneRotation(0, 0, {&d.data, 0, 0, flags}, kDefaultQuaternion, kDefaultRotation, scale, boneFlags,
                              alignment);
  };
  expectSameRotation(decode(kRawRotation48, {32768, 32768, 16384 | 0x8000}), {0, 0, 0, -1});
  // 64-bit: x, y and z at their middles (1 << 20 in each 21-bit field), the sign bit set.
  constexpr uint64_t kMiddles = (uint64_t{1} << 20) | (uint64_t{1} << 41) | (uint64_t{1} << 62) | (uint64_t{1} << 63);
  expectSameRotation(decode(kRawRotation64, {uint16_t(kMiddles), uint16_t(kMiddles >> 16), uint16_t(kMiddles >> 32),
                                             uint16_t(kMiddles >> 48)}),
                     {0, 0, 0, -1});
  // Animated: (0.10, 0.11, 0.12) radians plus the default, as roll, pitch, yaw.
  expectSameRotation(decode(kAnimatedRotation, {}), angleQuaternion(toQAngle(RadianEuler{0.2f, 0.31f, 0.42f})));
  expectSameRotation(decode(kAnimatedRotation | kDeltaTrack, {}),
                     angleQuaternion(toQAngle(RadianEuler{0.1f, 0.11f, 0.12f})));
  expectSameRotation(decode(0, {}), kDefaultQuaternion);
  expectSameRotation(decode(kDeltaTrack, {}), Quaternion{});
}

TEST(DecodeBoneRotation, FixedAlignmentBonesTakeTheSideOfTheirAlignment) {
  const Vector3 scale{0.01f, 0.01f, 0.01f};
  Data d(boneRecord(kAnimatedRotation, {}, 10));
  BoneAnimRecord record{&d.data, 0, 0, kAnimatedRotation};
  Quaternion q = angleQuaternion(toQAngle(RadianEuler{0.2f, 0.31f, 0.42f}));
  Quaternion opposite{-q.x, -q.y, -q.z, -q.w};
  expectSameRotation(DecodeBoneRotation(0, 0, record, {}, kDefaultRotation, scale, kFixedAlignmentBone, opposite),
                     opposite);
  // Only bones with the flag, and never a delta track.
  expectSameRotation(DecodeBoneRotation(0, 0, record, {}, kDefaultRotation, scale, 0, opposite), q);
  Quaternion delta = angleQuaternion(toQAngle(RadianEuler{0.1f, 0.11f, 0.12f}));
  record.flags |= kDeltaTrack;
  expectSameRotation(DecodeBoneRotation(0, 0, record, {}, kDefaultRotation, scale, kFixedAlignmentBone,
                                        {-delta.x, -delta.y, -delta.z, -delta.w}),
                     delta);
}

}  // namespace
}  // namespace zv::anim
