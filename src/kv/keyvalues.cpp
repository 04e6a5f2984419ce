#include "kv/keyvalues.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <unordered_map>

#include "base/strings.h"

namespace zv {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

struct Token {
  enum class Kind { End, Open, Close, Text };
  Kind kind = Kind::End;
  std::string text;
  bool quoted = false;
  int line = 1;
};

// Splits KV1 text into braces and strings; comments and blanks are dropped here.
class Lexer {
 public:
  Lexer(std::string_view text, bool escapes) : text_(text), escapes_(escapes) {}

  // False on a lexical error (see error()).
  bool next(Token& out) {
    if (peeked_) {
      out = std::move(*peeked_);
      peeked_.reset();
      return true;
    }
    return read(out);
  }

  bool peek(const Token*& out) {
    if (!peeked_) {
      Token token;
      if (!read(token)) return false;
      peeked_ = std::move(token);
    }
    out = &*peeked_;
    return true;
  }

  // Drops the rest of the current line (directives we do not follow).
  void skipLine() {
    while (pos_ < text_.size() && text_[pos_] != '\n') ++pos_;
  }

  const std::string& error() const { return error_; }

 private:
  void skipBlanksAndComments() {
    while (pos_ < text_.size()) {
      char c = text_[pos_];
      if (c == '\n') {
        ++line_;
        ++pos_;
      } else if (isBlank(c)) {
        ++pos_;
      } else if (c == '/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '/') {
        skipLine();
      } else {
        break;
      }
    }
  }

  bool read(Token& out) {
    skipBlanksAndComments();
    out = Token{};
    out.line = line_;
    if (pos_ >= text_.size()) return true;
    char c = text_[pos_];
    if (c == '{' || c == '}') {
      out.kind = c == '{' ? Token::Kind::Open : Token::Kind::Close;
      ++pos_;
      return true;
    }
    out.kind = Token::Kind::Text;
    if (c == '"') return readQuoted(out);
    size_t start = pos_;
    while (pos_ < text_.size() && !isBlank(text_[pos_]) && text_[pos_] != '"' && text_[pos_] != '{' &&
           text_[pos_] != '}') {
      ++pos_;
    }
    out.text.assign(text_.substr(start, pos_ - start));
    return true;
  }

  bool readQuoted(Token& out) {
    out.quoted = true;
    ++pos_;  // opening quote
    while (pos_ < text_.size()) {
      char c = text_[pos_++];
      if (c == '"') return true;
      if (c == '\n') ++line_;
      if (c == '\\' && escapes_ && pos_ < text_.size()) {
        char e = text_[pos_];
        char translated = e == 'n' ? '\n' : e == 't' ? '\t' : (e == '\\' || e == '"') ? e : 0;
        if (translated != 0) {
          out.text.push_back(translated);
          ++pos_;
          continue;
        }
        // Unknown escapes stay as written, so stray back-slashes in paths survive.
      }
      out.text.push_back(c);
    }
    error_ = format("line %d: unterminated quoted string", out.line);
    return false;
  }

  std::string_view text_;
  bool escapes_;
  size_t pos_ = 0;
  int line_ = 1;
  std::optional<Token> peeked_;
  std::string error_;
};

bool isConditional(const Token& token) {
  return token.kind == Token::Kind::Text && !token.quoted && token.text.size() >= 2 &&
         token.text.front() == '[' && token.text.back() == ']';
}

bool isDirective(const Token& token) {
  return !token.quoted && (equalsNoCase(token.text, "#include") || equalsNoCase(token.text, "#base"));
}

class Parser {
 public:
  Parser(std::string_view text, bool escapes, std::vector<std::string>& notes)
      : lexer_(text, escapes), notes_(notes) {}

  Status parseMembers(KeyValues& parent, int depth, int openLine) {
    for (;;) {
      Token key;
      if (!lexer_.next(key)) return Error{lexer_.error()};
      switch (key.kind) {
        case Token::Kind::End:
          // As the legacy reader did, the end of the text closes whatever is still open:
          // real model texts end without their outer block's brace.
          if (depth > 0)
            notes_.push_back(format("line %d: the text ends inside the section opened on line %d, which is closed there",
                                    key.line, openLine));
          return Status::success();
        case Token::Kind::Close:
          if (depth > 0) return Status::success();
          return Error{format("line %d: '}' without an open section", key.line)};
        case Token::Kind::Open:
          return Error{format("line %d: '{' without a key", key.line)};
        case Token::Kind::Text:
          break;
      }
      if (isDirective(key)) {
        lexer_.skipLine();
        continue;
      }
      if (Status status = parseValue(parent, std::move(key), depth); !status) return status;
    }
  }

 private:
  Status parseValue(KeyValues& parent, Token key, int depth) {
    if (Status status = skipConditional(); !status) return status;
    Token value;
    if (!lexer_.next(value)) return Error{lexer_.error()};
    if (value.kind == Token::Kind::End || value.kind == Token::Kind::Close) {
      return Error{format("line %d: key \"%s\" has no value", value.line, key.text.c_str())};
    }
    if (value.kind == Token::Kind::Open) {
      if (depth + 1 > KeyValues::kMaxDepth) {
        return Error{format("line %d: sections nested deeper than %d", value.line, KeyValues::kMaxDepth)};
      }
      KeyValues& section = parent.add(KeyValues::section(std::move(key.text)));
      if (Status status = parseMembers(section, depth + 1, value.line); !status) return status;
    } else {
      parent.add(KeyValues(std::move(key.text), std::move(value.text)));
    }
    return skipConditional();
  }

  // Platform conditions like [$X360] are accepted and ignored: the member is always kept.
  Status skipConditional() {
    const Token* next = nullptr;
    if (!lexer_.peek(next)) return Error{lexer_.error()};
    if (isConditional(*next)) {
      Token dropped;
      lexer_.next(dropped);
    }
    return Status::success();
  }

  Lexer lexer_;
  std::vector<std::string>& notes_;
};

// Trailing NULs are the terminator of a C string block; any other NUL means binary junk.
Result<std::string_view> stripTerminator(std::string_view text) {
  while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  size_t nul = text.find('\0');
  if (nul != std::string_view::npos) {
    int line = 1;
    for (size_t i = 0; i < nul; ++i) line += text[i] == '\n' ? 1 : 0;
    return Error{format("line %d: NUL byte inside the text", line)};
  }
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  return text;
}

const KeyValues* findValue(const KeyValues& node, std::string_view key) {
  const KeyValues* child = node.find(key);
  return child != nullptr && !child->isSection() ? child : nullptr;
}

}  // namespace

KeyValues KeyValues::section(std::string name) {
  KeyValues node;
  node.name_ = std::move(name);
  node.section_ = true;
  return node;
}

Result<KeyValues> KeyValues::parse(std::string_view text, std::vector<std::string>& notes,
                                   const KeyValuesOptions& options) {
  Result<std::string_view> body = stripTerminator(text);
  if (!body) return body.error();
  KeyValues root = section("");
  Parser parser(*body, options.escapes, notes);
  if (Status status = parser.parseMembers(root, 0, 0); !status) return status.error();
  return root;
}

KeyValues& KeyValues::add(KeyValues child) {
  section_ = true;
  value_.clear();
  children_.push_back(std::move(child));
  return children_.back();
}

const KeyValues* KeyValues::find(std::string_view name) const {
  for (const KeyValues& child : children_) {
    if (equalsNoCase(child.name_, name)) return &child;
  }
  return nullptr;
}

std::vector<const KeyValues*> KeyValues::findAll(std::string_view name) const {
  std::vector<const KeyValues*> found;
  for (const KeyValues& child : children_) {
    if (equalsNoCase(child.name_, name)) found.push_back(&child);
  }
  return found;
}

const KeyValues* KeyValues::firstSection() const {
  for (const KeyValues& child : children_) {
    if (child.section_) return &child;
  }
  return nullptr;
}

std::string KeyValues::getString(std::string_view key, std::string_view fallback) const {
  const KeyValues* child = findValue(*this, key);
  return child != nullptr ? child->value_ : std::string(fallback);
}

int KeyValues::getInt(std::string_view key, int fallback) const {
  const KeyValues* child = findValue(*this, key);
  return child != nullptr ? textToInt(child->value_) : fallback;
}

float KeyValues::getFloat(std::string_view key, float fallback) const {
  const KeyValues* child = findValue(*this, key);
  return child != nullptr ? textToFloat(child->value_) : fallback;
}

bool KeyValues::getBool(std::string_view key, bool fallback) const {
  const KeyValues* child = findValue(*this, key);
  return child != nullptr ? textToInt(child->value_) != 0 : fallback;
}

Kv3Value keyValuesToKv3(const KeyValues& node) {
  if (!node.isSection()) return Kv3Value(node.value());
  Kv3Value::Object members;
  std::vector<bool> repeated;                     // per member: already turned into an array of repeats
  std::unordered_map<std::string, size_t> index;  // lower-case key -> member
  for (const KeyValues& child : node.children()) {
    auto [it, inserted] = index.emplace(toLower(child.name()), members.size());
    if (inserted) {
      members.push_back(Kv3Member{child.name(), keyValuesToKv3(child)});
      repeated.push_back(false);
      continue;
    }
    Kv3Value& value = members[it->second].value;
    if (!repeated[it->second]) {
      value = Kv3Value::makeArray({std::move(value)});
      repeated[it->second] = true;
    }
    value.push(keyValuesToKv3(child));
  }
  return Kv3Value::makeObject(std::move(members));
}

int textToInt(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && isBlank(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  constexpr int64_t kLimit = int64_t{std::numeric_limits<int>::max()} + 1;
  int64_t magnitude = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    magnitude = std::min(magnitude * 10 + (text[i] - '0'), kLimit);
  }
  int64_t value = negative ? -magnitude : magnitude;
  value = std::clamp<int64_t>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
  return static_cast<int>(value);
}

float textToFloat(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && isBlank(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) return 0.0f;
  const char* first = text.data() + i;
  const char* last = text.data() + text.size();
  float value = 0.0f;
  auto [end, ec] = std::from_chars(first, last, value);
  if (ec == std::errc::result_out_of_range) {
    // Too small or too large for a float: decide which from a wider parse.
    long double wide = 0;
    auto wideResult = std::from_chars(first, last, wide);
    bool huge = wideResult.ec == std::errc() && std::fabs(wide) > 1.0L;
    value = huge ? std::numeric_limits<float>::infinity() : 0.0f;
  } else if (ec != std::errc()) {
    value = 0.0f;
  }
  return negative ? -value : value;
}

}  // namespace zv
