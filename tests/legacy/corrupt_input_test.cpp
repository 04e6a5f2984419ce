// Broken files must give a clean error naming what is wrong, never a crash or a read out
// of range. Each case starts from a valid family and breaks one thing.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "base/log.h"
#include "legacy/family.h"
#include "support/model_fixtures.h"

namespace zv::legacy {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::familyFiles;

// A rich model, so that truncation and patching reach every kind of table.
mdlforge::Description richModel() {
  mdlforge::Description d = crateModel();
  d.longName = "props/crate_rich.mdl";
  mdlforge::Bone child;
  child.name = "lid";
  child.parent = 0;
  child.surfaceProp = "wood";
  child.jiggle = mdlforge::Jiggle{};
  d.bones.push_back(child);
  d.textures = {"crate", "lid"};
  d.skinFamilies = {{0, 1}, {1, 1}};
  d.poseParameters = {{"open", 0, 0, 1, 0}};
  d.attachments = {{"handle", 0, 1, {}}};
  d.hitboxSets = {{"default", {{0, 0, {-1, -1, -1}, {1, 1, 1}, "", {}, 0}}}};
  d.ikChains = {{"leg", 0, {{0, {}}, {1, {}}, {1, {}}}}};
  d.includes = {{"", "models/shared_anims.mdl"}};
  d.presets = {{"open", 1, 1}};
  d.keyValues = "\"prop_data\" { \"base\" \"Wooden.Small\" }";
  mdlforge::Animation idle;
  idle.name = "idle";
  idle.frames = 2;
  idle.data = std::vector<uint8_t>{255, 0, 0, 0};
  idle.movements = {{1, 0, 0, 0, 0, {1, 0, 0}, {}}};
  d.animations = {idle};
  mdlforge::Sequence seq;
  seq.name = "idle";
  seq.activity = "ACT_IDLE";
  seq.events = {{0.5f, 1004, std::nullopt, "crate.open", ""}};
  seq.keyValues = "x { y 1 }";
  seq.autoLayers = {{0, 0, 0, 0, 0, 1, 1}};
  d.sequences = {seq};
  d.bodyParts[0].models[0].meshes.push_back(zv::testing::triangleMesh(1, 1, 5));
  return d;
}

// Loads with each file cut to every shorter length, each in its own allocation so the
// sanitizers see the exact end.
enum class Which { Mdl, Vtx, Qvd };

size_t truncationsThatLoad(const mdlforge::ModelFiles& files, Which which) {
  const std::vector<uint8_t>& whole = which == Which::Mdl ? files.mdl : which == Which::Vtx ? *files.vtx : *files.qvd;
  size_t loaded = 0;
  LogCapture quiet;
  for (size_t size = 0; size < whole.size(); ++size) {
    FamilyFiles family = familyFiles(files);
    std::vector<uint8_t> cut(whole.begin(), whole.begin() + ptrdiff_t(size));
    (which == Which::Mdl ? family.mdl : which == Which::Vtx ? *family.vtx : *family.qvd) = std::move(cut);
    auto model = loadModelFamily(std::move(family));
    if (model) ++loaded;
  }
  return loaded;
}

TEST(CorruptInput, EveryTruncatedModelFileFailsCleanly) {
  auto files = buildFiles(richModel());
  ASSERT_TRUE(loadModelFamily(familyFiles(files)));
  EXPECT_EQ(truncationsThatLoad(files, Which::Mdl), 0u);
}

TEST(CorruptInput, EveryTruncatedStripFileFailsOrIsDropped) {
  auto files = buildFiles(richModel());
  // Too short to hold its version and checksum, a strip file is dropped as being of the
  // wrong version; longer but cut, it fails the model.
  EXPECT_EQ(truncationsThatLoad(files, Which::Vtx), 20u);
}

TEST(CorruptInput, EveryTruncatedVertexFileFailsOrIsDropped) {
  auto files = buildFiles(richModel());
  // An empty file counts as missing; 1 to 3 bytes cannot hold the id, which fails the
  // model; 4 to 11 bytes have the id but not a readable version or checksum, so the file
  // is dropped; from 12 bytes on, a cut file fails the model.
  EXPECT_EQ(truncationsThatLoad(files, Which::Qvd), 9u);
}

// Offsets of header fields (count, offset) of the model header file's tables.
struct HeaderTable {
  const char* what;
  size_t countField;
  size_t offsetField;
};

constexpr HeaderTable kTables[] = {
    {"bone table", 156, 160},          {"hit box set table", 172, 176}, {"animation table", 180, 184},
    {"sequence table", 188, 192},      {"texture table", 204, 208},     {"texture directory table", 212, 216},
    {"body part table", 232, 236},     {"attachment table", 240, 244},  {"IK chain table", 284, 288},
    {"pose parameter table", 300, 304}, {"include model table", 336, 340},
};

std::vector<uint8_t> patch(std::vector<uint8_t> bytes, size_t field, int32_t value) {
  std::memcpy(bytes.data() + field, &value, 4);
  return bytes;
}

Result<LegacyModel> loadPatchedMdl(const mdlforge::ModelFiles& files, size_t field, int32_t value) {
  FamilyFiles family = familyFiles(files);
  family.mdl = patch(files.mdl, field, value);
  return loadModelFamily(std::move(family));
}

TEST(CorruptInput, HeaderTablesOutsideTheFileNameTheTableAndOffset) {
  auto files = buildFiles(richModel());
  for (const HeaderTable& table : kTables) {
    for (int32_t offset : {int32_t(files.mdl.size()), -400, 0x7FFFFFF0}) {
      auto model = loadPatchedMdl(files, table.offsetField, offset);
      ASSERT_FALSE(model) << table.what << " at " << offset;
      EXPECT_NE(model.message().find(table.what), std::string::npos) << model.message();
      EXPECT_NE(model.message().find("models/props/crate.mdl: "), std::string::npos) << model.message();
    }
    for (int32_t count : {-1, 0x7FFFFFFF, 1 << 20}) {
      auto model = loadPatchedMdl(files, table.countField, count);
      ASSERT_FALSE(model) << table.what << " count " << count;
      EXPECT_NE(model.message().find(table.what), std::string::npos) << model.message();
    }
  }
}

TEST(CorruptInput, NestedRecordsOutsideTheFileAreFound) {
  auto files = buildFiles(richModel());
  struct Case {
    std::string key;
    size_t field;
    const char* expected;
  };
  const Case cases[] = {
      {mdlforge::placeKey("bodypart", {0}), 12, "bodypart[0].model table"},
      {mdlforge::placeKey("model", {0, 0}), 76, "bodypart[0].model[0].mesh table"},
      {mdlforge::placeKey("model", {0, 0}), 72, "bodypart[0].model[0].mesh table"},
      {mdlforge::placeKey("texture", {1}), 0, "texture[1].name"},
      {mdlforge::placeKey("bone", {1}), 0, "bone[1].name"},
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
  for (const Case& c : cases) {
    size_t field = files.where.mdl.at(c.key) + c.field;
    for (int32_t value : {int32_t(files.mdl.size()) * 2, -int32_t(files.where.mdl.at(c.key)) - 8}) {
      auto model = loadPatchedMdl(files, field, value);
      ASSERT_FALSE(model) << c.key << "+" << c.field << " = " << value;
      EXPECT_NE(model.message().find(c.expected), std::string::npos) << model.message();
    }
  }
}

TEST(CorruptInput, StringsWithoutTerminatorAreRefused) {
  mdlforge::Description d = richModel();
  auto files = buildFiles(d);
  // Point the last texture's name at the file's final byte, which is not a NUL.
  size_t texture = files.where.mdl.at(mdlforge::placeKey("texture", {1}));
  std::vector<uint8_t> bytes = files.mdl;
  bytes.back() = 'x';
  int32_t relative = int32_t(bytes.size() - 1 - texture);
  FamilyFiles family = familyFiles(files);
  family.mdl = patch(bytes, texture, relative);
  auto model = loadModelFamily(std::move(family));
  ASSERT_FALSE(model);
  EXPECT_NE(model.message().find("not a terminated string"), std::string::npos) << model.message();
}

TEST(CorruptInput, GarbageOfEveryLengthNeverLoads) {
  // Bytes that look like nothing: deterministic noise of many sizes.
  uint32_t state = 12345;
  LogCapture quiet;
  for (size_t size : {0, 1, 4, 407, 408, 409, 1000, 4096}) {
    std::vector<uint8_t> noise(size);
    for (uint8_t& b : noise) b = uint8_t((state = state * 1103515245u + 12345u) >> 16);
    if (size >= 8) {
      std::memcpy(noise.data(), "IDST", 4);
      int32_t version = 48;
      std::memcpy(noise.data() + 4, &version, 4);
    }
    FamilyFiles family{"noise.mdl", noise, "noise.dx90.vtx", noise, "noise.qvd", noise};
    EXPECT_FALSE(loadModelFamily(std::move(family))) << size;
  }
}

}  // namespace
}  // namespace zv::legacy
