#include "modeldoc/model_document.h"

#include <optional>
#include <set>

#include "base/log.h"
#include "base/strings.h"

namespace zv::modeldoc {

const Kv3Header kModelDocKv3Header{{"text", "e21c7f3c-8a33-41c5-9977-a76d3a32aa0d"},
                                   {"modeldoc41", "12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0"}};

namespace {

bool allElements(const Kv3Value& value, bool (*test)(const Kv3Value&)) {
  for (const Kv3Value& element : value.elements()) {
    if (!test(element)) return false;
  }
  return true;
}

bool isInt(const Kv3Value& value) { return value.type() == Kv3Value::Type::Int; }
bool isString(const Kv3Value& value) { return value.isString(); }
bool isObject(const Kv3Value& value) { return value.isObject(); }
bool isNumber(const Kv3Value& value) { return value.isNumber(); }

// The value in the form stored for the key type, or nothing when it does not fit.
std::optional<Kv3Value> fitToKey(KeyType type, Kv3Value value) {
  switch (type) {
    case KeyType::Bool:
      if (value.type() == Kv3Value::Type::Bool) return value;
      break;
    case KeyType::Int:
      if (isInt(value)) return value;
      break;
    case KeyType::Float:
      if (value.isNumber()) return Kv3Value(value.asFloat());
      break;
    case KeyType::String:
      if (value.isString()) return value;
      break;
    case KeyType::Vector3:
    case KeyType::Angles:
      if (value.isArray() && value.size() == 3 && allElements(value, isNumber)) {
        const Kv3Value::Array& v = value.elements();
        return Kv3Value::makeArray({v[0].asFloat(), v[1].asFloat(), v[2].asFloat()});
      }
      break;
    case KeyType::IntArray:
      if (value.isArray() && allElements(value, isInt)) return value;
      break;
    case KeyType::StringArray:
      if (value.isArray() && allElements(value, isString)) return value;
      break;
    case KeyType::ObjectArray:
      if (value.isArray() && allElements(value, isObject)) return value;
      break;
    case KeyType::Object:
      if (value.isObject()) return value;
      break;
    case KeyType::StringMap:
      if (value.isObject()) {
        for (const Kv3Member& member : value.members()) {
          if (!member.value.isString()) return std::nullopt;
        }
        return value;
      }
      break;
  }
  return std::nullopt;
}

// Whether an element may be appended to an array key of this type.
bool fitsArrayElement(KeyType type, const Kv3Value& element) {
  switch (type) {
    case KeyType::IntArray:
      return isInt(element);
    case KeyType::StringArray:
      return element.isString();
    case KeyType::ObjectArray:
      return element.isObject();
    default:
      return false;
  }
}

std::optional<Kv3Value> defaultValue(const KeyDefault& fallback) {
  switch (fallback.kind) {
    case KeyDefault::Kind::None:
      return std::nullopt;
    case KeyDefault::Kind::Bool:
      return Kv3Value(fallback.number != 0);
    case KeyDefault::Kind::Int:
      return Kv3Value(static_cast<int64_t>(fallback.number));
    case KeyDefault::Kind::Float:
      return Kv3Value(static_cast<float>(fallback.number));
    case KeyDefault::Kind::String:
      return Kv3Value(fallback.text);
  }
  return std::nullopt;
}

bool started = false;

}  // namespace

// ---- nodes ----

bool Node::set(std::string_view key, Kv3Value value) {
  int index = class_->keyIndex(key);
  if (index < 0) return false;
  std::optional<Kv3Value> fitted = fitToKey(class_->keys[index].type, std::move(value));
  if (!fitted) return false;
  values_[index] = std::move(*fitted);
  return true;
}

bool Node::set(std::string_view key, const Vector3& value) {
  return set(key, Kv3Value::makeArray({value.x, value.y, value.z}));
}

bool Node::set(std::string_view key, const QAngle& value) {
  return set(key, Kv3Value::makeArray({value.pitch, value.yaw, value.roll}));
}

bool Node::set(std::string_view key, const std::vector<std::string>& values) {
  Kv3Value array = Kv3Value::makeArray();
  for (const std::string& text : values) array.push(text);
  return set(key, std::move(array));
}

bool Node::append(std::string_view key, Kv3Value element) {
  int index = class_->keyIndex(key);
  if (index < 0 || !fitsArrayElement(class_->keys[index].type, element)) return false;
  return values_[index].push(std::move(element));
}

bool Node::setEntry(std::string_view key, std::string_view member, Kv3Value value) {
  int index = class_->keyIndex(key);
  if (index < 0) return false;
  KeyType type = class_->keys[index].type;
  if (type != KeyType::Object && !(type == KeyType::StringMap && value.isString())) return false;
  return values_[index].set(member, std::move(value));
}

std::vector<Node*> Node::children() const {
  std::vector<Node*> list;
  list.reserve(childCount_);
  for (Node* child = firstChild_; child != nullptr; child = child->next_) list.push_back(child);
  return list;
}

void Node::link(Node* parent) {
  parent_ = parent;
  previous_ = parent->lastChild_;
  next_ = nullptr;
  (previous_ != nullptr ? previous_->next_ : parent->firstChild_) = this;
  parent->lastChild_ = this;
  ++parent->childCount_;
}

void Node::unlink() {
  (previous_ != nullptr ? previous_->next_ : parent_->firstChild_) = next_;
  (next_ != nullptr ? next_->previous_ : parent_->lastChild_) = previous_;
  --parent_->childCount_;
  parent_ = previous_ = next_ = nullptr;
}

const Kv3Value* Node::get(std::string_view key) const {
  int index = class_->keyIndex(key);
  if (index < 0 || values_[index].isNull()) return nullptr;
  return &values_[index];
}

// ---- document ----

ModelDocument::ModelDocument(DocumentKind kind)
    : kind_(kind), root_(new Node(this, rootNodeClass(), std::string())) {
  if (kind_ != DocumentKind::Model) root_->set("document_kind", static_cast<int>(kind_));
}

Node* ModelDocument::findRootList(std::string_view className) const {
  const NodeClass* nodeClass = findNodeClass(className);
  if (nodeClass == nullptr || nodeClass->role != NodeRole::List) return nullptr;
  for (Node* child = root_->firstChild_; child != nullptr; child = child->next_) {
    if (child->class_ == nodeClass) return child;
  }
  return nullptr;
}

Node* ModelDocument::rootList(std::string_view className) {
  if (Node* existing = findRootList(className)) return existing;
  const NodeClass* nodeClass = findNodeClass(className);
  if (nodeClass == nullptr || nodeClass->role != NodeRole::List) return nullptr;
  return makeNode(*nodeClass, "", root_.get());
}

Node* ModelDocument::createNode(std::string_view className, std::string_view name, Node* parent) {
  const NodeClass* nodeClass = findNodeClass(className);
  if (nodeClass == nullptr || nodeClass->role == NodeRole::List) return nullptr;
  if (parent == nullptr) parent = rootList("GameDataList");
  if (parent == nullptr || parent->owner_ != this || !parent->class_->canHoldChildren()) return nullptr;
  return makeNode(*nodeClass, name, parent);
}

Node* ModelDocument::makeNode(const NodeClass& nodeClass, std::string_view name, Node* parent) {
  if (nodes_.size() >= nodeLimit_) return nullptr;
  nodes_.push_back(std::unique_ptr<Node>(new Node(this, nodeClass, std::string(name))));
  Node* node = nodes_.back().get();
  node->link(parent);
  return node;
}

bool ModelDocument::reparent(Node* node, Node* newParent) {
  if (node == nullptr || newParent == nullptr || node->owner_ != this || newParent->owner_ != this)
    return false;
  if (node == root_.get() || node->class_->role == NodeRole::List) return false;
  if (!newParent->class_->canHoldChildren()) return false;
  // Refuse cycles; the walk is bounded because deeper trees cannot be saved anyway.
  int steps = 0;
  for (const Node* up = newParent; up != nullptr; up = up->parent_) {
    if (up == node || ++steps > kMaxNodeDepth) return false;
  }
  node->unlink();
  node->link(newParent);
  return true;
}

namespace {

// Members: _class, name, children, then the class's keys in table order.
Result<Kv3Value> nodeToKv3(const Node& node, int depth) {
  if (depth > kMaxNodeDepth) return Error{format("nodes nested deeper than %d", kMaxNodeDepth)};
  Kv3Value object = Kv3Value::makeObject();
  object.set("_class", std::string(node.className()));
  if (!node.name().empty()) object.set("name", node.name());
  if (node.nodeClass().canHoldChildren()) {
    Kv3Value children = Kv3Value::makeArray();
    for (const Node* child = node.firstChild(); child != nullptr; child = child->nextSibling()) {
      Result<Kv3Value> saved = nodeToKv3(*child, depth + 1);
      if (!saved) return saved.error();
      children.push(std::move(saved).value());
    }
    object.set("children", std::move(children));
  }
  for (const KeySpec& key : node.nodeClass().keys) {
    const Kv3Value* value = node.get(key.name);
    std::optional<Kv3Value> fallback = value == nullptr ? defaultValue(key.fallback) : std::nullopt;
    if (value != nullptr) {
      object.set(key.name, *value);
    } else if (fallback) {
      object.set(key.name, std::move(*fallback));
    }
  }
  return object;
}

}  // namespace

Result<Kv3Value> ModelDocument::toKv3() const {
  Result<Kv3Value> rootNode = nodeToKv3(*root_, 0);
  if (!rootNode) return rootNode.error();
  return Kv3Value::makeObject({{"rootNode", std::move(rootNode).value()}});
}

Result<std::string> ModelDocument::toText() const {
  Result<Kv3Value> tree = toKv3();
  if (!tree) return Error{"Failed to serialize document state to kv3 data."};
  Result<std::string> text = writeKv3Text(*tree, kModelDocKv3Header);
  if (!text) return Error{format("Failed to save document kv3 data: %s\n", text.message().c_str())};
  return text;
}

Status ModelDocument::save(const std::string& path, const WriteFileFunction& write) const {
  Result<std::string> text = toText();
  if (!text) return text.error();
  std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t*>(text->data()), text->size());
  if (!write || !write(path, bytes)) return Error{format("Failed to write file: %s\n", path.c_str())};
  return Status::success();
}

// ---- library start ----

namespace {

// Catches edits to the class table that would make saved documents ambiguous.
std::string classTableProblem() {
  std::set<std::string_view> classNames;
  for (const NodeClass& nodeClass : allNodeClasses()) {
    if (!classNames.insert(nodeClass.name).second)
      return format("node class %s is listed twice", nodeClass.name);
    std::set<std::string_view> keyNames{"_class", "name", "children"};
    for (const KeySpec& key : nodeClass.keys) {
      if (!keyNames.insert(key.name).second)
        return format("key %s of %s is listed twice", key.name, nodeClass.name);
    }
  }
  return {};
}

}  // namespace

bool InitModelDocLib() {
  if (started) {
    mainLog().log(Severity::Error, "Calling InitModelDocLib() twice in the same DLL.");
    return false;
  }
  if (std::string problem = classTableProblem(); !problem.empty()) {
    mainLog().log(Severity::Error, "Model document classes: %s\n", problem.c_str());
    return false;
  }
  started = true;
  return true;
}

void ShutdownModelDocLib() { started = false; }

}  // namespace zv::modeldoc
