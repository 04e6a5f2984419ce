#include "mdlforge/byte_writer.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "base/byte_view.h"

namespace zv::mdlforge {
namespace {

TEST(ByteWriter, WritesLittleEndianValuesBackToBack) {
  ByteWriter w;
  w.u8(0xAB);
  w.i16(-2);
  w.i32(0x01020304);
  w.f32(1.5f);
  w.vec3({1, 2, 3});
  const auto& b = w.bytes();
  ASSERT_EQ(b.size(), 1u + 2 + 4 + 4 + 12);
  EXPECT_EQ(b[0], 0xAB);
  EXPECT_EQ(b[1], 0xFE);
  EXPECT_EQ(b[2], 0xFF);
  EXPECT_EQ(b[3], 0x04);
  EXPECT_EQ(b[6], 0x01);
  ByteView view(b);
  EXPECT_EQ(view.read<float>(7), 1.5f);
  EXPECT_EQ(view.read<float>(19), 3.0f);
}

TEST(ByteWriter, MatricesAreWrittenRowAfterRow) {
  Matrix3x4 m;
  m.m = {{{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}}};
  ByteWriter w;
  w.matrix(m);
  ByteView view(w.bytes());
  ASSERT_EQ(w.size(), 48u);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(view.read<float>(4 * i), float(i + 1)) << i;
}

TEST(ByteWriter, FixedStringsArePaddedWithNulsToTheirWidth) {
  ByteWriter w;
  w.fixedString("abc", 8);
  w.u8(0xEE);
  EXPECT_EQ(w.bytes(), (std::vector<uint8_t>{'a', 'b', 'c', 0, 0, 0, 0, 0, 0xEE}));
}

TEST(ByteWriter, AlignsOnlyWhenNeeded) {
  ByteWriter w;
  w.alignTo(4);
  EXPECT_EQ(w.size(), 0u);
  w.u8(1);
  w.alignTo(4);
  EXPECT_EQ(w.size(), 4u);
  w.alignTo(16);
  EXPECT_EQ(w.size(), 16u);
}

TEST(ByteWriter, PatchedOffsetsAreRelativeToTheirBaseAndMayBeNegative) {
  ByteWriter w;
  w.zeros(8);
  size_t record = w.size();
  size_t forward = w.reserveI32();
  size_t backward = w.reserveI32();
  w.zeros(12);
  w.patchOffsetHere(forward, record);
  w.patchOffset(backward, record, 2);
  ByteView view(w.bytes());
  EXPECT_EQ(view.read<int32_t>(forward), 20);
  EXPECT_EQ(view.read<int32_t>(backward), -6);
}

TEST(ByteWriter, PokeRefusesToWritePastTheEnd) {
  std::vector<uint8_t> bytes(6, 0);
  poke<int32_t>(bytes, 2, -1);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{0, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_THROW(poke<int32_t>(bytes, 3, 1), std::out_of_range);
}

TEST(StringPool, SharesEqualTextsAndPatchesEveryReference) {
  ByteWriter w;
  StringPool pool;
  w.zeros(4);
  pool.reference(w, 0, "alpha");  // field at 4, from the file start
  size_t record = w.size();
  pool.reference(w, record, "beta");   // field at 8
  pool.reference(w, record, "alpha");  // field at 12
  pool.reference(w, record, "");       // field at 16
  pool.flush(w);
  ByteView view(w.bytes());
  auto target = [&](size_t field, size_t base) {
    return base + static_cast<size_t>(*view.read<int32_t>(field));
  };
  EXPECT_EQ(view.cstr(target(4, 0)), "alpha");
  EXPECT_EQ(view.cstr(target(8, record)), "beta");
  EXPECT_EQ(target(12, record), target(4, 0));
  EXPECT_EQ(view.cstr(target(16, record)), "");
  // alpha, beta and the empty string, each once.
  EXPECT_EQ(w.size(), 20u + 6 + 5 + 1);
}

}  // namespace
}  // namespace zv::mdlforge
