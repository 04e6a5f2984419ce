#include "importer_fixture.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "base/strings.h"
#include "dmx/dm_importer_check.h"

namespace zv::testing {

mdlforge::Bone bone(std::string name, int32_t parent, Vector3 position, QAngle angles) {
  mdlforge::Bone b;
  b.name = std::move(name);
  b.parent = parent;
  b.position = position;
  b.quaternion = angleQuaternion(angles);
  return b;
}

void expectNear(const Vector3& actual, const Vector3& expected, float tolerance) {
  EXPECT_NEAR(actual.x, expected.x, tolerance);
  EXPECT_NEAR(actual.y, expected.y, tolerance);
  EXPECT_NEAR(actual.z, expected.z, tolerance);
}

ImportRun::ImportRun(const mdlforge::Description& description, bool allLods, bool yUpToZUp) {
  EXPECT_TRUE(fileSystem.addSearchPath("", "LOCAL", fs::Placement::Tail));
  writeFamily(buildFiles(description), dir.file("models/props"), "crate");
  options.inputFiles = {dir.file("models/props/crate.mdl")};
  options.baseNames = {"crate"};
  options.outputFolders = {dir.file("out") + "\\props"};  // separators are evened out
  options.outputRoot = dir.file("out");
  options.allLods = allLods;
  options.yUpToZUp = yUpToZUp;
  setup();
}

dmx::DmDocument ImportRun::readDmx(const std::filesystem::path& file) const {
  std::vector<uint8_t> bytes = readBytes(file);
  auto document = dmx::readDmx(ByteView(bytes));
  if (!document || document->root == nullptr) throw std::runtime_error(file.string() + " does not read");
  // Every file a writer produces must open in common importers.
  EXPECT_EQ(dmx::importerProblems(*document), std::vector<std::string>{}) << file;
  return std::move(document.value());
}

Kv3Value ImportRun::readDocument(std::string_view file) const {
  Result<Kv3Document> read = readKv3Text(readText(out(file)));
  EXPECT_TRUE(read.ok()) << (read.ok() ? "" : read.message());
  if (!read.ok()) return Kv3Value::makeObject();
  EXPECT_EQ(read->header.format.name, "modeldoc41");
  const Kv3Value* root = read->root.find("rootNode");
  return root != nullptr ? *root : Kv3Value::makeObject();
}

std::vector<const Kv3Value*> childrenOf(const Kv3Value& node, std::string_view nodeClass) {
  std::vector<const Kv3Value*> found;
  const Kv3Value* children = node.find("children");
  if (children == nullptr || !children->isArray()) return found;
  for (const Kv3Value& child : children->elements()) {
    const Kv3Value* cls = child.find("_class");
    if (nodeClass.empty() || (cls != nullptr && cls->asString() == nodeClass)) found.push_back(&child);
  }
  return found;
}

const Kv3Value& childOf(const Kv3Value& node, std::string_view nodeClass) {
  static const Kv3Value kMissing = Kv3Value::makeObject();
  std::vector<const Kv3Value*> found = childrenOf(node, nodeClass);
  EXPECT_FALSE(found.empty()) << "no " << nodeClass << " node";
  return found.empty() ? kMissing : *found.front();
}

namespace {

std::string render(const Kv3Value& value) {
  std::string text;
  if (value.isArray()) {
    for (const Kv3Value& element : value.elements()) text += (text.empty() ? "" : ", ") + render(element);
    return "[" + text + "]";
  }
  if (value.isObject()) {
    for (const Kv3Member& member : value.members())
      text += (text.empty() ? "" : ", ") + member.key + "=" + render(member.value);
    return "{" + text + "}";
  }
  if (value.isString()) return value.asString();
  if (value.type() == Kv3Value::Type::Bool) return value.asBool() ? "true" : "false";
  if (value.type() == Kv3Value::Type::Int) return std::to_string(value.asInt());
  return value.isNumber() ? format("%.9g", value.asDouble() + 0.0) : "null";
}

}  // namespace

std::string valueOf(const Kv3Value& node, std::string_view key) {
  const Kv3Value* value = node.find(key);
  return value != nullptr ? render(*value) : "<unset>";
}

std::vector<std::string> shown(const std::vector<const Kv3Value*>& nodes,
                               std::initializer_list<std::string_view> keys) {
  std::vector<std::string> lines;
  for (const Kv3Value* node : nodes) {
    std::string line;
    for (std::string_view key : keys) line += (line.empty() ? "" : " ") + valueOf(*node, key);
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> listed(const Kv3Value& root, std::string_view listClass,
                                std::initializer_list<std::string_view> keys) {
  std::vector<const Kv3Value*> lists = childrenOf(root, listClass);
  return lists.empty() ? std::vector<std::string>{} : shown(childrenOf(*lists.front()), keys);
}

void expectAngles(const Kv3Value& node, std::string_view key, QAngle expected) {
  const Kv3Value* value = node.find(key);
  ASSERT_TRUE(value != nullptr && value->size() == 3) << key;
  const Kv3Value::Array& angles = value->elements();
  expectNear({angles[0].asFloat(), angles[1].asFloat(), angles[2].asFloat()},
             {expected.pitch, expected.yaw, expected.roll}, 1e-3f);
}

}  // namespace zv::testing
