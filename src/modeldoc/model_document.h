#pragma once
// A model document: a root node holding root lists and other nodes, each node of a class
// from the class table, with typed keys; saved as KV3 text.
//
//   ModelDocument doc(DocumentKind::Model);
//   Node* bone = doc.createNode("Bone", "pelvis", doc.rootList("Skeleton"));
//   bone->set("origin", Vector3{0, 0, 40});
//   Status saved = doc.save(path, writeFile);

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/math.h"
#include "base/result.h"
#include "kv/kv3.h"
#include "modeldoc/node_classes.h"

namespace zv::modeldoc {

enum class DocumentKind : int { Model = 0, Prefab = 2 };

// Encoding and format named in the header of every saved document.
extern const Kv3Header kModelDocKv3Header;

// Nodes nested deeper than this below the root cannot be saved (the KV3 text nests two
// levels per node).
inline constexpr int kMaxNodeDepth = (kKv3MaxDepth - 4) / 2;

class ModelDocument;

class Node {
 public:
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  const NodeClass& nodeClass() const { return *class_; }
  std::string_view className() const { return class_->name; }
  const std::string& name() const { return name_; }
  Node* parent() const { return parent_; }
  // Children in order. Kept as a linked list so that moving a node costs the same however
  // many siblings it has.
  Node* firstChild() const { return firstChild_; }
  Node* nextSibling() const { return next_; }
  size_t childCount() const { return childCount_; }
  std::vector<Node*> children() const;

  // Setters answer false, changing nothing, when the class has no such key or the value
  // does not fit the key's type. Float keys take any number; vectors and angles take
  // arrays of three numbers.
  bool set(std::string_view key, Kv3Value value);
  bool set(std::string_view key, const Vector3& value);
  bool set(std::string_view key, const QAngle& value);
  bool set(std::string_view key, const std::vector<std::string>& values);
  // Adds an element to an array key (string, integer or object array).
  bool append(std::string_view key, Kv3Value element);
  // Sets one member of an object key; setting a member again replaces it in place.
  bool setEntry(std::string_view key, std::string_view member, Kv3Value value);
  // A generic game data node's text keys, kept in the order first set.
  bool setGameKey(std::string_view key, std::string_view value) { return setEntry("game_keys", key, value); }

  // The value set for the key, or nullptr when unset or unknown (defaults are not reported).
  const Kv3Value* get(std::string_view key) const;

 private:
  friend class ModelDocument;
  Node(const ModelDocument* owner, const NodeClass& nodeClass, std::string name)
      : owner_(owner), class_(&nodeClass), name_(std::move(name)), values_(nodeClass.keys.size()) {}

  const ModelDocument* owner_;
  const NodeClass* class_;
  std::string name_;
  void link(Node* parent);
  void unlink();

  Node* parent_ = nullptr;
  Node* firstChild_ = nullptr;
  Node* lastChild_ = nullptr;
  Node* previous_ = nullptr;
  Node* next_ = nullptr;
  size_t childCount_ = 0;
  std::vector<Kv3Value> values_;  // one per key of the class; null while unset
};

// Hands the saved bytes to the output layer; false when the file could not be written.
using WriteFileFunction = std::function<bool(const std::string& path, std::span<const uint8_t> bytes)>;

class ModelDocument {
 public:
  explicit ModelDocument(DocumentKind kind = DocumentKind::Model);
  ModelDocument(const ModelDocument&) = delete;
  ModelDocument& operator=(const ModelDocument&) = delete;

  DocumentKind kind() const { return kind_; }
  Node* root() { return root_.get(); }
  const Node* root() const { return root_.get(); }

  // The root list of that class, created on first use (the root keeps first-use order);
  // nullptr when the class is not a list class.
  Node* rootList(std::string_view className);
  // The root list of that class if it exists, without creating it.
  Node* findRootList(std::string_view className) const;

  // A new node of the class under parent (nullptr: under the GameDataList root list).
  // nullptr when the class is unknown or a list class (lists are fetched with rootList),
  // or the parent cannot hold children or belongs to another document.
  Node* createNode(std::string_view className, std::string_view name, Node* parent);

  // Once the document holds this many nodes (root lists included, the root not), node
  // creation and new root lists answer nullptr. No limit by default; a caller can bound
  // what untrusted tables build, and tests can make creation fail at a chosen node.
  void setNodeLimit(size_t limit) { nodeLimit_ = limit; }
  size_t nodeCount() const { return nodes_.size(); }

  // Moves the node, with its children, to the end of newParent's children. False when the
  // move is impossible: the root, a parent that cannot hold children, from another
  // document, or the node itself or one of its descendants.
  bool reparent(Node* node, Node* newParent);

  // The document as a KV3 tree: { rootNode = { _class = "RootNode" ... } }.
  Result<Kv3Value> toKv3() const;
  // The whole saved text, header included.
  Result<std::string> toText() const;
  // Serialises and hands the text to write; on failure the status holds the error text.
  Status save(const std::string& path, const WriteFileFunction& write) const;

 private:
  Node* makeNode(const NodeClass& nodeClass, std::string_view name, Node* parent);

  DocumentKind kind_;
  std::unique_ptr<Node> root_;
  std::vector<std::unique_ptr<Node>> nodes_;  // every node but the root, in creation order
  size_t nodeLimit_ = SIZE_MAX;
};

// Starts the library once per process. A second call is a fatal error: it logs "Calling
// InitModelDocLib() twice in the same DLL." at error severity and answers false, and the
// caller is expected to stop. Also false, with a message, when the class table is broken.
bool InitModelDocLib();
// Ends the library, so that it may be started again.
void ShutdownModelDocLib();

}  // namespace zv::modeldoc
