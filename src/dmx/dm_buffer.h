#pragma once
// The bytes a serializer writes, in memory. A write that fails or would pass the size
// limit puts the buffer in its error state; later writes are ignored, and the save that
// used it reports failure. A buffer can be cleared and used again: its room stays, so a
// writer saving file after file neither allocates nor faults in fresh pages for each.

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
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

  // Inline while the room lasts: a body is millions of small writes.
  void put(const void* data, size_t size) {
    if (!error_ && size <= capacity_ - size_) {
      if (size != 0) std::memcpy(data_.get() + size_, data, size);
      size_ += size;
      return;
    }
    putSlow(data, size);
  }
  // Reserves room for size more bytes, to be written through the returned pointer;
  // nullptr once the buffer is in error.
  uint8_t* grow(size_t size);
  // Room for about size more bytes, so that large arrays are not copied while growing;
  // only a hint, never an error.
  void reserve(size_t size);
  void putByte(uint8_t value) { put(&value, 1); }
  // Little-endian whatever the host.
  void putI32(int32_t value) {
    uint8_t bytes[4];
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(static_cast<uint32_t>(value) >> (8 * i));
    put(bytes, 4);
  }
  // The text up to its first NUL, then a NUL.
  void putCString(std::string_view text);

  size_t size() const { return size_; }
  size_t capacity() const { return capacity_; }
  std::span<const uint8_t> bytes() const { return {data_.get(), size_}; }
  // A copy of the bytes; the buffer is left empty.
  std::vector<uint8_t> take();
  // Empties the buffer and its error state, keeping its room.
  void clear();
  // Gives the room back.
  void release();

 private:
  // put once the room is used up, or in the error state.
  void putSlow(const void* data, size_t size);
  // Makes room for at least `wanted` bytes in all; false when that cannot be had.
  bool makeRoom(size_t wanted);

  Mode mode_;
  size_t limit_;
  bool error_ = false;
  // Written bytes are never zeroed first: every byte up to size_ was put there.
  std::unique_ptr<uint8_t[]> data_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace zv::dmx
