#pragma once
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zv {

// 32-bit FNV-1a over the bytes of text.
constexpr uint32_t fnv1a32(std::string_view text) {
  uint32_t h = 0x811c9dc5u;
  for (char c : text) {
    h ^= static_cast<uint8_t>(c);
    h *= 16777619u;
  }
  return h;
}

// 64-bit FNV-1a over bytes: content fingerprints.
constexpr uint64_t fnv1a64(const uint8_t* data, size_t size) {
  uint64_t h = 0xcbf29ce484222325ull;
  for (size_t i = 0; i < size; ++i) {
    h ^= data[i];
    h *= 0x100000001b3ull;
  }
  return h;
}

// The name-table hash: FNV-1a, then mixed as (h ^ (h << 17)) + (h >> 21).
constexpr uint32_t nameHash(std::string_view text) {
  uint32_t h = fnv1a32(text);
  return (h ^ (h << 17)) + (h >> 21);
}

// For hash tables keyed by names (bones, pose parameters).
struct NameHasher {
  size_t operator()(std::string_view name) const { return nameHash(name); }
};

}  // namespace zv
