#include "dmx/dm_element.h"

#include <algorithm>

#include "base/log.h"

namespace zv::dmx {

CDmAttribute::CDmAttribute(std::string name, DmType type) : name_(std::move(name)), type_(DmType::Unknown) {
  reset(type);
}

void CDmAttribute::reset(DmType type) {
  type_ = type;
  dispatchType(type, [&](auto tag) { value_.template emplace<slotOf(tag.value)>(); });
}

size_t CDmAttribute::arraySize() const {
  size_t size = 0;
  if (!isArray()) return size;
  dispatchType(type_, [&](auto tag) {
    if constexpr (isArrayType(tag.value)) size = std::get<slotOf(tag.value)>(value_).size();
  });
  return size;
}

void reportWrongType(const CDmAttribute& attribute, DmType requested) {
  std::string requestedName(typeName(requested));
  std::string actualName(attribute.typeName());
  warning(" * Requested DmAttribute of value of type \"%s\" From DmAttribute \"%s\" which is type \"%s\"\n",
          requestedName.c_str(), attribute.name().c_str(), actualName.c_str());
}

CDmElement::CDmElement(DmElementTree& owner, DmElementTree* file, std::string type, std::string name,
                       const DmElementId& id)
    : owner_(&owner), file_(file), type_(std::move(type)), name_(std::move(name)), id_(id) {}

CDmAttribute* CDmElement::find(std::string_view name) {
  for (CDmAttribute* attr : attributes_) {
    if (attr->name() == name) return attr;
  }
  return nullptr;
}

const CDmAttribute* CDmElement::find(std::string_view name) const {
  return const_cast<CDmElement*>(this)->find(name);
}

CDmAttribute& CDmElement::addAttribute(std::string_view name, DmType type) {
  if (CDmAttribute* attr = find(name)) {
    if (attr->type() != type) attr->reset(type);
    return *attr;
  }
  return appendAttribute(std::string(name), type);
}

CDmAttribute& CDmElement::appendAttribute(std::string name, DmType type) {
  // Most elements have a handful of attributes: one block instead of growing by doubling.
  constexpr size_t kTypicalAttributes = 8;
  if (attributes_.capacity() == 0) attributes_.reserve(kTypicalAttributes);
  attributes_.push_back(owner_->newAttribute(std::move(name), type));
  return *attributes_.back();
}

bool CDmElement::removeAttribute(std::string_view name) {
  auto it = std::find_if(attributes_.begin(), attributes_.end(),
                         [&](const CDmAttribute* a) { return a->name() == name; });
  if (it == attributes_.end()) return false;
  // The tree keeps the attribute itself until it is cleared; its value goes now.
  (*it)->reset(DmType::Unknown);
  attributes_.erase(it);
  return true;
}

CDmElement* CDmElement::addElement(std::string_view attribute, std::string_view type, std::string_view name) {
  // An external stand-in belongs to no tree, so there is nowhere to create the child.
  if (!file_) return nullptr;
  CDmElement* child = file_->create(type, name);
  setElement(attribute, child);
  return child;
}

CDmElement* DmElementTree::newElement(DmElementTree* file, std::string_view type, std::string_view name,
                                      const DmElementId& id) {
  CDmElement* element = elements_.make(*this, file, std::string(type), std::string(name), id);
  element->serial_ = uint32_t(elements_.size() - 1);
  return element;
}

CDmElement* DmElementTree::create(std::string_view type, std::string_view name) {
  return newElement(this, type, name, DmElementId::fromNumber(next_id_++, id_tag_));
}

CDmElement* DmElementTree::createExternal(std::string_view idText) {
  std::optional<DmElementId> parsed = DmElementId::parse(idText);
  DmElementId id = parsed ? *parsed : DmElementId::fromNumber(next_id_++, id_tag_);
  CDmElement* element = newElement(nullptr, {}, {}, id);
  element->external_text_ = std::string(idText);
  return element;
}

void DmElementTree::clear() {
  elements_.clear();
  attributes_.clear();
  next_id_ = 1;
}

}  // namespace zv::dmx
