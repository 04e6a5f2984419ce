#pragma once
// Facts of the binary encoding shared by its writer and its reader: names, markers and
// the byte layout of fixed-size values.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "dmx/dm_types.h"

namespace zv::dmx {

inline constexpr std::string_view kBinaryEncoding = "binary";
inline constexpr std::string_view kSeqIdsEncoding = "binary_seqids";
inline constexpr int kBinaryEncodingVersion = 9;
inline constexpr std::string_view kHeaderStart = "<!-- dmx";
inline constexpr std::string_view kHeaderEnd = "-->";

// The root attribute whose element travels in the prefix block, and how readers name it.
inline constexpr std::string_view kPrefixAttribute = "$prefix_attribute$";
inline constexpr std::string_view kPrefixElementType = "DmElement";
inline constexpr std::string_view kPrefixElementName = "$prefix_element$";

// Element references: an index into the file's element list, or one of these.
inline constexpr int32_t kNullElement = -1;
inline constexpr int32_t kExternalElement = -2;

// Values whose file layout is their memory layout on a little-endian machine: a run of
// Component-sized little-endian numbers, no padding.
template <class T>
struct DmPlainLayout : std::false_type {};
template <class C, size_t N>
struct DmPlainComponents : std::true_type {
  using Component = C;
  static constexpr size_t kCount = N;
};
template <>
struct DmPlainLayout<int32_t> : DmPlainComponents<int32_t, 1> {};
template <>
struct DmPlainLayout<float> : DmPlainComponents<uint32_t, 1> {};
template <>
struct DmPlainLayout<DmTime> : DmPlainComponents<int32_t, 1> {};
template <>
struct DmPlainLayout<DmColor> : DmPlainComponents<uint8_t, 4> {};
template <>
struct DmPlainLayout<Vector2> : DmPlainComponents<uint32_t, 2> {};
template <>
struct DmPlainLayout<Vector3> : DmPlainComponents<uint32_t, 3> {};
template <>
struct DmPlainLayout<Vector4> : DmPlainComponents<uint32_t, 4> {};
template <>
struct DmPlainLayout<QAngle> : DmPlainComponents<uint32_t, 3> {};
template <>
struct DmPlainLayout<Quaternion> : DmPlainComponents<uint32_t, 4> {};
template <>
struct DmPlainLayout<DmMatrix> : DmPlainComponents<uint32_t, 16> {};
template <>
struct DmPlainLayout<uint64_t> : DmPlainComponents<uint64_t, 1> {};
template <>
struct DmPlainLayout<uint8_t> : DmPlainComponents<uint8_t, 1> {};

template <class T>
inline constexpr bool kIsPlain = DmPlainLayout<T>::value;

template <class T>
constexpr void checkPlainLayout() {
  using L = DmPlainLayout<T>;
  static_assert(sizeof(T) == sizeof(typename L::Component) * L::kCount, "padding in a plain value");
  static_assert(std::is_trivially_copyable_v<T>);
}

// Copies count plain values to or from little-endian bytes; one memcpy on little-endian
// machines, which is what keeps large vertex arrays at memory speed.
template <class T>
void copyPlain(void* dst, const void* src, size_t count) {
  checkPlainLayout<T>();
  size_t bytes = count * sizeof(T);
  if (bytes == 0) return;
  std::memcpy(dst, src, bytes);
  if constexpr (std::endian::native == std::endian::big) {
    constexpr size_t kSize = sizeof(typename DmPlainLayout<T>::Component);
    auto* p = static_cast<uint8_t*>(dst);
    for (size_t i = 0; kSize > 1 && i < bytes; i += kSize) std::reverse(p + i, p + i + kSize);
  }
}

}  // namespace zv::dmx
