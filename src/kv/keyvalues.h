#pragma once
// KV1 key-value text: a tree of named nodes, each either a string value or a section of
// child nodes, kept in file order with duplicate keys. Used for the game information file,
// the model's key-value block and the collision file's text section.

#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "kv/kv3.h"

namespace zv {

struct KeyValuesOptions {
  // Translate \n \t \\ \" inside quoted strings. Text whose quoted values hold back-slash
  // paths ("props\new.mdl") should be parsed with this off.
  bool escapes = true;
};

class KeyValues {
 public:
  // Deeper sections are refused: the tree is walked recursively by its users.
  static constexpr int kMaxDepth = 256;

  KeyValues() = default;
  // A leaf holding a string value.
  KeyValues(std::string name, std::string value) : name_(std::move(name)), value_(std::move(value)) {}
  // An empty section.
  static KeyValues section(std::string name);

  // Parses text into an unnamed root section whose children are the top-level members,
  // so text with several top-level blocks loads as a whole. Errors name the line. What is
  // read leniently (sections the end of the text closes) is added to notes, which callers
  // pass on: the text was not what it should have been. Unquoted tokens are strings too.
  static Result<KeyValues> parse(std::string_view text, std::vector<std::string>& notes,
                                 const KeyValuesOptions& options = {});

  const std::string& name() const { return name_; }
  bool isSection() const { return section_; }
  // The string value; empty for sections.
  const std::string& value() const { return value_; }
  const std::vector<KeyValues>& children() const { return children_; }

  // Appends a child; the node becomes a section.
  KeyValues& add(KeyValues child);

  // Lookups compare names ignoring case. find returns the first match or nullptr.
  const KeyValues* find(std::string_view name) const;
  std::vector<const KeyValues*> findAll(std::string_view name) const;
  // The first child that is a section: the "Name" of a usual `"Name" { ... }` text.
  const KeyValues* firstSection() const;

  // Typed getters of a child's value. A missing child, or one that is a section, gives the
  // default; otherwise the text converts like atoi/atof ("12abc" is 12, "abc" is 0).
  std::string getString(std::string_view key, std::string_view fallback = {}) const;
  int getInt(std::string_view key, int fallback = 0) const;
  float getFloat(std::string_view key, float fallback = 0.0f) const;
  // Non-zero integer text is true, as the legacy tools read flags.
  bool getBool(std::string_view key, bool fallback = false) const;

 private:
  std::string name_;
  std::string value_;
  bool section_ = false;
  std::vector<KeyValues> children_;
};

// atoi without the locale: leading blanks, optional sign, digits; stops at the first other
// character; clamps to the int range; no digits gives 0.
int textToInt(std::string_view text);
// atof without the locale: leading blanks, optional sign, then the longest decimal number
// ("1.5e3", ".5", "inf", "nan"); no number gives 0. Beyond the float range gives +-inf.
float textToFloat(std::string_view text);

// The KV3 form of a node: a leaf becomes its string, a section an object of its children
// in order. KV3 keys are unique, so keys repeated in a section (compared ignoring case, as
// lookups do) become one array at the first one's place, holding every value in order; the
// first spelling of the key is kept.
Kv3Value keyValuesToKv3(const KeyValues& node);

}  // namespace zv
