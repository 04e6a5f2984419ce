#include "dmx_test_trees.h"

#include <gtest/gtest.h>

#include "dmx/dm_serializer.h"

namespace zv::dmx::testing {

EveryTypeTree::EveryTypeTree() {
  root = tree.create("DmElement", "root");
  child = tree.create("DmeChild", "child");
  prefix = tree.create("DmElement", "$prefix_element$");
  foreign = other.create("DmeForeign", "foreign");

  prefix->setFloat("anim_frameRate", 30.f);
  prefix->setInt("count", -3);
  prefix->setBool("flag", true);
  prefix->setTime("length", DmTime{25000});
  prefix->setVector3("offset", {1, 2, 3});
  prefix->setUInt64("big", 1ull << 40);
  root->setElement("$prefix_attribute$", prefix);

  root->setElement("element", child);
  root->setInt("int", -7);
  root->setFloat("float", 1.5f);
  root->setBool("bool", true);
  root->setString("string", "text in the table");
  root->setBinary("binary", {0, 1, 2, 255});
  root->setTime("time", DmTime{12345});
  root->setColor("color", {1, 2, 3, 4});
  root->setVector2("vector2", {1, 2});
  root->setVector3("vector3", {1, 2, 3});
  root->setVector4("vector4", {1, 2, 3, 4});
  root->setQAngle("qangle", {10, 20, 30});
  root->setQuaternion("quaternion", {0, 0, 0.70710677f, 0.70710677f});
  DmMatrix matrix;
  for (size_t i = 0; i < 16; ++i) matrix.m[i] = static_cast<float>(i) - 7.5f;
  root->setMatrix("matrix", matrix);
  root->setUInt64("uint64", 0x0123456789ABCDEFull);
  root->setUInt8("uint8", 200);
  root->setElement("nothing", nullptr);

  root->elementArray("element_array") = {child, nullptr, foreign, child};
  root->intArray("int_array") = {1, -2, 3};
  root->floatArray("float_array") = {0.5f, -0.25f};
  root->boolArray("bool_array") = {true, false, true};
  root->stringArray("string_array") = {"a", "", "inline only"};
  root->binaryArray("binary_array") = {{}, {9, 8}};
  root->timeArray("time_array") = {DmTime{0}, DmTime{-10000}};
  root->colorArray("color_array") = {{255, 0, 0, 255}, {0, 0, 0, 0}};
  root->vector2Array("vector2_array") = {{1, 2}, {3, 4}};
  root->vector3Array("vector3_array") = {{1, 2, 3}, {4, 5, 6}};
  root->vector4Array("vector4_array") = {{1, 2, 3, 4}};
  root->qangleArray("qangle_array") = {{1, 2, 3}, {-1, -2, -3}};
  root->quaternionArray("quaternion_array") = {{}, {1, 0, 0, 0}};
  root->matrixArray("matrix_array") = {DmMatrix{}, matrix};
  root->uint64Array("uint64_array") = {0, ~0ull};
  root->uint8Array("uint8_array") = {0, 127, 255};
  for (uint8_t id = 33; id <= 48; ++id) {
    root->addAttribute(std::string(typeName(typeFromId(id))) + "_empty", typeFromId(id));
  }

  child->setString("string", "second string");
  child->setElement("back", root);  // a cycle
}

std::vector<uint8_t> mustSave(const CDmElement& root, std::string_view encoding) {
  auto bytes = saveDmx(root, encoding, kConverterFormat, kConverterFormatVersion);
  EXPECT_TRUE(bytes.has_value());
  return bytes ? *bytes : std::vector<uint8_t>{};
}

}  // namespace zv::dmx::testing
