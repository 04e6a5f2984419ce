#pragma once
// The bytes a serializer writes, in memory. A write that fails or would pass the size
// limit puts the buffer in its error state; later writes are ignored, and the save that
// used it reports failure.

#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

namespace zv::dmx {

class DmOutputBuffer {
 public:
  enum class Mode { Binary, Text };

  explicit DmOutputBuffer(Mode mode = Mode::Binary, size_t sizeLimit = std::numeric_limits<size_t>::max())
      : mode_(mode), limit_(sizeLimit) {}

  bool isText() const { return mode_ == Mode::Text; }
  bool hasError() const { return error_; }
  void setError() { error_ = true; }

  void put(const void* data, size_t size);
  // Reserves room for size more bytes, to be written through the returned pointer;
  // nullptr once the buffer is in error.
  uint8_t* grow(size_t size);
  // Room for about size more bytes, so that large arrays are not copied while growing;
  // only a hint, never an error.
  void reserve(size_t size);
  void putByte(uint8_t value) { put(&value, 1); }
  void putI32(int32_t value);
  // The text up to its first NUL, then a NUL.
  void putCString(std::string_view text);

  size_t size() const { return bytes_.size(); }
  const std::vector<uint8_t>& bytes() const { return bytes_; }
  std::vector<uint8_t> take() { return std::move(bytes_); }

 private:
  Mode mode_;
  size_t limit_;
  bool error_ = false;
  std::vector<uint8_t> bytes_;
};

}  // namespace zv::dmx
