#include "anim/anim_decoder.h"

#include "anim/run_length.h"
#include "base/float_sanitize.h"

namespace zv::anim {
namespace {

Quaternion sanitizeQuaternion(const Quaternion& q) {
  return {sanitizeFloat(q.x), sanitizeFloat(q.y), sanitizeFloat(q.z), sanitizeFloat(q.w)};
}

Vector3 sanitized(Vector3 v) {
  SanitizeVector(v);
  return v;
}

BonePoseSample initialPose(const legacy::Bone& bone, bool delta) {
  if (delta) return {};
  return {bone.position, toRadianEuler(quaternionAngles(bone.quaternion)), 1.0f};
}

}  // namespace

RootMotion rootMotionAt(const std::vector<legacy::Movement>& pieces, float frame) {
  RootMotion previous;
  float previousEnd = 0;
  for (const legacy::Movement& piece : pieces) {
    if (float(piece.endFrame) >= frame) {
      float span = float(piece.endFrame) - previousEnd;
      // A piece that ends where the previous one did is reached at once.
      float t = span > 0 ? (frame - previousEnd) / span : 1.0f;
      float distance = t * piece.startVelocity + 0.5f * (piece.endVelocity - piece.startVelocity) * t * t;
      return {previous.position + piece.direction * distance, (1 - t) * previous.yaw + t * piece.yaw};
    }
    previousEnd = float(piece.endFrame);
    previous = {piece.position, piece.yaw};
  }
  return previous;
}

std::vector<Matrix3x4> poseToModelSpace(const std::vector<legacy::Bone>& bones,
                                        const std::vector<BonePoseSample>& pose) {
  std::vector<Matrix3x4> model(bones.size());
  std::vector<bool> done(bones.size(), false);
  std::vector<size_t> chain;
  for (size_t i = 0; i < bones.size(); ++i) {
    for (size_t at = i; !done[at]; at = size_t(bones[at].parent)) {
      chain.push_back(at);
      if (bones[at].parent < 0) break;
    }
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
      Matrix3x4 local = angleMatrix(toQAngle(pose[*it].rotation), pose[*it].position);
      int32_t parent = bones[*it].parent;
      model[*it] = parent >= 0 ? model[size_t(parent)] * local : local;
      done[*it] = true;
    }
    chain.clear();
  }
  return model;
}

std::optional<std::vector<Matrix3x4>> firstFramePose(const legacy::MdlFile& model,
                                                     const legacy::AnimBlockFile* blocks) {
  std::optional<size_t> first;
  for (const legacy::SequenceDesc& sequence : model.sequences) {
    if (!sequence.animIndices.empty()) {
      first = size_t(sequence.animIndices.front());
      break;
    }
  }
  if (!first && !model.animations.empty()) first = 0;
  if (!first) return std::nullopt;
  AnimDecoder decoder(model, blocks, model.animations[*first]);
  std::vector<BonePoseSample> pose;
  decoder.DecodeAnimFrame(0, pose);
  return poseToModelSpace(model.bones, pose);
}

AnimDecoder::AnimDecoder(const legacy::MdlFile& model, const legacy::AnimBlockFile* blocks,
                         const legacy::AnimDesc& anim)
    : model_(model), blocks_(blocks), anim_(anim) {
  const std::optional<legacy::LinearBoneTable>& linear = model.linearBones;
  bool delta = anim.flags & kDeltaAnimation;
  bones_.reserve(model.bones.size());
  for (size_t i = 0; i < model.bones.size(); ++i) {
    const legacy::Bone& bone = model.bones[i];
    BoneDefaults d;
    bool fromTable = linear && i < linear->positions.size() && i < linear->quaternions.size() &&
                     i < linear->positionScales.size() && i < linear->alignments.size();
    d.position = fromTable ? sanitized(linear->positions[i]) : bone.position;
    d.quaternion = fromTable ? sanitizeQuaternion(linear->quaternions[i]) : bone.quaternion;
    d.positionScale = fromTable ? sanitized(linear->positionScales[i]) : bone.positionScale;
    d.alignment = fromTable ? sanitizeQuaternion(linear->alignments[i]) : bone.alignment;
    d.rotation = bone.rotation;
    d.rotationScale = bone.rotationScale;
    d.flags = bone.flags;
    d.initial = initialPose(bone, delta);
    bones_.push_back(d);
  }
  memos_.resize(bones_.size());
  if (!anim.error.empty()) fault_.set(anim.error);
}

RadianEuler AnimDecoder::anglesOf(size_t bone, const Quaternion& rotation) {
  return memos_[bone].toAngles.get(rotation, [](const Quaternion& q) { return toRadianEuler(quaternionAngles(q)); });
}

AnimPlace AnimDecoder::place(int32_t block) const {
  return {block > 0 && blocks_ ? &blocks_->fileName() : &model_.fileName(), &anim_.name, block};
}

std::string AnimDecoder::where(int32_t block) const { return place(block).text(); }

std::optional<AnimDecoder::Located> AnimDecoder::locate(int32_t frame) {
  if (!anim_.error.empty()) return std::nullopt;
  int32_t perSection = anim_.framesPerSection;
  if (perSection <= 0 || anim_.sections.empty()) return locateInBlock(anim_.block, anim_.dataOffset, frame);
  // The last frame of an animation longer than a section is stored in a section of its own.
  int64_t section = frame / perSection;
  int32_t local = frame - int32_t(section) * perSection;
  if (anim_.frameCount > perSection && frame == anim_.frameCount - 1) {
    section = anim_.frameCount / perSection + 1;
    local = 0;
  }
  if (section < 0 || size_t(section) >= anim_.sections.size()) {
    fault_.set([&] {
      return format("%s: frame %d is in section %lld, the animation has %zu", where(anim_.block).c_str(),
                    frame, static_cast<long long>(section), anim_.sections.size());
    });
    return std::nullopt;
  }
  const legacy::AnimSection& entry = anim_.sections[size_t(section)];
  return locateInBlock(entry.block, entry.offset, local);
}

std::optional<AnimDecoder::Located> AnimDecoder::locateInBlock(int32_t block, int32_t offset,
                                                               int32_t localFrame) {
  if (block == -1) return std::nullopt;  // no data: the initial pose stands
  if (block == 0) {
    ByteView file(model_.bytes());
    auto start = offsetFrom(anim_.recordOffset, offset, file.size());
    if (!start || *start >= file.size()) {
      fault_.set([&] {
        return format("%s: data offset %d lies past the end of the file", where(block).c_str(), offset);
      });
      return std::nullopt;
    }
    return Located{AnimData(file, place(block), fault_), *start, localFrame};
  }
  if (block < 0) {
    fault_.set([&] { return format("%s: no such block", where(block).c_str()); });
    return std::nullopt;
  }
  if (!blocks_) {
    fault_.set([&] {
      return format("%s: its block file \"%s\" could not be read", where(block).c_str(),
                    model_.animBlockName.c_str());
    });
    return std::nullopt;
  }
  auto bytes = blocks_->block(block);
  if (!bytes) {
    fault_.set([&] {
      return format("%s: %s has no usable block %d", where(block).c_str(), blocks_->fileName().c_str(),
                    block);
    });
    return std::nullopt;
  }
  if (offset < 0 || size_t(offset) >= bytes->size()) {
    fault_.set([&] {
      return format("%s: data offset %d lies past the block's end (%zu bytes)", where(block).c_str(), offset,
                    bytes->size());
    });
    return std::nullopt;
  }
  return Located{AnimData(*bytes, place(block), fault_), size_t(offset), localFrame};
}

void AnimDecoder::DecodeAnimFrame(int32_t frame, std::vector<BonePoseSample>& pose) {
  pose.resize(bones_.size());
  for (size_t i = 0; i < bones_.size(); ++i) pose[i] = bones_[i].initial;
  auto at = locate(frame);
  if (!at) return;
  if (anim_.flags & kFramePackedAnimation) {
    decodeFramePacked(*at, pose);
  } else {
    decodeRunLength(*at, pose);
  }
}

// The chain has at most one record per bone; a record whose next offset points back or
// out of the data ends it.
void AnimDecoder::decodeRunLength(const Located& at, std::vector<BonePoseSample>& pose) {
  const AnimData& data = at.data;
  size_t position = at.start;
  for (size_t records = 0;; ++records) {
    if (!data.contains(position, 4)) return data.fail(position, "bone record", "leaves the data");
    uint8_t bone = data.read<uint8_t>(position, "bone record");
    if (bone == 255) return;
    if (records == bones_.size()) return data.fail(position, "bone record", "is one more than the model has bones");
    if (bone >= bones_.size()) return data.fail(position, "bone record", "names a bone the model does not have");
    BoneAnimRecord record{&data, position, bone, data.read<uint8_t>(position + 1, "bone record")};
    const BoneDefaults& d = bones_[bone];
    size_t faults = fault_.count();
    Quaternion q = DecodeBoneRotation(at.localFrame, 0, record, d.quaternion, d.rotation, d.rotationScale, d.flags,
                                      d.alignment, &memos_[bone].toQuaternion);
    Vector3 p = DecodeBonePosition(at.localFrame, 0, d.position, d.positionScale, record);
    if (fault_.count() != faults) return;  // a record that does not read sets nothing
    pose[bone] = {p, anglesOf(bone, q), 1.0f};
    int16_t next = data.read<int16_t>(position + 2, "bone record");
    if (next == 0) return;
    if (next < 0) return data.fail(position, "bone record", "points back to an earlier record");
    position += size_t(next);
  }
}

}  // namespace zv::anim
