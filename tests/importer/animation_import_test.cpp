// Sequence import and animation files: records of the model and of the models it
// includes, their names, bone remapping, sequences, events and weight lists, and the
// files written for them.

#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "base/log.h"
#include "importer/mesh_extraction.h"
#include "importer_fixture.h"

namespace zv {
namespace {

using testing::bone;
using testing::ImportRun;
using Names = std::vector<std::string>;

mdlforge::Animation animation(std::string name, int32_t frames = 1, float fps = 30) {
  mdlforge::Animation a;
  a.name = std::move(name);
  a.frames = frames;
  a.fps = fps;
  return a;
}

mdlforge::Sequence sequence(std::string name, std::vector<int16_t> grid, int32_t width = 1) {
  mdlforge::Sequence s;
  s.name = std::move(name);
  s.animations = std::move(grid);
  s.width = width;
  s.height = s.animations.empty() ? 0 : int32_t(s.animations.size()) / width;
  if (s.animations.empty()) s.width = 0;
  return s;
}

// The crate with a skeleton of three bones and a few animations.
mdlforge::Description animatedCrate() {
  mdlforge::Description d = testing::crateModel();
  d.bones = {bone("root", -1), bone("lid", 0, {0, 0, 4}), bone("latch", 1, {2, 0, 0})};
  d.animations = {animation("@Idle"), animation("@idle", 3), animation("open@fast", 5, 0)};
  d.sequences = {sequence("idle", {0}), sequence("open", {2})};
  return d;
}

// A model of animations only, for including: its own bones (one the crate lacks), its own
// includes.
mdlforge::Description animationSet(std::string name, std::vector<std::string> includes) {
  mdlforge::Description d;
  d.name = std::move(name);
  d.bones = {bone("root", -1), bone("tail", 0), bone("lid", 0)};
  d.animations = {animation("walk", 2), animation("run", 2)};
  d.sequences = {sequence("walk", {0}), sequence("run", {1})};
  for (std::string& file : includes) d.includes.push_back({"", std::move(file)});
  d.strip.write = false;
  d.vertexFile.write = false;
  return d;
}

struct AnimationRun : ImportRun {
  explicit AnimationRun(const mdlforge::Description& d) : ImportRun(d) {}
  void include(const mdlforge::Description& d, const std::string& folder, const std::string& base) {
    testing::writeFamily(testing::buildFiles(d), dir.file(folder), base);
  }
  Names recordNames() const {
    Names names;
    for (const AnimExportRecord& r : tables().animations) names.push_back(r.name + " " + r.fileName);
    return names;
  }
};

TEST(AnimationRecords, UniqueLowerCaseNamesAndFileNames) {
  AnimationRun run(animatedCrate());
  ASSERT_TRUE(run.converter.LoadMDL());
  EXPECT_TRUE(run.converter.ExtractAnims());
  // Like names keep apart through their index; an at sign becomes "_" in the file name only.
  EXPECT_EQ(run.recordNames(), (Names{"@idle_0 _idle_0.dmx", "@idle_1 _idle_1.dmx", "open@fast_2 open_fast_2.dmx"}));
  const AnimExportRecord& open = run.tables().animations[2];
  EXPECT_EQ(std::tuple(open.frameCount, open.frameRate, open.sourceModel, open.sourceAnimation),
            std::tuple(5, 0.0f, size_t(0), size_t(2)));
  EXPECT_EQ(run.tables().ownAnimationCount, 3u);
}

TEST(AnimationRecords, IncludedModelsAreFollowedDepthFirstEachOnce) {
  mdlforge::Description main = animatedCrate();
  main.includes = {{"", "models/anims/shared.mdl"}, {"", "models\\anims\\extra.mdl"}, {"", "models/props/crate.mdl"}};
  AnimationRun run(main);
  // shared includes base and itself; base includes the crate and shared (a cycle).
  run.include(animationSet("models/anims/shared.mdl", {"models/anims/base.mdl", "models/anims/shared.mdl"}),
              "models/anims", "shared");
  run.include(animationSet("models/anims/base.mdl", {"models/props/crate.mdl", "models/anims/shared.mdl"}),
              "models/anims", "base");
  run.include(animationSet("models/anims/Extra.mdl", {}), "models/anims", "extra");
  LogCapture log;
  ASSERT_TRUE(run.converter.LoadMDL());
  EXPECT_TRUE(run.converter.ExtractAnims());
  EXPECT_EQ(run.recordNames(),
            (Names{"@idle_0 _idle_0.dmx", "@idle_1 _idle_1.dmx", "open@fast_2 open_fast_2.dmx",
                   "shared_walk_0 shared_walk_0.dmx", "shared_run_1 shared_run_1.dmx", "base_walk_0 base_walk_0.dmx",
                   "base_run_1 base_run_1.dmx", "extra_walk_0 extra_walk_0.dmx", "extra_run_1 extra_run_1.dmx"}));
  EXPECT_EQ(log.count("Converting anims in included mdl "), 3u) << log.text();
  EXPECT_EQ(log.count("models/anims/extra.mdl\n"), 1u) << log.text();
  // The bone the crate lacks is said once for each animation of each model that has it.
  EXPECT_EQ(log.count("Unable to remap bone tail in anim "), 6u);
  EXPECT_EQ(log.count("Unable to remap bone tail in anim shared_walk_0\n"), 1u);
  EXPECT_EQ(run.tables().ownAnimationCount, 3u);
  EXPECT_EQ(run.tables().sequences.size(), 8u);
}

TEST(AnimationRecords, ABrokenIncludeIsReportedAndTheRestConverts) {
  mdlforge::Description main = animatedCrate();
  main.includes = {{"", "models/anims/missing.mdl"}, {"", "models/anims/broken.mdl"}, {"", "models/anims/shared.mdl"}};
  AnimationRun run(main);
  testing::writeText(run.dir.path() / "models/anims/broken.mdl", "not a model");
  run.include(animationSet("models/anims/shared.mdl", {}), "models/anims", "shared");
  LogCapture log;
  ASSERT_TRUE(run.converter.LoadMDL());
  EXPECT_FALSE(run.converter.ExtractAnims());
  // The message names the converted model, not the include.
  EXPECT_EQ(log.count("C_ZV_MDL_Import::ExtractAnims(1761): Load of MDL \"" + run.options.inputFiles[0] +
                      "\" failed\n"),
            2u)
      << log.text();
  EXPECT_EQ(log.count("broken.mdl: model header (408 bytes) at offset 0 leaves the file (11 bytes)\n"), 1u)
      << log.text();
  EXPECT_EQ(run.tables().animations.size(), 5u);
  // A whole conversion still succeeds: only the model's own files decide that.
  EXPECT_TRUE(run.converter.Convert());
}

TEST(AnimationRecords, NamesThatWouldMeetGetASuffixAlsoWhenOnlyTheirFileNamesWould) {
  mdlforge::Description main = animatedCrate();
  // "shared:run" is a name of its own, but its file name is the included "shared_run"'s.
  main.animations = {animation("shared_walk"), animation("shared:run")};
  main.includes = {{"", "models/anims/shared.mdl"}};
  AnimationRun run(main);
  run.include(animationSet("models/anims/shared.mdl", {}), "models/anims", "shared");
  ASSERT_TRUE(run.converter.LoadMDL());
  run.converter.ExtractAnims();
  EXPECT_EQ(run.recordNames(), (Names{"shared_walk_0 shared_walk_0.dmx", "shared:run_1 shared:run_1.dmx",
                                      "shared_walk_0_2 shared_walk_0_2.dmx", "shared_run_1_2 shared_run_1_2.dmx"}));
  // Both are written, each to a file of its own.
  LogCapture log;
  ASSERT_TRUE(run.converter.Convert());
  EXPECT_EQ(log.count("already written"), 0u) << log.text();
  EXPECT_TRUE(std::filesystem::exists(run.out("crate_refs/anim/shared_run_1.dmx")));
  EXPECT_TRUE(std::filesystem::exists(run.out("crate_refs/anim/shared_run_1_2.dmx")));
}

TEST(Sequences, GridsEventsLayersKeyValuesAndWeightLists) {
  mdlforge::Description d = animatedCrate();
  d.poseParameters = {{"move_x", 0, -1, 1, 0}, {"move_y", 0, -1, 1, 0}};
  mdlforge::Sequence walk = sequence("walk", {0, 1, 2, 1}, 2);
  walk.paramIndex = {1, 0};
  walk.activity = "ACT_WALK";
  walk.events = {{0.25f, 0, std::nullopt, "step", "AE_CUSTOM"},
                 {0.5f, 4001, std::nullopt, "left", ""},
                 {0.5f, 9012, std::nullopt, "", ""},
                 {0.75f, 42, std::nullopt, "", ""}};
  walk.autoLayers = {{1, 0, 0, 0, 0.5f, 0.5f, 1}, {7, 1, 0x4000, -1, 0, 0, 1}};
  walk.keyValues = "fx { name \"dust\" }";
  walk.weights = {1, 0.5f, 0};
  d.sequences = {sequence("idle", {0}), walk, sequence("pose", {})};
  AnimationRun run(d);
  LogCapture log;
  ASSERT_TRUE(run.converter.LoadMDL());
  run.converter.ExtractAnims();
  const std::vector<SequenceRecord>& seqs = run.tables().sequences;
  ASSERT_EQ(seqs.size(), 3u);
  const SequenceRecord& w = seqs[1];
  EXPECT_EQ(w.gridSize, (std::array<int32_t, 2>{2, 2}));
  EXPECT_EQ(w.animations, (std::vector<int32_t>{0, 1, 2, 1}));
  EXPECT_EQ(w.blendParams, (std::array<std::string, 2>{"move_y", "move_x"}));
  EXPECT_EQ(w.activity, "ACT_WALK");
  // Named events keep their names, numeric ones are looked up; the others are dropped.
  Names events;
  for (const SequenceEvent& e : w.events) events.push_back(e.name + " " + e.options);
  EXPECT_EQ(events, (Names{"AE_CUSTOM step", "AE_SV_FOOTSTEP_LEFT left"}));
  EXPECT_EQ(log.count("models/props/crate.mdl: sequence \"walk\" ignoring obsolete old-style event: 9012\n"), 1u)
      << log.text();
  EXPECT_EQ(log.count("models/props/crate.mdl: sequence \"walk\" imported with unknown old-style event: 42\n"), 1u);
  // Layers name sequence records; one naming a sequence that does not exist names none.
  ASSERT_EQ(w.layers.size(), 2u);
  EXPECT_EQ(std::tuple(w.layers[0].sequence, w.layers[0].poseParam, w.layers[0].peak), std::tuple(1, std::string(), 0.5f));
  EXPECT_EQ(std::tuple(w.layers[1].sequence, w.layers[1].poseParam), std::tuple(-1, std::string("move_y")));
  EXPECT_EQ(testing::valueOf(w.keyValues, "fx"), "{name=dust}");
  // A sequence without animation is said once and has no grid.
  EXPECT_EQ(log.count("Empty sequence pose : missing animation references\n"), 1u);
  EXPECT_TRUE(seqs[2].animations.empty());
  // A default list for the skeleton, then one per sequence.
  Names lists;
  for (const WeightList& list : run.tables().weightLists) lists.push_back(list.name);
  EXPECT_EQ(lists, (Names{"bonemask_default", "bonemask_idle", "bonemask_walk", "bonemask_pose"}));
  EXPECT_EQ(run.tables().weightLists[2].weights, (std::vector<float>{1, 0.5f, 0}));
  EXPECT_EQ(run.tables().weightLists[0].weights, (std::vector<float>{1, 1, 1}));
  EXPECT_EQ(w.weightList, "bonemask_walk");
}

// An included model's weights follow the skeleton by bone name; bones it lacks weigh 1.
TEST(Sequences, IncludedWeightsFollowTheSkeletonByName) {
  mdlforge::Description main = animatedCrate();
  main.includes = {{"", "models/anims/shared.mdl"}};
  AnimationRun run(main);
  mdlforge::Description set = animationSet("models/anims/shared.mdl", {});
  set.sequences[0].weights = {0.25f, 0.5f, 0.75f};  // root, tail, lid
  run.include(set, "models/anims", "shared");
  ASSERT_TRUE(run.converter.LoadMDL());
  run.converter.ExtractAnims();
  const WeightList& walk = run.tables().weightLists.at(3);
  EXPECT_EQ(walk.name, "bonemask_walk");
  EXPECT_EQ(walk.weights, (std::vector<float>{0.25f, 0.75f, 1}));  // root, lid, latch
}

TEST(AnimationFiles, OneFilePerRecordInsideTheAnimationFolder) {
  mdlforge::Description main = animatedCrate();
  main.animations.push_back(animation("../../escape"));
  main.includes = {{"", "models/anims/shared.mdl"}};
  for (bool skipIncluded : {false, true}) {
    AnimationRun run(main);
    run.include(animationSet("models/anims/shared.mdl", {}), "models/anims", "shared");
    run.options.skipCommonDmxWrite = skipIncluded;
    run.setup();
    LogCapture log;
    ASSERT_TRUE(run.converter.Convert());
    Names files;
    for (const auto& entry : std::filesystem::directory_iterator(run.out("crate_refs/anim")))
      files.push_back(entry.path().filename().string());
    std::sort(files.begin(), files.end());
    Names expected{".._.._escape_3.dmx", "_idle_0.dmx", "_idle_1.dmx", "open_fast_2.dmx"};
    if (!skipIncluded) expected.insert(expected.begin() + 1, {"shared_run_1.dmx", "shared_walk_0.dmx"});
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(files, expected) << skipIncluded;
    // The name from the file is made safe, and says so, inside the progress line.
    EXPECT_NE(log.text().find("Writing 6 Animations:0..1..2..3..Name \"../../escape_3.dmx\" from the model cannot be "
                              "used as a file name; using \".._.._escape_3.dmx\"\n4..5..Done\n"),
              std::string::npos)
        << log.text();
    for (const std::string& file : files) run.readDmx(run.out("crate_refs/anim/" + file));
  }
}

}  // namespace
}  // namespace zv

namespace zv {
namespace {

// The crate whose root walks 2 units along x a frame and whose lid turns, over 3 frames at
// 10 frames a second, with a movement piece that carries the root 8 units along y and a
// quarter turn of yaw.
mdlforge::Description walkingCrate(float fps = 10) {
  mdlforge::Description d = testing::crateModel();
  d.bones = {testing::bone("root", -1, {1, 0, 0}), testing::bone("lid", 0, {0, 0, 4})};
  d.bones[0].positionScale = {0.5f, 0.5f, 0.5f};
  mdlforge::RleTrack root;
  root.position = std::array<mdlforge::ValueChannel, 3>{mdlforge::ValueChannel{{0, 4, 8}, {}}, {}, {}};
  mdlforge::RleTrack lid;
  lid.bone = 1;
  lid.rawRotation = angleQuaternion({0, 90, 0});
  mdlforge::Animation walk = animation("walk", 3, fps);
  walk.tracks = mdlforge::AnimationTracks{{root, lid}, std::nullopt};
  walk.movements = {{2, 0, 4, 4, 90, {0, 1, 0}, {0, 8, 0}}};
  d.animations = {walk};
  d.sequences = {sequence("walk", {0})};
  return d;
}

struct Channel {
  std::vector<dmx::DmTime> times;
  std::vector<Vector3> positions;
  std::vector<Quaternion> orientations;
  const dmx::CDmElement* target = nullptr;
};

std::map<std::string, Channel> channelsOf(const dmx::DmDocument& doc) {
  std::map<std::string, Channel> channels;
  for (const dmx::CDmElement* e : doc.elements) {
    if (e->type() != "DmeChannel") continue;
    const dmx::CDmElement* layer = e->getElement("log")->getElementArray("layers").at(0);
    Channel& c = channels[e->name()];
    c.times = layer->getTimeArray("times");
    c.target = e->getElement("toElement");
    if (layer->has("values") && layer->find("values")->type() == dmx::DmType::Vector3Array)
      c.positions = layer->getVector3Array("values");
    else
      c.orientations = layer->getQuaternionArray("values");
  }
  return channels;
}

void expectSameRotation(const Quaternion& a, const Quaternion& b, const std::string& where) {
  float dot = a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
  EXPECT_GT(std::fabs(dot), 0.99999f) << where;
}

TEST(AnimationFiles, HoldTheDecodedPosesWithRootMotionOnTheRoot) {
  AnimationRun run(walkingCrate());
  ASSERT_TRUE(run.converter.Convert());
  dmx::DmDocument doc = run.readDmx(run.out("crate_refs/anim/walk_0.dmx"));
  // The prefix block: frames over rate; the clip: first key to last.
  EXPECT_EQ(doc.prefix->getFloat("anim_frameRate"), 10.0f);
  EXPECT_EQ(doc.prefix->getFloat("anim_duration"), 0.3f);
  const dmx::CDmElement* clip = doc.root->getElement("animationList")->getElementArray("animations").at(0);
  EXPECT_EQ(clip->name(), "walk_0");
  EXPECT_EQ(clip->getElement("timeFrame")->getTime("duration"), dmx::DmTime{2000});
  EXPECT_EQ(std::tuple(clip->getFloat("frameRate"), clip->getBool("vbDelta"), clip->getBool("vbLooping")),
            std::tuple(10.0f, false, false));
  EXPECT_EQ(doc.root->getElement("exportTags")->getString("qmdl"), "props/crate.qmdl");
  EXPECT_EQ(doc.root->getElement("skeleton")->name(), "crate");

  std::map<std::string, Channel> channels = channelsOf(doc);
  ASSERT_EQ(channels.size(), 4u);
  const std::vector<dmx::DmTime> times{{0}, {1000}, {2000}};
  for (const auto& [name, channel] : channels) {
    EXPECT_EQ(channel.times, times) << name;
    EXPECT_EQ(channel.target->type(), "DmeTransform") << name;
  }
  // The channels drive the joints' own transforms.
  const std::vector<dmx::CDmElement*>& joints = doc.root->getElement("skeleton")->getElementArray("jointList");
  EXPECT_EQ(channels["root_p"].target, joints[0]->getElement("transform"));
  EXPECT_EQ(channels["lid_o"].target, joints[1]->getElement("transform"));

  // Frame f: x = 1 + 2f, then the movement moves it 4t along y and turns it by 90t.
  for (size_t f = 0; f < 3; ++f) {
    float t = float(f) / 2;
    Matrix3x4 motion = angleMatrix(QAngle{0, 90 * t, 0}, {0, 4 * t, 0});
    Vector3 expected = transformPoint(motion, {1 + 2.0f * float(f), 0, 0});
    testing::expectNear(channels["root_p"].positions.at(f), expected, 1e-4f);
    expectSameRotation(channels["root_o"].orientations.at(f), angleQuaternion({0, 90 * t, 0}), "root " + std::to_string(f));
    testing::expectNear(channels["lid_p"].positions.at(f), {0, 0, 4});
    expectSameRotation(channels["lid_o"].orientations.at(f), angleQuaternion({0, 90, 0}), "lid " + std::to_string(f));
  }
}

TEST(AnimationFiles, UpAxisTurnsTheRootsAndZeroRatesTakeNoTime) {
  AnimationRun run(walkingCrate(0));
  run.options.yUpToZUp = true;
  run.setup();
  ASSERT_TRUE(run.converter.Convert());
  dmx::DmDocument doc = run.readDmx(run.out("crate_refs/anim/walk_0.dmx"));
  EXPECT_EQ(doc.prefix->getFloat("anim_duration"), 0.0f);
  const dmx::CDmElement* clip = doc.root->getElement("animationList")->getElementArray("animations").at(0);
  EXPECT_EQ(clip->getElement("timeFrame")->getTime("duration"), dmx::DmTime{0});
  std::map<std::string, Channel> channels = channelsOf(doc);
  EXPECT_EQ(channels["root_p"].times, (std::vector<dmx::DmTime>{{0}, {0}, {0}}));
  // Frame 0 of the root, turned like the bind pose; the lid is a child and keeps its key.
  testing::expectNear(channels["root_p"].positions.at(0), transformPoint(yUpToZUpMatrix(), {1, 0, 0}), 1e-5f);
  testing::expectNear(channels["lid_p"].positions.at(0), {0, 0, 4});
  // The file's skeleton is the turned bind pose too, as in the mesh files.
  const dmx::CDmElement* rootJoint = doc.root->getElement("skeleton")->getElementArray("jointList").at(0);
  testing::expectNear(rootJoint->getElement("transform")->getVector3("position"), run.tables().skeleton[0].position);
}

}  // namespace
}  // namespace zv
