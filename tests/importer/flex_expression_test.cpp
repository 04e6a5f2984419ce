// Postfix flex rules as infix expressions: parentheses exactly where precedence needs
// them, and a clear reason for every program that has no infix form.

#include "importer/flex_expression.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace zv {
namespace {

using legacy::FlexOp;

const std::vector<std::string> kControllers{"a", "b", "c", "closer"};
const std::vector<std::string> kDescriptors{"right_open", "frown"};

// Words: numbers are constants; a b c closer fetch controllers, F0 F1 descriptors;
// + - * / neg ( ) , max min; "op:N:I" any op with index I.
legacy::FlexRule program(const std::string& text) {
  legacy::FlexRule rule;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find(' ', at);
    if (end == std::string::npos) end = text.size();
    std::string w = text.substr(at, end - at);
    at = end + 1;
    if (w.empty()) continue;
    static const std::vector<std::pair<std::string, int32_t>> plain{
        {"+", 4}, {"-", 5}, {"*", 6}, {"/", 7}, {"neg", 8}, {"(", 10}, {")", 11}, {",", 12}, {"max", 13}, {"min", 14}};
    FlexOp op;
    auto found = std::find_if(plain.begin(), plain.end(), [&](auto& p) { return p.first == w; });
    if (found != plain.end()) {
      op.code = found->second;
    } else if (w.rfind("op:", 0) == 0) {
      op.code = std::stoi(w.substr(3));
      op.index = std::stoi(w.substr(w.rfind(':') + 1));
    } else if (w[0] == 'F') {
      op = {3, 0, std::stoi(w.substr(1))};
    } else if (auto c = std::find(kControllers.begin(), kControllers.end(), w); c != kControllers.end()) {
      op = {2, 0, int32_t(c - kControllers.begin())};
    } else {
      op = {1, std::stof(w), 0};
    }
    rule.ops.push_back(op);
  }
  return rule;
}

std::string infix(const std::string& text) {
  auto expression = flexRuleExpression(program(text), kControllers, kDescriptors);
  return expression ? *expression : "error: " + expression.error().message;
}

TEST(FlexExpression, PrecedenceDecidesTheParentheses) {
  const std::pair<const char*, const char*> cases[] = {
      {"1 closer -", "1 - closer"},
      {"1 F0 /", "1 / right_open"},
      {"a 1 F1 - min", "min(a, 1 - frown)"},
      {"a b - c -", "a - b - c"},
      {"a b c - -", "a - (b - c)"},
      {"a b + c *", "(a + b) * c"},
      {"a b * c +", "a * b + c"},
      {"a b c * /", "a / (b * c)"},
      {"a b * c /", "a * b / c"},
      {"a neg", "-a"},
      {"a b + neg", "-(a + b)"},
      {"a neg neg", "-(-a)"},
      {"1 -0.5 -", "1 - (-0.5)"},
      {"-0.5 a *", "-0.5 * a"},
      {"a b max c min", "min(max(a, b), c)"},
      // Parser leftovers change nothing.
      {"( a , b ) +", "a + b"},
  };
  for (auto [postfix, expected] : cases) EXPECT_EQ(infix(postfix), expected) << postfix;
}

TEST(FlexExpression, ConstantsKeepSixSignificantDigits) {
  EXPECT_EQ(infix("0.333333333"), "0.333333");
  EXPECT_EQ(infix("123456789"), "1.23457e+08");
  EXPECT_EQ(infix("0.0000001"), "1e-07");
  EXPECT_EQ(infix("2"), "2");
}

TEST(FlexExpression, TwoWayComboAndDominate) {
  EXPECT_EQ(infix("op:15:1"), "min(max(-b, 0), 1)");
  EXPECT_EQ(infix("op:16:1"), "min(max(b, 0), 1)");
  EXPECT_EQ(infix("a b c + c op:18:3"), "a * (b + c) * c");
  EXPECT_EQ(infix("a b op:18:1 +"), "a + b");
  EXPECT_EQ(infix("a b c op:19:2"), "a * (1 - b * c)");
  EXPECT_EQ(infix("a b c + op:19:1"), "a * (1 - (b + c))");
}

TEST(FlexExpression, ProgramsWithoutAnInfixFormSayWhy) {
  EXPECT_EQ(infix("a op:9:0"), "error: op 9 has no infix form");
  EXPECT_EQ(infix("1 2 3 4 0 op:17:1"), "error: op 17 has no infix form");
  EXPECT_EQ(infix("op:20:0"), "error: op 20 has no infix form");
  EXPECT_EQ(infix("a op:99:0"), "error: op 99 has no infix form");
  EXPECT_EQ(infix("a b"), "error: the program leaves 2 values, not 1");
  EXPECT_EQ(infix(""), "error: the program leaves 0 values, not 1");
  EXPECT_EQ(infix("a +"), "error: a binary op needs 2 values, the stack holds 1");
  EXPECT_EQ(infix("neg"), "error: negation needs 1 values, the stack holds 0");
  EXPECT_EQ(infix("a op:18:2"), "error: combo needs 2 values, the stack holds 1");
  EXPECT_EQ(infix("a op:18:0"), "error: combo of 0 values");
  EXPECT_EQ(infix("a op:19:1"), "error: dominate needs 1 values, the stack holds 0");

  legacy::FlexRule nan{0, {FlexOp{1, std::nanf(""), 0}}};
  EXPECT_FALSE(flexRuleExpression(nan, kControllers, kDescriptors));
  legacy::FlexRule longRule{0, {FlexOp{2, 0, 0}}};
  for (int i = 0; i < 1024; ++i) longRule.ops.push_back({8, 0, 0});
  auto tooLong = flexRuleExpression(longRule, kControllers, kDescriptors);
  ASSERT_FALSE(tooLong);
  EXPECT_EQ(tooLong.error().message, "it has 1025 ops, more than 1024");
}

}  // namespace
}  // namespace zv
