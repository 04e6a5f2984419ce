#pragma once
// Bounds-checked, little-endian, unaligned-safe access to bytes that came from outside.
// Every accessor checks before it reads; nothing here can read out of range.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>
#include <vector>

namespace zv {

// Largest item count a reader accepts for one table, whatever the file says: a hostile
// count must not make us allocate or loop for gigabytes.
inline constexpr size_t kMaxTableItems = size_t{1} << 24;

class ByteView {
 public:
  ByteView() = default;
  ByteView(const uint8_t* data, size_t size) : data_(data), size_(data ? size : 0) {}
  explicit ByteView(std::span<const uint8_t> bytes) : ByteView(bytes.data(), bytes.size()) {}
  explicit ByteView(const std::vector<uint8_t>& bytes) : ByteView(bytes.data(), bytes.size()) {}

  const uint8_t* data() const { return data_; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // True when [offset, offset + length) lies inside the view; overflow-safe.
  bool contains(size_t offset, size_t length) const {
    return offset <= size_ && length <= size_ - offset;
  }

  template <class T>
  std::optional<T> read(size_t offset) const {
    static_assert(std::is_trivially_copyable_v<T>);
    if (!contains(offset, sizeof(T))) return std::nullopt;
    return load<T>(data_ + offset);
  }

  template <class T>
  T readOr(size_t offset, T fallback) const {
    auto value = read<T>(offset);
    return value ? *value : fallback;
  }

  std::optional<ByteView> sub(size_t offset, size_t length) const {
    if (!contains(offset, length)) return std::nullopt;
    return ByteView(data_ + offset, length);
  }

  // The NUL-terminated string at offset; nothing when no NUL comes before the end.
  std::optional<std::string_view> cstr(size_t offset) const {
    if (offset >= size_) return std::nullopt;
    const void* nul = std::memchr(data_ + offset, 0, size_ - offset);
    if (!nul) return std::nullopt;
    return std::string_view(reinterpret_cast<const char*>(data_ + offset),
                            static_cast<const uint8_t*>(nul) - (data_ + offset));
  }

  // Reads a fixed-width value from raw memory as little-endian; callers have checked bounds.
  template <class T>
  static T load(const uint8_t* p) {
    T value;
    std::memcpy(&value, p, sizeof(T));
    if constexpr (std::endian::native == std::endian::big && sizeof(T) > 1) {
      auto* bytes = reinterpret_cast<uint8_t*>(&value);
      for (size_t i = 0; i < sizeof(T) / 2; ++i) std::swap(bytes[i], bytes[sizeof(T) - 1 - i]);
    }
    return value;
  }

 private:
  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

// Absolute position of "base + relative" when it lands inside [0, limit]; signed file
// offsets are added here once, so no caller forms an out-of-range position.
inline std::optional<size_t> offsetFrom(size_t base, int64_t relative, size_t limit) {
  if (relative < 0 && static_cast<uint64_t>(-relative) > base) return std::nullopt;
  uint64_t pos = static_cast<uint64_t>(static_cast<int64_t>(base) + relative);
  if (pos > limit) return std::nullopt;
  return static_cast<size_t>(pos);
}

// Byte size of count records of stride bytes, when count is sane and the product fits.
inline std::optional<size_t> tableBytes(int64_t count, size_t stride) {
  if (count < 0 || static_cast<uint64_t>(count) > kMaxTableItems) return std::nullopt;
  return static_cast<size_t>(count) * stride;
}

}  // namespace zv
