#include "kv/keyvalues.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace zv {
namespace {

KeyValues parseOk(std::string_view text, const KeyValuesOptions& options = {}) {
  Result<KeyValues> parsed = KeyValues::parse(text, options);
  EXPECT_TRUE(parsed.ok()) << (parsed.ok() ? "" : parsed.message());
  return parsed.ok() ? std::move(parsed).value() : KeyValues();
}

// Names and values of a section's children, "name=value" or "name{n}" for sections.
std::string describe(const KeyValues& section) {
  std::string out;
  for (const KeyValues& child : section.children()) {
    if (!out.empty()) out += ' ';
    out += child.name();
    out += child.isSection() ? "{" + std::to_string(child.children().size()) + "}" : "=" + child.value();
  }
  return out;
}

TEST(KeyValuesParse, GameInformationSearchPathsKeepOrderAndDuplicates) {
  const char* text = R"("GameInfo"
{
	game	"Example"
	FileSystem
	{
		SearchPaths
		{
			Game	|mod|.
			Game	|mod|content/pak01_dir.qpk
			Game	common
			Mod+Game	|mod|extra
		}
	}
}
)";
  KeyValues root = parseOk(text);
  const KeyValues* info = root.firstSection();
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->name(), "GameInfo");
  EXPECT_EQ(info->getString("GAME"), "Example");
  const KeyValues* fileSystem = info->find("filesystem");
  ASSERT_NE(fileSystem, nullptr);
  const KeyValues* paths = fileSystem->find("SearchPaths");
  ASSERT_NE(paths, nullptr);
  EXPECT_EQ(describe(*paths), "Game=|mod|. Game=|mod|content/pak01_dir.qpk Game=common Mod+Game=|mod|extra");
  std::vector<const KeyValues*> games = paths->findAll("game");
  ASSERT_EQ(games.size(), 3u);
  EXPECT_EQ(games[2]->value(), "common");
  EXPECT_EQ(paths->find("mod+GAME")->value(), "|mod|extra");
}

TEST(KeyValuesParse, QuotedAndUnquotedModelKeyValuesReadTheSame) {
  KeyValues quoted = parseOk(R"("prop_data" { "allowstatic" "1" "base" "Wooden.Small" })");
  KeyValues bare = parseOk("prop_data\n{\n allowstatic 1\n base Wooden.Small\n}\n");
  for (const KeyValues* root : {&quoted, &bare}) {
    const KeyValues* propData = root->find("prop_data");
    ASSERT_NE(propData, nullptr);
    EXPECT_TRUE(propData->isSection());
    EXPECT_EQ(propData->getInt("allowstatic"), 1);
    EXPECT_TRUE(propData->getBool("AllowStatic"));
    EXPECT_EQ(propData->getString("base"), "Wooden.Small");
  }
}

TEST(KeyValuesParse, NestedSectionsEmptySectionsAndEmptyValues) {
  KeyValues root = parseOk(R"("a" { "b" { "c" { "d" "deep" } } "empty" { } "blank" "" })");
  const KeyValues* a = root.find("a");
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(describe(*a), "b{1} empty{0} blank=");
  EXPECT_EQ(a->find("b")->find("c")->getString("d"), "deep");
  // An empty section is still a section; an empty string is still a value.
  EXPECT_TRUE(a->find("empty")->isSection());
  EXPECT_FALSE(a->find("blank")->isSection());
}

TEST(KeyValuesParse, CommentsAreDroppedButDoubleSlashInsideTokensStays) {
  KeyValues root = parseOk(
      "// leading comment\n"
      "\"s\" { // after brace\n"
      "  \"url\" \"http://x/y\" // trailing\n"
      "  path a//b\n"
      "  // \"hidden\" \"1\"\n"
      "}\n"
      "// last line without newline");
  const KeyValues* s = root.find("s");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(describe(*s), "url=http://x/y path=a//b");
}

TEST(KeyValuesParse, EscapesInQuotedStrings) {
  KeyValues root = parseOk(R"("k" "a\nb\tc\\d\"e" "path" "props\gibs\x.mdl")");
  EXPECT_EQ(root.getString("k"), "a\nb\tc\\d\"e");
  // Unknown escapes keep the back-slash.
  EXPECT_EQ(root.getString("path"), "props\\gibs\\x.mdl");

  KeyValues raw = parseOk(R"("path" "props\new\tree.mdl")", KeyValuesOptions{.escapes = false});
  EXPECT_EQ(raw.getString("path"), "props\\new\\tree.mdl");
}

TEST(KeyValuesParse, QuotedStringsMayHoldBracesAndNewlines) {
  KeyValues root = parseOk("\"k\" \"{ x }\"\n\"multi\" \"line1\nline2\"\n\"after\" \"3\"");
  EXPECT_EQ(root.getString("k"), "{ x }");
  EXPECT_EQ(root.getString("multi"), "line1\nline2");
  EXPECT_EQ(root.getInt("after"), 3);
}

TEST(KeyValuesParse, ConditionalsAreAcceptedAndIgnored) {
  KeyValues root = parseOk(R"("s" [$WIN32]
{
  "a" "1" [$X360]
  "b" "2" [!$PS3]
  "c" [$OSX] "3"
}
"t" "4")");
  const KeyValues* s = root.find("s");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(describe(*s), "a=1 b=2 c=3");
  EXPECT_EQ(root.getString("t"), "4");
}

TEST(KeyValuesParse, IncludeAndBaseLinesHaveNoEffect) {
  KeyValues root = parseOk("#base \"other.txt\"\n#include \"more.txt\"\n\"s\" { \"a\" \"1\" }\n");
  EXPECT_EQ(describe(root), "s{1}");
}

TEST(KeyValuesParse, SeveralTopLevelBlocksLikeTheCollisionText) {
  const char* text =
      "solid {\n\"index\" \"0\"\n\"name\" \"pelvis\"\n\"mass\" \"12.5\"\n}\n"
      "solid {\n\"index\" \"1\"\n\"name\" \"spine\"\n}\n"
      "ragdollconstraint {\n\"parent\" \"0\"\n\"child\" \"1\"\n\"xmin\" \"-30.000000\"\n}\n"
      "editparams {\n\"rootname\" \"pelvis\"\n\"jointmerge\" \"a,b\"\n\"jointmerge\" \"c,d\"\n}\n";
  KeyValues root = parseOk(std::string(text) + std::string(1, '\0'));  // block ends in its terminator
  EXPECT_EQ(describe(root), "solid{3} solid{2} ragdollconstraint{3} editparams{3}");
  std::vector<const KeyValues*> solids = root.findAll("solid");
  ASSERT_EQ(solids.size(), 2u);
  EXPECT_EQ(solids[1]->getString("name"), "spine");
  EXPECT_FLOAT_EQ(solids[0]->getFloat("mass"), 12.5f);
  EXPECT_FLOAT_EQ(root.find("ragdollconstraint")->getFloat("xmin"), -30.0f);
  EXPECT_EQ(root.find("editparams")->findAll("jointmerge").size(), 2u);
  EXPECT_EQ(root.firstSection(), solids[0]);
}

TEST(KeyValuesParse, ByteOrderMarkAndWindowsLineEnds) {
  KeyValues root = parseOk("\xEF\xBB\xBF\"s\"\r\n{\r\n\t\"a\"\t\"1\"\r\n}\r\n");
  ASSERT_NE(root.find("s"), nullptr);
  EXPECT_EQ(root.find("s")->getString("a"), "1");
}

TEST(KeyValuesParse, EmptyTextIsAnEmptyRoot) {
  KeyValues root = parseOk("  // nothing here\n");
  EXPECT_TRUE(root.children().empty());
  EXPECT_EQ(root.firstSection(), nullptr);
}

struct MalformedCase {
  const char* label;
  std::string text;
  const char* messagePart;
};

TEST(KeyValuesParse, MalformedTextFailsWithALineNumber) {
  const std::vector<MalformedCase> cases = {
      {"unclosed section", "\"a\"\n{\n\"b\" \"1\"\n", "line 4: section opened on line 2 is not closed"},
      {"extra close", "\"a\" { }\n}\n", "line 2: '}' without an open section"},
      {"key without value at end", "\"a\" { \"b\" \"1\" }\n\"c\"", "line 2: key \"c\" has no value"},
      {"key without value before close", "\"a\" {\n \"b\"\n}", "line 3: key \"b\" has no value"},
      {"brace without key", "{ \"a\" \"1\" }", "line 1: '{' without a key"},
      {"unterminated string", "\"a\" \"abc\n\n", "line 1: unterminated quoted string"},
      {"NUL inside", std::string("\"a\" \"1\"\n\"b\"\0\"2\"", 15), "line 2: NUL byte"},
      {"only a conditional", "\"a\" [$X360]", "has no value"},
  };
  for (const MalformedCase& c : cases) {
    Result<KeyValues> parsed = KeyValues::parse(c.text);
    ASSERT_FALSE(parsed.ok()) << c.label;
    EXPECT_NE(parsed.message().find(c.messagePart), std::string::npos) << c.label << ": " << parsed.message();
  }
}

TEST(KeyValuesParse, NestingIsBoundedButTheLimitItselfParses) {
  auto nested = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "k {";
    text += "leaf 1";
    for (int i = 0; i < depth; ++i) text += '}';
    return text;
  };
  EXPECT_TRUE(KeyValues::parse(nested(KeyValues::kMaxDepth)).ok());
  Result<KeyValues> deep = KeyValues::parse(nested(KeyValues::kMaxDepth + 1));
  ASSERT_FALSE(deep.ok());
  EXPECT_NE(deep.message().find("nested deeper"), std::string::npos);
  EXPECT_FALSE(KeyValues::parse(std::string(100000, '{')).ok());
  EXPECT_FALSE(KeyValues::parse(nested(100000)).ok());
}

TEST(KeyValuesParse, EveryPrefixOfAValidTextParsesOrFailsCleanly) {
  const std::string text =
      "// header\n\"GameInfo\" [$WIN32]\n{\n\tgame \"A \\\"quoted\\\" name\"\n\tFileSystem\n\t{\n"
      "\t\tSearchPaths { Game |mod|. Mod+Game \"x\" }\n\t}\n}\nsolid { index 0 }\n";
  ASSERT_TRUE(KeyValues::parse(text).ok());
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
  // Most prefixes cut a section open, so most must fail.
  EXPECT_GT(failures, static_cast<int>(text.size()) / 2);
}

TEST(KeyValuesGetters, MissingKeysAndSectionsGiveTheFallback) {
  KeyValues root = parseOk(R"("n" "7" "s" { "x" "1" })");
  EXPECT_EQ(root.getInt("missing", 42), 42);
  EXPECT_EQ(root.getInt("s", 42), 42);
  EXPECT_EQ(root.getString("s", "fb"), "fb");
  EXPECT_FLOAT_EQ(root.getFloat("missing", 2.5f), 2.5f);
  EXPECT_TRUE(root.getBool("missing", true));
  EXPECT_EQ(root.getInt("N", 42), 7);
}

TEST(KeyValuesGetters, IntegerTextConvertsLikeAtoi) {
  EXPECT_EQ(textToInt("12abc"), 12);
  EXPECT_EQ(textToInt("garbage"), 0);
  EXPECT_EQ(textToInt(""), 0);
  EXPECT_EQ(textToInt("  -7 "), -7);
  EXPECT_EQ(textToInt("+3"), 3);
  EXPECT_EQ(textToInt("1.9"), 1);
  EXPECT_EQ(textToInt("- 3"), 0);
  EXPECT_EQ(textToInt("99999999999999999999"), 2147483647);
  EXPECT_EQ(textToInt("-99999999999999999999"), -2147483647 - 1);
  EXPECT_EQ(textToInt("-2147483648"), -2147483647 - 1);
}

TEST(KeyValuesGetters, FloatTextConvertsLikeAtof) {
  EXPECT_FLOAT_EQ(textToFloat("1.5abc"), 1.5f);
  EXPECT_FLOAT_EQ(textToFloat(" -30.000000"), -30.0f);
  EXPECT_FLOAT_EQ(textToFloat("+.25"), 0.25f);
  EXPECT_FLOAT_EQ(textToFloat("1e3"), 1000.0f);
  EXPECT_FLOAT_EQ(textToFloat("3 4 5"), 3.0f);
  EXPECT_EQ(textToFloat("abc"), 0.0f);
  EXPECT_EQ(textToFloat("+-1"), 0.0f);
  EXPECT_EQ(textToFloat("1e-60"), 0.0f);
  EXPECT_TRUE(std::isinf(textToFloat("1e60")));
  EXPECT_LT(textToFloat("-1e60"), 0.0f);
}

TEST(KeyValuesGetters, BoolIsANonZeroInteger) {
  KeyValues root = parseOk(R"("a" "1" "b" "0" "c" "2" "d" "true" "e" "")");
  EXPECT_TRUE(root.getBool("a"));
  EXPECT_FALSE(root.getBool("b", true));
  EXPECT_TRUE(root.getBool("c"));
  EXPECT_FALSE(root.getBool("d", true));
  EXPECT_FALSE(root.getBool("e", true));
}

TEST(KeyValuesToKv3, SectionsBecomeObjectsInOrder) {
  KeyValues root = parseOk(
      "\"ExtraSeqFlags\"\n{\n\t\"worldrelative\" \"0\"\n\t\"emptyanimwithnoeffect\" \"1\"\n}\n"
      "\"AnimTags\"\n{\n\t\"tag\" \"0.500000\"\n\t\"empty\" { }\n}\n");
  Kv3Value expected = Kv3Value::makeObject(
      {{"ExtraSeqFlags", Kv3Value::makeObject({{"worldrelative", "0"}, {"emptyanimwithnoeffect", "1"}})},
       {"AnimTags", Kv3Value::makeObject({{"tag", "0.500000"}, {"empty", Kv3Value::makeObject()}})}});
  EXPECT_EQ(keyValuesToKv3(root), expected);
  EXPECT_EQ(keyValuesToKv3(*root.find("AnimTags")->find("tag")), Kv3Value("0.500000"));
}

TEST(KeyValuesToKv3, RepeatedKeysGatherIntoOneArrayAtTheFirstPlace) {
  KeyValues root = parseOk(R"("editparams" {
    "jointmerge" "a,b"
    "rootname" "pelvis"
    "JointMerge" "c,d"
    "jointmerge" { "x" "1" }
  })");
  Kv3Value params = keyValuesToKv3(*root.find("editparams"));
  ASSERT_EQ(params.members().size(), 2u);
  EXPECT_EQ(params.members()[0].key, "jointmerge");
  EXPECT_EQ(params.members()[0].value,
            Kv3Value::makeArray({"a,b", "c,d", Kv3Value::makeObject({{"x", "1"}})}));
  EXPECT_EQ(params.members()[1].key, "rootname");
}

}  // namespace
}  // namespace zv
