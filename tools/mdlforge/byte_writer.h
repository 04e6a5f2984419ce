#pragma once
// A growing little-endian byte buffer for building binary files. Offsets that are only
// known once the target is written are reserved as fields and patched later, so no
// writer has to compute a layout in advance.

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/math.h"

namespace zv::mdlforge {

// Writes value at offset in little-endian order, growing nothing: offset must be in range.
void pokeBytes(std::vector<uint8_t>& bytes, size_t offset, const void* value, size_t size);

// Overwrites one field of an already built file, e.g. to make a corrupt copy in a test.
template <class T>
void poke(std::vector<uint8_t>& bytes, size_t offset, T value) {
  static_assert(std::is_trivially_copyable_v<T>);
  pokeBytes(bytes, offset, &value, sizeof(T));
}

class ByteWriter {
 public:
  size_t size() const { return bytes_.size(); }
  const std::vector<uint8_t>& bytes() const { return bytes_; }
  std::vector<uint8_t> take() { return std::move(bytes_); }

  void u8(uint8_t value) { bytes_.push_back(value); }
  void i16(int16_t value) { put(value); }
  void u16(uint16_t value) { put(value); }
  void i32(int32_t value) { put(value); }
  void f32(float value) { put(value); }
  void vec2(const Vector2& v);
  void vec3(const Vector3& v);
  void vec4(const Vector4& v);
  void quat(const Quaternion& q);
  void euler(const RadianEuler& e);
  // Three rows of four floats, row after row.
  void matrix(const Matrix3x4& m);
  void raw(std::span<const uint8_t> data);
  void zeros(size_t count);
  // text NUL-padded to width bytes; the caller has checked that it fits with its NUL.
  void fixedString(std::string_view text, size_t width);
  // text and its NUL.
  void cstring(std::string_view text);
  void alignTo(size_t alignment);

  // Reserves a 32-bit field at the current position and returns its position.
  size_t reserveI32();
  void patchI32(size_t field, int32_t value);
  void patchF32(size_t field, float value);
  // Sets field to (target - base): the relative offsets that every record of the family uses.
  void patchOffset(size_t field, size_t base, size_t target);
  // patchOffset with the current position as the target.
  void patchOffsetHere(size_t field, size_t base) { patchOffset(field, base, size()); }

 private:
  template <class T>
  void put(T value) {
    size_t at = bytes_.size();
    bytes_.resize(at + sizeof(T));
    pokeBytes(bytes_, at, &value, sizeof(T));
  }

  std::vector<uint8_t> bytes_;
};

// An offset field that still waits for its target: field position and the record it is
// relative to (0 for offsets from the file start).
struct PendingOffset {
  size_t field = 0;
  size_t base = 0;
};

// Strings referenced by offset fields, written together at the end of a file the way the
// legacy compiler pooled them. Equal texts share one copy; order is first reference.
class StringPool {
 public:
  // Reserves an i32 at the writer's position that will point, relative to base, at text.
  void reference(ByteWriter& writer, size_t base, std::string_view text);
  // As reference, for a field reserved earlier.
  void referenceField(size_t field, size_t base, std::string_view text);
  // Writes every string and patches every field that refers to one.
  void flush(ByteWriter& writer);

 private:
  struct Use {
    PendingOffset at;
    size_t text;  // index into texts_
  };
  size_t intern(std::string_view text);

  std::vector<std::string> texts_;
  std::map<std::string, size_t, std::less<>> index_;
  std::vector<Use> uses_;
};

}  // namespace zv::mdlforge
