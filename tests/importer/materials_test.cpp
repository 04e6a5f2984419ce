// Material mapping: which legacy material each slot resolves to, and what is said.

#include <gtest/gtest.h>

#include "base/log.h"
#include "geometry_fixture.h"
#include "importer/materials.h"

#ifdef ZV_HAVE_QPKPACK
#include "qpkpack/qpk_writer.h"
#endif

namespace zv {
namespace {

using testing::crateModel;
using testing::GeometryRun;
using testing::triangleMesh;

// The crate with one mesh per texture, so that every slot is used by a mesh.
mdlforge::Description texturedCrate(std::vector<std::string> textures, std::vector<std::string> dirs) {
  mdlforge::Description d = crateModel();
  d.textures = std::move(textures);
  d.textureDirs = std::move(dirs);
  d.bodyParts[0].models[0].meshes.clear();
  for (size_t t = 0; t < d.textures.size(); ++t) {
    d.bodyParts[0].models[0].meshes.push_back(triangleMesh(int32_t(t), 1, float(t)));
  }
  return d;
}

TEST(MaterialPaths, CandidatesJoinDirectoryAndNameInLowerCase) {
  EXPECT_EQ(materialCandidatePath("models\\props\\", "crate"), "materials\\models\\props\\crate.qmt");
  EXPECT_EQ(materialCandidatePath("\\Models\\Props", "/Crate"), "materials\\models\\props\\crate.qmt");
  EXPECT_EQ(materialCandidatePath("", "crate"), "materials\\crate.qmt");
  // Mixed separators keep the first of each doubled run.
  EXPECT_EQ(materialCandidatePath("models/props//", "\\\\crate"), "materials\\models/props/crate.qmt");
  // Only one leading separator goes; the rest collapse with the join.
  EXPECT_EQ(materialCandidatePath("//a", "b"), "materials\\a\\b.qmt");
}

TEST(MaterialPaths, AbsoluteNamesAreDriveOrNetworkPaths) {
  EXPECT_TRUE(isAbsoluteTextureName("C:\\art\\crate"));
  EXPECT_TRUE(isAbsoluteTextureName("d:/art/crate"));
  EXPECT_TRUE(isAbsoluteTextureName("\\\\server\\art\\crate"));
  EXPECT_FALSE(isAbsoluteTextureName("/crate"));
  EXPECT_FALSE(isAbsoluteTextureName("\\crate"));
  EXPECT_FALSE(isAbsoluteTextureName("crate"));
  EXPECT_FALSE(isAbsoluteTextureName("1:crate"));
  EXPECT_FALSE(isAbsoluteTextureName(""));
}

TEST(MaterialMapping, TheFirstDirectoryWhereTheFileExistsWins) {
  GeometryRun both(texturedCrate({"crate"}, {"models\\first\\", "models\\second\\"}));
  both.material("models/first/crate");
  both.material("models/second/crate");
  ASSERT_TRUE(both.extract());
  EXPECT_EQ(both.tables().materials.paths, std::vector<std::string>{"materials\\models\\first\\crate.qmat"});
  EXPECT_EQ(both.tables().materials.resolvedCount, 1);

  GeometryRun second(texturedCrate({"crate"}, {"models\\first\\", "models\\second\\"}));
  second.material("models/second/crate");
  ASSERT_TRUE(second.extract());
  EXPECT_EQ(second.tables().materials.paths,
            std::vector<std::string>{"materials\\models\\second\\crate.qmat"});
}

TEST(MaterialMapping, LeadingSlashesAndCaseDoNotStopAMatch) {
  GeometryRun run(texturedCrate({"/Crate", "\\Lid"}, {"\\Models\\Props\\"}));
  run.material("models/props/crate");
  run.material("models/props/lid");
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths, (std::vector<std::string>{"materials\\models\\props\\crate.qmat",
                                                                    "materials\\models\\props\\lid.qmat"}));
}

TEST(MaterialMapping, AStripFileReplacementTakesOverItsSlotOnly) {
  mdlforge::Description d = texturedCrate({"a", "b", "c"}, {"m\\"});
  d.strip.replacements = {{{2, "special"}}};
  GeometryRun run(d);
  for (const char* name : {"m/a", "m/b", "m/c", "m/special"}) run.material(name);
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths,
            (std::vector<std::string>{"materials\\m\\a.qmat", "materials\\m\\b.qmat",
                                      "materials\\m\\special.qmat"}));
}

TEST(MaterialMapping, ReplacementsBelongToTheirLod) {
  // Slot 0 is replaced for LOD 1 only; LOD 0 comes first in the walk and keeps the name.
  mdlforge::Description d = texturedCrate({"a"}, {"m\\"});
  d.bodyParts[0].models[0].meshes[0].lods.push_back(d.bodyParts[0].models[0].meshes[0].lods[0]);
  d.strip.replacements = {{}, {{0, "far"}}};
  GeometryRun run(d, true);
  run.material("m/a");
  run.material("m/far");
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths, std::vector<std::string>{"materials\\m\\a.qmat"});

  // Without the LOD 0 file the LOD 1 replacement resolves the slot during the walk.
  GeometryRun farOnly(d, true);
  farOnly.material("m/far");
  ASSERT_TRUE(farOnly.extract());
  EXPECT_EQ(farOnly.tables().materials.paths, std::vector<std::string>{"materials\\m\\far.qmat"});
}

TEST(MaterialMapping, AbsoluteNamesAreKeptAsFoundAndReportedOnce) {
  GeometryRun run(texturedCrate({"C:\\Art\\Crate.qmt", "D:/Art/Lid"}, {"models\\"}));
  LogCapture log;
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths, (std::vector<std::string>{"C:\\Art\\Crate.qmat", "D:/Art/Lid"}));
  EXPECT_EQ(log.count("AddMaterialsFromModel: Found absolute path for texture C:\\Art\\Crate.qmt\n"), 1u);
  EXPECT_EQ(log.count("AddMaterialsFromModel: Found absolute path for texture D:/Art/Lid\n"), 1u);
  for (const LogRecord& record : log.records()) {
    if (record.text.find("AddMaterialsFromModel") != std::string::npos) {
      EXPECT_TRUE(record.channel.empty());
    }
  }
}

TEST(MaterialMapping, WithoutTextureDirectoriesRelativeNamesStayEmpty) {
  GeometryRun run(texturedCrate({"crate", "lid"}, {}));
  run.material("crate");
  LogCapture log;
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths, (std::vector<std::string>{"", ""}));
  EXPECT_EQ(run.tables().materials.resolvedCount, 0);
  EXPECT_TRUE(run.tables().referencedMaterials.empty());
  EXPECT_EQ(log.count("mtl"), 0u);
}

TEST(MaterialMapping, MissingFilesLeaveTheSlotEmptyWithoutAMessage) {
  GeometryRun run(texturedCrate({"crate", "lid"}, {"models\\props\\"}));
  run.material("models/props/lid");
  LogCapture log;
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths,
            (std::vector<std::string>{"", "materials\\models\\props\\lid.qmat"}));
  EXPECT_EQ(run.tables().materials.resolved, (std::vector<uint8_t>{0, 1}));
  EXPECT_TRUE(log.records().empty()) << log.text();
}

TEST(MaterialMapping, TheFinishingPassResolvesUnusedSlotsAndListsEachMaterialOnce) {
  // Only texture 1 has a mesh; 0 and 2 are resolved afterwards. Textures 1 and 2 name the
  // same material, which the reference list names once.
  mdlforge::Description d = texturedCrate({"skin", "glass", "Glass"}, {"m\\"});
  d.bodyParts[0].models[0].meshes = {triangleMesh(1, 1)};
  GeometryRun run(d);
  run.material("m/skin");
  run.material("m/glass");
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths,
            (std::vector<std::string>{"materials\\m\\skin.qmat", "materials\\m\\glass.qmat",
                                      "materials\\m\\glass.qmat"}));
  EXPECT_EQ(run.tables().materials.resolvedCount, 3);
  EXPECT_EQ(run.tables().referencedMaterials,
            (std::vector<std::string>{"materials\\m\\skin.qmat", "materials\\m\\glass.qmat"}));
}

TEST(MaterialMapping, AnOutOfRangeMaterialIsReportedOnTheMainChannel) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].meshes = {triangleMesh(5, 1)};
  GeometryRun run(d);
  run.material("models/props/crate");
  LogCapture log;
  ASSERT_TRUE(run.extract());
  const std::string text =
      "C_ZV_MDL_Import::AddMaterial(1797): Unable to add mtl 5 for lod 0 model has only 1 mtls\n";
  ASSERT_EQ(log.count(text), 1u);
  for (const LogRecord& record : log.records()) {
    if (record.text != text) continue;
    EXPECT_EQ(record.channel, std::string(kMainChannel));
    EXPECT_EQ(record.severity, Severity::Warning);
  }
  // The slot that exists is still resolved; the faces keep the index they named.
  EXPECT_EQ(run.tables().materials.paths, std::vector<std::string>{"materials\\models\\props\\crate.qmat"});
  ASSERT_EQ(run.tables().meshParts.size(), 1u);
  EXPECT_EQ(run.tables().meshParts[0].faceSets[0].material, 5);
  run.converter.AddMaterial(2, -1);
  EXPECT_EQ(log.count("Unable to add mtl -1 for lod 2 model has only 1 mtls\n"), 1u);
}

TEST(MaterialMapping, ExistenceIsAskedOfEverySearchPath) {
  testing::TempDir other;
  testing::writeText(other.path() / "materials/models/props/crate.qmt", "");
  GeometryRun run(crateModel());
  ASSERT_TRUE(run.fileSystem.addSearchPath(other.str(), "GAME", fs::Placement::Tail));
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths, std::vector<std::string>{"materials\\models\\props\\crate.qmat"});
}

#ifdef ZV_HAVE_QPKPACK
TEST(MaterialMapping, MaterialsInsideMountedArchivesAreFound) {
  testing::TempDir packs;
  auto image = qpkpack::buildQpkArchive({{"materials/models/props/crate.qmt", {}}}, {});
  ASSERT_TRUE(image) << image.message();
  std::string archive = packs.file("pak01_dir.qpk");
  ASSERT_TRUE(qpkpack::writeQpkImage(*image, archive));
  GeometryRun run(crateModel());
  ASSERT_TRUE(run.fileSystem.addSearchPath(archive, "GAME", fs::Placement::Tail));
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths, std::vector<std::string>{"materials\\models\\props\\crate.qmat"});
}
#endif

}  // namespace
}  // namespace zv
