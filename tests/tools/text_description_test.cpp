// The text form of a description: what each key sets, the shortcuts, references by name,
// and messages for text that cannot be read.

#include "mdlforge/text_description.h"

#include <gtest/gtest.h>

#include "kv/keyvalues.h"

namespace zv::mdlforge {
namespace {

Description parseOk(std::string_view text) {
  auto d = parseDescription(text);
  EXPECT_TRUE(d.ok()) << (d.ok() ? "" : d.message());
  return d.ok() ? std::move(d).value() : Description{};
}

std::string parseError(std::string_view text) {
  auto d = parseDescription(text);
  EXPECT_FALSE(d.ok());
  return d.ok() ? "" : d.message();
}

TEST(TextDescription, HeaderValuesAndRepeatedKeys) {
  Description d = parseOk(R"(
    "model" {
      "name" "models/props/crate.mdl"  "long_name" "models/props/crate_long.mdl"
      "version" "49"  "checksum" "0x7FFF0001"  "flags" "-2"
      "hull_min" "-1 -2.5 3e1"  "mass" "+12.5"
      "texture" "wood"  "texture" "metal"
      "texturedir" "models\props\"
      "skinfamily" "0 1"  "skinfamily" "1 0"
      "linear_bones" "yes"
    })");
  EXPECT_EQ(d.name, "models/props/crate.mdl");
  EXPECT_EQ(d.longName, "models/props/crate_long.mdl");
  EXPECT_EQ(d.version, 49);
  EXPECT_EQ(d.checksum, 0x7FFF0001);
  EXPECT_EQ(d.flags, -2);
  EXPECT_EQ(d.hullMin, (Vector3{-1, -2.5f, 30}));
  EXPECT_EQ(d.mass, 12.5f);
  EXPECT_EQ(d.textures, (std::vector<std::string>{"wood", "metal"}));
  EXPECT_EQ(d.textureDirs, (std::vector<std::string>{"models\\props\\"})) << "back-slashes are kept";
  ASSERT_EQ(d.skinFamilies.size(), 2u);
  EXPECT_EQ(d.skinFamilies[1], (std::vector<int16_t>{1, 0}));
  EXPECT_TRUE(d.linearBoneTable);
  EXPECT_EQ(outputBaseName(d), "crate");
}

TEST(TextDescription, MeshesVerticesAndTheTrianglesShortcut) {
  Description d = parseOk(R"(
    "model" { "bodypart" { "name" "body"
      "model" { "name" "m"
        "mesh" {
          "material" "2"
          "lod" { "triangles" "0 1 2" }
          "lod" { "stripgroup" { "vertices" "2 0" "flags" "2" "strip" { "indices" "0 1 0" "flags" "1" } } }
          "vertex" "1 2 3"
          "vertex" "1 2 3  0.5 0.25"
          "vertex" "1 2 3  0 1 0  0.5 0.25"
          "vertex" { "position" "4 5 6" "bones" "3 4" "weights" "0.75 0.25" "uv2" "1 2" "tangent" "0 1 0 -1" }
        }
      }
      "model" { "name" "empty" }
    } })");
  ASSERT_EQ(d.bodyParts.size(), 1u);
  ASSERT_EQ(d.bodyParts[0].models.size(), 2u);
  EXPECT_TRUE(d.bodyParts[0].models[1].meshes.empty());
  const Mesh& mesh = d.bodyParts[0].models[0].meshes.at(0);
  EXPECT_EQ(mesh.material, 2);
  ASSERT_EQ(mesh.vertices.size(), 4u);
  EXPECT_EQ(mesh.vertices[0].normal, (Vector3{0, 0, 1})) << "defaults stay";
  EXPECT_EQ(mesh.vertices[1].uv, (Vector2{0.5f, 0.25f}));
  EXPECT_EQ(mesh.vertices[2].normal, (Vector3{0, 1, 0}));
  EXPECT_EQ(mesh.vertices[3].boneCount, 2);
  EXPECT_EQ(mesh.vertices[3].bones, (std::array<uint8_t, 3>{3, 4, 0}));
  EXPECT_EQ(mesh.vertices[3].weights, (std::array<float, 3>{0.75f, 0.25f, 0}));
  EXPECT_EQ(mesh.vertices[3].uv2, (Vector2{1, 2}));
  EXPECT_EQ(mesh.vertices[3].tangent.w, -1.0f);

  ASSERT_EQ(mesh.lods.size(), 2u);
  ASSERT_EQ(mesh.lods[0].size(), 1u);
  EXPECT_EQ(mesh.lods[0][0].vertices, (std::vector<uint16_t>{0, 1, 2, 3}))
      << "the shortcut covers every vertex, also those listed after it";
  EXPECT_EQ(mesh.lods[0][0].strips.at(0).indices, (std::vector<uint16_t>{0, 1, 2}));
  const StripGroup& group = mesh.lods[1].at(0);
  EXPECT_EQ(group.vertices, (std::vector<uint16_t>{2, 0}));
  EXPECT_EQ(group.flags, 2);
  EXPECT_EQ(group.strips.at(0).indices, (std::vector<uint16_t>{0, 1, 0}));
}

TEST(TextDescription, ReferencesByNameOrIndex) {
  Description d = parseOk(R"(
    "model" {
      "attachment" { "name" "eyes" "bone" "Head" "origin" "1 2 3" }
      "bone" { "name" "root" }
      "bone" { "name" "head" "parent" "ROOT" }
      "bone" { "name" "tip" "parent" "1" }
      "poseparam" { "name" "move_x" "start" "-1" "end" "1" }
      "animation" { "name" "a0" } "animation" { "name" "a1" "data" "ff 00 7f" }
      "sequence" { "name" "walk" "animations" "a1 a0 1" "params" "move_x" "width" "3" }
      "sequence" { "name" "layered" "autolayer" { "sequence" "walk" "end" "1" } }
      "ikchain" { "name" "leg" "link" "root" "link" { "bone" "head" "knee" "0 0 1" } "link" "2" }
    })");
  ASSERT_EQ(d.bones.size(), 3u);
  EXPECT_EQ(d.bones[1].parent, 0);
  EXPECT_EQ(d.bones[2].parent, 1);
  ASSERT_EQ(d.attachments.size(), 1u);
  EXPECT_EQ(d.attachments[0].bone, 1) << "bones listed later can be named";
  EXPECT_EQ(d.attachments[0].local.translation(), (Vector3{1, 2, 3}));
  EXPECT_EQ(d.animations[1].data, (std::vector<uint8_t>{0xFF, 0x00, 0x7F}));
  EXPECT_FALSE(d.animations[0].data.has_value());
  EXPECT_EQ(d.sequences[0].animations, (std::vector<int16_t>{1, 0, 1}));
  EXPECT_EQ(d.sequences[0].paramIndex, (std::array<int32_t, 2>{0, -1}));
  EXPECT_EQ(d.sequences[1].autoLayers.at(0).sequence, 0);
  ASSERT_EQ(d.ikChains.at(0).links.size(), 3u);
  EXPECT_EQ(d.ikChains[0].links[1].bone, 1);
  EXPECT_EQ(d.ikChains[0].links[1].kneeDirection.z, 1.0f);
  EXPECT_EQ(d.ikChains[0].links[2].bone, 2);
}

TEST(TextDescription, KeyValueSectionsBecomeTextThatReadsBack) {
  Description d = parseOk(R"(
    "model" {
      "keyvalues" { "prop_data" { "base" "Wooden.Small" "health" "10" } "snapshot_weights_all" { } }
      "sequence" { "name" "s" "keyvalues" "raw text" }
    })");
  EXPECT_EQ(d.sequences.at(0).keyValues, "raw text");
  auto back = KeyValues::parse(d.keyValues);
  ASSERT_TRUE(back.ok()) << d.keyValues;
  const KeyValues* prop = back->find("prop_data");
  ASSERT_NE(prop, nullptr);
  EXPECT_EQ(prop->getString("base"), "Wooden.Small");
  EXPECT_EQ(prop->getInt("health"), 10);
  ASSERT_NE(back->find("snapshot_weights_all"), nullptr);
  EXPECT_TRUE(back->find("snapshot_weights_all")->isSection());
}

TEST(TextDescription, FileOptions) {
  Description d = parseOk(R"(
    "model" {
      "stripfile" { "layout" "extended" "lods" "3" "switch_points" "0 5 9" "version" "6"
                    "replacement" { "lod" "1" "material" "2" "name" "x_lod1" } }
      "vertexfile" { "id" "IDCV" "tangents" "0" "fixup" "0 2 2" "fixup" "1 0 2" "order" "2 3 0 1" }
    })");
  EXPECT_EQ(d.strip.layout, StripLayout::Extended);
  EXPECT_EQ(d.strip.lodCount, 3);
  EXPECT_EQ(d.strip.switchPoints, (std::vector<float>{0, 5, 9}));
  EXPECT_EQ(d.strip.version, 6);
  ASSERT_EQ(d.strip.replacements.size(), 2u);
  EXPECT_TRUE(d.strip.replacements[0].empty());
  EXPECT_EQ(d.strip.replacements[1].at(0).name, "x_lod1");
  EXPECT_EQ(d.vertexFile.id, 0x56434449);
  EXPECT_FALSE(d.vertexFile.tangents);
  EXPECT_EQ(d.vertexFile.fixupMode, FixupMode::Explicit) << "a fixup line asks for explicit fixups";
  ASSERT_EQ(d.vertexFile.fixups.size(), 2u);
  EXPECT_EQ(d.vertexFile.fixups[1].lod, 1);
  EXPECT_EQ(d.vertexFile.fixups[1].count, 2);
  EXPECT_EQ(d.vertexFile.storedOrder, (std::vector<int32_t>{2, 3, 0, 1}));
}

TEST(TextDescription, MessagesNameTheKeyAndWhereItIs) {
  EXPECT_NE(
      parseError(
          R"("model" { "bodypart" { "name" "body" "model" { "name" "lid" "mesh" { "materal" "1" } } } })")
          .find("bodypart \"body\": model \"lid\": mesh 0: unknown key \"materal\""),
      std::string::npos);
  EXPECT_NE(parseError(R"("model" { "bone" { "name" "a" "position" "1 2" } })")
                .find("\"position\" needs 3 numbers"),
            std::string::npos);
  EXPECT_NE(
      parseError(R"("model" { "bone" { "name" "a" "parent" "nobody" } })").find("nothing called \"nobody\""),
      std::string::npos);
  EXPECT_NE(parseError(R"("model" { "version" "4x" })").find("\"version\""), std::string::npos);
  EXPECT_NE(parseError(R"("model" { "skinfamily" "0 70000" })").find("skinfamily"), std::string::npos)
      << "values beyond an int16";
  EXPECT_NE(parseError(R"("model" { "animation" { "data" "abc" } })").find("hexadecimal"), std::string::npos);
  EXPECT_NE(parseError(R"("model" { "bone" "root" })").find("must be a section"), std::string::npos);
  EXPECT_NE(parseError(R"("mdl" { })").find("no \"model\" section"), std::string::npos);
  EXPECT_FALSE(parseError(R"("model" { "name" "x" )").empty()) << "unbalanced braces";
}

}  // namespace
}  // namespace zv::mdlforge
