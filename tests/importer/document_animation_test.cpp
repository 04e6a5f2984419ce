// The sequence nodes and weight lists of the model document: what each sequence becomes,
// its events and layers, and that every reference names a node or file that exists.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <set>

#include "base/log.h"
#include "importer/qmdl_sequences.h"
#include "importer_fixture.h"

namespace zv {
namespace {

using testing::bone;
using testing::childrenOf;
using testing::ImportRun;
using testing::listed;
using testing::shown;
using testing::valueOf;
using Names = std::vector<std::string>;

mdlforge::Animation animation(std::string name, int32_t frames) {
  mdlforge::Animation a;
  a.name = std::move(name);
  a.frames = frames;
  return a;
}

mdlforge::Sequence sequence(std::string name, std::vector<int16_t> grid, int32_t width = 1) {
  mdlforge::Sequence s;
  s.name = std::move(name);
  s.width = width;
  s.height = int32_t(grid.size()) / width;
  s.animations = std::move(grid);
  return s;
}

// Three bones; animations of 5, 11 and 3 frames; sequences of one animation, a 2 x 2
// grid over two pose parameters, one layered over the others and a lean.
mdlforge::Description animatedCrate() {
  mdlforge::Description d = testing::crateModel();
  d.bones = {bone("root", -1), bone("lid", 0), bone("latch", 1)};
  d.poseParameters = {{"move x", 0, -1, 1, 0}, {"move_y", 0, -1, 1, 0}};
  d.animations = {animation("idle", 5), animation("walk", 11), animation("lean_left", 3)};
  mdlforge::Sequence idle = sequence("idle", {0});
  idle.flags = 0x1 | 0x20;
  idle.activity = "ACT_IDLE";
  idle.activityWeight = 3;
  idle.events = {{0.5f, 0, std::nullopt, "creak", "AE_CREAK"}, {1.0f, 1004, std::nullopt, "crate.open", ""}};
  idle.keyValues = "fx { name dust }";
  idle.weights = {1, 1, 0.25f};
  mdlforge::Sequence grid = sequence("move", {1, 0, 0, 1}, 2);
  grid.paramIndex = {0, 1};
  grid.events = {{0.5f, 1004, std::nullopt, "", ""}};
  mdlforge::Sequence layered = sequence("layered", {0});
  layered.autoLayers = {{1, 0, 0x10 | 0x40, 0, 0.5f, 0.5f, 1},  // over "move": 11 frames
                        {9, 0, 0, 0, 0, 1, 1},                  // no sequence 9
                        {0, 1, 0x4000, -1, 0, 0, 1}};           // driven by move_y
  d.sequences = {idle, grid, layered, sequence("lean_left", {2}), sequence("Lean_Right", {2})};
  return d;
}

Kv3Value convert(ImportRun& run) {
  EXPECT_TRUE(run.converter.Convert());
  return run.readDocument();
}

TEST(QmdlSequences, FilesGridsEventsAndLayers) {
  ImportRun run(animatedCrate());
  LogCapture log;
  Kv3Value root = convert(run);
  EXPECT_EQ(listed(root, "AnimationList", {"_class", "name", "source_filename", "weight_list_name"}),
            (Names{"AnimFile idle props/crate_refs/anim/idle_0.dmx bonemask_idle",
                   "AnimBlendGrid move <unset> bonemask_move",
                   "AnimFile layered props/crate_refs/anim/idle_0.dmx bonemask_layered",
                   "AnimFile lean_left props/crate_refs/anim/lean_left_2.dmx bonemask_lean_left",
                   "AnimFile Lean_Right props/crate_refs/anim/lean_left_2.dmx bonemask_Lean_Right"}));
  std::vector<const Kv3Value*> nodes = childrenOf(*childrenOf(root, "AnimationList").at(0));
  const Kv3Value& idle = *nodes[0];
  EXPECT_EQ(shown({&idle}, {"activity_name", "activity_weight", "looping", "delta", "fade_in_time", "sequence_keys"}),
            Names{"ACT_IDLE 3 true false 0.2 {fx={name=dust}, ExtraSeqFlags={worldrelative=0, "
                  "layersaffectingmovementandduration=0, emptyanimwithnoeffect=1}}"});
  // Events on frames of the first animation (5 frames: cycle 0.5 is frame 2).
  EXPECT_EQ(shown(childrenOf(idle, "AnimEvent"), {"event_class", "event_frame", "event_keys"}),
            (Names{"AE_CREAK 2 {options=creak}", "AE_SV_PLAYSOUND 4 {options=crate.open}"}));
  // A grid names its pose parameters as the document does, and cannot hold events.
  EXPECT_EQ(shown({nodes[1]}, {"blend_params", "grid_size", "animations"}),
            Names{"[move_x, move_y] [2, 2] [props/crate_refs/anim/walk_1.dmx, props/crate_refs/anim/idle_0.dmx, "
                  "props/crate_refs/anim/idle_0.dmx, props/crate_refs/anim/walk_1.dmx]"});
  EXPECT_EQ(log.count("Unable to add anim events to move of type \"AnimBlendGrid\". Only \"AnimFile\" nodes are valid.\n"),
            1u)
      << log.text();
  // Layers: cycles as frames of the layered sequence; one without a sequence is said and
  // left out; one driven by a pose parameter keeps no frames.
  EXPECT_EQ(shown(childrenOf(*nodes[2], "AnimBlendLayer"),
                  {"sequence_name", "start_frame", "peak_frame", "tail_frame", "end_frame", "pose_param", "flags"}),
            (Names{"move 0 5 5 10 <unset> [post, spline]", "idle <unset> <unset> <unset> <unset> move_y [pose]"}));
  EXPECT_EQ(log.count("Sequence layered - unable to find sequence/anim for blendlayer 9\n"), 1u);
  EXPECT_EQ(log.count("Unable to remap cycles on blendlayer. Sequence: layered / blendlayer:idle\n"), 1u);
}

TEST(QmdlSequences, LeanSequencesGetFourDeltaOverridesWhenAsked) {
  for (bool overrideLean : {false, true}) {
    ImportRun run(animatedCrate());
    run.options.overrideLean = overrideLean;
    run.setup();
    Kv3Value root = convert(run);
    std::vector<const Kv3Value*> nodes = childrenOf(*childrenOf(root, "AnimationList").at(0));
    for (size_t lean : {3, 4}) {
      std::vector<const Kv3Value*> overrides = childrenOf(*nodes[lean], "AnimFile");
      ASSERT_EQ(overrides.size(), overrideLean ? 4u : 0u);
      for (size_t i = 0; i < overrides.size(); ++i) {
        EXPECT_EQ(shown({overrides[i]}, {"name", "source_filename", "delta"}),
                  Names{"a_lean_override_" + std::to_string(i) + " props/crate_refs/anim/lean_left_2.dmx true"});
      }
    }
    EXPECT_TRUE(childrenOf(*nodes[0], "AnimFile").empty());
  }
}

// Every name the sequence nodes refer to is a node or a file of the conversion.
TEST(QmdlSequences, EveryReferenceNamesWhatExists) {
  ImportRun run(animatedCrate());
  Kv3Value root = convert(run);
  std::set<std::string> sequences, weightLists, poseParams;
  for (const Kv3Value* node : childrenOf(*childrenOf(root, "AnimationList").at(0))) sequences.insert(valueOf(*node, "name"));
  for (const Kv3Value* node : childrenOf(*childrenOf(root, "WeightListList").at(0))) weightLists.insert(valueOf(*node, "name"));
  for (const Kv3Value* node : childrenOf(*childrenOf(root, "PoseParamList").at(0))) poseParams.insert(valueOf(*node, "name"));
  for (const Kv3Value* node : childrenOf(*childrenOf(root, "AnimationList").at(0))) {
    EXPECT_EQ(weightLists.count(valueOf(*node, "weight_list_name")), 1u);
    std::vector<std::string> files;
    if (node->find("source_filename")) files.push_back(valueOf(*node, "source_filename"));
    if (const Kv3Value* grid = node->find("animations")) {
      for (const Kv3Value& file : grid->elements()) files.push_back(file.asString());
    }
    for (const std::string& file : files) EXPECT_TRUE(std::filesystem::exists(run.dir.path() / "out" / file)) << file;
    if (const Kv3Value* params = node->find("blend_params")) {
      for (const Kv3Value& param : params->elements()) EXPECT_EQ(poseParams.count(param.asString()), 1u);
    }
    for (const Kv3Value* layer : childrenOf(*node, "AnimBlendLayer")) {
      EXPECT_EQ(sequences.count(valueOf(*layer, "sequence_name")), 1u);
    }
  }
}

TEST(QmdlWeightLists, ABoneIsListedOnlyWhereItsWeightLeavesItsParentsByMoreThanAThousandth) {
  mdlforge::Description d = animatedCrate();
  // lid differs from root by 0.00099999 (left out), latch from lid by 0.0011 (listed).
  d.sequences = {sequence("idle", {0})};
  d.sequences[0].weights = {0.25f, 0.251f, 0.2521f};
  ImportRun run(d);
  EXPECT_EQ(listed(convert(run), "WeightListList", {"name", "weights"}),
            (Names{"bonemask_default [{bone=root, weight=1}]",
                   "bonemask_idle [{bone=root, weight=0.25}, {bone=latch, weight=0.2521}]"}));
}

TEST(QmdlSequences, AStaticPropWritesNoSequencesWeightListsNorHitBoxes) {
  mdlforge::Description d = animatedCrate();
  d.bodyParts[0].models[0].name = "static_prop";
  d.sequences = {sequence("idle", {0})};
  d.hitboxSets = {{"default", {{0, 0, {}, {1, 1, 1}, "", {}, 0}}}};
  ImportRun run(d);
  Kv3Value root = convert(run);
  EXPECT_TRUE(run.converter.isStatic());
  for (const char* list : {"AnimationList", "WeightListList", "HitboxSetList", "Skeleton"})
    EXPECT_TRUE(childrenOf(root, list).empty()) << list;
}

TEST(SequenceKeys, KeyValuesThenTheFlagBlockThenTagsWhenThereAreAny) {
  SequenceRecord sequence;
  sequence.flags = 0x20000;
  sequence.keyValues = Kv3Value::makeObject({{"fx", "dust"}});
  EXPECT_EQ(testing::valueOf(Kv3Value::makeObject({{"k", sequenceKeys(sequence)}}), "k"),
            "{fx=dust, ExtraSeqFlags={worldrelative=1, layersaffectingmovementandduration=0, emptyanimwithnoeffect=0}}");
  sequence.animTags = {{"step", 0.25f}, {"land", 1}};
  const Kv3Value keys = sequenceKeys(sequence);
  EXPECT_EQ(testing::valueOf(keys, "AnimTags"), "{step=0.250000, land=1.000000}");
}

TEST(CycleToFrame, NearestFrameOfTheAnimation) {
  EXPECT_EQ(cycleToFrame(0.5f, 5), 2);
  EXPECT_EQ(cycleToFrame(0.49f, 11), 5);
  EXPECT_EQ(cycleToFrame(1.0f, 1), 0);
  EXPECT_EQ(cycleToFrame(0.5f, 0), 0);
  EXPECT_EQ(cycleToFrame(NAN, 10), 0);
}

}  // namespace
}  // namespace zv
