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
  int16_t i16(size_t offset) const { return at<int16_t>(offset); }
  uint16_t u16(size_t offset) const { return at<uint16_t>(offset); }
  uint8_t u8(size_t offset) const { return at<uint8_t>(offset); }

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

  size_t size() const { return bytes_.size(); }

 private:
  std::vector<uint8_t> bytes_;
};

// Builds the description and fails the test when that is refused.
inline ModelFiles forge(const Description& description) {
  auto files = build(description);
  EXPECT_TRUE(files.ok()) << (files.ok() ? "" : files.message());
  return files.ok() ? std::move(files).value() : ModelFiles{};
}

// Named records with everything else at its default (designated initializers would
// trip -Wmissing-field-initializers on some compilers).
inline Bone bone(std::string name, int32_t parent = -1, Vector3 position = {}) {
  Bone out;
  out.name = std::move(name);
  out.parent = parent;
  out.position = position;
  return out;
}
inline Animation animation(std::string name, int32_t frames = 1) {
  Animation out;
  out.name = std::move(name);
  out.frames = frames;
  return out;
}
inline Sequence sequence(std::string name) {
  Sequence out;
  out.name = std::move(name);
  return out;
}

// A quad of four vertices (two triangles) at height z, skinned to bone.
inline Mesh quadMesh(int32_t material, float z, uint8_t bone = 0) {
  Mesh mesh;
  mesh.material = material;
  const float corners[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  for (const auto& c : corners) {
    Vertex v;
    v.position = {c[0], c[1], z};
    v.uv = {c[0], c[1]};
    v.bones = {bone, 0, 0};
    mesh.vertices.push_back(v);
  }
  mesh.lods = {{triangleGroup(4, {0, 1, 2, 0, 2, 3})}};
  return mesh;
}

}  // namespace zv::mdlforge::check
