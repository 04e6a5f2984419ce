#include "dmx/dm_element.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/log.h"

namespace zv::dmx {
namespace {

TEST(DmTypes, ArrayIdsAreScalarIdsPlus32AndNamedAfterThem) {
  EXPECT_EQ(typeName(DmType::Element), "element");
  EXPECT_EQ(typeName(DmType::QAngle), "qangle");
  EXPECT_EQ(typeName(DmType::UInt8), "uint8");
  for (uint8_t id = 1; id <= 16; ++id) {
    DmType scalar = typeFromId(id);
    EXPECT_EQ(static_cast<uint8_t>(arrayOf(scalar)), id + 32);
    EXPECT_EQ(typeNameOfId(id + 32), typeNameOfId(id) + "_array");
    EXPECT_EQ(scalarOf(arrayOf(scalar)), scalar);
  }
  for (uint8_t id : {0, 17, 32, 49, 64, 255}) {
    EXPECT_EQ(typeFromId(id), DmType::Unknown) << int(id);
    EXPECT_EQ(typeNameOfId(id), "unknown");
  }
}

TEST(DmTypes, TimeRoundsToTicksAndClamps) {
  EXPECT_EQ(DmTime::fromSeconds(1.5).ticks, 15000);
  EXPECT_EQ(DmTime::fromSeconds(0.00004).ticks, 0);
  EXPECT_EQ(DmTime::fromSeconds(0.00006).ticks, 1);
  EXPECT_EQ(DmTime::fromSeconds(-0.00006).ticks, -1);
  EXPECT_EQ(DmTime::fromSeconds(1e12).ticks, std::numeric_limits<int32_t>::max());
  EXPECT_EQ(DmTime::fromSeconds(-1e12).ticks, std::numeric_limits<int32_t>::min());
  EXPECT_EQ(DmTime::fromSeconds(std::nan("")).ticks, 0);
  EXPECT_DOUBLE_EQ(DmTime{25000}.seconds(), 2.5);
}

TEST(DmTypes, ElementIdTextReadsTheFirstGroupsAsLittleEndianNumbers) {
  DmElementId id = DmElementId::fromNumber(0x12345678, 0xAABBCCDD);
  id.bytes[15] = 0x0f;
  EXPECT_EQ(id.toString(), "{12345678-CCDD-AABB-0000-00000000000F}");
  EXPECT_EQ(id.toString().size(), kElementIdTextMax);
  EXPECT_EQ(DmElementId::parse(id.toString()), id);
  EXPECT_EQ(DmElementId::parse("12345678-ccdd-aabb-0000-00000000000f"), id);
  for (const char* bad :
       {"", "{12345678-CCDD-AABB-0000-00000000000F", "12345678-CCDD-AABB-0000-00000000000G",
        "12345678+CCDD-AABB-0000-00000000000F", "{12345678-CCDD-AABB-0000-00000000000F}x"}) {
    EXPECT_FALSE(DmElementId::parse(bad)) << bad;
  }
}

TEST(DmElementTree, IdsComeFromACounterAndTheTreeTag) {
  DmElementTree a(7), b(7), c(8);
  for (int i = 0; i < 3; ++i) {
    a.create("T", "x");
    b.create("T", "x");
    c.create("T", "x");
  }
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(a.element(i)->id(), b.element(i)->id());
    EXPECT_NE(a.element(i)->id(), c.element(i)->id());
  }
  EXPECT_NE(a.element(0)->id(), a.element(1)->id());
  EXPECT_EQ(a.element(0)->file(), &a);
  EXPECT_FALSE(a.element(0)->isExternal());
}

TEST(DmElementTree, ExternalStandInsKeepTheirTextAndHaveNoFile) {
  DmElementTree tree;
  CDmElement* parsed = tree.createExternal("{00000005-0000-0000-0000-000000000000}");
  CDmElement* odd = tree.createExternal("not an id");
  EXPECT_TRUE(parsed->isExternal());
  EXPECT_EQ(parsed->file(), nullptr);
  EXPECT_EQ(parsed->id(), DmElementId::fromNumber(5));
  EXPECT_EQ(odd->externalIdText(), "not an id");
  EXPECT_EQ(odd->addElement("x", "T", "y"), nullptr);
}

TEST(CDmElement, AttributesKeepCreationOrderAndSettersRetype) {
  DmElementTree tree;
  CDmElement* el = tree.create("DmeThing", "thing");
  el->setInt("b", 1);
  el->setString("a", "x");
  el->setFloat("c", 2.f);
  el->setFloat("b", 3.5f);  // retypes in place
  ASSERT_EQ(el->attributeCount(), 3u);
  EXPECT_EQ(el->attribute(0).name(), "b");
  EXPECT_EQ(el->attribute(0).type(), DmType::Float);
  EXPECT_EQ(el->getFloat("b"), 3.5f);
  EXPECT_EQ(el->attribute(1).name(), "a");
  EXPECT_TRUE(el->removeAttribute("a"));
  EXPECT_FALSE(el->removeAttribute("a"));
  EXPECT_EQ(el->attribute(1).name(), "c");
}

TEST(CDmElement, WrongTypeReadsLogTheMessageAndGiveTheDefault) {
  DmElementTree tree;
  CDmElement* el = tree.create("DmeThing", "thing");
  el->setInt("count", 4);
  el->setQuaternion("q", {1, 2, 3, 4});
  LogCapture capture;
  EXPECT_EQ(el->getString("count"), "");
  EXPECT_EQ(capture.text(),
            " * Requested DmAttribute of value of type \"string\" From DmAttribute \"count\" which is type "
            "\"int\"\n");
  capture.clear();
  EXPECT_EQ(el->getVector3Array("q").size(), 0u);
  EXPECT_EQ(el->getQuaternion("count"), Quaternion{});
  EXPECT_EQ(capture.count("Requested DmAttribute"), 2u);
  EXPECT_EQ(capture.records().at(0).severity, Severity::Warning);
  capture.clear();
  // Missing attributes are simply absent: default, no message.
  EXPECT_EQ(el->getInt("missing"), 0);
  EXPECT_EQ(el->getElement("missing"), nullptr);
  EXPECT_EQ(el->getMatrix("missing"), DmMatrix{});
  EXPECT_TRUE(capture.records().empty());
  // The stored values are untouched by failed reads.
  EXPECT_EQ(el->getInt("count"), 4);
}

TEST(CDmElement, FillAccessorRetypesAWrongTypeAfterSayingSo) {
  DmElementTree tree;
  CDmElement* el = tree.create("DmeThing", "thing");
  el->setInt("faces", 9);
  LogCapture capture;
  std::vector<int32_t>& faces = el->intArray("faces");
  EXPECT_EQ(capture.count("From DmAttribute \"faces\" which is type \"int\""), 1u);
  EXPECT_TRUE(faces.empty());
  faces = {0, 1, 2, -1};
  EXPECT_EQ(el->find("faces")->type(), DmType::IntArray);
  EXPECT_EQ(el->getIntArray("faces").size(), 4u);
  EXPECT_EQ(el->find("faces")->arraySize(), 4u);
  EXPECT_EQ(el->attributeCount(), 1u);
}

TEST(CDmElement, ArrayReferencesStayValidWhileMoreAttributesAreAdded) {
  DmElementTree tree;
  CDmElement* vertexData = tree.create("DmeVertexData", "bind");
  std::vector<Vector3>& positions = vertexData->vector3Array("position$0");
  std::vector<int32_t>& indices = vertexData->intArray("position$0Indices");
  for (int i = 0; i < 200; ++i) vertexData->setInt("filler" + std::to_string(i), i);
  positions.resize(1000, Vector3{1, 2, 3});
  indices.assign(3000, 7);
  EXPECT_EQ(vertexData->getVector3Array("position$0").size(), 1000u);
  EXPECT_EQ(vertexData->getVector3Array("position$0")[999], (Vector3{1, 2, 3}));
  EXPECT_EQ(vertexData->getIntArray("position$0Indices").size(), 3000u);
}

TEST(CDmElement, ChildrenAreCreatedInTheSameFile) {
  DmElementTree tree;
  CDmElement* joint = tree.create("DmeJoint", "bone");
  CDmElement* transform = joint->addElement("transform", "DmeTransform", "bone");
  ASSERT_NE(transform, nullptr);
  EXPECT_EQ(transform->file(), &tree);
  EXPECT_EQ(joint->getElement("transform"), transform);
  std::vector<CDmElement*>& children = joint->addElementArray("children");
  children.push_back(tree.create("DmeJoint", "child"));
  EXPECT_EQ(&joint->addElementArray("children"), &children);
  EXPECT_EQ(joint->getElementArray("children").size(), 1u);
  EXPECT_EQ(tree.size(), 3u);
}

}  // namespace
}  // namespace zv::dmx
