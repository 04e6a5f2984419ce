#pragma once
// The element model: typed attributes on elements, elements owned by one tree per file.
// Array values are plain std::vectors so that writers fill vertex data in place.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dmx/dm_pool.h"
#include "dmx/dm_types.h"

namespace zv::dmx {

class DmElementTree;

class CDmAttribute {
 public:
  CDmAttribute(std::string name, DmType type);

  const std::string& name() const { return name_; }
  DmType type() const { return type_; }
  std::string_view typeName() const { return dmx::typeName(type_); }
  bool isArray() const { return isArrayType(type_); }
  // Item count of an array value; 0 for scalars.
  size_t arraySize() const;

  // Attributes flagged so are kept in memory but never written.
  bool isDontSave() const { return dont_save_; }
  void setDontSave(bool dontSave) { dont_save_ = dontSave; }

  template <DmType T>
  bool holds() const {
    return type_ == T;
  }
  // The value when the attribute has type T, else nullptr.
  template <DmType T>
  DmValue<T>* tryValue() {
    return type_ == T ? &std::get<slotOf(T)>(value_) : nullptr;
  }
  template <DmType T>
  const DmValue<T>* tryValue() const {
    return type_ == T ? &std::get<slotOf(T)>(value_) : nullptr;
  }
  // Gives the attribute type T and this value.
  template <DmType T>
  void set(DmValue<T> value) {
    type_ = T;
    value_.template emplace<slotOf(T)>(std::move(value));
  }
  // Gives the attribute this type with its default value.
  void reset(DmType type);

  const DmVariant& variant() const { return value_; }

 private:
  std::string name_;
  DmType type_;
  bool dont_save_ = false;
  DmVariant value_;
};

// Logs the message for a typed read of an attribute that has another type.
void reportWrongType(const CDmAttribute& attribute, DmType requested);

class CDmElement {
 public:
  // owner: the tree that made the element and holds its attributes; file: the same tree,
  // or nullptr for a stand-in for an element of another file.
  CDmElement(DmElementTree& owner, DmElementTree* file, std::string type, std::string name, const DmElementId& id);
  CDmElement(const CDmElement&) = delete;
  CDmElement& operator=(const CDmElement&) = delete;

  const DmElementId& id() const { return id_; }
  void setId(const DmElementId& id) { id_ = id; }
  const std::string& type() const { return type_; }
  void setType(std::string type) { type_ = std::move(type); }
  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  // The tree (file) that owns the element; nullptr for a reference to an element of
  // another file that a reader kept as its id text.
  DmElementTree* file() const { return file_; }
  bool isExternal() const { return file_ == nullptr; }
  // For external references: the id text as the file had it.
  const std::string& externalIdText() const { return external_text_; }
  // Where the element stands in the tree that made it: 0, 1, 2... in order of creation.
  uint32_t serial() const { return serial_; }

  size_t attributeCount() const { return attributes_.size(); }
  CDmAttribute& attribute(size_t index) { return *attributes_[index]; }
  const CDmAttribute& attribute(size_t index) const { return *attributes_[index]; }
  CDmAttribute* find(std::string_view name);
  const CDmAttribute* find(std::string_view name) const;
  bool has(std::string_view name) const { return find(name) != nullptr; }
  // The attribute of that name, added at the end when missing; an existing attribute of
  // another type is reset to this type. References to attributes stay valid while
  // others are added.
  CDmAttribute& addAttribute(std::string_view name, DmType type);
  // Adds without looking for a namesake: for readers, where a hostile file must not make
  // loading quadratic. Lookups then find the first of equal names.
  CDmAttribute& appendAttribute(std::string name, DmType type);
  bool removeAttribute(std::string_view name);

  // Sets (adding or retyping) the attribute.
  template <DmType T>
  void set(std::string_view name, DmValue<T> value) {
    addAttribute(name, T).template set<T>(std::move(value));
  }
  // The value of a T attribute. A missing attribute gives the default value; one of
  // another type logs the wrong-type message and gives the default value.
  template <DmType T>
  const DmValue<T>& get(std::string_view name) const {
    static const DmValue<T> kDefault{};
    const CDmAttribute* attr = find(name);
    if (!attr) return kDefault;
    if (const DmValue<T>* value = attr->tryValue<T>()) return *value;
    reportWrongType(*attr, T);
    return kDefault;
  }
  // The value to fill in place, added when missing; one of another type logs the
  // wrong-type message and starts over empty as T.
  template <DmType T>
  DmValue<T>& value(std::string_view name) {
    CDmAttribute* attr = find(name);
    if (attr && !attr->holds<T>()) {
      reportWrongType(*attr, T);
      attr->reset(T);
    }
    return *(attr ? attr : &addAttribute(name, T))->tryValue<T>();
  }

  // Creates a new element in this element's file and points the attribute at it;
  // nullptr for an external stand-in, which has no file.
  CDmElement* addElement(std::string_view attribute, std::string_view type, std::string_view name);
  std::vector<CDmElement*>& addElementArray(std::string_view name) {
    return value<DmType::ElementArray>(name);
  }

  // Named shorthands: setInt / getInt / intArray / getIntArray, and so on for every type.
#define ZV_DM_ACCESSORS(Name, lower)                                                                       \
  void set##Name(std::string_view n, DmValue<DmType::Name> v) { set<DmType::Name>(n, std::move(v)); }      \
  const DmValue<DmType::Name>& get##Name(std::string_view n) const { return get<DmType::Name>(n); }        \
  DmValue<DmType::Name##Array>& lower##Array(std::string_view n) { return value<DmType::Name##Array>(n); } \
  const DmValue<DmType::Name##Array>& get##Name##Array(std::string_view n) const {                         \
    return get<DmType::Name##Array>(n);                                                                    \
  }
  ZV_DM_ACCESSORS(Element, element)
  ZV_DM_ACCESSORS(Int, int)
  ZV_DM_ACCESSORS(Float, float)
  ZV_DM_ACCESSORS(Bool, bool)
  ZV_DM_ACCESSORS(String, string)
  ZV_DM_ACCESSORS(Binary, binary)
  ZV_DM_ACCESSORS(Time, time)
  ZV_DM_ACCESSORS(Color, color)
  ZV_DM_ACCESSORS(Vector2, vector2)
  ZV_DM_ACCESSORS(Vector3, vector3)
  ZV_DM_ACCESSORS(Vector4, vector4)
  ZV_DM_ACCESSORS(QAngle, qangle)
  ZV_DM_ACCESSORS(Quaternion, quaternion)
  ZV_DM_ACCESSORS(Matrix, matrix)
  ZV_DM_ACCESSORS(UInt64, uint64)
  ZV_DM_ACCESSORS(UInt8, uint8)
#undef ZV_DM_ACCESSORS

 private:
  friend class DmElementTree;
  DmElementTree* owner_;
  DmElementTree* file_;
  uint32_t serial_ = 0;
  std::string type_;
  std::string name_;
  DmElementId id_;
  std::string external_text_;
  std::vector<CDmAttribute*> attributes_;  // held by the owner tree
};

// Owns the elements of one file; they are freed with it. Ids come from a counter (and an
// optional tag that tells trees apart), so building the same tree twice gives the same ids.
class DmElementTree {
 public:
  explicit DmElementTree(uint32_t idTag = 0) : id_tag_(idTag) {}
  DmElementTree(const DmElementTree&) = delete;
  DmElementTree& operator=(const DmElementTree&) = delete;

  // Never returns nullptr; the element lives as long as the tree.
  CDmElement* create(std::string_view type, std::string_view name);
  // A stand-in for an element of another file, known only by its id text.
  CDmElement* createExternal(std::string_view idText);

  size_t size() const { return elements_.size(); }
  CDmElement* element(size_t index) const { return &const_cast<DmPool<CDmElement>&>(elements_)[index]; }

  // Destroys every element; the tree's room stays for the next file built in it, and ids
  // start over, so a tree cleared and built again gives the same ids as a new one.
  void clear();

 private:
  friend class CDmElement;
  CDmAttribute* newAttribute(std::string name, DmType type) { return attributes_.make(std::move(name), type); }
  CDmElement* newElement(DmElementTree* file, std::string_view type, std::string_view name, const DmElementId& id);

  uint32_t id_tag_;
  uint32_t next_id_ = 1;
  // Attributes first: elements point into them.
  DmPool<CDmAttribute> attributes_;
  DmPool<CDmElement> elements_;
};

}  // namespace zv::dmx
