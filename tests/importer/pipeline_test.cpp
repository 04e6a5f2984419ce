#include "importer/pipeline.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "importer/converter.h"
#include "importer/names.h"
#include "support/model_fixtures.h"
#include "support/test_support.h"

namespace zv {
namespace {

using zv::testing::buildFiles;
using zv::testing::crateModel;
using zv::testing::readText;
using zv::testing::TempDir;
using zv::testing::writeFamily;

// The progress text the loop prints and the indices it wrote.
struct Progress {
  std::string text;
  std::vector<size_t> written;
};

Progress runLoop(size_t count, size_t own, bool skip) {
  LogCapture log;
  Progress p;
  writeAnimationsWithProgress(count, own, skip, [&](size_t i) {
    p.written.push_back(i);
    mainLog().log(Severity::Message, "[%zu]", i);
  });
  p.text = log.text();
  return p;
}

TEST(AnimationProgress, TwentyFiveAnimationsMarkEverySecond) {
  Progress p = runLoop(25, 25, false);
  std::string expected = "Writing 25 Animations:";
  for (size_t i = 0; i < 25; ++i) {
    if (i % 2 == 0) expected += std::to_string(i / 2) + "..";
    expected += "[" + std::to_string(i) + "]";
  }
  EXPECT_EQ(p.text, expected + "Done\n");
  EXPECT_EQ(p.written.size(), 25u);
}

TEST(AnimationProgress, FiveAnimationsMarkEveryOne) {
  EXPECT_EQ(runLoop(5, 5, false).text, "Writing 5 Animations:0..[0]1..[1]2..[2]3..[3]4..[4]Done\n");
}

TEST(AnimationProgress, NoAnimationsStillSayDone) { EXPECT_EQ(runLoop(0, 0, false).text, "Writing 0 Animations:Done\n"); }

TEST(AnimationProgress, SkippingCommonFilesLeavesIncludedAnimationsButKeepsTheMarks) {
  Progress p = runLoop(12, 4, true);
  EXPECT_EQ(p.written, (std::vector<size_t>{0, 1, 2, 3}));
  // Marks still count every animation, written or not: step 1 gives 12 marks.
  EXPECT_NE(p.text.find("11.."), std::string::npos);
  EXPECT_EQ(runLoop(12, 4, false).written.size(), 12u);
}

TEST(StaticModels, OneStaticPropSubModelAndOnlyIdleSequences) {
  EXPECT_TRUE(isStaticModel({"static_prop"}, {}));
  EXPECT_TRUE(isStaticModel({"static_prop"}, {"@idle"}));
  EXPECT_TRUE(isStaticModel({"static_prop"}, {"idle", "folder/IDLE.smd", "@Idle"}));
  EXPECT_FALSE(isStaticModel({"static_prop"}, {"idle", "open"}));
  EXPECT_FALSE(isStaticModel({"Static_Prop"}, {}));  // the sub-model name is compared exactly
  EXPECT_FALSE(isStaticModel({"static_prop", "static_prop"}, {}));
  EXPECT_FALSE(isStaticModel({}, {}));
}

TEST(ModelPaths, FollowTheOutputFolderAndBaseName) {
  ModelPaths p = buildModelPaths("D:/out/props", "crate");
  EXPECT_EQ(p.document, "D:/out/props/crate.qmdl");
  EXPECT_EQ(p.referenceList, "D:/out/props/crate_refs.txt");
  EXPECT_EQ(p.meshFolder, "D:/out/props/crate_refs/mesh");
  EXPECT_EQ(p.animFolder, "D:/out/props/crate_refs/anim");
  EXPECT_EQ(p.physFolder, "D:/out/props/crate_refs/phys");
  EXPECT_EQ(p.prefabFolder, "D:/out/props/crate_refs/prefab");
  EXPECT_EQ(buildModelPaths("out\\a", "b").document, "out/a/b.qmdl");
}

TEST(ReferenceList, NamesEachMaterialWithItsLegacyExtension) {
  EXPECT_EQ(referenceListText({"materials\\models\\props\\crate.qmat", "/abs/x.qmat"}),
            "importfilelist\n{\n\t\"file\"\t\"materials\\models\\props\\crate.qmt\"\n\t\"file\"\t\"/abs/x.qmt\"\n}\n");
  EXPECT_EQ(referenceListText({}), "importfilelist\n{\n}\n");
}

TEST(Names, NodeNamesKeepOnlyTheirAlphabet) {
  EXPECT_EQ(SanitizeNodeName("move yaw-2@X"), "move_yaw_2@X");
  EXPECT_EQ(SanitizeNodeName(""), "");
  EXPECT_EQ(SanitizeNodeName("\xC3\xA9t\xC3\xA9"), "__t__");
}

TEST(Names, BoneNamesChangeOnlyWhatFilesCannotCarry) {
  EXPECT_EQ(ConvertBoneName("rig.Bone01 L Hand"), "rig.Bone01 L Hand");
  EXPECT_EQ(ConvertBoneName("a\"b\\c\x01\xFF"), "a_b_c__");
}

// A converter over a temporary game folder holding one forged model.
struct ConverterFixture {
  TempDir dir;
  fs::FileSystem fileSystem{dir.path()};
  Output output{dir.file("out"), nullptr};
  C_ZV_MDL_Import converter{fileSystem, output};
  RunOptions options;

  explicit ConverterFixture(const mdlforge::Description& d) {
    EXPECT_TRUE(fileSystem.addSearchPath("", "LOCAL", fs::Placement::Tail));
    writeFamily(buildFiles(d), dir.file("models/props"), "crate");
    options.inputFiles = {dir.file("models/props/crate.mdl")};
    options.baseNames = {"crate"};
    options.outputFolders = {dir.file("out") + "\\props"};
    options.outputRoot = dir.file("out");
    converter.Setup(options, 0);
  }
};

TEST(Pipeline, AModelWithoutCollisionFileConvertsAndSaysSo) {
  ConverterFixture f(crateModel());
  LogCapture log;
  EXPECT_TRUE(f.converter.Convert());
  EXPECT_EQ(log.count("No valid .phy for " + f.dir.file("models/props/crate.mdl") + "\n"), 1u);
  EXPECT_TRUE(std::filesystem::is_directory(f.dir.path() / "out/props/crate_refs/mesh"));
  EXPECT_TRUE(std::filesystem::is_directory(f.dir.path() / "out/props/crate_refs/phys"));
  EXPECT_EQ(readText(f.dir.path() / "out/props/crate_refs.txt").rfind("importfilelist\n{\n", 0), 0u);
}

TEST(Pipeline, AFailedLoadFailsTheModelAndWritesNothing) {
  ConverterFixture f(crateModel());
  std::filesystem::resize_file(f.dir.path() / "models/props/crate.mdl", 100);
  LogCapture log;
  EXPECT_FALSE(f.converter.Convert());
  EXPECT_EQ(log.count("C_ZV_MDL_Import::LoadMDL(413): Load of MDL \"" + f.dir.file("models/props/crate.mdl") + "\" failed\n"), 1u);
  EXPECT_FALSE(std::filesystem::exists(f.dir.path() / "out"));
}

TEST(Pipeline, StaticPropsWriteNoAnimations) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].name = "static_prop";
  ConverterFixture f(d);
  LogCapture log;
  EXPECT_TRUE(f.converter.Convert());
  EXPECT_TRUE(f.converter.isStatic());
  EXPECT_EQ(log.count("Animations:"), 0u);

  ConverterFixture moving(crateModel());
  LogCapture log2;
  EXPECT_TRUE(moving.converter.Convert());
  EXPECT_FALSE(moving.converter.isStatic());
  EXPECT_EQ(log2.count("Writing 0 Animations:"), 1u);
}

TEST(Pipeline, ResetLeavesNothingForTheNextModel) {
  ConverterFixture f(crateModel());
  ASSERT_TRUE(f.converter.Convert());
  ASSERT_NE(f.converter.model(), nullptr);
  EXPECT_FALSE(f.converter.tables().skeleton.empty());
  f.converter.Reset();
  EXPECT_EQ(f.converter.model(), nullptr);
  EXPECT_TRUE(f.converter.tables().skeleton.empty());
  EXPECT_TRUE(f.converter.settings().inputPath.empty());
}

TEST(Pipeline, OlderStripFilesServeWhenTheUsualOneIsMissing) {
  for (const char* extension : {".dx80.vtx", ".sw.vtx"}) {
    ConverterFixture f(crateModel());
    std::filesystem::path folder = f.dir.path() / "models/props";
    std::filesystem::rename(folder / "crate.dx90.vtx", folder / (std::string("crate") + extension));
    RunOptions verbose = f.options;
    verbose.verbose = true;
    f.converter.Setup(verbose, 0);
    LogCapture log;
    mainLog().setVerbosity(int(Severity::Detail));
    ASSERT_TRUE(f.converter.LoadMDL());
    mainLog().setVerbosity(int(Severity::Message));
    EXPECT_TRUE(f.converter.model()->strips) << extension;
    EXPECT_EQ(log.count(std::string("Using strip file ") + f.dir.file("models/props/crate") + extension), 1u) << log.text();
  }
}

TEST(Skeleton, ModelTransformsComposeParentsListedAfterChildren) {
  mdlforge::Description d = crateModel();
  mdlforge::Bone child, parent;
  child.name = "child";
  child.parent = 2;  // listed before its parent
  child.position = {1, 0, 0};
  parent.name = "parent";
  parent.parent = 0;
  parent.position = {0, 0, 5};
  parent.quaternion = angleQuaternion({0, 90, 0});
  d.bones = {d.bones[0], child, parent};
  ConverterFixture f(d);
  ASSERT_TRUE(f.converter.LoadMDL());
  const std::vector<SkeletonBone>& bones = f.converter.tables().skeleton;
  ASSERT_EQ(bones.size(), 3u);
  Vector3 at = bones[1].modelTransform.translation();
  // The parent's yaw of 90 degrees turns the child's offset onto +Y.
  EXPECT_NEAR(at.x, 0, 1e-5);
  EXPECT_NEAR(at.y, 1, 1e-5);
  EXPECT_NEAR(at.z, 5, 1e-5);
}

}  // namespace
}  // namespace zv
