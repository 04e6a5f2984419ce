// Sequence import: the animations and sequences of the model and of the models it includes
// become the converter's animation records, sequence records and weight lists.

#include <algorithm>

#include "base/float_sanitize.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "importer/anim_events.h"
#include "importer/converter.h"
#include "kv/keyvalues.h"

namespace zv {
namespace {

// What one animation may ask for: its file holds a key per frame for every bone, so a
// hostile frame count must not make the converter build a file of gigabytes.
constexpr int64_t kMaxAnimationFrames = int64_t{1} << 20;

std::string poseParamName(const legacy::MdlFile& mdl, int32_t index) {
  return index >= 0 && size_t(index) < mdl.poseParams.size() ? mdl.poseParams[size_t(index)].name : std::string();
}

Kv3Value sequenceKeyValues(const legacy::MdlFile& mdl, const legacy::SequenceDesc& desc) {
  if (desc.keyValues.empty()) return {};
  std::vector<std::string> notes;
  auto text = KeyValues::parse(desc.keyValues, notes);
  for (const std::string& note : notes)
    warning("%s: sequence \"%s\": key values: %s\n", mdl.fileName().c_str(), desc.name.c_str(), note.c_str());
  if (!text) {
    warning("%s: sequence \"%s\": its key values do not read and are not converted: %s\n", mdl.fileName().c_str(),
            desc.name.c_str(), text.message().c_str());
    return {};
  }
  return keyValuesToKv3(*text);
}

std::vector<SequenceEvent> sequenceEvents(const legacy::MdlFile& mdl, const legacy::SequenceDesc& desc) {
  std::vector<SequenceEvent> events;
  for (const legacy::AnimEvent& event : desc.events) {
    std::string name = event.name;
    if (name.empty()) {
      EventName lookup = lookupEventName(mdl.modelName(), event.id, event.options);
      if (!lookup.name) {
        warning("%s: sequence \"%s\" %s old-style event: %d\n", mdl.modelName().c_str(), desc.name.c_str(),
                unnamedEventWord(event.id, lookup), event.id);
        continue;
      }
      name = *lookup.name;
    }
    events.push_back({name, event.cycle, event.options});
  }
  return events;
}

}  // namespace

C_ZV_MDL_Import::SourceModel C_ZV_MDL_Import::source(size_t index) const {
  if (index == 0) {
    return {settings_.inputPath, model_->mdl, model_->animBlocks ? &*model_->animBlocks : nullptr, nullptr};
  }
  const IncludedModel& included = includedModels_[index - 1];
  return {included.path, included.mdl, included.animBlocks ? &*included.animBlocks : nullptr, &included.skeletonBone};
}

bool C_ZV_MDL_Import::ExtractAnims() {
  if (!model_) return false;
  bool ok = ExtractLocalAnims(0);
  tables_.ownAnimationCount = tables_.animations.size();
  ok = loadIncludedModels() && ok;
  for (size_t n = 1; n <= includedModels_.size(); ++n) ok = ExtractLocalAnims(n) && ok;
  return ok;
}

// Included models may include others: each is followed right after its includer (depth
// first), and a model met a second time (a cycle, a self-include) is not loaded again.
bool C_ZV_MDL_Import::loadIncludedModels() {
  bool ok = true;
  std::set<std::string> visited{toLower(path::toForwardSlashes(settings_.inputPath))};
  struct Pending {
    size_t model;  // 0: the converted model, n: included model n
    size_t next;   // its next include
  };
  std::vector<Pending> stack{{0, 0}};
  while (!stack.empty()) {
    Pending& top = stack.back();
    const legacy::MdlFile& includer = top.model == 0 ? model_->mdl : includedModels_[top.model - 1].mdl;
    if (top.next >= includer.includes.size()) {
      stack.pop_back();
      continue;
    }
    std::string path = includer.includes[top.next++].fileName;
    path = fileSystem_.fullPath(path, {}).value_or(path);
    if (!visited.insert(toLower(path::toForwardSlashes(path))).second) continue;
    mainLog().log(Severity::Message, "Converting anims in included mdl %s\n", path.c_str());
    auto bytes = readFamilyFile(path);
    auto mdl = bytes ? legacy::MdlFile::parse(path, std::move(*bytes)) : Result<legacy::MdlFile>(Error{});
    if (!mdl) {
      if (bytes) warning("%s\n", mdl.message().c_str());
      // The converted model's path, as the message has always named it.
      warning("C_ZV_MDL_Import::ExtractAnims(1761): Load of MDL \"%s\" failed\n", settings_.inputPath.c_str());
      ok = false;
      continue;
    }
    for (const std::string& note : mdl->notes) warning("%s\n", note.c_str());
    IncludedModel included{path, std::move(mdl.value()), std::nullopt, {}};
    included.animBlocks = readAnimBlockFile(included.mdl, path);
    includedModels_.push_back(std::move(included));
    stack.push_back({includedModels_.size(), 0});
  }
  return ok;
}

void C_ZV_MDL_Import::buildSkeletonIndex() {
  skeletonIndex_.clear();
  for (size_t i = 0; i < tables_.skeleton.size(); ++i) skeletonIndex_.emplace(tables_.skeleton[i].name, int32_t(i));
}

std::vector<int32_t> C_ZV_MDL_Import::skeletonBonesOf(const legacy::MdlFile& mdl) const {
  std::vector<int32_t> bones;
  for (const legacy::Bone& bone : mdl.bones) {
    auto found = skeletonIndex_.find(bone.name);
    bones.push_back(found == skeletonIndex_.end() ? -1 : found->second);
  }
  return bones;
}

bool C_ZV_MDL_Import::ExtractLocalAnims(size_t index) {
  if (index == 0) {
    buildSkeletonIndex();
  } else {
    includedModels_[index - 1].skeletonBone = skeletonBonesOf(includedModels_[index - 1].mdl);
  }
  SourceModel model = source(index);
  // An included model's animations carry its base name, so that like-named animations of
  // several models never meet.
  std::string prefix = index == 0 ? std::string() : toLower(std::string(path::fileBase(model.mdl.modelName())) + "_");
  std::vector<int32_t> recordOf = addAnimationRecords(index, prefix);
  addSequenceRecords(index, recordOf);
  return true;
}

// Names are unique within the model, and so are the file names they give (ignoring case).
std::string C_ZV_MDL_Import::uniqueAnimationName(const std::string& wanted) {
  // Names are told apart by the file each is written to, which may differ from the name
  // in more than "@".
  auto fileNameOf = [](const std::string& name) { return toLower(portableFileName(replaceAll(name, "@", "_") + ".dmx")); };
  std::string name = wanted;
  for (int n = 2; animationFileNames_.count(fileNameOf(name)) != 0; ++n) name = format("%s_%d", wanted.c_str(), n);
  animationFileNames_.insert(fileNameOf(name));
  return name;
}

std::vector<int32_t> C_ZV_MDL_Import::addAnimationRecords(size_t index, const std::string& prefix) {
  SourceModel model = source(index);
  std::vector<int32_t> recordOf(model.mdl.animations.size(), -1);
  int64_t bones = std::max<int64_t>(1, int64_t(tables_.skeleton.size()));
  for (size_t a = 0; a < model.mdl.animations.size(); ++a) {
    const legacy::AnimDesc& anim = model.mdl.animations[a];
    bool tooLong = anim.frameCount > kMaxAnimationFrames || int64_t(anim.frameCount) * bones > animationKeyLimit_;
    if (tooLong) {
      warning("%s: animation \"%s\" asks for %d frames of %lld bones; at most %lld keys are converted\n",
              model.path.c_str(), anim.name.c_str(), anim.frameCount, static_cast<long long>(bones),
              static_cast<long long>(animationKeyLimit_));
    }
    if (!anim.error.empty() || tooLong || anim.frameCount < 0) {
      warning("C_ZV_MDL_Import::ExtractLocalAnims(1442): Unable to extract \"%s\" from \"%s\" failed\n",
              anim.name.c_str(), model.path.c_str());
      continue;
    }
    AnimExportRecord record;
    record.outputFolder = paths_.animFolder;
    record.name = uniqueAnimationName(prefix + toLower(anim.name) + format("_%zu", a));
    record.fileName = replaceAll(record.name, "@", "_") + ".dmx";
    record.frameRate = sanitizeFloat(anim.fps);
    record.frameCount = anim.frameCount;
    record.looping = anim.flags & legacy::kLoopingFlag;
    record.allZeros = anim.flags & legacy::kAllZerosFlag;
    record.hidden = anim.flags & legacy::kHiddenFlag;
    record.delta = anim.flags & legacy::kDeltaFlag;
    record.world = anim.flags & legacy::kWorldSpaceFlag;
    record.movements = anim.movements;
    record.sourceModel = index;
    record.sourceAnimation = a;
    // Tracks of bones the skeleton does not have are dropped, each said once per animation.
    if (model.skeletonBone) {
      std::set<std::string> reported;
      for (size_t b = 0; b < model.mdl.bones.size(); ++b) {
        const std::string& bone = model.mdl.bones[b].name;
        if ((*model.skeletonBone)[b] < 0 && reported.insert(bone).second) {
          mainLog().log(Severity::Warning, "Unable to remap bone %s in anim %s\n", bone.c_str(), record.name.c_str());
        }
      }
    }
    recordOf[a] = int32_t(tables_.animations.size());
    tables_.animations.push_back(std::move(record));
  }
  return recordOf;
}

void C_ZV_MDL_Import::addSequenceRecords(size_t index, const std::vector<int32_t>& recordOf) {
  SourceModel model = source(index);
  if (tables_.weightLists.empty() && !model.mdl.sequences.empty()) {
    tables_.weightLists.push_back({"bonemask_default", std::vector<float>(tables_.skeleton.size(), 1.0f)});
  }
  int32_t sequenceBase = int32_t(tables_.sequences.size());
  for (const legacy::SequenceDesc& desc : model.mdl.sequences) {
    SequenceRecord record = sequenceRecord(model.mdl, desc, recordOf, sequenceBase);
    if (record.usable) {
      record.weightList = "bonemask_" + desc.name;
      static const std::vector<int32_t> kNone;
      tables_.weightLists.push_back({record.weightList, skeletonWeights(desc, model.skeletonBone ? *model.skeletonBone : kNone)});
    }
    tables_.sequences.push_back(std::move(record));
  }
}

SequenceRecord C_ZV_MDL_Import::sequenceRecord(const legacy::MdlFile& mdl, const legacy::SequenceDesc& desc,
                                               const std::vector<int32_t>& recordOf, int32_t sequenceBase) const {
  SequenceRecord record;
  record.name = desc.name;
  if (!desc.error.empty()) {
    record.usable = false;
    return record;
  }
  if (desc.animIndices.empty()) {
    warning("Empty sequence %s : missing animation references\n", desc.name.c_str());
  } else {
    record.gridSize = desc.groupSize;
    for (int16_t anim : desc.animIndices) record.animations.push_back(recordOf[size_t(anim)]);
  }
  record.activity = desc.activityName;
  record.activityWeight = desc.activityWeight;
  record.flags = desc.flags;
  for (size_t axis = 0; axis < 2; ++axis) record.blendParams[axis] = poseParamName(mdl, desc.paramIndex[axis]);
  record.fadeIn = desc.fadeInTime;
  record.fadeOut = desc.fadeOutTime;
  record.events = sequenceEvents(mdl, desc);
  for (const legacy::AutoLayer& layer : desc.autoLayers) {
    bool known = layer.sequence >= 0 && size_t(layer.sequence) < mdl.sequences.size();
    record.layers.push_back({known ? sequenceBase + layer.sequence : -1,
                             known ? mdl.sequences[size_t(layer.sequence)].name : std::to_string(layer.sequence),
                             (layer.flags & legacy::kPoseLayerFlag) ? poseParamName(mdl, layer.pose) : std::string(), layer.flags,
                             layer.start, layer.peak, layer.tail, layer.end});
  }
  record.keyValues = sequenceKeyValues(mdl, desc);
  record.animTags = desc.animTags;
  return record;
}

// The sequence's weight of every skeleton bone, from the bone of the same name in the
// sequence's model (skeletonBone maps them; empty: the converted model, bone for bone).
// Bones that model lacks, and sequences without a list, weigh 1.
std::vector<float> C_ZV_MDL_Import::skeletonWeights(const legacy::SequenceDesc& desc,
                                                    const std::vector<int32_t>& skeletonBone) const {
  std::vector<float> weights(tables_.skeleton.size(), 1.0f);
  for (size_t b = 0; b < desc.weights.size(); ++b) {
    int32_t bone = skeletonBone.empty() ? int32_t(b) : (b < skeletonBone.size() ? skeletonBone[b] : -1);
    if (bone >= 0 && size_t(bone) < weights.size()) weights[size_t(bone)] = desc.weights[b];
  }
  return weights;
}

}  // namespace zv
