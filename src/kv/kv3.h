#pragma once
// KV3 values and their text form: the tree that model documents are saved as, the writer
// that lays it out, and a strict reader of that same text for tools and tests.

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/result.h"

namespace zv {

struct Kv3Member;

class Kv3Value {
 public:
  enum class Type : uint8_t { Null, Bool, Int, Float, Double, String, Array, Object };
  using Array = std::vector<Kv3Value>;
  using Object = std::vector<Kv3Member>;  // members in insertion order

  // Defined below Kv3Member: an object holds members, which must be complete first.
  Kv3Value();
  Kv3Value(std::nullptr_t);  // NOLINT(google-explicit-constructor)
  Kv3Value(bool value);      // NOLINT(google-explicit-constructor)
  template <std::integral T>
  requires(!std::same_as<T, bool>) Kv3Value(T value);  // NOLINT(google-explicit-constructor)
  // Floats stay 32-bit so they are written in the shortest form of a float.
  Kv3Value(float value);   // NOLINT(google-explicit-constructor)
  Kv3Value(double value);  // NOLINT(google-explicit-constructor)
  // A null pointer gives a null value rather than undefined behaviour.
  Kv3Value(const char* value);       // NOLINT(google-explicit-constructor)
  Kv3Value(std::string value);       // NOLINT(google-explicit-constructor)
  Kv3Value(std::string_view value);  // NOLINT(google-explicit-constructor)
  // Any other pointer would silently read as a bool.
  template <class T>
  Kv3Value(T*) = delete;
  Kv3Value(const Kv3Value&);
  Kv3Value(Kv3Value&&) noexcept;
  Kv3Value& operator=(const Kv3Value&);
  Kv3Value& operator=(Kv3Value&&) noexcept;
  ~Kv3Value();

  static Kv3Value makeArray();
  static Kv3Value makeArray(Array elements);
  static Kv3Value makeObject();
  static Kv3Value makeObject(Object members);
  static Kv3Value makeObject(std::initializer_list<Kv3Member> members);

  Type type() const { return static_cast<Type>(data_.index()); }
  bool isNull() const { return type() == Type::Null; }
  bool isNumber() const { return type() == Type::Int || type() == Type::Float || type() == Type::Double; }
  bool isString() const { return type() == Type::String; }
  bool isArray() const { return type() == Type::Array; }
  bool isObject() const { return type() == Type::Object; }

  // Reading accessors answer a neutral value (false, 0, "", empty) for another type.
  bool asBool() const;
  int64_t asInt() const;
  double asDouble() const;  // any number
  float asFloat() const;    // any number
  const std::string& asString() const;
  const Array& elements() const;
  const Object& members() const;
  // Number of elements or members; 0 for scalars.
  size_t size() const;

  // First member with exactly this key, or nullptr (also for non-objects).
  const Kv3Value* find(std::string_view key) const;
  Kv3Value* find(std::string_view key);

  // Null turns into the container on first use. False (and no change) for other types.
  // set replaces an existing member's value in place, so member order is first-set order.
  bool set(std::string_view key, Kv3Value value);
  bool push(Kv3Value element);

  friend bool operator==(const Kv3Value& a, const Kv3Value& b);

 private:
  std::variant<std::monostate, bool, int64_t, float, double, std::string, Array, Object> data_;
};

struct Kv3Member {
  std::string key;
  Kv3Value value;
  friend bool operator==(const Kv3Member& a, const Kv3Member& b) = default;
};

inline Kv3Value::Kv3Value() = default;
inline Kv3Value::Kv3Value(std::nullptr_t) {}
inline Kv3Value::Kv3Value(bool value) : data_(value) {}
template <std::integral T>
requires(!std::same_as<T, bool>) inline Kv3Value::Kv3Value(T value) : data_(static_cast<int64_t>(value)) {}
inline Kv3Value::Kv3Value(float value) : data_(value) {}
inline Kv3Value::Kv3Value(double value) : data_(value) {}
inline Kv3Value::Kv3Value(const char* value) {
  if (value != nullptr) data_ = std::string(value);
}
inline Kv3Value::Kv3Value(std::string value) : data_(std::move(value)) {}
inline Kv3Value::Kv3Value(std::string_view value) : data_(std::string(value)) {}
inline Kv3Value::Kv3Value(const Kv3Value&) = default;
inline Kv3Value::Kv3Value(Kv3Value&&) noexcept = default;
inline Kv3Value& Kv3Value::operator=(const Kv3Value&) = default;
inline Kv3Value& Kv3Value::operator=(Kv3Value&&) noexcept = default;
inline Kv3Value::~Kv3Value() = default;

// A name with its version GUID ("text" / "e21c7f3c-..."); braces around the GUID are optional.
struct Kv3Id {
  std::string name;
  std::string guid;
};

struct Kv3Header {
  Kv3Id encoding;
  Kv3Id format;
};

struct Kv3Document {
  Kv3Header header;
  Kv3Value root;
};

// Nesting of arrays and objects that the writer and reader accept; deep enough for any
// real skeleton, shallow enough for the recursive reader to stay within a thread's stack.
inline constexpr int kKv3MaxDepth = 1024;

// The shortest text that reads back to the same float, always with a '.' or an exponent.
std::string formatKv3Float(float value);
std::string formatKv3Double(double value);

// Lays the tree out as KV3 text: header line, tabs, one member per line, small numeric
// arrays on one line. Strings that are not valid UTF-8 have their stray bytes read as
// Latin-1. Fails on a bad header, a non-finite number or nesting beyond kKv3MaxDepth.
Result<std::string> writeKv3Text(const Kv3Value& root, const Kv3Header& header);

// Reads text of the writer's grammar back (comments and """ strings also accepted; binary
// blobs and typed values are not). Errors name the line.
Result<Kv3Document> readKv3Text(std::string_view text);

}  // namespace zv
