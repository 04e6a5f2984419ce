#pragma once
// Trees and helpers shared by the serializer, reader and dump tests.

#include <cstdint>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "dmx/dm_reader.h"
#include "dmx/dm_serializer.h"

namespace zv::dmx::testing {

// A root with one attribute of every scalar and array type plus one empty array per type, a
// prefix element, a child referred to twice that refers back, null and a foreign reference.
struct EveryTypeTree {
  DmElementTree tree{1};
  DmElementTree other{2};
  CDmElement* root;
  CDmElement* child;
  CDmElement* prefix;

  EveryTypeTree() {
    root = tree.create("DmElement", "root");
    child = tree.create("DmeChild", "child");
    prefix = tree.create("DmElement", "$prefix_element$");
    CDmElement* foreign = other.create("DmeForeign", "foreign");

    prefix->setFloat("anim_frameRate", 30.f);
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
    for (uint8_t id = 33; id <= 48; ++id) root->addAttribute(typeNameOfId(id) + "_empty", typeFromId(id));

    child->setString("string", "second string");
    child->setElement("back", root);  // a cycle
  }
};

inline std::string asString(const std::vector<uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

// The bytes of a save that must succeed.
inline std::vector<uint8_t> mustSave(const CDmElement& root, std::string_view encoding = "binary_seqids") {
  auto bytes = saveDmx(root, encoding, kConverterFormat, kConverterFormatVersion);
  EXPECT_TRUE(bytes.has_value());
  return bytes ? *bytes : std::vector<uint8_t>{};
}

// The document read from bytes that must be readable.
inline DmDocument mustRead(const std::vector<uint8_t>& bytes) {
  Result<DmDocument> doc = readDmx(ByteView(bytes));
  EXPECT_TRUE(doc.ok()) << (doc ? "" : doc.message());
  return doc ? std::move(doc).value() : DmDocument{};
}

}  // namespace zv::dmx::testing
