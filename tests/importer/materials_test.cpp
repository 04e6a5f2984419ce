// Material mapping: which legacy material each slot resolves to, and what is said.

#include <gtest/gtest.h>

#include "base/log.h"
#include "importer/materials.h"
#include "importer_fixture.h"

#ifdef ZV_HAVE_QPKPACK
#include "qpkpack/qpk_writer.h"
#endif

namespace zv {
namespace {

using testing::crateModel;
using testing::ImportRun;
using testing::triangleMesh;
using Paths = std::vector<std::string>;

// The crate with one mesh per texture, so that every slot is used by a mesh.
mdlforge::Description texturedCrate(Paths textures, Paths dirs) {
  mdlforge::Description d = crateModel();
  d.textures = std::move(textures);
  d.textureDirs = std::move(dirs);
  d.bodyParts[0].models[0].meshes.clear();
  for (size_t t = 0; t < d.textures.size(); ++t)
    d.bodyParts[0].models[0].meshes.push_back(triangleMesh(int32_t(t), 1, float(t)));
  return d;
}

TEST(MaterialMapping, EachSlotTakesTheFirstTextureDirectoryWhereItsFileExists) {
  // Network names are absolute, a digit is no drive; one leading separator goes from a
  // candidate and doubled ones collapse, keeping the first of each run.
  EXPECT_TRUE(isAbsoluteTextureName("\\\\server\\art\\crate"));
  EXPECT_FALSE(isAbsoluteTextureName("1:crate"));
  EXPECT_EQ(materialCandidatePath("models/props//", "\\\\crate"), "materials\\models/props/crate.qmt");
  const std::string log = "AddMaterialsFromModel: Found absolute path for texture ";
  // Mesh files name an unresolved slot by the path it would have had under the first
  // texture directory, so that importers keep its faces.
  const struct {
    Paths textures, dirs, files, expected, meshNames;
    std::string log;
  } cases[] = {
      // Directories are tried in order: the first that has the file wins.
      {{"crate"}, {"a\\", "b\\"}, {"a/crate", "b/crate"}, {"materials\\a\\crate.qmat"}, {"materials\\a\\crate.qmat"}, ""},
      {{"crate"}, {"a\\", "b\\"}, {"b/crate"}, {"materials\\b\\crate.qmat"}, {"materials\\b\\crate.qmat"}, ""},
      // A leading separator goes and case does not matter; a missing file says nothing.
      {{"/Crate", "\\Lid", "Gone"},
       {"\\M\\", "n\\"},
       {"m/crate", "m/lid"},
       {"materials\\m\\crate.qmat", "materials\\m\\lid.qmat", ""},
       {"materials\\m\\crate.qmat", "materials\\m\\lid.qmat", "materials\\m\\gone.qmat"},
       ""},
      // Without texture directories relative names stay unresolved.
      {{"crate", "lid"}, {}, {"crate"}, {"", ""}, {"materials\\crate.qmat", "materials\\lid.qmat"}, ""},
      // Absolute names are kept as found, only ".qmt" rewritten, and reported once each.
      {{"C:\\A\\Crate.qmt", "D:/A/Lid"},
       {"m\\"},
       {},
       {"C:\\A\\Crate.qmat", "D:/A/Lid"},
       {"C:\\A\\Crate.qmat", "D:/A/Lid"},
       log + "C:\\A\\Crate.qmt\n" + log + "D:/A/Lid\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.textures[0]);
    ImportRun run(texturedCrate(c.textures, c.dirs));
    for (const std::string& file : c.files) run.material(file);
    LogCapture capture;
    ASSERT_TRUE(run.extract());
    EXPECT_EQ(run.tables().materials.paths, c.expected);
    EXPECT_EQ(run.tables().materials.meshNames, c.meshNames);
    EXPECT_EQ(capture.text(), c.log);
  }
}

TEST(MaterialMapping, MeshFilesNameUnresolvedMaterialsAndVerboseRunsListThemOnce) {
  ImportRun run(texturedCrate({"crate", "lid"}, {"models\\props\\"}));
  run.material("models/props/lid");
  run.options.verbose = true;
  run.setup();
  mainLog().setVerbosity(int(Severity::Detail));
  LogCapture log;
  bool written = run.extractAndWrite();
  mainLog().setVerbosity(int(Severity::Message));
  ASSERT_TRUE(written);
  EXPECT_EQ(log.count("was found under no texture directory"), 1u);
  EXPECT_EQ(log.count("Material 0 \"crate\" was found under no texture directory; mesh files name it "
                      "materials\\models\\props\\crate.qmat\n"), 1u);
  // The slot stays empty for the document and the reference list.
  EXPECT_EQ(run.tables().referencedMaterials, Paths{"materials\\models\\props\\lid.qmat"});
  Paths named;
  for (const dmx::CDmElement* e : run.readDmx(run.meshFile("crate_bg_body_lod0")).elements) {
    if (e->type() == "DmeMaterial") named.push_back(e->getString("mtlName"));
  }
  EXPECT_EQ(named, (Paths{"materials/models/props/crate.qmat", "materials/models/props/lid.qmat"}));
}

TEST(MaterialMapping, AStripFileReplacementTakesOverItsSlotForItsLodOnly) {
  mdlforge::Description d = texturedCrate({"a", "b", "c"}, {"m\\"});
  d.strip.lodCount = 2;  // LOD 1 has no geometry but replaces slot 0
  d.strip.replacements = {{{2, "special"}}, {{0, "far"}}};
  ImportRun run(d);
  for (const char* name : {"m/a", "m/b", "m/c", "m/special", "m/far"}) run.material(name);
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths,
            (Paths{"materials\\m\\a.qmat", "materials\\m\\b.qmat", "materials\\m\\special.qmat"}));
}

TEST(MaterialMapping, AnOutOfRangeMaterialIsReportedOnTheMainChannel) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].meshes = {triangleMesh(5, 1)};
  ImportRun run(d);
  run.material("models/props/crate");
  LogCapture log;
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(log.text(),
            "C_ZV_MDL_Import::AddMaterial(1797): Unable to add mtl 5 for lod 0 model has only 1 mtls\n");
  EXPECT_EQ(log.records().at(0).channel, std::string(kMainChannel));
  // The slot that exists is still resolved; the faces keep the index they named.
  EXPECT_EQ(run.tables().materials.paths, Paths{"materials\\models\\props\\crate.qmat"});
  EXPECT_EQ(run.tables().meshParts.at(0).faceSets.at(0).material, 5);
  run.converter.AddMaterial(2, -1);
  EXPECT_EQ(log.count("Unable to add mtl -1 for lod 2 model has only 1 mtls\n"), 1u);
  // Its mesh file still names a material for those faces.
  ASSERT_TRUE(run.converter.WriteMeshes());
  Paths named;
  for (const dmx::CDmElement* e : run.readDmx(run.meshFile("crate_bg_body_lod0")).elements) {
    if (e->type() == "DmeMaterial") named.push_back(e->name());
  }
  EXPECT_EQ(named, Paths{"materials\\missing_material_5.qmat"});
}

#ifdef ZV_HAVE_QPKPACK
TEST(MaterialMapping, MaterialsInsideMountedArchivesAreFound) {
  testing::TempDir packs;
  auto image = qpkpack::buildQpkArchive({{"materials/models/props/crate.qmt", {}}}, {});
  ASSERT_TRUE(image) << image.message();
  std::string archive = packs.file("pak01_dir.qpk");
  ASSERT_TRUE(qpkpack::writeQpkImage(*image, archive));
  ImportRun run(crateModel());
  ASSERT_TRUE(run.fileSystem.addSearchPath(archive, "GAME", fs::Placement::Tail));
  ASSERT_TRUE(run.extract());
  EXPECT_EQ(run.tables().materials.paths, Paths{"materials\\models\\props\\crate.qmat"});
}
#endif

}  // namespace
}  // namespace zv
