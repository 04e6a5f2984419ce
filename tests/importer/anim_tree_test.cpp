// A builder keeps the skeleton and channels of the last file for the next file of the
// same model. Whatever it keeps, each file must be the bytes a fresh builder writes.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "dmx/dm_serializer.h"
#include "importer/anim_dmx.h"

namespace zv {
namespace {

std::vector<SkeletonBone> chain(size_t count) {
  std::vector<SkeletonBone> bones;
  for (size_t i = 0; i < count; ++i) {
    SkeletonBone bone;
    bone.name = "bone" + std::to_string(i);
    bone.parent = int32_t(i) - 1;
    bone.position = {0, 0, float(i)};
    bone.orientation = {0, 0, 0.6f, 0.8f};
    bones.push_back(bone);
  }
  return bones;
}

AnimExportRecord clip(std::string name, float rate, int32_t frames, bool delta, bool looping) {
  AnimExportRecord record;
  record.name = std::move(name);
  record.frameRate = rate;
  record.frameCount = frames;
  record.delta = delta;
  record.looping = looping;
  return record;
}

struct Model {
  std::string name = "crate";
  std::vector<SkeletonBone> skeleton = chain(4);
  std::string document = "models/crate.qmdl";
  AnimatedModel view() const { return {name, skeleton, document}; }
};

// Starts a file in builder and keys it: frame f moves bone b to (f, b, 0).
std::vector<uint8_t> writeFile(AnimationTreeBuilder& builder, const AnimExportRecord& record, const Model& model) {
  builder.start(record, model.view());
  std::vector<BoneKey> keys(model.skeleton.size());
  for (int32_t f = 0; f < record.frameCount; ++f) {
    for (size_t b = 0; b < keys.size(); ++b) keys[b] = {{float(f), float(b), 0}, {0, 0, 0, 1}};
    builder.addFrame(keys);
  }
  auto bytes = dmx::saveDmx(builder.root(), dmx::kConverterEncoding, dmx::kConverterFormat,
                            dmx::kConverterFormatVersion);
  EXPECT_TRUE(bytes.has_value());
  return bytes.value_or(std::vector<uint8_t>{});
}

std::vector<uint8_t> freshFile(const AnimExportRecord& record, const Model& model) {
  AnimationTreeBuilder fresh;
  return writeFile(fresh, record, model);
}

TEST(AnimationTreeBuilder, AFileOfTheSameModelAfterAnotherIsTheFileAFreshTreeGives) {
  Model model;
  const AnimExportRecord first = clip("walk", 30, 20, false, true);
  // Everything a clip has differs: name, rate, length and flags; then a clip of no frames
  // and one without a usable rate.
  const std::vector<AnimExportRecord> next = {clip("ragdoll_pose", 24, 3, true, false), clip("empty", 30, 0, false, false),
                                              clip("still", 0, 5, false, true), clip("walk", 30, 20, false, true)};
  AnimationTreeBuilder builder;
  EXPECT_EQ(writeFile(builder, first, model), freshFile(first, model));
  for (const AnimExportRecord& record : next) {
    EXPECT_EQ(writeFile(builder, record, model), freshFile(record, model)) << record.name;
  }
}

TEST(AnimationTreeBuilder, AFileOfAnotherModelIsNotBuiltOnTheLastModelsSkeleton) {
  const AnimExportRecord record = clip("idle", 30, 6, false, true);
  Model renamedBone, reparented, moved, turned, moreBones, otherName, otherDocument;
  renamedBone.skeleton[2].name = "bone2_tip";
  reparented.skeleton[3].parent = 1;
  moved.skeleton[1].position.y = 0.5f;
  turned.skeleton[2].orientation = {0, 0, 0.8f, 0.6f};
  moreBones.skeleton = chain(5);
  otherName.name = "barrel";
  otherDocument.document = "models/barrel.qmdl";
  const std::vector<std::pair<const char*, const Model*>> others = {
      {"renamed bone", &renamedBone}, {"reparented", &reparented}, {"moved", &moved},
      {"turned", &turned},            {"more bones", &moreBones},  {"model name", &otherName},
      {"document", &otherDocument}};
  for (const auto& [what, other] : others) {
    AnimationTreeBuilder builder;
    writeFile(builder, record, Model{});
    std::vector<uint8_t> written = writeFile(builder, record, *other);
    EXPECT_EQ(written, freshFile(record, *other)) << what;
    EXPECT_NE(freshFile(record, *other), freshFile(record, Model{})) << what << ": the variant changes no byte";
  }
}

TEST(AnimationTreeBuilder, AClearedBuilderBuildsAgain) {
  Model model;
  const AnimExportRecord record = clip("idle", 30, 6, false, true);
  AnimationTreeBuilder builder;
  writeFile(builder, record, model);
  builder.clear();
  EXPECT_EQ(writeFile(builder, record, model), freshFile(record, model));
}

}  // namespace
}  // namespace zv
