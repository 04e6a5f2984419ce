// Mesh DMX files and meshinfo.txt, read back through the DMX reader and checked against
// what the model builder was given.

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

#include "base/log.h"
#include "importer_fixture.h"

namespace zv {
namespace {

using dmx::CDmElement;
using testing::crateModel;
using testing::ImportRun;
using testing::readText;
using testing::triangleMesh;

template <class T>
T* need(T* element, const std::string& what) {
  if (element == nullptr) throw std::runtime_error("no " + what);
  return element;
}

struct MeshFile {
  dmx::DmDocument document;
  const CDmElement* model = nullptr;
  const CDmElement* bind = nullptr;
  std::vector<CDmElement*> faceSets;
};

MeshFile openMesh(const ImportRun& run, const std::string& part) {
  MeshFile f;
  f.document = run.readDmx(run.meshFile(part));
  f.model = need(f.document.root->getElement("model"), "model");
  EXPECT_EQ(f.document.root->getElement("skeleton"), f.model);
  const std::vector<CDmElement*>& children = f.model->getElementArray("children");
  const CDmElement* dag = need(children.empty() ? nullptr : children.back(), "dag");
  const CDmElement* mesh = need(dag->getElement("shape"), "mesh");
  EXPECT_EQ(dag->type() + " " + dag->name() + " " + mesh->type() + " " + mesh->name(),
            "DmeDag " + part + " DmeMesh " + part);
  f.bind = need(mesh->getElement("bindState"), "bind state");
  EXPECT_EQ(mesh->getElement("currentState"), f.bind);
  f.faceSets = mesh->getElementArray("faceSets");
  return f;
}

// A builder vertex as the file must show it at index i of the vertex fields.
void expectVertex(const CDmElement& bind, size_t i, const mdlforge::Vertex& v) {
  EXPECT_EQ(bind.getVector3Array("position$0").at(i), v.position);
  EXPECT_EQ(bind.getVector3Array("normal$0").at(i), v.normal);
  EXPECT_EQ(bind.getVector2Array("texcoord$0").at(i), v.uv);
  EXPECT_EQ(bind.getVector4Array("tangent$0").at(i), v.tangent);
  if (bind.has("texcoord$1")) {
    EXPECT_EQ(bind.getVector2Array("texcoord$1").at(i), v.uv2.value_or(Vector2{}));
  }
  for (size_t k = 0; k < 3; ++k) {
    bool used = k < v.boneCount;
    EXPECT_EQ(bind.getFloatArray("blendweights$0").at(3 * i + k), used ? v.weights[k] : 0.0f);
    EXPECT_EQ(bind.getIntArray("blendindices$0").at(3 * i + k), used ? int32_t(v.bones[k]) : 0);
  }
}

// Two sub-models of two meshes each (materials resolved and not), two LODs, meshes of two
// strip groups of 2 and 3 triangles, a second texture set on some vertices, vertices
// weighted to two bones, and vertices stored out of mesh order.
mdlforge::Description richModel() {
  mdlforge::Description d = crateModel();
  d.textures = {"crate", "glass"};
  d.bones.push_back(testing::bone("lid", 0, {0, 0, 4}));
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
    mdlforge::StripGroup two{{0, 1, 2, 3, 4, 5}, {{{0, 1, 2, 3, 4, 5}}}};
    mdlforge::StripGroup three{{6, 7, 8, 9, 10, 11, 12, 13, 14}, {{{0, 1, 2, 3, 4, 5, 6, 7, 8}}}};
    mdlforge::StripGroup far{{12, 13, 14}, {{{0, 1, 2}}}};
    mesh.lods = {{two, three}, {far}};
    return mesh;
  };
  d.bodyParts[0].models = {{"crate", {makeMesh(0, 0), makeMesh(1, 10)}},
                           {"lid", {makeMesh(1, 20), makeMesh(0, 30)}}};
  d.vertexFile.fixupMode = mdlforge::FixupMode::Auto;
  return d;
}

TEST(MeshFiles, EveryWrittenFileReadsBackAsItsBuilderInput) {
  mdlforge::Description d = richModel();
  ImportRun run(d, true);
  run.material("models/props/crate");
  ASSERT_TRUE(run.extractAndWrite());
  ASSERT_EQ(run.tables().meshParts.size(), 4u);
  for (const MeshPart& part : run.tables().meshParts) {
    SCOPED_TRACE(part.name);
    MeshFile f = openMesh(run, part.name);
    const CDmElement& bind = *f.bind;
    EXPECT_EQ(bind.getStringArray("vertexFormat"),
              (std::vector<std::string>{"position$0", "normal$0", "texcoord$0", "tangent$0", "texcoord$1",
                                        "blendweights$0", "blendindices$0"}));
    const std::vector<int32_t>& corners = bind.getIntArray("position$0Indices");
    for (const char* field : {"normal$0", "texcoord$0", "tangent$0", "texcoord$1"})
      EXPECT_EQ(bind.getIntArray(std::string(field) + "Indices"), corners) << field;

    // Face set by face set, corners numbered on across them: strip triangle a b c comes
    // back as c b a, with the values the builder gave that vertex.
    const mdlforge::SubModel& model = d.bodyParts[0].models[part.name.find("_sm1_") != std::string::npos];
    size_t corner = 0, set = 0;
    for (const mdlforge::Mesh& mesh : model.meshes) {
      for (const mdlforge::StripGroup& group : mesh.lods[size_t(part.lod)]) {
        const CDmElement& faceSet = *f.faceSets.at(set++);
        const CDmElement* material = need(faceSet.getElement("material"), "material");
        EXPECT_EQ(material->name() + " " + material->getString("mtlName"),
                  mesh.material == 0
                      ? "materials\\models\\props\\crate.qmat materials/models/props/crate.qmat"
                      : "materials\\models\\props\\glass.qmat materials/models/props/glass.qmat");
        const std::vector<uint16_t>& indices = group.strips[0].indices;
        std::vector<int32_t> faces;
        for (size_t t = 0; t < indices.size() / 3; ++t) {
          for (size_t k : {2, 1, 0}) {
            faces.push_back(int32_t(corner));
            expectVertex(bind, size_t(corners.at(corner++)),
                         mesh.vertices[group.vertices[indices[3 * t + k]]]);
          }
          faces.push_back(-1);
        }
        EXPECT_EQ(faceSet.getIntArray("faces"), faces);
      }
    }
    EXPECT_EQ(set, f.faceSets.size());
    EXPECT_EQ(corner, corners.size());
  }
  // The first mesh's strip groups of 2 and 3 triangles: the second face set begins at corner 6.
  EXPECT_EQ(openMesh(run, "crate_bg_body_sm0_lod0").faceSets.at(1)->getIntArray("faces").at(0), 6);
  EXPECT_EQ(readText(run.out("crate_refs/mesh/meshinfo.txt")), "{\n\"staticprop\": 0,\n\"numuvs\": 2\n}\n");
  EXPECT_EQ(run.output.written().size(), 5u);  // every part file and meshinfo.txt, nothing else
}

TEST(Skeleton, ChildrenListedBeforeTheirParentsComposeAndNestUnderThem) {
  mdlforge::Description d = crateModel();
  // hand hangs from arm, which comes after it; arm's yaw of 90 turns hand's offset onto +Y.
  d.bones = {testing::bone("root", -1, {0, 10, 0}), testing::bone("hand \"left\"\x01\xFF", 2, {1, 0, 0}),
             testing::bone("arm", 0, {0, 0, 5}, {0, 90, 0}), testing::bone("", 0)};
  ImportRun run(d);
  ASSERT_TRUE(run.extractAndWrite());
  const std::vector<SkeletonBone>& bones = run.tables().skeleton;
  testing::expectNear(bones.at(1).modelTransform.translation(), {0, 11, 5});

  // The file lists joints in legacy order with their names converted and their bind pose
  // (also as the base state); only the root hangs from the model, before the mesh.
  MeshFile f = openMesh(run, "crate_bg_body_lod0");
  const std::vector<CDmElement*>& joints = f.model->getElementArray("jointList");
  const std::vector<CDmElement*>& pose =
      need(f.model->getElementArray("baseStates").at(0), "base")->getElementArray("transforms");
  ASSERT_TRUE(joints.size() == 4 && pose.size() == 4);
  // A bone without a name gets one from its index: importers drop unnamed joints.
  const std::string names[] = {"root", "hand _left___", "arm", "bone3"};
  for (size_t i = 0; i < 4; ++i) {
    for (const CDmElement* t : {need(joints[i]->getElement("transform"), "transform"), pose[i]}) {
      EXPECT_EQ(joints[i]->name() + " " + t->name(), names[i] + " " + names[i]);
      EXPECT_EQ(t->getVector3("position"), bones[i].position);
      EXPECT_EQ(t->getQuaternion("orientation"), bones[i].orientation);
    }
  }
  EXPECT_EQ(f.model->getElementArray("children").size(), 2u);
  EXPECT_EQ(f.model->getElementArray("children")[0], joints[0]);
  EXPECT_EQ(joints[0]->getElementArray("children"), (std::vector<CDmElement*>{joints[2], joints[3]}));
  EXPECT_EQ(joints[2]->getElementArray("children"), std::vector<CDmElement*>{joints[1]});
  EXPECT_TRUE(joints[1]->getElementArray("children").empty());
  EXPECT_FALSE(f.bind->has("texcoord$1"));  // one texture set: no second field
}

TEST(MeshFiles, AFailedSaveEndsTheStageWithFailure) {
  mdlforge::Description d = crateModel();
  d.bodyParts[0].models.push_back({"lid", {triangleMesh(0, 1)}});
  ImportRun run(d);
  ASSERT_TRUE(run.extract());
  std::filesystem::create_directories(run.meshFile("crate_bg_body_sm0_lod0") / "x");  // a folder in the way
  LogCapture log;
  EXPECT_FALSE(run.converter.WriteMeshes());
  EXPECT_EQ(log.count("C_ZV_MDL_Import::WriteMeshes(2264): Unable to save "), 1u) << log.text();
  EXPECT_FALSE(std::filesystem::exists(run.meshFile("crate_bg_body_sm1_lod0")));
  EXPECT_FALSE(std::filesystem::exists(run.out("crate_refs/mesh/meshinfo.txt")));
}

TEST(MeshInfo, TheStaticPropValueFollowsTheFlagAndThePropData) {
  const std::string allow0 = "mdlkeyvalue\n{\nprop_data {\n\"base\" \"Wood\" \"allowstatic\" \"0\" }\n}\n";
  const std::string allow1 = "mdlkeyvalue\n{\nprop_data {\n\"allowstatic\" \"1\" }\n}\n";
  const std::string noAllow = "mdlkeyvalue\n{\nprop_data {\n\"base\" \"Metal.Large\" }\n}\n";
  const std::string other = "mdlkeyvalue\n{\nphysgun_interactions {\n\"onbreak\" \"explode\" }\n}\n";
  const struct {
    int32_t flags;
    std::string keyValues;
    int expected;
  } cases[] = {
      {0x00, allow1, 0},                           // no flag: never, whatever the text says
      {0x01, "", 0},                               // other flags do not count
      {0x10, "", 1},                               // flag and no text
      {0x11, allow1, 1},                           // flag and allowed
      {0x10, allow0, 0},                           // flag but refused
      {0x10, noAllow, 0},                          // a missing "allowstatic" counts as 0
      {0x10, other, 1},                            // no prop_data: nothing refuses
      {0x10, "mdlkeyvalue\n{\nprop_data {\n", 0},  // the end of the text closes the blocks
      {0x10, "mdlkeyvalue\n{\nprop_data {\n\"", 1},  // text that does not read refuses nothing
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.keyValues);
    mdlforge::Description d = crateModel();
    d.flags = c.flags;
    d.keyValues = c.keyValues;
    ImportRun run(d);
    ASSERT_TRUE(run.extractAndWrite());
    EXPECT_EQ(readText(run.out("crate_refs/mesh/meshinfo.txt")),
              "{\n\"staticprop\": " + std::to_string(c.expected) + ",\n\"numuvs\": 1\n}\n");
  }
}

TEST(MeshFiles, TheSameModelGivesTheSameBytesWhichTheIndependentReaderAccepts) {
  ImportRun run(richModel(), true), again(richModel(), true);
  ASSERT_TRUE(run.extractAndWrite());
  ASSERT_TRUE(again.extractAndWrite());
  for (const MeshPart& part : run.tables().meshParts)
    EXPECT_EQ(testing::readBytes(run.meshFile(part.name)), testing::readBytes(again.meshFile(part.name)));

  std::filesystem::path reader = testing::sharedDir() / "tools" / "dmxread.py";
  if (testing::sharedDir().empty() || !std::filesystem::exists(reader)) GTEST_SKIP() << "no shared tools";
  if (std::system("python3 -c pass >/dev/null 2>&1") != 0) GTEST_SKIP() << "no python3";
  std::string report = run.dir.file("dmxread.txt");
  int status = std::system(("python3 '" + reader.string() + "' '" +
                            run.meshFile("crate_bg_body_sm0_lod0").string() + "' >'" + report + "' 2>&1")
                               .c_str());
  std::string output = readText(report);
  EXPECT_EQ(status, 0) << output;
  for (const char* expected :
       {"encoding binary_seqids 9 format dmx 22 nul=True", "DmeFaceSet=4", "DmeJoint=2"})
    EXPECT_NE(output.find(expected), std::string::npos) << expected << " in " << output;
}

}  // namespace
}  // namespace zv
