#pragma once
// Attribute type ids of the element model and the C++ value type behind each one.
// Scalar ids are 1..16; the array of a scalar is its id plus 32. The numbers are written
// into files, so they never change.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "base/math.h"

namespace zv::dmx {

class CDmElement;

enum class DmType : uint8_t {
  Unknown = 0,
  Element = 1,
  Int,
  Float,
  Bool,
  String,
  Binary,
  Time,
  Color,
  Vector2,
  Vector3,
  Vector4,
  QAngle,
  Quaternion,
  Matrix,
  UInt64,
  UInt8,
  ElementArray = 33,
  IntArray,
  FloatArray,
  BoolArray,
  StringArray,
  BinaryArray,
  TimeArray,
  ColorArray,
  Vector2Array,
  Vector3Array,
  Vector4Array,
  QAngleArray,
  QuaternionArray,
  MatrixArray,
  UInt64Array,
  UInt8Array,
};

inline constexpr uint8_t kFirstScalarId = 1;
inline constexpr uint8_t kLastScalarId = 16;
inline constexpr uint8_t kArrayIdOffset = 32;

constexpr bool isScalarId(uint8_t id) { return id >= kFirstScalarId && id <= kLastScalarId; }
constexpr bool isArrayId(uint8_t id) {
  return id >= kFirstScalarId + kArrayIdOffset && id <= kLastScalarId + kArrayIdOffset;
}
constexpr bool isKnownTypeId(uint8_t id) { return isScalarId(id) || isArrayId(id); }
constexpr bool isArrayType(DmType t) { return isArrayId(static_cast<uint8_t>(t)); }
// Any byte becomes a type; ids outside the table are Unknown.
constexpr DmType typeFromId(uint8_t id) {
  return isKnownTypeId(id) ? static_cast<DmType>(id) : DmType::Unknown;
}
constexpr DmType arrayOf(DmType scalar) {
  return static_cast<DmType>(static_cast<uint8_t>(scalar) + kArrayIdOffset);
}
// The item type of an array type; a scalar type is its own item type.
constexpr DmType scalarOf(DmType t) {
  return isArrayType(t) ? static_cast<DmType>(static_cast<uint8_t>(t) - kArrayIdOffset) : t;
}

// "int", "vector3_array", ... and "unknown" for ids outside the table.
std::string_view typeName(DmType type);
std::string typeNameOfId(uint8_t id);

// Time in ticks of 1/10000 second, as files store it.
struct DmTime {
  int32_t ticks = 0;
  static constexpr int32_t kTicksPerSecond = 10000;
  // floor(seconds * 10000 + 0.5), clamped to the representable range; NaN gives 0.
  static DmTime fromSeconds(double seconds);
  double seconds() const { return static_cast<double>(ticks) / kTicksPerSecond; }
  friend bool operator==(const DmTime&, const DmTime&) = default;
};

struct DmColor {
  uint8_t r = 0, g = 0, b = 0, a = 0;
  friend bool operator==(const DmColor&, const DmColor&) = default;
};

// Row-major 4x4; identity by default.
struct DmMatrix {
  std::array<float, 16> m{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  friend bool operator==(const DmMatrix&, const DmMatrix&) = default;
};

using DmBinary = std::vector<uint8_t>;

// 16 bytes that identify an element. Text form: {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}, the
// first three groups read as little-endian 32/16/16-bit numbers.
struct DmElementId {
  std::array<uint8_t, 16> bytes{};
  // A number in the first four bytes (little-endian), the rest zero.
  static DmElementId fromNumber(uint32_t number, uint32_t tag = 0);
  std::string toString() const;
  // Accepts the form above with or without braces, in either case.
  static std::optional<DmElementId> parse(std::string_view text);
  friend bool operator==(const DmElementId&, const DmElementId&) = default;
};
inline constexpr size_t kElementIdTextMax = 38;

// The value type of every scalar id.
template <DmType T>
struct DmScalarTraits;
template <>
struct DmScalarTraits<DmType::Element> {
  using Value = CDmElement*;
};
template <>
struct DmScalarTraits<DmType::Int> {
  using Value = int32_t;
};
template <>
struct DmScalarTraits<DmType::Float> {
  using Value = float;
};
template <>
struct DmScalarTraits<DmType::Bool> {
  using Value = bool;
};
template <>
struct DmScalarTraits<DmType::String> {
  using Value = std::string;
};
template <>
struct DmScalarTraits<DmType::Binary> {
  using Value = DmBinary;
};
template <>
struct DmScalarTraits<DmType::Time> {
  using Value = DmTime;
};
template <>
struct DmScalarTraits<DmType::Color> {
  using Value = DmColor;
};
template <>
struct DmScalarTraits<DmType::Vector2> {
  using Value = Vector2;
};
template <>
struct DmScalarTraits<DmType::Vector3> {
  using Value = Vector3;
};
template <>
struct DmScalarTraits<DmType::Vector4> {
  using Value = Vector4;
};
template <>
struct DmScalarTraits<DmType::QAngle> {
  using Value = QAngle;
};
template <>
struct DmScalarTraits<DmType::Quaternion> {
  using Value = Quaternion;
};
template <>
struct DmScalarTraits<DmType::Matrix> {
  using Value = DmMatrix;
};
template <>
struct DmScalarTraits<DmType::UInt64> {
  using Value = uint64_t;
};
template <>
struct DmScalarTraits<DmType::UInt8> {
  using Value = uint8_t;
};

namespace detail {
template <DmType T, bool Array = isArrayType(T)>
struct DmValueOf {
  using Type = typename DmScalarTraits<T>::Value;
};
template <DmType T>
struct DmValueOf<T, true> {
  using Type = std::vector<typename DmScalarTraits<scalarOf(T)>::Value>;
};
}  // namespace detail

// The C++ value of an attribute of type T: the scalar value, or a vector of them.
template <DmType T>
using DmValue = typename detail::DmValueOf<T>::Type;

// Slots of the value variant: 0 unknown, 1..16 scalars, 17..32 arrays.
inline constexpr size_t kTypeSlots = 33;
constexpr size_t slotOf(DmType t) {
  auto id = static_cast<uint8_t>(t);
  return isScalarId(id) ? id : (isArrayId(id) ? id - 16u : 0u);
}
constexpr DmType typeOfSlot(size_t slot) {
  if (slot == 0 || slot >= kTypeSlots) return DmType::Unknown;
  return static_cast<DmType>(slot <= kLastScalarId ? slot : slot + 16);
}

namespace detail {
template <size_t... I>
auto variantOfSlots(std::index_sequence<I...>) -> std::variant<std::monostate, DmValue<typeOfSlot(I + 1)>...>;
}  // namespace detail

// One alternative per slot; alternatives repeat (binary and uint8 arrays are both byte
// vectors), so values are always addressed by slot, never by C++ type.
using DmVariant = decltype(detail::variantOfSlots(std::make_index_sequence<kTypeSlots - 1>{}));

// Calls f(std::integral_constant<DmType, T>{}) for the runtime type t; Unknown is passed too.
template <class F>
void dispatchType(DmType t, F&& f) {
  [&]<size_t... I>(std::index_sequence<I...>) {
    size_t slot = slotOf(t);
    (void)((slot == I ? (f(std::integral_constant<DmType, typeOfSlot(I)>{}), true) : false) || ...);
  }
  (std::make_index_sequence<kTypeSlots>{});
}

}  // namespace zv::dmx
