#include "mdlforge/byte_writer.h"

#include <bit>
#include <cstring>
#include <stdexcept>

namespace zv::mdlforge {

void pokeBytes(std::vector<uint8_t>& bytes, size_t offset, const void* value, size_t size) {
  if (offset > bytes.size() || size > bytes.size() - offset) throw std::out_of_range("poke past the end");
  std::memcpy(bytes.data() + offset, value, size);
  if constexpr (std::endian::native == std::endian::big) {
    for (size_t i = 0; i < size / 2; ++i) std::swap(bytes[offset + i], bytes[offset + size - 1 - i]);
  }
}

void ByteWriter::vec2(const Vector2& v) {
  f32(v.x);
  f32(v.y);
}

void ByteWriter::vec3(const Vector3& v) {
  f32(v.x);
  f32(v.y);
  f32(v.z);
}

void ByteWriter::vec4(const Vector4& v) {
  vec3({v.x, v.y, v.z});
  f32(v.w);
}

void ByteWriter::quat(const Quaternion& q) { vec4({q.x, q.y, q.z, q.w}); }

void ByteWriter::euler(const RadianEuler& e) { vec3({e.x, e.y, e.z}); }

void ByteWriter::matrix(const Matrix3x4& m) {
  for (const auto& row : m.m) {
    for (float value : row) f32(value);
  }
}

void ByteWriter::raw(std::span<const uint8_t> data) { bytes_.insert(bytes_.end(), data.begin(), data.end()); }

void ByteWriter::zeros(size_t count) { bytes_.resize(bytes_.size() + count, 0); }

void ByteWriter::fixedString(std::string_view text, size_t width) {
  size_t used = std::min(text.size(), width);
  bytes_.insert(bytes_.end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(used));
  zeros(width - used);
}

void ByteWriter::cstring(std::string_view text) {
  bytes_.insert(bytes_.end(), text.begin(), text.end());
  u8(0);
}

void ByteWriter::alignTo(size_t alignment) {
  if (alignment > 1 && size() % alignment != 0) zeros(alignment - size() % alignment);
}

size_t ByteWriter::reserveI32() {
  size_t at = size();
  i32(0);
  return at;
}

void ByteWriter::patchI32(size_t field, int32_t value) { pokeBytes(bytes_, field, &value, sizeof value); }

void ByteWriter::patchF32(size_t field, float value) { pokeBytes(bytes_, field, &value, sizeof value); }

void ByteWriter::patchOffset(size_t field, size_t base, size_t target) {
  patchI32(field, static_cast<int32_t>(static_cast<int64_t>(target) - static_cast<int64_t>(base)));
}

size_t StringPool::intern(std::string_view text) {
  auto found = index_.find(text);
  if (found != index_.end()) return found->second;
  texts_.emplace_back(text);
  index_.emplace(std::string(text), texts_.size() - 1);
  return texts_.size() - 1;
}

void StringPool::reference(ByteWriter& writer, size_t base, std::string_view text) {
  referenceField(writer.reserveI32(), base, text);
}

void StringPool::referenceField(size_t field, size_t base, std::string_view text) {
  uses_.push_back({{field, base}, intern(text)});
}

void StringPool::flush(ByteWriter& writer) {
  std::vector<size_t> positions;
  positions.reserve(texts_.size());
  for (const auto& text : texts_) {
    positions.push_back(writer.size());
    writer.cstring(text);
  }
  for (const auto& use : uses_) writer.patchOffset(use.at.field, use.at.base, positions[use.text]);
  texts_.clear();
  index_.clear();
  uses_.clear();
}

}  // namespace zv::mdlforge
