// Broken files must give a clean error naming what is wrong, never a crash or a read out
// of range. Each case starts from a valid family and breaks one thing.

#include <gtest/gtest.h>

#include <tuple>

#include "base/log.h"
#include "legacy/family.h"
#include "mdlforge/byte_writer.h"
#include "support/model_fixtures.h"

namespace zv::legacy {
namespace {

using zv::testing::buildFiles;
using zv::testing::familyFiles;

// A rich model, so that truncation and patching reach every kind of table.
mdlforge::Description richModel() {
  mdlforge::Description d = zv::testing::crateModel();
  mdlforge::Bone child;
  child.name = "lid";
  child.parent = 0;
  child.surfaceProp = "wood";
  child.jiggle = mdlforge::Jiggle{};
  d.bones.push_back(child);
  d.textures = {"crate", "lid"};
  d.poseParameters = {{"open", 0, 0, 1, 0}};
  d.attachments = {{"handle", 0, 1, {}}};
  d.hitboxSets = {{"default", {{0, 0, {-1, -1, -1}, {1, 1, 1}, "", {}, 0}}}};
  d.ikChains = {{"leg", 0, {{0, {}}, {1, {}}, {1, {}}}}};
  d.includes = {{"", "models/shared_anims.mdl"}};
  mdlforge::Animation idle;
  idle.name = "idle";
  idle.frames = 2;
  idle.movements = {{1, 0, 0, 0, 0, {1, 0, 0}, {}}};
  d.animations = {idle};
  mdlforge::Sequence seq;
  seq.name = "idle";
  seq.events = {{0.5f, 1004, std::nullopt, "crate.open", ""}};
  seq.keyValues = "x { y 1 }";
  seq.autoLayers = {{0, 0, 0, 0, 0, 1, 1}};
  d.sequences = {seq};
  return d;
}

// Loads the family with the file that pick chooses cut to every shorter length, each cut
// in its own allocation so the sanitizers see the exact end; returns how many cuts loaded.
template <class Pick>
size_t truncationsThatLoad(const mdlforge::ModelFiles& files, Pick pick) {
  FamilyFiles whole = familyFiles(files);
  size_t loaded = 0;
  LogCapture quiet;
  for (size_t size = 0; size < pick(whole).size(); ++size) {
    FamilyFiles family = familyFiles(files);
    pick(family) = std::vector<uint8_t>(pick(whole).begin(), pick(whole).begin() + ptrdiff_t(size));
    loaded += loadModelFamily(std::move(family)).ok();
  }
  return loaded;
}

TEST(CorruptInput, EveryTruncationFailsTheModelOrDropsTheFile) {
  auto files = buildFiles(richModel());
  ASSERT_TRUE(loadModelFamily(familyFiles(files)));
  EXPECT_EQ(truncationsThatLoad(files, [](FamilyFiles& f) -> std::vector<uint8_t>& { return f.mdl; }), 0u);
  // A strip file too short for its version and checksum (under 20 bytes) is dropped as
  // being of the wrong version; cut longer, it fails the model.
  EXPECT_EQ(truncationsThatLoad(files, [](FamilyFiles& f) -> std::vector<uint8_t>& { return *f.vtx; }), 20u);
  // An empty vertex file counts as missing; 1 to 3 bytes cannot hold the id, which fails
  // the model; 4 to 11 bytes have the id but no readable version or checksum, so the file
  // is dropped; from 12 bytes on, a cut file fails the model.
  EXPECT_EQ(truncationsThatLoad(files, [](FamilyFiles& f) -> std::vector<uint8_t>& { return *f.qvd; }), 9u);
}

Result<LegacyModel> loadPatchedMdl(const mdlforge::ModelFiles& files, size_t field, int32_t value) {
  FamilyFiles family = familyFiles(files);
  mdlforge::poke<int32_t>(family.mdl, field, value);
  return loadModelFamily(std::move(family));
}

TEST(CorruptInput, HeaderTablesOutsideTheFileNameTheTableAndOffset) {
  // Each table of the header: its name, count field and offset field.
  const std::tuple<const char*, size_t, size_t> tables[] = {
      {"bone table", 156, 160},          {"hit box set table", 172, 176},
      {"animation table", 180, 184},     {"sequence table", 188, 192},
      {"texture table", 204, 208},       {"texture directory table", 212, 216},
      {"body part table", 232, 236},     {"attachment table", 240, 244},
      {"IK chain table", 284, 288},      {"pose parameter table", 300, 304},
      {"include model table", 336, 340},
  };
  auto files = buildFiles(richModel());
  auto expectRefused = [&](size_t field, int32_t value, const std::string& what, const std::string& detail) {
    auto model = loadPatchedMdl(files, field, value);
    ASSERT_FALSE(model) << what << " " << detail;
    EXPECT_EQ(model.message().rfind("models/props/crate.mdl: " + what, 0), 0u) << model.message();
    EXPECT_NE(model.message().find(detail), std::string::npos) << model.message();
  };
  for (auto [what, countField, offsetField] : tables) {
    for (int32_t offset : {int32_t(files.mdl.size()), -400, 0x7FFFFFF0})
      expectRefused(offsetField, offset, what, "at offset " + std::to_string(offset) + " leaves the file");
    expectRefused(countField, -1, what, "has an invalid count -1");
    for (int32_t count : {0x7FFFFFFF, 1 << 20}) expectRefused(countField, count, what, std::to_string(count));
  }
}

TEST(CorruptInput, NestedRecordsOutsideTheFileAreFound) {
  auto files = buildFiles(richModel());
  // Record, field, part of the message.
  const std::tuple<std::string, size_t, const char*> cases[] = {
      {mdlforge::placeKey("bodypart", {0}), 12, "bodypart[0].model table"},
      {mdlforge::placeKey("model", {0, 0}), 76, "bodypart[0].model[0].mesh table"},
      {mdlforge::placeKey("model", {0, 0}), 72, "bodypart[0].model[0].mesh table"},
      {mdlforge::placeKey("texture", {1}), 0, "texture[1].name"},
      {mdlforge::placeKey("bone", {1}), 176, "bone[1].surface property"},
      {mdlforge::placeKey("bone", {1}), 168, "bone[1].jiggle"},
      {mdlforge::placeKey("hitboxset", {0}), 8, "hitboxset[0].hit box table"},
      {mdlforge::placeKey("ikchain", {0}), 12, "ikchain[0].link table"},
      {mdlforge::placeKey("sequence", {0}), 28, "sequence[0].event table"},
      {mdlforge::placeKey("sequence", {0}), 60, "sequence[0].animation index table"},
      {mdlforge::placeKey("sequence", {0}), 152, "sequence[0].auto layer table"},
      {mdlforge::placeKey("sequence", {0}), 172, "sequence[0].key values"},
      {mdlforge::placeKey("animdesc", {0}), 24, "animation[0].movement table"},
      {mdlforge::placeKey("include", {0}), 4, "include[0].file name"},
  };
  for (const auto& [key, field, expected] : cases) {
    size_t record = files.where.mdl.at(key);
    for (int32_t value : {int32_t(files.mdl.size()) * 2, -int32_t(record) - 8}) {
      auto model = loadPatchedMdl(files, record + field, value);
      ASSERT_FALSE(model) << key << "+" << field << " = " << value;
      EXPECT_NE(model.message().find(expected), std::string::npos) << model.message();
    }
  }
}

TEST(CorruptInput, StringsWithoutTerminatorAreRefused) {
  auto files = buildFiles(richModel());
  // Point the last texture's name at the file's final byte, which is not a NUL.
  size_t texture = files.where.mdl.at(mdlforge::placeKey("texture", {1}));
  files.mdl.back() = 'x';
  auto model = loadPatchedMdl(files, texture, int32_t(files.mdl.size() - 1 - texture));
  ASSERT_FALSE(model);
  EXPECT_EQ(model.message(), "models/props/crate.mdl: texture[1].name at offset " +
                                 std::to_string(files.mdl.size() - 1) +
                                 " is not a terminated string inside the file");
}

}  // namespace
}  // namespace zv::legacy
