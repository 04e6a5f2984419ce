#include "legacy/family.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "support/model_fixtures.h"

namespace zv::legacy {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::familyFiles;

Result<LegacyModel> load(const mdlforge::Description& d) { return loadModelFamily(familyFiles(buildFiles(d))); }

TEST(FamilyLoad, DecodesTheTablesOfAModel) {
  mdlforge::Description d = crateModel();
  d.longName = "props/crate_long.mdl";
  d.textures = {"crate", "crate_dirty"};
  d.textureDirs = {"models\\props\\", "models\\shared\\"};
  d.skinFamilies = {{0, 1}, {1, 0}};
  d.poseParameters = {{"move_yaw", 1, -180, 180, 360}};
  d.keyValues = "\"prop_data\" { \"allowstatic\" \"1\" }";
  auto model = load(d);
  ASSERT_TRUE(model) << model.message();
  const MdlFile& mdl = model->mdl;
  EXPECT_EQ(mdl.header.name, "models/props/crate.mdl");
  EXPECT_EQ(mdl.modelName(), "props/crate_long.mdl");
  ASSERT_EQ(mdl.bones.size(), 1u);
  EXPECT_EQ(mdl.bones[0].name, "root");
  EXPECT_EQ(mdl.bones[0].parent, -1);
  ASSERT_EQ(mdl.bodyParts.size(), 1u);
  EXPECT_EQ(mdl.bodyParts[0].name, "body");
  ASSERT_EQ(mdl.bodyParts[0].models.size(), 1u);
  EXPECT_EQ(mdl.bodyParts[0].models[0].name, "crate");
  EXPECT_EQ(mdl.bodyParts[0].models[0].meshes.size(), 1u);
  EXPECT_EQ(mdl.textures.size(), 2u);
  EXPECT_EQ(mdl.textures[1].name, "crate_dirty");
  EXPECT_EQ(mdl.textureDirs, (std::vector<std::string>{"models\\props\\", "models\\shared\\"}));
  EXPECT_EQ(mdl.skins, (std::vector<std::vector<int16_t>>{{0, 1}, {1, 0}}));
  ASSERT_EQ(mdl.poseParams.size(), 1u);
  EXPECT_EQ(mdl.poseParams[0].name, "move_yaw");
  EXPECT_EQ(mdl.poseParams[0].end, 180.0f);
  EXPECT_EQ(mdl.keyValues, d.keyValues);
  ASSERT_TRUE(model->strips);
  ASSERT_TRUE(model->vertices);
  EXPECT_EQ(model->vertices->vertices().size(), 6u);
  EXPECT_TRUE(model->vertices->hasTangents());
}

TEST(FamilyLoad, ReadsEveryVersionFrom44To49AndNoOther) {
  for (int32_t version : {43, 44, 47, 48, 49, 50}) {
    mdlforge::Description d = crateModel();
    d.version = version;
    LogCapture log;
    auto model = load(d);
    bool supported = version >= 44 && version <= 49;
    EXPECT_EQ(model.ok(), supported) << version;
    if (!supported) {
      EXPECT_NE(model.message().find("model version " + std::to_string(version)), std::string::npos) << model.message();
      EXPECT_NE(model.message().find("models/props/crate.mdl"), std::string::npos);
    }
  }
}

TEST(FamilyLoad, StripFileOfAnotherVersionIsReportedOnceAndDropped) {
  mdlforge::Description d = crateModel();
  d.strip.version = 6;
  d.strip.checksum = 12345;  // wrong too, but the version is checked first
  LogCapture log;
  auto model = load(d);
  ASSERT_TRUE(model);
  EXPECT_FALSE(model->strips);
  EXPECT_EQ(log.text(), "Error! Invalid VTX file version: 6, expected 7 \"models/props/crate.dx90.vtx\"\n");
}

TEST(FamilyLoad, StripFileOfAnotherModelIsReportedAndDropped) {
  mdlforge::Description d = crateModel();
  d.strip.checksum = 777;
  LogCapture log;
  auto model = load(d);
  ASSERT_TRUE(model);
  EXPECT_FALSE(model->strips);
  EXPECT_EQ(log.text(), "Error! Invalid VTX file checksum: 777, expected 252579084 \"models/props/crate.dx90.vtx\"\n");
}

TEST(FamilyLoad, VertexFileWithAWrongIdFailsTheModel) {
  mdlforge::Description d = crateModel();
  d.vertexFile.id = 1234;
  LogCapture log;
  auto model = load(d);
  EXPECT_FALSE(model);
  EXPECT_EQ(log.count("Error Vertex File models/props/crate.qvd id 1234 should be 1448297545\n"), 1u);
}

TEST(FamilyLoad, VertexFileOfAnotherVersionOrModelIsDroppedWithOneMessage) {
  {
    mdlforge::Description d = crateModel();
    d.vertexFile.version = 3;
    d.strip.write = false;
    LogCapture log;
    auto model = load(d);
    ASSERT_TRUE(model);
    EXPECT_FALSE(model->vertices);
    EXPECT_EQ(log.text(), "Error! Invalid QVD file version: 3, expected 4 \"models/props/crate.qvd\"\n");
  }
  {
    mdlforge::Description d = crateModel();
    d.vertexFile.checksum = -5;
    LogCapture log;
    auto model = load(d);
    ASSERT_TRUE(model);
    EXPECT_FALSE(model->vertices);
    EXPECT_TRUE(model->strips);
    EXPECT_EQ(log.text(), "Error! Invalid QVD file checksum: -5, expected 252579084 \"models/props/crate.qvd\"\n");
  }
}

TEST(FamilyLoad, MissingCompanionFilesAreSilent) {
  mdlforge::Description d = crateModel();
  d.strip.write = false;
  d.vertexFile.write = false;
  LogCapture log;
  auto model = load(d);
  ASSERT_TRUE(model);
  EXPECT_FALSE(model->strips);
  EXPECT_FALSE(model->vertices);
  EXPECT_TRUE(log.records().empty());
}

TEST(FamilyLoad, BoneParentsMustFormATree) {
  for (int32_t parent : {1, 5, -2}) {
    mdlforge::Description d = crateModel();
    mdlforge::Bone child;
    child.name = "child";
    child.parent = parent;
    d.bones.push_back(child);
    auto model = load(d);
    EXPECT_FALSE(model) << "parent " << parent;
    if (!model) {
      EXPECT_NE(model.message().find("bone[1]"), std::string::npos) << model.message();
    }
  }
  mdlforge::Description loop = crateModel();
  loop.bones[0].parent = 1;
  mdlforge::Bone other;
  other.name = "other";
  other.parent = 0;
  loop.bones.push_back(other);
  auto model = load(loop);
  ASSERT_FALSE(model);
  EXPECT_NE(model.message().find("loops"), std::string::npos) << model.message();
}

TEST(FamilyLoad, StripVerticesMustNameExistingVertices) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].meshes[0].lods[0][0].vertices[2] = 40;  // the mesh has 6 vertices
  auto model = load(d);
  ASSERT_FALSE(model);
  EXPECT_NE(model.message().find("names vertex"), std::string::npos) << model.message();
}

TEST(FamilyLoad, StripFileMustRunParallelToTheModel) {
  mdlforge::Description d = crateModel();
  auto files = buildFiles(d);
  // Drop the strip file's body part count to zero.
  uint8_t* header = files.vtx->data();
  std::fill(header + 28, header + 32, 0);
  auto model = loadModelFamily(familyFiles(files));
  ASSERT_FALSE(model);
  EXPECT_NE(model.message().find("crate.dx90.vtx: has 0 body parts"), std::string::npos) << model.message();
}

}  // namespace
}  // namespace zv::legacy
