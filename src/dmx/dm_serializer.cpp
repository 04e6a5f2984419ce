#include "dmx/dm_serializer.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <unordered_map>

#include "base/hash.h"
#include "base/log.h"
#include "base/strings.h"
#include "dmx/dm_encoding.h"

namespace zv::dmx {
namespace {

// The strings of a file in order of first use, and each one's place: open addressing in
// one array, since a save interns every name of every element.
class StringTable {
 public:
  // The place of the string, added at the end when new.
  int32_t add(std::string_view text) {
    if (2 * (strings_.size() + 1) > slots_.size()) grow();
    size_t& slot = slots_[slotOf(text)];
    if (slot == 0) {
      strings_.push_back(text);
      slot = strings_.size();
    }
    return static_cast<int32_t>(slot - 1);
  }
  size_t size() const { return strings_.size(); }
  const std::vector<std::string_view>& strings() const { return strings_; }

 private:
  // The slot holding text, or the empty one where it would go; slots hold place + 1, and
  // at least half of them are empty, so the probe ends.
  size_t slotOf(std::string_view text) const {
    size_t mask = slots_.size() - 1;
    for (size_t at = tableHash(text) & mask;; at = (at + 1) & mask) {
      size_t slot = slots_[at];
      if (slot == 0 || strings_[slot - 1] == text) return at;
    }
  }
  void grow() {
    slots_.assign(std::max<size_t>(64, slots_.size() * 2), 0);
    for (size_t i = 0; i < strings_.size(); ++i) slots_[slotOf(strings_[i])] = i + 1;
  }

  std::vector<std::string_view> strings_;
  std::vector<size_t> slots_;
};

// Writes one body. Lives for one save; all lookups are keyed by pointer or text and
// never iterated, so hash order cannot reach the output.
class BinaryWriter {
 public:
  BinaryWriter(const CDmElement& root, DmOutputBuffer& out, bool sequentialIds)
      : root_(root), out_(out), sequential_ids_(sequentialIds) {}

  void writeBody() {
    writePrefixBlock();
    gatherElements();
    buildStringTable();
    out_.reserve(estimateSize());
    writeStringTable();
    writeElementList();
    for (const CDmElement* element : list_) writeElementAttributes(*element);
  }

 private:
  struct Frame {
    const CDmElement* element;
    size_t attr = 0;
    size_t item = 0;
  };

  bool inFile(const CDmElement* element) const {
    return element && (element == &root_ || (element->file() && element->file() == root_.file()));
  }

  bool isPrefixAttribute(const CDmElement& owner, const CDmAttribute& attr) const {
    return &owner == &root_ && attr.type() == DmType::Element && attr.name() == kPrefixAttribute;
  }

  bool isWritten(const CDmElement& owner, const CDmAttribute& attr) const {
    return !attr.isDontSave() && attr.type() != DmType::Unknown && !isPrefixAttribute(owner, attr);
  }

  // Calls f(attribute) for each attribute of the element that is written, in order.
  template <class F>
  void forEachWritten(const CDmElement& element, F&& f) const {
    for (size_t i = 0; i < element.attributeCount(); ++i) {
      if (isWritten(element, element.attribute(i))) f(element.attribute(i));
    }
  }

  size_t writtenCount(const CDmElement& element) const {
    size_t count = 0;
    forEachWritten(element, [&](const CDmAttribute&) { ++count; });
    return count;
  }

  // --- prefix block -------------------------------------------------------------------

  void writePrefixBlock() {
    const CDmAttribute* attr = root_.find(kPrefixAttribute);
    const auto* ref = attr ? attr->tryValue<DmType::Element>() : nullptr;
    const CDmElement* prefix = ref ? *ref : nullptr;
    out_.putI32(prefix ? 1 : 0);
    if (!prefix) return;
    std::vector<const CDmAttribute*> attrs;
    for (size_t i = 0; i < prefix->attributeCount(); ++i) {
      const CDmAttribute& a = prefix->attribute(i);
      if (a.isDontSave() || a.type() == DmType::Unknown) continue;
      if (a.holds<DmType::Element>() || a.holds<DmType::ElementArray>()) {
        warning("Prefix element cannot contain element or element_array attributes. ('%s')\n",
                a.name().c_str());
        continue;
      }
      attrs.push_back(&a);
    }
    writeAttributeBlock(attrs, true);
  }

  // --- element list -------------------------------------------------------------------

  // The element's place in the list; -1 while unlisted. Only elements of the root's file
  // are listed, and those have a serial in it (the root may stand alone, without a file).
  int32_t& listIndex(const CDmElement* element) {
    if (element == &root_) return root_index_;
    return index_[element->serial()];
  }
  int32_t listIndexOf(const CDmElement* element) const {
    if (element == &root_) return root_index_;
    return inFile(element) ? index_[element->serial()] : -1;
  }

  void addToList(const CDmElement* element) {
    listIndex(element) = static_cast<int32_t>(list_.size());
    list_.push_back(element);
  }

  bool isNew(const CDmElement* element) const { return inFile(element) && listIndexOf(element) < 0; }

  // The next element referred to by the frame's element that is not listed yet.
  const CDmElement* nextNew(Frame& frame) const {
    const CDmElement& element = *frame.element;
    for (; frame.attr < element.attributeCount(); ++frame.attr, frame.item = 0) {
      const CDmAttribute& attr = element.attribute(frame.attr);
      if (!isWritten(element, attr)) continue;
      if (const auto* single = attr.tryValue<DmType::Element>()) {
        if (frame.item++ == 0 && isNew(*single)) return *single;
      } else if (const auto* items = attr.tryValue<DmType::ElementArray>()) {
        while (frame.item < items->size()) {
          const CDmElement* next = (*items)[frame.item++];
          if (isNew(next)) return next;
        }
      }
    }
    return nullptr;
  }

  // Depth-first with an explicit stack: trees as deep as their element count must not
  // exhaust the call stack.
  void gatherElements() {
    if (root_.file()) index_.assign(root_.file()->size(), -1);
    addToList(&root_);
    std::vector<Frame> stack{{&root_}};
    while (!stack.empty()) {
      const CDmElement* next = nextNew(stack.back());
      if (!next) {
        stack.pop_back();
        continue;
      }
      addToList(next);
      stack.push_back({next});
    }
  }

  // --- string table -------------------------------------------------------------------

  static std::string_view untilNul(std::string_view text) { return text.substr(0, text.find('\0')); }

  // The table is built in the order the body is written later (element types and names in
  // list order; then, element by element, attribute names and string values), and each
  // string's place is kept in that order, so writing the body looks nothing up again.
  void buildStringTable() {
    element_strings_.reserve(2 * list_.size());
    for (const CDmElement* element : list_) {
      element_strings_.push_back(string_index_.add(untilNul(element->type())));
      element_strings_.push_back(string_index_.add(untilNul(element->name())));
      forEachWritten(*element, [&](const CDmAttribute& attr) {
        attribute_strings_.push_back(string_index_.add(untilNul(attr.name())));
        if (const auto* text = attr.tryValue<DmType::String>())
          attribute_strings_.push_back(string_index_.add(untilNul(*text)));
      });
    }
  }

  // The place of the next string of the element list / of the attribute blocks.
  int32_t nextElementString() { return nextOf(element_strings_, element_cursor_); }
  int32_t nextAttributeString() { return nextOf(attribute_strings_, attribute_cursor_); }
  int32_t nextOf(const std::vector<int32_t>& places, size_t& cursor) {
    if (cursor < places.size()) return places[cursor++];
    out_.setError();  // the body asked for more strings than the table was built with
    return 0;
  }

  void writeStringTable() {
    if (!putCount(string_index_.size())) return;
    for (std::string_view text : string_index_.strings()) out_.putCString(text);
  }

  // The table, the element list and the array values: nearly the whole body for files
  // whose size matters.
  size_t estimateSize() const {
    size_t size = list_.size() * 24;
    for (std::string_view text : string_index_.strings()) size += text.size() + 1;
    for (const CDmElement* element : list_) {
      for (size_t i = 0; i < element->attributeCount(); ++i) {
        const CDmAttribute& attr = element->attribute(i);
        size_t itemSize = 4;
        dispatchType(scalarOf(attr.type()), [&](auto tag) {
          if constexpr (tag.value != DmType::Unknown) {
            if constexpr (kIsPlain<DmValue<tag.value>>) itemSize = sizeof(DmValue<tag.value>);
          }
        });
        size += 9 + attr.arraySize() * itemSize;
      }
    }
    return size;
  }

  // --- elements and ids ---------------------------------------------------------------

  // Numbers follow elements rather than id bytes: ids are unique only within one tree, and
  // an element of another tree must never share a number with one of this file.
  // Listed elements are numbered in list order; elements of other files continue the count.
  DmElementId fileId(const CDmElement& element) {
    if (!sequential_ids_) return element.id();
    if (int32_t listed = listIndexOf(&element); listed >= 0) return DmElementId::fromNumber(uint32_t(listed) + 1);
    auto [it, added] = foreign_.emplace(&element, static_cast<uint32_t>(list_.size() + foreign_.size() + 1));
    return DmElementId::fromNumber(it->second);
  }

  void writeElementList() {
    if (!putCount(list_.size())) return;
    for (const CDmElement* element : list_) {
      out_.putI32(nextElementString());
      out_.putI32(nextElementString());
      DmElementId id = fileId(*element);
      out_.put(id.bytes.data(), id.bytes.size());
    }
  }

  void writeElementRef(const CDmElement* element) {
    if (!element) return out_.putI32(kNullElement);
    if (int32_t listed = listIndexOf(element); listed >= 0) return out_.putI32(listed);
    out_.putI32(kExternalElement);
    out_.putCString(fileId(*element).toString());
  }

  // --- values -------------------------------------------------------------------------

  bool putCount(size_t count) {
    if (count > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
      out_.setError();
      return false;
    }
    out_.putI32(static_cast<int32_t>(count));
    return true;
  }

  void writeAttributeBlock(const std::vector<const CDmAttribute*>& attrs, bool inlineStrings) {
    if (!putCount(attrs.size())) return;
    for (const CDmAttribute* attr : attrs) writeAttribute(*attr, inlineStrings);
  }

  void writeElementAttributes(const CDmElement& element) {
    if (!putCount(writtenCount(element))) return;
    forEachWritten(element, [&](const CDmAttribute& attr) { writeAttribute(attr, false); });
  }

  void writeAttribute(const CDmAttribute& attr, bool inlineStrings) {
    if (inlineStrings) {
      out_.putCString(attr.name());
    } else {
      out_.putI32(nextAttributeString());
    }
    out_.putByte(static_cast<uint8_t>(attr.type()));
    dispatchType(attr.type(), [&](auto tag) {
      constexpr DmType T = tag.value;
      if constexpr (T != DmType::Unknown) writeValue<T>(*attr.tryValue<T>(), inlineStrings);
    });
  }

  template <DmType T>
  void writeValue(const DmValue<T>& value, bool inlineStrings) {
    using V = DmValue<T>;
    if constexpr (isArrayType(T)) {
      writeArray<T>(value, inlineStrings);
    } else if constexpr (T == DmType::Element) {
      writeElementRef(value);
    } else if constexpr (T == DmType::String) {
      inlineStrings ? out_.putCString(value) : out_.putI32(nextAttributeString());
    } else if constexpr (T == DmType::Binary) {
      if (putCount(value.size())) out_.put(value.data(), value.size());
    } else if constexpr (T == DmType::Bool) {
      out_.putByte(value ? 1 : 0);
    } else {
      static_assert(kIsPlain<V>);
      if (uint8_t* out = out_.grow(sizeof(V))) copyPlain<V>(out, &value, 1);
    }
  }

  template <DmType T>
  void writeArray(const DmValue<T>& items, bool inlineStrings) {
    constexpr DmType S = scalarOf(T);
    using Item = DmValue<S>;
    if (!putCount(items.size())) return;
    if constexpr (kIsPlain<Item>) {
      // The hot path for vertex data: one copy for the whole array.
      if (uint8_t* out = out_.grow(items.size() * sizeof(Item)))
        copyPlain<Item>(out, items.data(), items.size());
    } else if constexpr (S == DmType::String) {
      // String array items are always inline, table or not.
      for (const std::string& text : items) out_.putCString(text);
    } else {
      for (const auto& item : items) writeValue<S>(item, inlineStrings);
    }
  }

  const CDmElement& root_;
  DmOutputBuffer& out_;
  bool sequential_ids_;
  std::vector<const CDmElement*> list_;
  // List places of the file's elements by serial, and of the root.
  std::vector<int32_t> index_;
  int32_t root_index_ = -1;
  StringTable string_index_;
  std::vector<int32_t> element_strings_, attribute_strings_;
  size_t element_cursor_ = 0, attribute_cursor_ = 0;
  // Numbers of elements of other files, given where first referenced.
  std::unordered_map<const CDmElement*, uint32_t> foreign_;
};

// The format name is one word of the header line; anything else would make it unreadable.
bool isHeaderWord(std::string_view word) {
  return !word.empty() && std::none_of(word.begin(), word.end(), [](char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0';
  });
}

}  // namespace

std::string_view CDmSerializerBinary::encodingName() const {
  return sequential_ids_ ? kSeqIdsEncoding : kBinaryEncoding;
}

std::string_view CDmSerializerBinary::description() const {
  return sequential_ids_ ? "Binary (deterministic sequential ids)" : "Binary";
}

int CDmSerializerBinary::encodingVersion() const { return kBinaryEncodingVersion; }

bool CDmSerializerBinary::save(const CDmElement& root, DmOutputBuffer& buffer, std::string_view formatName,
                               int formatVersion) const {
  std::string encoding(encodingName());
  if (buffer.isText()) {
    warning(
        "Serialize: Format %s expects to be written to a binary format, but the buffer is a text-format "
        "buffer\n",
        encoding.c_str());
    return false;
  }
  std::string format(formatName);
  if (!isHeaderWord(format)) {
    warning("Serialize: Format name '%s' cannot be written into a file header\n", format.c_str());
    return false;
  }
  std::string header =
      zv::format("%s encoding %s %d format %s %d %s\n", std::string(kHeaderStart).c_str(), encoding.c_str(),
                 encodingVersion(), format.c_str(), formatVersion, std::string(kHeaderEnd).c_str());
  buffer.put(header.data(), header.size());
  buffer.putByte(0);
  BinaryWriter(root, buffer, sequential_ids_).writeBody();
  return !buffer.hasError();
}

const IDmSerializer* findSerializer(std::string_view encoding) {
  static const CDmSerializerBinary kBinary(false);
  static const CDmSerializerBinary kSeqIds(true);
  for (const IDmSerializer* serializer : std::initializer_list<const IDmSerializer*>{&kBinary, &kSeqIds}) {
    if (serializer->encodingName() == encoding) return serializer;
  }
  return nullptr;
}

bool serializeDmx(const CDmElement& root, DmOutputBuffer& buffer, std::string_view encoding,
                  std::string_view formatName, int formatVersion) {
  const IDmSerializer* serializer = findSerializer(encoding);
  if (!serializer) {
    warning("Serialize: File encoding '%s' is undefined!\n", std::string(encoding).c_str());
    return false;
  }
  return serializer->save(root, buffer, formatName, formatVersion);
}

std::optional<std::vector<uint8_t>> saveDmx(const CDmElement& root, std::string_view encoding,
                                            std::string_view formatName, int formatVersion) {
  DmOutputBuffer buffer;
  if (!serializeDmx(root, buffer, encoding, formatName, formatVersion)) return std::nullopt;
  return buffer.take();
}

}  // namespace zv::dmx
