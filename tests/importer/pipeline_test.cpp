// The per-model pipeline: its decisions, its progress text and a whole run of Convert.

#include "importer/pipeline.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "importer_fixture.h"

namespace zv {
namespace {

using testing::childOf;
using testing::childrenOf;
using testing::crateModel;
using testing::ImportRun;
using testing::listed;
using testing::shown;
using Names = std::vector<std::string>;

TEST(AnimationProgress, MarksEveryTenthWithWhatEachFileSaidAndSkipsIncludedOnlyWhenAsked) {
  const struct {
    size_t count, own;
    bool skip;
    size_t step, written;
  } cases[] = {{25, 25, false, 2, 25},
               {5, 5, false, 1, 5},
               {12, 4, true, 1, 4},  // the marks count the skipped ones too
               {12, 4, false, 1, 12},
               {3, 7, true, 1, 3}};
  for (const auto& c : cases) {
    size_t written = animationsToWrite(c.count, c.own, c.skip);
    EXPECT_EQ(written, c.written);
    std::vector<std::vector<LogRecord>> said(written);
    for (size_t i = 0; i < written; ++i) {
      said[i].push_back({std::string(kMainChannel), Severity::Message, std::nullopt, "[" + std::to_string(i) + "]"});
      if (i % 3 == 0) said[i].push_back({"", Severity::Warning, std::nullopt, "(" + std::to_string(i) + ")"});
    }
    LogCapture log;
    printAnimationProgress(c.count, said);
    std::string expected = "Writing " + std::to_string(c.count) + " Animations:";
    for (size_t i = 0; i < c.count; ++i) {
      if (i % c.step == 0) expected += std::to_string(i / c.step) + "..";
      if (i < c.written) expected += "[" + std::to_string(i) + "]" + (i % 3 == 0 ? "(" + std::to_string(i) + ")" : "");
    }
    EXPECT_EQ(log.text(), expected + "Done\n");
  }
}

TEST(PipelineDecisions, StaticModelsAndOutputPaths) {
  EXPECT_TRUE(isStaticModel({"static_prop"}, {}));
  EXPECT_TRUE(isStaticModel({"static_prop"}, {"idle", "folder/IDLE.smd", "@Idle"}));
  EXPECT_FALSE(isStaticModel({"static_prop"}, {"idle", "open"}));
  EXPECT_FALSE(isStaticModel({"Static_Prop"}, {}));  // the sub-model name is compared exactly
  EXPECT_FALSE(isStaticModel({"static_prop", "static_prop"}, {}));
  ModelPaths p = buildModelPaths("D:/out/props", "crate");
  EXPECT_EQ(p.document + " " + p.referenceList + " " + p.meshFolder,
            "D:/out/props/crate.qmdl D:/out/props/crate_refs.txt D:/out/props/crate_refs/mesh");
}

TEST(Pipeline, AModelWithoutCollisionFileConvertsAndItsDocumentNamesWhatWasWritten) {
  mdlforge::Description d = crateModel();
  // Two body parts of one name: the second one's body group is renamed, and the preset
  // that sets it must name it the same way.
  mdlforge::SubModel crate = d.bodyParts[0].models[0], blank{"blank", {}};
  d.bodyParts = {{"studio", {}, {crate, blank}}, {"studio", {}, {crate, crate}}};
  d.presets = {{"open", 2, 2}};
  ImportRun run(d);
  run.material("models/props/crate");
  LogCapture log;
  ASSERT_TRUE(run.converter.Convert());
  EXPECT_EQ(log.count("No valid .phy for " + run.dir.file("models/props/crate.mdl") + "\n"), 1u);
  // The reference list names each material by its legacy file.
  EXPECT_EQ(testing::readText(run.out("crate_refs.txt")),
            "importfilelist\n{\n\t\"file\"\t\"materials\\models\\props\\crate.qmt\"\n}\n");
  Kv3Value root = run.readDocument();
  Names files = listed(root, "RenderMeshList", {"filename"});
  EXPECT_EQ(files.size(), 3u);
  for (const std::string& file : files)
    EXPECT_TRUE(std::filesystem::is_regular_file(run.dir.path() / "out" / file)) << file;
  EXPECT_EQ(listed(root, "BodyGroupList", {"name"}), (Names{"studio", "studio_part1"}));
  // The empty sub-model is a choice of nothing.
  EXPECT_EQ(shown(childrenOf(childOf(childOf(root, "BodyGroupList"), "BodyGroup")), {"meshes"}),
            (Names{"[crate_bg_studio_sm0_lod0]", "[]"}));
  EXPECT_EQ(listed(root, "GameDataList", {"game_keys"}),
            Names{"{name=open, bodygroup_name_0=studio_part1, bodygroup_choice_0=1}"});
}

TEST(Pipeline, AFailedLoadFailsTheModelAndWritesNothing) {
  ImportRun run(crateModel());
  std::filesystem::resize_file(run.dir.path() / "models/props/crate.mdl", 100);
  LogCapture log;
  EXPECT_FALSE(run.converter.Convert());
  EXPECT_EQ(log.count("C_ZV_MDL_Import::LoadMDL(413): Load of MDL \"" +
                      run.dir.file("models/props/crate.mdl") + "\" failed\n"),
            1u);
  EXPECT_FALSE(std::filesystem::exists(run.dir.path() / "out"));
}

TEST(Pipeline, StaticPropsWriteNoAnimationsNorSkeleton) {
  mdlforge::Description d = crateModel();
  d.poseParameters = {{"move_x", 0, -1, 1, 0}};
  d.attachments = {{"top", 0, 0, {}}};
  for (const char* name : {"static_prop", "crate"}) {
    SCOPED_TRACE(name);
    d.bodyParts[0].models[0].name = name;
    ImportRun run(d);
    LogCapture log;
    ASSERT_TRUE(run.converter.Convert());
    bool isStatic = name == std::string("static_prop");
    EXPECT_EQ(run.converter.isStatic(), isStatic);
    EXPECT_EQ(log.count("Writing 0 Animations:"), isStatic ? 0u : 1u);
    Names lists{"BodyGroupList", "AttachmentList", "RenderMeshList"};
    if (!isStatic) lists.insert(lists.begin(), {"Skeleton", "BoneMarkupList", "PoseParamList"});
    EXPECT_EQ(shown(childrenOf(run.readDocument()), {"_class"}), lists);
  }
}

TEST(Pipeline, OlderStripFilesServeWhenTheUsualOneIsMissing) {
  for (const char* extension : {".dx80.vtx", ".sw.vtx"}) {
    ImportRun run(crateModel());
    std::filesystem::path folder = run.dir.path() / "models/props";
    std::filesystem::rename(folder / "crate.dx90.vtx", folder / (std::string("crate") + extension));
    run.options.verbose = true;
    run.setup();
    LogCapture log;
    mainLog().setVerbosity(int(Severity::Detail));
    ASSERT_TRUE(run.extract());
    mainLog().setVerbosity(int(Severity::Message));
    EXPECT_EQ(run.tables().meshParts.size(), 1u) << extension;
    EXPECT_EQ(log.count("Using strip file " + run.dir.file("models/props/crate") + extension), 1u)
        << log.text();
  }
}

}  // namespace
}  // namespace zv
