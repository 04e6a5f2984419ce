#pragma once
// Tiny readers for checking forged files: fixed-width values and strings at absolute
// positions, and "follow the relative offset in this field". They read through ByteView
// only and know nothing of the forge's own code.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/byte_view.h"
#include "mdlforge/forge.h"

namespace zv::mdlforge::check {

class Bytes {
 public:
  // Keeps its own copy, so that checking a temporary build result is safe.
  explicit Bytes(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

  template <class T>
  T at(size_t offset) const {
    auto value = ByteView(bytes_).read<T>(offset);
    EXPECT_TRUE(value.has_value()) << "read past the end at " << offset;
    return value.value_or(T{});
  }
  int32_t i32(size_t offset) const { return at<int32_t>(offset); }
  float f32(size_t offset) const { return at<float>(offset); }

  std::string str(size_t offset) const {
    auto text = ByteView(bytes_).cstr(offset);
    EXPECT_TRUE(text.has_value()) << "no string at " << offset;
    return text ? std::string(*text) : std::string("<none>");
  }
  // The position that the i32 at record + field points at, relative to the record.
  size_t follow(size_t record, size_t field) const {
    return static_cast<size_t>(static_cast<int64_t>(record) + i32(record + field));
  }
  // The string that the i32 at record + field points at, relative to the record.
  std::string name(size_t record, size_t field) const { return str(follow(record, field)); }

 private:
  std::vector<uint8_t> bytes_;
};

// Builds the description and fails the test when that is refused.
inline ModelFiles forge(const Description& description) {
  auto files = build(description);
  EXPECT_TRUE(files.ok()) << (files.ok() ? "" : files.message());
  return files.ok() ? std::move(files).value() : ModelFiles{};
}

}  // namespace zv::mdlforge::check
