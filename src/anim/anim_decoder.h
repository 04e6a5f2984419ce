#pragma once
// Decoding of legacy animations: one local pose per frame, and the root motion. A pure
// function of the loaded model, its animation block file, one animation and a frame; it
// knows nothing of the files it is written to.
//
//   AnimDecoder decoder(model.mdl, model.animBlocks ? &*model.animBlocks : nullptr, anim);
//   std::vector<BonePoseSample> pose;
//   for (int32_t f = 0; f < anim.frameCount; ++f) decoder.DecodeAnimFrame(f, pose);
//   if (decoder.fault().any()) report(decoder.fault().message());
//
// Data that cannot be read (outside its block, a missing .ani, a chain pointing back)
// leaves the affected bones in the initial pose and records the first such fault, for the
// caller to report once per animation. Nothing is ever read out of range, and no walk
// goes further than the data, the bones and the frames allow.

#include <cstdint>
#include <vector>

#include "anim/anim_data.h"
#include "anim/run_length.h"
#include "base/math.h"
#include "legacy/ani.h"
#include "legacy/mdl.h"

namespace zv::anim {

// Animation flags read here.
inline constexpr int32_t kDeltaAnimation = 0x0004;
inline constexpr int32_t kFramePackedAnimation = 0x0040;

struct BonePoseSample {
  Vector3 position;
  RadianEuler rotation;  // back from the decoded quaternion
  float scale = 1.0f;
};

struct RootMotion {
  Vector3 position;
  float yaw = 0;  // degrees
};

// The accumulated motion of the movement pieces at frame f: within the piece that ends
// at or after f, distance t * v0 + (v1 - v0) * t^2 / 2 along its direction from where the
// previous piece ended, and the yaw blended from the previous piece's. Past the last piece
// its end stands.
RootMotion rootMotionAt(const std::vector<legacy::Movement>& pieces, float frame);

// A bone's defaults as decoding uses them (from the linear bone table when the model has
// one, sanitised), and its initial pose.
struct BoneDefaults {
  Vector3 position;
  Quaternion quaternion;
  RadianEuler rotation;
  Vector3 positionScale;
  Vector3 rotationScale;
  Quaternion alignment;
  uint32_t flags = 0;
  BonePoseSample initial;
};

// Each bone's model-space transform for a pose of local samples (parents may follow their
// children in the table; the model's parent chains are known to end).
std::vector<Matrix3x4> poseToModelSpace(const std::vector<legacy::Bone>& bones,
                                        const std::vector<BonePoseSample>& pose);

// The pose of the first frame of the model's first sequence (of its first animation when
// no sequence has one), in model space; nothing when the model has no animation.
std::optional<std::vector<Matrix3x4>> firstFramePose(const legacy::MdlFile& model,
                                                     const legacy::AnimBlockFile* blocks);

class AnimDecoder {
 public:
  AnimDecoder(const legacy::MdlFile& model, const legacy::AnimBlockFile* blocks, const legacy::AnimDesc& anim);

  size_t boneCount() const { return bones_.size(); }
  // Fills pose with one sample per bone of the model for frame (0-based).
  void DecodeAnimFrame(int32_t frame, std::vector<BonePoseSample>& pose);
  const AnimFault& fault() const { return fault_; }

 private:
  struct Located {
    AnimData data;
    size_t start;
    int32_t localFrame;
  };
  std::optional<Located> locate(int32_t frame);
  std::optional<Located> locateInBlock(int32_t block, int32_t offset, int32_t localFrame);
  void decodeRunLength(const Located& at, std::vector<BonePoseSample>& pose);
  void decodeFramePacked(const Located& at, std::vector<BonePoseSample>& pose);
  AnimPlace place(int32_t block) const;
  std::string where(int32_t block) const;

  // A decoded rotation as the angles a pose holds, through the bone's memo.
  RadianEuler anglesOf(size_t bone, const Quaternion& rotation);

  const legacy::MdlFile& model_;
  const legacy::AnimBlockFile* blocks_;
  const legacy::AnimDesc& anim_;
  std::vector<BoneDefaults> bones_;
  // Per bone, kept across frames: a bone that does not move is converted once.
  struct BoneMemos {
    AnglesToQuaternion toQuaternion;
    LastValueMemo<Quaternion, RadianEuler> toAngles;
  };
  std::vector<BoneMemos> memos_;
  AnimFault fault_;
};

}  // namespace zv::anim
