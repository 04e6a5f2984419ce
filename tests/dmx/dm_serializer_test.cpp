#include "dmx/dm_serializer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "base/log.h"
#include "dmx_test_trees.h"

namespace zv::dmx {
namespace {

using namespace std::string_literals;
using testing::asString;
using testing::mustRead;
using testing::mustSave;

std::vector<std::string> namesInFileOrder(const DmDocument& doc) {
  std::vector<std::string> names;
  for (const CDmElement* el : doc.elements) names.push_back(el->name());
  return names;
}

TEST(DmTypes, TimeRoundsToTicksAndClamps) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max(), kMin = std::numeric_limits<int32_t>::min();
  const std::pair<double, int32_t> cases[] = {{1.5, 15000}, {0.00004, 0},  {0.00006, 1},     {-0.00006, -1},
                                              {1e12, kMax}, {-1e12, kMin}, {std::nan(""), 0}};
  for (auto [seconds, ticks] : cases) EXPECT_EQ(DmTime::fromSeconds(seconds).ticks, ticks) << seconds;
}

TEST(CDmElement, ArrayReferencesStayValidAndSettersRetypeInPlace) {
  DmElementTree tree;
  CDmElement* el = tree.create("DmeVertexData", "bind");
  std::vector<Vector3>& positions = el->vector3Array("b");
  for (int i = 0; i < 200; ++i) el->setInt("filler" + std::to_string(i), i);
  positions.assign(1000, Vector3{1, 2, 3});  // still the attribute's own array
  EXPECT_EQ(el->getVector3Array("b").size(), 1000u);
  el->setFloat("b", 3.5f);
  EXPECT_EQ(el->attribute(0).type(), DmType::Float);
}

TEST(CDmElement, WrongTypeReadsLogTheMessageAndGiveTheDefault) {
  DmElementTree tree;
  CDmElement* el = tree.create("DmeThing", "thing");
  el->setInt("count", 4);
  LogCapture capture;
  EXPECT_EQ(el->getString("count"), "");
  EXPECT_EQ(capture.text(),
            " * Requested DmAttribute of value of type \"string\" From DmAttribute \"count\" which is type "
            "\"int\"\n");
  EXPECT_EQ(capture.records().at(0).severity, Severity::Warning);
  EXPECT_EQ(el->getInt("count"), 4);  // failed reads leave the value alone
  // Missing attributes are simply absent: default, no message.
  EXPECT_EQ(el->getMatrix("missing"), DmMatrix{});
  // The fill accessor says so too, then starts the attribute over as the asked type.
  EXPECT_TRUE(el->intArray("count").empty());
  EXPECT_EQ(capture.count("From DmAttribute \"count\" which is type \"int\""), 2u);
  EXPECT_EQ(el->find("count")->type(), DmType::IntArray);
}

TEST(CDmSerializerBinary, SmallTreeMatchesTheLayoutByteForByte) {
  DmElementTree tree, elsewhere;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* prefix = tree.create("DmElement", "$prefix_element$");
  prefix->setFloat("fps", 30.f);
  prefix->setString("tag", "x");
  root->setElement("$prefix_attribute$", prefix);
  root->setInt("a", 7);
  root->setInt("scratch", 1);
  root->find("scratch")->setDontSave(true);
  CDmElement* c = root->addElement("child", "DmeX", "c");
  root->elementArray("refs") = {nullptr, elsewhere.create("DmeO", "o"), c};
  root->vector3Array("v") = {{1, 2, 3}};
  root->stringArray("names") = {"a", ""};
  c->setString("s", "hi\0cut"s);  // only up to the NUL can be written
  c->setInt("a", 1);

  // clang-format off
  const std::string expected =
      "<!-- dmx encoding binary_seqids 9 format dmx 22 -->\n"
      "\0"                                           // after the header line
      "\x01\0\0\0"                                   // prefix follows
      "\x02\0\0\0"                                   //   2 attributes, names inline
      "fps\0" "\x03" "\0\0\xf0\x41"                  //   fps float 30
      "tag\0" "\x05" "x\0"                           //   tag string "x", inline
      "\x0b\0\0\0"                                   // 11 strings, first seen first, each once
      "DmElement\0" "root\0" "a\0" "child\0" "refs\0" "v\0" "names\0" "DmeX\0" "c\0" "s\0" "hi\0"
      "\x02\0\0\0"                                   // 2 elements: the prefix one is not listed
      "\0\0\0\0" "\x01\0\0\0"                        //   DmElement "root"
      "\x01\0\0\0" "\0\0\0\0\0\0\0\0\0\0\0\0"        //   id 1
      "\x07\0\0\0" "\x08\0\0\0"                      //   DmeX "c"
      "\x02\0\0\0" "\0\0\0\0\0\0\0\0\0\0\0\0"        //   id 2
      "\x05\0\0\0"                                   // root: no $prefix_attribute$, no scratch
      "\x02\0\0\0" "\x02" "\x07\0\0\0"               //   a int 7
      "\x03\0\0\0" "\x01" "\x01\0\0\0"               //   child element -> 1
      "\x04\0\0\0" "\x21" "\x03\0\0\0"               //   refs element_array, 3 items:
      "\xff\xff\xff\xff" "\xfe\xff\xff\xff"          //   none, another file's element
      "{00000003-0000-0000-0000-000000000000}\0"     //   numbered after the list,
      "\x01\0\0\0"                                   //   and c
      "\x05\0\0\0" "\x2a" "\x01\0\0\0"               //   v vector3_array, 1 item
      "\0\0\x80\x3f" "\0\0\0\x40" "\0\0\x40\x40"     //   (1 2 3)
      "\x06\0\0\0" "\x25" "\x02\0\0\0" "a\0" "\0"    //   names string_array, inline
      "\x02\0\0\0"                                   // c: 2 attributes
      "\x09\0\0\0" "\x05" "\x0a\0\0\0"               //   s string "hi"
      "\x02\0\0\0" "\x02" "\x01\0\0\0"s;             //   a int 1
  // clang-format on
  EXPECT_EQ(asString(mustSave(*root)), expected);
}

TEST(CDmSerializerBinary, SequentialIdsMakeSavesByteIdentical) {
  testing::EveryTypeTree first;
  EXPECT_EQ(mustSave(*first.root), mustSave(*first.root));
  // The same tree built in trees with other ids: the same bytes under seqids only.
  DmElementTree a(100), b(200);
  for (DmElementTree* t : {&a, &b}) t->create("DmElement", "root")->addElement("child", "DmeX", "x");
  EXPECT_EQ(mustSave(*a.element(0)), mustSave(*b.element(0)));
  DmDocument raw = mustRead(mustSave(*a.element(0), "binary"));
  EXPECT_EQ(raw.elements.at(1)->id(), a.element(1)->id());
}

TEST(CDmSerializerBinary, ElementsAreListedDepthFirstInAttributeOrderEachOnce) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* a = tree.create("T", "a");
  CDmElement* b = tree.create("T", "b");
  a->elementArray("children") = {tree.create("T", "a1"), root};
  b->addElement("x", "T", "x")->setElement("up", a);
  root->elementArray("children") = {a, b, a};
  root->addElement("z", "T", "c");
  tree.create("T", "unreached");

  EXPECT_EQ(namesInFileOrder(mustRead(mustSave(*root))),
            (std::vector<std::string>{"root", "a", "a1", "b", "x", "c"}));
}

TEST(CDmSerializerBinary, PrefixElementHoldsNoElementsAndIsListedOnlyWhenReachedOtherwise) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* prefix = tree.create("DmElement", "$prefix_element$");
  CDmElement* onlyFromPrefix = tree.create("DmeX", "onlyFromPrefix");
  prefix->setFloat("anim_frameRate", 24.f);
  prefix->setElement("link", onlyFromPrefix);
  prefix->elementArray("links") = {onlyFromPrefix};
  root->setElement("$prefix_attribute$", prefix);

  LogCapture capture;
  DmDocument doc = mustRead(mustSave(*root));
  EXPECT_EQ(capture.text(),
            "Prefix element cannot contain element or element_array attributes. ('link')\n"
            "Prefix element cannot contain element or element_array attributes. ('links')\n");
  ASSERT_NE(doc.prefix, nullptr);
  EXPECT_EQ(doc.prefix->attributeCount(), 1u);
  EXPECT_EQ(namesInFileOrder(doc), std::vector<std::string>{"root"});
  // Reached otherwise, it is listed like any element, with its references.
  root->setElement("shared", prefix);
  EXPECT_EQ(namesInFileOrder(mustRead(mustSave(*root))),
            (std::vector<std::string>{"root", "$prefix_element$", "onlyFromPrefix"}));
}

TEST(CDmSerializerBinary, DeepChainsSaveWithoutRecursion) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* tip = root;
  for (int i = 0; i < 200000; ++i) tip = tip->addElement("next", "DmeLink", "link");
  DmDocument doc = mustRead(mustSave(*root));
  ASSERT_EQ(doc.elements.size(), 200001u);
  EXPECT_EQ(doc.elements.back()->getElement("next"), nullptr);
}

TEST(DmSerialize, RefusesTextBuffersUnknownEncodingsAndBadFormatNames) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  LogCapture capture;
  DmOutputBuffer text(DmOutputBuffer::Mode::Text);
  EXPECT_FALSE(serializeDmx(*root, text, "binary_seqids", "dmx", 22));
  EXPECT_EQ(capture.text(),
            "Serialize: Format binary_seqids expects to be written to a binary format, but the buffer is a "
            "text-format buffer\n");
  EXPECT_EQ(text.size(), 0u);

  capture.clear();
  EXPECT_FALSE(saveDmx(*root, "keyvalues2", "dmx", 22));
  EXPECT_EQ(capture.text(), "Serialize: File encoding 'keyvalues2' is undefined!\n");

  capture.clear();
  EXPECT_FALSE(saveDmx(*root, "binary", "two words", 22));
  EXPECT_EQ(capture.count("cannot be written into a file header"), 1u);
}

TEST(DmSerialize, ABufferThatOverflowsFailsTheSave) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  root->floatArray("values").assign(1000, 1.f);
  size_t full = mustSave(*root).size();
  DmOutputBuffer exact(DmOutputBuffer::Mode::Binary, full);
  EXPECT_TRUE(serializeDmx(*root, exact, "binary_seqids", "dmx", 22));
  for (size_t limit : {size_t{0}, size_t{10}, full / 2, full - 1}) {
    DmOutputBuffer small(DmOutputBuffer::Mode::Binary, limit);
    EXPECT_FALSE(serializeDmx(*root, small, "binary_seqids", "dmx", 22)) << limit;
    EXPECT_LE(small.size(), limit);
  }
}

}  // namespace
}  // namespace zv::dmx
