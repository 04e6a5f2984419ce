// The text form of a description: what it reads is checked by regenerating the committed
// samples; here, the messages for text that cannot be read, and the flex words.

#include "mdlforge/text_description.h"

#include <gtest/gtest.h>

namespace zv::mdlforge {
namespace {

TEST(TextDescription, MessagesNameTheKeyAndWhereItIs) {
  const std::pair<const char*, const char*> cases[] = {
      {R"("model" { "bodypart" { "name" "body" "model" { "name" "lid" "mesh" { "materal" "1" } } } })",
       "bodypart \"body\": model \"lid\": mesh 0: unknown key \"materal\""},
      {R"("model" { "bone" { "name" "a" "position" "1 2" } })", "\"position\" needs 3 numbers"},
      {R"("model" { "bone" { "name" "a" "parent" "nobody" } })", "nothing called \"nobody\""},
      {R"("model" { "version" "4x" })", "\"version\""},
      {R"("model" { "skinfamily" "0 70000" })", "skinfamily"},  // beyond an int16
      {R"("model" { "animation" { "data" "abc" } })", "hexadecimal"},
      {R"("model" { "bone" "root" })", "must be a section"},
      {R"("mdl" { })", "no \"model\" section"},
      {R"("model" { "name" "x" )", ""},  // unbalanced braces
      {R"("model" { "flexdesc" "a" "flexrule" { "target" "a" "ops" "1 c:nobody +" } })", "nothing called \"nobody\""},
      {R"("model" { "flexrule" { "ops" "1 sqrt" } })", "holds a word that is no flex op"},
      {R"("model" { "flexrule" { "ops" "combo:x" } })", "needs a count after combo:"},
      {R"("model" { "flexrule" { "ops" "op:5" } })", "op:CODE:N"},
  };
  for (auto [text, expected] : cases) {
    auto d = parseDescription(text);
    ASSERT_FALSE(d.ok()) << text;
    EXPECT_NE(d.message().find(expected), std::string::npos) << d.message();
  }
}

TEST(TextDescription, FlexWordsBecomeOpsAndNamesIndices) {
  auto d = parseDescription(R"("model" {
    "flexdesc" "open" "flexdesc" "close"
    "flexcontroller" { "name" "jaw" "type" "mouth" "min" "-1" "max" "2" }
    "flexcontroller" { "name" "lid" }
    "flexrule" { "target" "close" "ops" "1 c:jaw - f:open * ( ) , neg max min + / exp 2way0:lid 2way1:0 nway:jaw combo:3 dominate:2 lowereyelid:lid uppereyelid:jaw op:99:-4" }
    "flexui" { "name" "face" "controller" "jaw" "right" "lid" "stereo" "1" "remap" "1" }
    "bodypart" { "model" { "mesh" { "flex" { "descriptor" "close" "partner" "open" "wrinkle" "1" "window" "-11 -10 0 1"
      "delta" "4 255  0 0 1  0 1 0" "delta" "5 0  1 2 3  4 5 6  0.5" } } } }
  })");
  ASSERT_TRUE(d.ok()) << d.message();
  ASSERT_EQ(d->flexRules.size(), 1u);
  EXPECT_EQ(d->flexRules[0].target, 1);
  std::vector<std::pair<int32_t, int32_t>> ops;
  for (const FlexOp& op : d->flexRules[0].ops) ops.emplace_back(op.code, op.index);
  EXPECT_EQ(ops, (std::vector<std::pair<int32_t, int32_t>>{
                     {1, 0}, {2, 0}, {5, 0}, {3, 0}, {6, 0}, {10, 0}, {11, 0}, {12, 0}, {8, 0}, {13, 0}, {14, 0}, {4, 0},
                     {7, 0}, {9, 0}, {15, 1}, {16, 0}, {17, 0}, {18, 3}, {19, 2}, {20, 1}, {21, 0}, {99, -4}}));
  EXPECT_EQ(d->flexRules[0].ops[0].value, 1.0f);
  EXPECT_EQ(d->flexControllers[0].min, -1.0f);
  EXPECT_EQ(d->flexControllers[1].max, 1.0f);  // the default range
  ASSERT_EQ(d->flexControllerUis.size(), 1u);
  EXPECT_EQ(d->flexControllerUis[0].right, 1);
  EXPECT_EQ(d->flexControllerUis[0].value, -1);
  EXPECT_TRUE(d->flexControllerUis[0].stereo);
  const MeshFlex& flex = d->bodyParts[0].models[0].meshes[0].flexes.at(0);
  EXPECT_EQ(flex.descriptor, 1);
  EXPECT_EQ(flex.partner, 0);
  EXPECT_TRUE(flex.wrinkle);
  EXPECT_EQ(flex.window, (std::array<float, 4>{-11, -10, 0, 1}));
  ASSERT_EQ(flex.deltas.size(), 2u);
  EXPECT_EQ(flex.deltas[0].side, 255);
  EXPECT_EQ(flex.deltas[1].normal, (Vector3{4, 5, 6}));
  EXPECT_EQ(flex.deltas[1].wrinkle, 0.5f);
}

}  // namespace
}  // namespace zv::mdlforge
