#pragma once
// The element tree of one animation file: the model's skeleton, and a clip with one
// position and one orientation channel per bone, keyed every frame. Frames are added one
// at a time, so that a caller decodes one frame, adds it and goes on.

#include <string>
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

// What the files of one model share: every animation file repeats the skeleton.
struct AnimatedModel {
  std::string_view name;
  const std::vector<SkeletonBone>& skeleton;
  std::string_view documentPath;  // the model document, as the export tags name it
};

// Builds file after file in one tree. The skeleton and the bones' channels make up most
// of a file's elements and are the same in every file of a model, so they stay from one
// file to the next of the same model; each file sets only its clip and its keys.
class AnimationTreeBuilder {
 public:
  // Starts the tree of the next file.
  void start(const AnimExportRecord& record, const AnimatedModel& model);
  // Adds the next frame: one key per skeleton bone, in bone order.
  void addFrame(const std::vector<BoneKey>& keys);
  const dmx::CDmElement& root() const { return *root_; }
  // Lets go of the elements and keys; the tree's room stays.
  void clear();

 private:
  struct BoneChannels {
    std::vector<dmx::DmTime>* positionTimes;
    std::vector<Vector3>* positions;
    std::vector<dmx::DmTime>* orientationTimes;
    std::vector<Quaternion>* orientations;
  };
  bool builtFor(const AnimatedModel& model) const;
  void build(const AnimatedModel& model);
  BoneChannels addBoneChannels(dmx::CDmElement& clip, const std::string& bone, dmx::CDmElement* transform);
  void setClip(const AnimExportRecord& record);

  dmx::DmElementTree tree_;
  // The model the tree holds, compared with the next file's.
  std::string modelName_, documentPath_;
  std::vector<SkeletonBone> skeleton_;
  dmx::CDmElement* root_ = nullptr;
  dmx::CDmElement* prefix_ = nullptr;
  dmx::CDmElement* list_ = nullptr;
  dmx::CDmElement* clip_ = nullptr;
  dmx::CDmElement* timeFrame_ = nullptr;
  std::vector<BoneChannels> channels_;
  float frameRate_ = 0;
  size_t frames_ = 0;
};

// Seconds as whole ticks of the clip: frame / rate, or 0 without a usable rate.
dmx::DmTime frameTime(size_t frame, float frameRate);

}  // namespace zv
