#pragma once
// Checked decoding of offset-linked binary records. A RecordReader walks one file; every
// record and table is located through it, so a range that leaves the file becomes one
// message naming the file, the record path, the field and the offset, and decoding stops.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/byte_view.h"
#include "base/math.h"

namespace zv::legacy {

// A record known to lie wholly inside its file: field reads within its size cannot fail.
class Record {
 public:
  Record() = default;
  Record(ByteView file, size_t position, size_t size) : file_(file), position_(position), size_(size) {}

  size_t position() const { return position_; }
  size_t size() const { return size_; }

  template <class T>
  T get(size_t field) const {
    return field + sizeof(T) <= size_ ? file_.readOr<T>(position_ + field, T{}) : T{};
  }
  int32_t i32(size_t field) const { return get<int32_t>(field); }
  float f32(size_t field) const { return get<float>(field); }
  Vector3 vec3(size_t field) const { return {f32(field), f32(field + 4), f32(field + 8)}; }
  Quaternion quat(size_t field) const { return {f32(field), f32(field + 4), f32(field + 8), f32(field + 12)}; }
  Matrix3x4 mat3x4(size_t field) const;
  // A fixed char[n] field, cut at its first NUL.
  std::string fixedString(size_t field, size_t length) const;

 private:
  ByteView file_;
  size_t position_ = 0;
  size_t size_ = 0;
};

// Where a table lies: absolute start, item count and stride.
struct Table {
  size_t start = 0;
  size_t count = 0;
  size_t stride = 0;
  size_t at(size_t index) const { return start + index * stride; }
};

class RecordReader {
 public:
  RecordReader(std::string fileName, ByteView file) : fileName_(std::move(fileName)), file_(file) {}

  const std::string& fileName() const { return fileName_; }
  ByteView file() const { return file_; }
  bool failed() const { return error_.has_value(); }
  const std::string& error() const { return *error_; }

  // The record of size bytes at an absolute position.
  std::optional<Record> record(size_t position, size_t size, std::string_view what);
  // count records of stride bytes at base + relative. A count of 0 is an empty table
  // whatever the offset says; a negative or huge count is an error.
  std::optional<Table> table(size_t base, int64_t relative, int64_t count, size_t stride, std::string_view what);
  // The NUL-terminated string at base + relative; offset 0 (relative) gives "" when allowZero.
  std::optional<std::string> string(size_t base, int64_t relative, std::string_view what, bool allowZero = true);
  // Records an error (the first one wins) and returns nullopt for convenience.
  std::nullopt_t fail(std::string message);

  // Decodes one optional piece of the file (a sequence, an attachment, the key-value
  // text, ...). A fault inside it costs only that piece: the error becomes a note
  // ("<error>; <piece> left out") and decoding goes on. False when the piece failed.
  template <class Decode>
  bool optional(std::string_view piece, Decode&& decode) {
    if (failed()) return false;
    decode();
    if (!failed()) return true;
    notes_.push_back(*error_ + "; " + std::string(piece) + " left out");
    error_.reset();
    return false;
  }
  // A piece kept with something inside it left out says so here.
  void note(const std::string& message) { notes_.push_back(fileName_ + ": " + message); }
  // What optional pieces were left out, in file order.
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  std::string fileName_;
  ByteView file_;
  std::optional<std::string> error_;
  std::vector<std::string> notes_;
};

}  // namespace zv::legacy
