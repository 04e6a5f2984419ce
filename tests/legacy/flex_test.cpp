// Flex records: read as written, and each broken piece costs only itself with a note
// naming the file, the record and the offset, while the geometry still loads.

#include <gtest/gtest.h>

#include <bit>

#include "base/log.h"
#include "legacy/family.h"
#include "mdlforge/byte_writer.h"
#include "support/model_fixtures.h"

namespace zv::legacy {
namespace {

using zv::testing::buildFiles;
using zv::testing::faceModel;
using zv::testing::familyFiles;

MdlFile loadMdl(const mdlforge::ModelFiles& files) {
  auto model = loadModelFamily(familyFiles(files));
  EXPECT_TRUE(model) << model.message();
  return model ? std::move(model->mdl) : MdlFile{};
}

std::vector<VertexDelta> decoded(const MeshFlex& flex) {
  std::vector<VertexDelta> out;
  flex.deltas.forEach([&](const VertexDelta& delta) { out.push_back(delta); });
  return out;
}

// Every 16-bit pattern: finite halves decode exactly as the general decoder does (bit
// for bit, signed zeros and subnormals too); infinities and NaNs read as +0.
TEST(FlexLoad, EveryDeltaHalfDecodesLikeTheGeneralDecoderOrAsZero) {
  const float* values = deltaHalfValues();
  for (uint32_t half = 0; half < 65536; ++half) {
    bool finite = (half & 0x7C00u) != 0x7C00u;
    uint32_t want = std::bit_cast<uint32_t>(finite ? halfToFloat(uint16_t(half)) : 0.0f);
    ASSERT_EQ(std::bit_cast<uint32_t>(values[half]), want) << std::hex << half;
  }
}

TEST(FlexLoad, TablesAndMeshRecordsReadAsWritten) {
  MdlFile mdl = loadMdl(buildFiles(faceModel()));
  EXPECT_TRUE(mdl.notes.empty());
  const FlexTables& t = mdl.flexes;
  EXPECT_EQ(t.descriptors, (std::vector<std::string>{"smile_r", "smile_l", "blink", "mid", "pucker"}));
  ASSERT_EQ(t.controllers.size(), 4u);
  EXPECT_EQ(t.controllers[3].type, "head");
  EXPECT_EQ(t.controllers[3].name, "head_turn");
  EXPECT_EQ(t.controllers[3].min, -30);
  EXPECT_EQ(t.controllers[3].max, 30);
  ASSERT_EQ(t.rules.size(), 5u);
  EXPECT_EQ(t.rules[2].target, 3);
  ASSERT_EQ(t.rules[2].ops.size(), 3u);
  EXPECT_EQ(t.rules[2].ops[0].code, kFlexConst);
  EXPECT_EQ(t.rules[2].ops[0].value, 1.0f);
  EXPECT_EQ(t.rules[2].ops[1].index, 2);
  // UI slots are offsets to controller records, read back as controller indices.
  ASSERT_EQ(t.controllerUis.size(), 3u);
  EXPECT_EQ(t.controllerUis[0].name, "smile");
  EXPECT_EQ(t.controllerUis[0].controllers, (std::array<int32_t, 3>{0, 1, -1}));
  EXPECT_TRUE(t.controllerUis[0].stereo);
  EXPECT_EQ(t.controllerUis[2].controllers, (std::array<int32_t, 3>{3, -1, -1}));

  const std::vector<MeshFlex>& flexes = mdl.bodyParts[0].models[0].meshes[0].flexes;
  ASSERT_EQ(flexes.size(), 4u);
  EXPECT_EQ(flexes[0].partner, 1);
  EXPECT_EQ(flexes[1].partner, -1);  // 0 on disk: none
  EXPECT_EQ(flexes[1].window, (std::array<float, 4>{-11, -10, -0.5f, 0}));
  std::vector<VertexDelta> first = decoded(flexes[0]);
  ASSERT_EQ(first.size(), 3u);
  EXPECT_EQ(flexes[0].deltas.size(), 3u);
  EXPECT_EQ(first[1].vertex, 1);
  EXPECT_EQ(first[1].side, 255);
  EXPECT_EQ(first[1].position, (Vector3{0, 0, 0.25f}));
  // The 18-byte form: records packed, the wrinkle half after the normal.
  EXPECT_TRUE(flexes[3].wrinkle);
  ASSERT_EQ(flexes[3].deltas.size(), 1u);
  VertexDelta wrinkled = decoded(flexes[3]).at(0);
  EXPECT_EQ(wrinkled.position, (Vector3{0, -0.5f, 0}));
  EXPECT_EQ(wrinkled.wrinkle, 0.75f);
}

TEST(FlexLoad, EveryOpCodeIsKeptWithItsOperand) {
  mdlforge::Description d = faceModel();
  std::vector<mdlforge::FlexOp> ops;
  for (int32_t code = 1; code <= 22; ++code) ops.push_back({code, 0.5f, code == 3 ? 2 : 1});
  d.flexRules = {{0, ops}};
  MdlFile mdl = loadMdl(buildFiles(d));
  ASSERT_EQ(mdl.flexes.rules.size(), 1u);
  const std::vector<FlexOp>& read = mdl.flexes.rules[0].ops;
  ASSERT_EQ(read.size(), 22u);
  EXPECT_EQ(read[0].value, 0.5f);
  for (size_t k = 1; k < read.size(); ++k) EXPECT_EQ(read[k].index, k == 2 ? 2 : 1) << k;
  EXPECT_EQ(read[21].code, 22);  // unknown codes are the converter's to judge
}

struct Patch {
  std::string record;
  size_t field;
  int32_t value;
  const char* note;  // a piece of the one note expected
};

// Each patch breaks one piece; the model loads, with the mesh and one note.
TEST(FlexLoad, ABrokenPieceCostsOnlyItself) {
  auto files = buildFiles(faceModel());
  int32_t far = int32_t(files.mdl.size()) * 2;
  const Patch patches[] = {
      {"", 264, far, "flex descriptor table (5 x 4 bytes) at offset"},
      {"", 272, -9000, "flex controller table"},
      {"", 276, 1 << 30, "flex rule table has an invalid count"},
      {"flexrule[1]", 0, 5, "flexrule[1] at offset"},
      {"flexops[3]", 12, 9, "flexrule[3]: op 3 at offset"},
      {"flexops[0]", 4, 4, "names controller 4 of 4"},
      {"flexrule[2]", 8, far, "flexrule[2].op table"},
      {"flexui[1]", 4, 3, "does not point at a flex controller record"},
      {"flexdesc[2]", 0, far, "flexdescriptor[2].name"},
      {"mesh[0][0][0]", 20, far, "bodypart[0].model[0].mesh[0].flex table"},
      {"flex[0][0][0][1]", 0, 7, "bodypart[0].model[0].mesh[0].flex[1] at offset"},
      {"flex[0][0][0][2]", 20, 1 << 20, "bodypart[0].model[0].mesh[0].flex[2].vertex animation table"},
      {"flex[0][0][0][3]", 32, 2, "unknown vertex animation form 2"},
      {"flex[0][0][0][0]", 28, 99, "names partner descriptor 99 of 5"},
  };
  LogCapture quiet;
  for (const Patch& p : patches) {
    FamilyFiles family = familyFiles(files);
    size_t at = (p.record.empty() ? 0 : files.where.mdl.at(p.record)) + p.field;
    mdlforge::poke<int32_t>(family.mdl, at, p.value);
    auto model = loadModelFamily(std::move(family));
    ASSERT_TRUE(model) << p.record << ": " << model.message();
    const MdlFile& mdl = model->mdl;
    ASSERT_EQ(mdl.notes.size(), 1u) << p.record << "+" << p.field;
    EXPECT_EQ(mdl.notes[0].rfind("models/props/crate.mdl: ", 0), 0u) << mdl.notes[0];
    EXPECT_NE(mdl.notes[0].find(p.note), std::string::npos) << mdl.notes[0];
    EXPECT_EQ(mdl.bodyParts[0].models[0].meshes.size(), 1u);
  }
}

TEST(FlexLoad, WhatEachBreakLeavesBehind) {
  auto files = buildFiles(faceModel());
  LogCapture quiet;
  auto patched = [&](const std::string& record, size_t field, int32_t value) {
    FamilyFiles family = familyFiles(files);
    mdlforge::poke<int32_t>(family.mdl, files.where.mdl.at(record) + field, value);
    auto model = loadModelFamily(std::move(family));
    return model ? std::move(model->mdl) : MdlFile{};
  };
  // A rule with a bad operand goes; the others stay in order.
  MdlFile mdl = patched("flexops[0]", 4, 17);
  ASSERT_EQ(mdl.flexes.rules.size(), 4u);
  EXPECT_EQ(mdl.flexes.rules[0].target, 1);
  // A descriptor with a broken name keeps its place, since rules and meshes count on it.
  mdl = patched("flexdesc[2]", 0, -100000);
  ASSERT_EQ(mdl.flexes.descriptors.size(), 5u);
  EXPECT_EQ(mdl.flexes.descriptors[2], "");
  EXPECT_EQ(mdl.flexes.descriptors[3], "mid");
  // A vertex past the mesh's 6 is refused (here the first and the last of three), the
  // record's other deltas stay.
  size_t anims = files.where.mdl.at("vertanims[0][0][0][0]");
  FamilyFiles family = familyFiles(files);
  mdlforge::poke<uint16_t>(family.mdl, anims, 6);
  mdlforge::poke<uint16_t>(family.mdl, anims + 32, 0xFFFF);
  auto model = loadModelFamily(std::move(family));
  ASSERT_TRUE(model);
  const MeshFlex& smile = model->mdl.bodyParts[0].models[0].meshes[0].flexes[0];
  // The refused record is passed over wherever it lies; the count says so too.
  std::vector<VertexDelta> kept = decoded(smile);
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(smile.deltas.size(), 1u);
  EXPECT_EQ(kept[0].vertex, 1);
  EXPECT_EQ(kept[0].side, 255);
  ASSERT_EQ(model->mdl.notes.size(), 1u);
  EXPECT_NE(model->mdl.notes[0].find("2 of its 3 vertex animations name vertices past the mesh's 6"),
            std::string::npos)
      << model->mdl.notes[0];
}

// Before version 48 the UI fields of the header are unused and may hold anything.
TEST(FlexLoad, VersionsBefore48HaveNoControllerUiTable) {
  mdlforge::Description d = faceModel();
  d.version = 44;
  auto files = buildFiles(d);
  mdlforge::poke<int32_t>(files.mdl, 384, 0x7FFFFFFF);
  mdlforge::poke<int32_t>(files.mdl, 388, -5);
  MdlFile mdl = loadMdl(files);
  EXPECT_TRUE(mdl.notes.empty());
  EXPECT_TRUE(mdl.flexes.controllerUis.empty());
  EXPECT_EQ(mdl.flexes.rules.size(), 5u);
}

// Non-finite halves (the compiler writes NaN as 0) read as 0.
TEST(FlexLoad, NonFiniteDeltasReadAsZero) {
  auto files = buildFiles(faceModel());
  size_t anims = files.where.mdl.at("vertanims[0][0][0][0]");
  mdlforge::poke<uint16_t>(files.mdl, anims + 4, 0x7E00);   // NaN
  mdlforge::poke<uint16_t>(files.mdl, anims + 10, 0xFC00);  // -infinity
  MdlFile mdl = loadMdl(files);
  VertexDelta delta = decoded(mdl.bodyParts[0].models[0].meshes[0].flexes[0]).at(0);
  EXPECT_EQ(delta.position, (Vector3{0, 0, 0.25f}));
  EXPECT_EQ(delta.normal, Vector3{});
}

// Every cut of the model file fails it or loads with a note of what the cut took.
TEST(FlexLoad, EveryTruncationFailsOrSaysWhatItLost) {
  auto files = buildFiles(faceModel());
  FamilyFiles whole = familyFiles(files);
  LogCapture quiet;
  size_t silent = 0;
  for (size_t size = 0; size < whole.mdl.size(); ++size) {
    FamilyFiles family = familyFiles(files);
    family.mdl = std::vector<uint8_t>(whole.mdl.begin(), whole.mdl.begin() + ptrdiff_t(size));
    auto model = loadModelFamily(std::move(family));
    silent += model.ok() && model->mdl.notes.empty();
  }
  EXPECT_EQ(silent, 0u);
}

}  // namespace
}  // namespace zv::legacy
