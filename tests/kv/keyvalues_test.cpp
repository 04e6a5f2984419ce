#include "kv/keyvalues.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <string>

namespace zv {
namespace {

// Parses text that must read as it stands, without notes.
KeyValues parseOk(std::string_view text, const KeyValuesOptions& options = {}) {
  std::vector<std::string> notes;
  Result<KeyValues> parsed = KeyValues::parse(text, notes, options);
  EXPECT_TRUE(parsed.ok()) << (parsed.ok() ? "" : parsed.message());
  EXPECT_TRUE(notes.empty()) << notes.front();
  return parsed.ok() ? std::move(parsed).value() : KeyValues();
}

Result<KeyValues> parse(std::string_view text) {
  std::vector<std::string> notes;
  return KeyValues::parse(text, notes);
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
      {"\"a\" { }\n}\n", "line 2: '}' without an open section"},
      {"\"a\" { \"b\" \"1\" }\n\"c\"", "line 2: key \"c\" has no value"},
      {"\"a\" {\n \"b\"\n}", "line 3: key \"b\" has no value"},
      {"{ \"a\" \"1\" }", "line 1: '{' without a key"},
      {"\"a\" \"abc\n\n", "line 1: unterminated quoted string"},
      {std::string("\"a\" \"1\"\n\"b\"\0\"2\"", 15), "line 2: NUL byte"},
      {"\"a\" [$CONSOLE]", "has no value"},
  };
  for (const auto& [text, messagePart] : cases) {
    Result<KeyValues> parsed = parse(text);
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
  EXPECT_TRUE(parse(text(KeyValues::kMaxDepth)).ok());
  Result<KeyValues> deep = parse(text(KeyValues::kMaxDepth + 1));
  ASSERT_FALSE(deep.ok());
  EXPECT_NE(deep.message().find("nested deeper"), std::string::npos);
  EXPECT_FALSE(parse(std::string(100000, '{')).ok());
  EXPECT_FALSE(parse(text(100000)).ok());
  // Sections the end of the text closes are bounded the same way.
  EXPECT_FALSE(parse(text(100000).substr(0, 300000)).ok());
}

// A real model's text ends without its outer brace, and holds an unquoted value: it
// reads as the legacy reader read it, and says what it closed.
TEST(KeyValuesParse, TheEndOfTheTextClosesWhatIsStillOpen) {
  const struct {
    std::string text;
    std::string tree;
    std::vector<std::string> notes;
  } cases[] = {
      {std::string("mdlkeyvalue\n{\nprop_data {\"base\" metal.small }\n") + '\0',
       "{mdlkeyvalue{prop_data{base=metal.small}}}",
       {"line 4: the text ends inside the section opened on line 2, which is closed there"}},
      {"a {\n b {\n c 1", "{a{b{c=1}}}",
       {"line 3: the text ends inside the section opened on line 2, which is closed there",
        "line 3: the text ends inside the section opened on line 1, which is closed there"}},
      {"a { }\nb {", "{a{} b{}}", {"line 2: the text ends inside the section opened on line 2, which is closed there"}},
      {"a { b 1 }\n", "{a{b=1}}", {}},
  };
  for (const auto& c : cases) {
    std::vector<std::string> notes;
    Result<KeyValues> parsed = KeyValues::parse(c.text, notes);
    ASSERT_TRUE(parsed.ok()) << c.text << ": " << parsed.message();
    EXPECT_EQ(describe(*parsed), c.tree);
    EXPECT_EQ(notes, c.notes) << c.text;
  }
}

TEST(KeyValuesParse, EveryPrefixOfAValidTextParsesOrFailsCleanly) {
  const std::string text =
      "// header\n\"GameInfo\" [$DESKTOP]\n{\n\tgame \"A \\\"quoted\\\" name\"\n\tFileSystem\n\t{\n"
      "\t\tSearchPaths { Game |mod|. Mod+Game \"x\" }\n\t}\n}\nsolid { index 0 }\n";
  int closedByTheEnd = 0;
  for (size_t n = 0; n <= text.size(); ++n) {
    std::vector<std::string> notes;
    Result<KeyValues> parsed = KeyValues::parse(std::string_view(text).substr(0, n), notes);
    if (!parsed.ok()) {
      EXPECT_EQ(parsed.message().rfind("line ", 0), 0u) << "prefix " << n << ": " << parsed.message();
      continue;
    }
    // A prefix that parses never invents more top-level members than the full text has,
    // and whatever it closed is noted.
    EXPECT_LE(parsed->children().size(), 2u) << "prefix " << n;
    for (const std::string& note : notes) EXPECT_EQ(note.rfind("line ", 0), 0u) << note;
    closedByTheEnd += notes.empty() ? 0 : 1;
  }
  // Many prefixes cut a section open between members, and read with a note (the others
  // cut a member or a string in two); the whole text reads plainly.
  EXPECT_GT(closedByTheEnd, static_cast<int>(text.size()) / 5);
  parseOk(text);
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
