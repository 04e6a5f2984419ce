#include "kv/kv3.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "kv/kv3_external_check.h"

namespace zv {
namespace {

const Kv3Header kHeader{{"text", "{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d}"},
                        {"modeldoc41", "12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0"}};
const char* const kHeaderLine =
    "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
    "format:modeldoc41:version{12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0} -->\n";

std::string writeOk(const Kv3Value& root) {
  Result<std::string> text = writeKv3Text(root, kHeader);
  EXPECT_TRUE(text.ok()) << (text.ok() ? "" : text.message());
  return text.ok() ? *text : std::string();
}

Kv3Value readOk(std::string_view text) {
  Result<Kv3Document> doc = readKv3Text(text);
  EXPECT_TRUE(doc.ok()) << (doc.ok() ? "" : doc.message());
  return doc.ok() ? doc->root : Kv3Value();
}

Kv3Value sampleTree() {
  Kv3Value root = Kv3Value::makeObject();
  root.set("name", "demo");
  root.set("count", 3);
  root.set("enabled", true);
  root.set("nothing", nullptr);
  root.set("ratio", 0.5f);
  root.set("origin", Kv3Value::makeArray({1.0f, 2.5f, -3.0f}));
  root.set("empty_list", Kv3Value::makeArray());
  root.set("empty_obj", Kv3Value::makeObject());
  root.set("needs quotes", "x");
  root.set("2d", 1);
  root.set("big", Kv3Value::makeArray({1, 2, 3, 4, 5}));
  Kv3Value items = Kv3Value::makeArray();
  items.push(Kv3Value::makeObject({{"a", 1}}));
  items.push("s");
  items.push(Kv3Value::makeArray({1.0f, 2.0f}));
  items.push(Kv3Value::makeObject());
  items.push(Kv3Value::makeArray());
  root.set("items", std::move(items));
  root.set("nested", Kv3Value::makeObject({{"inner", Kv3Value::makeObject({{"deep", "v"}})}}));
  return root;
}

TEST(Kv3Values, SetReplacesInPlaceAndContainersRefuseTheWrongUse) {
  Kv3Value object;
  ASSERT_TRUE(object.set("a", 1));
  ASSERT_TRUE(object.set("b", 2));
  ASSERT_TRUE(object.set("a", "again"));
  ASSERT_EQ(object.members().size(), 2u);
  EXPECT_EQ(object.members()[0].key, "a");
  EXPECT_EQ(object.members()[0].value.asString(), "again");
  EXPECT_FALSE(object.push(3));  // an object is not an array
  Kv3Value array;
  ASSERT_TRUE(array.push(1.5f));
  EXPECT_FALSE(array.set("k", 1));
  Kv3Value scalar(7);
  EXPECT_FALSE(scalar.push(1));
  EXPECT_FALSE(scalar.set("k", 1));
  EXPECT_EQ(scalar, Kv3Value(7));
}

TEST(Kv3Values, AccessorsAnswerNeutralValuesForOtherTypes) {
  Kv3Value text("12");
  EXPECT_EQ(text.asInt(), 0);
  EXPECT_EQ(text.asDouble(), 0.0);
  EXPECT_FALSE(text.asBool());
  EXPECT_TRUE(text.elements().empty());
  EXPECT_EQ(text.find("x"), nullptr);
  EXPECT_EQ(Kv3Value(3).asString(), "");
  EXPECT_EQ(Kv3Value(3).asFloat(), 3.0f);
  EXPECT_EQ(Kv3Value(2.5).asFloat(), 2.5f);
  EXPECT_TRUE(Kv3Value(static_cast<const char*>(nullptr)).isNull());
  // Numbers of different kinds are different values.
  EXPECT_NE(Kv3Value(1), Kv3Value(1.0f));
  EXPECT_NE(Kv3Value(1.0f), Kv3Value(1.0));
}

TEST(Kv3Writer, LaysOutASmallTreeExactly) {
  std::string expected = std::string(kHeaderLine) +
                         "{\n"
                         "\tname = \"demo\"\n"
                         "\tcount = 3\n"
                         "\tenabled = true\n"
                         "\tnothing = null\n"
                         "\tratio = 0.5\n"
                         "\torigin = [ 1.0, 2.5, -3.0 ]\n"
                         "\tempty_list = [ ]\n"
                         "\tempty_obj = { }\n"
                         "\t\"needs quotes\" = \"x\"\n"
                         "\t\"2d\" = 1\n"
                         "\tbig = \n"
                         "\t[\n"
                         "\t\t1,\n\t\t2,\n\t\t3,\n\t\t4,\n\t\t5,\n"
                         "\t]\n"
                         "\titems = \n"
                         "\t[\n"
                         "\t\t{\n"
                         "\t\t\ta = 1\n"
                         "\t\t},\n"
                         "\t\t\"s\",\n"
                         "\t\t[ 1.0, 2.0 ],\n"
                         "\t\t{ },\n"
                         "\t\t[ ],\n"
                         "\t]\n"
                         "\tnested = \n"
                         "\t{\n"
                         "\t\tinner = \n"
                         "\t\t{\n"
                         "\t\t\tdeep = \"v\"\n"
                         "\t\t}\n"
                         "\t}\n"
                         "}\n";
  EXPECT_EQ(writeOk(sampleTree()), expected);
}

TEST(Kv3Writer, OnlySmallNumericOrBoolArraysStayOnOneLine) {
  Kv3Value root = Kv3Value::makeObject();
  root.set("four", Kv3Value::makeArray({true, 1, 2.0f, false}));
  root.set("strings", Kv3Value::makeArray({"a"}));
  root.set("mixed", Kv3Value::makeArray({1, "b"}));
  EXPECT_EQ(writeOk(root), std::string(kHeaderLine) +
                               "{\n"
                               "\tfour = [ true, 1, 2.0, false ]\n"
                               "\tstrings = \n\t[\n\t\t\"a\",\n\t]\n"
                               "\tmixed = \n\t[\n\t\t1,\n\t\t\"b\",\n\t]\n"
                               "}\n");
}

TEST(Kv3Writer, EmptyRootObject) {
  EXPECT_EQ(writeOk(Kv3Value::makeObject()), std::string(kHeaderLine) + "{\n}\n");
}

TEST(Kv3Numbers, FloatsUseTheShortestRoundTripFormWithAPointOrExponent) {
  EXPECT_EQ(formatKv3Float(1.0f), "1.0");
  EXPECT_EQ(formatKv3Float(0.1f), "0.1");
  EXPECT_EQ(formatKv3Float(0.5f), "0.5");
  EXPECT_EQ(formatKv3Float(1e-8f), "1e-08");
  EXPECT_EQ(formatKv3Float(-180.f), "-180.0");
  EXPECT_EQ(formatKv3Float(3.4028235e38f), "3.4028235e+38");
  EXPECT_EQ(formatKv3Float(16777216.f), "16777216.0");
  EXPECT_EQ(formatKv3Float(-0.0f), "-0.0");
  EXPECT_EQ(formatKv3Float(1e20f), "1e+20");
  EXPECT_EQ(formatKv3Float(123456.7f), "123456.7");
  EXPECT_EQ(formatKv3Float(std::numeric_limits<float>::denorm_min()), "1e-45");
  EXPECT_EQ(formatKv3Double(0.1), "0.1");
  EXPECT_EQ(formatKv3Double(2.0), "2.0");
}

TEST(Kv3Numbers, EveryFormattedFloatReadsBackToTheSameBits) {
  uint32_t state = 12345;
  int checked = 0;
  for (int i = 0; i < 200000; ++i) {
    state = state * 1664525u + 1013904223u;
    float value = std::bit_cast<float>(state);
    if (!std::isfinite(value)) continue;
    std::string text = formatKv3Float(value);
    ASSERT_NE(text.find_first_of(".e"), std::string::npos) << text;
    float back = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), back);
    ASSERT_TRUE(ec == std::errc() && end == text.data() + text.size()) << text;
    ASSERT_EQ(std::bit_cast<uint32_t>(back), state) << text;
    ++checked;
  }
  EXPECT_GT(checked, 190000);
}

TEST(Kv3Writer, StringsAndKeysAreEscaped) {
  Kv3Value root = Kv3Value::makeObject();
  root.set("s", "a\"b\\c\nd\te\rf");
  root.set("bare_key.x", 1);
  root.set("", 2);
  root.set("a-b", 3);
  root.set("say \"hi\"", 4);
  root.set("_x9", 5);
  EXPECT_EQ(writeOk(root), std::string(kHeaderLine) +
                               "{\n"
                               "\ts = \"a\\\"b\\\\c\\nd\\te\\rf\"\n"
                               "\tbare_key.x = 1\n"
                               "\t\"\" = 2\n"
                               "\t\"a-b\" = 3\n"
                               "\t\"say \\\"hi\\\"\" = 4\n"
                               "\t_x9 = 5\n"
                               "}\n");
}

TEST(Kv3Writer, TextThatIsNotUtf8IsTakenAsLatin1) {
  struct Case {
    std::string in;
    std::string out;
  };
  const std::vector<Case> cases = {
      {"caf\xc3\xa9", "caf\xc3\xa9"},                // valid UTF-8 stays
      {"caf\xe9", "caf\xc3\xa9"},                    // Latin-1 e-acute
      {"\xc0\x80", "\xc3\x80\xc2\x80"},              // overlong NUL
      {"\xed\xa0\x80", "\xc3\xad\xc2\xa0\xc2\x80"},  // surrogate
      {"\xe2\x82", "\xc3\xa2\xc2\x82"},              // cut sequence
      {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},      // four-byte sequence stays
  };
  for (const Case& c : cases) {
    Kv3Value root = Kv3Value::makeObject({{"s", c.in}});
    std::string text = writeOk(root);
    EXPECT_NE(text.find("s = \"" + c.out + "\"\n"), std::string::npos) << text;
    EXPECT_EQ(readOk(text).find("s")->asString(), c.out);
  }
}

TEST(Kv3Writer, RefusesWhatCannotBeWritten) {
  auto fails = [](const Kv3Value& root, const Kv3Header& header, const char* part) {
    Result<std::string> text = writeKv3Text(root, header);
    ASSERT_FALSE(text.ok()) << part;
    EXPECT_NE(text.message().find(part), std::string::npos) << text.message();
  };
  Kv3Value nan = Kv3Value::makeObject({{"v", std::numeric_limits<float>::quiet_NaN()}});
  fails(nan, kHeader, "non-finite");
  Kv3Value inf =
      Kv3Value::makeObject({{"v", Kv3Value::makeArray({1.0, std::numeric_limits<double>::infinity()})}});
  fails(inf, kHeader, "non-finite");
  Kv3Header badName = kHeader;
  badName.encoding.name = "te xt";
  fails(Kv3Value::makeObject(), badName, "invalid encoding or format");
  Kv3Header badGuid = kHeader;
  badGuid.format.guid = "12FC9D44-453A-4AE4-B4D9-7E2AC0BBD4E0";
  fails(Kv3Value::makeObject(), badGuid, "invalid encoding or format");
}

// levels arrays inside each other, the innermost empty (written inline as "[ ]").
Kv3Value nestedArrays(int levels) {
  Kv3Value value = Kv3Value::makeArray();
  for (int i = 1; i < levels; ++i) {
    Kv3Value outer = Kv3Value::makeArray();
    outer.push(std::move(value));
    value = std::move(outer);
  }
  return value;
}

TEST(Kv3Writer, NestingLimitMatchesTheReader) {
  Result<std::string> atLimit = writeKv3Text(nestedArrays(kKv3MaxDepth), kHeader);
  ASSERT_TRUE(atLimit.ok()) << atLimit.message();
  EXPECT_TRUE(readKv3Text(*atLimit).ok());
  Result<std::string> over = writeKv3Text(nestedArrays(kKv3MaxDepth + 1), kHeader);
  ASSERT_FALSE(over.ok());
  EXPECT_NE(over.message().find("nested deeper"), std::string::npos);
}

TEST(Kv3Reader, ReadsBackWhatWasWritten) {
  Kv3Value tree = Kv3Value::makeObject();
  tree.set("i", -42);
  tree.set("big", int64_t{9007199254740993});
  tree.set("b", false);
  tree.set("n", nullptr);
  tree.set("s", "line1\nline2\t\"q\"\\");
  tree.set("quoted key", Kv3Value::makeArray({"x", Kv3Value::makeObject({{"k", true}})}));
  tree.set("grid", Kv3Value::makeArray({Kv3Value::makeArray({1, 2}), Kv3Value::makeArray({3, 4})}));
  Kv3Value back = readOk(writeOk(tree));
  EXPECT_EQ(back, tree);
  // Member order is kept.
  ASSERT_EQ(back.members().size(), 7u);
  EXPECT_EQ(back.members()[5].key, "quoted key");
}

TEST(Kv3Reader, FloatsReadBackAsTheSameText) {
  std::string text = writeOk(sampleTree());
  Result<Kv3Document> doc = readKv3Text(text);
  ASSERT_TRUE(doc.ok()) << doc.message();
  EXPECT_EQ(doc->header.encoding.name, "text");
  EXPECT_EQ(doc->header.encoding.guid, "e21c7f3c-8a33-41c5-9977-a76d3a32aa0d");
  EXPECT_EQ(doc->header.format.name, "modeldoc41");
  EXPECT_EQ(doc->header.format.guid, "12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0");
  EXPECT_FLOAT_EQ(doc->root.find("origin")->elements()[2].asFloat(), -3.0f);
  EXPECT_EQ(writeOk(doc->root), text);
}

TEST(Kv3Reader, AcceptsCommentsMultiLineStringsAndLooseSpacing) {
  std::string text = std::string(kHeaderLine) +
                     "// leading\n{ /* block\n comment */ a=1 b = [1,2,] c = [ .5, -0, 1e5, 2E-3 ]\n"
                     "  d = \"\"\"\nfirst\nsecond\n\"\"\"\n  e = { }  }\n// trailing";
  Kv3Value root = readOk(text);
  EXPECT_EQ(root.find("a")->asInt(), 1);
  EXPECT_EQ(root.find("b")->size(), 2u);
  const Kv3Value::Array& c = root.find("c")->elements();
  ASSERT_EQ(c.size(), 4u);
  EXPECT_EQ(c[0].type(), Kv3Value::Type::Double);
  EXPECT_EQ(c[1].type(), Kv3Value::Type::Int);
  EXPECT_DOUBLE_EQ(c[2].asDouble(), 1e5);
  EXPECT_DOUBLE_EQ(c[3].asDouble(), 2e-3);
  EXPECT_EQ(root.find("d")->asString(), "first\nsecond");
  EXPECT_TRUE(root.find("e")->isObject());
}

TEST(Kv3Reader, MalformedTextFailsWithALineNumber) {
  struct Case {
    std::string body;
    const char* part;
  };
  const std::vector<Case> cases = {
      {"{\n a = 1\n a = 2\n}", "line 4: duplicate key 'a'"},
      {"{\n a = 1,\n}", "line 3: comma after an object member"},
      {"{\n a = [ 1 2 ]\n}", "line 3: expected ',' or ']'"},
      {"{\n a = \"open\n}", "line 3: newline inside a string"},
      {"{ a = \"open", "line 2: unterminated string"},
      {"{ a = \"\\q\" }", "bad escape"},
      {"{ a = yes }", "bare word 'yes'"},
      {"{ a = 1.2.3 }", "malformed number"},
      {"{ a = 12abc }", "malformed number"},
      {"{ a = - }", "malformed number"},
      {"{ a = 99999999999999999999 }", "number out of range"},
      {"{ a = 1e999 }", "number out of range"},
      {"{\n a = ", "line 3: unexpected end of text"},
      {"{ a = 1 } /* open", "unterminated comment"},
      {"{ a = #[ 00 01 ] }", "binary blobs"},
      {"{ a = resource:\"x\" }", "typed values"},
      {"{ 1a = 1 }", "bad key"},
      {"{ a 1 }", "expected '=' after key 'a'"},
      {"{ }\n{ }", "line 3: trailing text"},
      {"{ a = \"\"\"never closed }", "unterminated multi-line string"},
      {"{ a = @ }", "unexpected character 0x40"},
  };
  for (const Case& c : cases) {
    Result<Kv3Document> doc = readKv3Text(std::string(kHeaderLine) + c.body);
    ASSERT_FALSE(doc.ok()) << c.body;
    EXPECT_NE(doc.message().find(c.part), std::string::npos) << c.body << " -> " << doc.message();
  }
}

TEST(Kv3Reader, HeaderMustBeExact) {
  const std::vector<std::string> headers = {
      "",
      "{ }",
      "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} -->\n{ }",
      "<!-- kv3 encoding:text:version{E21C7F3C-8A33-41C5-9977-A76D3A32AA0D} "
      "format:modeldoc41:version{12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0} -->\n{ }",
      "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
      "format:modeldoc41:version{12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0} --> { }",
  };
  for (const std::string& text : headers) {
    Result<Kv3Document> doc = readKv3Text(text);
    ASSERT_FALSE(doc.ok()) << text;
    EXPECT_NE(doc.message().find("line 1: bad header line"), std::string::npos) << doc.message();
  }
}

TEST(Kv3Reader, NestingIsBounded) {
  std::string text = std::string(kHeaderLine) + std::string(100000, '[');
  Result<Kv3Document> doc = readKv3Text(text);
  ASSERT_FALSE(doc.ok());
  EXPECT_NE(doc.message().find("nested too deeply"), std::string::npos);
}

TEST(Kv3Reader, EveryPrefixOfAWrittenDocumentIsHandled) {
  std::string text = writeOk(sampleTree());
  int accepted = 0;
  for (size_t n = 0; n < text.size(); ++n) {
    Result<Kv3Document> doc = readKv3Text(std::string_view(text).substr(0, n));
    if (doc.ok()) {
      ++accepted;
    } else {
      EXPECT_EQ(doc.message().rfind("line ", 0), 0u) << doc.message();
    }
  }
  // Only the text minus its final newline is still a whole document.
  EXPECT_EQ(accepted, 1);
}

TEST(Kv3ExternalReader, AcceptsAWrittenDocument) {
  Kv3Value tree = sampleTree();
  tree.set("latin", "caf\xe9");
  tree.set("tiny", Kv3Value::makeArray({1e-8f, 3.4028235e38f, -0.0f, 16777216.f}));
  tree.set("escapes", "q\"b\\n\nt\tr\r");
  std::optional<testing::ExternalReadResult> result = testing::runExternalKv3Reader(writeOk(tree));
  if (!result) GTEST_SKIP() << "python3 or the shared reader is not available";
  EXPECT_EQ(result->exitCode, 0) << result->output;
  EXPECT_NE(result->output.find("header: text e21c7f3c"), std::string::npos) << result->output;
}

TEST(Kv3ExternalReader, RejectsAMalformedDocumentToo) {
  std::optional<testing::ExternalReadResult> result =
      testing::runExternalKv3Reader(std::string(kHeaderLine) + "{ a = 1, }\n");
  if (!result) GTEST_SKIP() << "python3 or the shared reader is not available";
  EXPECT_EQ(result->exitCode, 1) << result->output;
}

}  // namespace
}  // namespace zv
