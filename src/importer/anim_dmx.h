#pragma once
// The element tree of one animation file: the model's skeleton, and a clip with one
// position and one orientation channel per bone, keyed every frame. Frames are added one
// at a time, so that a caller decodes one frame, adds it and goes on.

#include <string_view>
#include <vector>

#include "dmx/dm_element.h"
#include "importer/tables.h"

namespace zv {

// A bone's parent-relative transform in one frame.
struct BoneKey {
  Vector3 position;
  Quaternion orientation;
};

class AnimationTreeBuilder {
 public:
  // documentPath: the model document the file belongs to, as the export tags name it.
  AnimationTreeBuilder(dmx::DmElementTree& tree, const AnimExportRecord& record, std::string_view modelName,
                       const std::vector<SkeletonBone>& skeleton, std::string_view documentPath);

  // Adds the next frame: one key per skeleton bone, in bone order.
  void addFrame(const std::vector<BoneKey>& keys);
  const dmx::CDmElement& root() const { return *root_; }

 private:
  struct BoneChannels {
    std::vector<dmx::DmTime>* positionTimes;
    std::vector<Vector3>* positions;
    std::vector<dmx::DmTime>* orientationTimes;
    std::vector<Quaternion>* orientations;
  };
  BoneChannels addBoneChannels(dmx::DmElementTree& tree, dmx::CDmElement& clip, const std::string& bone,
                               dmx::CDmElement* transform);

  dmx::CDmElement* root_;
  float frameRate_;
  size_t frameCount_;
  size_t frames_ = 0;
  std::vector<BoneChannels> channels_;
};

// Seconds as whole ticks of the clip: frame / rate, or 0 without a usable rate.
dmx::DmTime frameTime(size_t frame, float frameRate);

}  // namespace zv
