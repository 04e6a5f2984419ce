// The model document writer on forged models: each test loads a legacy model, fills the
// tables the geometry stage would have filled where it needs them, writes the document and
// reads it back with the strict KV3 reader.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "base/log.h"
#include "importer/converter.h"
#include "kv/kv3.h"
#include "kv/kv3_external_check.h"
#include "modeldoc/model_document.h"
#include "support/model_fixtures.h"
#include "support/test_support.h"

namespace zv {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::readText;
using zv::testing::TempDir;
using zv::testing::writeFamily;

// ---- reading documents back --------------------------------------------------------------

std::vector<const Kv3Value*> childrenOf(const Kv3Value& node, std::string_view nodeClass = {}) {
  std::vector<const Kv3Value*> found;
  const Kv3Value* children = node.find("children");
  if (children == nullptr) return found;
  for (const Kv3Value& child : children->elements()) {
    const Kv3Value* cls = child.find("_class");
    if (nodeClass.empty() || (cls != nullptr && cls->asString() == nodeClass)) found.push_back(&child);
  }
  return found;
}

// The first child of that class; fails the test when there is none.
const Kv3Value& childOf(const Kv3Value& node, std::string_view nodeClass) {
  static const Kv3Value kMissing = Kv3Value::makeObject();
  std::vector<const Kv3Value*> found = childrenOf(node, nodeClass);
  EXPECT_FALSE(found.empty()) << "no " << nodeClass << " node";
  return found.empty() ? kMissing : *found.front();
}

bool hasChild(const Kv3Value& node, std::string_view nodeClass) {
  return !childrenOf(node, nodeClass).empty();
}

std::vector<std::string> classesOf(const Kv3Value& node) {
  std::vector<std::string> classes;
  for (const Kv3Value* child : childrenOf(node)) classes.push_back(child->find("_class")->asString());
  return classes;
}

std::string textOf(const Kv3Value& node, std::string_view key) {
  const Kv3Value* value = node.find(key);
  return value != nullptr && value->isString() ? value->asString() : "<unset>";
}

std::vector<std::string> namesOf(const std::vector<const Kv3Value*>& nodes) {
  std::vector<std::string> names;
  for (const Kv3Value* node : nodes) names.push_back(textOf(*node, "name"));
  return names;
}

std::vector<std::string> stringsOf(const Kv3Value& node, std::string_view key) {
  std::vector<std::string> strings;
  if (const Kv3Value* value = node.find(key)) {
    for (const Kv3Value& element : value->elements()) strings.push_back(element.asString());
  }
  return strings;
}

std::vector<float> floatsOf(const Kv3Value& node, std::string_view key) {
  std::vector<float> floats;
  if (const Kv3Value* value = node.find(key)) {
    for (const Kv3Value& element : value->elements()) floats.push_back(element.asFloat());
  }
  return floats;
}

float floatOf(const Kv3Value& node, std::string_view key) {
  const Kv3Value* value = node.find(key);
  return value != nullptr ? value->asFloat() : NAN;
}

// bool keys: "true", "false" or "<unset>", so that an absent key cannot pass as false.
std::string boolOf(const Kv3Value& node, std::string_view key) {
  const Kv3Value* value = node.find(key);
  if (value == nullptr || value->type() != Kv3Value::Type::Bool) return "<unset>";
  return value->asBool() ? "true" : "false";
}

// A generic game data node's keys as "key=value" in order.
std::vector<std::string> gameKeysOf(const Kv3Value& node) {
  std::vector<std::string> keys;
  if (const Kv3Value* object = node.find("game_keys")) {
    for (const Kv3Member& member : object->members())
      keys.push_back(member.key + "=" + member.value.asString());
  }
  return keys;
}

void expectAngles(const std::vector<float>& angles, QAngle expected) {
  ASSERT_EQ(angles.size(), 3u);
  EXPECT_NEAR(angles[0], expected.pitch, 1e-3);
  EXPECT_NEAR(angles[1], expected.yaw, 1e-3);
  EXPECT_NEAR(angles[2], expected.roll, 1e-3);
}

// ---- forged models and the converter ------------------------------------------------------

mdlforge::Bone bone(std::string name, int32_t parent, Vector3 position = {}, QAngle angles = {}) {
  mdlforge::Bone b;
  b.name = std::move(name);
  b.parent = parent;
  b.position = position;
  b.quaternion = angleQuaternion(angles);
  return b;
}

mdlforge::PoseParameter poseParameter(std::string name, int32_t flags, float start, float end, float loop) {
  return {std::move(name), flags, start, end, loop};
}

mdlforge::SubModel subModel(std::string name, bool withMesh = true) {
  mdlforge::SubModel model;
  model.name = std::move(name);
  if (withMesh) model.meshes = {zv::testing::triangleMesh(0, 1)};
  return model;
}

mdlforge::BodyPart bodyPart(std::string name, std::vector<mdlforge::SubModel> models) {
  mdlforge::BodyPart part;
  part.name = std::move(name);
  part.models = std::move(models);
  return part;
}

// A body group table entry as the geometry stage records it; an empty sub-model has a
// mesh name but no mesh records.
BodyGroupEntry entry(int32_t choice, int32_t lod, std::string meshName, float threshold = 0,
                     bool empty = false) {
  BodyGroupEntry e;
  e.choice = choice;
  e.lod = lod;
  e.meshName = meshName;
  if (!empty) e.meshes = {{meshName, threshold}};
  return e;
}

BodyGroup bodyGroup(std::string name, std::vector<BodyGroupEntry> entries) {
  return {std::move(name), std::move(entries)};
}

// The crate's own table: its single body part, LOD 0.
std::vector<BodyGroup> crateBodyGroups() { return {bodyGroup("body", {entry(0, 0, "crate_bg_body_lod0")})}; }

// One forged model family in a temporary game folder and a converter set up for it: the
// document goes to out/props/crate.qmdl, the output root is out.
struct WriterFixture {
  TempDir dir;
  fs::FileSystem fileSystem{dir.path()};
  Output output{dir.file("out"), nullptr};
  C_ZV_MDL_Import converter{fileSystem, output};
  RunOptions options;

  explicit WriterFixture(const mdlforge::Description& description) {
    EXPECT_TRUE(fileSystem.addSearchPath("", "LOCAL", fs::Placement::Tail));
    writeFamily(buildFiles(description), dir.file("models/props"), "crate");
    options.inputFiles = {dir.file("models/props/crate.mdl")};
    options.baseNames = {"crate"};
    options.outputFolders = {dir.file("out/props")};
    options.outputRoot = dir.file("out");
  }

  // Sets the converter up from the options and loads the model; the tables can be
  // adjusted after this.
  void load() {
    converter.Setup(options, 0);
    ASSERT_TRUE(converter.LoadMDL());
  }

  std::string documentPath() const { return dir.file("out/props/crate.qmdl"); }

  // The saved document's rootNode, read with the strict reader.
  Kv3Value readBack() const {
    Result<Kv3Document> read = readKv3Text(readText(documentPath()));
    EXPECT_TRUE(read.ok()) << (read.ok() ? "" : read.message());
    if (!read.ok()) return Kv3Value::makeObject();
    EXPECT_EQ(read->header.format.name, "modeldoc41");
    const Kv3Value* root = read->root.find("rootNode");
    return root != nullptr ? *root : Kv3Value::makeObject();
  }

  Kv3Value write(bool isStatic = false) {
    EXPECT_TRUE(converter.WriteQmdl(isStatic));
    return readBack();
  }
};

// ---- skeleton --------------------------------------------------------------------------------

TEST(QmdlBones, ChildrenListedBeforeTheirParentsEndUpUnderThem) {
  mdlforge::Description d = crateModel();
  d.bones = {bone("hand", 2, {0, 0, 5}), bone("root", -1), bone("arm", 1, {10, 0, 0}, {0, 90, 0})};
  WriterFixture f(d);
  f.load();
  Kv3Value root = f.write();

  const Kv3Value& skeleton = childOf(root, "Skeleton");
  ASSERT_EQ(namesOf(childrenOf(skeleton)), std::vector<std::string>{"root"});
  const Kv3Value& rootBone = childOf(skeleton, "Bone");
  ASSERT_EQ(namesOf(childrenOf(rootBone)), std::vector<std::string>{"arm"});
  const Kv3Value& arm = childOf(rootBone, "Bone");
  ASSERT_EQ(namesOf(childrenOf(arm)), std::vector<std::string>{"hand"});
  const Kv3Value& hand = childOf(arm, "Bone");
  EXPECT_TRUE(childrenOf(hand).empty());

  EXPECT_EQ(floatsOf(hand, "origin"), (std::vector<float>{0, 0, 5}));
  EXPECT_EQ(floatsOf(arm, "origin"), (std::vector<float>{10, 0, 0}));
  expectAngles(floatsOf(arm, "angles"), {0, 90, 0});
  expectAngles(floatsOf(hand, "angles"), {0, 0, 0});
  EXPECT_EQ(floatOf(arm, "scale"), 1.0f);
  EXPECT_EQ(boolOf(arm, "do_not_discard"), "true");

  EXPECT_EQ(childOf(root, "BoneMarkupList").find("bone_cull_type")->asInt(), 2);
}

TEST(QmdlBones, ABoneThatCannotBeCreatedIsLoggedAndItsChildStaysAtTheTop) {
  mdlforge::Description d = crateModel();
  d.bones = {bone("child", 1, {1, 2, 3}), bone("parent", -1)};
  WriterFixture f(d);
  f.load();
  LogCapture log;
  modeldoc::ModelDocument document;
  document.setNodeLimit(2);  // the skeleton and the first bone
  EXPECT_TRUE(f.converter.writeModelDocument(document, false));

  EXPECT_EQ(log.count("Failed to create bone 'parent'"), 1u);
  Kv3Value root = f.readBack();
  const Kv3Value& skeleton = childOf(root, "Skeleton");
  EXPECT_EQ(namesOf(childrenOf(skeleton)), std::vector<std::string>{"child"});
  EXPECT_EQ(floatsOf(childOf(skeleton, "Bone"), "origin"), (std::vector<float>{1, 2, 3}));
}

TEST(QmdlBones, AChainDeeperThanADocumentHoldsStillSaves) {
  mdlforge::Description d = crateModel();
  d.bones.clear();
  for (int i = 0; i < modeldoc::kMaxNodeDepth + 50; ++i)
    d.bones.push_back(bone("b" + std::to_string(i), i - 1));
  WriterFixture f(d);
  f.load();
  Kv3Value root = f.write();
  // The bones that cannot go deeper wait at the top of the skeleton instead.
  EXPECT_GT(childrenOf(childOf(root, "Skeleton")).size(), 1u);
}

TEST(QmdlBones, NoBonesMeansNoBoneMarkup) {
  WriterFixture f(crateModel());
  f.load();
  f.converter.tables().skeleton.clear();
  Kv3Value root = f.write();
  EXPECT_TRUE(childrenOf(childOf(root, "Skeleton")).empty());
  EXPECT_FALSE(hasChild(root, "BoneMarkupList"));
}

TEST(QmdlBones, AStaticPropSkipsSkeletonMarkupAndPoseParametersButKeepsTheRest) {
  mdlforge::Description d = crateModel();
  d.poseParameters = {poseParameter("move_x", 0, -1, 1, 0)};
  mdlforge::Attachment attachment;
  attachment.name = "top";
  d.attachments = {attachment};
  WriterFixture f(d);
  f.load();
  f.converter.tables().bodyGroups = crateBodyGroups();
  Kv3Value root = f.write(true);
  EXPECT_EQ(classesOf(root), (std::vector<std::string>{"BodyGroupList", "AttachmentList", "RenderMeshList"}));
}

// ---- pose parameters ------------------------------------------------------------------------

TEST(QmdlPoseParameters, NamesThatSanitiseAlikeAreOneParameterAndTheFirstWins) {
  mdlforge::Description d = crateModel();
  d.poseParameters = {poseParameter("move x", 0, -1, 1, 0), poseParameter("move_x", 0, -1, 1, 0),
                      poseParameter("aim yaw", 0, -45, 45, 0), poseParameter("aim_yaw", 0, -90, 90, 0),
                      poseParameter("aim-yaw", 1, -45, 45, 0)};
  WriterFixture f(d);
  f.load();
  LogCapture log;
  Kv3Value root = f.write();

  std::vector<const Kv3Value*> params = childrenOf(childOf(root, "PoseParamList"), "PoseParam");
  ASSERT_EQ(namesOf(params), (std::vector<std::string>{"move_x", "aim_yaw"}));
  EXPECT_EQ(floatOf(*params[1], "poseparam_min"), -45.0f);
  EXPECT_EQ(floatOf(*params[1], "poseparam_max"), 45.0f);
  EXPECT_EQ(boolOf(*params[1], "poseparam_looping"), "false");
  // Equal values pass silently; each differing repeat is reported.
  EXPECT_EQ(log.count("duplicated"), 2u);
  EXPECT_EQ(log.count("Pose param name aim_yaw duplicated, with different values\n"), 2u);
}

TEST(QmdlPoseParameters, AFullCircleLoopsWhateverTheFlagsSay) {
  mdlforge::Description d = crateModel();
  d.poseParameters = {poseParameter("full", 0, -180, 180, 0), poseParameter("almost", 0, -180, 179, 0),
                      poseParameter("flagged", 1, -180, 180, 90), poseParameter("spin", 1, 0, 360, 360)};
  WriterFixture f(d);
  f.load();
  Kv3Value root = f.write();

  std::vector<const Kv3Value*> params = childrenOf(childOf(root, "PoseParamList"));
  ASSERT_EQ(params.size(), 4u);
  EXPECT_EQ(boolOf(*params[0], "poseparam_looping"), "true");
  EXPECT_EQ(floatOf(*params[0], "poseparam_loop"), 360.0f);
  EXPECT_EQ(boolOf(*params[1], "poseparam_looping"), "false");
  EXPECT_EQ(floatOf(*params[1], "poseparam_loop"), 0.0f);
  EXPECT_EQ(floatOf(*params[1], "poseparam_max"), 179.0f);
  // Already looping: its own range stands.
  EXPECT_EQ(boolOf(*params[2], "poseparam_looping"), "true");
  EXPECT_EQ(floatOf(*params[2], "poseparam_loop"), 90.0f);
  EXPECT_EQ(boolOf(*params[3], "poseparam_looping"), "true");
  EXPECT_EQ(floatOf(*params[3], "poseparam_loop"), 360.0f);
}

TEST(QmdlPoseParameters, AParameterThatCannotBeCreatedEndsTheWriterWithoutAFile) {
  mdlforge::Description d = crateModel();
  d.poseParameters = {poseParameter("first", 0, 0, 1, 0), poseParameter("second one", 0, 0, 1, 0)};
  d.skinFamilies = {{0}, {0}};
  WriterFixture f(d);
  f.load();
  f.converter.tables().bodyGroups = crateBodyGroups();
  LogCapture log;
  modeldoc::ModelDocument document;
  // Skeleton, bone, bone markup, the pose parameter list and the first parameter.
  document.setNodeLimit(5);
  EXPECT_FALSE(f.converter.writeModelDocument(document, false));

  ASSERT_EQ(log.count("C_ZV_MDL_Import::WriteQmdl: Couldn't create pose parameter \"second_one\"\n"), 1u);
  for (const LogRecord& record : log.records()) {
    if (record.text.find("Couldn't create") != std::string::npos) {
      EXPECT_EQ(record.severity, Severity::Error);
      EXPECT_EQ(record.channel, kMainChannel);
    }
  }
  EXPECT_FALSE(std::filesystem::exists(f.documentPath()));
  // Nothing after the pose parameters was attempted.
  EXPECT_EQ(document.findRootList("MaterialGroupList"), nullptr);
  EXPECT_EQ(document.findRootList("BodyGroupList"), nullptr);
}

// ---- material groups --------------------------------------------------------------------------

TEST(QmdlMaterialGroups, OneFamilyWritesNoGroups) {
  WriterFixture f(crateModel());
  f.load();
  f.converter.tables().materials.paths = {"materials\\models\\props\\crate.qmat"};
  Kv3Value root = f.write();
  EXPECT_FALSE(hasChild(root, "MaterialGroupList"));
}

TEST(QmdlMaterialGroups, ThreeFamiliesWriteTwoGroupsRemappingEveryColumn) {
  mdlforge::Description d = crateModel();
  d.textures = {"crate", "crate_old"};
  d.skinFamilies = {{0, 1}, {1, 1}, {0, 0}};
  WriterFixture f(d);
  f.load();
  f.converter.tables().materials.paths = {"materials\\Models\\Props\\Crate.qmat",
                                          "materials\\models\\props\\crate (old).qmat"};
  Kv3Value root = f.write();

  std::vector<const Kv3Value*> groups = childrenOf(childOf(root, "MaterialGroupList"), "MaterialGroup");
  ASSERT_EQ(namesOf(groups), (std::vector<std::string>{"1", "2"}));
  const std::string a = "materials/models/props/crate.qmat";
  const std::string b = "materials/models/props/crate__old_.qmat";
  auto remapsOf = [](const Kv3Value& group) {
    std::vector<std::string> pairs;
    if (const Kv3Value* remaps = group.find("remaps")) {
      for (const Kv3Value& remap : remaps->elements())
        pairs.push_back(textOf(remap, "from") + " > " + textOf(remap, "to"));
    }
    return pairs;
  };
  // Columns whose material does not change are remapped too.
  EXPECT_EQ(remapsOf(*groups[0]), (std::vector<std::string>{a + " > " + b, b + " > " + b}));
  EXPECT_EQ(remapsOf(*groups[1]), (std::vector<std::string>{a + " > " + a, b + " > " + a}));
}

TEST(QmdlMaterialGroups, SkinEntriesOutsideTheMaterialTableRemapToNothing) {
  mdlforge::Description d = crateModel();
  d.textures = {"crate", "crate_old"};
  d.skinFamilies = {{0, 1}, {1, 7}};
  WriterFixture f(d);
  f.load();
  // Only the first material resolved a slot; the second column has no path at all.
  f.converter.tables().materials.paths = {"materials\\crate.qmat", ""};
  Kv3Value root = f.write();
  const Kv3Value& group = childOf(childOf(root, "MaterialGroupList"), "MaterialGroup");
  const Kv3Value* remaps = group.find("remaps");
  ASSERT_NE(remaps, nullptr);
  ASSERT_EQ(remaps->size(), 2u);
  EXPECT_EQ(textOf(remaps->elements()[0], "to"), "");
  EXPECT_EQ(textOf(remaps->elements()[1], "from"), "");
  EXPECT_EQ(textOf(remaps->elements()[1], "to"), "");
}

// ---- body groups, presets, LOD groups and render meshes -------------------------------------

// A body part with one sub-model and one with three (the middle one empty), at two LODs.
struct TwoLodModel {
  mdlforge::Description description = crateModel();
  std::vector<BodyGroup> groups;

  TwoLodModel() {
    description.bodyParts = {
        bodyPart("body", {subModel("crate")}),
        bodyPart("Head Gear", {subModel("h0"), subModel("none", false), subModel("h2")})};
    groups = {
        bodyGroup("body", {entry(0, 0, "crate_bg_body_lod0", 0), entry(0, 1, "crate_bg_body_lod1", 12.5f)}),
        bodyGroup("Head Gear", {entry(0, 0, "crate_bg_head gear_sm0_lod0", 0),
                                entry(0, 1, "crate_bg_head gear_sm0_lod1", 12.5f),
                                entry(1, 0, "crate_bg_head gear_sm1_lod0", 0, true),
                                entry(1, 1, "crate_bg_head gear_sm1_lod1", 0, true),
                                entry(2, 0, "crate_bg_head gear_sm2_lod0", 0),
                                entry(2, 1, "crate_bg_head gear_sm2_lod1", 12.5f)})};
  }
};

TEST(QmdlBodyGroups, ChoicesGatherTheLodsOfASubModelAndAnEmptySubModelIsAnEmptyChoice) {
  TwoLodModel model;
  WriterFixture f(model.description);
  f.load();
  f.converter.tables().bodyGroups = model.groups;
  f.converter.tables().lodCount = 2;
  Kv3Value root = f.write();

  // The single sub-model of "body" is no choice, even with two LOD entries.
  std::vector<const Kv3Value*> groups = childrenOf(childOf(root, "BodyGroupList"));
  ASSERT_EQ(namesOf(groups), std::vector<std::string>{"Head_Gear"});
  EXPECT_EQ(boolOf(*groups[0], "hidden_in_tools"), "false");
  std::vector<const Kv3Value*> choices = childrenOf(*groups[0], "BodyGroupChoice");
  ASSERT_EQ(choices.size(), 3u);
  EXPECT_EQ(textOf(*choices[0], "name"), "<unset>");
  EXPECT_EQ(stringsOf(*choices[0], "meshes"),
            (std::vector<std::string>{"crate_bg_head_gear_sm0_lod0", "crate_bg_head_gear_sm0_lod1"}));
  ASSERT_NE(choices[1]->find("meshes"), nullptr);
  EXPECT_EQ(choices[1]->find("meshes")->size(), 0u);
  EXPECT_EQ(stringsOf(*choices[2], "meshes"),
            (std::vector<std::string>{"crate_bg_head_gear_sm2_lod0", "crate_bg_head_gear_sm2_lod1"}));
}

TEST(QmdlBodyGroups, LodGroupsTakeEveryBodyPartsMeshesAndTheirSwitchThreshold) {
  TwoLodModel model;
  WriterFixture f(model.description);
  f.load();
  f.converter.tables().bodyGroups = model.groups;
  f.converter.tables().lodCount = 2;
  Kv3Value root = f.write();

  std::vector<const Kv3Value*> lods = childrenOf(childOf(root, "LODGroupList"), "LODGroup");
  ASSERT_EQ(lods.size(), 2u);
  EXPECT_EQ(stringsOf(*lods[0], "meshes"),
            (std::vector<std::string>{"crate_bg_body_lod0", "crate_bg_head_gear_sm0_lod0",
                                      "crate_bg_head_gear_sm2_lod0"}));
  EXPECT_EQ(floatOf(*lods[0], "switch_threshold"), 0.0f);
  EXPECT_EQ(stringsOf(*lods[1], "meshes"),
            (std::vector<std::string>{"crate_bg_body_lod1", "crate_bg_head_gear_sm0_lod1",
                                      "crate_bg_head_gear_sm2_lod1"}));
  EXPECT_EQ(floatOf(*lods[1], "switch_threshold"), 12.5f);
}

TEST(QmdlBodyGroups, OneLodWritesNoLodGroups) {
  TwoLodModel model;
  WriterFixture f(model.description);
  f.load();
  f.converter.tables().bodyGroups = model.groups;
  f.converter.tables().lodCount = 1;
  Kv3Value root = f.write();
  EXPECT_FALSE(hasChild(root, "LODGroupList"));
}

TEST(QmdlBodyGroups, EveryMeshGetsARenderMeshFileRelativeToTheOutputRoot) {
  TwoLodModel model;
  WriterFixture f(model.description);
  f.load();
  f.converter.tables().bodyGroups = model.groups;
  f.converter.tables().lodCount = 2;
  Kv3Value root = f.write();

  std::vector<const Kv3Value*> files = childrenOf(childOf(root, "RenderMeshList"), "RenderMeshFile");
  ASSERT_EQ(namesOf(files),
            (std::vector<std::string>{"crate_bg_body_lod0", "crate_bg_body_lod1",
                                      "crate_bg_head_gear_sm0_lod0", "crate_bg_head_gear_sm0_lod1",
                                      "crate_bg_head_gear_sm2_lod0", "crate_bg_head_gear_sm2_lod1"}));
  EXPECT_EQ(textOf(*files[0], "filename"), "props/crate_refs/mesh/crate_bg_body_lod0.dmx");
  // The file keeps the mesh's own name; only the node name is sanitised.
  EXPECT_EQ(textOf(*files[2], "filename"), "props/crate_refs/mesh/crate_bg_head gear_sm0_lod0.dmx");
  EXPECT_EQ(floatOf(*files[0], "import_scale"), 1.0f);
}

TEST(QmdlBodyGroups, NodesThatCannotBeCreatedAreReportedAndSkipped) {
  TwoLodModel model;
  model.description.longName = "models/props/crate_long.mdl";
  WriterFixture f(model.description);
  f.load();
  f.converter.tables().bodyGroups = model.groups;
  LogCapture log;
  modeldoc::ModelDocument document;
  document.setNodeLimit(4);  // skeleton, bone, bone markup and the body group list
  EXPECT_TRUE(f.converter.writeModelDocument(document, false));

  EXPECT_EQ(log.count("Bodygroup error Head Gear\n"), 1u);
  EXPECT_EQ(log.count("failed CreateNode bodyPart"), 6u);
  EXPECT_EQ(log.count("Warning! MDL models/props/crate_long.mdl body part crate_bg_head gear_sm2_lod1 failed "
                      "CreateNode bodyPart\n"),
            1u);
  // What could be made is saved.
  Kv3Value root = f.readBack();
  EXPECT_EQ(classesOf(root), (std::vector<std::string>{"Skeleton", "BoneMarkupList", "BodyGroupList"}));
}

TEST(QmdlPresets, AMaskSelectingTheSecondAndFourthBodyPartsNumbersThemZeroAndOne) {
  mdlforge::Description d = crateModel();
  // Model counts 2, 3, 2, 3 give the bases 1, 2, 6, 12.
  d.bodyParts = {bodyPart("A", {subModel("a0"), subModel("a1", false)}),
                 bodyPart("B part", {subModel("b0"), subModel("b1", false), subModel("b2", false)}),
                 bodyPart("C", {subModel("c0"), subModel("c1", false)}),
                 bodyPart("D", {subModel("d0"), subModel("d1", false), subModel("d2", false)})};
  // B at choice 2, D at choice 1; A and C are left to the model.
  d.presets = {{"second and fourth", 2 * 2 + 1 * 12, 1 * 2 + 1 * 12}, {"nothing", 5, 0}};
  WriterFixture f(d);
  f.load();
  Kv3Value root = f.write();

  std::vector<const Kv3Value*> presets = childrenOf(childOf(root, "GameDataList"), "GenericGameData");
  ASSERT_EQ(presets.size(), 2u);
  EXPECT_EQ(textOf(*presets[0], "game_class"), "bodygroup_preset");
  EXPECT_EQ(textOf(*presets[0], "name"), "<unset>");
  EXPECT_EQ(gameKeysOf(*presets[0]),
            (std::vector<std::string>{"name=second and fourth", "bodygroup_name_0=B_part",
                                      "bodygroup_choice_0=2", "bodygroup_name_1=D", "bodygroup_choice_1=1"}));
  EXPECT_EQ(gameKeysOf(*presets[1]), std::vector<std::string>{"name=nothing"});
}

TEST(QmdlPresets, BodyPartsWithoutABaseOrModelsAreNeverSelected) {
  mdlforge::Description d = crateModel();
  d.bodyParts = {bodyPart("A", {subModel("a0"), subModel("a1", false)}), bodyPart("Z", {}),
                 bodyPart("C", {subModel("c0"), subModel("c1", false)})};
  d.bodyParts[1].base = 0;
  d.bodyParts[2].base = 2;
  d.presets = {{"all", 3, 3}};
  WriterFixture f(d);
  f.load();
  Kv3Value root = f.write();
  EXPECT_EQ(gameKeysOf(childOf(childOf(root, "GameDataList"), "GenericGameData")),
            (std::vector<std::string>{"name=all", "bodygroup_name_0=A", "bodygroup_choice_0=1",
                                      "bodygroup_name_1=C", "bodygroup_choice_1=1"}));
}

// ---- attachments, bounds hull and prefab -----------------------------------------------------

TEST(QmdlAttachments, ParentBonesUseTheSharedBoneNameConversion) {
  mdlforge::Description d = crateModel();
  d.bones = {bone("root", -1), bone("grip \"L\"\\1", 0)};
  mdlforge::Attachment muzzle;
  muzzle.name = "muzzle flash";
  muzzle.bone = 1;
  muzzle.local = angleMatrix(QAngle{10, 20, 30}, Vector3{1, 2, 3});
  mdlforge::Attachment stray;
  stray.name = "stray";
  stray.bone = 7;
  d.attachments = {muzzle, stray};
  WriterFixture f(d);
  f.load();
  Kv3Value root = f.write();

  std::vector<const Kv3Value*> attachments = childrenOf(childOf(root, "AttachmentList"), "Attachment");
  ASSERT_EQ(namesOf(attachments), (std::vector<std::string>{"muzzle_flash", "stray"}));
  EXPECT_EQ(textOf(*attachments[0], "parent_bone"), "grip _L__1");
  EXPECT_EQ(floatsOf(*attachments[0], "relative_origin"), (std::vector<float>{1, 2, 3}));
  expectAngles(floatsOf(*attachments[0], "relative_angles"), {10, 20, 30});
  EXPECT_EQ(floatOf(*attachments[0], "weight"), 1.0f);
  EXPECT_EQ(boolOf(*attachments[0], "ignore_rotation"), "false");
  // A bone index outside the skeleton names no bone.
  EXPECT_EQ(textOf(*attachments[1], "parent_bone"), "");
  // The bone node itself keeps the legacy name.
  EXPECT_EQ(namesOf(childrenOf(childOf(childOf(root, "Skeleton"), "Bone"))),
            std::vector<std::string>{"grip \"L\"\\1"});
}

TEST(QmdlBoundsHull, WrittenFirstAndOnlyWhenAskedFor) {
  mdlforge::Description d = crateModel();
  d.hullMin = {-16, -16, 0};
  d.hullMax = {16, 16, 32.5f};
  WriterFixture plain(d);
  plain.load();
  EXPECT_FALSE(hasChild(plain.write(), "BoundsHull"));

  WriterFixture f(d);
  f.options.headerHullBounds = true;
  f.load();
  Kv3Value root = f.write();
  ASSERT_EQ(classesOf(root).front(), "BoundsHull");
  const Kv3Value& hull = childOf(root, "BoundsHull");
  EXPECT_EQ(textOf(hull, "name"), "bounds_hull");
  EXPECT_EQ(floatsOf(hull, "mins"), (std::vector<float>{-16, -16, 0}));
  EXPECT_EQ(floatsOf(hull, "maxs"), (std::vector<float>{16, 16, 32.5f}));
}

TEST(QmdlBoundsHull, NonFiniteLegacyNumbersAreWrittenAsZero) {
  mdlforge::Description d = crateModel();
  d.hullMin = {NAN, -1, INFINITY};
  d.bones[0].position = {NAN, 2, 3};
  WriterFixture f(d);
  f.options.headerHullBounds = true;
  f.load();
  Kv3Value root = f.write();
  EXPECT_EQ(floatsOf(childOf(root, "BoundsHull"), "mins"), (std::vector<float>{0, -1, 0}));
  EXPECT_EQ(floatsOf(childOf(childOf(root, "Skeleton"), "Bone"), "origin"), (std::vector<float>{0, 2, 3}));
}

TEST(QmdlPrefab, APrefabPathAddsAPrefabNodeAfterEverythingElse) {
  WriterFixture f(crateModel());
  f.options.weaponAnimPrefab = "models\\weapons\\knife_refs\\prefab\\knife.qmdl_prefab";
  f.load();
  f.converter.tables().bodyGroups = crateBodyGroups();
  Kv3Value root = f.write();
  ASSERT_EQ(classesOf(root).back(), "Prefab");
  const Kv3Value& prefab = childOf(root, "Prefab");
  EXPECT_EQ(textOf(prefab, "name"), "<unset>");
  EXPECT_EQ(textOf(prefab, "target_file"), "models/weapons/knife_refs/prefab/knife.qmdl_prefab");

  WriterFixture none(crateModel());
  none.load();
  EXPECT_FALSE(hasChild(none.write(), "Prefab"));
}

// ---- the whole document ---------------------------------------------------------------------

TEST(QmdlDocument, SmallDocumentText) {
  mdlforge::Description d = crateModel();
  d.bones = {bone("root", -1, {1.5f, 0, 40})};
  d.hullMin = {-16, -16, 0};
  d.hullMax = {16, 16, 32.5f};
  WriterFixture f(d);
  f.options.headerHullBounds = true;
  f.options.weaponAnimPrefab = "models/weapons/knife.qmdl_prefab";
  f.load();
  f.converter.tables().bodyGroups = crateBodyGroups();
  ASSERT_TRUE(f.converter.WriteQmdl(false));

  EXPECT_EQ(readText(f.documentPath()),
            "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
            "format:modeldoc41:version{12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0} -->\n"
            "{\n"
            "\trootNode = \n"
            "\t{\n"
            "\t\t_class = \"RootNode\"\n"
            "\t\tchildren = \n"
            "\t\t[\n"
            "\t\t\t{\n"
            "\t\t\t\t_class = \"BoundsHull\"\n"
            "\t\t\t\tname = \"bounds_hull\"\n"
            "\t\t\t\tmins = [ -16.0, -16.0, 0.0 ]\n"
            "\t\t\t\tmaxs = [ 16.0, 16.0, 32.5 ]\n"
            "\t\t\t},\n"
            "\t\t\t{\n"
            "\t\t\t\t_class = \"Skeleton\"\n"
            "\t\t\t\tchildren = \n"
            "\t\t\t\t[\n"
            "\t\t\t\t\t{\n"
            "\t\t\t\t\t\t_class = \"Bone\"\n"
            "\t\t\t\t\t\tname = \"root\"\n"
            "\t\t\t\t\t\tchildren = [ ]\n"
            "\t\t\t\t\t\torigin = [ 1.5, 0.0, 40.0 ]\n"
            "\t\t\t\t\t\tangles = [ 0.0, 0.0, 0.0 ]\n"
            "\t\t\t\t\t\tdo_not_discard = true\n"
            "\t\t\t\t\t\tscale = 1.0\n"
            "\t\t\t\t\t},\n"
            "\t\t\t\t]\n"
            "\t\t\t},\n"
            "\t\t\t{\n"
            "\t\t\t\t_class = \"BoneMarkupList\"\n"
            "\t\t\t\tchildren = [ ]\n"
            "\t\t\t\tbone_cull_type = 2\n"
            "\t\t\t},\n"
            "\t\t\t{\n"
            "\t\t\t\t_class = \"BodyGroupList\"\n"
            "\t\t\t\tchildren = [ ]\n"
            "\t\t\t},\n"
            "\t\t\t{\n"
            "\t\t\t\t_class = \"RenderMeshList\"\n"
            "\t\t\t\tchildren = \n"
            "\t\t\t\t[\n"
            "\t\t\t\t\t{\n"
            "\t\t\t\t\t\t_class = \"RenderMeshFile\"\n"
            "\t\t\t\t\t\tname = \"crate_bg_body_lod0\"\n"
            "\t\t\t\t\t\tfilename = \"props/crate_refs/mesh/crate_bg_body_lod0.dmx\"\n"
            "\t\t\t\t\t\timport_scale = 1.0\n"
            "\t\t\t\t\t},\n"
            "\t\t\t\t]\n"
            "\t\t\t},\n"
            "\t\t\t{\n"
            "\t\t\t\t_class = \"Prefab\"\n"
            "\t\t\t\ttarget_file = \"models/weapons/knife.qmdl_prefab\"\n"
            "\t\t\t},\n"
            "\t\t]\n"
            "\t\tmodel_archetype = \"\"\n"
            "\t\tprimary_associated_entity = \"\"\n"
            "\t\tanim_graph_name = \"\"\n"
            "\t\tbase_model_name = \"\"\n"
            "\t}\n"
            "}\n");
}

// A model using most of what the writer reads, for comparing the document with the
// description the legacy files were built from.
mdlforge::Description richModel() {
  mdlforge::Description d = crateModel();
  d.bones = {bone("pelvis", -1, {0, 0, 38}), bone("spine", 0, {4, 0, 0}, {0, 0, 30}),
             bone("head", 1, {10, 0, 0}, {15, 0, 0})};
  d.poseParameters = {poseParameter("body_yaw", 0, -180, 180, 0), poseParameter("aim pitch", 0, -60, 60, 0)};
  d.textures = {"skin", "skin_dirty"};
  d.skinFamilies = {{0, 1}, {1, 1}};
  d.bodyParts = {bodyPart("body", {subModel("body")}),
                 bodyPart("hat", {subModel("none", false), subModel("cap")})};
  d.presets = {{"capped", 1, 1}};  // the hat's base is 1: the body part before it has one model
  mdlforge::Attachment eyes;
  eyes.name = "eyes";
  eyes.bone = 2;
  eyes.local = angleMatrix(QAngle{0, 0, 0}, Vector3{0, 3, 0});
  d.attachments = {eyes};
  return d;
}

void fillRichTables(ModelTables& tables) {
  tables.materials.paths = {"materials\\models\\skin.qmat", "materials\\models\\skin_dirty.qmat"};
  tables.bodyGroups = {bodyGroup("body", {entry(0, 0, "crate_bg_body_lod0")}),
                       bodyGroup("hat", {entry(0, 0, "crate_bg_hat_sm0_lod0", 0, true),
                                         entry(1, 0, "crate_bg_hat_sm1_lod0")})};
}

TEST(QmdlDocument, ReadBackTreeMatchesTheLegacyModel) {
  mdlforge::Description d = richModel();
  WriterFixture f(d);
  f.load();
  fillRichTables(f.converter.tables());
  Kv3Value root = f.write();

  EXPECT_EQ(classesOf(root),
            (std::vector<std::string>{"Skeleton", "BoneMarkupList", "PoseParamList", "MaterialGroupList",
                                      "BodyGroupList", "GameDataList", "AttachmentList", "RenderMeshList"}));
  // Bones: a chain pelvis > spine > head with the description's positions and angles.
  const Kv3Value* node = &childOf(root, "Skeleton");
  for (const mdlforge::Bone& b : d.bones) {
    std::vector<const Kv3Value*> children = childrenOf(*node, "Bone");
    ASSERT_EQ(children.size(), 1u) << b.name;
    node = children[0];
    EXPECT_EQ(textOf(*node, "name"), b.name);
    EXPECT_EQ(floatsOf(*node, "origin"), (std::vector<float>{b.position.x, b.position.y, b.position.z}));
    expectAngles(floatsOf(*node, "angles"), quaternionAngles(*b.quaternion));
  }
  std::vector<const Kv3Value*> params = childrenOf(childOf(root, "PoseParamList"));
  ASSERT_EQ(namesOf(params), (std::vector<std::string>{"body_yaw", "aim_pitch"}));
  for (size_t i = 0; i < params.size(); ++i) {
    EXPECT_EQ(floatOf(*params[i], "poseparam_min"), d.poseParameters[i].start);
    EXPECT_EQ(floatOf(*params[i], "poseparam_max"), d.poseParameters[i].end);
  }
  EXPECT_EQ(namesOf(childrenOf(childOf(root, "MaterialGroupList"))), std::vector<std::string>{"1"});
  std::vector<const Kv3Value*> hatChoices = childrenOf(childOf(childOf(root, "BodyGroupList"), "BodyGroup"));
  ASSERT_EQ(hatChoices.size(), d.bodyParts[1].models.size());
  EXPECT_TRUE(stringsOf(*hatChoices[0], "meshes").empty());
  EXPECT_EQ(stringsOf(*hatChoices[1], "meshes"), std::vector<std::string>{"crate_bg_hat_sm1_lod0"});
  EXPECT_EQ(gameKeysOf(childOf(childOf(root, "GameDataList"), "GenericGameData")),
            (std::vector<std::string>{"name=capped", "bodygroup_name_0=hat", "bodygroup_choice_0=1"}));
  const Kv3Value& eyes = childOf(childOf(root, "AttachmentList"), "Attachment");
  EXPECT_EQ(textOf(eyes, "parent_bone"), "head");
  EXPECT_EQ(floatsOf(eyes, "relative_origin"), (std::vector<float>{0, 3, 0}));
  EXPECT_EQ(namesOf(childrenOf(childOf(root, "RenderMeshList"))),
            (std::vector<std::string>{"crate_bg_body_lod0", "crate_bg_hat_sm1_lod0"}));
}

TEST(QmdlDocument, TheIndependentReaderAcceptsTheDocument) {
  WriterFixture f(richModel());
  f.load();
  fillRichTables(f.converter.tables());
  ASSERT_TRUE(f.converter.WriteQmdl(false));
  std::optional<zv::testing::ExternalReadResult> result =
      zv::testing::runExternalKv3Reader(readText(f.documentPath()));
  if (!result) GTEST_SKIP() << "python3 or the shared reader is not available";
  EXPECT_EQ(result->exitCode, 0) << result->output;
  for (const char* count :
       {"Bone=3", "PoseParam=2", "BodyGroupChoice=2", "RenderMeshFile=2", "Attachment=1"}) {
    EXPECT_NE(result->output.find(count), std::string::npos) << count << " in " << result->output;
  }
}

TEST(QmdlDocument, TheSameModelGivesTheSameBytes) {
  WriterFixture f(richModel());
  f.load();
  fillRichTables(f.converter.tables());
  ASSERT_TRUE(f.converter.WriteQmdl(false));
  std::string first = readText(f.documentPath());
  // Setting up again starts a new model, so the same path may be written once more.
  f.load();
  fillRichTables(f.converter.tables());
  ASSERT_TRUE(f.converter.WriteQmdl(false));
  EXPECT_EQ(readText(f.documentPath()), first);
}

TEST(QmdlDocument, ASaveThatTheOutputRefusesIsLoggedInRedAndFails) {
  WriterFixture f(crateModel());
  f.options.outputFolders = {f.dir.file("elsewhere")};
  f.load();
  LogCapture log;
  EXPECT_FALSE(f.converter.WriteQmdl(false));
  EXPECT_FALSE(std::filesystem::exists(f.dir.path() / "elsewhere" / "crate.qmdl"));
  bool found = false;
  for (const LogRecord& record : log.records()) {
    if (record.text != "Failed to write file: " + f.dir.file("elsewhere/crate.qmdl") + "\n\n") continue;
    found = true;
    EXPECT_EQ(record.channel, kMainChannel);
    EXPECT_EQ(record.severity, Severity::Warning);
    EXPECT_EQ(record.color, colors::kRed);
  }
  EXPECT_TRUE(found) << log.text();
  // Why the output layer refused is said too.
  EXPECT_EQ(log.count("lies outside the output root"), 1u);
}

// ---- the whole pipeline -----------------------------------------------------------------------

TEST(QmdlPipeline, TheDocumentNamesWhatTheGeometryStageWrote) {
  mdlforge::Description d = crateModel();
  d.textures = {"crate", "crate_old"};
  d.skinFamilies = {{0, 1}, {1, 1}};
  // Two body parts of one name: the second one's body group is renamed, and the preset
  // that sets it must name it the same way.
  d.bodyParts = {bodyPart("studio", {subModel("crate"), subModel("blank", false)}),
                 bodyPart("studio", {subModel("lid"), subModel("lid_open")})};
  d.presets = {{"open", 2, 2}};
  WriterFixture f(d);
  zv::testing::writeText(f.dir.file("materials/models/props/crate.qmt"), "");
  zv::testing::writeText(f.dir.file("materials/models/props/crate_old.qmt"), "");
  f.converter.Setup(f.options, 0);
  ASSERT_TRUE(f.converter.Convert());
  Kv3Value root = f.readBack();

  std::vector<std::string> renderMeshes;
  for (const Kv3Value* file : childrenOf(childOf(root, "RenderMeshList"), "RenderMeshFile")) {
    renderMeshes.push_back(textOf(*file, "name"));
    EXPECT_TRUE(std::filesystem::is_regular_file(f.dir.path() / "out" / textOf(*file, "filename")))
        << textOf(*file, "filename");
  }
  EXPECT_EQ(renderMeshes.size(), 3u);
  std::vector<const Kv3Value*> groups = childrenOf(childOf(root, "BodyGroupList"), "BodyGroup");
  ASSERT_EQ(namesOf(groups), (std::vector<std::string>{"studio", "studio_part1"}));
  size_t chosen = 0;
  for (const Kv3Value* group : groups) {
    for (const Kv3Value* choice : childrenOf(*group)) {
      for (const std::string& mesh : stringsOf(*choice, "meshes")) {
        EXPECT_NE(std::find(renderMeshes.begin(), renderMeshes.end(), mesh), renderMeshes.end()) << mesh;
        ++chosen;
      }
    }
  }
  EXPECT_EQ(chosen, 3u);
  EXPECT_EQ(gameKeysOf(childOf(childOf(root, "GameDataList"), "GenericGameData")),
            (std::vector<std::string>{"name=open", "bodygroup_name_0=studio_part1", "bodygroup_choice_0=1"}));
  const Kv3Value* remaps = childOf(childOf(root, "MaterialGroupList"), "MaterialGroup").find("remaps");
  ASSERT_NE(remaps, nullptr);
  ASSERT_FALSE(remaps->elements().empty());
  EXPECT_EQ(textOf(remaps->elements()[0], "from"), "materials/models/props/crate.qmat");
  EXPECT_EQ(textOf(remaps->elements()[0], "to"), "materials/models/props/crate_old.qmat");
}

TEST(QmdlPipeline, AStaticPropsDocumentHasNoSkeleton) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].name = "static_prop";
  WriterFixture f(d);
  f.converter.Setup(f.options, 0);
  ASSERT_TRUE(f.converter.Convert());
  ASSERT_TRUE(f.converter.isStatic());
  EXPECT_EQ(classesOf(f.readBack()), (std::vector<std::string>{"BodyGroupList", "RenderMeshList"}));
}

TEST(QmdlDocument, NothingIsWrittenBeforeTheModelIsLoaded) {
  WriterFixture f(crateModel());
  f.converter.Setup(f.options, 0);
  EXPECT_FALSE(f.converter.WriteQmdl(false));
  EXPECT_FALSE(std::filesystem::exists(f.documentPath()));
}

}  // namespace
}  // namespace zv
