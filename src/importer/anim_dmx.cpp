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

dmx::CDmElement* addClip(dmx::DmElementTree& tree, dmx::CDmElement& root, const AnimExportRecord& record) {
  dmx::CDmElement* list = root.addElement("animationList", "DmeAnimationList", record.name);
  dmx::CDmElement* clip = tree.create("DmeChannelsClip", record.name);
  list->addElementArray("animations") = {clip};
  // The clip lasts from its first key to its last.
  double seconds = usableRate(record.frameRate) && record.frameCount > 1
                       ? double(record.frameCount - 1) / record.frameRate
                       : 0.0;
  dmx::CDmElement* timeFrame = clip->addElement("timeFrame", "DmeTimeFrame", "timeFrame");
  timeFrame->setTime("start", {});
  timeFrame->setTime("duration", dmx::DmTime::fromSeconds(seconds));
  timeFrame->setTime("offset", {});
  timeFrame->setFloat("scale", 1.0f);
  clip->setColor("color", {0, 0, 0, 0});
  clip->setString("text", "");
  clip->setBool("mute", false);
  clip->addElementArray("trackGroups");
  clip->setFloat("displayScale", 1.0f);
  clip->addElementArray("channels");
  clip->setFloat("frameRate", record.frameRate);
  clip->setBool("vbDelta", record.delta);
  clip->setBool("vbLooping", record.looping);
  return clip;
}

}  // namespace

dmx::DmTime frameTime(size_t frame, float frameRate) {
  return usableRate(frameRate) ? dmx::DmTime::fromSeconds(double(frame) / frameRate) : dmx::DmTime{};
}

AnimationTreeBuilder::AnimationTreeBuilder(dmx::DmElementTree& tree, const AnimExportRecord& record,
                                           std::string_view modelName, const std::vector<SkeletonBone>& skeleton,
                                           std::string_view documentPath)
    : frameRate_(record.frameRate), frameCount_(size_t(std::max(record.frameCount, 0))) {
  root_ = tree.create("DmElement", "root");
  // The prefix block: the duration here is deliberately frames / rate.
  dmx::CDmElement* prefix = root_->addElement("$prefix_attribute$", "DmElement", "$prefix_element$");
  prefix->setFloat("anim_frameRate", record.frameRate);
  prefix->setFloat("anim_duration",
                   usableRate(record.frameRate) ? float(double(record.frameCount) / record.frameRate) : 0.0f);
  dmx::CDmElement* model = addSkeletonModel(tree, modelName, skeleton);
  root_->setElement("skeleton", model);
  root_->setElement("model", model);
  root_->addElement("makefile", "DmeDCCMakefile", "makefile");
  root_->addElement("exportTags", "DmeExportTags", "exportTags")->setString("qmdl", std::string(documentPath));
  dmx::CDmElement* clip = addClip(tree, *root_, record);

  const std::vector<dmx::CDmElement*>& joints = model->getElementArray("jointList");
  channels_.reserve(skeleton.size());
  for (size_t i = 0; i < skeleton.size(); ++i) {
    channels_.push_back(addBoneChannels(tree, *clip, jointName(skeleton, i), joints[i]->getElement("transform")));
  }
}

AnimationTreeBuilder::BoneChannels AnimationTreeBuilder::addBoneChannels(dmx::DmElementTree& tree,
                                                                         dmx::CDmElement& clip,
                                                                         const std::string& bone,
                                                                         dmx::CDmElement* transform) {
  dmx::CDmElement* position = addChannel(tree, clip, bone + "_p", transform, "position");
  dmx::CDmElement* positionLayer = addLog(tree, *position, false);
  position->setString("channelType", "skeleton");
  dmx::CDmElement* orientation = addChannel(tree, clip, bone + "_o", transform, "orientation");
  dmx::CDmElement* orientationLayer = addLog(tree, *orientation, true);
  orientation->setString("channelType", "skeleton");
  BoneChannels channels{&positionLayer->timeArray("times"), &positionLayer->vector3Array("values"),
                        &orientationLayer->timeArray("times"), &orientationLayer->quaternionArray("values")};
  // Every frame adds one key to each: the arrays are sized once.
  channels.positionTimes->reserve(frameCount_);
  channels.positions->reserve(frameCount_);
  channels.orientationTimes->reserve(frameCount_);
  channels.orientations->reserve(frameCount_);
  return channels;
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
