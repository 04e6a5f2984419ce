// The collision stages on a forged ragdoll (the physics file and the document's physics
// nodes read back, the load's refusals) and on the real models beside the project.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

#include "base/log.h"
#include "importer_fixture.h"
#include "mdlforge/byte_writer.h"
#include "mdlforge/physics.h"

namespace zv {
namespace {

using mdlforge::boxPiece;
using testing::bone;
using testing::childOf;
using testing::childrenOf;
using testing::ImportRun;
using testing::listed;
using testing::valueOf;
using Names = std::vector<std::string>;

// pelvis at (0, 0, 40); arm 10 above it, turned by a yaw of 90; hand 10 along the arm.
// The render mesh is one triangle spanning (-5, -5, 30) to (5, 15, 55).
mdlforge::Description ragdollModel() {
  mdlforge::Description d = testing::crateModel();
  d.bones = {bone("pelvis", -1, {0, 0, 40}), bone("arm", 0, {0, 0, 10}, {0, 90, 0}),
             bone("hand", 1, {10, 0, 0})};
  mdlforge::Mesh& mesh = d.bodyParts[0].models[0].meshes[0];
  mesh.vertices = {testing::vertexAt(-5, -5, 30), testing::vertexAt(5, 15, 55), testing::vertexAt(0, 0, 40)};
  mesh.lods = {{mdlforge::triangleGroup(3, {0, 1, 2})}};
  return d;
}

// Pieces in their bones' frames. In model space: pelvis -4..4, -4..4, 38..42; the arm's
// three pieces -2..0, 0..10, 50..51; the hand -1..1, 10..12, 49..51.
mdlforge::PhysicsDescription ragdollPhysics() {
  mdlforge::PhysicsDescription p;
  mdlforge::PhysicsSolid pelvis, arm, hand;
  pelvis.pieces = {boxPiece({-4, -4, -2}, {4, 4, 2}, 0)};
  pelvis.keys = {{"name", "pelvis"}, {"mass", "10"}, {"surfaceprop", "flesh"}};
  arm.solidHeader = false;
  arm.subtreeHulls = true;
  arm.pieces = {boxPiece({0, 0, 0}, {3, 2, 1}, 1), boxPiece({3, 0, 0}, {6, 2, 1}, 1),
                boxPiece({6, 0, 0}, {10, 2, 1}, 1)};
  // The middle piece is stored wound inward; its hull must still face out.
  for (auto& triangle : arm.pieces[1].triangles) std::swap(triangle[1], triangle[2]);
  arm.keys = {{"name", "arm"}, {"surfaceprop", "flesh"}, {"damping", "0.5"}};
  hand.pieces = {boxPiece({0, -1, -1}, {2, 1, 1}, 2)};
  hand.keys = {{"name", "hand"}};
  p.solids = {pelvis, arm, hand};
  p.constraints = {
      {0, 1, {-30, -10, -20}, {30, 20, 40}, {1, 2, 3}},  // twist and swing
      {0, 1, {-180, 0, 0}, {180, 0, 0}, {}},             // free twist
      {0, 1, {0, 0, 0}, {0, 0, 360}, {}},                // full turn about z
      {1, 2, {0, 0, -45}, {0, 0, 45}, {0, 0, 4}},        // z only
      {1, 2, {0, 0, 0}, {0.5f, 1, 1}, {}},               // within a degree
      {1, 7, {-30, 0, 0}, {30, 0, 0}, {}},               // no solid 7: no joint
  };
  p.blocks = {
      {"break", {{"model", "props\\gibs\\arm01"}, {"health", "5"}, {"burst", "0.5"}, {"angularburst", "2"}}},
      {"break", {{"ragdoll", "props\\gibs\\hand"}, {"fadetime", "3"}}}};
  return p;
}

struct PhysicsRun : ImportRun {
  explicit PhysicsRun(const mdlforge::PhysicsDescription& physics,
                      const mdlforge::Description& model = ragdollModel(), int32_t checksumDelta = 0,
                      bool yUp = false)
      : ImportRun(model, false, yUp) {
    auto file = mdlforge::buildPhysics(physics, model.checksum + checksumDelta);
    EXPECT_TRUE(file) << file.message();
    if (file) testing::writeBytes(dir.path() / "models/props/crate.phy", file->bytes);
  }
  std::filesystem::path physicsFile() const { return out("crate_refs/phys/crate_phy.dmx"); }
};

TEST(PhysicsFile, HoldsEveryPieceUnderItsBoneInModelSpace) {
  PhysicsRun run(ragdollPhysics());
  ASSERT_TRUE(run.converter.Convert());
  dmx::DmDocument doc = run.readDmx(run.physicsFile());
  std::map<std::string, const dmx::CDmElement*> named;
  for (const dmx::CDmElement* e : doc.elements) {
    if (e->type() == "DmeJoint" || e->type() == "DmeDag") named[e->name()] = e;
  }

  // Each piece hangs under its bone's joint, with a transform undoing the bone's bind pose.
  Names underArm;
  for (const dmx::CDmElement* child : named.at("arm")->getElementArray("children"))
    underArm.push_back(child->name());
  EXPECT_EQ(underArm, (Names{"hand", "arm_0_mesh", "arm_1_mesh", "arm_2_mesh"}));
  const dmx::CDmElement* tm = named.at("arm_1_mesh")->getElement("transform");
  EXPECT_EQ(tm->name(), "arm_1_tm");
  testing::expectNear(tm->getVector3("position"), {0, 0, -50}, 1e-4f);

  Names surfaces;
  for (const char* name : {"pelvis_0_mesh", "arm_0_mesh", "arm_1_mesh", "arm_2_mesh", "hand_0_mesh"}) {
    SCOPED_TRACE(name);
    const dmx::CDmElement* mesh = named.at(name)->getElement("shape");
    ASSERT_NE(mesh, nullptr);
    const dmx::CDmElement* faceSet = mesh->getElementArray("faceSets").at(0);
    surfaces.push_back(faceSet->name() + " " + mesh->getString("PhysicsSurfaceProperties") + " " +
                       faceSet->getElement("material")->name());
    const dmx::CDmElement* bind = mesh->getElement("bindState");
    const std::vector<Vector3>& points = bind->getVector3Array("position$0");
    const std::vector<Vector3>& normals = bind->getVector3Array("normal$0");
    auto point = [&](int32_t corner) { return points.at(size_t(bind->getIntArray("position$0Indices").at(size_t(corner)))); };
    auto normal = [&](int32_t corner) { return normals.at(size_t(bind->getIntArray("normal$0Indices").at(size_t(corner)))); };
    // Twelve triangles per box, each facing away from the box's centre, its corners
    // carrying its unit face normal.
    const std::vector<int32_t>& faces = faceSet->getIntArray("faces");
    ASSERT_EQ(faces.size(), 48u);
    Vector3 centre;
    for (const Vector3& p : points) centre = centre + p * (1.0f / float(points.size()));
    for (size_t f = 0; f < faces.size(); f += 4) {
      const Vector3 a = point(faces[f]), b = point(faces[f + 1]), c = point(faces[f + 2]);
      Vector3 face = cross(b - a, c - a);
      EXPECT_GT(dot(face, a + b + c - centre * 3), 0) << "triangle " << f / 4;
      for (size_t k = 0; k < 3; ++k) testing::expectNear(normal(faces[f + k]), face * (1 / length(face)));
    }
  }
  EXPECT_EQ(surfaces, (Names{"faceSet0 flesh flesh", "faceSet1 flesh flesh", "faceSet2 flesh flesh",
                             "faceSet3 flesh flesh", "faceSet4 default default"}));
}

// Checks every hull point (after turn) against the render mesh's bounds grown by
// margin + share of their diagonal; returns how many points it checked.
size_t expectHullsInsideRenderMesh(const ModelTables& tables, float margin, float share,
                                   const std::string& context,
                                   const Matrix3x4& turn = Matrix3x4::identity()) {
  Vector3 lo{INFINITY, INFINITY, INFINITY}, hi{-INFINITY, -INFINITY, -INFINITY};
  for (const MeshPart& part : tables.meshParts) {
    for (const GatheredVertex& v : part.vertices) {
      for (int k = 0; k < 3; ++k) {
        lo[k] = std::min(lo[k], v.position[k]);
        hi[k] = std::max(hi[k], v.position[k]);
      }
    }
  }
  float grow = margin + share * length(hi - lo);
  size_t points = 0;
  for (const PhysicsSolid& solid : tables.physicsSolids) {
    for (const PhysicsPiece& piece : solid.pieces) {
      for (const Vector3& point : piece.points) {
        Vector3 p = transformPoint(turn, point);
        ++points;
        for (int k = 0; k < 3; ++k) {
          EXPECT_TRUE(p[k] >= lo[k] - grow && p[k] <= hi[k] + grow)
              << context << " " << solid.name << " (" << p.x << " " << p.y << " " << p.z << ")";
        }
      }
    }
  }
  return points;
}

TEST(PhysicsFile, HullsLieInsideTheRenderMeshAlsoTurnedUpright) {
  for (bool yUp : {false, true}) {
    PhysicsRun run(ragdollPhysics(), ragdollModel(), 0, yUp);
    ASSERT_TRUE(run.converter.LoadMDL() && run.converter.LoadPhysics() && run.converter.ExtractMeshes());
    EXPECT_EQ(expectHullsInsideRenderMesh(run.tables(), 1e-3f, 0, yUp ? "y-up" : "z-up"), 40u);
  }
}

TEST(PhysicsDocument, MarkupsJointsHullFilesAndBreakPieces) {
  PhysicsRun run(ragdollPhysics());
  ASSERT_TRUE(run.converter.Convert());
  Kv3Value root = run.readDocument();
  EXPECT_EQ(testing::shown(childrenOf(root), {"_class"}),
            (Names{"Skeleton", "BoneMarkupList", "BodyGroupList", "PhysicsBodyMarkupList", "PhysicsJointList",
                   "PhysicsShapeList", "RenderMeshList", "BreakPieceList"}));

  // Only the solids with mass, damping or a raised inertia get a markup: not the hand.
  EXPECT_EQ(listed(root, "PhysicsBodyMarkupList",
                   {"target_body", "mass_override", "inertia_scale", "linear_damping", "angular_damping"}),
            (Names{"pelvis 10 1 0 0", "arm 0 1 0.5 0"}));
  const std::string file = "props/crate_refs/phys/crate_phy.dmx";
  EXPECT_EQ(listed(root, "PhysicsShapeList", {"name", "parent_bone", "surface_prop", "filename"}),
            (Names{"pelvis_0_mesh pelvis flesh " + file, "arm_0_mesh arm flesh " + file,
                   "arm_1_mesh arm flesh " + file, "arm_2_mesh arm flesh " + file,
                   "hand_0_mesh hand default " + file}));
  EXPECT_EQ(listed(root, "PhysicsShapeList", {"mesh_name"}), listed(root, "PhysicsShapeList", {"name"}));
  EXPECT_EQ(listed(root, "BreakPieceList", {"model", "burst_scale", "angular_burst", "break_keys"}),
            (Names{"props\\gibs\\arm01 0.5 2 {health=5}", "props\\gibs\\hand <unset> <unset> {fadetime=3}"}));

  // Joint kinds and limits follow the angle ranges.
  EXPECT_EQ(listed(root, "PhysicsJointList", {"_class", "parent_body", "child_body", "friction"}),
            (Names{"PhysicsJointConical pelvis arm 2", "PhysicsJointConical pelvis arm 0",
                   "PhysicsJointConical pelvis arm 0", "PhysicsJointRevolute arm hand 4",
                   "PhysicsJointWeld arm hand <unset>"}));
  EXPECT_EQ(listed(root, "PhysicsJointList",
                   {"enable_swing_limit", "swing_limit", "enable_twist_limit", "min_twist_angle",
                    "max_twist_angle", "enable_limit", "min_angle", "max_angle"}),
            (Names{"true 22.5 true -30 30 <unset> <unset> <unset>",           // swing (30 + 60) / 4
                   "true 0 <unset> <unset> <unset> <unset> <unset> <unset>",  // a full turn has no limit
                   "true 90 true 0 0 <unset> <unset> <unset>",
                   "<unset> <unset> <unset> <unset> <unset> true -45 45",
                   "<unset> <unset> <unset> <unset> <unset> <unset> <unset> <unset>"}));
  std::vector<const Kv3Value*> joints = childrenOf(childOf(root, "PhysicsJointList"));
  ASSERT_EQ(joints.size(), 5u);
  const Kv3Value& cone = *joints[0];
  EXPECT_EQ(valueOf(cone, "swing_offset_angle"), "[0, 5, -10]");
  // At the child bone, seen from the parent; the joint's own axis is the child's x axis,
  // which the arm's yaw turns onto the parent's y axis.
  EXPECT_NEAR(cone.find("anchor_origin")->elements().at(2).asFloat(), 10, 1e-4);
  const std::vector<Kv3Value>& angles = cone.find("anchor_angles")->elements();
  Vector3 axis =
      angleMatrix(QAngle{angles.at(0).asFloat(), angles.at(1).asFloat(), angles.at(2).asFloat()}).column(2);
  EXPECT_NEAR(axis.y, 1, 1e-4) << axis.x << " " << axis.z;
  EXPECT_NEAR(joints[3]->find("anchor_origin")->elements().at(0).asFloat(), 10, 1e-4);
}

TEST(PhysicsFile, AFailedSaveIsReported) {
  PhysicsRun run(ragdollPhysics());
  ASSERT_TRUE(run.converter.LoadMDL() && run.converter.LoadPhysics());
  std::filesystem::create_directories(run.physicsFile());  // a folder where the file goes
  LogCapture log;
  EXPECT_FALSE(run.converter.WritePhysics());
  EXPECT_EQ(log.count("Unable to save " + run.dir.file("out/props/crate_refs/phys/crate_phy.dmx") + "\n"), 1u)
      << log.text();
}

TEST(PhysicsLoad, MismatchedOrBrokenFilesAreRefusedAndTheModelStillConverts) {
  for (int32_t checksumDelta : {1, 0}) {
    PhysicsRun run(ragdollPhysics(), ragdollModel(), checksumDelta);
    if (checksumDelta == 0) std::filesystem::resize_file(run.dir.path() / "models/props/crate.phy", 200);
    LogCapture log;
    EXPECT_TRUE(run.converter.Convert());
    EXPECT_EQ(log.count(checksumDelta ? "does not match the model's" : "Collision file rejected: "), 1u)
        << log.text();
    EXPECT_EQ(log.count("No valid .phy for " + run.dir.file("models/props/crate.mdl") + "\n"), 1u);
    EXPECT_TRUE(run.tables().physicsSolids.empty());
    EXPECT_FALSE(std::filesystem::exists(run.physicsFile()));
    EXPECT_EQ(testing::readText(run.out("crate.qmdl")).find("Physics"), std::string::npos);
  }
}

// Solids without a ledge tree convert as real files have them; a broken piece costs its
// hull only, with a message naming it.
TEST(PhysicsLoad, TreelessSolidsConvertAndABrokenSolidCostsOnlyItsHulls) {
  mdlforge::PhysicsDescription physics = ragdollPhysics();
  for (mdlforge::PhysicsSolid& solid : physics.solids) solid.ledgeTree = false;
  PhysicsRun treeless(physics);
  LogCapture log;
  ASSERT_TRUE(treeless.converter.Convert());
  EXPECT_EQ(log.count("No valid .phy"), 0u) << log.text();
  EXPECT_EQ(listed(treeless.readDocument(), "PhysicsShapeList", {"name"}),
            (Names{"pelvis_0_mesh", "arm_0_mesh", "arm_1_mesh", "arm_2_mesh", "hand_0_mesh"}));
  treeless.readDmx(treeless.physicsFile());

  PhysicsRun broken(physics);
  std::vector<uint8_t> bytes = testing::readBytes(broken.dir.path() / "models/props/crate.phy");
  // Claim more triangles for the arm's last piece than there are before the points.
  auto built = mdlforge::buildPhysics(physics, ragdollModel().checksum);
  ASSERT_TRUE(built);
  mdlforge::poke<int16_t>(bytes, built->where.at("ledge[1][2]") + 12, 200);
  testing::writeBytes(broken.dir.path() / "models/props/crate.phy", bytes);
  log.clear();
  ASSERT_TRUE(broken.converter.Convert());
  EXPECT_EQ(log.count("models/props/crate.phy: solid 1: 208 bytes at offset "), 1u) << log.text();
  EXPECT_EQ(log.count("has 200 triangles, which overrun its point array)\n"), 1u) << log.text();
  Kv3Value root = broken.readDocument();
  EXPECT_EQ(listed(root, "PhysicsShapeList", {"name"}), (Names{"pelvis_0_mesh", "arm_0_mesh", "arm_1_mesh", "hand_0_mesh"}));
  EXPECT_EQ(listed(root, "PhysicsBodyMarkupList", {"target_body"}), (Names{"pelvis", "arm"}));
  broken.readDmx(broken.physicsFile());
}

TEST(PhysicsCorpus, EveryCollisionFileLoadsWithHullsInsideTheRenderMesh) {
  std::filesystem::path corpus = testing::sharedDir() / "corpus";
  if (testing::sharedDir().empty() || !std::filesystem::is_directory(corpus / "models"))
    GTEST_SKIP() << "no corpus";
  testing::TempDir out;
  fs::FileSystem fileSystem{corpus};
  Output output{out.str(), nullptr};
  C_ZV_MDL_Import converter{fileSystem, output};
  int models = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus / "models")) {
    if (entry.path().extension() != ".phy") continue;
    ++models;
    RunOptions options;
    options.inputFiles = {std::filesystem::path(entry.path()).replace_extension(".mdl").string()};
    options.baseNames = {entry.path().stem().string()};
    options.outputFolders = {out.str()};
    options.outputRoot = out.str();
    converter.Setup(options, 0);
    LogCapture log;
    ASSERT_TRUE(converter.LoadMDL()) << log.text();
    EXPECT_TRUE(converter.LoadPhysics()) << entry.path() << ": " << log.text();
    converter.ExtractMeshes();
    // ratcord's collision bone carries, in the first frame of its reference animation, a
    // yaw of 90 degrees its bind pose lacks: its hull lines up only placed in that pose.
    EXPECT_GT(expectHullsInsideRenderMesh(converter.tables(), 0.5f, 0.02f, entry.path().string()), 0u);
  }
  EXPECT_GT(models, 0);
}

}  // namespace
}  // namespace zv
