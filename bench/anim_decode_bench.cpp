// Decoding a large synthetic animation set: hundreds of bones, thousands of frames, in the
// run-length form (in sections, as long animations are stored) and the frame-packed form.
// Reports frames x bones decoded per second.

#include <benchmark/benchmark.h>

#include <cmath>

#include "anim/anim_decoder.h"
#include "mdlforge/forge.h"

namespace zv::anim {
namespace {

constexpr int32_t kBones = 200;
constexpr int32_t kFrames = 2000;

mdlforge::ValueChannel wave(int32_t phase) {
  mdlforge::ValueChannel channel;
  for (int32_t f = 0; f < kFrames; ++f) channel.frames.push_back(int16_t(3000 * std::sin(0.01 * (f + phase))));
  return channel;
}

mdlforge::Description animationSet(bool framePacked) {
  mdlforge::Description d;
  d.strip.write = false;
  d.vertexFile.write = false;
  for (int32_t b = 0; b < kBones; ++b) {
    mdlforge::Bone bone;
    bone.name = "bone" + std::to_string(b);
    bone.parent = b - 1;
    bone.rotationScale = {0.0001f, 0.0001f, 0.0001f};
    bone.positionScale = {0.01f, 0.01f, 0.01f};
    d.bones.push_back(bone);
  }
  mdlforge::Animation anim;
  anim.frames = kFrames;
  mdlforge::AnimationTracks tracks;
  if (framePacked) {
    tracks.framePacked.emplace();
    for (int32_t b = 0; b < kBones; ++b) {
      mdlforge::FramePackedBone bone{mdlforge::PackedRotation::FrameOmitted, mdlforge::PackedPosition::FrameHalf, {}, {}, {}};
      for (int32_t f = 0; f < kFrames; ++f) {
        bone.rotations.push_back(angleQuaternion({float(f % 90), float(b), 0}));
        bone.positions.push_back({float(f) * 0.01f, float(b), 0});
      }
      tracks.framePacked->push_back(std::move(bone));
    }
  } else {
    anim.framesPerSection = 100;
    for (int32_t b = 0; b < kBones; ++b) {
      mdlforge::RleTrack track;
      track.bone = uint8_t(b);
      track.rotation = std::array{wave(b), wave(b + 7), wave(b + 13)};
      track.position = std::array{wave(b + 3), mdlforge::ValueChannel{}, wave(b + 5)};
      tracks.rle.push_back(std::move(track));
    }
  }
  anim.tracks = std::move(tracks);
  d.animations = {anim};
  return d;
}

void decodeEveryFrame(benchmark::State& state, bool framePacked) {
  auto files = mdlforge::build(animationSet(framePacked));
  if (!files) {
    state.SkipWithError(files.message().c_str());
    return;
  }
  auto mdl = legacy::MdlFile::parse("set.mdl", files->mdl);
  if (!mdl) {
    state.SkipWithError(mdl.message().c_str());
    return;
  }
  std::vector<BonePoseSample> pose;
  for (auto _ : state) {
    AnimDecoder decoder(*mdl, nullptr, mdl->animations[0]);
    for (int32_t f = 0; f < kFrames; ++f) decoder.DecodeAnimFrame(f, pose);
    benchmark::DoNotOptimize(pose.data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t(kFrames) * kBones);
}

void RunLengthSections(benchmark::State& state) { decodeEveryFrame(state, false); }
void FramePacked(benchmark::State& state) { decodeEveryFrame(state, true); }

BENCHMARK(RunLengthSections)->Unit(benchmark::kMillisecond);
BENCHMARK(FramePacked)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zv::anim
