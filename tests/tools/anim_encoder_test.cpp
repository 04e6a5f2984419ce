// The animation encoders of the builder against bytes worked out by hand, the sections an
// animation is split into, and where tracks go: the model or a block of the .ani file.

#include "mdlforge/anim_encoder.h"

#include <gtest/gtest.h>

#include "forge_check.h"
#include "mdlforge/text_description.h"

namespace zv::mdlforge {
namespace {

using check::Bytes;
using check::forge;
using Words = std::array<uint16_t, 3>;

TEST(Packings, HalfFloatsRoundToTheNearestAndOverflowToInfinity) {
  const std::pair<float, uint16_t> cases[] = {{1.0f, 0x3C00}, {1.5f, 0x3E00},   {-2.0f, 0xC000}, {65504.0f, 0x7BFF},
                                              {0.0f, 0x0000}, {70000.0f, 0x7C00}, {1.00049f, 0x3C01}, {-0.0f, 0x8000}};
  for (auto [value, bits] : cases) EXPECT_EQ(packHalf(value), bits) << value;
}

TEST(Packings, QuaternionsInTheirThreeForms) {
  EXPECT_EQ(packQuaternion48({0, 0, 0, 1}), (Words{32768, 32768, 16384}));
  EXPECT_EQ(packQuaternion48({0, 0, 0, -1}), (Words{32768, 32768, 16384 | 0x8000}));
  EXPECT_EQ(packQuaternion48({-0.5f, 0.5f, 0.7071f, 0}), (Words{16384, 49152, 27969}));
  // The largest component is left out; the top bits of the first two words name the first
  // stored one, the top bit of the third the sign of the one left out.
  EXPECT_EQ(packQuaternion48Omitted({0, 0, 0.6f, 0.8f}), (Words{16384, 16384, 16384 + 13901}));
  EXPECT_EQ(packQuaternion48Omitted({-0.8f, 0, 0, 0.6f}), (Words{16384, 0x8000 | 16384, 0x8000 | (16384 + 13901)}));
  EXPECT_EQ(packQuaternion48Omitted({0, 0.8f, 0.6f, 0}), (Words{0x8000 | (16384 + 13901), 16384, 16384}));
  constexpr uint64_t kMiddle = 1048576;
  EXPECT_EQ(packQuaternion64({0, 0, 0, 1}), kMiddle | kMiddle << 21 | kMiddle << 42);
  EXPECT_EQ(packQuaternion64({0, 0.6f, 0, -0.8f}), kMiddle | (kMiddle + 629146) << 21 | kMiddle << 42 | 1ull << 63);
}

TEST(Packings, RunsHoldTheirValuesThenRepeatTheLast) {
  auto shown = [](const std::vector<ValueRun>& runs) {
    std::string text;
    for (const ValueRun& run : runs) {
      text += std::to_string(run.total) + ":";
      for (int16_t v : run.values) text += " " + std::to_string(v);
      text += ",";
    }
    return text;
  };
  EXPECT_EQ(shown(packRuns({1, 2, 2, 2, 3})), "4: 1 2,1: 3,");
  EXPECT_EQ(shown(packRuns({7})), "1: 7,");
  EXPECT_EQ(shown(packRuns({})), "");
  std::vector<int16_t> distinct(300), equal(300, 9);
  for (size_t i = 0; i < distinct.size(); ++i) distinct[i] = int16_t(i);
  std::vector<ValueRun> runs = packRuns(distinct);
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(std::pair(runs[0].values.size(), runs[1].values.size()), std::pair(size_t(255), size_t(45)));
  EXPECT_EQ(shown(packRuns(equal)), "255: 9,45: 9,");
}

std::vector<uint8_t> bytesOf(std::initializer_list<int> values) { return {values.begin(), values.end()}; }

TEST(RunLengthForm, RecordsRawValuesAndChannelGroups) {
  RleTrack raw;
  raw.bone = 2;
  raw.rawPosition = Vector3{1, 2, -1};
  RleTrack animated;
  animated.bone = 0;
  animated.rotation = std::array<ValueChannel, 3>{ValueChannel{{10, 20}, {}}, {}, {}};
  animated.position = std::array<ValueChannel, 3>{ValueChannel{}, ValueChannel{}, ValueChannel{{5, 5}, {}}};
  AnimationTracks tracks{{raw, animated}, std::nullopt};
  auto encoded = encodeTracks(tracks, 0, 1);
  ASSERT_TRUE(encoded) << encoded.message();
  EXPECT_EQ(*encoded, bytesOf({2, 0x01, 10, 0, 0x00, 0x3C, 0x00, 0x40, 0x00, 0xBC,  // raw position, next 10
                               0, 0x0C, 0, 0,                                       // both groups, the last record
                               12, 0, 0, 0, 0, 0,                                   // rotation x at +12
                               0, 0, 0, 0, 12, 0,                                   // position z at +12
                               2, 2, 10, 0, 20, 0,                                  // 10, 20
                               1, 2, 5, 0}));                                       // 5 twice
  // A section's frames only; explicit runs as given; flags as given.
  animated.rotation->at(0) = ValueChannel{{}, std::vector<ValueRun>{{3, {7}}, {0, {}}}};
  animated.flags = 0x18;
  auto second = encodeTracks({{animated}, std::nullopt}, 1, 1);
  ASSERT_TRUE(second);
  EXPECT_EQ(std::vector<uint8_t>(second->begin() + 16, second->end()), bytesOf({1, 3, 7, 0, 0, 0, 1, 1, 5, 0}));
  EXPECT_EQ((*second)[1], 0x18);
}

TEST(RunLengthForm, ARecordBeyondItsOffsetsIsRefused) {
  RleTrack t;
  std::vector<int16_t> frames(20000);
  for (size_t i = 0; i < frames.size(); ++i) frames[i] = int16_t(i);
  t.rotation = std::array<ValueChannel, 3>{ValueChannel{frames, {}}, ValueChannel{frames, {}}, ValueChannel{}};
  EXPECT_FALSE(encodeTracks({{t, t}, std::nullopt}, 0, 19999));
}

TEST(FramePackedForm, HeaderFlagsConstantsThenFrames) {
  FramePackedBone moving{PackedRotation::Frame48, PackedPosition::FrameHalf, {{0, 0, 0, 1}, {0, 0, 0, -1}},
                         {{1, 2, 3}, {-1, -2, -3}}, std::nullopt};
  FramePackedBone still{PackedRotation::ConstantOmitted, PackedPosition::ConstantFloat, {{0, 0, 0.6f, 0.8f}},
                        {{1.5f, 0, 0}}, std::nullopt};
  auto encoded = encodeTracks({{}, std::vector<FramePackedBone>{moving, still}}, 0, 1);
  ASSERT_TRUE(encoded);
  Bytes b(*encoded);
  EXPECT_EQ(std::tuple(b.i32(0), b.i32(4), b.i32(8)), std::tuple(28, 48, 12));
  EXPECT_EQ(std::pair(b.at<uint8_t>(24), b.at<uint8_t>(25)), std::pair(uint8_t(0x08 | 0x04), uint8_t(0x40 | 0x20)));
  EXPECT_EQ(b.at<uint16_t>(32), 16384 + 13901);
  EXPECT_EQ(b.f32(34), 1.5f);
  EXPECT_EQ(b.at<uint16_t>(48 + 12 + 4), 0x8000 | 16384);  // frame 1's w is negative
  EXPECT_EQ(b.at<uint16_t>(48 + 12 + 6), 0xBC00);           // and its x is -1
  EXPECT_EQ(encoded->size(), 72u);
}

TEST(Sections, FramesPerSectionPlusTheLastFrameAlone) {
  using Ranges = std::vector<std::pair<int32_t, int32_t>>;
  EXPECT_EQ(sectionFrames(31, 10), (Ranges{{0, 10}, {10, 20}, {20, 30}, {30, 30}, {30, 30}}));
  EXPECT_EQ(sectionFrames(10, 10), (Ranges{{0, 9}, {9, 9}, {9, 9}}));
  EXPECT_EQ(sectionFrames(1, 4), (Ranges{{0, 0}, {0, 0}}));
}

// Tracks in the model and in blocks of the .ani file, whole and in sections.
TEST(AnimationBlocks, TheFileItsTableAndItsName) {
  Description d;
  RleTrack t;
  t.rawPosition = Vector3{1, 1, 1};
  Animation inModel, inBlock, sectioned;
  inModel.tracks = inBlock.tracks = sectioned.tracks = AnimationTracks{{t}, std::nullopt};
  inBlock.block = 2;
  sectioned.frames = 12;
  sectioned.framesPerSection = 10;
  sectioned.block = 2;
  sectioned.sectionBlocks = {0, 3};
  d.animations = {inModel, inBlock, sectioned};
  ModelFiles files = forge(d);
  ASSERT_TRUE(files.ani);
  Bytes mdl(files.mdl), ani(*files.ani);
  EXPECT_EQ(std::string(files.ani->begin(), files.ani->begin() + 4), "IDAG");
  EXPECT_EQ(ani.i32(76), int32_t(files.ani->size()));
  EXPECT_EQ(mdl.str(size_t(mdl.i32(348))), "models/forge/model.ani");
  EXPECT_EQ(mdl.i32(352), 4);
  size_t table = size_t(mdl.i32(356));
  EXPECT_EQ(table, files.where.mdl.at("animblocks"));
  // Block 2 holds the whole animation and the sectioned one's last section; block 3 its second.
  EXPECT_EQ(std::tuple(mdl.i32(table + 16), mdl.i32(table + 20)), std::tuple(408, 408 + 20));
  EXPECT_EQ(std::tuple(mdl.i32(table + 24), mdl.i32(table + 28)), std::tuple(428, 438));
  EXPECT_EQ(mdl.i32(table + 8), 0);  // block 1 is empty
  EXPECT_EQ(files.where.ani.at("block[2]"), 408u);
  EXPECT_EQ(files.where.ani.at("anisection[2][2]"), 418u);
  size_t desc = files.where.mdl.at("animdesc[1]");
  EXPECT_EQ(std::tuple(mdl.i32(desc + 52), mdl.i32(desc + 56)), std::tuple(2, 0));
  size_t sections = files.where.mdl.at("sections[2]");
  size_t sectionDesc = files.where.mdl.at("animdesc[2]");
  EXPECT_EQ(std::tuple(mdl.i32(sections), mdl.i32(sections + 8), mdl.i32(sections + 12), mdl.i32(sections + 16)),
            std::tuple(0, 3, 0, 2));
  EXPECT_EQ(sectionDesc + size_t(mdl.i32(sections + 4)), files.where.mdl.at("section[2][0]"));
  // Without blocks there is no file.
  d.animations = {inModel};
  EXPECT_FALSE(forge(d).ani);
}

TEST(TextForm, TracksFramePackedBonesAndBlocks) {
  auto d = parseDescription(R"(
"model"
{
	"ani_name"	"anims/walk.ani"
	"ani_id"	"IDXX"
	"bone"	{ "name" "root" }
	"bone"	{ "name" "lid" "parent" "root" }
	"animation"
	{
		"name"	"walk"
		"frames"	"3"
		"block"	"1"
		"section_blocks"	"0 1"
		"track"	{ "bone" "lid" "raw_rotation" "0 0 0 1" "raw_rotation_64" "1" "raw_position" "1 2 3" "delta" "1" }
		"track"	{ "bone" "root" "rotation_x" "1 2 3" "position_z_runs" "2: 5 6, 0:" "flags" "0x0c" }
	}
	"animation"
	{
		"name"	"packed"
		"framepacked"
		{
			"bone"	{ "rotation" "frame_omitted" "rotations" "0 0 0 1; 0 0 1 0" "position" "const_half" "positions" "1 2 3" }
			"bone"	{ }
		}
	}
}
)");
  ASSERT_TRUE(d) << d.message();
  EXPECT_EQ(d->animBlockFile.name.value_or(""), "anims/walk.ani");
  EXPECT_EQ(d->animBlockFile.id, 0x58584449);
  const Animation& walk = d->animations[0];
  EXPECT_EQ(std::tuple(walk.block, walk.sectionBlocks), std::tuple(1, std::vector<int32_t>{0, 1}));
  const std::vector<RleTrack>& rle = walk.tracks->rle;
  ASSERT_EQ(rle.size(), 2u);
  EXPECT_EQ(std::tuple(int(rle[0].bone), rle[0].rawRotation64, rle[0].delta, rle[0].rawPosition->y), std::tuple(1, true, true, 2.0f));
  EXPECT_EQ(rle[1].rotation->at(0).frames, (std::vector<int16_t>{1, 2, 3}));
  EXPECT_FALSE(rle[1].position->at(0).runs.has_value());
  ASSERT_EQ(rle[1].position->at(2).runs->size(), 2u);
  EXPECT_EQ(rle[1].position->at(2).runs->at(0).values, (std::vector<int16_t>{5, 6}));
  EXPECT_EQ(rle[1].flags, uint8_t(0x0c));
  const std::vector<FramePackedBone>& packed = *d->animations[1].tracks->framePacked;
  ASSERT_EQ(packed.size(), 2u);
  EXPECT_EQ(packed[0].rotationForm, PackedRotation::FrameOmitted);
  EXPECT_EQ(packed[0].rotations.size(), 2u);
  EXPECT_EQ(packed[0].positionForm, PackedPosition::ConstantHalf);
  EXPECT_EQ(packed[1].rotationForm, PackedRotation::None);

  for (const char* bad : {R"("model" { "animation" { "track" { "rotation_x_runs" "3 4" } } })",
                          R"("model" { "animation" { "track" { "rotation_x_runs" "300: 1" } } })",
                          R"("model" { "animation" { "framepacked" { "bone" { "rotation" "sideways" } } } })",
                          R"("model" { "animation" { "track" { "bone" "nobody" } } })"}) {
    EXPECT_FALSE(parseDescription(bad)) << bad;
  }
}

}  // namespace
}  // namespace zv::mdlforge
