// Decodes the animations of one input family with its animation block file: every frame
// up to a bound (a hostile frame count must not make one input run for minutes), the
// last frame, whose section rule differs, and the root motion of each.

#include "anim/anim_decoder.h"
#include "family_input.h"
#include "silent_log.h"

namespace {
constexpr int32_t kFramesPerAnimation = 64;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zv::fuzz::silenceLogs();
  zv::fuzz::FuzzFamily family = zv::fuzz::splitFamilyInput(data, size);
  auto model = zv::legacy::loadModelFamily(std::move(family.files));
  if (!model) return 0;
  const zv::legacy::MdlFile& mdl = model->mdl;
  auto blocks = zv::legacy::AnimBlockFile::parse("fuzz.ani", std::move(family.ani), mdl.animBlocks);
  std::vector<zv::anim::BonePoseSample> pose;
  volatile float sum = 0;
  for (const zv::legacy::AnimDesc& anim : mdl.animations) {
    zv::anim::AnimDecoder decoder(mdl, blocks ? &*blocks : nullptr, anim);
    int32_t frames = std::min(anim.frameCount, kFramesPerAnimation);
    for (int32_t frame = 0; frame < frames; ++frame) decoder.DecodeAnimFrame(frame, pose);
    if (anim.frameCount > frames) decoder.DecodeAnimFrame(anim.frameCount - 1, pose);
    for (const auto& sample : pose) sum = sum + sample.position.x + sample.rotation.z;
    sum = sum + zv::anim::rootMotionAt(anim.movements, float(int64_t(anim.frameCount) - 1)).yaw;
  }
  return 0;
}
