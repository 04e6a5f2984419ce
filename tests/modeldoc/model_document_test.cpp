#include "modeldoc/model_document.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>

#include "base/log.h"
#include "kv/kv3_external_check.h"

namespace zv::modeldoc {
namespace {

const char* const kHeaderLine =
    "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
    "format:modeldoc41:version{12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0} -->\n";

const char* const kRootKeysText =
    "\t\tmodel_archetype = \"\"\n"
    "\t\tprimary_associated_entity = \"\"\n"
    "\t\tanim_graph_name = \"\"\n"
    "\t\tbase_model_name = \"\"\n";

std::string textOf(const ModelDocument& doc) {
  Result<std::string> text = doc.toText();
  EXPECT_TRUE(text.ok()) << (text.ok() ? "" : text.message());
  return text.ok() ? *text : std::string();
}

// The root node's children as read back from the saved text.
Kv3Value::Array savedRootChildren(const ModelDocument& doc) {
  Result<Kv3Document> read = readKv3Text(textOf(doc));
  EXPECT_TRUE(read.ok()) << (read.ok() ? "" : read.message());
  if (!read.ok()) return {};
  return read->root.find("rootNode")->find("children")->elements();
}

std::vector<std::string> savedClasses(const Kv3Value::Array& nodes) {
  std::vector<std::string> classes;
  for (const Kv3Value& node : nodes) classes.push_back(node.find("_class")->asString());
  return classes;
}

std::vector<std::string> names(const Node& parent) {
  std::vector<std::string> list;
  for (const Node* child : parent.children()) list.push_back(child->name());
  return list;
}

TEST(ModelDocumentText, EmptySkeletonDocument) {
  ModelDocument doc;
  ASSERT_NE(doc.rootList("Skeleton"), nullptr);
  EXPECT_EQ(textOf(doc), std::string(kHeaderLine) +
                             "{\n"
                             "\trootNode = \n"
                             "\t{\n"
                             "\t\t_class = \"RootNode\"\n"
                             "\t\tchildren = \n"
                             "\t\t[\n"
                             "\t\t\t{\n"
                             "\t\t\t\t_class = \"Skeleton\"\n"
                             "\t\t\t\tchildren = [ ]\n"
                             "\t\t\t},\n"
                             "\t\t]\n" +
                             kRootKeysText +
                             "\t}\n"
                             "}\n");
}

TEST(ModelDocumentText, BonesAndPoseParameterInMemberOrder) {
  ModelDocument doc;
  Node* skeleton = doc.rootList("Skeleton");
  Node* pelvis = doc.createNode("Bone", "pelvis", skeleton);
  Node* spine = doc.createNode("Bone", "spine", skeleton);
  ASSERT_TRUE(doc.reparent(spine, pelvis));
  // Set out of table order: the saved order is the table's.
  ASSERT_TRUE(pelvis->set("scale", 1.0f));
  ASSERT_TRUE(pelvis->set("angles", QAngle{0, 90, 0}));
  ASSERT_TRUE(pelvis->set("origin", Vector3{0, 0, 40}));
  ASSERT_TRUE(spine->set("origin", Vector3{1.5f, 0, 0}));
  Node* pose = doc.createNode("PoseParam", "aim_yaw", doc.rootList("PoseParamList"));
  ASSERT_NE(pose, nullptr);
  ASSERT_TRUE(pose->set("poseparam_min", -180.0f));
  ASSERT_TRUE(pose->set("poseparam_max", 180.0f));
  ASSERT_TRUE(pose->set("poseparam_looping", true));
  ASSERT_TRUE(pose->set("poseparam_loop", 360.0f));

  EXPECT_EQ(textOf(doc), std::string(kHeaderLine) +
                             "{\n"
                             "\trootNode = \n"
                             "\t{\n"
                             "\t\t_class = \"RootNode\"\n"
                             "\t\tchildren = \n"
                             "\t\t[\n"
                             "\t\t\t{\n"
                             "\t\t\t\t_class = \"Skeleton\"\n"
                             "\t\t\t\tchildren = \n"
                             "\t\t\t\t[\n"
                             "\t\t\t\t\t{\n"
                             "\t\t\t\t\t\t_class = \"Bone\"\n"
                             "\t\t\t\t\t\tname = \"pelvis\"\n"
                             "\t\t\t\t\t\tchildren = \n"
                             "\t\t\t\t\t\t[\n"
                             "\t\t\t\t\t\t\t{\n"
                             "\t\t\t\t\t\t\t\t_class = \"Bone\"\n"
                             "\t\t\t\t\t\t\t\tname = \"spine\"\n"
                             "\t\t\t\t\t\t\t\tchildren = [ ]\n"
                             "\t\t\t\t\t\t\t\torigin = [ 1.5, 0.0, 0.0 ]\n"
                             "\t\t\t\t\t\t\t\tdo_not_discard = true\n"
                             "\t\t\t\t\t\t\t\tscale = 1.0\n"
                             "\t\t\t\t\t\t\t},\n"
                             "\t\t\t\t\t\t]\n"
                             "\t\t\t\t\t\torigin = [ 0.0, 0.0, 40.0 ]\n"
                             "\t\t\t\t\t\tangles = [ 0.0, 90.0, 0.0 ]\n"
                             "\t\t\t\t\t\tdo_not_discard = true\n"
                             "\t\t\t\t\t\tscale = 1.0\n"
                             "\t\t\t\t\t},\n"
                             "\t\t\t\t]\n"
                             "\t\t\t},\n"
                             "\t\t\t{\n"
                             "\t\t\t\t_class = \"PoseParamList\"\n"
                             "\t\t\t\tchildren = \n"
                             "\t\t\t\t[\n"
                             "\t\t\t\t\t{\n"
                             "\t\t\t\t\t\t_class = \"PoseParam\"\n"
                             "\t\t\t\t\t\tname = \"aim_yaw\"\n"
                             "\t\t\t\t\t\tposeparam_min = -180.0\n"
                             "\t\t\t\t\t\tposeparam_max = 180.0\n"
                             "\t\t\t\t\t\tposeparam_looping = true\n"
                             "\t\t\t\t\t\tposeparam_loop = 360.0\n"
                             "\t\t\t\t\t},\n"
                             "\t\t\t\t]\n"
                             "\t\t\t},\n"
                             "\t\t]\n" +
                             kRootKeysText +
                             "\t}\n"
                             "}\n");
}

TEST(ModelDocumentText, PrefabRootCarriesItsKind) {
  ModelDocument prefab(DocumentKind::Prefab);
  EXPECT_EQ(textOf(prefab), std::string(kHeaderLine) +
                                "{\n"
                                "\trootNode = \n"
                                "\t{\n"
                                "\t\t_class = \"RootNode\"\n"
                                "\t\tchildren = [ ]\n" +
                                kRootKeysText +
                                "\t\tdocument_kind = 2\n"
                                "\t}\n"
                                "}\n");
  ModelDocument model(DocumentKind::Model);
  EXPECT_EQ(textOf(model).find("document_kind"), std::string::npos);
}

TEST(ModelDocumentText, DefaultsAreWrittenOnlyWhereTheTableGivesThem) {
  ModelDocument doc;
  Node* mesh = doc.createNode("RenderMeshFile", "body", doc.rootList("RenderMeshList"));
  ASSERT_TRUE(mesh->set("filename", "models/x_refs/mesh/body.dmx"));
  Node* anim = doc.createNode("AnimFile", "idle", doc.rootList("AnimationList"));
  ASSERT_TRUE(anim->set("source_filename", "anim/idle.dmx"));
  ASSERT_TRUE(anim->set("end_frame", 30));
  Node* attachment = doc.createNode("Attachment", "muzzle", doc.rootList("AttachmentList"));
  ASSERT_TRUE(attachment->set("weight", 1.0f));
  Node* group = doc.createNode("BodyGroup", "heads", doc.rootList("BodyGroupList"));

  Kv3Value::Array lists = savedRootChildren(doc);
  ASSERT_EQ(lists.size(), 4u);
  const Kv3Value& savedMesh = lists[0].find("children")->elements()[0];
  EXPECT_EQ(savedMesh.find("import_scale")->asDouble(), 1.0);
  const Kv3Value& savedAnim = lists[1].find("children")->elements()[0];
  EXPECT_EQ(savedAnim.find("start_frame")->asInt(), 0);
  EXPECT_EQ(savedAnim.find("end_frame")->asInt(), 30);
  EXPECT_EQ(savedAnim.find("framerate")->asDouble(), -1.0);
  // Keys without a default and never set are left out.
  EXPECT_EQ(savedAnim.find("activity_name"), nullptr);
  EXPECT_EQ(savedAnim.find("sequence_keys"), nullptr);
  const Kv3Value& savedAttachment = lists[2].find("children")->elements()[0];
  EXPECT_FALSE(savedAttachment.find("ignore_rotation")->asBool());
  EXPECT_EQ(savedAttachment.find("parent_bone"), nullptr);
  const Kv3Value& savedGroup = lists[3].find("children")->elements()[0];
  EXPECT_EQ(savedGroup.find("hidden_in_tools")->type(), Kv3Value::Type::Bool);
  EXPECT_EQ(savedGroup.find("children")->size(), 0u);
  EXPECT_EQ(group->get("hidden_in_tools"), nullptr);  // defaults are not reported as set
}

TEST(ModelDocumentLists, RootListsKeepFirstUseOrder) {
  ModelDocument doc;
  Node* renderMeshes = doc.rootList("RenderMeshList");
  Node* skeleton = doc.rootList("Skeleton");
  Node* hull = doc.createNode("CModelDocBoundsHull", "bounds_hull", doc.root());
  EXPECT_EQ(doc.rootList("RenderMeshList"), renderMeshes);
  EXPECT_EQ(doc.rootList("CModelDocSkeleton"), skeleton);
  EXPECT_EQ(doc.findRootList("PoseParamList"), nullptr);
  Node* poses = doc.rootList("PoseParamList");
  EXPECT_EQ(doc.findRootList("PoseParamList"), poses);
  ASSERT_NE(hull, nullptr);
  EXPECT_EQ(hull->className(), "BoundsHull");
  EXPECT_EQ(savedClasses(savedRootChildren(doc)),
            (std::vector<std::string>{"RenderMeshList", "Skeleton", "BoundsHull", "PoseParamList"}));
}

TEST(ModelDocumentLists, OnlyListClassesAreRootLists) {
  ModelDocument doc;
  EXPECT_EQ(doc.rootList("Bone"), nullptr);
  EXPECT_EQ(doc.rootList("NoSuchList"), nullptr);
  EXPECT_EQ(doc.rootList("RootNode"), nullptr);
  EXPECT_EQ(doc.root()->childCount(), 0u);
}

TEST(ModelDocumentNodes, CreationFailsForUnknownClassesAndChildlessParents) {
  ModelDocument doc;
  Node* skeleton = doc.rootList("Skeleton");
  Node* bone = doc.createNode("Bone", "pelvis", skeleton);
  ASSERT_NE(bone, nullptr);
  Node* pose = doc.createNode("PoseParam", "p", doc.rootList("PoseParamList"));
  ASSERT_NE(pose, nullptr);
  EXPECT_EQ(doc.createNode("NoSuchClass", "x", skeleton), nullptr);
  EXPECT_EQ(doc.createNode("RootNode", "x", skeleton), nullptr);
  EXPECT_EQ(doc.createNode("bone", "x", skeleton), nullptr);       // class names are exact
  EXPECT_EQ(doc.createNode("Skeleton", "", doc.root()), nullptr);  // lists come from rootList
  EXPECT_EQ(doc.createNode("Bone", "x", pose), nullptr);           // a leaf holds no children
  ModelDocument other;
  EXPECT_EQ(other.createNode("Bone", "x", skeleton), nullptr);
  EXPECT_EQ(names(*skeleton), (std::vector<std::string>{"pelvis"}));
  EXPECT_EQ(bone->parent(), skeleton);
}

TEST(ModelDocumentNodes, NodesWithoutAParentGoToTheGameDataList) {
  ModelDocument doc;
  doc.rootList("Skeleton");
  Node* preset = doc.createNode("GenericGameData", "", nullptr);
  Node* propData = doc.createNode("GenericGameData", "", nullptr);
  ASSERT_NE(preset, nullptr);
  Node* gameData = doc.findRootList("GameDataList");
  ASSERT_NE(gameData, nullptr);
  EXPECT_EQ(preset->parent(), gameData);
  EXPECT_EQ(propData->parent(), gameData);
  EXPECT_EQ(gameData->childCount(), 2u);
  EXPECT_EQ(savedClasses(savedRootChildren(doc)), (std::vector<std::string>{"Skeleton", "GameDataList"}));
}

TEST(ModelDocumentNodes, ReparentingMovesTheNodeWithItsChildren) {
  ModelDocument doc;
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
  // The saved tree agrees with the links.
  Kv3Value::Array lists = savedRootChildren(doc);
  ASSERT_EQ(lists.size(), 1u);
  const Kv3Value& savedB = lists[0].find("children")->elements()[0];
  const Kv3Value& savedD =
      savedB.find("children")->elements()[0].find("children")->elements()[0].find("children")->elements()[0];
  EXPECT_EQ(savedD.find("name")->asString(), "d");
}

TEST(ModelDocumentNodes, ReparentingRefusesImpossibleMoves) {
  ModelDocument doc;
  Node* skeleton = doc.rootList("Skeleton");
  Node* a = doc.createNode("Bone", "a", skeleton);
  Node* b = doc.createNode("Bone", "b", a);
  Node* pose = doc.createNode("PoseParam", "p", doc.rootList("PoseParamList"));
  ModelDocument other;
  Node* stranger = other.createNode("Bone", "s", other.rootList("Skeleton"));
  EXPECT_FALSE(doc.reparent(a, a));
  EXPECT_FALSE(doc.reparent(a, b));  // under its own child
  EXPECT_FALSE(doc.reparent(b, pose));
  EXPECT_FALSE(doc.reparent(skeleton, a));
  EXPECT_FALSE(doc.reparent(doc.root(), a));
  EXPECT_FALSE(doc.reparent(b, nullptr));
  EXPECT_FALSE(doc.reparent(stranger, a));
  EXPECT_FALSE(doc.reparent(b, stranger));
  EXPECT_EQ(b->parent(), a);
  EXPECT_EQ(a->parent(), skeleton);
  EXPECT_EQ(stranger->parent(), other.findRootList("Skeleton"));
}

TEST(ModelDocumentKeys, SettersRefuseUnknownKeysAndWrongTypes) {
  ModelDocument doc;
  Node* bone = doc.createNode("Bone", "b", doc.rootList("Skeleton"));
  Node* markup = doc.rootList("BoneMarkupList");
  ASSERT_TRUE(bone->set("scale", 2.0f));
  EXPECT_FALSE(bone->set("no_such_key", 1.0f));
  EXPECT_FALSE(bone->set("poseparam_min", 1.0f));  // another class's key
  EXPECT_FALSE(bone->set("scale", "big"));
  EXPECT_FALSE(bone->set("do_not_discard", 1));
  EXPECT_FALSE(bone->set("origin", Kv3Value::makeArray({1.0f, 2.0f})));
  EXPECT_FALSE(bone->set("origin", Kv3Value::makeArray({1.0f, 2.0f, "z"})));
  EXPECT_FALSE(bone->set("name", "renamed"));         // name is not a key
  EXPECT_FALSE(markup->set("bone_cull_type", 2.0f));  // integers stay integers
  EXPECT_EQ(bone->get("scale")->asFloat(), 2.0f);     // a refused set changes nothing
  EXPECT_EQ(bone->get("origin"), nullptr);
  // Numbers convert into float keys and vectors, which are stored as floats.
  ASSERT_TRUE(bone->set("scale", 3));
  EXPECT_EQ(bone->get("scale")->type(), Kv3Value::Type::Float);
  ASSERT_TRUE(bone->set("origin", Kv3Value::makeArray({1, 2.5, 3.0f})));
  EXPECT_EQ(*bone->get("origin"), Kv3Value::makeArray({1.0f, 2.5f, 3.0f}));
  ASSERT_TRUE(markup->set("bone_cull_type", 2));
}

TEST(ModelDocumentKeys, ArraysGrowByAppendWithTheirElementType) {
  ModelDocument doc;
  Node* group = doc.createNode("MaterialGroup", "1", doc.rootList("MaterialGroupList"));
  ASSERT_TRUE(group->append("remaps", Kv3Value::makeObject({{"from", "a.qmat"}, {"to", "b.qmat"}})));
  ASSERT_TRUE(group->append("remaps", Kv3Value::makeObject({{"from", "c.qmat"}, {"to", "c.qmat"}})));
  EXPECT_FALSE(group->append("remaps", "not an object"));
  EXPECT_EQ(group->get("remaps")->size(), 2u);

  Node* choice =
      doc.createNode("BodyGroupChoice", "", doc.createNode("BodyGroup", "g", doc.rootList("BodyGroupList")));
  ASSERT_TRUE(choice->append("meshes", "body_lod0"));
  EXPECT_FALSE(choice->append("meshes", 3));
  EXPECT_FALSE(choice->append("no_such_key", "x"));

  Node* grid = doc.createNode("AnimBlendGrid", "run", doc.rootList("AnimationList"));
  ASSERT_TRUE(grid->set("grid_size", Kv3Value::makeArray({3, 2})));
  EXPECT_FALSE(grid->set("grid_size", Kv3Value::makeArray({3.0f, 2.0f})));
  EXPECT_FALSE(grid->append("blend_params", Kv3Value::makeObject()));
  ASSERT_TRUE(grid->set("animations", std::vector<std::string>{"a.dmx", "b.dmx"}));
  EXPECT_FALSE(grid->set("source_filename", "x.dmx"));  // a grid has no single source

  std::string text = textOf(doc);
  EXPECT_NE(text.find("\t\t\t\t\t\tremaps = \n"
                      "\t\t\t\t\t\t[\n"
                      "\t\t\t\t\t\t\t{\n"
                      "\t\t\t\t\t\t\t\tfrom = \"a.qmat\"\n"
                      "\t\t\t\t\t\t\t\tto = \"b.qmat\"\n"
                      "\t\t\t\t\t\t\t},\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("grid_size = [ 3, 2 ]\n"), std::string::npos);
}

TEST(ModelDocumentKeys, GameKeysKeepFirstSetOrderAndReplaceInPlace) {
  ModelDocument doc;
  Node* preset = doc.createNode("GenericGameData", "", nullptr);
  ASSERT_TRUE(preset->set("game_class", "bodygroup_preset"));
  ASSERT_TRUE(preset->setGameKey("name", "first"));
  ASSERT_TRUE(preset->setGameKey("bodygroup_name_0", "heads"));
  ASSERT_TRUE(preset->setGameKey("bodygroup_choice_0", "1"));
  ASSERT_TRUE(preset->setGameKey("name", "renamed"));
  EXPECT_FALSE(preset->setEntry("game_keys", "weight", 1.0f));  // game keys are text
  Node* bone = doc.createNode("Bone", "b", doc.rootList("Skeleton"));
  EXPECT_FALSE(bone->setGameKey("name", "x"));

  std::string text = textOf(doc);
  EXPECT_NE(text.find("\t\t\t\t\t\t_class = \"GenericGameData\"\n"
                      "\t\t\t\t\t\tgame_class = \"bodygroup_preset\"\n"
                      "\t\t\t\t\t\tgame_keys = \n"
                      "\t\t\t\t\t\t{\n"
                      "\t\t\t\t\t\t\tname = \"renamed\"\n"
                      "\t\t\t\t\t\t\tbodygroup_name_0 = \"heads\"\n"
                      "\t\t\t\t\t\t\tbodygroup_choice_0 = \"1\"\n"
                      "\t\t\t\t\t\t}\n"),
            std::string::npos)
      << text;
}

TEST(ModelDocumentKeys, ObjectKeysHoldAnyKv3Value) {
  ModelDocument doc;
  Node* anim = doc.createNode("AnimFile", "idle", doc.rootList("AnimationList"));
  Kv3Value sequenceKeys =
      Kv3Value::makeObject({{"ExtraSeqFlags", Kv3Value::makeObject({{"worldrelative", "0"}})}});
  ASSERT_TRUE(anim->set("sequence_keys", sequenceKeys));
  Node* event = doc.createNode("AnimEvent", "", anim);
  ASSERT_NE(event, nullptr);
  ASSERT_TRUE(event->setEntry("event_keys", "options", "1 2"));
  ASSERT_TRUE(event->set("event_frame", 12));
  EXPECT_FALSE(anim->set("sequence_keys", "text"));
  EXPECT_EQ(*anim->get("sequence_keys"), sequenceKeys);
}

struct Written {
  std::string path;
  std::string bytes;
  int calls = 0;
};

WriteFileFunction recorder(Written& written, bool result) {
  return [&written, result](const std::string& path, std::span<const uint8_t> bytes) {
    written.path = path;
    written.bytes.assign(bytes.begin(), bytes.end());
    ++written.calls;
    return result;
  };
}

TEST(ModelDocumentSave, HandsTheTextToTheWriteFunction) {
  ModelDocument doc;
  doc.createNode("Bone", "pelvis", doc.rootList("Skeleton"));
  Written written;
  Status saved = doc.save("models/x.qmdl", recorder(written, true));
  ASSERT_TRUE(saved.ok()) << saved.message();
  EXPECT_EQ(written.calls, 1);
  EXPECT_EQ(written.path, "models/x.qmdl");
  EXPECT_EQ(written.bytes, textOf(doc));
}

TEST(ModelDocumentSave, FailuresGiveTheLibraryTexts) {
  ModelDocument doc;
  Written written;
  Status refused = doc.save("out/x.qmdl", recorder(written, false));
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.message(), "Failed to write file: out/x.qmdl\n");
  EXPECT_EQ(written.calls, 1);

  Status noWriter = doc.save("out/y.qmdl", WriteFileFunction());
  ASSERT_FALSE(noWriter.ok());
  EXPECT_EQ(noWriter.message(), "Failed to write file: out/y.qmdl\n");

  Node* bone = doc.createNode("Bone", "b", doc.rootList("Skeleton"));
  ASSERT_TRUE(bone->set("scale", std::numeric_limits<float>::quiet_NaN()));
  Written notCalled;
  Status badNumber = doc.save("out/z.qmdl", recorder(notCalled, true));
  ASSERT_FALSE(badNumber.ok());
  EXPECT_EQ(badNumber.message(), "Failed to save document kv3 data: cannot write a non-finite number\n");
  EXPECT_EQ(notCalled.calls, 0);
}

// A chain of bones under the skeleton list; the deepest bone is at depth count + 1.
Node* boneChain(ModelDocument& doc, int count) {
  Node* parent = doc.rootList("Skeleton");
  for (int i = 0; i < count; ++i) parent = doc.createNode("Bone", "b" + std::to_string(i), parent);
  return parent;
}

TEST(ModelDocumentSave, TooDeepATreeCannotBeSerialised) {
  ModelDocument deepest;
  boneChain(deepest, kMaxNodeDepth - 1);
  Result<std::string> text = deepest.toText();
  ASSERT_TRUE(text.ok()) << text.message();
  EXPECT_TRUE(readKv3Text(*text).ok());

  ModelDocument tooDeep;
  boneChain(tooDeep, kMaxNodeDepth);
  Written notCalled;
  Status saved = tooDeep.save("deep.qmdl", recorder(notCalled, true));
  ASSERT_FALSE(saved.ok());
  EXPECT_EQ(saved.message(), "Failed to serialize document state to kv3 data.");
  EXPECT_EQ(notCalled.calls, 0);
}

TEST(ModelDocumentSave, ReparentingStopsAtTheDepthThatCanBeSaved) {
  ModelDocument doc;
  Node* deepest = boneChain(doc, kMaxNodeDepth - 1);  // at depth kMaxNodeDepth
  Node* loose = doc.createNode("Bone", "loose", doc.rootList("Skeleton"));
  EXPECT_FALSE(doc.reparent(loose, deepest));
  EXPECT_TRUE(doc.reparent(loose, deepest->parent()));
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

// One node of every class with every key set, saved and read back.
class EveryClassDocument : public ::testing::Test {
 protected:
  void SetUp() override {
    int seed = 0;
    for (const NodeClass& nodeClass : allNodeClasses()) {
      Node* node = nodeClass.role == NodeRole::List
                       ? doc_.rootList(nodeClass.name)
                       : doc_.createNode(nodeClass.name, nodeClass.name, doc_.root());
      ASSERT_NE(node, nullptr) << nodeClass.name;
      for (const KeySpec& key : nodeClass.keys) {
        ASSERT_TRUE(node->set(key.name, sampleValue(key, ++seed))) << nodeClass.name << "." << key.name;
      }
    }
    Result<std::string> text = doc_.toText();
    ASSERT_TRUE(text.ok()) << text.message();
    text_ = *text;
  }

  ModelDocument doc_{DocumentKind::Prefab};
  std::string text_;
};

TEST_F(EveryClassDocument, ReadsBackWithKeysInTableOrder) {
  Result<Kv3Document> read = readKv3Text(text_);
  ASSERT_TRUE(read.ok()) << read.message();
  const Kv3Value::Array& nodes = read->root.find("rootNode")->find("children")->elements();
  ASSERT_EQ(nodes.size(), allNodeClasses().size());
  int seed = 0;
  for (size_t i = 0; i < nodes.size(); ++i) {
    const NodeClass& nodeClass = allNodeClasses()[i];
    const Kv3Value::Object& members = nodes[i].members();
    std::vector<std::string> expectedKeys{"_class"};
    if (nodeClass.role != NodeRole::List) expectedKeys.push_back("name");
    if (nodeClass.canHoldChildren()) expectedKeys.push_back("children");
    for (const KeySpec& key : nodeClass.keys) expectedKeys.push_back(key.name);
    std::vector<std::string> savedKeys;
    for (const Kv3Member& member : members) savedKeys.push_back(member.key);
    EXPECT_EQ(savedKeys, expectedKeys) << nodeClass.name;
    for (const KeySpec& key : nodeClass.keys) {
      Kv3Value expected = sampleValue(key, ++seed);
      const Kv3Value* saved = nodes[i].find(key.name);
      ASSERT_NE(saved, nullptr);
      // Floats come back as doubles: compare through the writer's text instead.
      EXPECT_EQ(*writeKv3Text(Kv3Value::makeObject({{"v", *saved}}), kModelDocKv3Header),
                *writeKv3Text(Kv3Value::makeObject({{"v", expected}}), kModelDocKv3Header))
          << nodeClass.name << "." << key.name;
    }
  }
}

TEST_F(EveryClassDocument, IsAcceptedByTheIndependentReader) {
  std::optional<testing::ExternalReadResult> result = testing::runExternalKv3Reader(text_);
  if (!result) GTEST_SKIP() << "python3 or the shared reader is not available";
  EXPECT_EQ(result->exitCode, 0) << result->output;
  EXPECT_NE(result->output.find("header: text e21c7f3c-8a33-41c5-9977-a76d3a32aa0d modeldoc41"),
            std::string::npos)
      << result->output;
  EXPECT_NE(result->output.find("AnimBlendGrid=1"), std::string::npos) << result->output;
  EXPECT_NE(result->output.find("RootNode=1"), std::string::npos) << result->output;
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
  EXPECT_EQ(doc.nodeCount(), 2u);
  EXPECT_EQ(savedClasses(savedRootChildren(doc)), std::vector<std::string>{"Skeleton"});
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
  EXPECT_EQ(capture.records().size(), 1u);
}

}  // namespace
}  // namespace zv::modeldoc
