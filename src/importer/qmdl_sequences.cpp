#include "importer/qmdl_sequences.h"

#include <cmath>

#include "base/log.h"
#include "base/strings.h"
#include "importer/names.h"
#include "importer/qmdl_paths.h"
#include "kv/keyvalues.h"
#include "output/output.h"

namespace zv {
namespace {

// Auto layer flags and their names in the document.
constexpr std::pair<int32_t, const char*> kLayerFlags[] = {
    {0x0010, "post"},    {0x0040, "spline"}, {0x0080, "xfade"},
    {0x0200, "noblend"}, {0x1000, "local"},  {0x4000, "pose"},
};

constexpr int kLeanOverrides = 4;

class SequenceNodeWriter {
 public:
  SequenceNodeWriter(modeldoc::ModelDocument& document, const ModelTables& tables,
                     const SequenceNodeOptions& options)
      : document_(document), tables_(tables), options_(options) {}

  void write();

 private:
  std::string nodeName(const std::string& name) const { return options_.prefix + SanitizeNodeName(name); }

  // The animation file of an animation record, as the document names files; nothing for a
  // record that was not exported.
  std::optional<std::string> animationFile(int32_t record) const;
  int32_t frameCountOf(const SequenceRecord& sequence) const;
  void writeSequence(const SequenceRecord& sequence);
  void setGrid(modeldoc::Node& node, const SequenceRecord& sequence,
               const std::vector<std::string>& files) const;
  void setCommonKeys(modeldoc::Node& node, const SequenceRecord& sequence) const;
  static float finite(float value) { return std::isfinite(value) ? value + 0.0f : 0.0f; }
  void writeEvents(modeldoc::Node& node, const SequenceRecord& sequence);
  void writeLayers(modeldoc::Node& node, const SequenceRecord& sequence);

  // The layered sequence, when the document has a node for it.
  const SequenceRecord* layerTarget(const SequenceLayer& layer) const;

  // Cycles become frames of the layered sequence. A layer driven by a pose parameter has
  // its range in the parameter's values, not in cycles, and keeps no frames.
  void setLayerFrames(modeldoc::Node& child, const SequenceRecord& sequence, const SequenceRecord& target,
                      const SequenceLayer& layer) const;

  // The same animation four times as delta overrides, for lean sequences.
  void writeLeanOverrides(modeldoc::Node& node, const std::string& file);

  modeldoc::ModelDocument& document_;
  const ModelTables& tables_;
  const SequenceNodeOptions& options_;
};

void SequenceNodeWriter::write() {
  for (const SequenceRecord& sequence : tables_.sequences) {
    if (sequence.usable && !sequence.animations.empty()) writeSequence(sequence);
  }
}

std::optional<std::string> SequenceNodeWriter::animationFile(int32_t record) const {
  if (record < 0 || size_t(record) >= tables_.animations.size()) return std::nullopt;
  const AnimExportRecord& anim = tables_.animations[size_t(record)];
  return relativeToBaseFolder(anim.outputFolder + "/" + safeFileName(anim.fileName), options_.baseFolder);
}

int32_t SequenceNodeWriter::frameCountOf(const SequenceRecord& sequence) const {
  int32_t record = sequence.animations.empty() ? -1 : sequence.animations.front();
  return record >= 0 && size_t(record) < tables_.animations.size()
             ? tables_.animations[size_t(record)].frameCount
             : 0;
}

void SequenceNodeWriter::writeSequence(const SequenceRecord& sequence) {
  std::vector<std::string> files;
  for (int32_t record : sequence.animations) {
    std::optional<std::string> file = animationFile(record);
    if (!file) {
      warning("Error creating node for sequence %s\n", sequence.name.c_str());
      return;
    }
    files.push_back(*file);
  }
  bool grid = files.size() > 1;
  modeldoc::Node* list = document_.rootList("AnimationList");
  modeldoc::Node* node =
      list ? document_.createNode(grid ? "AnimBlendGrid" : "AnimFile", nodeName(sequence.name), list)
           : nullptr;
  if (node == nullptr) {
    warning("Error creating node for sequence %s\n", sequence.name.c_str());
    return;
  }
  if (grid) {
    setGrid(*node, sequence, files);
  } else {
    node->set("source_filename", files.front());
  }
  setCommonKeys(*node, sequence);
  writeEvents(*node, sequence);
  writeLayers(*node, sequence);
  if (options_.overrideLean && containsNoCase(sequence.name, "lean"))
    writeLeanOverrides(*node, files.front());
}

void SequenceNodeWriter::setGrid(modeldoc::Node& node, const SequenceRecord& sequence,
                                 const std::vector<std::string>& files) const {
  std::vector<std::string> params;
  for (const std::string& param : sequence.blendParams) {
    if (!param.empty()) params.push_back(SanitizeNodeName(param));
  }
  node.set("blend_params", params);
  Kv3Value size = Kv3Value::makeArray();
  size.push(sequence.gridSize[0]);
  size.push(sequence.gridSize[1]);
  node.set("grid_size", size);
  node.set("animations", files);
}

void SequenceNodeWriter::setCommonKeys(modeldoc::Node& node, const SequenceRecord& sequence) const {
  if (!sequence.activity.empty()) {
    node.set("activity_name", sequence.activity);
    node.set("activity_weight", sequence.activityWeight);
  }
  if (!sequence.weightList.empty()) node.set("weight_list_name", nodeName(sequence.weightList));
  node.set("fade_in_time", finite(sequence.fadeIn));
  node.set("fade_out_time", finite(sequence.fadeOut));
  node.set("looping", (sequence.flags & legacy::kLoopingFlag) != 0);
  node.set("delta", (sequence.flags & legacy::kDeltaFlag) != 0);
  node.set("hidden", (sequence.flags & legacy::kHiddenFlag) != 0);
  node.set("world_space", (sequence.flags & legacy::kWorldSpaceFlag) != 0);
  node.set("sequence_keys", sequenceKeys(sequence));
}

void SequenceNodeWriter::writeEvents(modeldoc::Node& node, const SequenceRecord& sequence) {
  if (sequence.events.empty()) return;
  if (node.className() != "AnimFile") {
    warning("Unable to add anim events to %s of type \"%.*s\". Only \"AnimFile\" nodes are valid.\n",
            node.name().c_str(), int(node.className().size()), node.className().data());
    return;
  }
  int32_t frames = frameCountOf(sequence);
  for (const SequenceEvent& event : sequence.events) {
    modeldoc::Node* child = document_.createNode("AnimEvent", "", &node);
    if (child == nullptr) continue;
    child->set("event_class", event.name);
    child->set("event_frame", cycleToFrame(event.cycle, frames));
    child->setEntry("event_keys", "options", event.options);
  }
}

void SequenceNodeWriter::writeLayers(modeldoc::Node& node, const SequenceRecord& sequence) {
  for (const SequenceLayer& layer : sequence.layers) {
    const SequenceRecord* target = layerTarget(layer);
    if (target == nullptr) {
      warning("Sequence %s - unable to find sequence/anim for blendlayer %s\n", sequence.name.c_str(),
              layer.sequenceName.c_str());
      continue;
    }
    modeldoc::Node* child = document_.createNode("AnimBlendLayer", "", &node);
    if (child == nullptr) continue;
    child->set("sequence_name", nodeName(target->name));
    setLayerFrames(*child, sequence, *target, layer);
    if (!layer.poseParam.empty()) child->set("pose_param", SanitizeNodeName(layer.poseParam));
    std::vector<std::string> flags;
    for (auto [bit, name] : kLayerFlags) {
      if (layer.flags & bit) flags.push_back(name);
    }
    child->set("flags", flags);
  }
}

const SequenceRecord* SequenceNodeWriter::layerTarget(const SequenceLayer& layer) const {
  if (layer.sequence < 0 || size_t(layer.sequence) >= tables_.sequences.size()) return nullptr;
  const SequenceRecord& target = tables_.sequences[size_t(layer.sequence)];
  if (!target.usable || target.animations.empty()) return nullptr;
  for (int32_t record : target.animations) {
    if (!animationFile(record)) return nullptr;
  }
  return &target;
}

void SequenceNodeWriter::setLayerFrames(modeldoc::Node& child, const SequenceRecord& sequence,
                                        const SequenceRecord& target, const SequenceLayer& layer) const {
  if (layer.flags & legacy::kPoseLayerFlag) {
    warning("Unable to remap cycles on blendlayer. Sequence: %s / blendlayer:%s\n", sequence.name.c_str(),
            target.name.c_str());
    return;
  }
  int32_t frames = frameCountOf(target);
  const float cycles[] = {layer.start, layer.peak, layer.tail, layer.end};
  bool convertible = frames > 0;
  for (float cycle : cycles) convertible = convertible && std::isfinite(cycle);
  if (!convertible) {
    warning("Unable to convert cycles to frames on blendlayer. Sequence: %s / blendlayer:%s\n",
            sequence.name.c_str(), target.name.c_str());
  }
  const char* keys[] = {"start_frame", "peak_frame", "tail_frame", "end_frame"};
  for (size_t k = 0; k < 4; ++k) child.set(keys[k], convertible ? cycleToFrame(cycles[k], frames) : 0);
}

void SequenceNodeWriter::writeLeanOverrides(modeldoc::Node& node, const std::string& file) {
  for (int i = 0; i < kLeanOverrides; ++i) {
    std::string name = format("a_lean_override_%d", i);
    modeldoc::Node* child = document_.createNode("AnimFile", name, &node);
    if (child == nullptr) {
      warning("Error creating node for Anim %s\n", name.c_str());
      continue;
    }
    child->set("source_filename", file);
    child->set("delta", true);
  }
}

// A block of the sequence's keys, converted as the model's own key-value blocks are (a
// key repeated in the block becomes one array).
void setBlock(Kv3Value& keys, const KeyValues& block) { keys.set(block.name(), keyValuesToKv3(block)); }

}  // namespace

int32_t cycleToFrame(float cycle, int32_t frameCount) {
  if (frameCount < 1 || !std::isfinite(cycle)) return 0;
  double frame = std::floor(double(cycle) * (frameCount - 1) + 0.5);
  return int32_t(std::clamp(frame, double(INT32_MIN), double(INT32_MAX)));
}

Kv3Value sequenceKeys(const SequenceRecord& sequence) {
  Kv3Value keys = sequence.keyValues.isObject() ? sequence.keyValues : Kv3Value::makeObject();
  auto flag = [&](int32_t bit) { return std::string((sequence.flags & bit) ? "1" : "0"); };
  KeyValues flags = KeyValues::section("ExtraSeqFlags");
  flags.add({"worldrelative", flag(legacy::kWorldAndRelativeFlag)});
  // Legacy layers never changed a sequence's movement or duration.
  flags.add({"layersaffectingmovementandduration", "0"});
  flags.add({"emptyanimwithnoeffect", flag(legacy::kAllZerosFlag)});
  setBlock(keys, flags);
  if (!sequence.animTags.empty()) {
    KeyValues tags = KeyValues::section("AnimTags");
    for (const auto& [name, cycle] : sequence.animTags) tags.add({name, format("%f", cycle)});
    setBlock(keys, tags);
  }
  return keys;
}

void writeSequenceNodes(modeldoc::ModelDocument& document, const ModelTables& tables,
                        const SequenceNodeOptions& options) {
  SequenceNodeWriter(document, tables, options).write();
}

void writeWeightListNodes(modeldoc::ModelDocument& document, const ModelTables& tables,
                          std::string_view prefix) {
  const std::vector<SkeletonBone>& bones = tables.skeleton;
  for (const WeightList& list : tables.weightLists) {
    modeldoc::Node* parent = document.rootList("WeightListList");
    modeldoc::Node* node =
        parent ? document.createNode("WeightList", std::string(prefix) + SanitizeNodeName(list.name), parent)
               : nullptr;
    if (node == nullptr) continue;
    node->set("weights", Kv3Value::makeArray());
    for (size_t j = 0; j < bones.size() && j < list.weights.size(); ++j) {
      int32_t up = bones[j].parent;
      bool inherits = up >= 0 && size_t(up) < list.weights.size() &&
                      std::fabs(list.weights[j] - list.weights[size_t(up)]) <= 0.001f;
      if (inherits) continue;
      node->append("weights", Kv3Value::makeObject(
                                  {{"bone", ConvertBoneName(bones[j].name)},
                                   {"weight", std::isfinite(list.weights[j]) ? list.weights[j] : 0.0f}}));
    }
  }
}

}  // namespace zv
