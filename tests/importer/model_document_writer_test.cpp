// The model document writer: forged models, tables filled as the geometry stage would,
// and the document read back with the strict KV3 reader.

#include <gtest/gtest.h>

#include <cmath>

#include "base/log.h"
#include "base/strings.h"
#include "importer/qmdl_paths.h"
#include "importer_fixture.h"
#include "kv/kv3_external_check.h"
#include "modeldoc/model_document.h"

namespace zv {
namespace {

using testing::bone;
using testing::childOf;
using testing::childrenOf;
using testing::crateModel;
using testing::ImportRun;
using testing::listed;
using testing::readText;
using testing::shown;
using testing::valueOf;
using Names = std::vector<std::string>;

mdlforge::SubModel subModel(std::string name, bool withMesh = true) {
  mdlforge::SubModel model{std::move(name), {}};
  if (withMesh) model.meshes = {testing::triangleMesh(0, 1)};
  return model;
}

// A body group table entry; an empty sub-model has a mesh name but no mesh records.
BodyGroupEntry entry(int32_t choice, int32_t lod, const std::string& meshName, float threshold = 0,
                     bool empty = false) {
  BodyGroupEntry e{choice, lod, meshName, {}};
  if (!empty) e.meshes = {{meshName, threshold}};
  return e;
}

ModelTables& load(ImportRun& run) {
  run.setup();
  EXPECT_TRUE(run.converter.LoadMDL());
  return run.converter.tables();
}

Kv3Value write(ImportRun& run) {
  EXPECT_TRUE(run.converter.WriteQmdl(false));
  return run.readDocument();
}

TEST(DocumentPaths, RelativeToTheBaseFolderOnlyInsideItAndMaterialsInOneSpelling) {
  // Either separator, either case, with or without a trailing separator on the base.
  EXPECT_EQ(relativeToBaseFolder("d:\\OUT\\models\\a.dmx", "D:/out/"), "models/a.dmx");
  // A name that merely starts with the base folder's text is not inside it.
  EXPECT_EQ(relativeToBaseFolder("/tmp/outer/a.dmx", "/tmp/out"), "/tmp/outer/a.dmx");
  EXPECT_EQ(relativeToBaseFolder("/tmp/out", "/tmp/out"), "");

  // Material references: lower case, "/" and safe characters where relative.
  EXPECT_EQ(normalizeMaterialReference("materials\\\\a//b\\/c-1.qmat"), "materials/a/b/c-1.qmat");
  EXPECT_EQ(normalizeMaterialReference("materials\\a+b#\xE9.qmat"), "materials/a_b__.qmat");
  // Absolute paths keep their other characters.
  EXPECT_EQ(normalizeMaterialReference("C:\\Art\\Sign (Red)+1.qmat"), "c:/art/sign__red_+1.qmat");
  EXPECT_EQ(normalizeMaterialReference("/art//x#y.qmat"), "/art/x#y.qmat");
}

TEST(QmdlBones, AChainDeeperThanADocumentHoldsStillSaves) {
  mdlforge::Description d = crateModel();
  d.bones.clear();
  for (int i = 0; i < modeldoc::kMaxNodeDepth + 50; ++i)
    d.bones.push_back(bone("b" + std::to_string(i), i - 1));
  ImportRun run(d);
  load(run);
  // The bones that cannot go deeper wait at the top of the skeleton.
  EXPECT_GT(childrenOf(childOf(write(run), "Skeleton")).size(), 1u);
}

TEST(QmdlPoseParameters, NamesThatSanitiseAlikeAreOneAndAFullCircleLoops) {
  mdlforge::Description d = crateModel();
  d.poseParameters = {{"move x", 0, -1, 1, 0},
                      {"move_x", 0, -1, 1, 0},
                      {"aim yaw", 0, -45, 45, 0},
                      {"aim_yaw", 0, -90, 90, 0},
                      {"aim-yaw", 1, -45, 45, 0},
                      {"full", 0, -180, 180, 0},
                      {"almost\xC3\xA9", 0, -180, 179, 0},
                      {"@flagged", 1, -180, 180, 90}};
  ImportRun run(d);
  load(run);
  LogCapture log;
  // Names keep letters, digits, "_" and "@". The first definition wins; -180..180 loops
  // whatever the flags say, a looping one keeps its own loop.
  EXPECT_EQ(listed(write(run), "PoseParamList",
                   {"name", "poseparam_min", "poseparam_max", "poseparam_looping", "poseparam_loop"}),
            (Names{"move_x -1 1 false 0", "aim_yaw -45 45 false 0", "full -180 180 true 360",
                   "almost__ -180 179 false 0", "@flagged -180 180 true 90"}));
  // Equal values pass silently; each differing repeat is reported.
  EXPECT_EQ(log.count("duplicated"), 2u);
  EXPECT_EQ(log.count("Pose param name aim_yaw duplicated, with different values\n"), 2u);
}

TEST(QmdlPoseParameters, AParameterThatCannotBeCreatedEndsTheWriterWithoutAFile) {
  mdlforge::Description d = crateModel();
  d.poseParameters = {{"first", 0, 0, 1, 0}, {"second one", 0, 0, 1, 0}};
  ImportRun run(d);
  load(run);
  LogCapture log;
  modeldoc::ModelDocument document;
  document.setNodeLimit(5);  // skeleton, bone, bone markup, the parameter list and "first"
  EXPECT_FALSE(run.converter.writeModelDocument(document, false));
  ASSERT_EQ(log.records().size(), 1u) << log.text();
  EXPECT_EQ(log.records()[0].text,
            "C_ZV_MDL_Import::WriteQmdl: Couldn't create pose parameter \"second_one\"\n");
  EXPECT_EQ(log.records()[0].severity, Severity::Error);
  EXPECT_FALSE(std::filesystem::exists(run.out("crate.qmdl")));
}

TEST(QmdlMaterialGroups, EveryFamilyAfterTheFirstRemapsEveryColumn) {
  mdlforge::Description d = crateModel();
  d.textures = {"crate", "crate_old"};
  for (size_t families : {1, 3}) {
    // The last family names a material outside the table, which remaps to nothing.
    d.skinFamilies = {{0, 1}, {1, 1}, {0, 7}};
    d.skinFamilies.resize(families);
    ImportRun run(d);
    load(run).materials.paths = {"materials\\Models\\Props\\Crate.qmat",
                                 "materials\\models\\props\\crate (old).qmat"};
    const std::string a = "materials/models/props/crate.qmat", b = "materials/models/props/crate__old_.qmat";
    EXPECT_EQ(listed(write(run), "MaterialGroupList", {"name", "remaps"}),
              (families == 1 ? Names{}
                             : Names{"1 [{from=" + a + ", to=" + b + "}, {from=" + b + ", to=" + b + "}]",
                                     "2 [{from=" + a + ", to=" + a + "}, {from=" + b + ", to=}]"}));
  }
}

TEST(QmdlBodyGroups, ChoicesLodGroupsAndRenderMeshFiles) {
  // A body part with one sub-model and one with three (the middle one empty), at two LODs.
  mdlforge::Description d = crateModel();
  d.bodyParts = {{"body", {}, {subModel("crate")}},
                 {"Head Gear", {}, {subModel("h0"), subModel("-", false), subModel("h2")}}};
  const std::string head = "crate_bg_head gear_sm", node = "crate_bg_head_gear_sm";
  for (int32_t lodCount : {2, 1}) {
    SCOPED_TRACE(lodCount);
    ImportRun run(d);
    ModelTables& tables = load(run);
    tables.lodCount = lodCount;
    tables.bodyGroups = {
        {"body", {entry(0, 0, "crate_bg_body_lod0"), entry(0, 1, "crate_bg_body_lod1", 12.5f)}},
        {"Head Gear",
         {entry(0, 0, head + "0_lod0"), entry(0, 1, head + "0_lod1", 12.5f),
          entry(1, 0, head + "1_lod0", 0, true), entry(1, 1, head + "1_lod1", 0, true),
          entry(2, 0, head + "2_lod0"), entry(2, 1, head + "2_lod1", 12.5f)}}};
    Kv3Value root = write(run);
    // The single sub-model of "body" is no choice; the LODs of a sub-model make one choice.
    ASSERT_EQ(listed(root, "BodyGroupList", {"name"}), Names{"Head_Gear"});
    EXPECT_EQ(shown(childrenOf(childOf(childOf(root, "BodyGroupList"), "BodyGroup")), {"meshes"}),
              (Names{"[" + node + "0_lod0, " + node + "0_lod1]", "[]",
                     "[" + node + "2_lod0, " + node + "2_lod1]"}));
    // One LOD needs no LOD groups; the meshes of the body part without a choice still count.
    EXPECT_EQ(listed(root, "LODGroupList", {"meshes", "switch_threshold"}),
              (lodCount == 1 ? Names{}
                             : Names{"[crate_bg_body_lod0, " + node + "0_lod0, " + node + "2_lod0] 0",
                                     "[crate_bg_body_lod1, " + node + "0_lod1, " + node + "2_lod1] 12.5"}));
    // Every mesh has a file, which keeps the mesh's own name; only the node name is sanitised.
    Names files = listed(root, "RenderMeshList", {"name", "filename"});
    ASSERT_EQ(files.size(), 6u);
    EXPECT_EQ(files[2], node + "0_lod0 props/crate_refs/mesh/" + head + "0_lod0.dmx");
  }
}

TEST(QmdlPresets, AMaskSelectingTheSecondAndFourthBodyPartsNumbersThemZeroAndOne) {
  mdlforge::Description d = crateModel();
  // Model counts 2, 3, 2, 3 give the bases 1, 2, 6, 12; a part without models or base is
  // never selected (nor divided by).
  mdlforge::SubModel empty = subModel("-", false);
  d.bodyParts = {{"A", {}, {subModel("a"), empty}},
                 {"B part", {}, {subModel("b"), empty, empty}},
                 {"C", {}, {subModel("c"), empty}},
                 {"D", {}, {subModel("d"), empty, empty}},
                 {"Z", 0, {}}};
  // B at choice 2, D at choice 1; A and C are left to the model.
  d.presets = {{"second and fourth", 2 * 2 + 1 * 12, 1 * 2 + 1 * 12}, {"nothing", 5, 0}};
  ImportRun run(d);
  load(run);
  EXPECT_EQ(listed(write(run), "GameDataList", {"game_class", "game_keys"}),
            (Names{"bodygroup_preset {name=second and fourth, bodygroup_name_0=B_part, bodygroup_choice_0=2, "
                   "bodygroup_name_1=D, bodygroup_choice_1=1}",
                   "bodygroup_preset {name=nothing}"}));
}

TEST(QmdlDocument, SmallDocumentText) {
  mdlforge::Description d = crateModel();
  // A number the document cannot hold is written as 0, and so is -0.
  d.hullMin = {-16, NAN, -0.0f};
  d.hullMax = {16, 16, 32.5f};
  ImportRun run(d);
  run.options.headerHullBounds = true;
  run.options.weaponAnimPrefab = "models\\weapons\\knife.qmdl_prefab";
  load(run);
  ASSERT_TRUE(run.converter.WriteQmdl(true));  // a static prop: no skeleton
  EXPECT_EQ(readText(run.out("crate.qmdl")),
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
            "\t\t\t\tmins = [ -16.0, 0.0, 0.0 ]\n"
            "\t\t\t\tmaxs = [ 16.0, 16.0, 32.5 ]\n"
            "\t\t\t},\n"
            "\t\t\t{\n"
            "\t\t\t\t_class = \"BodyGroupList\"\n"
            "\t\t\t\tchildren = [ ]\n"
            "\t\t\t},\n"
            "\t\t\t{\n"
            "\t\t\t\t_class = \"RenderMeshList\"\n"
            "\t\t\t\tchildren = [ ]\n"
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

// A model using most of what the writer reads, and the tables made for it.
mdlforge::Description richModel() {
  mdlforge::Description d = crateModel();
  // A chain pelvis > spine > head, listed child first.
  d.bones = {bone("head \"L\"\\1", 2, {10, 0, 0}, {15, 0, 0}), bone("pelvis", -1, {0, 0, 38}),
             bone("spine", 1, {4, 0, 0}, {0, 0, 30})};
  d.poseParameters = {{"body_yaw", 0, -180, 180, 0}, {"aim pitch", 0, -60, 60, 0}};
  d.textures = {"skin", "skin_dirty"};
  d.skinFamilies = {{0, 1}, {1, 1}};
  d.bodyParts = {{"body", {}, {subModel("body")}}, {"hat", {}, {subModel("none", false), subModel("cap")}}};
  d.presets = {{"capped", 1, 1}};  // the hat's base is 1: the body part before it has one model
  // Attachments name their bone as the other files do; an index outside the skeleton, none.
  d.attachments = {{"eyes", 0, 0, angleMatrix(QAngle{10, 20, 30}, Vector3{0, 3, 0})},
                   {"muzzle flash", 0, 7, {}}};
  return d;
}

void fillRichTables(ModelTables& tables) {
  tables.materials.paths = {"materials\\models\\skin.qmat", "materials\\models\\skin_dirty.qmat"};
  tables.bodyGroups = {
      {"body", {entry(0, 0, "crate_bg_body_lod0")}},
      {"hat", {entry(0, 0, "crate_bg_hat_sm0_lod0", 0, true), entry(1, 0, "crate_bg_hat_sm1_lod0")}}};
}

TEST(QmdlDocument, ReadBackTreeMatchesTheLegacyModel) {
  mdlforge::Description d = richModel();
  ImportRun run(d);
  fillRichTables(load(run));
  Kv3Value root = write(run);
  EXPECT_EQ(shown(childrenOf(root), {"_class"}),
            (Names{"Skeleton", "BoneMarkupList", "PoseParamList", "MaterialGroupList", "BodyGroupList",
                   "GameDataList", "AttachmentList", "RenderMeshList"}));
  // Each bone under its parent, even one listed before it, with the legacy name and pose.
  const Kv3Value* node = &childOf(root, "Skeleton");
  for (size_t i : {1, 2, 0}) {
    const mdlforge::Bone& b = d.bones[i];
    std::vector<const Kv3Value*> children = childrenOf(*node, "Bone");
    ASSERT_EQ(children.size(), 1u) << b.name;
    node = children[0];
    EXPECT_EQ(shown({node}, {"name", "origin", "scale"}),
              Names{b.name + format(" [%g, %g, %g] 1", b.position.x, b.position.y, b.position.z)});
    testing::expectAngles(*node, "angles", quaternionAngles(*b.quaternion));
  }
  EXPECT_TRUE(childrenOf(*node).empty());
  EXPECT_EQ(valueOf(childOf(root, "BoneMarkupList"), "bone_cull_type"), "2");
  EXPECT_EQ(listed(root, "PoseParamList", {"name", "poseparam_min", "poseparam_max"}),
            (Names{"body_yaw -180 180", "aim_pitch -60 60"}));
  EXPECT_EQ(listed(root, "MaterialGroupList", {"name"}), Names{"1"});
  EXPECT_EQ(shown(childrenOf(childOf(childOf(root, "BodyGroupList"), "BodyGroup")), {"meshes"}),
            (Names{"[]", "[crate_bg_hat_sm1_lod0]"}));
  EXPECT_EQ(listed(root, "GameDataList", {"game_keys"}),
            Names{"{name=capped, bodygroup_name_0=hat, bodygroup_choice_0=1}"});
  EXPECT_EQ(listed(root, "AttachmentList", {"name", "parent_bone", "relative_origin", "weight"}),
            (Names{"eyes head _L__1 [0, 3, 0] 1", "muzzle_flash  [0, 0, 0] 1"}));
  testing::expectAngles(childOf(childOf(root, "AttachmentList"), "Attachment"), "relative_angles",
                        {10, 20, 30});
  EXPECT_EQ(listed(root, "RenderMeshList", {"name"}), (Names{"crate_bg_body_lod0", "crate_bg_hat_sm1_lod0"}));
}

TEST(QmdlDocument, TheIndependentReaderAcceptsTheDocumentAndItsBytesRepeat) {
  ImportRun run(richModel());
  fillRichTables(load(run));
  ASSERT_TRUE(run.converter.WriteQmdl(false));
  std::string first = readText(run.out("crate.qmdl"));
  // Setting up again starts a new model: nothing of the first may carry over.
  fillRichTables(load(run));
  ASSERT_TRUE(run.converter.WriteQmdl(false));
  EXPECT_EQ(readText(run.out("crate.qmdl")), first);

  std::optional<testing::ExternalReadResult> result = testing::runExternalKv3Reader(first);
  if (!result) GTEST_SKIP() << "python3 or the shared reader is not available";
  EXPECT_EQ(result->exitCode, 0) << result->output;
  for (const char* count : {"Bone=3", "PoseParam=2", "BodyGroupChoice=2", "RenderMeshFile=2", "Attachment=2"})
    EXPECT_NE(result->output.find(count), std::string::npos) << count << " in " << result->output;
}

}  // namespace
}  // namespace zv
