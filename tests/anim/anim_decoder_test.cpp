// Decoding whole frames of forged models: sections and the last-frame rule, delta
// animations, blocks of the .ani file, the linear bone table, the frame-packed form, root
// motion, and data that is broken in every way the decoder guards against.

#include "anim/anim_decoder.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/float_sanitize.h"
#include "base/log.h"
#include "mdlforge/byte_writer.h"
#include "support/model_fixtures.h"

namespace zv::anim {
namespace {

// A half float of a value it holds exactly (small integers and halves).
uint16_t half(float value) {
  if (value == 0) return 0;
  int exponent;
  float mantissa = std::frexp(std::fabs(value), &exponent);  // value = mantissa * 2^exponent, 0.5 <= mantissa < 1
  uint16_t bits = uint16_t(((exponent + 14) << 10) | (uint16_t(std::lround((mantissa * 2 - 1) * 1024)) & 0x3FF));
  return value < 0 ? uint16_t(bits | 0x8000) : bits;
}

struct Record {
  uint8_t bone;
  uint8_t flags;
  std::vector<uint8_t> payload;
};

// A run-length chain of the records in order; each record's next offset skips its payload.
std::vector<uint8_t> chain(const std::vector<Record>& records) {
  mdlforge::ByteWriter w;
  for (size_t i = 0; i < records.size(); ++i) {
    w.u8(records[i].bone), w.u8(records[i].flags);
    w.i16(i + 1 < records.size() ? int16_t(4 + records[i].payload.size()) : 0);
    w.raw(records[i].payload);
  }
  return w.take();
}

std::vector<uint8_t> rawPosition(Vector3 p) {
  mdlforge::ByteWriter w;
  w.u16(half(p.x)), w.u16(half(p.y)), w.u16(half(p.z));
  return w.take();
}

// An animated position whose x channel holds these values, one per frame.
std::vector<uint8_t> animatedX(const std::vector<int16_t>& values) {
  mdlforge::ByteWriter w;
  w.i16(6), w.i16(0), w.i16(0);
  w.u8(uint8_t(values.size())), w.u8(uint8_t(values.size()));
  for (int16_t v : values) w.i16(v);
  return w.take();
}

mdlforge::Description twoBones() {
  mdlforge::Description d;
  d.bones.resize(2);
  d.bones[0].name = "root";
  d.bones[0].position = {1, 2, 3};
  d.bones[1].name = "lid";
  d.bones[1].parent = 0;
  d.bones[1].position = {0, 0, 4};
  d.bones[1].quaternion = angleQuaternion({0, 90, 0});
  d.strip.write = false;
  d.vertexFile.write = false;
  return d;
}

struct Decoded {
  legacy::MdlFile mdl;
  std::optional<legacy::AnimBlockFile> blocks;
  std::vector<BonePoseSample> pose;
  std::string fault;

  explicit Decoded(const mdlforge::Description& d) {
    auto parsed = legacy::MdlFile::parse("models/box.mdl", testing::buildFiles(d).mdl);
    if (!parsed) throw std::runtime_error(parsed.message());
    mdl = std::move(parsed.value());
  }
  // Decodes frame of animation `a` (or of the description given) into pose.
  const std::vector<BonePoseSample>& frame(int32_t f, const legacy::AnimDesc* desc = nullptr) {
    AnimDecoder decoder(mdl, blocks ? &*blocks : nullptr, desc ? *desc : mdl.animations.at(0));
    decoder.DecodeAnimFrame(f, pose);
    fault = decoder.fault().message();
    return pose;
  }
};

// 31 frames, 10 to a section: frames / 10 + 2 = 5 sections; the x channel of section s
// holds 100 s + its local frame, so each decoded frame says where it came from.
TEST(DecodeAnimFrame, SectionsAndTheLastFrameRule) {
  mdlforge::Description d = twoBones();
  mdlforge::Animation anim;
  anim.frames = 31;
  anim.framesPerSection = 10;
  for (int16_t s = 0; s < 5; ++s) {
    std::vector<int16_t> x;
    for (int16_t local = 0; local < 11; ++local) x.push_back(int16_t(100 * s + local));
    anim.sections.push_back(chain({{0, 0x04 | 0x10, animatedX(x)}}));
  }
  d.animations = {anim};
  Decoded decoded(d);
  const std::pair<int32_t, float> frames[] = {{0, 0}, {9, 9}, {10, 100}, {25, 205}, {29, 209}, {30, 400}};
  for (auto [frame, x] : frames) EXPECT_EQ(decoded.frame(frame)[0].position.x, x) << frame;
  EXPECT_EQ(decoded.fault, "");

  // An animation that fits one section reads its last frame there like any other.
  d.animations[0].frames = 10;
  d.animations[0].sections.resize(2);
  Decoded short_(d);
  EXPECT_EQ(short_.frame(9)[0].position.x, 9.0f);
}

TEST(DecodeAnimFrame, DeltaAnimationsStartFromZeroAndRawPositionsStandAlone) {
  mdlforge::Description d = twoBones();
  mdlforge::Animation anim;
  anim.data = chain({{1, 0x01, rawPosition({5, 6, 7})}});
  d.animations = {anim};
  Decoded plain(d);
  const std::vector<BonePoseSample>& pose = plain.frame(0);
  // Bones without a record keep their bind pose; a raw position gets no default added.
  EXPECT_EQ(pose[0].position, (Vector3{1, 2, 3}));
  EXPECT_EQ(pose[1].position, (Vector3{5, 6, 7}));
  EXPECT_NEAR(toQAngle(pose[1].rotation).yaw, 90, 1e-4);  // its default rotation

  d.animations[0].flags = 0x0004;  // delta
  Decoded delta(d);
  EXPECT_EQ(delta.frame(0)[0].position, (Vector3{0, 0, 0}));
  EXPECT_EQ(delta.pose[0].rotation, (RadianEuler{0, 0, 0}));
  EXPECT_EQ(delta.pose[1].position, (Vector3{5, 6, 7}));
}

// The same data, in the model and in block 2 of an animation block file.
TEST(DecodeAnimFrame, DataInABlockOfTheAnimationBlockFile) {
  mdlforge::Description d = twoBones();
  mdlforge::Animation anim;
  anim.frames = 3;
  anim.data = chain({{0, 0x04, animatedX({10, 20, 30})}, {1, 0x01, rawPosition({1, 1, 1})}});
  d.animations = {anim};
  Decoded inModel(d);
  std::vector<BonePoseSample> expected = inModel.frame(2);
  ASSERT_EQ(expected[0].position.x, 31.0f);

  Decoded inBlock(d);
  mdlforge::ByteWriter ani;
  ani.i32(legacy::kAnimBlockFileId);
  ani.zeros(404 + 12);  // the header, then a block 1 of 12 bytes nothing uses
  size_t start = ani.size();
  ani.raw(*anim.data);
  std::vector<legacy::AnimBlock> table = {{0, 0}, {408, 420}, {int32_t(start), int32_t(ani.size())}};
  inBlock.blocks = legacy::AnimBlockFile::parse("models/box.ani", ani.take(), table).value();
  legacy::AnimDesc desc = inBlock.mdl.animations[0];
  desc.block = 2;
  desc.dataOffset = 0;
  std::vector<BonePoseSample> got = inBlock.frame(2, &desc);
  EXPECT_EQ(inBlock.fault, "");
  ASSERT_EQ(got.size(), expected.size());
  for (size_t b = 0; b < got.size(); ++b) EXPECT_EQ(got[b].position, expected[b].position);
}

// Broken data never reads out of range: the bones it would have set keep the initial
// pose, and the first fault names the file, the animation, the block and the offset.
TEST(DecodeAnimFrame, BrokenDataLeavesTheInitialPoseAndOneFault) {
  mdlforge::Description d = twoBones();
  mdlforge::Animation anim;
  anim.name = "open";
  anim.frames = 2;
  d.animations = {anim};
  const std::vector<uint8_t> good = rawPosition({9, 9, 9});
  const struct {
    const char* what;
    std::vector<uint8_t> data;
    int32_t block;  // 1: the data is block 1 of a block file, which bounds it
    const char* fault;
    int decodedBones;
  } cases[] = {
      {"a record pointing back", [&] {
         auto bytes = chain({{0, 0x01, good}, {1, 0x01, good}});
         mdlforge::poke<int16_t>(bytes, 2, -4);
         return bytes;
       }(),
       0, "bone record at offset", 1},
      {"a bone the model lacks", chain({{0, 0x01, good}, {7, 0x01, good}}), 0, "names a bone the model does not have", 1},
      {"more records than bones", chain({{0, 0x01, good}, {1, 0x01, good}, {0, 0x01, good}}), 0,
       "is one more than the model has bones", 2},
      {"a channel running off its block", [] {
         auto bytes = chain({{1, 0x04, animatedX({100, 200})}});
         bytes.resize(bytes.size() - 3);
         return bytes;
       }(),
       1, "run value at offset 14 leaves the data", 0},
      {"a record running off its block", {0, 0x01}, 1, "bone record at offset 0 leaves the data", 0},
      {"block 2 without a block file", good, 2, "its block file \"\" could not be read", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    d.animations[0].data = c.data;
    Decoded decoded(d);
    legacy::AnimDesc desc = decoded.mdl.animations[0];
    desc.block = c.block;
    std::string file = "models/box.mdl";
    if (c.block == 1) {
      mdlforge::ByteWriter ani;
      ani.i32(legacy::kAnimBlockFileId);
      ani.zeros(404);
      ani.raw(c.data);
      std::vector<legacy::AnimBlock> table = {{0, 0}, {408, int32_t(ani.size())}};
      decoded.blocks = legacy::AnimBlockFile::parse("models/box.ani", ani.take(), table).value();
      desc.dataOffset = 0;
      file = "models/box.ani";
    }
    const std::vector<BonePoseSample>& pose = decoded.frame(1, &desc);
    EXPECT_EQ(decoded.fault.rfind(file + ": animation \"open\" block " + std::to_string(c.block) + ": ", 0), 0u)
        << decoded.fault;
    EXPECT_NE(decoded.fault.find(c.fault), std::string::npos) << decoded.fault;
    EXPECT_EQ(pose[0].position == (Vector3{9, 9, 9}), c.decodedBones >= 1) << pose[0].position.x;
    EXPECT_EQ(pose[1].position == (Vector3{0, 0, 4}), c.decodedBones < 2) << pose[1].position.x;
  }
}

TEST(DecodeAnimFrame, BlocksThatDoNotFitTheirFileAreUnusable) {
  Decoded decoded(twoBones());
  mdlforge::ByteWriter w;
  w.i32(legacy::kAnimBlockFileId);
  w.zeros(420);
  std::vector<legacy::AnimBlock> table = {{0, 0}, {408, 424}, {408, 9999}, {20, 10}};
  auto file = legacy::AnimBlockFile::parse("models/box.ani", w.take(), table);
  ASSERT_TRUE(file);
  EXPECT_EQ(file->notes(), (std::vector<std::string>{
                               "models/box.ani: animation block 2 (408 to 9999) lies outside the file (424 bytes)",
                               "models/box.ani: animation block 3 (20 to 10) lies outside the file (424 bytes)"}));
  EXPECT_TRUE(file->block(1) && !file->block(2) && !file->block(3) && !file->block(0) && !file->block(4));
  decoded.blocks = std::move(file.value());
  legacy::AnimDesc desc;
  desc.name = "far";
  desc.frameCount = 1;
  for (auto [block, offset, fault] : {std::tuple{2, 0, "models/box.ani has no usable block 2"},
                                     std::tuple{1, 16, "data offset 16 lies past the block's end (16 bytes)"},
                                     std::tuple{1, -1, "data offset -1 lies past the block's end"}}) {
    desc.block = block;
    desc.dataOffset = offset;
    decoded.frame(0, &desc);
    EXPECT_NE(decoded.fault.find(fault), std::string::npos) << decoded.fault;
  }
  // A file of another kind is no block file at all.
  EXPECT_FALSE(legacy::AnimBlockFile::parse("x.ani", {'I', 'D', 'S', 'T'}, table));
}

TEST(DecodeAnimFrame, TheLinearBoneTableGivesTheDefaultsSanitised) {
  mdlforge::Description d = twoBones();
  d.linearBoneTable = true;
  mdlforge::Animation anim;
  anim.data = chain({{0, 0x04, animatedX({10})}});
  d.animations = {anim};
  auto files = testing::buildFiles(d);
  size_t table = files.where.mdl.at("linearbones");
  size_t positions = table + size_t(ByteView(files.mdl).readOr<int32_t>(table + 12, 0));
  mdlforge::poke<float>(files.mdl, positions, 7.0f);          // root's x, only in the table
  mdlforge::poke<float>(files.mdl, positions + 4, NAN);       // root's y
  auto mdl = legacy::MdlFile::parse("models/box.mdl", files.mdl);
  ASSERT_TRUE(mdl);
  resetInvalidFloatRepairsForTesting();
  LogCapture log;
  AnimDecoder decoder(*mdl, nullptr, mdl->animations[0]);
  std::vector<BonePoseSample> pose;
  decoder.DecodeAnimFrame(0, pose);
  EXPECT_EQ(pose[0].position, (Vector3{17, 0, 3}));
  // The warning is the one every sanitising site shares: once for the whole run.
  Vector3 vertex{NAN, 0, 0};
  SanitizeVector(vertex);
  EXPECT_EQ(log.count("mdl to dmx: zeroing out invalid vertices\n"), 1u);
  EXPECT_EQ(invalidFloatRepairs(), 2u);
}

// Two bones: the first takes a 48-bit rotation and a half position from the frame stream,
// the second an omitted-component rotation and a float position from the constants.
TEST(DecodeAnimFrame, FramePackedStreams) {
  mdlforge::ByteWriter w;
  w.i32(32), w.i32(32 + 18), w.i32(12);  // constants, frames, bytes per frame
  w.zeros(12);
  w.u8(0x08 | 0x04), w.u8(0x40 | 0x20);
  w.zeros(6);
  // Constants: bone 1's rotation (z = 0.6, w computed 0.8) and position.
  w.u16(16384), w.u16(16384), w.u16(16384 + 13901);
  w.f32(1.5f), w.f32(-2), w.f32(NAN);
  // Frames 0 and 1 of bone 0: a rotation, then a position.
  for (float x : {1.0f, 2.0f}) {
    w.u16(32768), w.u16(32768), w.u16(16384 | 0x8000);
    w.u16(half(x)), w.u16(half(2 * x)), w.u16(half(-x));
  }
  mdlforge::Description d = twoBones();
  mdlforge::Animation anim;
  anim.flags = 0x40;
  anim.frames = 2;
  anim.data = w.take();
  d.animations = {anim};
  Decoded decoded(d);
  resetInvalidFloatRepairsForTesting();
  const std::vector<BonePoseSample>& pose = decoded.frame(1);
  EXPECT_EQ(decoded.fault, "");
  EXPECT_EQ(pose[0].position, (Vector3{2, 4, -2}));
  Quaternion q0 = angleQuaternion(toQAngle(pose[0].rotation));
  EXPECT_NEAR(std::fabs(q0.w), 1, 1e-5);  // (0, 0, 0, -1) is the identity turned around
  EXPECT_EQ(pose[1].position, (Vector3{1.5f, -2, 0}));  // the constant's NaN made 0
  EXPECT_NEAR(toQAngle(pose[1].rotation).yaw, 73.74f, 0.01f);  // z 0.6, w 0.8
  EXPECT_EQ(invalidFloatRepairs(), 1u);

  // A frame whose record lies past the data leaves every bone as it was; the next frame
  // that reads decodes whole again.
  AnimDecoder decoder(decoded.mdl, nullptr, decoded.mdl.animations[0]);
  decoder.DecodeAnimFrame(5, decoded.pose);
  decoded.fault = decoder.fault().message();
  EXPECT_NE(decoded.fault.find("frame-packed header at offset"), std::string::npos) << decoded.fault;
  EXPECT_EQ(decoded.pose[0].position, (Vector3{1, 2, 3}));
  decoder.DecodeAnimFrame(0, decoded.pose);
  EXPECT_EQ(decoded.pose[0].position, (Vector3{1, 2, -1}));
}

TEST(RootMotion, PiecesAccumulateDistanceAndYaw) {
  std::vector<legacy::Movement> pieces = {{10, 0, 1, 1, 90, {1, 0, 0}, {10, 0, 0}},
                                          {20, 0, 0, 2, 180, {0, 1, 0}, {10, 20, 0}}};
  const struct {
    float frame;
    Vector3 position;
    float yaw;
  } cases[] = {{0, {0, 0, 0}, 0}, {5, {0.5f, 0, 0}, 45}, {15, {10, 0.25f, 0}, 135}, {25, {10, 20, 0}, 180}};
  for (const auto& c : cases) {
    RootMotion motion = rootMotionAt(pieces, c.frame);
    EXPECT_EQ(motion.position, c.position) << c.frame;
    EXPECT_EQ(motion.yaw, c.yaw) << c.frame;
  }
  EXPECT_EQ(rootMotionAt({}, 3).position, (Vector3{}));
  // A piece ending where the previous one did is reached at once, not divided by zero.
  pieces.push_back({20, 0, 0, 0, 270, {0, 0, 1}, {1, 1, 1}});
  EXPECT_EQ(rootMotionAt(pieces, 20).yaw, 180.0f);
  EXPECT_EQ(rootMotionAt({{0, 0, 0, 0, 30, {}, {}}}, 0).yaw, 30.0f);
}

}  // namespace
}  // namespace zv::anim
