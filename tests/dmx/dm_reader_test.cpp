#include "dmx/dm_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "dmx/dm_encoding.h"
#include "dmx/dm_serializer.h"
#include "dmx_test_trees.h"

namespace zv::dmx {
namespace {

using namespace std::string_literals;
using testing::EveryTypeTree;
using testing::mustSave;

std::vector<uint8_t> bytesOf(const std::string& text) {
  return std::vector<uint8_t>(text.begin(), text.end());
}

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

// Reads from a copy of exactly this size, so that the sanitizers see any read past it.
Result<DmDocument> readExact(const std::vector<uint8_t>& bytes, size_t size) {
  auto copy = std::make_unique<uint8_t[]>(size ? size : 1);
  if (size) std::memcpy(copy.get(), bytes.data(), size);
  return readDmx(ByteView(copy.get(), size));
}

// Elements of the same file compare by name; others must have become external stand-ins.
void expectSameReference(const CDmElement& owner, const CDmElement* want, const CDmElement* got) {
  ASSERT_EQ(want == nullptr, got == nullptr);
  if (!want) return;
  if (want->file() == owner.file()) {
    EXPECT_EQ(got->name(), want->name());
    EXPECT_FALSE(got->isExternal());
  } else {
    EXPECT_TRUE(got->isExternal());
  }
}

// Compares every attribute of two elements by type and value, following references by
// name so that cycles do not recurse.
void expectSameAttributes(const CDmElement& want, const CDmElement& got) {
  SCOPED_TRACE(want.name());
  ASSERT_EQ(got.attributeCount(), want.attributeCount());
  for (size_t i = 0; i < want.attributeCount(); ++i) {
    const CDmAttribute& a = want.attribute(i);
    const CDmAttribute& b = got.attribute(i);
    SCOPED_TRACE(a.name());
    ASSERT_EQ(b.name(), a.name());
    ASSERT_EQ(b.type(), a.type());
    if (a.type() == DmType::Element) {
      expectSameReference(want, *a.tryValue<DmType::Element>(), *b.tryValue<DmType::Element>());
    } else if (a.type() == DmType::ElementArray) {
      const auto& xs = *a.tryValue<DmType::ElementArray>();
      const auto& ys = *b.tryValue<DmType::ElementArray>();
      ASSERT_EQ(ys.size(), xs.size());
      for (size_t k = 0; k < xs.size(); ++k) expectSameReference(want, xs[k], ys[k]);
    } else {
      EXPECT_TRUE(a.variant() == b.variant());
    }
  }
}

class EveryTypeRoundTrip : public ::testing::TestWithParam<const char*> {};

TEST_P(EveryTypeRoundTrip, EveryScalarAndArrayTypeComesBack) {
  EveryTypeTree t;
  std::vector<uint8_t> bytes = mustSave(*t.root, GetParam());
  Result<DmDocument> doc = readDmx(ByteView(bytes));
  ASSERT_TRUE(doc.ok()) << doc.message();
  EXPECT_EQ(doc->header.encoding, GetParam());
  EXPECT_EQ(doc->header.encodingVersion, 9);
  EXPECT_EQ(doc->header.format, "dmx");
  EXPECT_EQ(doc->header.formatVersion, 22);
  EXPECT_TRUE(doc->header.nulAfterHeader);

  // Root, then child; the prefix element is only in the prefix block.
  ASSERT_EQ(doc->elements.size(), 2u);
  const CDmElement& root = *doc->root;
  EXPECT_EQ(root.type(), "DmElement");
  EXPECT_EQ(root.name(), "root");
  // The root read back has its file attributes in order, then the prefix link.
  ASSERT_EQ(root.attributeCount(), t.root->attributeCount());
  EXPECT_EQ(root.attribute(root.attributeCount() - 1).name(), "$prefix_attribute$");

  EveryTypeTree expected;
  expected.root->removeAttribute("$prefix_attribute$");
  expected.root->setElement("$prefix_attribute$", expected.prefix);
  expectSameAttributes(*expected.root, root);
  expectSameAttributes(*expected.child, *doc->elements[1]);
  expectSameAttributes(*expected.prefix, *doc->prefix);
  EXPECT_EQ(doc->elements[1]->getElement("back"), doc->root);

  const auto& refs = root.getElementArray("element_array");
  EXPECT_EQ(refs[0], doc->elements[1]);
  EXPECT_EQ(refs[3], doc->elements[1]);
  ASSERT_TRUE(refs[2] && refs[2]->isExternal());
  EXPECT_EQ(doc->externals, std::vector<CDmElement*>{refs[2]});
  // Reading and saving again gives the same bytes.
  EXPECT_EQ(mustSave(root, GetParam()), bytes);
}

INSTANTIATE_TEST_SUITE_P(BothVariants, EveryTypeRoundTrip, ::testing::Values("binary", "binary_seqids"));

TEST(ReadDmx, FloatBitsSurviveIncludingNaNAndNegativeZero) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  uint32_t nanBits = 0x7fc00123u;
  float nan;
  std::memcpy(&nan, &nanBits, 4);
  root->floatArray("f") = {-0.f, nan, std::numeric_limits<float>::infinity(),
                           std::numeric_limits<float>::denorm_min()};
  Result<DmDocument> doc = readDmx(ByteView(mustSave(*root)));
  ASSERT_TRUE(doc.ok());
  const auto& f = doc->root->getFloatArray("f");
  ASSERT_EQ(f.size(), 4u);
  EXPECT_TRUE(std::signbit(f[0]));
  uint32_t bits;
  std::memcpy(&bits, &f[1], 4);
  EXPECT_EQ(bits, nanBits);
  EXPECT_EQ(f[3], std::numeric_limits<float>::denorm_min());
}

TEST(ReadDmx, AcceptsAHeaderWithoutTheZeroByte) {
  // One file whose body starts with a zero (no prefix), one with a prefix.
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  root->setInt("x", 5);
  for (bool withPrefix : {false, true}) {
    if (withPrefix) root->addElement("$prefix_attribute$", "DmElement", "p")->setInt("fps", 30);
    std::vector<uint8_t> bytes = mustSave(*root);
    size_t nul = std::find(bytes.begin(), bytes.end(), '\n') - bytes.begin() + 1;
    ASSERT_EQ(bytes.at(nul), 0);
    bytes.erase(bytes.begin() + static_cast<ptrdiff_t>(nul));
    Result<DmDocument> doc = readDmx(ByteView(bytes));
    ASSERT_TRUE(doc.ok()) << doc.message();
    EXPECT_FALSE(doc->header.nulAfterHeader);
    EXPECT_EQ(doc->root->getInt("x"), 5);
    EXPECT_EQ(doc->prefix != nullptr, withPrefix);
  }
}

TEST(ReadDmx, RejectsOtherHeadersAndEncodings) {
  const std::string body = i32(0) + i32(0) + i32(0);
  struct Case {
    std::string header;
    const char* expect;
  } cases[] = {
      {"", "no \"<!-- dmx ... -->\" header line"},
      {"<!-- dmx encoding binary 9 format dmx 22 -->", "no \"<!-- dmx"},  // no line end
      {"<!-- dmx encoding binary 9 format dmx -->\n", "malformed header line"},
      {"<!-- dmxx encoding binary 9 format dmx 22 -->\n", "malformed header line"},
      {"<!-- dmx encoding binary x9 format dmx 22 -->\n", "malformed header line"},
      {"<!-- dmx encoding binary 9 format dmx 22 --!\n", "malformed header line"},
      {"<!-- dmx encoding keyvalues2 1 format dmx 22 -->\n", "encoding \"keyvalues2\" version 1"},
      {"<!-- dmx encoding binary 5 format dmx 22 -->\n", "encoding \"binary\" version 5"},
      {"<!-- xml -->\n", "no \"<!-- dmx"},
  };
  for (const Case& c : cases) {
    Result<DmDocument> doc = readDmx(ByteView(bytesOf(c.header + body)));
    ASSERT_FALSE(doc.ok()) << c.header;
    EXPECT_NE(doc.message().find(c.expect), std::string::npos) << doc.message();
  }
  // An empty element list is a valid, if empty, file.
  Result<DmDocument> empty =
      readDmx(ByteView(bytesOf("<!-- dmx encoding binary 9 format x 1 -->\n"s + '\0' + body)));
  ASSERT_TRUE(empty.ok()) << empty.message();
  EXPECT_EQ(empty->root, nullptr);
}

// A hand-made body after a valid header, to aim at one check at a time.
Result<DmDocument> readBody(const std::string& body) {
  return readDmx(ByteView(bytesOf("<!-- dmx encoding binary_seqids 9 format dmx 22 -->\n"s + '\0' + body)));
}
constexpr size_t kBody = 53;  // header line, its newline and the zero byte

TEST(ReadDmx, ErrorsNameTheProblemAndItsOffset) {
  auto at = [](size_t offset) { return " at offset " + std::to_string(kBody + offset); };
  const std::string oneAttribute = kOneElement + i32(1) + i32(0);  // named "T"; type and value follow
  struct Case {
    std::string body;
    std::string expect;
  } cases[] = {
      {i32(2), "prefix flag 2 is neither 0 nor 1" + at(0)},
      {i32(0) + i32(0x7fffffff), "string count 2147483647 is impossible with 0 bytes left" + at(4)},
      {i32(0) + i32(1) + "abc", "unterminated string in string table" + at(8)},
      {i32(0) + i32(0) + i32(1), "element count 1 is impossible"},
      {i32(0) + i32(1) + cstr("T") + i32(1) + i32(5) + i32(0) + std::string(16, '\0'),
       "element type 5 is outside the string table of 1" + at(14)},
      {kOneElement + i32(1) + i32(2) + byte(2) + i32(0),
       "attribute name 2 is outside the string table of 2" + at(44)},
      {oneAttribute + byte(17) + byte(0), "unknown attribute type id 17" + at(48)},
      {oneAttribute + byte(1) + i32(1), "element reference 1 is outside the element list of 1" + at(49)},
      {oneAttribute + byte(1) + i32(-3), "element reference -3 is outside"},
      {oneAttribute + byte(34) + i32(5) + i32(0), "array count 5 is impossible"},
      {oneAttribute + byte(6) + i32(-1), "binary length -1 is impossible"},
      {oneAttribute + byte(10) + std::string(11, '\0'), "unexpected end of data reading value"},
      {kOneElement + i32(0) + "X", "1 unexpected bytes after the last attribute" + at(44)},
      {i32(1) + i32(1) + cstr("fps") + byte(1) + i32(0), "prefix attribute \"fps\" refers to elements"},
  };
  for (const Case& c : cases) {
    Result<DmDocument> doc = readBody(c.body);
    ASSERT_FALSE(doc.ok()) << c.expect;
    EXPECT_NE(doc.message().find(c.expect), std::string::npos) << doc.message() << "\nwanted: " << c.expect;
  }
  Result<DmDocument> fine = readBody(oneAttribute + byte(2) + i32(9));
  ASSERT_TRUE(fine.ok()) << fine.message();
  EXPECT_EQ(fine->root->getInt("T"), 9);
  EXPECT_EQ(fine->root->id(), DmElementId::fromNumber(1));
}

TEST(ReadDmx, AttributeErrorsSayWhichAttribute) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  root->addElement("child", "DmeX", "x")->intArray("faces") = {1, 2, 3};
  std::vector<uint8_t> bytes = mustSave(*root);
  Result<DmDocument> doc = readExact(bytes, bytes.size() - 1);
  ASSERT_FALSE(doc.ok());
  EXPECT_NE(doc.message().find("(attribute \"faces\" of element 1)"), std::string::npos) << doc.message();
}

TEST(ReadDmx, EveryTruncationIsACleanError) {
  EveryTypeTree t;
  for (const char* encoding : {"binary", "binary_seqids"}) {
    std::vector<uint8_t> bytes = mustSave(*t.root, encoding);
    for (size_t size = 0; size < bytes.size(); ++size) {
      Result<DmDocument> doc = readExact(bytes, size);
      ASSERT_FALSE(doc.ok()) << "prefix of " << size << " bytes was accepted";
      EXPECT_NE(doc.message().find("DMX: "), std::string::npos);
    }
    EXPECT_TRUE(readExact(bytes, bytes.size()).ok());
  }
}

TEST(ReadDmx, GarbageNeverCrashes) {
  EveryTypeTree t;
  const std::vector<uint8_t> valid = mustSave(*t.root);
  const size_t body = readDmxHeader(ByteView(valid))->bodyOffset;
  // Every byte of the body set to values that hit sign bits, counts and type ids. What
  // the reader accepts must be a tree the writer can save and the reader read again.
  for (size_t pos = body; pos < valid.size(); ++pos) {
    for (uint8_t value : {uint8_t{0x00}, uint8_t{0x7f}, uint8_t{0xff}}) {
      std::vector<uint8_t> bytes = valid;
      bytes[pos] = value;
      Result<DmDocument> doc = readExact(bytes, bytes.size());
      if (!doc || !doc->root) continue;
      std::vector<uint8_t> again = mustSave(*doc->root);
      ASSERT_TRUE(readDmx(ByteView(again)).ok()) << "byte " << pos << " set to " << int(value);
    }
  }
  // Random bodies behind a valid header.
  std::mt19937 random(12345);  // fixed seed: the same cases every run
  std::string header = "<!-- dmx encoding binary 9 format dmx 22 -->\n"s + '\0';
  for (int round = 0; round < 2000; ++round) {
    std::vector<uint8_t> bytes(header.begin(), header.end());
    size_t length = random() % 200;
    for (size_t i = 0; i < length; ++i)
      bytes.push_back(static_cast<uint8_t>(random() % 4 ? random() % 4 : random()));
    Result<DmDocument> doc = readExact(bytes, bytes.size());
    if (!doc) {
      EXPECT_NE(doc.message().find(" at offset "), std::string::npos) << doc.message();
    }
  }
}

TEST(ReadDmx, HostileCountsAllocateNothingLarge) {
  // Counts that the bytes left cannot hold are refused before anything is reserved.
  for (uint8_t arrayType = 33; arrayType <= 48; ++arrayType) {
    std::string body = kOneElement + i32(1) + i32(0) + byte(arrayType) + i32(0x7fffffff);
    Result<DmDocument> doc = readBody(body + std::string(64, '\0'));
    ASSERT_FALSE(doc.ok());
    EXPECT_NE(doc.message().find("array count 2147483647 is impossible"), std::string::npos) << doc.message();
  }
  Result<DmDocument> attrs = readBody(kOneElement + i32(0x0fffffff) + std::string(64, '\0'));
  ASSERT_FALSE(attrs.ok());
  EXPECT_NE(attrs.message().find("attribute count 268435455 is impossible"), std::string::npos);
}

TEST(ReadDmx, ExternalReferencesKeepTheirTextOncePerText) {
  const std::string id10 = cstr("{0000000A-0000-0000-0000-000000000000}");
  std::string body = kOneElement + i32(1) + i32(0) + byte(33) + i32(3) + i32(-2) + id10 + i32(-2) +
                     cstr("some other text") + i32(-2) + id10;
  Result<DmDocument> doc = readBody(body);
  ASSERT_TRUE(doc.ok()) << doc.message();
  const auto& refs = doc->root->getElementArray("T");
  ASSERT_EQ(refs.size(), 3u);
  EXPECT_EQ(refs[0], refs[2]);
  EXPECT_EQ(refs[0]->id(), DmElementId::fromNumber(10));
  EXPECT_EQ(refs[1]->externalIdText(), "some other text");
  EXPECT_EQ(doc->externals.size(), 2u);
}

}  // namespace
}  // namespace zv::dmx
