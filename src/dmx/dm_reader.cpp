#include "dmx/dm_reader.h"

#include <charconv>
#include <unordered_map>

#include "base/strings.h"
#include "dmx/dm_encoding.h"

namespace zv::dmx {
namespace {

// No real header line comes near this; it bounds the search for the line end.
constexpr size_t kMaxHeaderLine = 512;
// Smallest encodings, used to bound counts by the bytes left.
constexpr size_t kMinElementRecord = 4 + 4 + 16;
constexpr size_t kMinAttribute = 4 + 1 + 1;
constexpr size_t kMinPrefixAttribute = 1 + 1 + 1;

std::optional<int> parseInt(std::string_view text) {
  int value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// Encoded size of the smallest item of an array of S, to bound item counts.
constexpr size_t minItemSize(DmType scalar) {
  switch (scalar) {
    case DmType::Bool:
    case DmType::UInt8:
    case DmType::String:  // array items are inline strings: at least their NUL
      return 1;
    case DmType::Element:
    case DmType::Binary:
      return 4;
    default:
      return 0;  // plain types: their size, known at compile time
  }
}

class BodyReader {
 public:
  BodyReader(ByteView bytes, size_t pos, DmDocument& doc) : bytes_(bytes), pos_(pos), doc_(doc) {}

  Status read() {
    if (!readPrefixBlock() || !readStringTable() || !readElementList()) return Error{error_};
    for (size_t i = 0; i < doc_.elements.size(); ++i) {
      if (!readAttributeBlock(*doc_.elements[i], i)) return Error{error_};
    }
    if (pos_ != bytes_.size()) {
      return Error{format("DMX: %zu unexpected bytes after the last attribute at offset %zu",
                          bytes_.size() - pos_, pos_)};
    }
    attachPrefix();
    return Status::success();
  }

 private:
  size_t remaining() const { return bytes_.size() - pos_; }

  bool fail(const std::string& what) {
    error_ = format("DMX: %s at offset %zu", what.c_str(), pos_);
    return false;
  }

  bool take(size_t size, const uint8_t*& data, const char* what) {
    if (size > remaining())
      return fail(
          format("unexpected end of data reading %s (%zu bytes needed, %zu left)", what, size, remaining()));
    data = bytes_.data() + pos_;
    pos_ += size;
    return true;
  }

  bool readI32(int32_t& value, const char* what) {
    const uint8_t* data;
    if (!take(4, data, what)) return false;
    value = ByteView::load<int32_t>(data);
    return true;
  }

  bool readByte(uint8_t& value, const char* what) {
    const uint8_t* data;
    if (!take(1, data, what)) return false;
    value = *data;
    return true;
  }

  bool readCString(std::string_view& text, const char* what) {
    auto found = bytes_.cstr(pos_);
    if (!found) return fail(format("unterminated string in %s", what));
    text = *found;
    pos_ += text.size() + 1;
    return true;
  }

  // A count whose items, each at least minSize bytes, fit in what is left.
  bool readCount(size_t& count, size_t minSize, const char* what) {
    int32_t raw;
    if (!readI32(raw, what)) return false;
    if (raw < 0 || static_cast<size_t>(raw) > kMaxTableItems ||
        static_cast<size_t>(raw) > remaining() / std::max<size_t>(minSize, 1)) {
      pos_ -= 4;
      return fail(format("%s %d is impossible with %zu bytes left", what, raw, remaining() - 4));
    }
    count = static_cast<size_t>(raw);
    return true;
  }

  // --- sections -------------------------------------------------------------------------

  bool readPrefixBlock() {
    int32_t flag;
    if (!readI32(flag, "prefix flag")) return false;
    if (flag == 0) return true;
    if (flag != 1) {
      pos_ -= 4;
      return fail(format("prefix flag %d is neither 0 nor 1", flag));
    }
    doc_.prefix = doc_.tree->create(kPrefixElementType, kPrefixElementName);
    size_t count;
    if (!readCount(count, kMinPrefixAttribute, "prefix attribute count")) return false;
    for (size_t i = 0; i < count; ++i) {
      std::string_view name;
      if (!readCString(name, "prefix attribute name")) return false;
      if (!readAttribute(*doc_.prefix, std::string(name), true)) return false;
    }
    return true;
  }

  bool readStringTable() {
    size_t count;
    if (!readCount(count, 1, "string count")) return false;
    strings_.reserve(count);
    for (size_t i = 0; i < count; ++i) {
      std::string_view text;
      if (!readCString(text, "string table")) return false;
      strings_.push_back(text);
    }
    return true;
  }

  bool readStringIndex(std::string_view& text, const char* what) {
    int32_t index;
    if (!readI32(index, what)) return false;
    if (index < 0 || static_cast<size_t>(index) >= strings_.size()) {
      pos_ -= 4;
      return fail(format("%s %d is outside the string table of %zu", what, index, strings_.size()));
    }
    text = strings_[static_cast<size_t>(index)];
    return true;
  }

  bool readElementList() {
    size_t count;
    if (!readCount(count, kMinElementRecord, "element count")) return false;
    doc_.elements.reserve(count);
    for (size_t i = 0; i < count; ++i) {
      std::string_view type, name;
      const uint8_t* id;
      if (!readStringIndex(type, "element type") || !readStringIndex(name, "element name") ||
          !take(16, id, "element id")) {
        return false;
      }
      CDmElement* element = doc_.tree->create(type, name);
      DmElementId fileId;
      std::copy(id, id + 16, fileId.bytes.begin());
      element->setId(fileId);
      doc_.elements.push_back(element);
    }
    doc_.root = doc_.elements.empty() ? nullptr : doc_.elements.front();
    return true;
  }

  bool readAttributeBlock(CDmElement& element, size_t index) {
    size_t count;
    if (!readCount(count, kMinAttribute, "attribute count")) return false;
    for (size_t i = 0; i < count; ++i) {
      std::string_view name;
      if (!readStringIndex(name, "attribute name")) return false;
      if (!readAttribute(element, std::string(name), false)) {
        error_ += format(" (attribute \"%s\" of element %zu)", std::string(name).c_str(), index);
        return false;
      }
    }
    return true;
  }

  // The type byte and the value; the name has been read.
  bool readAttribute(CDmElement& element, std::string name, bool inlineStrings) {
    uint8_t id;
    if (!readByte(id, "attribute type")) return false;
    DmType type = typeFromId(id);
    if (type == DmType::Unknown) {
      pos_ -= 1;
      return fail(format("unknown attribute type id %u", id));
    }
    if (inlineStrings && (type == DmType::Element || type == DmType::ElementArray)) {
      pos_ -= 1;
      return fail(format("prefix attribute \"%s\" refers to elements", name.c_str()));
    }
    CDmAttribute& attr = element.appendAttribute(std::move(name), type);
    bool ok = false;
    dispatchType(type, [&](auto tag) {
      constexpr DmType T = tag.value;
      if constexpr (T != DmType::Unknown) ok = readValue<T>(*attr.tryValue<T>(), inlineStrings);
    });
    return ok;
  }

  // --- values ---------------------------------------------------------------------------

  template <DmType T>
  bool readValue(DmValue<T>& value, bool inlineStrings) {
    using V = DmValue<T>;
    if constexpr (isArrayType(T)) {
      return readArray<T>(value, inlineStrings);
    } else if constexpr (T == DmType::Element) {
      return readElementRef(value);
    } else if constexpr (T == DmType::String) {
      std::string_view text;
      bool ok = inlineStrings ? readCString(text, "string value") : readStringIndex(text, "string value");
      if (ok) value.assign(text);
      return ok;
    } else if constexpr (T == DmType::Binary) {
      size_t size;
      const uint8_t* data;
      if (!readCount(size, 1, "binary length") || !take(size, data, "binary value")) return false;
      value.assign(data, data + size);
      return true;
    } else if constexpr (T == DmType::Bool) {
      uint8_t byte;
      if (!readByte(byte, "bool value")) return false;
      value = byte != 0;
      return true;
    } else {
      const uint8_t* data;
      if (!take(sizeof(V), data, "value")) return false;
      copyPlain<V>(&value, data, 1);
      return true;
    }
  }

  template <DmType T>
  bool readArray(DmValue<T>& items, bool inlineStrings) {
    constexpr DmType S = scalarOf(T);
    using Item = DmValue<S>;
    constexpr size_t kMinItem = kIsPlain<Item> ? sizeof(Item) : minItemSize(S);
    size_t count;
    if (!readCount(count, kMinItem, "array count")) return false;
    if constexpr (kIsPlain<Item>) {
      const uint8_t* data;
      if (!take(count * sizeof(Item), data, "array items")) return false;
      items.resize(count);
      copyPlain<Item>(items.data(), data, count);
      return true;
    } else {
      items.resize(count);
      for (size_t i = 0; i < count; ++i) {
        Item item{};
        if (!readItem<S>(item, inlineStrings)) return false;
        items[i] = std::move(item);
      }
      return true;
    }
  }

  template <DmType S>
  bool readItem(DmValue<S>& item, bool inlineStrings) {
    if constexpr (S == DmType::String) {
      // String array items are inline even where scalars use the table.
      std::string_view text;
      if (!readCString(text, "string array item")) return false;
      item.assign(text);
      return true;
    } else {
      return readValue<S>(item, inlineStrings);
    }
  }

  bool readElementRef(CDmElement*& element) {
    int32_t index;
    if (!readI32(index, "element reference")) return false;
    if (index == kNullElement) {
      element = nullptr;
    } else if (index == kExternalElement) {
      std::string_view text;
      if (!readCString(text, "external element id")) return false;
      element = external(text);
    } else if (index >= 0 && static_cast<size_t>(index) < doc_.elements.size()) {
      element = doc_.elements[static_cast<size_t>(index)];
    } else {
      pos_ -= 4;
      return fail(
          format("element reference %d is outside the element list of %zu", index, doc_.elements.size()));
    }
    return true;
  }

  CDmElement* external(std::string_view text) {
    auto it = externals_.find(text);
    if (it != externals_.end()) return it->second;
    CDmElement* stub = doc_.tree->createExternal(text);
    externals_.emplace(stub->externalIdText(), stub);
    doc_.externals.push_back(stub);
    return stub;
  }

  void attachPrefix() {
    if (doc_.prefix && doc_.root && !doc_.root->has(kPrefixAttribute)) {
      doc_.root->appendAttribute(std::string(kPrefixAttribute), DmType::Element)
          .set<DmType::Element>(doc_.prefix);
    }
  }

  ByteView bytes_;
  size_t pos_;
  DmDocument& doc_;
  std::string error_;
  std::vector<std::string_view> strings_;
  std::unordered_map<std::string_view, CDmElement*> externals_;
};

Result<DmDocument> readBody(ByteView bytes, const DmHeader& header, size_t bodyOffset) {
  DmDocument doc;
  doc.header = header;
  doc.header.bodyOffset = bodyOffset;
  doc.header.nulAfterHeader = bodyOffset > header.bodyOffset;
  doc.tree = std::make_unique<DmElementTree>();
  Status status = BodyReader(bytes, bodyOffset, doc).read();
  if (!status) return status.error();
  return doc;
}

}  // namespace

Result<DmHeader> readDmxHeader(ByteView bytes) {
  std::string_view head(reinterpret_cast<const char*>(bytes.data()), std::min(bytes.size(), kMaxHeaderLine));
  size_t newline = head.find('\n');
  if (!head.starts_with(kHeaderStart) || newline == std::string_view::npos) {
    return Error{"DMX: no \"<!-- dmx ... -->\" header line at offset 0"};
  }
  std::string_view line = head.substr(0, newline);
  if (line.ends_with('\r')) line.remove_suffix(1);
  std::vector<std::string> words;
  for (std::string& word : split(line, ' ')) {
    if (!word.empty()) words.push_back(std::move(word));
  }
  // <!-- dmx encoding NAME VERSION format NAME VERSION -->
  std::optional<int> encodingVersion = words.size() == 9 ? parseInt(words[4]) : std::nullopt;
  std::optional<int> formatVersion = words.size() == 9 ? parseInt(words[7]) : std::nullopt;
  if (!encodingVersion || !formatVersion || words[0] != "<!--" || words[1] != "dmx" ||
      words[2] != "encoding" || words[5] != "format" || words[8] != kHeaderEnd) {
    return Error{format("DMX: malformed header line \"%s\" at offset 0", std::string(line).c_str())};
  }
  DmHeader header;
  header.encoding = words[3];
  header.encodingVersion = *encodingVersion;
  header.format = words[6];
  header.formatVersion = *formatVersion;
  header.bodyOffset = newline + 1;
  return header;
}

Result<DmDocument> readDmx(ByteView bytes) {
  Result<DmHeader> header = readDmxHeader(bytes);
  if (!header) return header.error();
  if ((header->encoding != kBinaryEncoding && header->encoding != kSeqIdsEncoding) ||
      header->encodingVersion != kBinaryEncodingVersion) {
    return Error{
        format("DMX: encoding \"%s\" version %d is not readable here (binary or binary_seqids, version %d)",
               header->encoding.c_str(), header->encodingVersion, kBinaryEncodingVersion)};
  }
  size_t body = header->bodyOffset;
  if (bytes.readOr<uint8_t>(body, 1) != 0) return readBody(bytes, *header, body);
  // Writers put a zero byte after the header line, but the body may itself start with a
  // zero (an absent prefix): try the usual layout first, then the one without the byte.
  Result<DmDocument> withNul = readBody(bytes, *header, body + 1);
  if (withNul) return withNul;
  Result<DmDocument> withoutNul = readBody(bytes, *header, body);
  if (withoutNul) return withoutNul;
  return withNul.error();
}

}  // namespace zv::dmx
