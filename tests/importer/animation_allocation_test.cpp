// Writing an animation file allocates per bone, never per key: a long animation costs the
// same number of heap blocks as a short one, whatever form its data takes. Counted with
// the counting allocator this program is linked with.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <new>

#include "counting_allocator.h"
#include "importer_fixture.h"

namespace zv {
namespace {

constexpr int kBones = 30;

std::vector<int16_t> wave(int32_t frames, int phase) {
  std::vector<int16_t> values;
  for (int32_t f = 0; f < frames; ++f) values.push_back(int16_t(300 * std::sin(0.1 * (f + phase))));
  return values;
}

// One animation named name of frames frames, every bone moving every frame, in the form
// asked for.
enum class Form { RunLength, Sections, FramePacked, BlockFile };

mdlforge::Animation movingAnimation(std::string name, int32_t frames, Form form) {
  mdlforge::Animation a;
  a.name = std::move(name);
  a.frames = frames;
  a.movements = {{frames - 1, 0, 4, 4, 90, {0, 1, 0}, {0, 8, 0}}};
  mdlforge::AnimationTracks tracks;
  if (form == Form::FramePacked) {
    tracks.framePacked.emplace();
    for (int b = 0; b < kBones; ++b) {
      mdlforge::FramePackedBone bone;
      bone.rotationForm = mdlforge::PackedRotation::Frame48;
      for (int32_t f = 0; f < frames; ++f) bone.rotations.push_back(angleQuaternion({float(f + b), float(2 * f), 0}));
      bone.positionForm = mdlforge::PackedPosition::FrameHalf;
      for (int32_t f = 0; f < frames; ++f) bone.positions.push_back({float(f % 7), 0, float(b)});
      tracks.framePacked->push_back(bone);
    }
  } else {
    for (int b = 0; b < kBones; ++b) {
      mdlforge::RleTrack track;
      track.bone = uint8_t(b);
      track.rotation = std::array<mdlforge::ValueChannel, 3>{
          mdlforge::ValueChannel{wave(frames, b), {}}, {}, mdlforge::ValueChannel{wave(frames, 2 * b), {}}};
      track.position = std::array<mdlforge::ValueChannel, 3>{mdlforge::ValueChannel{wave(frames, b), {}}, {}, {}};
      tracks.rle.push_back(track);
    }
  }
  a.tracks = tracks;
  if (form == Form::Sections) a.framesPerSection = 16;
  if (form == Form::BlockFile) a.block = 1;
  return a;
}

// A chain of bones with two animations of one form: 12 frames, then 300.
mdlforge::Description character(Form form) {
  mdlforge::Description d = testing::crateModel();
  d.bones.clear();
  for (int b = 0; b < kBones; ++b) {
    d.bones.push_back(testing::bone("bone" + std::to_string(100 + b), b - 1, {0, 0, b == 0 ? 0.f : 3.f}));
    d.bones.back().rotationScale = {0.0005f, 0.0005f, 0.0005f};
    d.bones.back().positionScale = {0.01f, 0.01f, 0.01f};
  }
  d.animations = {movingAnimation("short", 12, form), movingAnimation("long_", 300, form)};
  return d;
}

// Heap blocks taken by writing animation record `index` of a fresh conversion of d.
uint64_t allocationsToWrite(const mdlforge::Description& d, size_t index) {
  testing::ImportRun run(d);
  EXPECT_TRUE(run.converter.LoadMDL());
  EXPECT_TRUE(run.converter.ExtractAnims());
  EXPECT_EQ(run.tables().animations.size(), 2u);
  uint64_t before = alloc_count::allocations();
  EXPECT_TRUE(run.converter.WriteAnimation(index));
  return alloc_count::allocations() - before;
}

TEST(AnimationAllocations, ALongAnimationTakesNoMoreHeapBlocksThanAShortOne) {
  for (Form form : {Form::RunLength, Form::Sections, Form::FramePacked, Form::BlockFile}) {
    mdlforge::Description d = character(form);
    uint64_t shortFile = allocationsToWrite(d, 0);
    uint64_t longFile = allocationsToWrite(d, 1);
    EXPECT_EQ(longFile, shortFile) << "form " << int(form);
    // Per bone, not per key: 25 frames x 30 bones of keys would be far more than this.
    EXPECT_LT(shortFile, uint64_t(40 * kBones)) << "form " << int(form);
  }
}

// Every file of a model repeats its skeleton and channels: the next file keeps the last
// file's elements and fills only its keys, so what it allocates is the save's own.
TEST(AnimationAllocations, TheNextFileOfAModelBuildsNoElementsAgain) {
  for (Form form : {Form::RunLength, Form::FramePacked}) {
    testing::ImportRun run(character(form));
    ASSERT_TRUE(run.converter.LoadMDL());
    ASSERT_TRUE(run.converter.ExtractAnims());
    uint64_t before = alloc_count::allocations();
    EXPECT_TRUE(run.converter.WriteAnimation(1));
    uint64_t first = alloc_count::allocations() - before;
    before = alloc_count::allocations();
    EXPECT_TRUE(run.converter.WriteAnimation(0));
    uint64_t next = alloc_count::allocations() - before;
    EXPECT_LT(next, first / 4) << "form " << int(form) << ", the first file took " << first;
    EXPECT_GT(first, uint64_t(10 * kBones)) << "form " << int(form) << ": the first file builds every bone's channels";
  }
}

TEST(AnimationAllocations, TheCounterSeesEveryAllocation) {
  uint64_t before = alloc_count::allocations();
  // Called directly, so the compiler may not leave the allocations out.
  void* single = ::operator new(64);
  void* array = ::operator new[](64);
  void* aligned = ::operator new(64, std::align_val_t{64});
  uint64_t after = alloc_count::allocations();
  EXPECT_EQ(reinterpret_cast<uintptr_t>(aligned) % 64, 0u);
  ::operator delete(single);
  ::operator delete[](array);
  ::operator delete(aligned, std::align_val_t{64});
  EXPECT_EQ(after - before, 3u);
}

}  // namespace
}  // namespace zv
