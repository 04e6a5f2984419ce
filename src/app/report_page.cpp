#include "app/report_page.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>

#include "app/report_page_assets.h"
#include "base/native_path.h"
#include "base/path.h"
#include "base/strings.h"
#include "fs/directory_source.h"
#include "output/output.h"

namespace zv::app {
namespace {

namespace stdfs = std::filesystem;

bool wordCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// A word that names a file: it has a separator, or ends in a short extension after a dot.
bool looksLikeFileName(std::string_view word) {
  if (word.find_first_of("/\\") != std::string_view::npos) return true;
  size_t dot = word.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || word.size() - dot < 2 || word.size() - dot > 5) return false;
  return std::all_of(word.begin() + long(dot) + 1, word.end(), [](char c) { return std::isalpha(static_cast<unsigned char>(c)) || std::isdigit(static_cast<unsigned char>(c)); }) &&
         std::isalpha(static_cast<unsigned char>(word[dot + 1]));
}

// Numbers standing on their own ("12", "-3.5", "0x1f", "(1902)") become %d; digits
// inside a word ("dx90") are part of it.
std::string numbersTakenOut(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size();) {
    bool starts = std::isdigit(static_cast<unsigned char>(text[i])) && (i == 0 || !wordCharacter(text[i - 1]));
    if (!starts) {
      out += text[i++];
      continue;
    }
    if (!out.empty() && out.back() == '-') out.pop_back();
    if (text.substr(i, 2) == "0x" || text.substr(i, 2) == "0X") i += 2;
    while (i < text.size() && (std::isxdigit(static_cast<unsigned char>(text[i])) || text[i] == '.' ||
                               (text[i] == 'e' && i + 1 < text.size() && (text[i + 1] == '-' || text[i + 1] == '+'))))
      i += text[i] == 'e' ? 2 : 1;
    out += "%d";
  }
  return out;
}

// Quoted text and words naming files become %s, word by word so that the punctuation
// around them stays.
std::string namesTakenOut(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size();) {
    char c = text[i];
    if (c == '"' || c == '\'') {
      size_t close = text.find(c, i + 1);
      if (close != std::string_view::npos && (c == '"' || close > i + 1)) {
        out += "%s";
        i = close + 1;
        continue;
      }
    }
    if (c == ' ' || c == '\t') {
      out += c;
      ++i;
      continue;
    }
    size_t end = text.find_first_of(" \t\"", i);
    if (end == std::string_view::npos) end = text.size();
    if (end == i) end = i + 1;
    std::string_view word = text.substr(i, end - i);
    // Punctuation that closes a sentence or a list is not part of the name.
    size_t core = word.size();
    while (core > 0 && std::string_view(",;:)].").find(word[core - 1]) != std::string_view::npos) --core;
    size_t lead = 0;
    while (lead < core && (word[lead] == '(' || word[lead] == '[')) ++lead;
    if (core > lead && looksLikeFileName(word.substr(lead, core - lead))) {
      out.append(word.substr(0, lead));
      out += "%s";
      out.append(word.substr(core));
    } else {
      out.append(word);
    }
    i = end;
  }
  return out;
}

struct GroupKey {
  bool error;
  std::string kind;
  auto operator<=>(const GroupKey&) const = default;
};

// Each model's group numbers, in the groups' order.
std::vector<std::set<size_t>> groupsOfModels(const RunReport& report, const std::vector<MessageGroup>& groups) {
  std::map<GroupKey, size_t> number;
  for (size_t g = 0; g < groups.size(); ++g) number[{groups[g].error, groups[g].kind}] = g;
  std::vector<std::set<size_t>> out(report.models.size());
  for (size_t m = 0; m < report.models.size(); ++m) {
    for (const std::string& w : report.models[m].warnings) out[m].insert(number.at({false, messageKind(w)}));
    for (const std::string& e : report.models[m].errors) out[m].insert(number.at({true, messageKind(e)}));
  }
  return out;
}

// JSON inside a script element: no "<" may start a closing tag, no "&" an entity.
std::string scriptSafe(std::string json) {
  std::string out;
  out.reserve(json.size());
  for (char c : json) {
    if (c == '<') out += "\\u003c";
    else if (c == '>') out += "\\u003e";
    else if (c == '&') out += "\\u0026";
    else out += c;
  }
  return out;
}

std::string htmlEscaped(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else if (c == '&') out += "&amp;";
    else if (c == '"') out += "&quot;";
    else out += c;
  }
  return out;
}

std::string jsonStrings(const std::vector<std::string>& items) {
  std::string out = "[";
  for (size_t i = 0; i < items.size(); ++i) out += (i ? "," : "") + jsonString(items[i]);
  return out + "]";
}

// The output root as seen from the page's folder, "/"-separated, ending in "/".
std::string outputsLink(const RunReport& report, const PagePaths& page) {
  std::error_code ec;
  stdfs::path root = stdfs::absolute(native::toPath(path::toForwardSlashes(report.outputRoot)), ec);
  stdfs::path folder = stdfs::absolute(native::toPath(page.folder), ec);
  std::string link = native::genericFromPath(root.lexically_normal().lexically_relative(folder.lexically_normal()));
  if (link.empty() || link == ".") return "";
  return link + "/";
}

std::string rowJson(const ModelReport& m, const std::set<size_t>& groups, const PagePaths& page, const std::string& outputs) {
  const ModelCounts& c = m.counts;
  std::string picture = m.thumbnail.empty() ? "" : page.pictureLink(path::fileName(path::toForwardSlashes(m.thumbnail)));
  std::string out = format("[%zu,", m.index) + jsonString(m.input) + "," + jsonString(m.status) + "," +
                    jsonString(picture) +
                    format(",[%llu,%llu,%llu,%llu,%llu,%llu,%llu,%llu],%.3f,",
                           static_cast<unsigned long long>(c.bodyParts), static_cast<unsigned long long>(c.meshes),
                           static_cast<unsigned long long>(c.vertices), static_cast<unsigned long long>(c.triangles),
                           static_cast<unsigned long long>(c.bones), static_cast<unsigned long long>(c.animations),
                           static_cast<unsigned long long>(c.sequences),
                           static_cast<unsigned long long>(c.collisionPieces), m.seconds) +
                    jsonStrings(m.warnings) + "," + jsonStrings(m.errors) + ",[";
  for (size_t i = 0; i < m.outputs.size(); ++i)
    out += (i ? ",[" : "[") + jsonString(outputs + m.outputs[i].path) + format(",%llu]", static_cast<unsigned long long>(m.outputs[i].bytes));
  out += "],[";
  bool first = true;
  for (size_t g : groups) out += (std::exchange(first, false) ? "" : ",") + std::to_string(g);
  return out + "]]";
}

std::string pageData(const RunReport& report, const RunFacts& facts, const PagePaths& page) {
  std::vector<MessageGroup> groups = groupMessages(report);
  RunTotals t = totalsOf(report);
  std::string out = "{\"tool\":" + jsonString(facts.tool) + ",\"options\":" + jsonString(facts.options) +
                    ",\"wall\":" + (facts.wallSeconds ? format("%.3f", *facts.wallSeconds) : "null") +
                    format(",\"totals\":{\"converted\":%zu,\"failed\":%zu,\"skipped\":%zu,\"files\":%zu,\"bytes\":%llu}",
                           t.converted, t.failed, t.skipped, t.files, static_cast<unsigned long long>(t.bytes)) +
                    ",\"groups\":[";
  for (size_t g = 0; g < groups.size(); ++g)
    out += (g ? ",{\"kind\":" : "{\"kind\":") + jsonString(groups[g].kind) + ",\"error\":" +
           (groups[g].error ? "true" : "false") + format(",\"count\":%zu}", groups[g].count);
  out += "],\"rows\":[";
  std::vector<std::set<size_t>> modelGroups = groupsOfModels(report, groups);
  std::string outputs = outputsLink(report, page);
  for (size_t m = 0; m < report.models.size(); ++m)
    out += (m ? ",\n" : "\n") + rowJson(report.models[m], modelGroups[m], page, outputs);
  return scriptSafe(out + "]}");
}

// Brings a picture the report names elsewhere beside the page; the report then names
// the copy. A picture that cannot be read is dropped from the page, not the run.
void gatherPicture(ModelReport& model, const PagePaths& page, Output& output) {
  if (model.thumbnail.empty()) return;
  std::string name(path::fileName(path::toForwardSlashes(model.thumbnail)));
  std::string wanted = page.picturePath(name);
  std::error_code ec;
  stdfs::path from = native::toPath(model.thumbnail), to = native::toPath(wanted);
  if (stdfs::exists(to, ec) && stdfs::equivalent(from, to, ec)) return;
  auto bytes = fs::readDiskFile(from);
  output.beginModel();
  if (!bytes || !output.write(wanted, *bytes)) {
    model.thumbnail.clear();
    return;
  }
  model.thumbnail = wanted;
}

}  // namespace

RunTotals totalsOf(const RunReport& report) {
  RunTotals t;
  for (const ModelReport& m : report.models) {
    t.converted += m.status == "converted";
    t.failed += m.status == "failed";
    t.skipped += m.status == "skipped";
    t.files += m.outputs.size();
    for (const ReportOutput& o : m.outputs) t.bytes += o.bytes;
  }
  return t;
}

std::string messageKind(std::string_view message) {
  while (!message.empty() && std::isspace(static_cast<unsigned char>(message.back()))) message.remove_suffix(1);
  return numbersTakenOut(namesTakenOut(message));
}

std::vector<MessageGroup> groupMessages(const RunReport& report) {
  std::map<GroupKey, MessageGroup> byKind;
  auto add = [&](const std::string& message, bool error, size_t model) {
    MessageGroup& g = byKind[{error, messageKind(message)}];
    g.error = error;
    ++g.count;
    if (g.models.empty() || g.models.back() != model) g.models.push_back(model);
  };
  for (size_t m = 0; m < report.models.size(); ++m) {
    for (const std::string& e : report.models[m].errors) add(e, true, m);
    for (const std::string& w : report.models[m].warnings) add(w, false, m);
  }
  std::vector<MessageGroup> groups;
  for (auto& [key, group] : byKind) {
    group.kind = key.kind;
    groups.push_back(std::move(group));
  }
  std::stable_sort(groups.begin(), groups.end(), [](const MessageGroup& a, const MessageGroup& b) {
    return a.count != b.count ? a.count > b.count : a.error > b.error;
  });
  return groups;
}

std::string reportPage(const RunReport& report, const RunFacts& facts, const PagePaths& page) {
  std::string html = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                     "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                     "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src 'self' data: file:; "
                     "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n"
                     "<title>Conversion report \xE2\x80\x94 zv_mdl_import " + htmlEscaped(facts.tool) + "</title>\n<style>";
  html += reportPageStyle();
  html += "</style>\n</head>\n<body>\n<h1>Conversion report</h1>\n<div class=\"summary\" id=\"summary\"></div>\n"
          "<p class=\"facts\" id=\"facts\"></p>\n<h2>Messages by kind</h2>\n<ul class=\"groups\" id=\"groups\"></ul>\n"
          "<h2>Models</h2>\n<div class=\"controls\"><label>Status <select id=\"status\">"
          "<option value=\"all\">all</option><option value=\"converted\">converted</option>"
          "<option value=\"failed\">failed</option><option value=\"skipped\">skipped</option></select></label>"
          "<input id=\"q\" type=\"search\" placeholder=\"Filter by name or message\"><span id=\"shown\"></span></div>\n"
          "<table><thead><tr id=\"head\"></tr></thead><tbody id=\"rows\"></tbody></table>\n"
          "<script type=\"application/json\" id=\"data\">";
  html += pageData(report, facts, page);
  html += "</script>\n<script>";
  html += reportPageScript();
  html += "</script>\n</body>\n</html>\n";
  return html;
}

Status writeReportPage(std::string_view htmlFile, RunReport& report, const RunFacts& facts) {
  PagePaths page = PagePaths::of(htmlFile);
  Output output(page.folder, nullptr);
  for (ModelReport& model : report.models) gatherPicture(model, page, output);
  output.beginModel();
  return output.writeText(page.pagePath(), reportPage(report, facts, page));
}

}  // namespace zv::app
