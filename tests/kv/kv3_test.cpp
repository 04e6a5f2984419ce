#include "kv/kv3.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

#include "kv/kv3_external_check.h"

namespace zv {
namespace {

const Kv3Header kHeader{{"text", "{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d}"},
                        {"modeldoc41", "12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0"}};
const std::string kHeaderLine =
    "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
    "format:modeldoc41:version{12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0} -->\n";

std::string writeOk(const Kv3Value& root) {
  Result<std::string> text = writeKv3Text(root, kHeader);
  EXPECT_TRUE(text.ok()) << (text.ok() ? "" : text.message());
  return text.ok() ? *text : std::string();
}

Kv3Value sampleTree() {
  Kv3Value root = Kv3Value::makeObject();
  root.set("name", "placeholder");
  root.set("count", int64_t{9007199254740993});
  root.set("enabled", true);
  root.set("nothing", nullptr);
  root.set("ratio", 0.5f);
  root.set("origin", Kv3Value::makeArray({1.0f, 2.5f, -3.0f}));
  root.set("four", Kv3Value::makeArray({true, 1, 2.0, false}));
  root.set("empty_list", Kv3Value::makeArray());
  root.set("empty_obj", Kv3Value::makeObject());
  root.set("s", "a\"b\\c\nd\te\rf");
  for (const char* key : {"say \"hi\"", "2d", "a-b", "", "bare_key.x"}) root.set(key, 1);
  root.set("big", Kv3Value::makeArray({1, 2, 3, 4, 5}));
  root.set("strings", Kv3Value::makeArray({"a"}));
  root.set("items",
           Kv3Value::makeArray({Kv3Value::makeObject({{"a", 1}}), "s", Kv3Value::makeArray({1.0f, 2.0f}),
                                Kv3Value::makeObject(), Kv3Value::makeArray()}));
  root.set("nested", Kv3Value::makeObject({{"inner", Kv3Value::makeObject({{"deep", "v"}})}}));
  root.set("name", "demo");  // replaced in place
  return root;
}

TEST(Kv3Writer, LaysOutASmallTreeExactly) {
  const std::string expected =
      kHeaderLine +
      "{\n"
      "\tname = \"demo\"\n\tcount = 9007199254740993\n\tenabled = true\n\tnothing = null\n\tratio = 0.5\n"
      "\torigin = [ 1.0, 2.5, -3.0 ]\n\tfour = [ true, 1, 2.0, false ]\n\tempty_list = [ ]\n\tempty_obj = { "
      "}\n"
      "\ts = \"a\\\"b\\\\c\\nd\\te\\rf\"\n"
      "\t\"say \\\"hi\\\"\" = 1\n\t\"2d\" = 1\n\t\"a-b\" = 1\n\t\"\" = 1\n\tbare_key.x = 1\n"
      "\tbig = \n\t[\n\t\t1,\n\t\t2,\n\t\t3,\n\t\t4,\n\t\t5,\n\t]\n"
      "\tstrings = \n\t[\n\t\t\"a\",\n\t]\n"
      "\titems = \n\t[\n\t\t{\n\t\t\ta = 1\n\t\t},\n\t\t\"s\",\n\t\t[ 1.0, 2.0 ],\n\t\t{ },\n\t\t[ ],\n\t]\n"
      "\tnested = \n\t{\n\t\tinner = \n\t\t{\n\t\t\tdeep = \"v\"\n\t\t}\n\t}\n"
      "}\n";
  EXPECT_EQ(writeOk(sampleTree()), expected);
}

TEST(Kv3Numbers, FloatsUseTheShortestRoundTripFormWithAPointOrExponent) {
  const std::pair<float, const char*> floats[] = {
      {1.0f, "1.0"},    {0.1f, "0.1"},           {0.5f, "0.5"},
      {1e-8f, "1e-08"}, {-180.f, "-180.0"},      {-0.0f, "-0.0"},
      {1e20f, "1e+20"}, {123456.7f, "123456.7"}, {16777216.f, "16777216.0"}};
  for (auto [value, text] : floats) EXPECT_EQ(formatKv3Float(value), text);
  EXPECT_EQ(formatKv3Float(3.4028235e38f), "3.4028235e+38");
  EXPECT_EQ(formatKv3Float(std::numeric_limits<float>::denorm_min()), "1e-45");
  EXPECT_EQ(formatKv3Double(0.1), "0.1");
  EXPECT_EQ(formatKv3Double(2.0), "2.0");
  // Any finite float: the text has a point or an exponent and reads back to the same bits.
  uint32_t state = 12345;
  for (int i = 0; i < 200000; ++i) {
    state = state * 1664525u + 1013904223u;
    float value = std::bit_cast<float>(state);
    if (!std::isfinite(value)) continue;
    std::string text = formatKv3Float(value);
    float back = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), back);
    ASSERT_TRUE(ec == std::errc() && end == text.data() + text.size()) << text;
    ASSERT_EQ(std::bit_cast<uint32_t>(back), state) << text;
    ASSERT_NE(text.find_first_of(".e"), std::string::npos) << text;
  }
}

TEST(Kv3Writer, TextThatIsNotUtf8IsTakenAsLatin1) {
  const std::pair<std::string, std::string> cases[] = {
      {"caf\xc3\xa9", "caf\xc3\xa9"},                // valid UTF-8 stays
      {"caf\xe9", "caf\xc3\xa9"},                    // Latin-1 e-acute
      {"\xc0\x80", "\xc3\x80\xc2\x80"},              // overlong NUL
      {"\xed\xa0\x80", "\xc3\xad\xc2\xa0\xc2\x80"},  // surrogate
      {"\xe2\x82", "\xc3\xa2\xc2\x82"},              // cut sequence
      {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},      // four-byte sequence stays
  };
  for (const auto& [in, out] : cases) {
    std::string text = writeOk(Kv3Value::makeObject({{"s", in}}));
    EXPECT_EQ(text, kHeaderLine + "{\n\ts = \"" + out + "\"\n}\n");
  }
}

TEST(Kv3Writer, RefusesWhatCannotBeWritten) {
  const Kv3Value nan = Kv3Value::makeObject({{"v", std::numeric_limits<float>::quiet_NaN()}});
  const Kv3Value inf =
      Kv3Value::makeObject({{"v", Kv3Value::makeArray({std::numeric_limits<double>::infinity()})}});
  Kv3Header badName = kHeader, badGuid = kHeader;
  badName.encoding.name = "te xt";
  badGuid.format.guid = "12FC9D44-453A-4AE4-B4D9-7E2AC0BBD4E0";
  EXPECT_EQ(writeKv3Text(nan, kHeader).message(), "cannot write a non-finite number");
  EXPECT_EQ(writeKv3Text(inf, kHeader).message(), "cannot write a non-finite number");
  EXPECT_NE(writeKv3Text(Kv3Value::makeObject(), badName).message().find("invalid encoding or format"),
            std::string::npos);
  EXPECT_NE(writeKv3Text(Kv3Value::makeObject(), badGuid).message().find("invalid encoding or format"),
            std::string::npos);
}

TEST(Kv3Writer, NestingLimitMatchesTheReader) {
  auto nestedArrays = [](int levels) {  // the innermost empty, written inline as "[ ]"
    Kv3Value value = Kv3Value::makeArray();
    for (int i = 1; i < levels; ++i) value = Kv3Value::makeArray({std::move(value)});
    return value;
  };
  Result<std::string> atLimit = writeKv3Text(nestedArrays(kKv3MaxDepth), kHeader);
  ASSERT_TRUE(atLimit.ok()) << atLimit.message();
  EXPECT_TRUE(readKv3Text(*atLimit).ok());
  Result<std::string> over = writeKv3Text(nestedArrays(kKv3MaxDepth + 1), kHeader);
  ASSERT_FALSE(over.ok());
  EXPECT_NE(over.message().find("nested deeper"), std::string::npos);
  Result<Kv3Document> deep = readKv3Text(kHeaderLine + std::string(100000, '['));
  ASSERT_FALSE(deep.ok());
  EXPECT_NE(deep.message().find("nested too deeply"), std::string::npos);
}

TEST(Kv3Reader, ReadsBackWhatWasWritten) {
  std::string text = writeOk(sampleTree());
  Result<Kv3Document> doc = readKv3Text(text);
  ASSERT_TRUE(doc.ok()) << doc.message();
  EXPECT_EQ(doc->header.encoding.name, "text");
  EXPECT_EQ(doc->header.encoding.guid, "e21c7f3c-8a33-41c5-9977-a76d3a32aa0d");
  EXPECT_EQ(doc->header.format.name, "modeldoc41");
  EXPECT_EQ(doc->header.format.guid, "12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0");
  EXPECT_EQ(*doc->root.find("s"), sampleTree().find("s")->asString());
  EXPECT_EQ(doc->root.find("count")->asInt(), 9007199254740993);
  EXPECT_EQ(writeOk(doc->root), text);
}

TEST(Kv3Reader, AcceptsCommentsMultiLineStringsAndLooseSpacing) {
  Result<Kv3Document> doc =
      readKv3Text(kHeaderLine +
                  "// leading\n{ /* block\n comment */ a=1 b = [1,2,] c = [ .5, -0, 1e5, 2E-3 ]\n"
                  "  d = \"\"\"\nfirst\nsecond\n\"\"\"\n  e = { }  }\n// trailing");
  ASSERT_TRUE(doc.ok()) << doc.message();
  EXPECT_EQ(doc->root, Kv3Value::makeObject({{"a", 1},
                                             {"b", Kv3Value::makeArray({1, 2})},
                                             {"c", Kv3Value::makeArray({0.5, 0, 1e5, 2e-3})},
                                             {"d", "first\nsecond"},
                                             {"e", Kv3Value::makeObject()}}));
}

TEST(Kv3Reader, MalformedTextFailsWithALineNumber) {
  const std::string h = kHeaderLine;
  const std::pair<std::string, const char*> cases[] = {
      {"", "line 1: bad header line"},
      {"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} -->\n{ }",
       "line 1: bad header line"},
      {"<!-- kv3 encoding:text:version{E21C7F3C-8A33-41C5-9977-A76D3A32AA0D} "
       "format:modeldoc41:version{12fc9d44-453a-4ae4-b4d9-7e2ac0bbd4e0} -->\n{ }",
       "line 1: bad header line"},
      {h.substr(0, h.size() - 1) + " { }", "line 1: bad header line"},
      {h + "{\n a = 1\n a = 2\n}", "line 4: duplicate key 'a'"},
      {h + "{\n a = 1,\n}", "line 3: comma after an object member"},
      {h + "{\n a = [ 1 2 ]\n}", "line 3: expected ',' or ']'"},
      {h + "{\n a = \"open\n}", "line 3: newline inside a string"},
      {h + "{ a = \"open", "line 2: unterminated string"},
      {h + "{ a = \"\\q\" }", "bad escape"},
      {h + "{ a = yes }", "bare word 'yes'"},
      {h + "{ a = 1.2.3 }", "malformed number"},
      {h + "{ a = - }", "malformed number"},
      {h + "{ a = 99999999999999999999 }", "number out of range"},
      {h + "{\n a = ", "line 3: unexpected end of text"},
      {h + "{ a = 1 } /* open", "unterminated comment"},
      {h + "{ a = #[ 00 01 ] }", "binary blobs"},
      {h + "{ a = resource:\"x\" }", "typed values"},
      {h + "{ 1a = 1 }", "bad key"},
      {h + "{ a 1 }", "expected '=' after key 'a'"},
      {h + "{ }\n{ }", "line 3: trailing text"},
      {h + "{ a = \"\"\"never closed }", "unterminated multi-line string"},
      {h + "{ a = @ }", "unexpected character 0x40"},
  };
  for (const auto& [text, part] : cases) {
    Result<Kv3Document> doc = readKv3Text(text);
    ASSERT_FALSE(doc.ok()) << text;
    EXPECT_NE(doc.message().find(part), std::string::npos) << text << " -> " << doc.message();
  }
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

TEST(Kv3ExternalReader, AcceptsAWrittenDocumentAndRejectsAMalformedOne) {
  Kv3Value tree = sampleTree();
  tree.set("latin", "caf\xe9");
  tree.set("tiny", Kv3Value::makeArray({1e-8f, 3.4028235e38f, -0.0f, 16777216.f}));
  std::optional<testing::ExternalReadResult> result = testing::runExternalKv3Reader(writeOk(tree));
  if (!result) GTEST_SKIP() << "python3 or the shared reader is not available";
  EXPECT_EQ(result->exitCode, 0) << result->output;
  EXPECT_NE(result->output.find("header: text e21c7f3c"), std::string::npos) << result->output;
  result = testing::runExternalKv3Reader(kHeaderLine + "{ a = 1, }\n");
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 1) << result->output;
}

}  // namespace
}  // namespace zv
