#include "dmx/dm_dump.h"

#include <charconv>
#include <initializer_list>
#include <unordered_map>

#include "base/strings.h"

namespace zv::dmx {
namespace {

constexpr size_t kMaxBinaryBytesShown = 16;

template <class N>
void appendNumber(std::string& out, N value) {
  // to_chars: locale-free, and for floats the shortest text that reads back exactly.
  char text[64];
  auto result = std::to_chars(text, text + sizeof text, value);
  out.append(text, result.ptr);
}

void appendFloats(std::string& out, std::initializer_list<float> values) {
  out += '(';
  bool first = true;
  for (float v : values) {
    if (!first) out += ' ';
    appendNumber(out, v);
    first = false;
  }
  out += ')';
}

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (c == '\n') {
      out += "\\n";
    } else if (byte < 0x20 || byte >= 0x7f) {
      out += format("\\x%02x", byte);
    } else {
      out += c;
    }
  }
  out += '"';
}

// Seconds with four decimals, from the integer ticks so no rounding can creep in.
void appendTime(std::string& out, DmTime time) {
  int64_t ticks = time.ticks;
  uint64_t magnitude = static_cast<uint64_t>(ticks < 0 ? -ticks : ticks);
  out += format("%s%llu.%04llu", ticks < 0 ? "-" : "", static_cast<unsigned long long>(magnitude / 10000),
                static_cast<unsigned long long>(magnitude % 10000));
}

void appendBinary(std::string& out, const DmBinary& bytes) {
  out += format("[%zu bytes]", bytes.size());
  for (size_t i = 0; i < bytes.size() && i < kMaxBinaryBytesShown; ++i) out += format(" %02x", bytes[i]);
  if (bytes.size() > kMaxBinaryBytesShown) out += " ...";
}

template <DmType S>
void appendScalar(std::string& out, const DmValue<S>& v) {
  if constexpr (S == DmType::Int || S == DmType::UInt64 || S == DmType::UInt8 || S == DmType::Float) {
    appendNumber(out, v);
  } else if constexpr (S == DmType::Bool) {
    out += v ? "true" : "false";
  } else if constexpr (S == DmType::String) {
    appendQuoted(out, v);
  } else if constexpr (S == DmType::Binary) {
    appendBinary(out, v);
  } else if constexpr (S == DmType::Time) {
    appendTime(out, v);
  } else if constexpr (S == DmType::Color) {
    out += format("(%u %u %u %u)", v.r, v.g, v.b, v.a);
  } else if constexpr (S == DmType::Vector2) {
    appendFloats(out, {v.x, v.y});
  } else if constexpr (S == DmType::Vector3) {
    appendFloats(out, {v.x, v.y, v.z});
  } else if constexpr (S == DmType::Vector4 || S == DmType::Quaternion) {
    appendFloats(out, {v.x, v.y, v.z, v.w});
  } else if constexpr (S == DmType::QAngle) {
    appendFloats(out, {v.pitch, v.yaw, v.roll});
  } else if constexpr (S == DmType::Matrix) {
    const auto& m = v.m;
    appendFloats(out, {m[0], m[1], m[2], m[3], m[4], m[5], m[6], m[7], m[8], m[9], m[10], m[11], m[12], m[13],
                       m[14], m[15]});
  }
}

template <DmType T>
void appendValue(std::string& out, const DmValue<T>& value, size_t maxItems) {
  if constexpr (T == DmType::Element || T == DmType::ElementArray || T == DmType::Unknown) {
    return;  // references are the dumper's business
  } else if constexpr (isArrayType(T)) {
    out += format("[%zu]", value.size());
    for (size_t i = 0; i < value.size() && i < maxItems; ++i) {
      out += i == 0 ? " = " : ", ";
      const DmValue<scalarOf(T)>& item = value[i];
      appendScalar<scalarOf(T)>(out, item);
    }
    if (value.size() > maxItems) out += ", ...";
  } else {
    out += "= ";
    appendScalar<T>(out, value);
  }
}

class Dumper {
 public:
  Dumper(const DmDocument& doc, const DmDumpOptions& options)
      : doc_(doc), options_(options), printed_(doc.elements.size(), false) {
    for (size_t i = 0; i < doc.elements.size(); ++i) index_.emplace(doc.elements[i], i);
  }

  std::string run() {
    const DmHeader& h = doc_.header;
    line(0, format("<!-- dmx encoding %s %d format %s %d -->", h.encoding.c_str(), h.encodingVersion,
                   h.format.c_str(), h.formatVersion));
    printPrefix();
    line(0, format("elements: %zu", doc_.elements.size()));
    if (doc_.root) printElement(*doc_.root, 0, 0);
    bool announced = false;
    for (size_t i = 0; i < doc_.elements.size(); ++i) {
      if (printed_[i]) continue;
      if (!announced) line(0, "not printed above:");
      announced = true;
      printElement(*doc_.elements[i], 0, 0);
    }
    return std::move(out_);
  }

 private:
  void line(size_t indent, std::string_view text) {
    out_.append(2 * indent, ' ');
    out_.append(text);
    out_ += '\n';
  }

  void printPrefix() {
    if (!doc_.prefix) return line(0, "prefix: none");
    line(0, "prefix:");
    for (size_t i = 0; i < doc_.prefix->attributeCount(); ++i)
      printAttribute(doc_.prefix->attribute(i), 1, 0);
  }

  std::string label(const CDmElement& element) const {
    std::string text = format("[%zu] %s ", index_.at(&element), element.type().c_str());
    appendQuoted(text, element.name());
    return text;
  }

  void printElement(const CDmElement& element, size_t indent, size_t depth) {
    printed_[index_.at(&element)] = true;
    line(indent, label(element));
    for (size_t i = 0; i < element.attributeCount(); ++i)
      printAttribute(element.attribute(i), indent + 1, depth);
  }

  void printAttribute(const CDmAttribute& attr, size_t indent, size_t depth) {
    std::string head = attr.name() + " " + std::string(attr.typeName());
    if (const auto* single = attr.tryValue<DmType::Element>())
      return printReference(head, *single, indent, depth);
    if (const auto* items = attr.tryValue<DmType::ElementArray>()) {
      line(indent, head + format(" [%zu]%s", items->size(), items->empty() ? "" : ":"));
      for (const CDmElement* item : *items) printReference({}, item, indent + 1, depth);
      return;
    }
    line(indent, head + " " + formatDmValue(attr, options_.maxArrayItems));
  }

  // A reference as "head" (an attribute) or bare (an array item): nested the first time
  // and within the depth limit, else one line.
  void printReference(const std::string& head, const CDmElement* element, size_t indent, size_t depth) {
    std::string lead = head.empty() ? std::string() : head + " ";
    if (!element) return line(indent, lead + (head.empty() ? "null" : "= null"));
    if (element->isExternal()) return line(indent, lead + "-> external " + element->externalIdText());
    if (element == doc_.prefix) return line(indent, lead + "-> the prefix above");
    auto it = index_.find(element);
    if (it == index_.end()) return line(indent, lead + "-> (an element outside this file)");
    if (printed_[it->second] || depth + 1 > options_.maxDepth)
      return line(indent, lead + "-> " + label(*element));
    if (head.empty()) return printElement(*element, indent, depth + 1);
    line(indent, head + ":");
    printElement(*element, indent + 1, depth + 1);
  }

  const DmDocument& doc_;
  const DmDumpOptions& options_;
  std::vector<bool> printed_;
  std::unordered_map<const CDmElement*, size_t> index_;
  std::string out_;
};

}  // namespace

std::string formatDmValue(const CDmAttribute& attribute, size_t maxArrayItems) {
  std::string out;
  dispatchType(attribute.type(), [&](auto tag) {
    constexpr DmType T = tag.value;
    if constexpr (T != DmType::Unknown) appendValue<T>(out, *attribute.tryValue<T>(), maxArrayItems);
  });
  return out;
}

std::string dumpDmx(const DmDocument& doc, const DmDumpOptions& options) {
  return Dumper(doc, options).run();
}

}  // namespace zv::dmx
