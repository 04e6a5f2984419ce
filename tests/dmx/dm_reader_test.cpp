#include "dmx/dm_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "dmx_test_trees.h"

namespace zv::dmx {
namespace {

using namespace std::string_literals;
using testing::asString;
using testing::EveryTypeTree;
using testing::mustSave;

// Pieces of hand-made bodies.
std::string i32(int32_t value) {
  std::string bytes(4, '\0');
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<char>(static_cast<uint32_t>(value) >> (8 * i));
  return bytes;
}
std::string cstr(std::string_view text) { return std::string(text) + '\0'; }
std::string byte(uint8_t value) { return std::string(1, static_cast<char>(value)); }
// No prefix, strings "T" and "n", one element T "n" with id 1; its attribute block follows.
const std::string kOneElement =
    i32(0) + i32(2) + cstr("T") + cstr("n") + i32(1) + i32(0) + i32(1) + i32(1) + std::string(12, '\0');
const std::string kHeader = "<!-- dmx encoding binary_seqids 9 format dmx 22 -->\n"s + '\0';

// Reads from a copy of exactly this size, so that the sanitizers see any read past it.
Result<DmDocument> readExact(const std::string& bytes, size_t size) {
  auto copy = std::make_unique<uint8_t[]>(size ? size : 1);
  if (size) std::memcpy(copy.get(), bytes.data(), size);
  return readDmx(ByteView(copy.get(), size));
}
Result<DmDocument> readText(const std::string& bytes) { return readExact(bytes, bytes.size()); }

// Every attribute has the same name and type, and every value but references the same
// value; references are checked one by one.
void expectSameValues(const CDmElement& want, const CDmElement& got) {
  ASSERT_EQ(got.attributeCount(), want.attributeCount());
  for (size_t i = 0; i < want.attributeCount(); ++i) {
    const CDmAttribute& a = want.attribute(i);
    const CDmAttribute& b = got.attribute(i);
    SCOPED_TRACE(a.name());
    EXPECT_EQ(b.name(), a.name());
    EXPECT_EQ(b.type(), a.type());
    EXPECT_TRUE(scalarOf(a.type()) == DmType::Element || a.variant() == b.variant());
  }
}

class EveryTypeRoundTrip : public ::testing::TestWithParam<const char*> {};

TEST_P(EveryTypeRoundTrip, EveryScalarAndArrayTypeComesBack) {
  EveryTypeTree t;
  std::vector<uint8_t> bytes = mustSave(*t.root, GetParam());
  DmDocument doc = testing::mustRead(bytes);
  EXPECT_EQ(doc.header.encoding, GetParam());
  ASSERT_EQ(doc.elements.size(), 2u);  // root and child; the prefix is only in the prefix block

  // The root read back has its file attributes in order, then the prefix link.
  t.root->removeAttribute("$prefix_attribute$");
  t.root->setElement("$prefix_attribute$", t.prefix);
  expectSameValues(*t.root, *doc.root);
  expectSameValues(*t.child, *doc.elements[1]);
  expectSameValues(*t.prefix, *doc.prefix);
  EXPECT_EQ(doc.elements[1]->getElement("back"), doc.root);
  EXPECT_EQ(doc.root->getElement("element"), doc.elements[1]);
  EXPECT_EQ(doc.root->getElement("nothing"), nullptr);
  const auto& refs = doc.root->getElementArray("element_array");
  ASSERT_EQ(doc.externals.size(), 1u);
  EXPECT_EQ(refs, (std::vector<CDmElement*>{doc.elements[1], nullptr, doc.externals[0], doc.elements[1]}));
  // Reading and saving again gives the same bytes.
  EXPECT_EQ(mustSave(*doc.root, GetParam()), bytes);
}

INSTANTIATE_TEST_SUITE_P(BothVariants, EveryTypeRoundTrip, ::testing::Values("binary", "binary_seqids"));

TEST(ReadDmx, AcceptsAHeaderWithoutTheZeroByte) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  for (bool withPrefix : {false, true}) {  // a body that starts with a zero, and one that does not
    if (withPrefix) root->addElement("$prefix_attribute$", "DmElement", "p")->setInt("fps", 30);
    std::string bytes = asString(mustSave(*root));
    Result<DmDocument> doc = readText(bytes.erase(kHeader.size() - 1, 1));
    ASSERT_TRUE(doc.ok()) << doc.message();
    EXPECT_FALSE(doc->header.nulAfterHeader);
    EXPECT_EQ(doc->prefix != nullptr, withPrefix);
  }
}

TEST(ReadDmx, ErrorsNameTheProblemAndItsOffset) {
  auto at = [](size_t offset) { return " at offset " + std::to_string(kHeader.size() + offset); };
  const std::string oneAttribute = kOneElement + i32(1) + i32(0);  // named "T"; type and value follow
  const std::string body = i32(0) + i32(0) + i32(0);
  struct Case {
    std::string bytes;
    std::string expect;
  } cases[] = {
      {"", "DMX: no \"<!-- dmx ... -->\" header line at offset 0"},
      {"<!-- dmx encoding binary 9 format dmx -->\n" + body, "malformed header line"},
      {"<!-- dmx encoding keyvalues2 1 format dmx 22 -->\n" + body,
       "DMX: encoding \"keyvalues2\" version 1 is not readable here (binary or binary_seqids, version 9)"},
      {"<!-- dmx encoding binary 5 format dmx 22 -->\n" + body, "encoding \"binary\" version 5"},
      {kHeader + i32(2), "prefix flag 2 is neither 0 nor 1" + at(0)},
      {kHeader + i32(0) + i32(0x7fffffff), "string count 2147483647 is impossible with 0 bytes left" + at(4)},
      {kHeader + i32(0) + i32(1) + "abc", "unterminated string in string table" + at(8)},
      {kHeader + i32(0) + i32(0) + i32(1), "element count 1 is impossible"},
      {kHeader + i32(0) + i32(1) + cstr("T") + i32(1) + i32(5) + i32(0) + std::string(16, '\0'),
       "element type 5 is outside the string table of 1" + at(14)},
      {kHeader + kOneElement + i32(1) + i32(2) + byte(2) + i32(0),
       "attribute name 2 is outside the string table of 2" + at(44)},
      {kHeader + kOneElement + i32(0x0fffffff) + std::string(64, '\0'),
       "attribute count 268435455 is impossible"},
      {kHeader + oneAttribute + byte(17) + byte(0), "unknown attribute type id 17" + at(48)},
      {kHeader + oneAttribute + byte(1) + i32(1),
       "element reference 1 is outside the element list of 1" + at(49)},
      {kHeader + oneAttribute + byte(1) + i32(-3), "element reference -3 is outside"},
      {kHeader + oneAttribute + byte(6) + i32(-1), "binary length -1 is impossible"},
      {kHeader + kOneElement + i32(0) + "X", "1 unexpected bytes after the last attribute" + at(44)},
      {kHeader + i32(1) + i32(1) + cstr("fps") + byte(1) + i32(0),
       "prefix attribute \"fps\" refers to elements"},
  };
  for (const Case& c : cases) {
    Result<DmDocument> doc = readText(c.bytes);
    ASSERT_FALSE(doc.ok()) << c.expect;
    EXPECT_NE(doc.message().find(c.expect), std::string::npos) << doc.message() << "\nwanted: " << c.expect;
  }
  // Counts the bytes left cannot hold are refused before anything is reserved, for every array type.
  for (uint8_t arrayType = 33; arrayType <= 48; ++arrayType) {
    Result<DmDocument> doc = readText(kHeader + oneAttribute + byte(arrayType) + i32(0x7fffffff) + i32(0));
    ASSERT_FALSE(doc.ok());
    EXPECT_NE(doc.message().find("array count 2147483647 is impossible"), std::string::npos) << doc.message();
  }
  // References to other files keep their text, one stand-in per text.
  const std::string id10 = cstr("{0000000A-0000-0000-0000-000000000000}");
  Result<DmDocument> doc = readText(kHeader + oneAttribute + byte(33) + i32(3) + i32(-2) + id10 + i32(-2) +
                                    cstr("some other text") + i32(-2) + id10);
  ASSERT_TRUE(doc.ok()) << doc.message();
  const auto& refs = doc->root->getElementArray("T");
  ASSERT_EQ(refs.size(), 3u);
  EXPECT_EQ(refs[0], refs[2]);
  EXPECT_EQ(refs[0]->id(), DmElementId::fromNumber(10));
  EXPECT_EQ(refs[1]->externalIdText(), "some other text");
  EXPECT_EQ(doc->externals.size(), 2u);
}

TEST(ReadDmx, EveryTruncationIsACleanError) {
  EveryTypeTree t;
  for (const char* encoding : {"binary", "binary_seqids"}) {
    std::string bytes = asString(mustSave(*t.root, encoding));
    for (size_t size = 0; size < bytes.size(); ++size) {
      Result<DmDocument> doc = readExact(bytes, size);
      ASSERT_FALSE(doc.ok()) << "prefix of " << size << " bytes was accepted";
      EXPECT_EQ(doc.message().rfind("DMX: ", 0), 0u) << doc.message();
    }
    // Errors inside an attribute name it and its element.
    Result<DmDocument> cut = readExact(bytes, bytes.size() - 1);
    EXPECT_NE(cut.message().find("(attribute \"back\" of element 1)"), std::string::npos) << cut.message();
  }
}

TEST(ReadDmx, GarbageNeverCrashes) {
  EveryTypeTree t;
  const std::string valid = asString(mustSave(*t.root));
  // Every byte of the body set to values that hit sign bits, counts and type ids. What
  // the reader accepts must be a tree the writer can save and the reader read again.
  for (size_t pos = kHeader.size(); pos < valid.size(); ++pos) {
    for (char value : {'\x00', '\x7f', '\xff'}) {
      std::string bytes = valid;
      bytes[pos] = value;
      Result<DmDocument> doc = readText(bytes);
      if (doc && doc->root) {
        ASSERT_TRUE(readDmx(ByteView(mustSave(*doc->root))).ok())
            << "byte " << pos << " set to " << int(value);
      }
    }
  }
  // Random bodies behind a valid header.
  std::mt19937 random(12345);  // fixed seed: the same cases every run
  for (int round = 0; round < 2000; ++round) {
    std::string bytes = kHeader;
    for (size_t i = 0, length = random() % 200; i < length; ++i)
      bytes += static_cast<char>(random() % 4 ? random() % 4 : random());
    Result<DmDocument> doc = readText(bytes);
    EXPECT_TRUE(doc || doc.message().find(" at offset ") != std::string::npos) << doc.message();
  }
}

}  // namespace
}  // namespace zv::dmx
