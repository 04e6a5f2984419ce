#include "app/report.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <optional>
#include <variant>

#include "base/strings.h"

namespace zv::app {
namespace {

// ---- Writing ------------------------------------------------------------------------------

// Length of the valid UTF-8 sequence at text[i], or 0.
size_t utf8Length(std::string_view text, size_t i) {
  auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  unsigned char lead = byte(i);
  size_t length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
  if (length == 0 || i + length > text.size()) return 0;
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
  }
  // Overlong forms and surrogates are not text either.
  uint32_t code = length == 1 ? lead : lead & (0x7F >> length);
  for (size_t k = 1; k < length; ++k) code = (code << 6) | (byte(i + k) & 0x3F);
  static constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (code < kSmallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  return length;
}

// A JSON string of any bytes: UTF-8 stays as it is; a byte that is not part of UTF-8
// becomes the lone surrogate U+DC00 + byte, which the reader turns back into that byte.
void writeString(std::string& out, std::string_view text) {
  out += '"';
  for (size_t i = 0; i < text.size();) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    size_t length = utf8Length(text, i);
    if (length == 0) {
      out += format("\\udc%02x", c);
      ++i;
    } else if (c == '"' || c == '\\') {
      out += '\\';
      out += char(c);
      ++i;
    } else if (c < 0x20) {
      out += c == '\n' ? "\\n" : c == '\t' ? "\\t" : format("\\u%04x", c);
      ++i;
    } else {
      out.append(text.substr(i, length));
      i += length;
    }
  }
  out += '"';
}

std::string quoted(std::string_view text) {
  std::string out;
  writeString(out, text);
  return out;
}

std::string hexHash(uint64_t hash) { return format("%016llx", static_cast<unsigned long long>(hash)); }

// A JSON array of the list's items, one a line; show gives each item's JSON text.
template <class T, class Show>
std::string jsonList(const std::vector<T>& list, const std::string& indent, Show show) {
  if (list.empty()) return "[]";
  std::string out = "[\n";
  for (size_t i = 0; i < list.size(); ++i) out += indent + "  " + show(list[i]) + (i + 1 < list.size() ? ",\n" : "\n");
  return out + indent + "]";
}

unsigned long long ull(uint64_t n) { return static_cast<unsigned long long>(n); }

std::string seconds(double value) { return format("%.4f", value); }

std::string modelJson(const ModelReport& m) {
  const std::string in = "      ";
  std::string out = "    {\n";
  out += in + "\"index\": " + std::to_string(m.index) + ",\n";
  out += in + "\"input\": " + quoted(m.input) + ",\n";
  out += in + "\"status\": " + quoted(m.status) + ",\n";
  out += in + "\"seconds\": " + seconds(m.seconds) + ",\n";
  out += in + "\"outputs\": " + jsonList(m.outputs, in, [](const ReportOutput& o) {
           return "{\"path\": " + quoted(o.path) + ", \"bytes\": " + std::to_string(o.bytes) + "}";
         }) + ",\n";
  out += in + "\"warnings\": " + jsonList(m.warnings, in, quoted) + ",\n";
  out += in + "\"errors\": " + jsonList(m.errors, in, quoted) + ",\n";
  const ModelCounts& c = m.counts;
  out += in + format("\"counts\": {\"bodyParts\": %llu, \"meshes\": %llu, \"vertices\": %llu, \"triangles\": %llu, "
                     "\"bones\": %llu, \"animations\": %llu, \"sequences\": %llu, \"collisionPieces\": %llu},\n",
                     ull(c.bodyParts), ull(c.meshes), ull(c.vertices), ull(c.triangles), ull(c.bones),
                     ull(c.animations), ull(c.sequences), ull(c.collisionPieces));
  out += in + "\"thumbnail\": " + quoted(m.thumbnail) + ",\n";
  out += in + "\"settings\": " + quoted(m.settings) + ",\n";
  out += in + "\"inputs\": " + jsonList(m.inputs, in, [](const ReportInput& i) {
           return "{\"path\": " + quoted(i.path) + ", \"exists\": " + (i.exists ? "true" : "false") +
                  ", \"hash\": \"" + hexHash(i.hash) + "\"}";
         }) + ",\n";
  out += in + "\"probes\": " + jsonList(m.probes, in, [](const ReportProbe& p) {
           return "{\"path\": " + quoted(p.path) + ", \"exists\": " + (p.exists ? "true" : "false") + "}";
         }) + "\n";
  return out + "    }";
}

// ---- Reading ------------------------------------------------------------------------------

struct Json;
struct JsonMember;
using JsonObject = std::vector<JsonMember>;
using JsonArray = std::vector<Json>;
struct Json {
  std::variant<std::nullptr_t, bool, double, std::string, JsonArray, JsonObject> value;
  const Json* at(std::string_view key) const;
};

struct JsonMember {
  std::string key;
  Json value;
};

// Defined once the members are complete: they hold Json by value.
const Json* Json::at(std::string_view key) const {
  const auto* object = std::get_if<JsonObject>(&value);
  if (object == nullptr) return nullptr;
  for (const JsonMember& member : *object) {
    if (member.key == key) return &member.value;
  }
  return nullptr;
}

class JsonReader {
 public:
  explicit JsonReader(std::string_view text) : text_(text) {}

  Result<Json> document() {
    Json root;
    if (!value(root, 0)) return Error{error_};
    skipBlanks();
    if (at_ != text_.size()) return Error{format("unexpected text at offset %zu", at_)};
    return root;
  }

 private:
  static constexpr int kMaxDepth = 16;

  bool fail(const char* what) {
    if (error_.empty()) error_ = format("%s at offset %zu", what, at_);
    return false;
  }
  void skipBlanks() {
    while (at_ < text_.size() && std::string_view(" \t\r\n").find(text_[at_]) != std::string_view::npos) ++at_;
  }
  bool take(char c) {
    skipBlanks();
    if (at_ < text_.size() && text_[at_] == c) {
      ++at_;
      return true;
    }
    return false;
  }
  bool word(std::string_view w) {
    if (text_.substr(at_, w.size()) != w) return false;
    at_ += w.size();
    return true;
  }

  bool value(Json& out, int depth) {
    if (depth > kMaxDepth) return fail("nesting too deep");
    skipBlanks();
    if (at_ >= text_.size()) return fail("unexpected end");
    char c = text_[at_];
    if (c == '{') return object(out, depth);
    if (c == '[') return array(out, depth);
    if (c == '"') {
      std::string s;
      if (!string(s)) return false;
      out.value = std::move(s);
      return true;
    }
    if (word("true")) return out.value = true, true;
    if (word("false")) return out.value = false, true;
    if (word("null")) return out.value = nullptr, true;
    double number = 0;
    auto [end, ec] = std::from_chars(text_.data() + at_, text_.data() + text_.size(), number);
    if (ec != std::errc()) return fail("not a value");
    at_ = size_t(end - text_.data());
    out.value = number;
    return true;
  }

  bool object(Json& out, int depth) {
    ++at_;
    JsonObject members;
    if (!take('}')) {
      do {
        std::string key;
        skipBlanks();
        if (!string(key) || !take(':')) return fail("bad member");
        Json v;
        if (!value(v, depth + 1)) return false;
        members.push_back({std::move(key), std::move(v)});
      } while (take(','));
      if (!take('}')) return fail("object not closed");
    }
    out.value = std::move(members);
    return true;
  }

  bool array(Json& out, int depth) {
    ++at_;
    JsonArray elements;
    if (!take(']')) {
      do {
        Json v;
        if (!value(v, depth + 1)) return false;
        elements.push_back(std::move(v));
      } while (take(','));
      if (!take(']')) return fail("array not closed");
    }
    out.value = std::move(elements);
    return true;
  }

  bool hex4(uint32_t& code) {
    if (at_ + 4 > text_.size()) return fail("short escape");
    auto [end, ec] = std::from_chars(text_.data() + at_, text_.data() + at_ + 4, code, 16);
    if (ec != std::errc() || end != text_.data() + at_ + 4) return fail("bad escape");
    at_ += 4;
    return true;
  }

  static void appendUtf8(std::string& out, uint32_t code) {
    if (code < 0x80) {
      out += char(code);
    } else if (code < 0x800) {
      out += char(0xC0 | (code >> 6));
      out += char(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += char(0xE0 | (code >> 12));
      out += char(0x80 | ((code >> 6) & 0x3F));
      out += char(0x80 | (code & 0x3F));
    } else {
      out += char(0xF0 | (code >> 18));
      out += char(0x80 | ((code >> 12) & 0x3F));
      out += char(0x80 | ((code >> 6) & 0x3F));
      out += char(0x80 | (code & 0x3F));
    }
  }

  bool escape(std::string& out) {
    if (at_ >= text_.size()) return fail("short escape");
    char c = text_[at_++];
    static constexpr std::string_view kFrom = "\"\\/bfnrt", kTo = "\"\\/\b\f\n\r\t";
    if (size_t k = kFrom.find(c); k != std::string_view::npos) {
      out += kTo[k];
      return true;
    }
    uint32_t code = 0;
    if (c != 'u' || !hex4(code)) return fail("bad escape");
    if (code >= 0xDC80 && code <= 0xDCFF) {  // a byte that was not UTF-8
      out += char(code - 0xDC00);
      return true;
    }
    if (code >= 0xD800 && code <= 0xDBFF && word("\\u")) {
      uint32_t low = 0;
      if (!hex4(low) || low < 0xDC00 || low > 0xDFFF) return fail("bad surrogate pair");
      code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
    }
    appendUtf8(out, code);
    return true;
  }

  bool string(std::string& out) {
    if (at_ >= text_.size() || text_[at_] != '"') return fail("string expected");
    ++at_;
    while (at_ < text_.size() && text_[at_] != '"') {
      if (text_[at_] == '\\') {
        ++at_;
        if (!escape(out)) return false;
      } else {
        out += text_[at_++];
      }
    }
    if (at_ >= text_.size()) return fail("string not closed");
    ++at_;
    return true;
  }

  std::string_view text_;
  size_t at_ = 0;
  std::string error_;
};

const std::string& textOf(const Json* j) {
  static const std::string kEmpty;
  const auto* s = j ? std::get_if<std::string>(&j->value) : nullptr;
  return s ? *s : kEmpty;
}
double numberOf(const Json* j) {
  const auto* d = j ? std::get_if<double>(&j->value) : nullptr;
  return d ? *d : 0;
}
// A count from a report someone may have edited: never negative, never past the type.
uint64_t countOf(const Json* j) {
  double d = numberOf(j);
  if (!(d >= 0)) return 0;
  return d >= 1.8e19 ? UINT64_MAX : uint64_t(d);
}
bool flagOf(const Json* j) {
  const auto* b = j ? std::get_if<bool>(&j->value) : nullptr;
  return b && *b;
}
const JsonArray& listOf(const Json* j) {
  static const JsonArray kEmpty;
  const auto* a = j ? std::get_if<JsonArray>(&j->value) : nullptr;
  return a ? *a : kEmpty;
}

ModelReport readModel(const Json& j) {
  ModelReport m;
  m.index = size_t(numberOf(j.at("index")));
  m.input = textOf(j.at("input"));
  m.status = textOf(j.at("status"));
  m.seconds = numberOf(j.at("seconds"));
  for (const Json& o : listOf(j.at("outputs"))) m.outputs.push_back({textOf(o.at("path")), uint64_t(numberOf(o.at("bytes")))});
  for (const Json& w : listOf(j.at("warnings"))) m.warnings.push_back(textOf(&w));
  for (const Json& e : listOf(j.at("errors"))) m.errors.push_back(textOf(&e));
  if (const Json* c = j.at("counts")) {
    auto count = [&](const char* key) { return countOf(c->at(key)); };
    m.counts = {count("bodyParts"), count("meshes"),    count("vertices"),  count("triangles"),
                count("bones"),     count("animations"), count("sequences"), count("collisionPieces")};
  }
  m.thumbnail = textOf(j.at("thumbnail"));
  m.settings = textOf(j.at("settings"));
  for (const Json& i : listOf(j.at("inputs"))) {
    uint64_t hash = 0;
    const std::string& hex = textOf(i.at("hash"));
    std::from_chars(hex.data(), hex.data() + hex.size(), hash, 16);
    m.inputs.push_back({textOf(i.at("path")), flagOf(i.at("exists")), hash});
  }
  for (const Json& p : listOf(j.at("probes"))) m.probes.push_back({textOf(p.at("path")), flagOf(p.at("exists"))});
  return m;
}

}  // namespace

std::string reportJson(const RunReport& report) {
  size_t converted = 0, failed = 0, skipped = 0, outputs = 0;
  uint64_t bytes = 0;
  double total = 0;
  for (const ModelReport& m : report.models) {
    converted += m.status == "converted";
    failed += m.status == "failed";
    skipped += m.status == "skipped";
    outputs += m.outputs.size();
    for (const ReportOutput& o : m.outputs) bytes += o.bytes;
    total += m.seconds;
  }
  std::string out = "{\n  \"format\": " + quoted(kReportFormat) + ",\n";
  out += format("  \"summary\": {\"models\": %zu, \"converted\": %zu, \"failed\": %zu, \"skipped\": %zu, "
                "\"outputs\": %zu, \"bytes\": %llu, \"seconds\": %s},\n",
                report.models.size(), converted, failed, skipped, outputs, static_cast<unsigned long long>(bytes),
                seconds(total).c_str());
  out += "  \"outputRoot\": " + quoted(report.outputRoot) + ",\n";
  out += "  \"models\": [";
  for (size_t i = 0; i < report.models.size(); ++i) out += (i ? ",\n" : "\n") + modelJson(report.models[i]);
  out += report.models.empty() ? "]\n}\n" : "\n  ]\n}\n";
  return out;
}

Result<RunReport> parseReport(std::string_view json) {
  auto root = JsonReader(json).document();
  if (!root) return root.error();
  if (textOf(root->at("format")) != kReportFormat) return Error{"not a report of this tool"};
  RunReport report;
  report.outputRoot = textOf(root->at("outputRoot"));
  for (const Json& m : listOf(root->at("models"))) report.models.push_back(readModel(m));
  return report;
}

std::string jsonString(std::string_view text) { return quoted(text); }

Result<RunReport> mergeReports(std::vector<RunReport> shards) {
  RunReport merged;
  if (!shards.empty()) merged.outputRoot = shards.front().outputRoot;
  for (RunReport& shard : shards) {
    for (ModelReport& m : shard.models) merged.models.push_back(std::move(m));
  }
  std::stable_sort(merged.models.begin(), merged.models.end(),
                   [](const ModelReport& a, const ModelReport& b) { return a.index < b.index; });
  for (size_t i = 1; i < merged.models.size(); ++i) {
    if (merged.models[i].index == merged.models[i - 1].index) {
      return Error{format("model %zu (%s) is in more than one report", merged.models[i].index,
                          merged.models[i].input.c_str())};
    }
  }
  return merged;
}

}  // namespace zv::app
