#include "dmx/dm_serializer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "base/log.h"
#include "dmx/dm_reader.h"
#include "dmx_test_trees.h"

namespace zv::dmx {
namespace {

using namespace std::string_literals;
using testing::mustSave;

std::string asString(const std::vector<uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

DmDocument mustRead(const std::vector<uint8_t>& bytes) {
  Result<DmDocument> doc = readDmx(ByteView(bytes));
  EXPECT_TRUE(doc.ok()) << (doc ? "" : doc.message());
  return doc ? std::move(doc).value() : DmDocument{};
}

std::vector<std::string> namesInFileOrder(const DmDocument& doc) {
  std::vector<std::string> names;
  for (const CDmElement* el : doc.elements) names.push_back(el->name());
  return names;
}

TEST(CDmSerializerBinary, SmallTreeMatchesTheLayoutByteForByte) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* c = tree.create("DmeX", "c");
  root->setInt("a", 7);
  root->setElement("child", c);
  root->setElement("n", nullptr);
  c->setString("s", "hi");
  c->setInt("a", 1);

  // clang-format off
  const std::string expected =
      "<!-- dmx encoding binary_seqids 9 format dmx 22 -->\n"
      "\0"                                           // after the header line
      "\0\0\0\0"                                     // no prefix
      "\x09\0\0\0"                                   // 9 strings, first seen first
      "DmElement\0" "root\0" "a\0" "child\0" "n\0" "DmeX\0" "c\0" "s\0" "hi\0"
      "\x02\0\0\0"                                   // 2 elements
      "\0\0\0\0" "\x01\0\0\0"                        //   DmElement "root"
      "\x01\0\0\0" "\0\0\0\0\0\0\0\0\0\0\0\0"        //   id 1
      "\x05\0\0\0" "\x06\0\0\0"                      //   DmeX "c"
      "\x02\0\0\0" "\0\0\0\0\0\0\0\0\0\0\0\0"        //   id 2
      "\x03\0\0\0"                                   // root: 3 attributes
      "\x02\0\0\0" "\x02" "\x07\0\0\0"               //   a int 7
      "\x03\0\0\0" "\x01" "\x01\0\0\0"               //   child element -> 1
      "\x04\0\0\0" "\x01" "\xff\xff\xff\xff"         //   n element -> none
      "\x02\0\0\0"                                   // c: 2 attributes
      "\x07\0\0\0" "\x05" "\x08\0\0\0"               //   s string "hi"
      "\x02\0\0\0" "\x02" "\x01\0\0\0"s;             //   a int 1
  // clang-format on
  EXPECT_EQ(asString(mustSave(*root)), expected);
}

TEST(CDmSerializerBinary, PrefixExternalAndInlineStringsMatchTheLayoutByteForByte) {
  DmElementTree tree, elsewhere;
  CDmElement* root = tree.create("DmElement", "r");
  CDmElement* prefix = tree.create("DmElement", "$prefix_element$");
  prefix->setFloat("fps", 30.f);
  prefix->setString("tag", "x");
  root->setElement("$prefix_attribute$", prefix);
  root->setElement("ext", elsewhere.create("DmeOther", "o"));
  root->vector3Array("v") = {{1, 2, 3}};
  root->stringArray("names") = {"a", ""};

  // clang-format off
  const std::string expected =
      "<!-- dmx encoding binary_seqids 9 format dmx 22 -->\n"
      "\0"
      "\x01\0\0\0"                                   // prefix follows
      "\x02\0\0\0"                                   //   2 attributes, names inline
      "fps\0" "\x03" "\0\0\xf0\x41"                  //   fps float 30
      "tag\0" "\x05" "x\0"                           //   tag string "x", inline
      "\x05\0\0\0"                                   // 5 strings
      "DmElement\0" "r\0" "ext\0" "v\0" "names\0"
      "\x01\0\0\0"                                   // 1 element: the prefix one is not listed
      "\0\0\0\0" "\x01\0\0\0"                        //   DmElement "r"
      "\x01\0\0\0" "\0\0\0\0\0\0\0\0\0\0\0\0"        //   id 1
      "\x03\0\0\0"                                   // 3 attributes, no $prefix_attribute$
      "\x02\0\0\0" "\x01" "\xfe\xff\xff\xff"         //   ext element -> another file,
      "{00000002-0000-0000-0000-000000000000}\0"     //   its id numbered after the list
      "\x03\0\0\0" "\x2a" "\x01\0\0\0"               //   v vector3_array, 1 item
      "\0\0\x80\x3f" "\0\0\0\x40" "\0\0\x40\x40"     //   (1 2 3)
      "\x04\0\0\0" "\x25" "\x02\0\0\0" "a\0" "\0"s;  //   names string_array, inline
  // clang-format on
  EXPECT_EQ(asString(mustSave(*root)), expected);
}

TEST(CDmSerializerBinary, VariantsAndTheirNames) {
  const IDmSerializer* binary = findSerializer("binary");
  const IDmSerializer* seqids = findSerializer("binary_seqids");
  ASSERT_TRUE(binary && seqids);
  EXPECT_EQ(binary->description(), "Binary");
  EXPECT_EQ(seqids->description(), "Binary (deterministic sequential ids)");
  EXPECT_EQ(binary->encodingVersion(), 9);
  EXPECT_EQ(seqids->encodingVersion(), 9);
  EXPECT_TRUE(seqids->isBinaryFormat());
  EXPECT_EQ(findSerializer("keyvalues2"), nullptr);
  EXPECT_EQ(findSerializer("BINARY"), nullptr);
}

TEST(CDmSerializerBinary, HeaderLineIsFollowedByOneZeroByteAndTheFlagOfAnAbsentPrefix) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  std::string text = asString(mustSave(*root, "binary"));
  std::string header = "<!-- dmx encoding binary 9 format dmx 22 -->\n"s + '\0';
  ASSERT_GT(text.size(), header.size() + 4);
  EXPECT_EQ(text.substr(0, header.size()), header);
  EXPECT_EQ(text.substr(header.size(), 4), "\0\0\0\0"s);
}

TEST(CDmSerializerBinary, SequentialIdsMakeSavesByteIdentical) {
  testing::EveryTypeTree first;
  std::vector<uint8_t> once = mustSave(*first.root);
  EXPECT_EQ(once, mustSave(*first.root));
  // The same tree built in a tree with other ids: same bytes under seqids only.
  DmElementTree a(100), b(200);
  for (DmElementTree* t : {&a, &b}) t->create("DmElement", "root")->addElement("child", "DmeX", "x");
  EXPECT_EQ(mustSave(*a.element(0)), mustSave(*b.element(0)));
  EXPECT_NE(mustSave(*a.element(0), "binary"), mustSave(*b.element(0), "binary"));
}

TEST(CDmSerializerBinary, BinaryKeepsElementIdsAndSeqidsNumbersThemInListOrder) {
  DmElementTree tree(0x55);
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* late = tree.create("DmeX", "late");
  CDmElement* early = tree.create("DmeX", "early");
  root->elementArray("items") = {early, late};

  DmDocument raw = mustRead(mustSave(*root, "binary"));
  ASSERT_EQ(raw.elements.size(), 3u);
  EXPECT_EQ(raw.elements[1]->id(), early->id());
  EXPECT_EQ(raw.elements[2]->id(), late->id());

  DmDocument seq = mustRead(mustSave(*root, "binary_seqids"));
  ASSERT_EQ(seq.elements.size(), 3u);
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(seq.elements[i]->id(), DmElementId::fromNumber(i + 1));
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

  DmDocument doc = mustRead(mustSave(*root));
  EXPECT_EQ(namesInFileOrder(doc), (std::vector<std::string>{"root", "a", "a1", "b", "x", "c"}));
  const auto& children = doc.root->getElementArray("children");
  ASSERT_EQ(children.size(), 3u);
  EXPECT_EQ(children[0], children[2]);
  EXPECT_EQ(children[0]->getElementArray("children").at(1), doc.root);
}

TEST(CDmSerializerBinary, NullAndForeignReferences) {
  DmElementTree tree, elsewhere;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* foreignA = elsewhere.create("DmeA", "a");
  CDmElement* foreignB = elsewhere.create("DmeB", "b");
  root->setElement("none", nullptr);
  root->elementArray("mixed") = {foreignB, nullptr, foreignA, foreignB};
  root->setElement("again", foreignA);

  DmDocument doc = mustRead(mustSave(*root));
  EXPECT_EQ(doc.root->getElement("none"), nullptr);
  const auto& mixed = doc.root->getElementArray("mixed");
  ASSERT_EQ(mixed.size(), 4u);
  ASSERT_TRUE(mixed[0] && mixed[2]);
  EXPECT_EQ(mixed[1], nullptr);
  // Foreign ids are numbered after the listed element, in the order they are met.
  EXPECT_EQ(mixed[0]->externalIdText(), "{00000002-0000-0000-0000-000000000000}");
  EXPECT_EQ(mixed[2]->externalIdText(), "{00000003-0000-0000-0000-000000000000}");
  EXPECT_EQ(mixed[3], mixed[0]);
  EXPECT_EQ(doc.root->getElement("again"), mixed[2]);
  EXPECT_EQ(doc.elements.size(), 1u);
  EXPECT_EQ(doc.externals.size(), 2u);

  // Under "binary" the foreign element's own id is written as text.
  DmDocument raw = mustRead(mustSave(*root, "binary"));
  EXPECT_EQ(raw.root->getElementArray("mixed")[0]->externalIdText(), foreignB->id().toString());
}

TEST(CDmSerializerBinary, PrefixElementHoldsNoElementsAndIsNotListed) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* prefix = tree.create("DmElement", "$prefix_element$");
  CDmElement* onlyFromPrefix = tree.create("DmeX", "onlyFromPrefix");
  prefix->setFloat("anim_frameRate", 24.f);
  prefix->setElement("link", onlyFromPrefix);
  prefix->elementArray("links") = {onlyFromPrefix};
  prefix->setInt("hidden", 5);
  prefix->find("hidden")->setDontSave(true);
  prefix->setUInt8("small", 9);
  root->setElement("$prefix_attribute$", prefix);

  LogCapture capture;
  DmDocument doc = mustRead(mustSave(*root));
  EXPECT_EQ(capture.text(),
            "Prefix element cannot contain element or element_array attributes. ('link')\n"
            "Prefix element cannot contain element or element_array attributes. ('links')\n");
  ASSERT_NE(doc.prefix, nullptr);
  ASSERT_EQ(doc.prefix->attributeCount(), 2u);
  EXPECT_EQ(doc.prefix->getFloat("anim_frameRate"), 24.f);
  EXPECT_EQ(doc.prefix->getUInt8("small"), 9);
  EXPECT_EQ(namesInFileOrder(doc), std::vector<std::string>{"root"});
  // The reader hangs the prefix back on the root; in the file the root carried nothing.
  EXPECT_EQ(doc.root->attributeCount(), 1u);
  EXPECT_EQ(doc.root->getElement("$prefix_attribute$"), doc.prefix);
  // Saving what was read gives the same bytes again.
  EXPECT_EQ(mustSave(*doc.root), mustSave(*root));
}

TEST(CDmSerializerBinary, PrefixElementReachedOtherwiseIsListedToo) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* prefix = tree.create("DmElement", "$prefix_element$");
  prefix->setInt("n", 1);
  root->setElement("$prefix_attribute$", prefix);
  root->setElement("shared", prefix);
  DmDocument doc = mustRead(mustSave(*root));
  EXPECT_EQ(namesInFileOrder(doc), (std::vector<std::string>{"root", "$prefix_element$"}));
  EXPECT_EQ(doc.prefix->getInt("n"), 1);

  // A null prefix attribute is no prefix, and is not written either.
  root->setElement("$prefix_attribute$", nullptr);
  DmDocument none = mustRead(mustSave(*root));
  EXPECT_EQ(none.prefix, nullptr);
  EXPECT_FALSE(none.root->has("$prefix_attribute$"));
}

TEST(CDmSerializerBinary, DontSaveAttributesLeaveNoTrace) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  root->setInt("kept", 1);
  root->addElement("scratchElement", "DmeScratch", "scratchName");
  root->find("scratchElement")->setDontSave(true);
  std::string text = asString(mustSave(*root));
  EXPECT_EQ(text.find("scratch"), std::string::npos);
  EXPECT_EQ(text.find("DmeScratch"), std::string::npos);
  DmDocument doc = mustRead(std::vector<uint8_t>(text.begin(), text.end()));
  EXPECT_EQ(doc.elements.size(), 1u);
  EXPECT_EQ(doc.root->attributeCount(), 1u);
}

TEST(CDmSerializerBinary, StringTableHoldsEachTextOnce) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  root->setString("name2", "root");  // a value equal to a name
  root->setString("cut", "a\0b"s);   // only up to the NUL can be written
  root->addElement("e", "DmElement", "a")->setString("cut", "a\0c"s);
  std::string text = asString(mustSave(*root));
  size_t body = text.find('\n') + 2;
  std::string expectedTable =
      "\x06\0\0\0"
      "DmElement\0"
      "root\0"
      "name2\0"
      "cut\0"
      "a\0"
      "e\0"s;
  EXPECT_EQ(text.substr(body + 4, expectedTable.size()), expectedTable);
  DmDocument doc = mustRead(std::vector<uint8_t>(text.begin(), text.end()));
  EXPECT_EQ(doc.root->getString("cut"), "a");
  EXPECT_EQ(doc.root->getElement("e")->getString("cut"), "a");
}

TEST(CDmSerializerBinary, DeepChainsSaveWithoutRecursion) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* tip = root;
  for (int i = 0; i < 200000; ++i) tip = tip->addElement("next", "DmeLink", "link");
  DmDocument doc = mustRead(mustSave(*root));
  ASSERT_EQ(doc.elements.size(), 200001u);
  EXPECT_EQ(doc.elements[1], doc.root->getElement("next"));
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
  DmOutputBuffer binary;
  EXPECT_FALSE(serializeDmx(*root, binary, "keyvalues2", "dmx", 22));
  EXPECT_EQ(capture.text(), "Serialize: File encoding 'keyvalues2' is undefined!\n");
  EXPECT_FALSE(saveDmx(*root, "", "dmx", 22));

  capture.clear();
  EXPECT_FALSE(saveDmx(*root, "binary", "two words", 22));
  EXPECT_FALSE(saveDmx(*root, "binary", "", 22));
  EXPECT_EQ(capture.count("cannot be written into a file header"), 2u);
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
    EXPECT_TRUE(small.hasError());
    EXPECT_LE(small.size(), limit);
  }
}

TEST(DmOutputBuffer, ErrorsStick) {
  DmOutputBuffer buffer(DmOutputBuffer::Mode::Binary, 6);
  buffer.putI32(-2);
  EXPECT_EQ(buffer.bytes(), (std::vector<uint8_t>{0xfe, 0xff, 0xff, 0xff}));
  buffer.putCString("abc");  // needs 4, 2 left
  EXPECT_TRUE(buffer.hasError());
  buffer.putByte(1);  // would fit, but the buffer has failed
  EXPECT_EQ(buffer.size(), 4u);
  EXPECT_EQ(buffer.grow(0), nullptr);
}

}  // namespace
}  // namespace zv::dmx
