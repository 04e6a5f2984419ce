// The model header file's records that no reader test reads back, one check per kind at
// the record layouts' own offsets; and what the builder refuses.

#include <gtest/gtest.h>

#include "forge_check.h"

namespace zv::mdlforge {
namespace {

using check::Bytes;
using check::forge;

TEST(ModelHeader, CarriesIdentityTheFileLengthAndTheSecondaryHeaderWhenNeeded) {
  Description d;
  d.version = 46;
  d.checksum = -123456;
  d.mass = 12.5f;
  d.surfaceProp = "wood";
  d.rootLod = 2;
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);
  EXPECT_EQ(std::string(files.mdl.begin(), files.mdl.begin() + 4), "IDST");
  EXPECT_EQ(mdl.i32(4), 46);
  EXPECT_EQ(mdl.i32(8), -123456);
  EXPECT_EQ(mdl.i32(76), static_cast<int32_t>(files.mdl.size()));
  EXPECT_EQ(mdl.str(static_cast<size_t>(mdl.i32(308))), "wood");  // from the file start
  EXPECT_EQ(mdl.f32(328), 12.5f);
  EXPECT_EQ(mdl.at<uint8_t>(377), 2);
  EXPECT_EQ(mdl.i32(400), 0) << "no secondary header before version 48 unless something needs it";
  d.version = 48;
  EXPECT_EQ(Bytes(forge(d).mdl).i32(400), 408);
}

TEST(Bones, ProceduralRecordsAndTheLinearTable) {
  Description d;
  d.version = 44;
  d.linearBoneTable = true;  // asks for the secondary header
  d.bones.resize(2);
  Jiggle jiggle;
  for (size_t i = 0; i < jiggle.values.size(); ++i) jiggle.values[i] = float(i + 1);
  jiggle.boing = std::array<float, 5>{100, 101, 102, 103, 104};
  d.bones[0].jiggle = jiggle;
  d.bones[1].parent = 0;
  d.bones[1].position = {4, 5, 6};
  d.bones[1].procedural = Procedural{3, std::vector<uint8_t>(44, 0x5A)};
  Bytes mdl(forge(d).mdl);
  size_t b0 = static_cast<size_t>(mdl.i32(160)), b1 = b0 + 216;
  ASSERT_EQ(mdl.i32(b0 + 164), 5);
  size_t spring = mdl.follow(b0, 168);
  EXPECT_EQ(mdl.f32(spring + 116), 29.0f) << "the last of the 29 floats";
  EXPECT_EQ(mdl.f32(spring + 136), 104.0f) << "the last float of the longer record";
  ASSERT_EQ(mdl.i32(b1 + 164), 3);
  EXPECT_EQ(mdl.at<uint8_t>(mdl.follow(b1, 168) + 43), 0x5A);

  size_t table = mdl.follow(static_cast<size_t>(mdl.i32(400)), 16);
  EXPECT_EQ(mdl.i32(table), 2);
  EXPECT_EQ(mdl.i32(mdl.follow(table, 8) + 4), 0) << "parent of bone 1";
  EXPECT_EQ(mdl.f32(mdl.follow(table, 12) + 12 + 8), 6.0f) << "position z of bone 1";
}

TEST(ModelData, HitBoxesIkChainsAndIncludes) {
  Description d;
  d.bones.resize(2);
  d.hitboxSets = {
      {"default", {{1, 3, {-1, -1, -1}, {1, 1, 1}, "", {}, 0}, {0, 2, {}, {}, "spine", {}, 2.5f}}}};
  d.ikChains = {{"lfoot", 0, {{0, {}}, {1, {0, 0, 1}}}}};
  d.includes = {{"anims", "models/shared/anims.mdl"}};
  Bytes mdl(forge(d).mdl);
  size_t set = static_cast<size_t>(mdl.i32(176));
  EXPECT_EQ(mdl.name(set, 0), "default");
  ASSERT_EQ(mdl.i32(set + 4), 2);
  size_t box = mdl.follow(set, 8);
  EXPECT_EQ(mdl.i32(box + 4), 3) << "group";
  EXPECT_EQ(mdl.f32(box + 28), 1.0f) << "max z";
  EXPECT_EQ(mdl.i32(box + 32), 0) << "an unnamed hit box has no name offset";
  EXPECT_EQ(mdl.name(box + 68, 32), "spine");
  EXPECT_EQ(mdl.f32(box + 68 + 48), 2.5f) << "radius";
  size_t chain = static_cast<size_t>(mdl.i32(288));
  EXPECT_EQ(mdl.name(chain, 0), "lfoot");
  EXPECT_EQ(mdl.f32(mdl.follow(chain, 12) + 28 + 12), 1.0f) << "knee direction z of link 1";
  EXPECT_EQ(mdl.name(static_cast<size_t>(mdl.i32(340)), 4), "models/shared/anims.mdl");
}

TEST(Animations, DescriptionsPointAtTheirMovementsAndSections) {
  Description d;
  d.animations = {Animation{"walk", 30, 0, 31, {}, 10, {}, {Movement{2, 0, 1, 3, 90, {1, 0, 0}, {4, 0, 0}}}, {}, 0, {}}};
  for (uint8_t s = 0; s < 5; ++s) d.animations[0].sections.push_back({s, s, s});
  Bytes mdl(forge(d).mdl);
  size_t a = static_cast<size_t>(mdl.i32(184));
  EXPECT_EQ(mdl.i32(a), -static_cast<int32_t>(a)) << "base leads back to the header";
  EXPECT_EQ(mdl.f32(mdl.follow(a, 24) + 32), 4.0f) << "end position x of the movement";
  size_t table = mdl.follow(a, 80);
  for (size_t s = 0; s < 5; ++s) EXPECT_EQ(mdl.at<uint8_t>(a + size_t(mdl.i32(table + 8 * s + 4))), s);
  EXPECT_EQ(mdl.i32(a + 56), mdl.i32(table + 4)) << "the description points at section 0";
}

TEST(Sequences, EventsTheAnimationGridWeightsAndText) {
  Description d;
  d.bones.resize(3);
  d.sequences.resize(1);
  Sequence& aim = d.sequences[0];
  aim.events = {Event{0.5f, 1004, {}, "Crate.Open", ""}, Event{0.25f, 0, {}, "", "AE_CUSTOM"}};
  aim.keyValues = "{ x 1 }";
  aim.width = 3;
  aim.height = 2;
  aim.animations = {0, 1, 2, 3, 4, 5};
  aim.weights = {0, 0.5f, 1};
  Bytes mdl(forge(d).mdl);
  size_t s = static_cast<size_t>(mdl.i32(192));
  size_t event = mdl.follow(s, 28);
  EXPECT_EQ(mdl.i32(event + 8), 0) << "numeric event";
  EXPECT_EQ(mdl.str(event + 12), "Crate.Open");
  EXPECT_EQ(mdl.i32(event + 80 + 8), 1024) << "named event";
  EXPECT_EQ(mdl.name(event + 80, 76), "AE_CUSTOM");
  EXPECT_EQ(mdl.i32(s + 176), 8) << "key-value text size with its terminator";
  EXPECT_EQ(mdl.at<int16_t>(mdl.follow(s, 60) + 2 * 4), 4) << "cell (1, 1) of a 3-wide grid";
  EXPECT_EQ(mdl.f32(mdl.follow(s, 160) + 4), 0.5f) << "pose key of the middle of three columns";
  EXPECT_EQ(mdl.f32(mdl.follow(s, 156) + 4), 0.5f) << "weight of bone 1";
}

TEST(ModelFile, RefusesOnlyWhatItsFieldsCannotHold) {
  Description fits;
  fits.name = std::string(63, 'a');  // with its NUL, the whole fixed field
  EXPECT_TRUE(build(fits).ok());
  // A change to a valid description, and part of the message.
  const std::pair<void (*)(Description&), const char*> cases[] = {
      {[](Description& d) { d.name = std::string(64, 'a'); }, "model name \"aaaa"},
      {[](Description& d) {
         d.sequences = {Sequence{}}, d.sequences[0].events = {Event{0, 1, {}, std::string(64, 'x'), ""}};
       },
       "event options \"xxx"},
      {[](Description& d) {
         d.animations = {Animation{"both", 30, 0, 1, std::vector<uint8_t>{1}, 10, {{2}}, {}, {}, 0, {}}};
       },
       "animation \"both\" has more than one of data, sections and tracks"},
      {[](Description& d) { d.strip.replacements.resize(2); },
       "replacements are given for 2 LODs, the strip file has 1"},
      {[](Description& d) { d.vertexFile.fixupMode = FixupMode::Explicit, d.vertexFile.storedOrder = {-1}; },
       "stored vertex order names vertex -1 of 0"},
  };
  for (auto [change, expected] : cases) {
    Description d;
    change(d);
    auto refused = build(d);
    ASSERT_FALSE(refused.ok()) << expected;
    EXPECT_NE(refused.message().find(expected), std::string::npos) << refused.message();
  }
}

// Flex tables at the header's fields, UI slots as offsets to controller records, and the
// two vertex animation forms packed at 16 and 18 bytes with half-float deltas.
TEST(Flexes, TablesRecordsAndBothVertexAnimationForms) {
  Description d;
  d.flexDescriptors = {"smile", "frown"};
  d.flexControllers = {{"mouth", "a", 0, 1}, {"mouth", "b", -1, 1}};
  d.flexRules = {{1, {FlexOp{1, 0.5f, 0}, FlexOp{2, 0, 1}, FlexOp{6, 0, 0}}}};
  d.flexControllerUis = {{"ab", 0, 1, -1, 1, true}};
  Mesh mesh;
  mesh.vertices.resize(3);
  mesh.lods = {{triangleGroup(3, {0, 1, 2})}};
  MeshFlex plain{0, {0, 1, 10, 11}, 1, false, {{2, 9, 200, {0.5f, 0, -2}, {0, 1, 0}, 0}}};
  MeshFlex wrinkle{1, {0, 1, 1, 1}, 0, true, {{0, 255, 0, {1, 0, 0}, {}, 0.25f}, {1, 255, 0, {0, 0, 1}, {}, -1}}};
  mesh.flexes = {plain, wrinkle};
  d.bodyParts = {BodyPart{"body", {}, {SubModel{"m", {mesh}}}}};
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);
  ASSERT_EQ(mdl.i32(260), 2);
  EXPECT_EQ(mdl.name(static_cast<size_t>(mdl.i32(264)) + 4, 0), "frown");
  size_t controllers = static_cast<size_t>(mdl.i32(272));
  EXPECT_EQ(mdl.name(controllers + 20, 4), "b");
  EXPECT_EQ(mdl.i32(controllers + 28), -1);
  EXPECT_EQ(mdl.f32(controllers + 32), -1.0f);
  size_t rule = static_cast<size_t>(mdl.i32(280));
  EXPECT_EQ(mdl.i32(rule), 1);
  ASSERT_EQ(mdl.i32(rule + 4), 3);
  size_t ops = mdl.follow(rule, 8);
  EXPECT_EQ(mdl.f32(ops + 4), 0.5f);
  EXPECT_EQ(mdl.i32(ops + 12), 1);
  size_t ui = static_cast<size_t>(mdl.i32(388));
  ASSERT_EQ(mdl.i32(384), 1);
  EXPECT_EQ(mdl.follow(ui, 4), controllers);
  EXPECT_EQ(mdl.follow(ui, 8), controllers + 20);
  EXPECT_EQ(mdl.i32(ui + 12), 0);
  EXPECT_EQ(mdl.at<uint8_t>(ui + 16), 1);
  EXPECT_EQ(mdl.at<uint8_t>(ui + 17), 1);

  size_t meshRecord = files.where.mdl.at("mesh[0][0][0]");
  ASSERT_EQ(mdl.i32(meshRecord + 16), 2);
  size_t flex0 = mdl.follow(meshRecord, 20), flex1 = flex0 + 60;
  EXPECT_EQ(mdl.f32(flex0 + 16), 11.0f);
  EXPECT_EQ(mdl.i32(flex0 + 20), 1);
  EXPECT_EQ(mdl.i32(flex0 + 28), 1);
  EXPECT_EQ(mdl.at<uint8_t>(flex1 + 32), 1);
  size_t anim0 = mdl.follow(flex0, 24), anim1 = mdl.follow(flex1, 24);
  EXPECT_EQ(mdl.at<uint16_t>(anim0), 2);
  EXPECT_EQ(mdl.at<uint8_t>(anim0 + 2), 9);
  EXPECT_EQ(mdl.at<uint8_t>(anim0 + 3), 200);
  EXPECT_EQ(mdl.at<uint16_t>(anim0 + 4), 0x3800);   // 0.5 as a half
  EXPECT_EQ(mdl.at<uint16_t>(anim0 + 8), 0xC000);   // -2
  EXPECT_EQ(mdl.at<uint16_t>(anim0 + 12), 0x3C00);  // normal y 1
  EXPECT_EQ(mdl.at<uint16_t>(anim1 + 16), 0x3400);  // wrinkle 0.25
  EXPECT_EQ(mdl.at<uint16_t>(anim1 + 18), 1);       // the next record, 18 bytes on
  EXPECT_EQ(mdl.at<uint16_t>(anim1 + 18 + 16), 0xBC00);
}

}  // namespace
}  // namespace zv::mdlforge
