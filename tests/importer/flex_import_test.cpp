// Flexes in mesh part files: morph targets on the part's mesh, mapped through the vertex
// gathering, with the controls and rules on the root, read back from the written files.

#include <gtest/gtest.h>

#include <stdexcept>

#include "base/log.h"
#include "dmx/dm_dump.h"
#include "importer/mesh_extraction.h"
#include "importer_fixture.h"

namespace zv {
namespace {

using dmx::CDmElement;
using testing::faceModel;
using testing::ImportRun;

const CDmElement& need(const CDmElement* element, const std::string& what) {
  if (element == nullptr) throw std::runtime_error("no " + what);
  return *element;
}

struct FaceFile {
  dmx::DmDocument document;
  const CDmElement* mesh = nullptr;
  const CDmElement* bind = nullptr;
  std::vector<CDmElement*> deltas;

  const CDmElement& delta(const std::string& name) const {
    for (const CDmElement* d : deltas) {
      if (d->name() == name) return *d;
    }
    throw std::runtime_error("no delta state " + name);
  }
  std::vector<std::string> deltaNames() const {
    std::vector<std::string> names;
    for (const CDmElement* d : deltas) names.push_back(d->name());
    return names;
  }
};

FaceFile openFace(const ImportRun& run, const std::string& part = "crate_bg_body_lod0") {
  FaceFile f;
  f.document = run.readDmx(run.meshFile(part));
  const CDmElement& model = need(f.document.root->getElement("model"), "model");
  f.mesh = &need(model.getElementArray("children").back()->getElement("shape"), "mesh");
  f.bind = f.mesh->getElement("bindState");
  f.deltas = f.mesh->getElementArray("deltaStates");
  return f;
}

std::vector<std::string> names(const std::vector<CDmElement*>& elements) {
  std::vector<std::string> out;
  for (const CDmElement* e : elements) out.push_back(e->name());
  return out;
}

TEST(FlexImport, TargetsCarryTheDeltasOfTheirWindows) {
  ImportRun run(faceModel());
  LogCapture log;
  ASSERT_TRUE(run.extractAndWrite());
  FaceFile face = openFace(run);
  // By descriptor; of blink's two windows the one holding weight 1 keeps the name.
  EXPECT_EQ(face.deltaNames(), (std::vector<std::string>{"smile_r", "blink_lower", "blink", "pucker"}));
  const CDmElement& smile = face.delta("smile_r");
  EXPECT_EQ(smile.type(), "DmeVertexDeltaData");
  EXPECT_EQ(smile.getStringArray("vertexFormat"), (std::vector<std::string>{"position$0", "normal$0"}));
  EXPECT_EQ(smile.getIntArray("position$0Indices"), (std::vector<int32_t>{0, 1, 2}));
  EXPECT_EQ(smile.getVector3Array("position$0"), std::vector<Vector3>(3, Vector3{0, 0, 0.25f}));
  // Zero normal deltas are left out, but the field is there for importers.
  EXPECT_TRUE(smile.getIntArray("normal$0Indices").empty());
  EXPECT_TRUE(smile.has("normal$0"));
  EXPECT_EQ(face.delta("blink_lower").getVector3Array("position$0"), std::vector<Vector3>(2, Vector3{0, 0, -0.25f}));
  EXPECT_EQ(face.delta("blink").getIntArray("position$0Indices"), (std::vector<int32_t>{3, 4}));

  const CDmElement& pucker = face.delta("pucker");
  EXPECT_EQ(pucker.getStringArray("vertexFormat"), (std::vector<std::string>{"position$0", "normal$0", "wrinkle$0"}));
  EXPECT_EQ(pucker.getFloatArray("wrinkle$0"), std::vector<float>{0.75f});
  EXPECT_EQ(pucker.getIntArray("wrinkle$0Indices"), std::vector<int32_t>{5});

  EXPECT_EQ(face.mesh->getVector2Array("deltaStateWeights").size(), 4u);
  EXPECT_EQ(face.mesh->getVector2Array("deltaStateWeightsLagged").size(), 4u);
  // The stereo smile's sides; vertices no stereo target moves are balanced.
  const std::vector<std::string>& format = face.bind->getStringArray("vertexFormat");
  EXPECT_EQ(format.back(), "balance$0");
  EXPECT_EQ(face.bind->getFloatArray("balance$0"), (std::vector<float>{0, 1, 128 / 255.0f, 0.5f, 0.5f, 0.5f}));
  EXPECT_EQ(face.bind->getIntArray("balance$0Indices"), face.bind->getIntArray("position$0Indices"));
  EXPECT_EQ(log.count("drive no morph target and get no control: head_turn\n"), 1u) << log.text();
}

TEST(FlexImport, ControlsAndRulesDriveTheTargets) {
  ImportRun run(faceModel());
  LogCapture quiet;
  ASSERT_TRUE(run.extractAndWrite());
  FaceFile face = openFace(run);
  const CDmElement& op = need(face.document.root->getElement("combinationOperator"), "operator");
  EXPECT_EQ(op.type(), "DmeCombinationOperator");
  const std::vector<CDmElement*>& controls = op.getElementArray("controls");
  // The stereo UI entry is one control; head_turn drives nothing and is left out.
  ASSERT_EQ(names(controls), (std::vector<std::string>{"smile", "blink"}));
  EXPECT_EQ(controls[0]->getStringArray("rawControlNames"), (std::vector<std::string>{"smile_r", "pucker"}));
  EXPECT_TRUE(controls[0]->getBool("stereo"));
  EXPECT_FALSE(controls[0]->getBool("eyelid"));
  EXPECT_EQ(controls[0]->getFloatArray("wrinkleScales"), (std::vector<float>{0, 0}));
  // blink reads the blink controller directly and through mid.
  EXPECT_EQ(controls[1]->getStringArray("rawControlNames"), (std::vector<std::string>{"blink_lower", "blink"}));
  EXPECT_EQ(controls[1]->getFloat("flexMax"), 1.0f);
  EXPECT_EQ(op.getVector3Array("controlValues"), std::vector<Vector3>(2, Vector3{0, 0.5f, 0.5f}));
  EXPECT_FALSE(op.getBool("usesLaggedValues"));

  const std::vector<CDmElement*>& targets = op.getElementArray("targets");
  ASSERT_EQ(targets.size(), 2u);
  EXPECT_EQ(targets[0], face.mesh);
  EXPECT_EQ(targets[1]->type(), "DmeFlexRules");
  EXPECT_EQ(targets[1]->getElement("target"), face.mesh);
  // smile_l has no target and no one reads it; mid is read by blink's rule.
  std::vector<std::string> rules;
  for (const CDmElement* rule : targets[1]->getElementArray("deltaStates"))
    rules.push_back(rule->name() + " = " + rule->getString("expression"));
  EXPECT_EQ(rules, (std::vector<std::string>{"smile_r = smile_r", "mid = 1 - blink", "blink = blink * mid",
                                             "pucker = smile_r"}));
}

// What dmxdump prints of a face file: the delta states with their fields, the operator.
TEST(FlexImport, TheDumpShowsDeltaStatesAndTheOperator) {
  ImportRun run(faceModel());
  LogCapture quiet;
  ASSERT_TRUE(run.extractAndWrite());
  std::string dump = dmx::dumpDmx(openFace(run).document);
  for (const char* line : {"[9] DmeVertexDeltaData \"smile_r\"", "position$0Indices int_array [3] = 0, 1, 2",
                           "wrinkle$0 float_array [1] = 0.75", "combinationOperator element:",
                           "DmeCombinationInputControl \"smile\"", "rawControlNames string_array [2] = \"smile_r\", \"pucker\"",
                           "expression string = \"blink * mid\""}) {
    EXPECT_NE(dump.find(line), std::string::npos) << line << "\n" << dump;
  }
}

TEST(FlexImport, ARuleWithoutInfixFormIsLeftOutAndItsTargetStays) {
  mdlforge::Description d = faceModel();
  d.flexRules[3].ops = {{2, 0, 2}, {9, 0, 0}};
  ImportRun run(d);
  LogCapture log;
  ASSERT_TRUE(run.extractAndWrite());
  EXPECT_EQ(log.count("flex rule 3 (for blink) is left out: op 9 has no infix form\n"), 1u) << log.text();
  FaceFile face = openFace(run);
  EXPECT_EQ(face.deltaNames().size(), 4u);
  const CDmElement& op = need(face.document.root->getElement("combinationOperator"), "operator");
  const CDmElement* rules = op.getElementArray("targets").at(1);
  EXPECT_EQ(names(rules->getElementArray("deltaStates")), (std::vector<std::string>{"smile_r", "pucker"}));
  // Without its rule nothing drives blink, so its controller has no control.
  EXPECT_EQ(names(op.getElementArray("controls")), std::vector<std::string>{"smile"});
}

TEST(FlexImport, PartsWithoutFlexesAreWrittenAsBefore) {
  ImportRun run(testing::crateModel());
  ASSERT_TRUE(run.extractAndWrite());
  FaceFile file = openFace(run);
  EXPECT_FALSE(file.document.root->has("combinationOperator"));
  EXPECT_TRUE(file.deltas.empty());
  EXPECT_FALSE(file.mesh->has("deltaStateWeights"));
  EXPECT_FALSE(file.bind->has("balance$0"));
}

// Deltas move the positions gathered from their legacy vertex: through the fixed-up vertex
// order, a strip group order that is not mesh order, and a vertex two groups share.
TEST(FlexImport, DeltasFollowTheVertexGathering) {
  mdlforge::Description d = faceModel();
  mdlforge::Mesh& mesh = d.bodyParts[0].models[0].meshes[0];
  mdlforge::StripGroup first;
  first.vertices = {2, 1, 0};
  first.strips = {{{0, 1, 2}}};
  mdlforge::StripGroup second;
  second.vertices = {5, 4, 3, 0};
  second.strips = {{{0, 1, 2, 3, 2, 1}}};
  mdlforge::StripGroup coarse;
  coarse.vertices = {0, 1, 2};
  coarse.strips = {{{0, 1, 2}}};
  mesh.lods = {{first, second}, {coarse}};
  d.vertexFile.fixupMode = mdlforge::FixupMode::Auto;
  ImportRun run(d, /*allLods=*/true);
  LogCapture quiet;
  ASSERT_TRUE(run.extractAndWrite());
  FaceFile face = openFace(run);
  // Mesh vertex 0 is position 2 and position 6; 1 and 2 are 1 and 0.
  EXPECT_EQ(face.delta("smile_r").getIntArray("position$0Indices"), (std::vector<int32_t>{2, 6, 1, 0}));
  EXPECT_EQ(face.delta("pucker").getIntArray("position$0Indices"), std::vector<int32_t>{3});
  EXPECT_EQ(face.bind->getFloatArray("balance$0"), (std::vector<float>{128 / 255.0f, 1, 0, 0.5f, 0.5f, 0.5f, 0}));
  // The coarser LOD keeps the smile's vertices only.
  FaceFile lod1 = openFace(run, "crate_bg_body_lod1");
  EXPECT_EQ(lod1.deltaNames(), std::vector<std::string>{"smile_r"});
  EXPECT_EQ(lod1.delta("smile_r").getIntArray("position$0Indices"), (std::vector<int32_t>{0, 1, 2}));
}

TEST(FlexImport, YUpToZUpTurnsDeltasLikeNormals) {
  ImportRun run(faceModel(), false, /*yUpToZUp=*/true);
  LogCapture quiet;
  ASSERT_TRUE(run.extractAndWrite());
  FaceFile face = openFace(run);
  Matrix3x4 m = yUpToZUpMatrix();
  testing::expectNear(face.delta("smile_r").getVector3Array("position$0").at(0), rotateVector(m, {0, 0, 0.25f}));
  testing::expectNear(face.delta("pucker").getVector3Array("position$0").at(0), rotateVector(m, {0, -0.5f, 0}));
}

// Each window of one descriptor is a target of its own; the plain name goes to the window
// nearest full weight, the rest are named by where their full-weight range lies.
TEST(FlexImport, WindowTargetsAreNamedByWhereTheyLie) {
  mdlforge::Description d = faceModel();
  std::vector<mdlforge::MeshFlex>& flexes = d.bodyParts[0].models[0].meshes[0].flexes;
  mdlforge::MeshFlex over = flexes[0];
  over.window = {1, 1, 10, 11};
  flexes[0].window = {0, 1, 1, 1};
  mdlforge::MeshFlex further = flexes[0];
  further.window = {10, 11, 20, 21};
  mdlforge::MeshFlex under = flexes[1];
  under.window = {-21, -20, -11, -10};
  flexes.push_back(over);
  flexes.push_back(further);
  flexes.push_back(under);
  ImportRun run(d);
  LogCapture quiet;
  ASSERT_TRUE(run.extractAndWrite());
  EXPECT_EQ(openFace(run).deltaNames(),
            (std::vector<std::string>{"smile_r", "smile_r_upper", "smile_r_upper2", "blink_lower", "blink",
                                      "blink_lower2", "pucker"}));
}

// A descriptor's records on two meshes of the part with one window make one target.
TEST(FlexImport, RecordsOfOneWindowMergeOverTheMeshes) {
  mdlforge::Description d = faceModel();
  mdlforge::Mesh second = testing::triangleMesh(0, 1, 5);
  mdlforge::MeshFlex smile = d.bodyParts[0].models[0].meshes[0].flexes[0];
  smile.deltas = {smile.deltas[0]};
  smile.deltas[0].position = {1, 0, 0};
  second.flexes = {smile};
  d.bodyParts[0].models[0].meshes.push_back(second);
  ImportRun run(d);
  LogCapture quiet;
  ASSERT_TRUE(run.extractAndWrite());
  FaceFile face = openFace(run);
  const CDmElement& merged = face.delta("smile_r");
  EXPECT_EQ(merged.getIntArray("position$0Indices"), (std::vector<int32_t>{0, 1, 2, 6}));
  EXPECT_EQ(merged.getVector3Array("position$0").back(), (Vector3{1, 0, 0}));
}

}  // namespace
}  // namespace zv
