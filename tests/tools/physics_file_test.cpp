// The collision file builder refuses only what its records cannot hold.

#include <gtest/gtest.h>

#include "mdlforge/physics.h"

namespace zv::mdlforge {
namespace {

TEST(PhysicsFile, RefusesWhatTheRecordsCannotHold) {
  PhysicsPiece manyPoints = boxPiece({0, 0, 0}, {1, 1, 1});
  manyPoints.points.resize(65537);
  PhysicsPiece noTriangles = boxPiece({0, 0, 0}, {1, 1, 1});
  noTriangles.triangles.clear();
  PhysicsPiece manyTriangles = boxPiece({0, 0, 0}, {1, 1, 1});
  manyTriangles.triangles.resize(4096, {0, 1, 2});
  const std::pair<std::vector<PhysicsPiece>, const char*> cases[] = {
      {{}, "no pieces"},
      {{noTriangles}, "0 triangles"},
      {{manyTriangles}, "4096 triangles"},
      {{manyPoints}, "65537 points"},
  };
  for (const auto& [pieces, expected] : cases) {
    PhysicsDescription d;
    d.solids = {{pieces, true, false, {}}};
    auto file = buildPhysics(d, 0);
    ASSERT_FALSE(file) << expected;
    EXPECT_NE(file.message().find(expected), std::string::npos) << file.message();
  }
  PhysicsDescription limits;
  manyTriangles.triangles.resize(4095);
  limits.solids = {{{manyTriangles}, false, false, {}}};
  EXPECT_TRUE(buildPhysics(limits, 0));
}

}  // namespace
}  // namespace zv::mdlforge
