#include "modeldoc/model_document.h"

#include <gtest/gtest.h>

#include <limits>

#include "base/log.h"

namespace zv::modeldoc {
namespace {

std::string textOf(const ModelDocument& doc) {
  Result<std::string> text = doc.toText();
  EXPECT_TRUE(text.ok()) << (text.ok() ? "" : text.message());
  return text.ok() ? *text : std::string();
}

// The classes of the root node's children, as read back from the saved text.
std::vector<std::string> savedRootClasses(const ModelDocument& doc) {
  Result<Kv3Document> read = readKv3Text(textOf(doc));
  std::vector<std::string> classes;
  if (!read.ok()) return {"unreadable: " + read.message()};
  for (const Kv3Value& node : read->root.find("rootNode")->find("children")->elements())
    classes.push_back(node.find("_class")->asString());
  return classes;
}

std::vector<std::string> names(const Node& parent) {
  std::vector<std::string> list;
  for (const Node* child : parent.children()) list.push_back(child->name());
  return list;
}

TEST(ModelDocumentText, NodesKeysAndListsInMemberOrder) {
  ModelDocument doc(DocumentKind::Prefab);
  Node* skeleton = doc.rootList("Skeleton");
  Node* pelvis = doc.createNode("Bone", "pelvis", skeleton);
  ASSERT_TRUE(doc.reparent(doc.createNode("Bone", "spine", skeleton), pelvis));
  // Set out of table order: the saved order is the table's; unset keys with a default show it.
  ASSERT_TRUE(pelvis->set("scale", 2.0f));
  ASSERT_TRUE(pelvis->set("angles", QAngle{0, 90, 0}));
  ASSERT_TRUE(pelvis->set("origin", Vector3{0, 0, 40}));
  Node* pose = doc.createNode("PoseParam", "aim_yaw", doc.rootList("PoseParamList"));
  ASSERT_TRUE(pose->set("poseparam_looping", true));
  ASSERT_TRUE(pose->set("poseparam_min", -180.0f));
  // Nodes without a parent go to the game data list; game keys keep first-set order.
  Node* preset = doc.createNode("GenericGameData", "", nullptr);
  ASSERT_TRUE(preset->set("game_class", "bodygroup_preset"));
  ASSERT_TRUE(preset->setGameKey("name", "first"));
  ASSERT_TRUE(preset->setGameKey("bodygroup_name_0", "heads"));
  ASSERT_TRUE(preset->setGameKey("name", "renamed"));
  EXPECT_EQ(textOf(doc),
            "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
            "format:modeldoc41:version{12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0} -->\n"
            "{\n\trootNode = \n\t{\n\t\t_class = \"RootNode\"\n\t\tchildren = \n\t\t[\n"
            "\t\t\t{\n\t\t\t\t_class = \"Skeleton\"\n\t\t\t\tchildren = \n\t\t\t\t[\n"
            "\t\t\t\t\t{\n\t\t\t\t\t\t_class = \"Bone\"\n\t\t\t\t\t\tname = \"pelvis\"\n"
            "\t\t\t\t\t\tchildren = \n\t\t\t\t\t\t[\n"
            "\t\t\t\t\t\t\t{\n\t\t\t\t\t\t\t\t_class = \"Bone\"\n\t\t\t\t\t\t\t\tname = \"spine\"\n"
            "\t\t\t\t\t\t\t\tchildren = [ ]\n\t\t\t\t\t\t\t\tdo_not_discard = true\n"
            "\t\t\t\t\t\t\t\tscale = 1.0\n\t\t\t\t\t\t\t},\n\t\t\t\t\t\t]\n"
            "\t\t\t\t\t\torigin = [ 0.0, 0.0, 40.0 ]\n\t\t\t\t\t\tangles = [ 0.0, 90.0, 0.0 ]\n"
            "\t\t\t\t\t\tdo_not_discard = true\n\t\t\t\t\t\tscale = 2.0\n"
            "\t\t\t\t\t},\n\t\t\t\t]\n\t\t\t},\n"
            "\t\t\t{\n\t\t\t\t_class = \"PoseParamList\"\n\t\t\t\tchildren = \n\t\t\t\t[\n"
            "\t\t\t\t\t{\n\t\t\t\t\t\t_class = \"PoseParam\"\n\t\t\t\t\t\tname = \"aim_yaw\"\n"
            "\t\t\t\t\t\tposeparam_min = -180.0\n\t\t\t\t\t\tposeparam_looping = true\n"
            "\t\t\t\t\t},\n\t\t\t\t]\n\t\t\t},\n"
            "\t\t\t{\n\t\t\t\t_class = \"GameDataList\"\n\t\t\t\tchildren = \n\t\t\t\t[\n"
            "\t\t\t\t\t{\n\t\t\t\t\t\t_class = \"GenericGameData\"\n"
            "\t\t\t\t\t\tgame_class = \"bodygroup_preset\"\n\t\t\t\t\t\tgame_keys = \n\t\t\t\t\t\t{\n"
            "\t\t\t\t\t\t\tname = \"renamed\"\n\t\t\t\t\t\t\tbodygroup_name_0 = \"heads\"\n"
            "\t\t\t\t\t\t}\n\t\t\t\t\t},\n\t\t\t\t]\n\t\t\t},\n"
            "\t\t]\n\t\tmodel_archetype = \"\"\n\t\tprimary_associated_entity = \"\"\n"
            "\t\tanim_graph_name = \"\"\n\t\tbase_model_name = \"\"\n\t\tdocument_kind = 2\n\t}\n}\n");
}

TEST(ModelDocumentLists, RootListsKeepFirstUseOrder) {
  ModelDocument doc;
  Node* renderMeshes = doc.rootList("RenderMeshList");
  Node* skeleton = doc.rootList("Skeleton");
  ASSERT_NE(doc.createNode("CModelDocBoundsHull", "bounds_hull", doc.root()), nullptr);
  EXPECT_EQ(doc.rootList("RenderMeshList"), renderMeshes);
  EXPECT_EQ(doc.rootList("CModelDocSkeleton"), skeleton);
  EXPECT_EQ(doc.findRootList("PoseParamList"), nullptr);
  Node* poses = doc.rootList("PoseParamList");
  EXPECT_EQ(doc.findRootList("PoseParamList"), poses);
  for (const char* notAList : {"Bone", "NoSuchList", "RootNode"}) EXPECT_EQ(doc.rootList(notAList), nullptr);
  EXPECT_EQ(savedRootClasses(doc),
            (std::vector<std::string>{"RenderMeshList", "Skeleton", "BoundsHull", "PoseParamList"}));
  EXPECT_EQ(textOf(doc).find("document_kind"), std::string::npos);  // models do not say their kind
}

TEST(ModelDocumentNodes, CreationFailsForUnknownClassesAndParentsThatCannotHoldThem) {
  ModelDocument doc, other;
  Node* skeleton = doc.rootList("Skeleton");
  Node* pose = doc.createNode("PoseParam", "p", doc.rootList("PoseParamList"));
  ASSERT_NE(pose, nullptr);
  EXPECT_EQ(doc.createNode("NoSuchClass", "x", skeleton), nullptr);
  EXPECT_EQ(doc.createNode("RootNode", "x", skeleton), nullptr);
  EXPECT_EQ(doc.createNode("bone", "x", skeleton), nullptr);       // class names are exact
  EXPECT_EQ(doc.createNode("Skeleton", "", doc.root()), nullptr);  // lists come from rootList
  EXPECT_EQ(doc.createNode("Bone", "x", pose), nullptr);           // a leaf holds no children
  EXPECT_EQ(other.createNode("Bone", "x", skeleton), nullptr);
  EXPECT_EQ(skeleton->childCount(), 0u);
}

TEST(ModelDocumentNodes, ReparentingMovesTheNodeWithItsChildrenAndRefusesImpossibleMoves) {
  ModelDocument doc, other;
  Node* skeleton = doc.rootList("Skeleton");
  Node* a = doc.createNode("Bone", "a", skeleton);
  Node* b = doc.createNode("Bone", "b", skeleton);
  Node* c = doc.createNode("Bone", "c", skeleton);
  Node* d = doc.createNode("Bone", "d", skeleton);
  ASSERT_TRUE(doc.reparent(c, a));  // from the middle
  ASSERT_TRUE(doc.reparent(d, c));  // from the end
  ASSERT_TRUE(doc.reparent(a, b));  // from the front, taking c and d along
  EXPECT_EQ(names(*skeleton), (std::vector<std::string>{"b"}));
  EXPECT_EQ(names(*b), (std::vector<std::string>{"a"}));
  EXPECT_EQ(names(*a), (std::vector<std::string>{"c"}));
  EXPECT_EQ(names(*c), (std::vector<std::string>{"d"}));
  EXPECT_EQ(skeleton->childCount(), 1u);

  Node* pose = doc.createNode("PoseParam", "p", doc.rootList("PoseParamList"));
  Node* stranger = other.createNode("Bone", "s", other.rootList("Skeleton"));
  EXPECT_FALSE(doc.reparent(a, a));
  EXPECT_FALSE(doc.reparent(a, d));  // under its own descendant
  EXPECT_FALSE(doc.reparent(d, pose));
  EXPECT_FALSE(doc.reparent(skeleton, a));
  EXPECT_FALSE(doc.reparent(doc.root(), a));
  EXPECT_FALSE(doc.reparent(d, nullptr));
  EXPECT_FALSE(doc.reparent(stranger, a));
  EXPECT_FALSE(doc.reparent(d, stranger));
  EXPECT_EQ(d->parent(), c);
  EXPECT_EQ(a->parent(), b);
}

TEST(ModelDocumentKeys, KeysTakeOnlyValuesOfTheirType) {
  ModelDocument doc;
  Node* bone = doc.createNode("Bone", "b", doc.rootList("Skeleton"));
  ASSERT_TRUE(bone->set("scale", 2.0f));
  EXPECT_FALSE(bone->set("no_such_key", 1.0f));
  EXPECT_FALSE(bone->set("scale", "big"));
  EXPECT_FALSE(bone->set("do_not_discard", 1));
  EXPECT_FALSE(bone->set("origin", Kv3Value::makeArray({1.0f, 2.0f})));
  EXPECT_FALSE(bone->set("name", "renamed"));  // name is not a key
  EXPECT_FALSE(bone->setGameKey("name", "x"));
  EXPECT_EQ(bone->get("scale")->asFloat(), 2.0f);  // a refused set changes nothing
  EXPECT_EQ(bone->get("origin"), nullptr);
  // Numbers convert into float keys and vectors, which are stored as floats; integers stay integers.
  ASSERT_TRUE(bone->set("origin", Kv3Value::makeArray({1, 2.5, 3.0f})));
  EXPECT_EQ(*bone->get("origin"), Kv3Value::makeArray({1.0f, 2.5f, 3.0f}));
  EXPECT_FALSE(doc.rootList("BoneMarkupList")->set("bone_cull_type", 2.0f));
  // Array keys grow by append with their element type.
  Node* group = doc.createNode("MaterialGroup", "1", doc.rootList("MaterialGroupList"));
  ASSERT_TRUE(group->append("remaps", Kv3Value::makeObject({{"from", "a.qmat"}, {"to", "b.qmat"}})));
  EXPECT_FALSE(group->append("remaps", "not an object"));
  Node* grid = doc.createNode("AnimBlendGrid", "run", doc.rootList("AnimationList"));
  ASSERT_TRUE(grid->set("grid_size", Kv3Value::makeArray({3, 2})));
  EXPECT_FALSE(grid->set("grid_size", Kv3Value::makeArray({3.0f, 2.0f})));
  EXPECT_FALSE(grid->setEntry("blend_params", "k", 1));
}

struct Written {
  std::string path;
  std::string bytes;
  int calls = 0;
};

WriteFileFunction recorder(Written& written, bool result) {
  return [&written, result](const std::string& path, std::span<const uint8_t> bytes) {
    written = {path, std::string(bytes.begin(), bytes.end()), written.calls + 1};
    return result;
  };
}

TEST(ModelDocumentSave, HandsTheTextToTheWriteFunctionAndReportsFailures) {
  ModelDocument doc;
  Node* bone = doc.createNode("Bone", "b", doc.rootList("Skeleton"));
  Written written;
  ASSERT_TRUE(doc.save("models/x.qmdl", recorder(written, true)).ok());
  EXPECT_EQ(written.calls, 1);
  EXPECT_EQ(written.path, "models/x.qmdl");
  EXPECT_EQ(written.bytes, textOf(doc));
  EXPECT_EQ(doc.save("out/x.qmdl", recorder(written, false)).message(), "Failed to write file: out/x.qmdl\n");
  EXPECT_EQ(doc.save("out/y.qmdl", WriteFileFunction()).message(), "Failed to write file: out/y.qmdl\n");

  ASSERT_TRUE(bone->set("scale", std::numeric_limits<float>::quiet_NaN()));
  Written notCalled;
  EXPECT_EQ(doc.save("out/z.qmdl", recorder(notCalled, true)).message(),
            "Failed to save document kv3 data: cannot write a non-finite number\n");
  EXPECT_EQ(notCalled.calls, 0);
}

TEST(ModelDocumentSave, TooDeepATreeCannotBeSavedAndReparentingStopsThere) {
  ModelDocument doc;
  Node* deepest = doc.rootList("Skeleton");
  for (int i = 1; i < kMaxNodeDepth; ++i) deepest = doc.createNode("Bone", "b", deepest);  // depth i + 1
  Result<std::string> text = doc.toText();
  ASSERT_TRUE(text.ok()) << text.message();
  EXPECT_TRUE(readKv3Text(*text).ok());
  Node* loose = doc.createNode("Bone", "loose", doc.rootList("Skeleton"));
  EXPECT_FALSE(doc.reparent(loose, deepest));
  EXPECT_TRUE(doc.reparent(loose, deepest->parent()));

  doc.createNode("Bone", "too deep", deepest);
  Written notCalled;
  EXPECT_EQ(doc.save("deep.qmdl", recorder(notCalled, true)).message(),
            "Failed to serialize document state to kv3 data.");
  EXPECT_EQ(notCalled.calls, 0);
}

// A value of the key's type, distinct per key so that misplaced values show.
Kv3Value sampleValue(const KeySpec& key, int seed) {
  float f = static_cast<float>(seed) + 0.25f;
  switch (key.type) {
    case KeyType::Bool:
      return seed % 2 == 0;
    case KeyType::Int:
      return seed;
    case KeyType::Float:
      return f;
    case KeyType::String:
      return "text_" + std::to_string(seed);
    case KeyType::Vector3:
    case KeyType::Angles:
      return Kv3Value::makeArray({f, -f, 0.5f});
    case KeyType::IntArray:
      return Kv3Value::makeArray({seed, seed + 1});
    case KeyType::StringArray:
      return Kv3Value::makeArray({"s" + std::to_string(seed)});
    case KeyType::ObjectArray:
      return Kv3Value::makeArray({Kv3Value::makeObject({{"bone", "b"}, {"weight", f}})});
    case KeyType::Object:
      return Kv3Value::makeObject({{"nested", Kv3Value::makeObject({{"k", seed}})}});
    case KeyType::StringMap:
      return Kv3Value::makeObject({{"k", "v"}});
  }
  return {};
}

TEST(ModelDocumentKeys, EveryClassSavesEveryKeyInTableOrder) {
  ModelDocument doc;
  int seed = 0;
  for (const NodeClass& nodeClass : allNodeClasses()) {
    Node* node = nodeClass.role == NodeRole::List
                     ? doc.rootList(nodeClass.name)
                     : doc.createNode(nodeClass.name, nodeClass.name, doc.root());
    ASSERT_NE(node, nullptr) << nodeClass.name;
    for (const KeySpec& key : nodeClass.keys)
      ASSERT_TRUE(node->set(key.name, sampleValue(key, ++seed))) << key.name;
  }
  Result<Kv3Value> saved = doc.toKv3();
  ASSERT_TRUE(saved.ok()) << saved.message();
  const Kv3Value::Array& nodes = saved->find("rootNode")->find("children")->elements();
  ASSERT_EQ(nodes.size(), allNodeClasses().size());
  seed = 0;
  for (size_t i = 0; i < nodes.size(); ++i) {
    const NodeClass& nodeClass = allNodeClasses()[i];
    Kv3Value::Object expected{{"_class", nodeClass.name}};
    if (nodeClass.role != NodeRole::List) expected.push_back({"name", nodeClass.name});
    if (nodeClass.canHoldChildren()) expected.push_back({"children", Kv3Value::makeArray()});
    for (const KeySpec& key : nodeClass.keys) expected.push_back({key.name, sampleValue(key, ++seed)});
    EXPECT_EQ(nodes[i], Kv3Value::makeObject(expected)) << nodeClass.name;
  }
}

TEST(ModelDocumentLimit, CreationFailsOnceTheLimitIsReached) {
  ModelDocument doc;
  doc.setNodeLimit(2);
  Node* skeleton = doc.rootList("Skeleton");
  ASSERT_NE(doc.createNode("Bone", "a", skeleton), nullptr);
  EXPECT_EQ(doc.createNode("Bone", "b", skeleton), nullptr);
  // Neither a new root list nor the default place for parentless nodes can be made.
  EXPECT_EQ(doc.rootList("PoseParamList"), nullptr);
  EXPECT_EQ(doc.createNode("GenericGameData", "", nullptr), nullptr);
  // An existing list is still fetched; the document saves what it holds.
  EXPECT_EQ(doc.rootList("Skeleton"), skeleton);
  EXPECT_EQ(savedRootClasses(doc), std::vector<std::string>{"Skeleton"});
}

TEST(ModelDocLib, StartingTwiceIsFatal) {
  LogCapture capture;
  ASSERT_TRUE(InitModelDocLib());
  EXPECT_FALSE(InitModelDocLib());
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].severity, Severity::Error);
  EXPECT_EQ(capture.records()[0].text, "Calling InitModelDocLib() twice in the same DLL.");
  ShutdownModelDocLib();
  EXPECT_TRUE(InitModelDocLib());
  ShutdownModelDocLib();
}

}  // namespace
}  // namespace zv::modeldoc
