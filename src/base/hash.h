#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>
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

// For in-memory tables only (it differs between byte orders, so it is never written):
// eight bytes a step; every byte, and the length's low byte, reach every bit of the result.
inline uint64_t tableHash(std::string_view text) {
  auto mix = [](uint64_t h) {
    h *= 0x9e3779b97f4a7c15ull;
    return h ^ (h >> 32);
  };
  uint64_t h = 0;
  size_t at = 0;
  for (; at + 8 <= text.size(); at += 8) {
    uint64_t word;
    std::memcpy(&word, text.data() + at, 8);
    h = mix(h ^ word);
  }
  // The tail has at most seven bytes; the eighth holds the length, so "a" and "a\0" differ.
  uint64_t tail = uint64_t(text.size() & 0xff) << 56;
  for (size_t k = 0; at + k < text.size(); ++k) {
    tail |= uint64_t(static_cast<uint8_t>(text[at + k])) << (8 * k);
  }
  return mix(mix(h ^ tail));
}

// For hash tables keyed by names (bones, pose parameters).
struct NameHasher {
  size_t operator()(std::string_view name) const { return nameHash(name); }
};

}  // namespace zv
