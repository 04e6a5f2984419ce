#include "base/byte_view.h"

#include <gtest/gtest.h>

#include <limits>

namespace zv {
namespace {

TEST(ByteView, ReadsLittleEndianAtUnalignedOffsets) {
  const uint8_t bytes[] = {0xAA, 0x01, 0x02, 0x03, 0x04, 0x00, 0x00, 0x80, 0x3F};
  ByteView view(bytes, sizeof bytes);
  EXPECT_EQ(view.read<uint32_t>(1), 0x04030201u);
  EXPECT_EQ(view.read<uint16_t>(3), 0x0403u);
  EXPECT_EQ(view.read<int8_t>(0), int8_t(-86));
  EXPECT_EQ(view.read<float>(5), 1.0f);
}

TEST(ByteView, RefusesEveryReadThatWouldCrossTheEnd) {
  const uint8_t bytes[] = {1, 2, 3, 4};
  ByteView view(bytes, sizeof bytes);
  EXPECT_TRUE(view.read<uint32_t>(0));
  EXPECT_FALSE(view.read<uint32_t>(1));
  EXPECT_FALSE(view.read<uint8_t>(4));
  EXPECT_FALSE(view.read<uint32_t>(std::numeric_limits<size_t>::max() - 1));
  EXPECT_EQ(view.readOr<uint32_t>(2, 77u), 77u);
  EXPECT_TRUE(view.contains(4, 0));
  EXPECT_FALSE(view.contains(5, 0));
  EXPECT_FALSE(view.contains(1, std::numeric_limits<size_t>::max()));
}

TEST(ByteView, SubViewsAreBoundedByTheirParent) {
  const uint8_t bytes[] = {1, 2, 3, 4, 5, 6};
  ByteView view(bytes, sizeof bytes);
  auto sub = view.sub(2, 3);
  ASSERT_TRUE(sub);
  EXPECT_EQ(sub->read<uint8_t>(0), 3);
  EXPECT_FALSE(sub->read<uint8_t>(3));
  EXPECT_FALSE(view.sub(4, 3));
}

TEST(ByteView, StringsMustEndInsideTheView) {
  const uint8_t bytes[] = {'a', 'b', 0, 'c', 'd'};
  ByteView view(bytes, sizeof bytes);
  EXPECT_EQ(view.cstr(0), "ab");
  EXPECT_EQ(view.cstr(2), "");
  EXPECT_FALSE(view.cstr(3));  // no terminator before the end
  EXPECT_FALSE(view.cstr(5));
}

TEST(ByteView, SignedOffsetsStayInsideTheirLimit) {
  EXPECT_EQ(offsetFrom(100, -40, 200), 60u);
  EXPECT_EQ(offsetFrom(100, 100, 200), 200u);
  EXPECT_FALSE(offsetFrom(100, 101, 200));
  EXPECT_FALSE(offsetFrom(10, -11, 200));
  EXPECT_FALSE(offsetFrom(0, std::numeric_limits<int32_t>::min(), 200));
}

TEST(ByteView, TableSizesRejectNegativeAndHugeCounts) {
  EXPECT_EQ(tableBytes(3, 48), 144u);
  EXPECT_EQ(tableBytes(0, 48), 0u);
  EXPECT_FALSE(tableBytes(-1, 48));
  EXPECT_FALSE(tableBytes(int64_t(kMaxTableItems) + 1, 1));
}

}  // namespace
}  // namespace zv
