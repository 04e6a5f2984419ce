// Game data of the key-value text (door options, particles, prop data) and the weapon
// animation prefab.

#include <gtest/gtest.h>

#include "base/log.h"
#include "base/strings.h"
#include "importer/particles.h"
#include "importer_fixture.h"
#include "mdlforge/byte_writer.h"

#ifdef ZV_HAVE_QPKPACK
#include "qpkpack/qpk_writer.h"
#endif

namespace zv {
namespace {

using testing::childrenOf;
using testing::ImportRun;
using testing::listed;
using testing::shown;
using Names = std::vector<std::string>;

// A particle file of an older encoding (2 to 5) defining these elements (type, name).
std::vector<uint8_t> particleFile(int encoding, const std::vector<std::pair<std::string, std::string>>& elements) {
  mdlforge::ByteWriter w;
  std::string header = format("<!-- dmx encoding binary %d format pcf 1 -->\n", encoding);
  w.raw({reinterpret_cast<const uint8_t*>(header.data()), header.size()});
  w.u8(0);
  std::vector<std::string> strings;
  auto index = [&](const std::string& text) {
    for (size_t i = 0; i < strings.size(); ++i) {
      if (strings[i] == text) return int32_t(i);
    }
    strings.push_back(text);
    return int32_t(strings.size() - 1);
  };
  for (const auto& [type, name] : elements) {
    index(type);
    if (encoding >= 4) index(name);
  }
  encoding <= 3 ? w.i16(int16_t(strings.size())) : w.i32(int32_t(strings.size()));
  for (const std::string& text : strings) w.cstring(text);
  w.i32(int32_t(elements.size()));
  for (const auto& [type, name] : elements) {
    encoding <= 4 ? w.i16(int16_t(index(type))) : w.i32(index(type));
    if (encoding <= 3) {
      w.cstring(name);
    } else {
      encoding == 4 ? w.i16(int16_t(index(name))) : w.i32(index(name));
    }
    w.zeros(16);
  }
  w.i32(0);  // the attribute blocks, which nothing reads
  return w.take();
}

const std::pair<std::string, std::string> kSystem(const std::string& name) {
  return {"DmeParticleSystemDefinition", name};
}

TEST(ParticleFiles, EveryEncodingGivesItsSystemsInOrder) {
  for (int encoding : {2, 3, 4, 5}) {
    auto bytes = particleFile(encoding, {kSystem("fire"), {"DmeParticleOperator", "op"}, kSystem("smoke")});
    auto names = particleSystemNames(ByteView(bytes));
    ASSERT_TRUE(names) << encoding << ": " << names.message();
    EXPECT_EQ(*names, (Names{"fire", "smoke"})) << encoding;
    // Every shorter file is refused, never read past.
    for (size_t size = 0; size + 5 < bytes.size(); ++size) {
      std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + ptrdiff_t(size));
      EXPECT_FALSE(particleSystemNames(ByteView(cut))) << encoding << " cut at " << size;
    }
  }
  auto version1 = particleFile(5, {kSystem("fire")});
  version1[std::string_view("<!-- dmx encoding binary ").size()] = '1';
  EXPECT_FALSE(particleSystemNames(ByteView(version1)));
}

TEST(ParticleFiles, NewFilesAndAttachmentTypes) {
  EXPECT_EQ(newParticleFile("particles/fire_01.pcf", "burning_gib"), "particles/fire_01/burning_gib.qpcf");
  EXPECT_EQ(newParticleFile("Particles\\Weapons\\Muzzle.pcf", "Flash"), "particles/weapons/muzzle/flash.qpcf");
  EXPECT_EQ(particleAttachmentType("  Follow_Attachment "), "follow_attachment");
  EXPECT_EQ(particleAttachmentType("start_at_worldorigin"), "start_at_worldorigin");
  EXPECT_FALSE(particleAttachmentType("follow_eyes"));
  EXPECT_FALSE(particleAttachmentType(""));
}

mdlforge::Description crateWith(const std::string& keyValues) {
  mdlforge::Description d = testing::crateModel();
  d.keyValues = keyValues;
  return d;
}

Names gameData(ImportRun& run) {
  EXPECT_TRUE(run.converter.Convert());
  return listed(run.readDocument(), "GameDataList", {"game_class", "game_keys"});
}

TEST(QmdlGameData, DoorOptionsAndPropDataCopiedInTheirOrder) {
  ImportRun run(crateWith("mdlkeyvalue { prop_data { base Wood.Small health 40 } "
                          "door_options { defaults { open doors.open close doors.close } skin 1 } }"));
  // Door options come before prop data, whatever the text's order.
  EXPECT_EQ(gameData(run), (Names{"door_options {defaults.open=doors.open, defaults.close=doors.close, skin=1}",
                                  "prop_data {base=Wood.Small, health=40}"}));
}

#ifdef ZV_HAVE_QPKPACK
// A manifest and particle files of three encodings served from an archive.
struct ParticleGame {
  testing::TempDir packs;
  std::string archive = packs.file("pak01_dir.qpk");
  ParticleGame(bool withManifest, bool corruptFile) {
    std::string manifest = "particles_manifest\n{\n\t\"file\" \"!particles/fire.pcf\"\n\tfile "
                           "\"particles\\weapons\\\\muzzle.pcf\"\n\t\"file\" \"particles/broken.pcf\"\n"
                           "\t\"file\" \"particles/late.pcf\"\n}\n";
    std::vector<qpkpack::PackedFile> files = {
        {"particles/fire.pcf", particleFile(2, {kSystem("burning_gib"), kSystem("embers")})},
        {"particles/weapons/muzzle.pcf", particleFile(4, {kSystem("flash")})},
        {"particles/late.pcf", particleFile(5, {kSystem("embers"), kSystem("spark")})},
        {"particles/broken.pcf", corruptFile ? std::vector<uint8_t>{'x'} : particleFile(5, {})},
    };
    if (withManifest) files.push_back({std::string(kParticleManifest), {manifest.begin(), manifest.end()}});
    auto image = qpkpack::buildQpkArchive(files, {});
    EXPECT_TRUE(image) << image.message();
    if (image) {
      EXPECT_TRUE(qpkpack::writeQpkImage(*image, archive));
    }
  }
};

const char* kParticles =
    "mdlkeyvalue { particles { "
    "effect { name burning_gib attachment_type follow_attachment attachment_point \"top\" } "
    "effect { name embers attachment_type \"Start_At_Origin\" } "
    "effect { name flash attachment_type follow_eyes attachment_point muzzle } "
    "effect { name spark } "
    "effect { name nowhere attachment_point top } } }";

TEST(QmdlGameData, ParticleNamesResolveThroughTheManifestOnceForTheRun) {
  ParticleGame game(true, true);
  ImportRun run(crateWith(kParticles));
  ASSERT_TRUE(run.fileSystem.addSearchPath(game.archive, "GAME", fs::Placement::Tail));
  ParticleResolver particles(run.fileSystem);
  C_ZV_MDL_Import converter(run.fileSystem, run.output, &particles);
  LogCapture log;
  for (int model = 0; model < 2; ++model) {
    converter.Setup(run.options, 0);
    ASSERT_TRUE(converter.Convert());
    // The first file of the manifest that defines a name wins; a type the new particles
    // lack is left out, the attachment point kept.
    EXPECT_EQ(listed(run.readDocument(), "GameDataList", {"game_keys"}),
              (Names{"{name=particles/fire/burning_gib.qpcf, attachment_type=follow_attachment, attachment_point=top}",
                     "{name=particles/fire/embers.qpcf, attachment_type=start_at_origin, attachment_point=}",
                     "{name=particles/weapons/muzzle/flash.qpcf, attachment_point=muzzle}",
                     "{name=particles/late/spark.qpcf, attachment_point=}", "{attachment_point=top}"}));
  }
  // The broken file is said once for the run; the unknown name once per model.
  EXPECT_EQ(log.count("Particle file particles/broken.pcf: not a particle file of encoding 2 to 5; its systems are "
                      "not converted\n"),
            1u)
      << log.text();
  EXPECT_EQ(log.count("Particle system \"nowhere\" is defined in no particle file of the game; its name is not "
                      "converted\n"),
            2u);
}

TEST(QmdlGameData, WithoutAManifestParticlesKeepTheirOtherKeys) {
  ParticleGame game(false, false);
  ImportRun run(crateWith(kParticles));
  ASSERT_TRUE(run.fileSystem.addSearchPath(game.archive, "GAME", fs::Placement::Tail));
  LogCapture log;
  Names data = gameData(run);
  ASSERT_EQ(data.size(), 5u);
  EXPECT_EQ(data[0], "particle {attachment_type=follow_attachment, attachment_point=top}");
  EXPECT_EQ(log.count("Particle names cannot be converted: particles/particles_manifest.txt could not be read\n"), 1u);
}
#endif

mdlforge::Description knife() {
  mdlforge::Description d = testing::crateModel();
  d.name = "models/weapons/knife.mdl";
  d.bones = {testing::bone("root", -1), testing::bone("blade", 0)};
  mdlforge::Animation stab;
  stab.name = "stab";
  stab.frames = 4;
  d.animations = {stab};
  mdlforge::Sequence seq;
  seq.name = "stab";
  // blade differs from root by 0.0011: listed; in the second list by less: left out.
  seq.weights = {1, 0.9989f};
  mdlforge::Sequence idle = seq;
  idle.name = "idle";
  idle.weights = {1, 0.9991f};
  d.sequences = {seq, idle};
  return d;
}

TEST(WeaponPrefab, PrefixedSequencesAndWeightListsInAPrefabDocument) {
  ImportRun run(knife());
  run.options.baseNames = {"knife"};
  run.options.writeWeaponAnimPrefab = true;
  run.setup();
  ASSERT_TRUE(run.converter.Convert());
  std::string text = testing::readText(run.out("knife_refs/prefab/knife.qmdl_prefab"));
  Result<Kv3Document> prefab = readKv3Text(text);
  ASSERT_TRUE(prefab) << prefab.message();
  const Kv3Value& root = *prefab->root.find("rootNode");
  EXPECT_EQ(testing::valueOf(root, "document_kind"), "2");
  EXPECT_EQ(shown(childrenOf(root), {"_class"}), (Names{"AnimationList", "WeightListList"}));
  EXPECT_EQ(listed(root, "AnimationList", {"name", "source_filename", "weight_list_name"}),
            (Names{"knife_stab props/knife_refs/anim/stab_0.dmx knife_bonemask_stab",
                   "knife_idle props/knife_refs/anim/stab_0.dmx knife_bonemask_idle"}));
  EXPECT_TRUE(std::filesystem::exists(run.dir.path() / "out/props/knife_refs/anim/stab_0.dmx"));
  // The same weight lists as the model document's, prefixed; the 0.001 rule on both sides.
  Names lists = listed(root, "WeightListList", {"name", "weights"});
  EXPECT_EQ(lists, (Names{"knife_bonemask_default [{bone=root, weight=1}]",
                          "knife_bonemask_stab [{bone=root, weight=1}, {bone=blade, weight=0.9989}]",
                          "knife_bonemask_idle [{bone=root, weight=1}]"}));
  Names documentLists = listed(run.readDocument("knife.qmdl"), "WeightListList", {"weights"});
  for (size_t i = 0; i < lists.size(); ++i) EXPECT_NE(lists[i].find(documentLists.at(i)), std::string::npos);
}

TEST(WeaponPrefab, AFailedSaveIsSaidInRedAndTheDocumentStillWritten) {
  ImportRun run(knife());
  run.options.writeWeaponAnimPrefab = true;
  run.options.weaponAnimPrefab = "weapons/shared.qmdl_prefab";
  run.setup();
  std::filesystem::create_directories(run.out("crate_refs/prefab/crate.qmdl_prefab"));  // a folder in the way
  LogCapture log;
  ASSERT_TRUE(run.converter.Convert());
  std::string file = run.dir.file("out/props/crate_refs/prefab/crate.qmdl_prefab");
  bool red = false;
  for (const LogRecord& record : log.records()) {
    if (record.text.rfind("Couldn't save prefab :: " + file + " :: ", 0) == 0) red = record.color == colors::kRed;
  }
  EXPECT_TRUE(red) << log.text();
  // The other direction: the model document includes a prefab.
  EXPECT_EQ(shown(childrenOf(run.readDocument(), "Prefab"), {"target_file"}), Names{"weapons/shared.qmdl_prefab"});
}

}  // namespace
}  // namespace zv
