#include "importer/anim_dmx.h"

#include <algorithm>
#include <cmath>

#include "importer/dmx_skeleton.h"

namespace zv {
namespace {

// A rate that is not a positive number gives no time: every duration and key time is 0.
bool usableRate(float rate) { return std::isfinite(rate) && rate > 0; }

dmx::CDmElement* addLog(dmx::DmElementTree& tree, dmx::CDmElement& channel, bool orientation) {
  const char* name = orientation ? "quaternion log" : "vector3 log";
  dmx::CDmElement* log = channel.addElement("log", orientation ? "DmeQuaternionLog" : "DmeVector3Log", name);
  dmx::CDmElement* layer = tree.create(orientation ? "DmeQuaternionLogLayer" : "DmeVector3LogLayer", name);
  log->addElementArray("layers") = {layer};
  log->setElement("curveinfo", nullptr);
  log->setBool("usedefaultvalue", false);
  if (orientation) {
    log->setQuaternion("defaultvalue", {});
  } else {
    log->setVector3("defaultvalue", {});
  }
  layer->timeArray("times");
  layer->intArray("curvetypes");
  if (orientation) {
    layer->quaternionArray("values");
  } else {
    layer->vector3Array("values");
  }
  return layer;
}

dmx::CDmElement* addChannel(dmx::DmElementTree& tree, dmx::CDmElement& clip, const std::string& name,
                            dmx::CDmElement* transform, const char* attribute) {
  dmx::CDmElement* channel = tree.create("DmeChannel", name);
  channel->setElement("fromElement", nullptr);
  channel->setString("fromAttribute", "");
  channel->setInt("fromIndex", 0);
  channel->setElement("toElement", transform);
  channel->setString("toAttribute", attribute);
  channel->setInt("toIndex", 0);
  channel->setInt("mode", 3);
  clip.addElementArray("channels").push_back(channel);
  return channel;
}

struct ClipElements {
  dmx::CDmElement* list;
  dmx::CDmElement* clip;
  dmx::CDmElement* timeFrame;
};

// The animation list and its clip, with what each file sets left at its default.
ClipElements addClip(dmx::DmElementTree& tree, dmx::CDmElement& root) {
  dmx::CDmElement* list = root.addElement("animationList", "DmeAnimationList", "");
  dmx::CDmElement* clip = tree.create("DmeChannelsClip", "");
  list->addElementArray("animations") = {clip};
  dmx::CDmElement* timeFrame = clip->addElement("timeFrame", "DmeTimeFrame", "timeFrame");
  timeFrame->setTime("start", {});
  timeFrame->setTime("duration", {});
  timeFrame->setTime("offset", {});
  timeFrame->setFloat("scale", 1.0f);
  clip->setColor("color", {0, 0, 0, 0});
  clip->setString("text", "");
  clip->setBool("mute", false);
  clip->addElementArray("trackGroups");
  clip->setFloat("displayScale", 1.0f);
  clip->addElementArray("channels");
  clip->setFloat("frameRate", 0);
  clip->setBool("vbDelta", false);
  clip->setBool("vbLooping", false);
  return {list, clip, timeFrame};
}

}  // namespace

dmx::DmTime frameTime(size_t frame, float frameRate) {
  return usableRate(frameRate) ? dmx::DmTime::fromSeconds(double(frame) / frameRate) : dmx::DmTime{};
}

void AnimationTreeBuilder::start(const AnimExportRecord& record, const AnimatedModel& model) {
  if (!root_ || !builtFor(model)) build(model);
  setClip(record);
}

void AnimationTreeBuilder::clear() {
  tree_.clear();
  root_ = prefix_ = list_ = clip_ = timeFrame_ = nullptr;
  channels_.clear();
  skeleton_.clear();
}

bool AnimationTreeBuilder::builtFor(const AnimatedModel& model) const {
  return model.name == modelName_ && model.documentPath == documentPath_ &&
         sameSkeletonModel(model.skeleton, skeleton_);
}

// The elements in the order files have always listed them; what differs from file to
// file is left at its default for setClip.
void AnimationTreeBuilder::build(const AnimatedModel& model) {
  clear();
  modelName_ = model.name;
  documentPath_ = model.documentPath;
  skeleton_ = model.skeleton;

  root_ = tree_.create("DmElement", "root");
  prefix_ = root_->addElement("$prefix_attribute$", "DmElement", "$prefix_element$");
  prefix_->setFloat("anim_frameRate", 0);
  prefix_->setFloat("anim_duration", 0);
  dmx::CDmElement* skeletonModel = addSkeletonModel(tree_, model.name, model.skeleton);
  root_->setElement("skeleton", skeletonModel);
  root_->setElement("model", skeletonModel);
  root_->addElement("makefile", "DmeDCCMakefile", "makefile");
  root_->addElement("exportTags", "DmeExportTags", "exportTags")->setString("qmdl", std::string(model.documentPath));

  ClipElements clip = addClip(tree_, *root_);
  list_ = clip.list;
  clip_ = clip.clip;
  timeFrame_ = clip.timeFrame;

  const std::vector<dmx::CDmElement*>& joints = skeletonModel->getElementArray("jointList");
  channels_.reserve(model.skeleton.size());
  for (size_t i = 0; i < model.skeleton.size(); ++i) {
    channels_.push_back(addBoneChannels(*clip_, jointName(model.skeleton, i), joints[i]->getElement("transform")));
  }
}

AnimationTreeBuilder::BoneChannels AnimationTreeBuilder::addBoneChannels(dmx::CDmElement& clip,
                                                                         const std::string& bone,
                                                                         dmx::CDmElement* transform) {
  dmx::CDmElement* position = addChannel(tree_, clip, bone + "_p", transform, "position");
  dmx::CDmElement* positionLayer = addLog(tree_, *position, false);
  position->setString("channelType", "skeleton");
  dmx::CDmElement* orientation = addChannel(tree_, clip, bone + "_o", transform, "orientation");
  dmx::CDmElement* orientationLayer = addLog(tree_, *orientation, true);
  orientation->setString("channelType", "skeleton");
  return {&positionLayer->timeArray("times"), &positionLayer->vector3Array("values"),
          &orientationLayer->timeArray("times"), &orientationLayer->quaternionArray("values")};
}

void AnimationTreeBuilder::setClip(const AnimExportRecord& record) {
  frameRate_ = record.frameRate;
  frames_ = 0;
  // The prefix block: the duration here is deliberately frames / rate.
  prefix_->setFloat("anim_frameRate", record.frameRate);
  prefix_->setFloat("anim_duration",
                    usableRate(record.frameRate) ? float(double(record.frameCount) / record.frameRate) : 0.0f);
  list_->setName(record.name);
  clip_->setName(record.name);
  // The clip lasts from its first key to its last.
  double seconds = usableRate(record.frameRate) && record.frameCount > 1
                       ? double(record.frameCount - 1) / record.frameRate
                       : 0.0;
  timeFrame_->setTime("duration", dmx::DmTime::fromSeconds(seconds));
  clip_->setFloat("frameRate", record.frameRate);
  clip_->setBool("vbDelta", record.delta);
  clip_->setBool("vbLooping", record.looping);
  // Every frame adds one key to each: the arrays are sized once.
  size_t frameCount = size_t(std::max(record.frameCount, 0));
  for (BoneChannels& channels : channels_) {
    channels.positionTimes->clear();
    channels.positions->clear();
    channels.orientationTimes->clear();
    channels.orientations->clear();
    channels.positionTimes->reserve(frameCount);
    channels.positions->reserve(frameCount);
    channels.orientationTimes->reserve(frameCount);
    channels.orientations->reserve(frameCount);
  }
}

void AnimationTreeBuilder::addFrame(const std::vector<BoneKey>& keys) {
  dmx::DmTime time = frameTime(frames_++, frameRate_);
  for (size_t i = 0; i < channels_.size() && i < keys.size(); ++i) {
    channels_[i].positionTimes->push_back(time);
    channels_[i].positions->push_back(keys[i].position);
    channels_[i].orientationTimes->push_back(time);
    channels_[i].orientations->push_back(keys[i].orientation);
  }
}

}  // namespace zv
