// The text form of a description: what it reads is checked by regenerating the committed
// samples; here, the messages for text that cannot be read.

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
  };
  for (auto [text, expected] : cases) {
    auto d = parseDescription(text);
    ASSERT_FALSE(d.ok()) << text;
    EXPECT_NE(d.message().find(expected), std::string::npos) << d.message();
  }
}

}  // namespace
}  // namespace zv::mdlforge
