// Decoding a large synthetic animation set: hundreds of bones, thousands of frames, in the
// run-length form (in sections, as long animations are stored) and the frame-packed form.
// Reports frames x bones decoded per second; and the per-key arithmetic alone, in keys per
// second.

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "anim/anim_decoder.h"
#include "base/math.h"
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

// The arithmetic every moving key goes through, whatever else the conversion costs: the
// decoder turns the track's angles into a quaternion and back into angles, and the
// writer turns those into a matrix and the matrix into the key's quaternion. Each step
// rounds to float, so each decides the key's bytes. Reports keys per second.
void KeyConversionChain(benchmark::State& state) {
  constexpr size_t kKeys = 4096;
  std::vector<Vector3> angles(kKeys);
  for (size_t k = 0; k < kKeys; ++k) {
    float t = float(k) * 0.013f;
    angles[k] = {std::sin(t) * 1.5f, std::cos(t * 0.7f) * 0.8f, t - std::floor(t / 6.28f) * 6.28f - 3.14f};
  }
  for (auto _ : state) {
    for (const Vector3& a : angles) {
      Quaternion decoded = angleQuaternion(toQAngle(RadianEuler{a.x, a.y, a.z}));
      RadianEuler rotation = toRadianEuler(quaternionAngles(decoded));
      Quaternion key = matrixQuaternion(angleMatrix(toQAngle(rotation), Vector3{}));
      benchmark::DoNotOptimize(key);
    }
  }
  state.SetItemsProcessed(state.iterations() * int64_t(kKeys));
}
BENCHMARK(KeyConversionChain)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace zv::anim
