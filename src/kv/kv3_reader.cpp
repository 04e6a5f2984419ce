// Strict reader of KV3 text: whatever the writer produces reads back; anything malformed
// is answered with the line of the fault.

#include <charconv>
#include <unordered_set>

#include "base/strings.h"
#include "kv/kv3.h"

namespace zv {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isWordStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isWordChar(char c) { return isWordStart(c) || isDigit(c) || c == '.'; }

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  Result<Kv3Document> document() {
    Kv3Document doc;
    bool ok = (header(doc.header) || fail("bad header line")) && value(doc.root, 0);
    if (ok) skipBlanks();
    if (ok && error_.empty() && pos_ != text_.size()) fail("trailing text after the root value");
    if (!error_.empty()) return Error{error_};
    return doc;
  }

 private:
  // Keeps the first fault only; always false so parsing functions can return it.
  bool fail(std::string_view what) {
    if (error_.empty()) {
      int line = 1;
      for (size_t i = 0; i < pos_ && i < text_.size(); ++i) line += text_[i] == '\n' ? 1 : 0;
      error_ = format("line %d: %.*s", line, static_cast<int>(what.size()), what.data());
    }
    return false;
  }

  bool literal(std::string_view expected) {
    if (text_.substr(pos_, expected.size()) != expected) return false;
    pos_ += expected.size();
    return true;
  }

  bool word(std::string& out) {
    size_t start = pos_;
    while (pos_ < text_.size() && (isWordChar(text_[pos_]) && text_[pos_] != '.')) ++pos_;
    out.assign(text_.substr(start, pos_ - start));
    return !out.empty();
  }

  bool guid(std::string& out) {
    if (pos_ + 36 > text_.size()) return false;
    out.assign(text_.substr(pos_, 36));
    for (char c : out) {
      if (!(isDigit(c) || (c >= 'a' && c <= 'f') || c == '-')) return false;
    }
    pos_ += 36;
    return true;
  }

  bool header(Kv3Header& out) {
    return literal("<!-- kv3 encoding:") && word(out.encoding.name) && literal(":version{") &&
           guid(out.encoding.guid) && literal("} format:") && word(out.format.name) && literal(":version{") &&
           guid(out.format.guid) && literal("} -->\n");
  }

  // Blanks and comments; an unterminated block comment sets the error.
  void skipBlanks() {
    while (pos_ < text_.size()) {
      char c = text_[pos_];
      if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
        ++pos_;
      } else if (text_.substr(pos_, 2) == "//") {
        size_t end = text_.find('\n', pos_);
        pos_ = end == std::string_view::npos ? text_.size() : end + 1;
      } else if (text_.substr(pos_, 2) == "/*") {
        size_t end = text_.find("*/", pos_ + 2);
        if (end == std::string_view::npos) {
          fail("unterminated comment");
          pos_ = text_.size();
          return;
        }
        pos_ = end + 2;
      } else {
        return;
      }
    }
  }

  // Only containers recurse; scalars are read in their own frames to keep this one small.
  bool value(Kv3Value& out, int depth) {
    skipBlanks();
    if (!error_.empty()) return false;
    if (pos_ >= text_.size()) return fail("unexpected end of text");
    char c = text_[pos_];
    if (c == '{' || c == '[') {
      if (depth >= kKv3MaxDepth) return fail("values nested too deeply");
      return c == '{' ? object(out, depth + 1) : array(out, depth + 1);
    }
    return scalar(out);
  }

  [[gnu::noinline]] bool scalar(Kv3Value& out) {
    char c = text_[pos_];
    if (c == '"') {
      std::string text;
      if (!string(text)) return false;
      out = Kv3Value(std::move(text));
      return true;
    }
    if (c == '-' || c == '.' || isDigit(c)) return number(out);
    if (c == '#') return fail("binary blobs are not supported");
    if (!isWordStart(c)) return fail(format("unexpected character 0x%02x", static_cast<unsigned char>(c)));
    size_t start = pos_;
    while (pos_ < text_.size() && isWordChar(text_[pos_])) ++pos_;
    std::string_view bare = text_.substr(start, pos_ - start);
    if (pos_ < text_.size() && text_[pos_] == ':') return fail("typed values are not supported");
    if (bare == "true" || bare == "false") {
      out = Kv3Value(bare == "true");
    } else if (bare == "null") {
      out = Kv3Value();
    } else {
      pos_ = start;
      return fail("bare word '" + std::string(bare) + "' as a value");
    }
    return true;
  }

  bool digits() {
    size_t start = pos_;
    while (pos_ < text_.size() && isDigit(text_[pos_])) ++pos_;
    return pos_ > start;
  }

  // -?(digits[.digits*] | .digits)([eE][+-]?digits)?
  bool number(Kv3Value& out) {
    size_t start = pos_;
    if (text_[pos_] == '-') ++pos_;
    bool whole = digits();
    bool real = false;
    if (pos_ < text_.size() && text_[pos_] == '.') {
      ++pos_;
      real = true;
      if (!digits() && !whole) return fail("malformed number");
    } else if (!whole) {
      return fail("malformed number");
    }
    if (pos_ < text_.size() && (text_[pos_] == 'e' || text_[pos_] == 'E')) {
      size_t mark = pos_++;
      if (pos_ < text_.size() && (text_[pos_] == '+' || text_[pos_] == '-')) ++pos_;
      if (digits()) {
        real = true;
      } else {
        pos_ = mark;
      }
    }
    if (pos_ < text_.size() && isWordChar(text_[pos_])) return fail("malformed number");
    const char* first = text_.data() + start;
    const char* last = text_.data() + pos_;
    std::errc ec;
    if (real) {
      double parsed = 0;
      auto result = std::from_chars(first, last, parsed);
      ec = result.ptr == last ? result.ec : std::errc::invalid_argument;
      out = Kv3Value(parsed);
    } else {
      int64_t parsed = 0;
      auto result = std::from_chars(first, last, parsed);
      ec = result.ptr == last ? result.ec : std::errc::invalid_argument;
      out = Kv3Value(parsed);
    }
    if (ec != std::errc()) {
      pos_ = start;
      return fail("number out of range");
    }
    return true;
  }

  bool string(std::string& out) {
    if (literal("\"\"\"")) return multiLineString(out);
    size_t open = pos_++;
    for (;;) {
      if (pos_ >= text_.size()) {
        pos_ = open;
        return fail("unterminated string");
      }
      char c = text_[pos_];
      if (c == '"') {
        ++pos_;
        return true;
      }
      if (c == '\n' || c == '\r') return fail("newline inside a string");
      if (c == '\\') {
        char e = pos_ + 1 < text_.size() ? text_[pos_ + 1] : '\0';
        char translated = e == 'n'                  ? '\n'
                          : e == 't'                ? '\t'
                          : e == 'r'                ? '\r'
                          : (e == '\\' || e == '"') ? e
                                                    : 0;
        if (translated == 0) return fail("bad escape in a string");
        out += translated;
        pos_ += 2;
        continue;
      }
      out += c;
      ++pos_;
    }
  }

  bool multiLineString(std::string& out) {
    size_t end = text_.find("\"\"\"", pos_);
    if (end == std::string_view::npos) return fail("unterminated multi-line string");
    std::string_view body = text_.substr(pos_, end - pos_);
    if (!body.empty() && body.front() == '\n') body.remove_prefix(1);
    if (!body.empty() && body.back() == '\n') body.remove_suffix(1);
    out.assign(body);
    pos_ = end + 3;
    return true;
  }

  bool key(std::string& out) {
    if (pos_ < text_.size() && text_[pos_] == '"') return string(out);
    size_t start = pos_;
    if (pos_ >= text_.size() || !isWordStart(text_[pos_])) return fail("bad key");
    while (pos_ < text_.size() && isWordChar(text_[pos_])) ++pos_;
    out.assign(text_.substr(start, pos_ - start));
    return true;
  }

  bool object(Kv3Value& out, int depth) {
    ++pos_;  // '{'
    Kv3Value::Object members;
    std::unordered_set<std::string> seen;
    for (;;) {
      skipBlanks();
      if (!error_.empty()) return false;
      if (pos_ < text_.size() && text_[pos_] == '}') {
        ++pos_;
        out = Kv3Value::makeObject(std::move(members));
        return true;
      }
      std::string name;
      if (!key(name)) return false;
      if (!seen.insert(name).second) return fail("duplicate key '" + name + "'");
      skipBlanks();
      if (!error_.empty()) return false;
      if (!literal("=")) return fail("expected '=' after key '" + name + "'");
      Kv3Value member;
      if (!value(member, depth)) return false;
      members.push_back(Kv3Member{std::move(name), std::move(member)});
      skipBlanks();
      if (!error_.empty()) return false;
      if (pos_ < text_.size() && text_[pos_] == ',') return fail("comma after an object member");
    }
  }

  bool array(Kv3Value& out, int depth) {
    ++pos_;  // '['
    out = Kv3Value::makeArray();
    for (;;) {
      skipBlanks();
      if (!error_.empty()) return false;
      if (pos_ < text_.size() && text_[pos_] == ']') {
        ++pos_;
        return true;
      }
      Kv3Value element;
      if (!value(element, depth)) return false;
      out.push(std::move(element));
      skipBlanks();
      if (!error_.empty()) return false;
      if (pos_ < text_.size() && text_[pos_] == ',') {
        ++pos_;
      } else if (pos_ >= text_.size() || text_[pos_] != ']') {
        return fail("expected ',' or ']'");
      }
    }
  }

  std::string_view text_;
  size_t pos_ = 0;
  std::string error_;
};

}  // namespace

Result<Kv3Document> readKv3Text(std::string_view text) { return Reader(text).document(); }

}  // namespace zv
