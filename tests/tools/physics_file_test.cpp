// The collision file builder's framing of the file and its solids. The reader tests check
// the rest of the layout against an independent walk of the ledges.

#include <gtest/gtest.h>

#include "forge_check.h"
#include "mdlforge/physics.h"

namespace zv::mdlforge {
namespace {

TEST(PhysicsFile, FramesSolidsByTheirSizesAndEndsWithTheText) {
  PhysicsDescription d;
  d.solids.resize(2);
  d.solids[0].pieces = {boxPiece({0, 0, 0}, {1, 1, 1})};
  d.solids[1].pieces = {boxPiece({0, 0, 0}, {1, 1, 1}), boxPiece({2, 0, 0}, {3, 1, 1})};
  d.solids[1].solidHeader = false;
  auto file = buildPhysics(d, 77);
  ASSERT_TRUE(file) << file.message();
  check::Bytes bytes(file->bytes);
  EXPECT_EQ(bytes.i32(0), 16);
  EXPECT_EQ(bytes.i32(8), 2);
  EXPECT_EQ(bytes.i32(12), 77);
  size_t first = 16, second = first + 4 + size_t(bytes.i32(first));
  EXPECT_EQ(second, file->where.at("solid[1]"));
  EXPECT_EQ(bytes.str(first + 4).substr(0, 4), "VPHY");
  EXPECT_EQ(file->where.at("surface[0]"), first + 4 + 28);
  EXPECT_EQ(file->where.at("surface[1]"), second + 4) << "the older form has no solid header";
  size_t text = second + 4 + size_t(bytes.i32(second));
  EXPECT_EQ(text, file->where.at("text"));
  EXPECT_EQ(bytes.i32(first + 4 + 8), int32_t(second - (first + 4 + 28)))
      << "surface size in the solid header";
  // Each compact surface: its id, and its size (above 8 flag bits) running to the solid's end.
  for (auto [surface, end] : {std::pair{first + 4 + 28, second}, std::pair{second + 4, text}}) {
    EXPECT_EQ(bytes.str(surface + 44).substr(0, 4), "IVPS");
    EXPECT_EQ(bytes.i32(surface + 28) >> 8, int32_t(end - surface));
  }
  EXPECT_EQ(bytes.str(text).rfind("solid {\n\"index\" \"0\"\n}\nsolid {\n\"index\" \"1\"\n}\n", 0), 0u);
  EXPECT_EQ(text + bytes.str(text).size() + 1, file->bytes.size()) << "the text ends the file with its NUL";
}

}  // namespace
}  // namespace zv::mdlforge
