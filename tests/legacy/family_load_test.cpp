#include "legacy/family.h"

#include <gtest/gtest.h>

#include <tuple>

#include "base/log.h"
#include "mdlforge/byte_writer.h"
#include "support/model_fixtures.h"

namespace zv::legacy {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::familyFiles;

Result<LegacyModel> load(const mdlforge::Description& d) {
  return loadModelFamily(familyFiles(buildFiles(d)));
}

TEST(FamilyLoad, DecodesTheTablesOfAModel) {
  mdlforge::Description d = crateModel();
  d.longName = "props/crate_long.mdl";
  d.textures = {"crate", "crate_dirty"};
  d.textureDirs = {"models\\props\\", "models\\shared\\"};
  d.skinFamilies = {{0, 1}, {1, 0}};
  d.poseParameters = {{"move_yaw", 1, -180, 180, 360}};
  d.keyValues = "\"prop_data\" { \"allowstatic\" \"1\" }";
  d.bodyParts[0].models[0].meshes.push_back(zv::testing::triangleMesh(1, 1, 5));
  auto model = load(d);
  ASSERT_TRUE(model) << model.message();
  const MdlFile& mdl = model->mdl;
  EXPECT_EQ(mdl.header.name + " " + mdl.modelName(), "models/props/crate.mdl props/crate_long.mdl");
  ASSERT_TRUE(mdl.bodyParts.size() == 1 && mdl.bodyParts[0].models.size() == 1);
  const SubModel& crate = mdl.bodyParts[0].models[0];
  EXPECT_EQ(mdl.bodyParts[0].name + "/" + crate.name, "body/crate");
  ASSERT_EQ(crate.meshes.size(), 2u);
  const Mesh& second = crate.meshes[1];
  EXPECT_EQ((std::array{second.material, second.vertexCount, second.vertexOffset}), (std::array{1, 3, 6}));
  ASSERT_EQ(mdl.textures.size(), 2u);
  EXPECT_EQ(mdl.textures[1].name, "crate_dirty");
  EXPECT_EQ(mdl.textureDirs, d.textureDirs);
  EXPECT_EQ(mdl.skins, (std::vector<std::vector<int16_t>>{{0, 1}, {1, 0}}));
  ASSERT_EQ(mdl.poseParams.size(), 1u);
  EXPECT_EQ(mdl.poseParams[0].name, "move_yaw");
  EXPECT_EQ(mdl.poseParams[0].end, 180.0f);
  EXPECT_EQ(mdl.keyValues, d.keyValues);
  ASSERT_TRUE(model->strips && model->vertices);
  EXPECT_EQ(model->vertices->vertices().size(), 9u);
  EXPECT_TRUE(model->vertices->hasTangents());
}

// Activity modifiers and anim tags sit in fields that most files leave unused: they are
// taken only from the versions that have them and only when every name reads.
TEST(FamilyLoad, ActivityModifiersAndAnimTagsOnlyWhereTheyCheckOut) {
  mdlforge::Description d = crateModel();
  d.version = 49;
  mdlforge::Sequence walk;
  walk.name = "walk";
  walk.activityModifiers = {"fast", "armed"};
  d.animations = {mdlforge::Animation{}};
  d.sequences = {walk};
  auto files = buildFiles(d);
  // Two anim tags (index, cycle, name offset) and their names, added at the end.
  size_t sequence = files.where.mdl.at("sequence[0]");
  size_t tags = files.mdl.size();
  mdlforge::ByteWriter w;
  w.i32(0), w.f32(0.25f), w.i32(24), w.i32(1), w.f32(0.75f), w.i32(12 + 5);
  w.cstring("step"), w.cstring("land");
  files.mdl.insert(files.mdl.end(), w.bytes().begin(), w.bytes().end());
  mdlforge::poke<int32_t>(files.mdl, sequence + 192, int32_t(tags - sequence));
  mdlforge::poke<int32_t>(files.mdl, sequence + 196, 2);
  auto model = loadModelFamily(familyFiles(files));
  ASSERT_TRUE(model) << model.message();
  const SequenceDesc& seq = model->mdl.sequences.at(0);
  EXPECT_EQ(seq.activityModifiers, (std::vector<std::string>{"fast", "armed"}));
  EXPECT_EQ(seq.animTags, (std::vector<std::pair<std::string, float>>{{"step", 0.25f}, {"land", 0.75f}}));
  // A name that does not read drops the whole list, and so does another version.
  mdlforge::poke<int32_t>(files.mdl, tags + 20, 9999999);
  EXPECT_TRUE(loadModelFamily(familyFiles(files))->mdl.sequences.at(0).animTags.empty());
  mdlforge::poke<int32_t>(files.mdl, 4, 48);
  files.mdl.resize(tags);
  auto older = loadModelFamily(familyFiles(files));
  ASSERT_TRUE(older);
  EXPECT_EQ(older->mdl.sequences.at(0).activityModifiers.size(), 2u);
  mdlforge::poke<int32_t>(files.mdl, 4, 47);
  EXPECT_TRUE(loadModelFamily(familyFiles(files))->mdl.sequences.at(0).activityModifiers.empty());
}

TEST(FamilyLoad, ReadsEveryVersionFrom44To49AndNoOther) {
  for (int32_t version = 43; version <= 50; ++version) {
    mdlforge::Description d = crateModel();
    d.version = version;
    auto model = load(d);
    bool supported = version >= 44 && version <= 49;
    ASSERT_EQ(model.ok(), supported) << version;
    if (!supported) {
      EXPECT_EQ(model.message(), "models/props/crate.mdl: model version " + std::to_string(version) +
                                     " is not supported (versions 44 to 49 are)");
    }
  }
}

// A companion file of another version or model is reported once and dropped, the other
// file still loads; the version is checked before the checksum. Missing files are silent.
TEST(FamilyLoad, CompanionFilesOfAnotherVersionOrModelAreReportedOnceAndDropped) {
  // What changes, the one message, whether the strip file and the vertex file load.
  const std::tuple<void (*)(mdlforge::Description&), const char*, bool, bool> cases[] = {
      {[](mdlforge::Description& d) { d.strip.version = 6, d.strip.checksum = 12345; },
       "Error! Invalid VTX file version: 6, expected 7 \"models/props/crate.dx90.vtx\"\n", false, true},
      {[](mdlforge::Description& d) { d.strip.checksum = 777; },
       "Error! Invalid VTX file checksum: 777, expected 252579084 \"models/props/crate.dx90.vtx\"\n", false,
       true},
      {[](mdlforge::Description& d) { d.vertexFile.version = 3, d.vertexFile.checksum = 12345; },
       "Error! Invalid QVD file version: 3, expected 4 \"models/props/crate.qvd\"\n", true, false},
      {[](mdlforge::Description& d) { d.vertexFile.checksum = -5; },
       "Error! Invalid QVD file checksum: -5, expected 252579084 \"models/props/crate.qvd\"\n", true, false},
      {[](mdlforge::Description& d) { d.strip.write = false, d.vertexFile.write = false; }, "", false, false},
  };
  for (auto [change, message, strips, vertices] : cases) {
    SCOPED_TRACE(message);
    mdlforge::Description d = crateModel();
    change(d);
    LogCapture log;
    auto model = load(d);
    ASSERT_TRUE(model) << model.message();
    EXPECT_EQ(model->strips.has_value(), strips);
    EXPECT_EQ(model->vertices.has_value(), vertices);
    EXPECT_EQ(log.text(), message);
  }
}

TEST(FamilyLoad, VertexFileWithAWrongIdFailsTheModel) {
  mdlforge::Description d = crateModel();
  d.vertexFile.id = 1234;
  LogCapture log;
  EXPECT_FALSE(load(d));
  EXPECT_EQ(log.count("Error Vertex File models/props/crate.qvd id 1234 should be 1448297545\n"), 1u);
}

TEST(FamilyLoad, BoneParentsMustFormATree) {
  // Parents of bones 0 and 1: the second bone as its own parent, one out of range, one
  // below -1, a bone whose parent's own parent is out of range (the chain must not be
  // walked before every index is known good), and two bones that are each other's parent.
  const std::tuple<int32_t, int32_t, const char*, const char*> cases[] = {
      {-1, 1, "bone[1] at offset ", "has parent 1, outside -1..1"},
      {-1, 5, "bone[1] at offset ", "has parent 5, outside"},
      {-1, -2, "bone[1] at offset ", "has parent -2, outside"},
      {1, 5000, "bone[1] at offset ", "has parent 5000, outside"},
      {1, 0, "bone[0] at offset ", ": its parent chain loops"}};
  for (auto [first, second, bone, problem] : cases) {
    mdlforge::Description d = crateModel();
    d.bones[0].parent = first;
    d.bones.push_back(d.bones[0]);
    d.bones[1].name = "child";
    d.bones[1].parent = second;
    auto model = load(d);
    ASSERT_FALSE(model) << problem;
    EXPECT_NE(model.message().find(bone), std::string::npos) << model.message();
    EXPECT_NE(model.message().find(problem), std::string::npos) << model.message();
  }
}

TEST(FamilyLoad, StripFileMustMatchTheModel) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].meshes[0].lods[0][0].vertices[2] = 40;  // the mesh has 6 vertices
  auto model = load(d);
  ASSERT_FALSE(model);
  EXPECT_NE(model.message().find("crate.dx90.vtx: bodypart[0].model[0].lod[0].mesh[0] names vertex 40 of 6"),
            std::string::npos)
      << model.message();

  auto files = buildFiles(crateModel());
  mdlforge::poke<int32_t>(*files.vtx, 28, 0);  // the strip file's body part count
  model = loadModelFamily(familyFiles(files));
  ASSERT_FALSE(model);
  EXPECT_NE(model.message().find("crate.dx90.vtx: has 0 body parts"), std::string::npos) << model.message();
}

}  // namespace
}  // namespace zv::legacy
