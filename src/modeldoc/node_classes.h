#pragma once
// The node classes of a model document: whether each is a root list, can hold children or
// is a leaf, and its keys with their types, order and defaults. Everything the document
// knows about classes comes from this one table.

#include <span>
#include <string_view>

namespace zv::modeldoc {

enum class KeyType : uint8_t {
  Bool,
  Int,
  Float,  // stored and written as a 32-bit float
  String,
  Vector3,      // three floats
  Angles,       // three floats in degrees: pitch, yaw, roll
  IntArray,     // e.g. a grid size
  StringArray,  // e.g. mesh names
  ObjectArray,  // e.g. remaps { from, to } or weights { bone, weight }
  Object,       // any KV3 object, e.g. a sequence's key-value text
  StringMap,    // object whose values are all strings, e.g. game keys
};

// A key's value when it was never set; None means the key is then left out.
struct KeyDefault {
  enum class Kind : uint8_t { None, Bool, Int, Float, String };
  Kind kind = Kind::None;
  double number = 0;
  const char* text = "";
};

struct KeySpec {
  const char* name;
  KeyType type;
  KeyDefault fallback{};
};

enum class NodeRole : uint8_t {
  Root,    // the document's root node; never created by class
  List,    // a root list, fetched or created by class; always writes its children
  Parent,  // a node that can hold children
  Leaf,    // a node that cannot
};

struct NodeClass {
  const char* name;  // the saved _class
  NodeRole role;
  std::span<const KeySpec> keys;

  bool canHoldChildren() const { return role != NodeRole::Leaf; }
  // Index of the key in keys, or -1.
  int keyIndex(std::string_view key) const;
};

// The class of that name, also accepted with the "CModelDoc" prefix; nullptr when unknown.
const NodeClass* findNodeClass(std::string_view name);
const NodeClass& rootNodeClass();
std::span<const NodeClass> allNodeClasses();

}  // namespace zv::modeldoc
