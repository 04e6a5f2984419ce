// Mesh DMX files and meshinfo.txt, read back through the DMX reader and checked against
// what the model builder was given.

#include <gtest/gtest.h>

#include <cstdio>

#include "base/log.h"
#include "geometry_fixture.h"

namespace zv {
namespace {

using dmx::CDmElement;
using testing::crateModel;
using testing::GeometryRun;
using testing::readBytes;
using testing::readText;
using testing::triangleMesh;

// The parts of a read-back mesh file that the checks walk.
struct MeshFile {
  dmx::DmDocument document;
  const CDmElement* model = nullptr;
  const CDmElement* dag = nullptr;
  const CDmElement* bind = nullptr;
  std::vector<CDmElement*> faceSets;
};

MeshFile openMesh(const GeometryRun& run, const std::string& part) {
  MeshFile f;
  f.document = run.readMesh(part);
  const CDmElement* root = f.document.root;
  EXPECT_EQ(root->type(), "DmElement");
  EXPECT_EQ(root->name(), "root");
  f.model = root->getElement("model");
  EXPECT_EQ(root->getElement("skeleton"), f.model);
  if (!f.model) throw std::runtime_error(part + ": no model element");
  EXPECT_EQ(f.model->type(), "DmeModel");
  EXPECT_EQ(f.model->name(), "model");
  const std::vector<CDmElement*>& children = f.model->getElementArray("children");
  if (children.empty()) throw std::runtime_error(part + ": the model has no children");
  f.dag = children.back();
  EXPECT_EQ(f.dag->type(), "DmeDag");
  EXPECT_EQ(f.dag->name(), part);
  EXPECT_TRUE(f.dag->getElementArray("children").empty());
  const CDmElement* mesh = f.dag->getElement("shape");
  if (!mesh) throw std::runtime_error(part + ": the dag has no shape");
  EXPECT_EQ(mesh->type(), "DmeMesh");
  EXPECT_EQ(mesh->name(), part);
  f.bind = mesh->getElement("bindState");
  if (!f.bind) throw std::runtime_error(part + ": no bind state");
  EXPECT_EQ(f.bind->type(), "DmeVertexData");
  EXPECT_EQ(f.bind->name(), "bind");
  EXPECT_EQ(mesh->getElement("currentState"), f.bind);
  EXPECT_EQ(mesh->getElementArray("baseStates"), std::vector<CDmElement*>{const_cast<CDmElement*>(f.bind)});
  f.faceSets = mesh->getElementArray("faceSets");
  return f;
}

const char* const kIndexedFields[] = {"position$0", "normal$0", "texcoord$0", "tangent$0", "texcoord$1"};

// The file against the extracted part: every value, every corner, every material.
void expectFileHoldsPart(const MeshFile& f, const MeshPart& part, const MaterialSlots& materials) {
  SCOPED_TRACE(part.name);
  const CDmElement& bind = *f.bind;
  bool twoSets = part.texcoordSets == 2;
  std::vector<std::string> format{"position$0", "normal$0", "texcoord$0", "tangent$0"};
  if (twoSets) format.push_back("texcoord$1");
  format.insert(format.end(), {"blendweights$0", "blendindices$0"});
  EXPECT_EQ(bind.getStringArray("vertexFormat"), format);
  EXPECT_EQ(bind.getInt("jointCount"), 3);
  EXPECT_EQ(bind.has("texcoord$1"), twoSets);
  EXPECT_EQ(bind.has("texcoord$1Indices"), twoSets);

  const auto& positions = bind.getVector3Array("position$0");
  const auto& normals = bind.getVector3Array("normal$0");
  const auto& uvs = bind.getVector2Array("texcoord$0");
  const auto& tangents = bind.getVector4Array("tangent$0");
  const auto& uvs1 = bind.getVector2Array("texcoord$1");
  const auto& weights = bind.getFloatArray("blendweights$0");
  const auto& joints = bind.getIntArray("blendindices$0");
  ASSERT_EQ(positions.size(), part.vertices.size());
  ASSERT_EQ(weights.size(), 3 * part.vertices.size());
  ASSERT_EQ(joints.size(), 3 * part.vertices.size());
  for (size_t v = 0; v < part.vertices.size(); ++v) {
    const GatheredVertex& g = part.vertices[v];
    EXPECT_EQ(positions[v], g.position);
    EXPECT_EQ(normals.at(v), g.normal);
    EXPECT_EQ(uvs.at(v), g.texcoord0);
    EXPECT_EQ(tangents.at(v), g.tangent);
    if (twoSets) {
      EXPECT_EQ(uvs1.at(v), g.texcoord1);
    }
    for (size_t k = 0; k < 3; ++k) {
      EXPECT_EQ(weights[3 * v + k], g.weights[k]);
      EXPECT_EQ(joints[3 * v + k], g.bones[k]);
    }
  }

  ASSERT_EQ(f.faceSets.size(), part.faceSets.size());
  int32_t corner = 0;
  for (size_t s = 0; s < part.faceSets.size(); ++s) {
    const FaceSet& faces = part.faceSets[s];
    const CDmElement& set = *f.faceSets[s];
    EXPECT_EQ(set.type(), "DmeFaceSet");
    EXPECT_EQ(set.name(), "faceSet");
    const CDmElement* material = set.getElement("material");
    ASSERT_NE(material, nullptr);
    EXPECT_EQ(material->type(), "DmeMaterial");
    std::string path = faces.material >= 0 && size_t(faces.material) < materials.paths.size()
                           ? materials.paths[size_t(faces.material)]
                           : "";
    EXPECT_EQ(material->name(), path);
    std::string slashes = path;
    for (char& c : slashes) c = c == '\\' ? '/' : c;
    EXPECT_EQ(material->getString("mtlName"), slashes);
    const std::vector<int32_t>& list = set.getIntArray("faces");
    ASSERT_EQ(list.size(), faces.indices.size() / 3 * 4);
    for (size_t t = 0; t < faces.indices.size() / 3; ++t) {
      for (size_t k = 0; k < 3; ++k, ++corner) {
        ASSERT_EQ(list[4 * t + k], corner);
        for (const char* field : kIndexedFields) {
          if (!bind.has(field)) continue;
          const auto& indices = bind.getIntArray(std::string(field) + "Indices");
          ASSERT_LT(size_t(corner), indices.size());
          EXPECT_EQ(indices[size_t(corner)], faces.indices[3 * t + k]) << field;
        }
      }
      EXPECT_EQ(list[4 * t + 3], -1);
    }
  }
  EXPECT_EQ(bind.getIntArray("position$0Indices").size(), size_t(corner));
}

// A builder vertex as the file must show it at a corner.
void expectCornerIs(const CDmElement& bind, int32_t corner, const mdlforge::Vertex& v, bool twoSets) {
  int32_t at = bind.getIntArray("position$0Indices").at(size_t(corner));
  size_t i = size_t(at);
  EXPECT_EQ(bind.getVector3Array("position$0").at(i), v.position);
  EXPECT_EQ(bind.getVector3Array("normal$0").at(i), v.normal);
  EXPECT_EQ(bind.getVector2Array("texcoord$0").at(i), v.uv);
  EXPECT_EQ(bind.getVector4Array("tangent$0").at(i), v.tangent);
  if (twoSets) {
    EXPECT_EQ(bind.getVector2Array("texcoord$1").at(i), v.uv2.value_or(Vector2{}));
  }
  for (size_t k = 0; k < 3; ++k) {
    bool used = k < v.boneCount;
    EXPECT_EQ(bind.getFloatArray("blendweights$0").at(3 * i + k), used ? v.weights[k] : 0.0f);
    EXPECT_EQ(bind.getIntArray("blendindices$0").at(3 * i + k), used ? int32_t(v.bones[k]) : 0);
  }
}

// A model with two sub-models of two meshes each, two LODs, meshes of two strip groups,
// a second texture set on some vertices and vertices weighted to several bones.
mdlforge::Description richModel() {
  mdlforge::Description d = crateModel();
  d.textures = {"crate", "glass"};
  mdlforge::Bone lid;
  lid.name = "lid";
  lid.parent = 0;
  lid.position = {0, 0, 4};
  d.bones.push_back(lid);
  auto makeMesh = [](int32_t material, float offset) {
    mdlforge::Mesh mesh = triangleMesh(material, 5, offset);
    for (size_t v = 0; v < mesh.vertices.size(); ++v) {
      mdlforge::Vertex& vertex = mesh.vertices[v];
      vertex.normal = {0, float(v % 2), float(1 - v % 2)};
      vertex.tangent = {1, 0, 0, v % 3 ? 1.0f : -1.0f};
      if (v % 4 == 1) vertex.uv2 = Vector2{float(v), 0.5f};
      if (v % 2) {
        vertex.boneCount = 2;
        vertex.weights = {0.75f, 0.25f, 0.9f};
        vertex.bones = {1, 0, 1};
      }
    }
    mdlforge::StripGroup a, b;
    a.vertices = {0, 1, 2, 3, 4, 5};
    a.strips = {{{0, 1, 2, 3, 4, 5}}};
    b.vertices = {6, 7, 8, 9, 10, 11, 12, 13, 14};
    b.strips = {{{0, 1, 2, 3, 4, 5, 6, 7, 8}}};
    mdlforge::StripGroup far;
    far.vertices = {12, 13, 14};
    far.strips = {{{0, 1, 2}}};
    mesh.lods = {{a, b}, {far}};
    return mesh;
  };
  d.bodyParts[0].models = {{"crate", {makeMesh(0, 0), makeMesh(1, 10)}},
                           {"lid", {makeMesh(1, 20), makeMesh(0, 30)}}};
  d.vertexFile.fixupMode = mdlforge::FixupMode::Auto;
  return d;
}

TEST(MeshFiles, EveryWrittenFileReadsBackAsItsPartAndItsBuilderInput) {
  mdlforge::Description d = richModel();
  GeometryRun run(d, true);
  run.material("models/props/crate");
  ASSERT_TRUE(run.extractAndWrite());
  const ModelTables& tables = run.tables();
  ASSERT_EQ(tables.meshParts.size(), 4u);
  for (size_t p = 0; p < tables.meshParts.size(); ++p) {
    const MeshPart& part = tables.meshParts[p];
    MeshFile f = openMesh(run, part.name);
    expectFileHoldsPart(f, part, tables.materials);

    // Corner by corner against the description: each strip triangle a b c comes back as c b a.
    SCOPED_TRACE(part.name);
    const mdlforge::SubModel& model = d.bodyParts[0].models[p / 2];
    int32_t corner = 0;
    size_t faceSet = 0;
    for (const mdlforge::Mesh& mesh : model.meshes) {
      for (const mdlforge::StripGroup& group : mesh.lods[size_t(part.lod)]) {
        const std::vector<uint16_t>& indices = group.strips[0].indices;
        ASSERT_LT(faceSet, f.faceSets.size());
        EXPECT_EQ(f.faceSets[faceSet]->getElement("material")->name(),
                  mesh.material == 0 ? "materials\\models\\props\\crate.qmat" : "");
        for (size_t t = 0; t < indices.size() / 3; ++t) {
          for (size_t k : {2, 1, 0}) {
            expectCornerIs(*f.bind, corner++, mesh.vertices[group.vertices[indices[3 * t + k]]], true);
          }
        }
        ++faceSet;
      }
    }
    EXPECT_EQ(faceSet, f.faceSets.size());
  }
  EXPECT_EQ(readText(run.meshFolder() / "meshinfo.txt"), "{\n\"staticprop\": 0,\n\"numuvs\": 2\n}\n");
  // Every part file and meshinfo.txt, nothing else.
  EXPECT_EQ(run.output.written().size(), tables.meshParts.size() + 1);
}

TEST(MeshFiles, CornersRunOnAcrossFaceSets) {
  mdlforge::Description d = crateModel();
  mdlforge::Mesh mesh = triangleMesh(0, 5);
  mdlforge::StripGroup two, three;
  two.vertices = {0, 1, 2, 3, 4, 5};
  two.strips = {{{0, 1, 2, 3, 4, 5}}};
  three.vertices = {6, 7, 8, 9, 10, 11, 12, 13, 14};
  three.strips = {{{0, 1, 2, 3, 4, 5, 6, 7, 8}}};
  mesh.lods = {{two, three}};
  d.bodyParts[0].models[0].meshes = {mesh};
  GeometryRun run(d);
  ASSERT_TRUE(run.extractAndWrite());
  MeshFile f = openMesh(run, "crate_bg_body_lod0");
  ASSERT_EQ(f.faceSets.size(), 2u);
  EXPECT_EQ(f.faceSets[0]->getIntArray("faces"), (std::vector<int32_t>{0, 1, 2, -1, 3, 4, 5, -1}));
  EXPECT_EQ(f.faceSets[1]->getIntArray("faces"),
            (std::vector<int32_t>{6, 7, 8, -1, 9, 10, 11, -1, 12, 13, 14, -1}));
  // Corner 6 is the second group's first triangle's last vertex: the winding is reversed.
  EXPECT_EQ(f.bind->getIntArray("position$0Indices"),
            (std::vector<int32_t>{2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9, 14, 13, 12}));
}

TEST(MeshFiles, OneTextureSetMeansNoSecondFieldAndOneUv) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models.push_back({"lid", {triangleMesh(0, 1, 5)}});
  GeometryRun run(d);
  ASSERT_TRUE(run.extractAndWrite());
  for (const MeshPart& part : run.tables().meshParts) {
    MeshFile f = openMesh(run, part.name);
    EXPECT_FALSE(f.bind->has("texcoord$1"));
    expectFileHoldsPart(f, part, run.tables().materials);
  }
  EXPECT_EQ(readText(run.meshFolder() / "meshinfo.txt"), "{\n\"staticprop\": 0,\n\"numuvs\": 1\n}\n");
}

TEST(MeshFiles, FaceSetsNameTheirMaterialOrNothing) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models[0].meshes = {triangleMesh(0, 1), triangleMesh(7, 1, 3)};
  GeometryRun run(d);
  run.material("models/props/crate");
  ASSERT_TRUE(run.extractAndWrite());
  MeshFile f = openMesh(run, "crate_bg_body_lod0");
  ASSERT_EQ(f.faceSets.size(), 2u);
  const CDmElement* resolved = f.faceSets[0]->getElement("material");
  EXPECT_EQ(resolved->name(), "materials\\models\\props\\crate.qmat");
  EXPECT_EQ(resolved->getString("mtlName"), "materials/models/props/crate.qmat");
  const CDmElement* missing = f.faceSets[1]->getElement("material");
  EXPECT_EQ(missing->name(), "");
  EXPECT_EQ(missing->getString("mtlName"), "");
}

TEST(MeshFiles, TheSkeletonListsJointsInLegacyOrderWithTheirBindPose) {
  mdlforge::Description d = crateModel();
  mdlforge::Bone hand, arm;
  hand.name = "hand \"left\"";
  hand.parent = 2;  // listed before its parent
  hand.position = {0, 3, 0};
  arm.name = "arm";
  arm.parent = 0;
  arm.position = {1, 0, 0};
  arm.quaternion = angleQuaternion({0, 90, 0});
  d.bones = {d.bones[0], hand, arm};
  GeometryRun run(d);
  ASSERT_TRUE(run.extractAndWrite());
  MeshFile f = openMesh(run, "crate_bg_body_lod0");
  const std::vector<CDmElement*>& joints = f.model->getElementArray("jointList");
  ASSERT_EQ(joints.size(), 3u);
  const std::vector<std::string> names{"root", "hand _left_", "arm"};
  const std::vector<SkeletonBone>& bones = run.tables().skeleton;
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(joints[i]->type(), "DmeJoint");
    EXPECT_EQ(joints[i]->name(), names[i]);
    const CDmElement* transform = joints[i]->getElement("transform");
    ASSERT_NE(transform, nullptr);
    EXPECT_EQ(transform->name(), names[i]);
    EXPECT_EQ(transform->getVector3("position"), bones[i].position);
    EXPECT_EQ(transform->getQuaternion("orientation"), bones[i].orientation);
    EXPECT_TRUE(joints[i]->getBool("visible"));
    EXPECT_FALSE(joints[i]->getBool("lockInfluenceWeights"));
  }
  // Only the root bone hangs from the model, before the mesh; the rest nest by parent.
  const std::vector<CDmElement*>& top = f.model->getElementArray("children");
  ASSERT_EQ(top.size(), 2u);
  EXPECT_EQ(top[0], joints[0]);
  EXPECT_EQ(joints[0]->getElementArray("children"), std::vector<CDmElement*>{joints[2]});
  EXPECT_EQ(joints[2]->getElementArray("children"), std::vector<CDmElement*>{joints[1]});
  EXPECT_TRUE(joints[1]->getElementArray("children").empty());

  const std::vector<CDmElement*>& states = f.model->getElementArray("baseStates");
  ASSERT_EQ(states.size(), 1u);
  EXPECT_EQ(states[0]->type(), "DmeTransformList");
  EXPECT_EQ(states[0]->name(), "base");
  const std::vector<CDmElement*>& pose = states[0]->getElementArray("transforms");
  ASSERT_EQ(pose.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(pose[i]->name(), names[i]);
    EXPECT_EQ(pose[i]->getVector3("position"), bones[i].position);
    EXPECT_EQ(pose[i]->getQuaternion("orientation"), bones[i].orientation);
  }
  const CDmElement* axes = f.model->getElement("axisSystem");
  ASSERT_NE(axes, nullptr);
  EXPECT_EQ(axes->type(), "DmeAxisSystem");
  EXPECT_EQ(axes->getInt("upAxis"), 3);
  EXPECT_EQ(axes->getInt("forwardParity"), 1);
  EXPECT_EQ(axes->getInt("coordSys"), 0);
}

TEST(MeshFiles, TurnedModelsWriteTheTurnedPoseAndGeometry) {
  mdlforge::Description d = crateModel();
  d.bones[0].position = {1, 2, 3};
  GeometryRun run(d, false, true);
  ASSERT_TRUE(run.extractAndWrite());
  MeshFile f = openMesh(run, "crate_bg_body_lod0");
  const CDmElement* root = f.model->getElementArray("jointList").at(0)->getElement("transform");
  Vector3 at = root->getVector3("position");
  EXPECT_NEAR(at.x, 3, 1e-5);
  EXPECT_NEAR(at.y, 1, 1e-5);
  EXPECT_NEAR(at.z, 2, 1e-5);
  expectFileHoldsPart(f, run.tables().meshParts[0], run.tables().materials);
  Vector3 second = f.bind->getVector3Array("position$0").at(1);  // legacy (1, 0, 0)
  EXPECT_NEAR(second.y, 1, 1e-5);
  EXPECT_EQ(f.model->getElement("axisSystem")->getInt("upAxis"), 3);
}

TEST(MeshFiles, TheSameModelGivesTheSameBytes) {
  GeometryRun a(richModel(), true), b(richModel(), true);
  ASSERT_TRUE(a.extractAndWrite());
  ASSERT_TRUE(b.extractAndWrite());
  for (const MeshPart& part : a.tables().meshParts)
    EXPECT_EQ(readBytes(a.meshFile(part.name)), readBytes(b.meshFile(part.name)));
}

TEST(MeshFiles, AFailedSaveEndsTheStageWithFailure) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models.push_back({"lid", {triangleMesh(0, 1)}});
  GeometryRun run(d);
  ASSERT_TRUE(run.extract());
  // A folder where the first part file should go.
  std::filesystem::create_directories(run.meshFile("crate_bg_body_sm0_lod0") / "x");
  LogCapture log;
  EXPECT_FALSE(run.converter.WriteMeshes());
  EXPECT_EQ(log.count("C_ZV_MDL_Import::WriteMeshes(2264): Unable to save "), 1u) << log.text();
  EXPECT_FALSE(std::filesystem::exists(run.meshFile("crate_bg_body_sm1_lod0")));
  EXPECT_FALSE(std::filesystem::exists(run.meshFolder() / "meshinfo.txt"));
}

struct StaticPropCase {
  int32_t flags;
  std::string keyValues;
  int expected;
};

TEST(MeshInfo, TheStaticPropValueFollowsTheFlagAndThePropData) {
  const std::string allow0 = "mdlkeyvalue\n{\nprop_data {\n\"base\" \"Wood\" \"allowstatic\" \"0\" }\n}\n";
  const std::string allow1 = "mdlkeyvalue\n{\nprop_data {\n\"allowstatic\" \"1\" }\n}\n";
  const std::string noAllow = "mdlkeyvalue\n{\nprop_data {\n\"base\" \"Metal.Large\" }\n}\n";
  const std::string other = "mdlkeyvalue\n{\nphysgun_interactions {\n\"onbreak\" \"explode\" }\n}\n";
  const std::vector<StaticPropCase> cases{
      {0x00, allow1, 0},                           // no flag: never, whatever the text says
      {0x01, "", 0},                               // other flags do not count
      {0x10, "", 1},                               // flag and no text
      {0x11, allow1, 1},                           // flag and allowed
      {0x10, allow0, 0},                           // flag but refused
      {0x10, noAllow, 0},                          // a missing "allowstatic" counts as 0
      {0x10, other, 1},                            // no prop_data: nothing refuses
      {0x10, "mdlkeyvalue\n{\nprop_data {\n", 1},  // text that does not parse refuses nothing
  };
  for (const StaticPropCase& c : cases) {
    SCOPED_TRACE(c.keyValues);
    mdlforge::Description d = crateModel();
    d.flags = c.flags;
    d.keyValues = c.keyValues;
    GeometryRun run(d);
    ASSERT_TRUE(run.extractAndWrite());
    EXPECT_EQ(readText(run.meshFolder() / "meshinfo.txt"),
              "{\n\"staticprop\": " + std::to_string(c.expected) + ",\n\"numuvs\": 1\n}\n");
  }
}

// Exit status and output of a shell command.
std::pair<int, std::string> runCommand(const std::string& command) {
  std::string output;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return {-1, output};
  char buffer[4096];
  while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
  int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

TEST(MeshFiles, TheIndependentReaderAcceptsAMeshFile) {
  std::filesystem::path reader = testing::sharedDir() / "tools" / "dmxread.py";
  if (testing::sharedDir().empty() || !std::filesystem::exists(reader)) GTEST_SKIP() << "no shared tools";
  if (runCommand("python3 -c pass").first != 0) GTEST_SKIP() << "no python3";
  GeometryRun run(richModel(), true);
  ASSERT_TRUE(run.extractAndWrite());
  auto [status, output] = runCommand("python3 '" + reader.string() + "' '" +
                                     run.meshFile("crate_bg_body_sm0_lod0").string() + "'");
  EXPECT_EQ(status, 0) << output;
  EXPECT_NE(output.find("encoding binary_seqids 9 format dmx 22 nul=True"), std::string::npos) << output;
  EXPECT_NE(output.find("DmeFaceSet=4"), std::string::npos) << output;
  EXPECT_NE(output.find("DmeJoint=2"), std::string::npos) << output;
}

}  // namespace
}  // namespace zv
