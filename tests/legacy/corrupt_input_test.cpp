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
// in its own allocation so the sanitizers see the exact end; returns how many cuts loaded
// without a note of what was left out.
template <class Pick>
size_t truncationsThatLoad(const mdlforge::ModelFiles& files, Pick pick) {
  FamilyFiles whole = familyFiles(files);
  size_t loaded = 0;
  LogCapture quiet;
  for (size_t size = 0; size < pick(whole).size(); ++size) {
    FamilyFiles family = familyFiles(files);
    pick(family) = std::vector<uint8_t>(pick(whole).begin(), pick(whole).begin() + ptrdiff_t(size));
    auto model = loadModelFamily(std::move(family));
    loaded += model.ok() && model->mdl.notes.empty();
  }
  return loaded;
}

TEST(CorruptInput, EveryTruncationFailsTheModelOrDropsWhatItCut) {
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

// The header, the bones and the tables meshes are built from fail the model; every other
// table is left out with a note naming it, and the rest of the model loads.
TEST(CorruptInput, HeaderTablesOutsideTheFileNameTheTableAndOffset) {
  const std::tuple<const char*, size_t, size_t, bool> tables[] = {
      {"bone table", 156, 160, true},          {"texture table", 204, 208, true},
      {"texture directory table", 212, 216, true}, {"body part table", 232, 236, true},
      {"hit box set table", 172, 176, false},  {"animation table", 180, 184, false},
      {"sequence table", 188, 192, false},     {"attachment table", 240, 244, false},
      {"IK chain table", 284, 288, false},     {"pose parameter table", 300, 304, false},
      {"include model table", 336, 340, false},
  };
  auto files = buildFiles(richModel());
  LogCapture quiet;
  auto expectFault = [&](size_t field, int32_t value, const std::string& what, bool required, const std::string& detail) {
    auto model = loadPatchedMdl(files, field, value);
    ASSERT_EQ(model.ok(), !required) << what << " " << detail;
    const std::string& message = required ? model.message() : model->mdl.notes.at(0);
    EXPECT_EQ(message.rfind("models/props/crate.mdl: " + what, 0), 0u) << message;
    EXPECT_NE(message.find(detail), std::string::npos) << message;
    if (required) return;
    // Without its animations, the sequence's grid names one that does not exist.
    EXPECT_EQ(model->mdl.notes.size(), what == std::string("animation table") ? 2u : 1u) << what;
    EXPECT_NE(message.find("; the " + what + " left out"), std::string::npos) << message;
    const MdlFile& mdl = model->mdl;
    EXPECT_EQ(mdl.hitboxSets.size() + mdl.animations.size() + mdl.sequences.size() + mdl.attachments.size() +
                  mdl.ikChains.size() + mdl.poseParams.size() + mdl.includes.size(),
              6u) << what;  // one of each but the table left out
  };
  for (auto [what, countField, offsetField, required] : tables) {
    for (int32_t offset : {int32_t(files.mdl.size()), -400, 0x7FFFFFF0})
      expectFault(offsetField, offset, what, required, "at offset " + std::to_string(offset) + " leaves the file");
    expectFault(countField, -1, what, required, "has an invalid count -1");
    for (int32_t count : {0x7FFFFFFF, 1 << 20}) expectFault(countField, count, what, required, std::to_string(count));
  }
}

TEST(CorruptInput, NestedRecordsOutsideTheFileAreFound) {
  auto files = buildFiles(richModel());
  // Record, field, part of the message; whether it fails the model.
  const std::tuple<std::string, size_t, const char*, bool> cases[] = {
      {mdlforge::placeKey("bodypart", {0}), 12, "bodypart[0].model table", true},
      {mdlforge::placeKey("model", {0, 0}), 76, "bodypart[0].model[0].mesh table", true},
      {mdlforge::placeKey("model", {0, 0}), 72, "bodypart[0].model[0].mesh table", true},
      {mdlforge::placeKey("texture", {1}), 0, "texture[1].name", true},
      {mdlforge::placeKey("bone", {1}), 176, "bone[1].surface property", false},
      {mdlforge::placeKey("bone", {1}), 168, "bone[1].jiggle", false},
      {mdlforge::placeKey("hitboxset", {0}), 8, "hitboxset[0].hit box table", false},
      {mdlforge::placeKey("ikchain", {0}), 12, "ikchain[0].link table", false},
      {mdlforge::placeKey("sequence", {0}), 28, "sequence[0].event table", false},
      {mdlforge::placeKey("sequence", {0}), 60, "sequence[0].animation index table", false},
      {mdlforge::placeKey("sequence", {0}), 152, "sequence[0].auto layer table", false},
      {mdlforge::placeKey("sequence", {0}), 172, "sequence[0].key values", false},
      {mdlforge::placeKey("animdesc", {0}), 24, "animation[0].movement table", false},
      {mdlforge::placeKey("include", {0}), 4, "include[0].file name", false},
  };
  LogCapture quiet;
  for (const auto& [key, field, expected, required] : cases) {
    size_t record = files.where.mdl.at(key);
    for (int32_t value : {int32_t(files.mdl.size()) * 2, -int32_t(record) - 8}) {
      auto model = loadPatchedMdl(files, record + field, value);
      ASSERT_EQ(model.ok(), !required) << key << "+" << field << " = " << value;
      const std::string& message = required ? model.message() : model->mdl.notes.at(0);
      EXPECT_NE(message.find(expected), std::string::npos) << message;
    }
  }
}

// What is left of a model whose optional records are broken one at a time.
TEST(CorruptInput, ABrokenOptionalRecordCostsOnlyItself) {
  auto files = buildFiles(richModel());
  LogCapture log;
  auto patched = [&](const std::string& key, size_t field, int32_t value) {
    auto model = loadPatchedMdl(files, files.where.mdl.at(key) + field, value);
    EXPECT_TRUE(model) << model.message();
    return model ? std::move(model->mdl) : MdlFile{};
  };
  int32_t far = int32_t(files.mdl.size()) * 2;
  MdlFile mdl = patched("bone[1]", 176, far);
  EXPECT_EQ(mdl.bones.size(), 2u);
  EXPECT_EQ(mdl.bones[1].surfaceProp, "");
  EXPECT_TRUE(mdl.bones[1].jiggle.has_value());
  // Animations and sequences keep their places, since others name them by index.
  mdl = patched("animdesc[0]", 24, far);
  ASSERT_EQ(mdl.animations.size(), 1u);
  EXPECT_NE(mdl.animations[0].error.find("animation[0].movement table"), std::string::npos);
  ASSERT_EQ(mdl.sequences.size(), 1u);
  EXPECT_EQ(mdl.sequences[0].error, "");
  mdl = patched("sequence[0]", 28, far);
  ASSERT_EQ(mdl.sequences.size(), 1u);
  EXPECT_NE(mdl.sequences[0].error.find("sequence[0].event table"), std::string::npos);
  EXPECT_EQ(mdl.animations[0].error, "");
  mdl = patched("poseparam[0]", 0, far);
  ASSERT_EQ(mdl.poseParams.size(), 1u);
  EXPECT_EQ(mdl.poseParams[0].name, "");
  mdl = patched("attachment[0]", 0, far);
  EXPECT_TRUE(mdl.attachments.empty());
  EXPECT_EQ(mdl.ikChains.size(), 1u);
  // Each note is printed when the family loads.
  EXPECT_EQ(log.count("; attachment[0] left out\n"), 1u) << log.text();
}

// Animation-set models carry sequences without animation: a 0 x 0 grid whose index table
// offset may point anywhere. A grid naming animations that do not exist, or whose table
// leaves the file, costs its sequence.
TEST(CorruptInput, SequencesWithoutAnimationLoadAndBadGridsCostTheirSequence) {
  mdlforge::Description d = richModel();
  mdlforge::Sequence empty;
  empty.name = "empty";
  empty.width = empty.height = 0;
  empty.animations = {};
  mdlforge::Sequence missing = empty;
  missing.name = "missing";
  missing.width = missing.height = 1;
  missing.animations = {3};
  d.sequences = {empty, d.sequences[0], empty, missing};
  auto files = buildFiles(d);
  size_t sequence2 = files.where.mdl.at("sequence[2]");
  mdlforge::poke<int32_t>(files.mdl, sequence2 + 60, -123456);  // an index table anywhere
  LogCapture log;
  auto model = loadModelFamily(familyFiles(files));
  ASSERT_TRUE(model) << model.message();
  const std::vector<SequenceDesc>& seqs = model->mdl.sequences;
  ASSERT_EQ(seqs.size(), 4u);
  for (size_t s : {0, 1, 2}) EXPECT_EQ(seqs[s].error, "") << s;
  EXPECT_TRUE(seqs[0].animIndices.empty() && seqs[2].animIndices.empty());
  EXPECT_EQ(seqs[1].animIndices, std::vector<int16_t>{0});
  EXPECT_NE(seqs[3].error.find("sequence[3] at offset"), std::string::npos) << seqs[3].error;
  EXPECT_NE(seqs[3].error.find("grid cell 0 names animation 3 of 1"), std::string::npos) << seqs[3].error;
  EXPECT_EQ(log.count("; sequence[3] left out\n"), 1u);

  // A real grid whose index table leaves the file.
  mdlforge::poke<int32_t>(files.mdl, files.where.mdl.at("sequence[1]") + 60, int32_t(files.mdl.size()));
  model = loadModelFamily(familyFiles(files));
  ASSERT_TRUE(model) << model.message();
  EXPECT_NE(model->mdl.sequences[1].error.find("sequence[1].animation index table"), std::string::npos);
  EXPECT_EQ(model->mdl.sequences[2].error, "");
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
