// Animations forged in every form the builder writes, decoded through the loader like a
// user's files: what comes out is what went in, within the precision of each packing.

#include <gtest/gtest.h>

#include <cmath>

#include "anim/anim_decoder.h"
#include "support/model_fixtures.h"

namespace zv::anim {
namespace {

using mdlforge::AnimationTracks;
using mdlforge::FramePackedBone;
using mdlforge::PackedPosition;
using mdlforge::PackedRotation;
using mdlforge::RleTrack;
using mdlforge::ValueChannel;

struct Expected {
  Vector3 position;
  Quaternion rotation;
};

void expectPose(const BonePoseSample& got, const Expected& want, float tolerance, const std::string& where) {
  EXPECT_LE(length(got.position - want.position), tolerance) << where << " position " << got.position.x << " "
                                                              << got.position.y << " " << got.position.z;
  Quaternion q = angleQuaternion(toQAngle(got.rotation));
  float dot = q.x * want.rotation.x + q.y * want.rotation.y + q.z * want.rotation.z + q.w * want.rotation.w;
  EXPECT_GT(std::fabs(dot), 0.9999f) << where << " rotation";
}

mdlforge::Description skeleton() {
  mdlforge::Description d;
  d.strip.write = false;
  d.vertexFile.write = false;
  d.bones.resize(2);
  d.bones[0].name = "root";
  d.bones[0].position = {1, 2, 3};
  d.bones[0].positionScale = {0.1f, 0.1f, 0.1f};
  d.bones[0].rotationScale = {0.001f, 0.001f, 0.001f};
  d.bones[1].name = "lid";
  d.bones[1].parent = 0;
  d.bones[1].position = {0, 0, 4};
  return d;
}

// Decodes every frame of every animation of the family the description builds.
struct Forged {
  legacy::LegacyModel model;
  explicit Forged(const mdlforge::Description& d) {
    auto files = testing::buildFiles(d);
    auto loaded = legacy::loadModelFamily(testing::familyFiles(files));
    if (!loaded) throw std::runtime_error(loaded.message());
    model = std::move(loaded.value());
    if (files.ani) {
      model.animBlocks = legacy::AnimBlockFile::parse("models/props/crate.ani", *files.ani, model.mdl.animBlocks).value();
    }
  }
  std::vector<BonePoseSample> frame(size_t anim, int32_t f) {
    AnimDecoder decoder(model.mdl, model.animBlocks ? &*model.animBlocks : nullptr, model.mdl.animations.at(anim));
    std::vector<BonePoseSample> pose;
    decoder.DecodeAnimFrame(f, pose);
    EXPECT_EQ(decoder.fault().message(), "");
    return pose;
  }
};

// Run-length channels over 12 frames, 5 to a section, sections spread over the model
// and two blocks of the .ani file: the root moves 1 along x and turns 0.1 radian of yaw
// a frame; the lid holds a raw 48-bit rotation and a raw position.
TEST(ForgedAnimations, RunLengthChannelsInSectionsAndBlocks) {
  mdlforge::Description d = skeleton();
  RleTrack root;
  root.bone = 0;
  std::vector<int16_t> x, yaw;
  for (int16_t f = 0; f < 12; ++f) {
    x.push_back(int16_t(10 * f));
    yaw.push_back(int16_t(100 * f));
  }
  root.position = std::array<ValueChannel, 3>{ValueChannel{x, {}}, ValueChannel{}, ValueChannel{}};
  root.rotation = std::array<ValueChannel, 3>{ValueChannel{}, ValueChannel{}, ValueChannel{yaw, {}}};
  RleTrack lid;
  lid.bone = 1;
  lid.rawRotation = angleQuaternion({0, 0, 45});
  lid.rawPosition = Vector3{0.5f, -2, 8};
  mdlforge::Animation walk;
  walk.frames = 12;
  walk.framesPerSection = 5;
  walk.sectionBlocks = {0, 1, 2, 1};
  walk.tracks = AnimationTracks{{root, lid}, std::nullopt};
  d.animations = {walk};
  Forged forged(d);
  ASSERT_TRUE(forged.model.animBlocks);
  for (int32_t f = 0; f < 12; ++f) {
    std::vector<BonePoseSample> pose = forged.frame(0, f);
    std::string where = "frame " + std::to_string(f);
    expectPose(pose[0], {{1 + float(f), 2, 3}, angleQuaternion(toQAngle(RadianEuler{0, 0, 0.1f * float(f)}))}, 1e-4f,
               where);
    expectPose(pose[1], {{0.5f, -2, 8}, angleQuaternion({0, 0, 45})}, 1e-3f, where);
  }
}

// The frame-packed form with every stream and packing, and a delta animation of 64-bit
// rotations whose other bones stay at rest.
TEST(ForgedAnimations, FramePackedStreamsAndDeltaAnimations) {
  mdlforge::Description d = skeleton();
  std::vector<Quaternion> turns;
  std::vector<Vector3> moves;
  for (int f = 0; f < 3; ++f) {
    turns.push_back(angleQuaternion({10.0f * float(f), 30.0f * float(f), 0}));
    moves.push_back({float(f), 0.25f * float(f), -float(f)});
  }
  mdlforge::Animation packed;
  packed.frames = 3;
  packed.tracks = AnimationTracks{
      {}, std::vector<FramePackedBone>{
              {PackedRotation::FrameOmitted, PackedPosition::FrameFloat, turns, moves, std::nullopt},
              {PackedRotation::Constant48, PackedPosition::ConstantHalf, {angleQuaternion({0, -90, 0})}, {{4, 5, 6}},
               std::nullopt}}};
  RleTrack turned;
  turned.bone = 1;
  turned.rawRotation = angleQuaternion({0, 0, 90});
  turned.rawRotation64 = true;
  turned.delta = true;
  mdlforge::Animation delta;
  delta.flags = 0x4;
  delta.tracks = AnimationTracks{{turned}, std::nullopt};
  d.animations = {packed, delta};
  Forged forged(d);
  for (int32_t f = 0; f < 3; ++f) {
    std::vector<BonePoseSample> pose = forged.frame(0, f);
    expectPose(pose[0], {moves[size_t(f)], turns[size_t(f)]}, 1e-6f, "frame " + std::to_string(f));
    expectPose(pose[1], {{4, 5, 6}, angleQuaternion({0, -90, 0})}, 1e-3f, "frame " + std::to_string(f));
  }
  std::vector<BonePoseSample> pose = forged.frame(1, 0);
  expectPose(pose[0], {{0, 0, 0}, {0, 0, 0, 1}}, 0, "delta root");
  expectPose(pose[1], {{0, 0, 0}, angleQuaternion({0, 0, 90})}, 0, "delta lid");
}

}  // namespace
}  // namespace zv::anim
