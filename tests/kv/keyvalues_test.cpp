#include "kv/keyvalues.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <string>

namespace zv {
namespace {

KeyValues parseOk(std::string_view text, const KeyValuesOptions& options = {}) {
  Result<KeyValues> parsed = KeyValues::parse(text, options);
  EXPECT_TRUE(parsed.ok()) << (parsed.ok() ? "" : parsed.message());
  return parsed.ok() ? std::move(parsed).value() : KeyValues();
}

// The whole tree on one line: "name=value" for values, "name{children}" for sections.
std::string describe(const KeyValues& node) {
  if (!node.isSection()) return node.name() + "=" + node.value();
  std::string out = node.name() + "{";
  for (const KeyValues& child : node.children()) out += (out.back() == '{' ? "" : " ") + describe(child);
  return out + "}";
}

TEST(KeyValuesParse, TextsReadAsTrees) {
  using namespace std::string_literals;
  struct Case {
    std::string text;
    std::string tree;
    bool escapes = true;
  } cases[] = {
      {R"("prop_data" { "allowstatic" "1" "base" "Wooden.Small" })",
       "{prop_data{allowstatic=1 base=Wooden.Small}}"},
      {"prop_data\n{\n allowstatic 1\n base Wooden.Small\n}\n",
       "{prop_data{allowstatic=1 base=Wooden.Small}}"},
      {"SearchPaths { Game |mod|. Game common Mod+Game |mod|extra }",
       "{SearchPaths{Game=|mod|. Game=common Mod+Game=|mod|extra}}"},
      {R"("a" { "b" { "c" { "d" "deep" } } "empty" { } "blank" "" })", "{a{b{c{d=deep}} empty{} blank=}}"},
      {"// c\n\"s\" { // c\n \"url\" \"http://x/y\" // c\n path a//b\n // \"k\" \"1\"\n}\n// c",
       "{s{url=http://x/y path=a//b}}"},
      {R"("k" "a\nb\tc\\d\"e" "path" "props\gibs\x.mdl")", "{k=a\nb\tc\\d\"e path=props\\gibs\\x.mdl}"},
      {R"("path" "props\new\tree.mdl")", "{path=props\\new\\tree.mdl}", false},
      {"\"k\" \"{ x }\"\n\"multi\" \"line1\nline2\"", "{k={ x } multi=line1\nline2}"},
      {"\"s\" [$DESKTOP] { \"a\" \"1\" [$CONSOLE] \"b\" \"2\" [!$HANDHELD] \"c\" [$TABLET] \"3\" } \"t\" "
       "\"4\"",
       "{s{a=1 b=2 c=3} t=4}"},
      {"#base \"other.txt\"\n#include \"more.txt\"\n\"s\" { \"a\" \"1\" }\n", "{s{a=1}}"},
      {"solid {\n\"index\" \"0\"\n}\nsolid { index 1 }\nedit { merge a,b merge c,d }\n\0"s,  // C string block
       "{solid{index=0} solid{index=1} edit{merge=a,b merge=c,d}}"},
      {"\xEF\xBB\xBF\"s\"\r\n{\r\n\t\"a\"\t\"1\"\r\n}\r\n", "{s{a=1}}"},
      {"  // nothing here\n", "{}"},
  };
  for (const Case& c : cases) EXPECT_EQ(describe(parseOk(c.text, {.escapes = c.escapes})), c.tree) << c.text;
}

TEST(KeyValuesGetters, LookupsIgnoreCaseAndMissingKeysOrSectionsGiveTheFallback) {
  KeyValues root =
      parseOk(R"("n" "7" "s" { "x" "1" } "S" { "y" "2" } "f" "12.5" "b0" "0" "b2" "2" "bt" "true")");
  std::vector<const KeyValues*> sections = root.findAll("s");
  ASSERT_EQ(sections.size(), 2u);
  EXPECT_EQ(sections[1]->getString("Y"), "2");
  EXPECT_EQ(root.find("S"), sections[0]);
  EXPECT_EQ(root.firstSection(), sections[0]);
  EXPECT_EQ(root.getInt("N", 42), 7);
  EXPECT_EQ(root.getInt("missing", 42), 42);
  EXPECT_EQ(root.getInt("s", 42), 42);
  EXPECT_EQ(root.getFloat("F"), 12.5f);
  // Flags are non-zero integers.
  EXPECT_TRUE(root.getBool("b2"));
  EXPECT_FALSE(root.getBool("b0", true));
  EXPECT_FALSE(root.getBool("bt", true));
  EXPECT_TRUE(root.getBool("missing", true));
}

TEST(KeyValuesGetters, TextConvertsLikeAtoiAndAtof) {
  const std::pair<const char*, int> ints[] = {
      {"12abc", 12}, {"garbage", 0},           {"  -7 ", -7}, {"+3", 3}, {"1.9", 1},
      {"- 3", 0},    {"-2147483648", INT_MIN}, {"", 0}};
  for (auto [text, value] : ints) EXPECT_EQ(textToInt(text), value) << text;
  EXPECT_EQ(textToInt("99999999999999999999"), INT_MAX);  // clamped, however many digits
  EXPECT_EQ(textToInt("-99999999999999999999"), INT_MIN);
  const float inf = std::numeric_limits<float>::infinity();
  const std::pair<const char*, float> floats[] = {
      {"1.5abc", 1.5f}, {" -30.000000", -30.0f}, {"+.25", 0.25f}, {"1e3", 1000.0f}, {"3 4 5", 3.0f},
      {"abc", 0.0f},    {"+-1", 0.0f},           {"1e-60", 0.0f}, {"1e60", inf},    {"-1e60", -inf}};
  for (auto [text, value] : floats) EXPECT_EQ(textToFloat(text), value) << text;
}

TEST(KeyValuesParse, MalformedTextFailsWithALineNumber) {
  const std::pair<std::string, const char*> cases[] = {
      {"\"a\"\n{\n\"b\" \"1\"\n", "line 4: section opened on line 2 is not closed"},
      {"\"a\" { }\n}\n", "line 2: '}' without an open section"},
      {"\"a\" { \"b\" \"1\" }\n\"c\"", "line 2: key \"c\" has no value"},
      {"\"a\" {\n \"b\"\n}", "line 3: key \"b\" has no value"},
      {"{ \"a\" \"1\" }", "line 1: '{' without a key"},
      {"\"a\" \"abc\n\n", "line 1: unterminated quoted string"},
      {std::string("\"a\" \"1\"\n\"b\"\0\"2\"", 15), "line 2: NUL byte"},
      {"\"a\" [$CONSOLE]", "has no value"},
  };
  for (const auto& [text, messagePart] : cases) {
    Result<KeyValues> parsed = KeyValues::parse(text);
    ASSERT_FALSE(parsed.ok()) << text;
    EXPECT_NE(parsed.message().find(messagePart), std::string::npos) << text << ": " << parsed.message();
  }
}

TEST(KeyValuesParse, NestingIsBoundedButTheLimitItselfParses) {
  auto text = [](int depth) {
    std::string out;
    for (int i = 0; i < depth; ++i) out += "k {";
    return out + "leaf 1" + std::string(depth, '}');
  };
  EXPECT_TRUE(KeyValues::parse(text(KeyValues::kMaxDepth)).ok());
  Result<KeyValues> deep = KeyValues::parse(text(KeyValues::kMaxDepth + 1));
  ASSERT_FALSE(deep.ok());
  EXPECT_NE(deep.message().find("nested deeper"), std::string::npos);
  EXPECT_FALSE(KeyValues::parse(std::string(100000, '{')).ok());
  EXPECT_FALSE(KeyValues::parse(text(100000)).ok());
}

TEST(KeyValuesParse, EveryPrefixOfAValidTextParsesOrFailsCleanly) {
  const std::string text =
      "// header\n\"GameInfo\" [$DESKTOP]\n{\n\tgame \"A \\\"quoted\\\" name\"\n\tFileSystem\n\t{\n"
      "\t\tSearchPaths { Game |mod|. Mod+Game \"x\" }\n\t}\n}\nsolid { index 0 }\n";
  int failures = 0;
  for (size_t n = 0; n <= text.size(); ++n) {
    Result<KeyValues> parsed = KeyValues::parse(std::string_view(text).substr(0, n));
    if (!parsed.ok()) {
      ++failures;
      EXPECT_EQ(parsed.message().rfind("line ", 0), 0u) << "prefix " << n << ": " << parsed.message();
    } else {
      // A prefix that parses never invents more top-level members than the full text has.
      EXPECT_LE(parsed->children().size(), 2u) << "prefix " << n;
    }
  }
  // Most prefixes cut a section open, so most must fail; the whole text parses.
  EXPECT_GT(failures, static_cast<int>(text.size()) / 2);
  EXPECT_TRUE(KeyValues::parse(text).ok());
}

TEST(KeyValuesToKv3, SectionsBecomeObjectsInOrderAndRepeatedKeysOneArrayAtTheFirstPlace) {
  KeyValues root = parseOk(R"("ExtraSeqFlags" { "worldrelative" "0" "empty" { } }
    "editparams" { "jointmerge" "a,b" "rootname" "pelvis" "JointMerge" "c,d" "jointmerge" { "x" "1" } })");
  Kv3Value merges = Kv3Value::makeArray({"a,b", "c,d", Kv3Value::makeObject({{"x", "1"}})});
  Kv3Value expected = Kv3Value::makeObject(
      {{"ExtraSeqFlags", Kv3Value::makeObject({{"worldrelative", "0"}, {"empty", Kv3Value::makeObject()}})},
       {"editparams", Kv3Value::makeObject({{"jointmerge", merges}, {"rootname", "pelvis"}})}});
  EXPECT_EQ(keyValuesToKv3(root), expected);
  EXPECT_EQ(keyValuesToKv3(KeyValues("tag", "0.5")), Kv3Value("0.5"));
}

}  // namespace
}  // namespace zv
