#include "kv/kv3.h"

#include <charconv>
#include <cmath>

#include "base/strings.h"

namespace zv {

// ---- values ----

Kv3Value Kv3Value::makeArray() { return makeArray(Array()); }

Kv3Value Kv3Value::makeObject() { return makeObject(Object()); }

Kv3Value Kv3Value::makeArray(Array elements) {
  Kv3Value value;
  value.data_ = std::move(elements);
  return value;
}

Kv3Value Kv3Value::makeObject(Object members) {
  Kv3Value value;
  value.data_ = std::move(members);
  return value;
}

Kv3Value Kv3Value::makeObject(std::initializer_list<Kv3Member> members) {
  Kv3Value value = makeObject();
  for (const Kv3Member& member : members) value.set(member.key, member.value);
  return value;
}

bool Kv3Value::asBool() const {
  const bool* value = std::get_if<bool>(&data_);
  return value != nullptr && *value;
}

int64_t Kv3Value::asInt() const {
  const int64_t* value = std::get_if<int64_t>(&data_);
  return value != nullptr ? *value : 0;
}

double Kv3Value::asDouble() const {
  switch (type()) {
    case Type::Int:
      return static_cast<double>(std::get<int64_t>(data_));
    case Type::Float:
      return std::get<float>(data_);
    case Type::Double:
      return std::get<double>(data_);
    default:
      return 0.0;
  }
}

float Kv3Value::asFloat() const {
  if (const float* value = std::get_if<float>(&data_)) return *value;
  return static_cast<float>(asDouble());
}

const std::string& Kv3Value::asString() const {
  static const std::string kEmpty;
  const std::string* value = std::get_if<std::string>(&data_);
  return value != nullptr ? *value : kEmpty;
}

const Kv3Value::Array& Kv3Value::elements() const {
  static const Array kEmpty;
  const Array* value = std::get_if<Array>(&data_);
  return value != nullptr ? *value : kEmpty;
}

const Kv3Value::Object& Kv3Value::members() const {
  static const Object kEmpty;
  const Object* value = std::get_if<Object>(&data_);
  return value != nullptr ? *value : kEmpty;
}

size_t Kv3Value::size() const { return isArray() ? elements().size() : members().size(); }

const Kv3Value* Kv3Value::find(std::string_view key) const {
  for (const Kv3Member& member : members()) {
    if (member.key == key) return &member.value;
  }
  return nullptr;
}

Kv3Value* Kv3Value::find(std::string_view key) {
  return const_cast<Kv3Value*>(static_cast<const Kv3Value&>(*this).find(key));
}

bool Kv3Value::set(std::string_view key, Kv3Value value) {
  if (isNull()) data_ = Object{};
  Object* object = std::get_if<Object>(&data_);
  if (object == nullptr) return false;
  if (Kv3Value* existing = find(key)) {
    *existing = std::move(value);
  } else {
    object->push_back(Kv3Member{std::string(key), std::move(value)});
  }
  return true;
}

bool Kv3Value::push(Kv3Value element) {
  if (isNull()) data_ = Array{};
  Array* array = std::get_if<Array>(&data_);
  if (array == nullptr) return false;
  array->push_back(std::move(element));
  return true;
}

bool operator==(const Kv3Value& a, const Kv3Value& b) { return a.data_ == b.data_; }

// ---- numbers ----

namespace {

template <class T>
std::string formatShortest(T value) {
  char buffer[64];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
  std::string text(buffer, ec == std::errc() ? end : buffer);
  // A reader must see a float, not an integer.
  if (text.find_first_of(".eEn") == std::string::npos) text += ".0";
  return text;
}

}  // namespace

std::string formatKv3Float(float value) { return formatShortest(value); }
std::string formatKv3Double(double value) { return formatShortest(value); }

// ---- writer ----

namespace {

bool isBareKey(std::string_view key) {
  if (key.empty()) return false;
  auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
  if (!letter(key[0])) return false;
  for (char c : key) {
    if (!letter(c) && !(c >= '0' && c <= '9') && c != '.') return false;
  }
  return true;
}

// Length of a valid UTF-8 sequence at text[i], or 0 when the byte starts none.
size_t utf8SequenceLength(std::string_view text, size_t i) {
  auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  unsigned char lead = byte(i);
  if (lead < 0x80) return 1;
  size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                  : lead >= 0xE0 && lead <= 0xEF ? 3
                  : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                 : 0;
  if (length == 0 || i + length > text.size()) return 0;
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
  }
  unsigned char second = byte(i + 1);
  // Overlong forms, surrogates and code points past U+10FFFF are not valid UTF-8.
  if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
      (lead == 0xF4 && second > 0x8F)) {
    return 0;
  }
  return length;
}

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  for (size_t i = 0; i < text.size();) {
    char c = text[i];
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '"':
        out += "\\\"";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default: {
        size_t length = utf8SequenceLength(text, i);
        if (length == 0) {
          // A stray high byte: legacy 8-bit text, taken as Latin-1.
          auto byte = static_cast<unsigned char>(c);
          out += static_cast<char>(0xC0 | (byte >> 6));
          out += static_cast<char>(0x80 | (byte & 0x3F));
          ++i;
        } else {
          out.append(text.substr(i, length));
          i += length;
        }
        continue;
      }
    }
    ++i;
  }
  out += '"';
}

bool isSmallScalarArray(const Kv3Value& value) {
  if (!value.isArray() || value.size() == 0 || value.size() > 4) return false;
  for (const Kv3Value& element : value.elements()) {
    if (!element.isNumber() && element.type() != Kv3Value::Type::Bool) return false;
  }
  return true;
}

bool isInline(const Kv3Value& value) {
  return (!value.isArray() && !value.isObject()) || value.size() == 0 || isSmallScalarArray(value);
}

class Writer {
 public:
  Status document(const Kv3Value& root, const Kv3Header& header) {
    if (Status status = headerLine(header); !status) return status;
    Status status = root.isObject() || root.isArray() ? block(root, 0, 0) : inlineValue(root);
    if (!status) return status;
    out_ += '\n';
    return Status::success();
  }

  std::string take() { return std::move(out_); }

 private:
  static bool validName(std::string_view name) {
    if (name.empty()) return false;
    for (char c : name) {
      bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
      if (!ok) return false;
    }
    return true;
  }

  static std::string_view bareGuid(std::string_view guid) {
    if (guid.size() >= 2 && guid.front() == '{' && guid.back() == '}') guid = guid.substr(1, guid.size() - 2);
    return guid;
  }

  static bool validGuid(std::string_view guid) {
    if (guid.size() != 36) return false;
    for (char c : guid) {
      if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || c == '-')) return false;
    }
    return true;
  }

  Status headerLine(const Kv3Header& header) {
    for (const Kv3Id* id : {&header.encoding, &header.format}) {
      if (!validName(id->name) || !validGuid(bareGuid(id->guid))) {
        return Error{format("invalid encoding or format id '%s' {%s}", id->name.c_str(), id->guid.c_str())};
      }
    }
    out_ += "<!-- kv3 encoding:" + header.encoding.name + ":version{";
    out_.append(bareGuid(header.encoding.guid));
    out_ += "} format:" + header.format.name + ":version{";
    out_.append(bareGuid(header.format.guid));
    out_ += "} -->\n";
    return Status::success();
  }

  void indent(int depth) { out_.append(static_cast<size_t>(depth), '\t'); }

  Status inlineValue(const Kv3Value& value) {
    switch (value.type()) {
      case Kv3Value::Type::Null:
        out_ += "null";
        break;
      case Kv3Value::Type::Bool:
        out_ += value.asBool() ? "true" : "false";
        break;
      case Kv3Value::Type::Int:
        out_ += std::to_string(value.asInt());
        break;
      case Kv3Value::Type::Float:
      case Kv3Value::Type::Double: {
        double number = value.asDouble();
        if (!std::isfinite(number)) return Error{"cannot write a non-finite number"};
        out_ +=
            value.type() == Kv3Value::Type::Float ? formatKv3Float(value.asFloat()) : formatKv3Double(number);
        break;
      }
      case Kv3Value::Type::String:
        appendQuoted(out_, value.asString());
        break;
      case Kv3Value::Type::Array:
        if (value.size() == 0) {
          out_ += "[ ]";
          break;
        }
        out_ += "[ ";
        for (size_t i = 0; i < value.size(); ++i) {
          if (i > 0) out_ += ", ";
          if (Status status = inlineValue(value.elements()[i]); !status) return status;
        }
        out_ += " ]";
        break;
      case Kv3Value::Type::Object:
        out_ += "{ }";
        break;
    }
    return Status::success();
  }

  // Containers count toward the limit whether written inline or not, as the reader counts.
  static Status checkNesting(const Kv3Value& value, int nesting) {
    if ((value.isArray() || value.isObject()) && nesting >= kKv3MaxDepth) {
      return Error{format("values nested deeper than %d", kKv3MaxDepth)};
    }
    return Status::success();
  }

  // "{" / "[" on its own line at depth, contents one deeper, closer at depth (no newline).
  Status block(const Kv3Value& value, int depth, int nesting) {
    if (Status status = checkNesting(value, nesting); !status) return status;
    indent(depth);
    out_ += value.isObject() ? "{\n" : "[\n";
    if (value.isObject()) {
      for (const Kv3Member& member : value.members()) {
        indent(depth + 1);
        if (isBareKey(member.key)) {
          out_ += member.key;
        } else {
          appendQuoted(out_, member.key);
        }
        out_ += " = ";
        if (Status status = nested(member.value, depth + 1, nesting); !status) return status;
        out_ += '\n';
      }
    } else {
      for (const Kv3Value& element : value.elements()) {
        if (Status status = checkNesting(element, nesting + 1); !status) return status;
        if (isInline(element)) indent(depth + 1);
        Status status = isInline(element) ? inlineValue(element) : block(element, depth + 1, nesting + 1);
        if (!status) return status;
        out_ += ",\n";
      }
    }
    indent(depth);
    out_ += value.isObject() ? '}' : ']';
    return Status::success();
  }

  // A member's value: on the key's line when inline, else opening on the next line.
  Status nested(const Kv3Value& value, int depth, int nesting) {
    if (Status status = checkNesting(value, nesting + 1); !status) return status;
    if (isInline(value)) return inlineValue(value);
    out_ += '\n';
    return block(value, depth, nesting + 1);
  }

  std::string out_;
};

}  // namespace

Result<std::string> writeKv3Text(const Kv3Value& root, const Kv3Header& header) {
  Writer writer;
  if (Status status = writer.document(root, header); !status) return status.error();
  return writer.take();
}

}  // namespace zv
