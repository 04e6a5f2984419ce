// The model header file, checked at the record layouts' own offsets.

#include <gtest/gtest.h>

#include <cmath>

#include "forge_check.h"

namespace zv::mdlforge {
namespace {

using check::animation;
using check::bone;
using check::Bytes;
using check::forge;
using check::quadMesh;
using check::sequence;

TEST(ModelHeader, CarriesIdentityBoundsAndTheFileLength) {
  Description d;
  d.name = "models/props/crate.mdl";
  d.version = 46;
  d.checksum = -123456;
  d.flags = 0x10;
  d.hullMin = {-1, -2, -3};
  d.hullMax = {4, 5, 6};
  d.mass = 12.5f;
  d.contents = 1;
  d.surfaceProp = "wood";
  d.rootLod = 2;
  d.allowedRootLods = 3;
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);

  EXPECT_EQ(std::string(files.mdl.begin(), files.mdl.begin() + 4), "IDST");
  EXPECT_EQ(mdl.i32(4), 46);
  EXPECT_EQ(mdl.i32(8), -123456);
  EXPECT_EQ(mdl.str(12), "models/props/crate.mdl");
  EXPECT_EQ(mdl.u8(12 + 63), 0);
  EXPECT_EQ(mdl.i32(76), static_cast<int32_t>(files.mdl.size()));
  EXPECT_EQ(mdl.f32(104), -1);
  EXPECT_EQ(mdl.f32(112), -3);
  EXPECT_EQ(mdl.f32(116), 4);
  EXPECT_EQ(mdl.f32(124), 6);
  EXPECT_EQ(mdl.i32(152), 0x10);
  EXPECT_EQ(mdl.str(static_cast<size_t>(mdl.i32(308))), "wood");  // from the file start
  EXPECT_EQ(mdl.f32(328), 12.5f);
  EXPECT_EQ(mdl.i32(332), 1);
  EXPECT_EQ(mdl.u8(377), 2);
  EXPECT_EQ(mdl.u8(378), 3);
  EXPECT_EQ(mdl.i32(400), 0) << "no secondary header before version 48 unless asked for";
}

TEST(ModelHeader, RefusesNamesThatDoNotFitTheirFixedField) {
  Description d;
  d.name = std::string(63, 'a');
  EXPECT_TRUE(build(d).ok());
  d.name = std::string(64, 'a');
  auto refused = build(d);
  ASSERT_FALSE(refused.ok());
  EXPECT_NE(refused.message().find("model name"), std::string::npos);
}

TEST(SecondaryHeader, IsWrittenFromVersion48OrWhenItsContentIsGiven) {
  Description d;
  d.version = 44;
  EXPECT_EQ(Bytes(forge(d).mdl).i32(400), 0);
  d.version = 48;
  EXPECT_EQ(Bytes(forge(d).mdl).i32(400), 408);

  d.version = 44;
  d.longName = "models/characters/long_name.mdl";
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);
  size_t secondary = static_cast<size_t>(mdl.i32(400));
  ASSERT_EQ(secondary, 408u);
  EXPECT_EQ(mdl.name(secondary, 20), "models/characters/long_name.mdl");
  EXPECT_EQ(mdl.i32(secondary + 36), 0) << "no presets";
}

TEST(SecondaryHeader, HoldsBodyGroupPresetsRelativeToItself) {
  Description d;
  d.presets = {{"closed", 0, 1}, {"open_bare", 5, 7}};
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);
  size_t secondary = static_cast<size_t>(mdl.i32(400));
  ASSERT_EQ(mdl.i32(secondary + 36), 2);
  size_t first = mdl.follow(secondary, 40);
  EXPECT_EQ(first, files.where.mdl.at("presets"));
  EXPECT_EQ(mdl.name(first, 0), "closed");
  EXPECT_EQ(mdl.i32(first + 8), 1);
  EXPECT_EQ(mdl.name(first + 12, 0), "open_bare");
  EXPECT_EQ(mdl.i32(first + 16), 5);
  EXPECT_EQ(mdl.i32(first + 20), 7);
}

Description bodyPartModel() {
  Description d;
  d.textures = {"wood", "metal", "glass"};
  BodyPart body{"body", {}, {}};
  SubModel full{"full", {quadMesh(0, 0), quadMesh(2, 1)}};
  full.meshes[1].vertices.pop_back();  // 3 vertices, so counts differ per mesh
  full.meshes[1].lods = {{triangleGroup(3, {0, 1, 2})}};
  body.models = {full, SubModel{"blank", {}}};
  BodyPart head{"head", {}, {SubModel{"helmet", {quadMesh(1, 2)}}}};
  BodyPart extra{"extra", {}, {SubModel{"a", {}}, SubModel{"b", {}}, SubModel{"c", {}}}};
  d.bodyParts = {body, head, extra};
  return d;
}

TEST(BodyParts, ChainToSubModelsAndMeshesWithRelativeOffsets) {
  ModelFiles files = forge(bodyPartModel());
  Bytes mdl(files.mdl);
  ASSERT_EQ(mdl.i32(232), 3);
  size_t part = static_cast<size_t>(mdl.i32(236));
  EXPECT_EQ(mdl.name(part, 0), "body");
  EXPECT_EQ(mdl.i32(part + 4), 2);
  EXPECT_EQ(mdl.i32(part + 8), 1);
  EXPECT_EQ(mdl.name(part + 16, 0), "head");
  EXPECT_EQ(mdl.i32(part + 16 + 8), 2) << "base = product of the earlier parts' model counts";
  EXPECT_EQ(mdl.i32(part + 32 + 8), 2);

  size_t full = mdl.follow(part, 12);
  EXPECT_EQ(full, files.where.mdl.at("model[0][0]"));
  EXPECT_EQ(mdl.str(full), "full");
  EXPECT_EQ(mdl.i32(full + 72), 2);
  EXPECT_EQ(mdl.i32(full + 80), 7);
  EXPECT_EQ(mdl.i32(full + 84), 0);
  size_t blank = full + 148;
  EXPECT_EQ(mdl.str(blank), "blank");
  EXPECT_EQ(mdl.i32(blank + 72), 0);
  EXPECT_EQ(mdl.i32(blank + 80), 0);

  size_t mesh0 = mdl.follow(full, 76);
  size_t mesh1 = mesh0 + 116;
  EXPECT_EQ(mdl.i32(mesh0 + 0), 0);
  EXPECT_EQ(mdl.i32(mesh1 + 0), 2);
  EXPECT_EQ(mdl.follow(mesh0, 4), full) << "the mesh points back at its sub-model";
  EXPECT_EQ(mdl.follow(mesh1, 4), full);
  EXPECT_EQ(mdl.i32(mesh0 + 8), 4);
  EXPECT_EQ(mdl.i32(mesh1 + 8), 3);
  EXPECT_EQ(mdl.i32(mesh0 + 12), 0);
  EXPECT_EQ(mdl.i32(mesh1 + 12), 4) << "first vertex, counted from the sub-model's first";
  EXPECT_EQ(mdl.i32(mesh1 + 52), 3) << "LOD 0 vertex count";
  EXPECT_EQ(mdl.i32(mesh1 + 52 + 4 * 7), 3) << "unused LOD slots repeat the last LOD";
  EXPECT_EQ(mdl.f32(mesh1 + 36 + 8), 1.0f) << "centre z";

  size_t helmet = mdl.follow(part + 16, 12);
  EXPECT_EQ(mdl.str(helmet), "helmet");
  EXPECT_EQ(mdl.i32(helmet + 84), 7 * 48) << "vertex index is a byte offset into the vertex array";
  EXPECT_EQ(mdl.i32(helmet + 88), 7 * 16);
}

TEST(BodyParts, GivenBasesOverrideTheComputedOnes) {
  Description d = bodyPartModel();
  d.bodyParts[1].base = 7;
  Bytes mdl(forge(d).mdl);
  size_t part = static_cast<size_t>(mdl.i32(236));
  EXPECT_EQ(mdl.i32(part + 16 + 8), 7);
  EXPECT_EQ(mdl.i32(part + 32 + 8), 2) << "later parts still multiply the model counts";
}

TEST(Materials, TexturesDirectoriesAndTheSkinTable) {
  Description d;
  d.textures = {"wood", "metal", "glass"};
  d.textureDirs = {"models\\props\\", "models\\shared\\"};
  d.skinFamilies = {{0, 1, 2}, {1, 1}};
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);

  ASSERT_EQ(mdl.i32(204), 3);
  size_t texture = static_cast<size_t>(mdl.i32(208));
  EXPECT_EQ(mdl.name(texture, 0), "wood");
  EXPECT_EQ(mdl.name(texture + 64, 0), "metal");
  EXPECT_EQ(mdl.name(texture + 128, 0), "glass");

  ASSERT_EQ(mdl.i32(212), 2);
  size_t dirs = static_cast<size_t>(mdl.i32(216));
  EXPECT_EQ(mdl.str(static_cast<size_t>(mdl.i32(dirs))), "models\\props\\") << "from the file start";
  EXPECT_EQ(mdl.str(static_cast<size_t>(mdl.i32(dirs + 4))), "models\\shared\\");

  EXPECT_EQ(mdl.i32(220), 3);
  ASSERT_EQ(mdl.i32(224), 2);
  size_t skins = static_cast<size_t>(mdl.i32(228));
  const int16_t expected[] = {0, 1, 2, 1, 1, 2};  // the short row is completed with its column
  for (size_t i = 0; i < 6; ++i) EXPECT_EQ(mdl.i16(skins + 2 * i), expected[i]) << i;
}

TEST(Materials, WithoutFamiliesOneIdentityRowIsWritten) {
  Description d;
  d.textures = {"a", "b"};
  Bytes mdl(forge(d).mdl);
  EXPECT_EQ(mdl.i32(220), 2);
  ASSERT_EQ(mdl.i32(224), 1);
  size_t skins = static_cast<size_t>(mdl.i32(228));
  EXPECT_EQ(mdl.i16(skins), 0);
  EXPECT_EQ(mdl.i16(skins + 2), 1);
}

// Applies a stored 3x4 matrix (rows of four floats) to a point.
Vector3 applyStored(const Bytes& b, size_t matrix, const Vector3& p) {
  Vector3 out;
  for (int r = 0; r < 3; ++r) {
    size_t row = matrix + 16 * static_cast<size_t>(r);
    out[r] = b.f32(row) * p.x + b.f32(row + 4) * p.y + b.f32(row + 8) * p.z + b.f32(row + 12);
  }
  return out;
}

void expectNear(const Vector3& a, const Vector3& b) {
  EXPECT_NEAR(a.x, b.x, 1e-5);
  EXPECT_NEAR(a.y, b.y, 1e-5);
  EXPECT_NEAR(a.z, b.z, 1e-5);
}

TEST(Bones, RecordsAre216BytesWithBindPoseAndDerivedPoseToBone) {
  Description d;
  Bone root;
  root.name = "Root";
  root.position = {1, 0, 0};
  root.quaternion = Quaternion{0, 0, std::sqrt(0.5f), std::sqrt(0.5f)};  // 90 degrees about z
  Bone child;
  child.name = "arm";
  child.parent = 0;
  child.position = {0, 2, 0};
  child.positionScale = {0.5f, 0.25f, 0.125f};
  child.flags = 0x400;
  child.surfaceProp = "flesh";
  child.contents = 0x40000000;
  d.bones = {root, child};
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);

  ASSERT_EQ(mdl.i32(156), 2);
  size_t b0 = static_cast<size_t>(mdl.i32(160));
  size_t b1 = b0 + 216;
  EXPECT_EQ(b1, files.where.mdl.at("bone[1]"));
  EXPECT_EQ(mdl.name(b0, 0), "Root");
  EXPECT_EQ(mdl.i32(b0 + 4), -1);
  EXPECT_EQ(mdl.name(b1, 0), "arm");
  EXPECT_EQ(mdl.i32(b1 + 4), 0);
  EXPECT_EQ(mdl.f32(b1 + 36), 2.0f);
  EXPECT_NEAR(mdl.f32(b0 + 56), std::sqrt(0.5f), 1e-6) << "quaternion w";
  EXPECT_NEAR(mdl.f32(b0 + 68), 1.5707964f, 1e-5) << "radian euler z derived from the quaternion";
  EXPECT_EQ(mdl.f32(b1 + 76), 0.25f);
  EXPECT_EQ(mdl.f32(b1 + 84), 1.0f) << "rotation scale";
  EXPECT_EQ(mdl.f32(b1 + 156), 1.0f) << "alignment quaternion w";
  EXPECT_EQ(mdl.i32(b1 + 160), 0x400);
  EXPECT_EQ(mdl.i32(b1 + 164), 0) << "no procedural record";
  EXPECT_EQ(mdl.name(b1, 176), "flesh");
  EXPECT_EQ(mdl.i32(b1 + 180), 0x40000000);

  // The child sits at (-1, 0, 0) in model space; its pose-to-bone matrix takes model
  // space into its own frame, whose x axis is the model's y.
  expectNear(applyStored(mdl, b1 + 96, {-1, 0, 0}), {0, 0, 0});
  expectNear(applyStored(mdl, b1 + 96, {1, 0, 0}), {0, -2, 0});
  expectNear(applyStored(mdl, b0 + 96, {1, 0, 0}), {0, 0, 0});

  // Bone numbers sorted by name, ignoring case.
  size_t table = static_cast<size_t>(mdl.i32(364));
  EXPECT_EQ(mdl.u8(table), 1);
  EXPECT_EQ(mdl.u8(table + 1), 0);
}

TEST(Bones, JiggleRecordsFollowTheBonesWithTheOptionalTail) {
  Description d;
  Bone plain = bone("plain");
  Bone spring = bone("spring");
  Jiggle jiggle;
  jiggle.flags = 0x1 | 0x80;
  for (size_t i = 0; i < jiggle.values.size(); ++i) jiggle.values[i] = float(i + 1);
  jiggle.boing = std::array<float, 5>{100, 101, 102, 103, 104};
  spring.jiggle = jiggle;
  Bone raw = bone("aim");
  raw.procedural = Procedural{3, std::vector<uint8_t>(44, 0x5A)};
  d.bones = {plain, spring, raw};
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);
  size_t b1 = static_cast<size_t>(mdl.i32(160)) + 216;
  ASSERT_EQ(mdl.i32(b1 + 164), 5);
  size_t record = mdl.follow(b1, 168);
  EXPECT_EQ(mdl.i32(record), 0x81);
  EXPECT_EQ(mdl.f32(record + 4), 1.0f) << "length";
  EXPECT_EQ(mdl.f32(record + 116), 29.0f) << "base forward friction";
  EXPECT_EQ(mdl.f32(record + 120), 100.0f) << "impact speed";
  EXPECT_EQ(mdl.f32(record + 136), 104.0f);

  size_t b2 = b1 + 216;
  EXPECT_EQ(mdl.i32(b2 + 164), 3);
  size_t aim = mdl.follow(b2, 168);
  EXPECT_GE(aim, record + 140);
  EXPECT_EQ(mdl.u8(aim + 43), 0x5A);
  EXPECT_EQ(mdl.i32(b1 - 216 + 168), 0) << "a plain bone has no procedural offset";
}

TEST(Bones, LinearTableRepeatsTheDefaultsRelativeToItself) {
  Description d;
  d.version = 44;
  d.linearBoneTable = true;
  d.bones = {bone("a", -1, {1, 2, 3}), bone("b", 0, {4, 5, 6})};
  d.bones[1].flags = 0x200;
  Bytes mdl(forge(d).mdl);
  size_t secondary = static_cast<size_t>(mdl.i32(400));
  ASSERT_NE(secondary, 0u) << "the table needs the secondary header";
  size_t table = mdl.follow(secondary, 16);
  EXPECT_EQ(mdl.i32(table), 2);
  EXPECT_EQ(mdl.i32(mdl.follow(table, 4) + 4), 0x200) << "flags of bone 1";
  EXPECT_EQ(mdl.i32(mdl.follow(table, 8)), -1) << "parent of bone 0";
  EXPECT_EQ(mdl.f32(mdl.follow(table, 12) + 12 + 8), 6.0f) << "position z of bone 1";
  EXPECT_EQ(mdl.f32(mdl.follow(table, 16) + 16 + 12), 1.0f) << "quaternion w of bone 1";
  EXPECT_EQ(mdl.f32(mdl.follow(table, 28)), 1.0f) << "position scale";
  EXPECT_EQ(mdl.f32(mdl.follow(table, 36) + 12), 1.0f) << "alignment w";
}

TEST(ModelData, AttachmentsHitBoxesIkChainsPoseParametersAndIncludes) {
  Description d;
  d.bones = {bone("root"), bone("hand", 0)};
  Attachment muzzle{"muzzle", 0, 1, {}};
  muzzle.local.setTranslation({7, 8, 9});
  d.attachments = {muzzle};
  Hitbox box{1, 3, {-1, -1, -1}, {1, 1, 1}, "", {}, 0};
  Hitbox capsule{0, 2, {0, 0, 0}, {0, 0, 5}, "spine", {}, 2.5f};
  d.hitboxSets = {HitboxSet{"default", {box, capsule}}, HitboxSet{"cheap", {}}};
  d.ikChains = {IkChain{"lfoot", 0, {{0, {}}, {1, {0, 0, 1}}, {1, {}}}}};
  d.poseParameters = {PoseParameter{"aim_yaw", 1, -180, 180, 360}};
  d.includes = {IncludeModel{"anims", "models/shared/anims.mdl"}};
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);

  ASSERT_EQ(mdl.i32(240), 1);
  size_t attachment = static_cast<size_t>(mdl.i32(244));
  EXPECT_EQ(mdl.name(attachment, 0), "muzzle");
  EXPECT_EQ(mdl.i32(attachment + 8), 1);
  EXPECT_EQ(mdl.f32(attachment + 12), 1.0f);
  EXPECT_EQ(mdl.f32(attachment + 12 + 4 * 3), 7.0f);
  EXPECT_EQ(mdl.f32(attachment + 12 + 4 * 11), 9.0f);

  ASSERT_EQ(mdl.i32(172), 2);
  size_t set = static_cast<size_t>(mdl.i32(176));
  EXPECT_EQ(mdl.name(set, 0), "default");
  ASSERT_EQ(mdl.i32(set + 4), 2);
  EXPECT_EQ(mdl.name(set + 12, 0), "cheap");
  EXPECT_EQ(mdl.i32(set + 12 + 4), 0);
  size_t first = mdl.follow(set, 8);
  EXPECT_EQ(mdl.i32(first), 1);
  EXPECT_EQ(mdl.i32(first + 4), 3);
  EXPECT_EQ(mdl.f32(first + 8), -1.0f);
  EXPECT_EQ(mdl.f32(first + 28), 1.0f);
  EXPECT_EQ(mdl.i32(first + 32), 0) << "an unnamed hit box has no name offset";
  EXPECT_EQ(mdl.f32(first + 48), 0.0f);
  size_t second = first + 68;
  EXPECT_EQ(mdl.name(second, 32), "spine");
  EXPECT_EQ(mdl.f32(second + 48), 2.5f);

  ASSERT_EQ(mdl.i32(284), 1);
  size_t chain = static_cast<size_t>(mdl.i32(288));
  EXPECT_EQ(mdl.name(chain, 0), "lfoot");
  EXPECT_EQ(mdl.i32(chain + 4), 0);
  ASSERT_EQ(mdl.i32(chain + 8), 3);
  size_t link = mdl.follow(chain, 12);
  EXPECT_EQ(mdl.i32(link + 28), 1);
  EXPECT_EQ(mdl.f32(link + 28 + 12), 1.0f) << "knee direction z of link 1";

  ASSERT_EQ(mdl.i32(300), 1);
  size_t pose = static_cast<size_t>(mdl.i32(304));
  EXPECT_EQ(mdl.name(pose, 0), "aim_yaw");
  EXPECT_EQ(mdl.i32(pose + 4), 1);
  EXPECT_EQ(mdl.f32(pose + 8), -180.0f);
  EXPECT_EQ(mdl.f32(pose + 12), 180.0f);
  EXPECT_EQ(mdl.f32(pose + 16), 360.0f);

  ASSERT_EQ(mdl.i32(336), 1);
  size_t include = static_cast<size_t>(mdl.i32(340));
  EXPECT_EQ(mdl.name(include, 0), "anims");
  EXPECT_EQ(mdl.name(include, 4), "models/shared/anims.mdl");
}

TEST(ModelData, KeyValueTextCountsItsTerminator) {
  Description d;
  EXPECT_EQ(Bytes(forge(d).mdl).i32(316), 0);
  d.keyValues = "prop_data { \"base\" \"Wooden.Small\" }";
  Bytes mdl(forge(d).mdl);
  EXPECT_EQ(mdl.str(static_cast<size_t>(mdl.i32(312))), d.keyValues);
  EXPECT_EQ(mdl.i32(316), static_cast<int32_t>(d.keyValues.size() + 1));
}

TEST(Animations, DescriptionsPointAtTheirDataMovementsAndSections) {
  Description d;
  Animation none = animation("@idle", 10);
  none.fps = 24;
  none.flags = 0x1;
  Animation withData = animation("walk", 3);
  withData.data = std::vector<uint8_t>{0xFF, 0, 0, 0};
  withData.movements = {Movement{2, 0, 1, 3, 90, {1, 0, 0}, {4, 0, 0}}};
  Animation sectioned = animation("long", 31);
  sectioned.framesPerSection = 10;
  for (uint8_t s = 0; s < 5; ++s) sectioned.sections.push_back({s, s, s});
  d.animations = {none, withData, sectioned};
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);

  ASSERT_EQ(mdl.i32(180), 3);
  size_t a0 = static_cast<size_t>(mdl.i32(184));
  EXPECT_EQ(mdl.i32(a0), -static_cast<int32_t>(a0)) << "base leads back to the header";
  EXPECT_EQ(mdl.name(a0, 4), "@idle");
  EXPECT_EQ(mdl.f32(a0 + 8), 24.0f);
  EXPECT_EQ(mdl.i32(a0 + 12), 1);
  EXPECT_EQ(mdl.i32(a0 + 16), 10);
  EXPECT_EQ(mdl.i32(a0 + 52), -1) << "no data";

  size_t a1 = a0 + 100;
  EXPECT_EQ(mdl.i32(a1 + 52), 0);
  EXPECT_EQ(mdl.u8(mdl.follow(a1, 56)), 0xFF);
  ASSERT_EQ(mdl.i32(a1 + 20), 1);
  size_t movement = mdl.follow(a1, 24);
  EXPECT_EQ(mdl.i32(movement), 2);
  EXPECT_EQ(mdl.f32(movement + 12), 3.0f) << "end velocity";
  EXPECT_EQ(mdl.f32(movement + 16), 90.0f);
  EXPECT_EQ(mdl.f32(movement + 32), 4.0f) << "end position x";

  size_t a2 = a1 + 100;
  EXPECT_EQ(mdl.i32(a2 + 84), 10);
  size_t table = mdl.follow(a2, 80);
  for (size_t s = 0; s < 5; ++s) {
    EXPECT_EQ(mdl.i32(table + 8 * s), 0) << "block of section " << s;
    EXPECT_EQ(mdl.u8(a2 + static_cast<size_t>(mdl.i32(table + 8 * s + 4))), s);
  }
  EXPECT_EQ(mdl.i32(a2 + 56), mdl.i32(table + 4)) << "the description points at section 0";
}

TEST(Animations, DataAndSectionsTogetherAreRefused) {
  Description d;
  Animation both = animation("both");
  both.data = std::vector<uint8_t>{1};
  both.sections = {{2}};
  d.animations = {both};
  EXPECT_FALSE(build(d).ok());
}

TEST(Sequences, RecordsEventsGridWeightsAndText) {
  Description d;
  d.bones = {bone("a"), bone("b"), bone("c")};
  Sequence idle = sequence("idle");
  idle.activity = "ACT_IDLE";
  idle.flags = 0x1;
  idle.events = {Event{0.5f, 1004, {}, "Crate.Open", ""}, Event{0.25f, 0, {}, "", "AE_CUSTOM"}};
  idle.keyValues = "{ x 1 }";
  Sequence blend = sequence("aim");
  blend.width = 3;
  blend.height = 2;
  blend.animations = {0, 1, 2, 3, 4, 5};
  blend.paramIndex = {0, 1};
  blend.weights = {0.f, 0.5f, 1.f};
  Sequence sameWeights = sequence("again");
  sameWeights.animations = {};
  d.sequences = {idle, blend, sameWeights};
  ModelFiles files = forge(d);
  Bytes mdl(files.mdl);

  ASSERT_EQ(mdl.i32(188), 3);
  size_t s0 = static_cast<size_t>(mdl.i32(192));
  EXPECT_EQ(mdl.i32(s0), -static_cast<int32_t>(s0));
  EXPECT_EQ(mdl.name(s0, 4), "idle");
  EXPECT_EQ(mdl.name(s0, 8), "ACT_IDLE");
  EXPECT_EQ(mdl.i32(s0 + 12), 1);
  EXPECT_EQ(mdl.i32(s0 + 20), 1) << "activity weight";
  EXPECT_EQ(mdl.f32(s0 + 104), 0.2f) << "fade in";
  ASSERT_EQ(mdl.i32(s0 + 24), 2);
  size_t e0 = mdl.follow(s0, 28);
  EXPECT_EQ(mdl.f32(e0), 0.5f);
  EXPECT_EQ(mdl.i32(e0 + 4), 1004);
  EXPECT_EQ(mdl.i32(e0 + 8), 0) << "numeric event";
  EXPECT_EQ(mdl.str(e0 + 12), "Crate.Open");
  EXPECT_EQ(mdl.i32(e0 + 76), 0);
  size_t e1 = e0 + 80;
  EXPECT_EQ(mdl.i32(e1 + 8), 1024) << "named event";
  EXPECT_EQ(mdl.name(e1, 76), "AE_CUSTOM");
  EXPECT_EQ(mdl.name(s0, 172), "{ x 1 }");
  EXPECT_EQ(mdl.i32(s0 + 176), 8);
  EXPECT_EQ(mdl.i32(s0 + 56), 1);
  EXPECT_EQ(mdl.i16(mdl.follow(s0, 60)), 0);
  EXPECT_EQ(mdl.i32(s0 + 160), 0) << "no pose keys without a blend";

  size_t s1 = s0 + 212;
  EXPECT_EQ(mdl.i32(s1 + 56), 6);
  EXPECT_EQ(mdl.i32(s1 + 68), 3);
  EXPECT_EQ(mdl.i32(s1 + 72), 2);
  EXPECT_EQ(mdl.i32(s1 + 76), 0);
  EXPECT_EQ(mdl.i32(s1 + 80), 1);
  EXPECT_EQ(mdl.i16(mdl.follow(s1, 60) + 2 * 4), 4) << "cell (1, 1) of a 3-wide grid";
  size_t keys = mdl.follow(s1, 160);
  EXPECT_EQ(mdl.f32(keys + 4), 0.5f) << "middle of three columns";
  EXPECT_EQ(mdl.f32(keys + 12), 0.0f) << "first of two rows";
  EXPECT_EQ(mdl.f32(keys + 16), 1.0f);
  EXPECT_EQ(mdl.f32(mdl.follow(s1, 156) + 4), 0.5f);

  size_t s2 = s1 + 212;
  EXPECT_EQ(mdl.i32(s2 + 56), 0);
  EXPECT_EQ(mdl.i32(s2 + 20), 0) << "no activity, no weight";
  size_t defaults = mdl.follow(s2, 156);
  EXPECT_EQ(defaults, mdl.follow(s0, 156)) << "equal weight lists are stored once";
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(mdl.f32(defaults + 4 * i), 1.0f);
}

TEST(Sequences, EventOptionsMustFitTheirField) {
  Description d;
  Sequence seq = sequence("s");
  seq.events = {Event{0, 1, {}, std::string(64, 'x'), ""}};
  d.sequences = {seq};
  EXPECT_FALSE(build(d).ok());
}

}  // namespace
}  // namespace zv::mdlforge
