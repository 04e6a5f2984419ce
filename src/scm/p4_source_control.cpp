#include "scm/p4_source_control.h"

#include <utility>

#include "base/log.h"

namespace zv::scm {
namespace {

constexpr auto kCallTimeout = std::chrono::minutes(2);

LogChannel& systemLog() { return logChannel("Perforce"); }

// The first non-empty line, for one-line warnings.
std::string firstLine(std::string_view text) {
  size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos) return {};
  text.remove_prefix(start);
  return std::string(text.substr(0, text.find_first_of("\r\n")));
}

}  // namespace

namespace p4 {

std::string escapePath(std::string_view path) {
  std::string out;
  for (char c : path) {
    switch (c) {
      case '%':
        out += "%25";
        break;
      case '@':
        out += "%40";
        break;
      case '#':
        out += "%23";
        break;
      case '*':
        out += "%2A";
        break;
      default:
        out += c;
    }
  }
  return out;
}

bool hasWildcardCharacters(std::string_view path) {
  return path.find_first_of("%@#*") != std::string_view::npos;
}

int stateFromFstat(std::string_view output) {
  bool inRecord = false, opened = false, hasHead = false, headDeleted = false;
  while (!output.empty()) {
    size_t end = output.find('\n');
    std::string_view line = output.substr(0, end);
    output.remove_prefix(end == std::string_view::npos ? output.size() : end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) {
      if (inRecord) break;  // records are separated by a blank line; only the first counts
      continue;
    }
    // "... key value"; "... ... key value" lines belong to nested lists (other users).
    if (line.substr(0, 4) != "... " || line.substr(4, 4) == "... ") continue;
    line.remove_prefix(4);
    std::string_view key = line.substr(0, line.find(' '));
    std::string_view value = key.size() < line.size() ? line.substr(key.size() + 1) : std::string_view();
    inRecord = true;
    if (key == "action") opened = true;
    if (key == "headRev") hasHead = true;
    if (key == "headAction") {
      headDeleted = value == "delete" || value == "move/delete" || value == "purge" || value == "archive";
    }
  }
  if (opened) return file_state::kOpened;
  if (hasHead && !headDeleted) return file_state::kInDepot;
  return file_state::kNotInDepot;
}

std::string runWideFailure(std::string_view errorText) {
  for (std::string_view marker : {"Connect to server failed", "(P4PASSWD) invalid or unset",
                                  "Your session has expired", "SSL receive failed"}) {
    size_t at = errorText.find(marker);
    if (at == std::string_view::npos) continue;
    size_t start = errorText.find_last_of('\n', at);
    return firstLine(errorText.substr(start == std::string_view::npos ? 0 : start + 1));
  }
  return {};
}

}  // namespace p4

P4SourceControl::P4SourceControl(std::string program) : program_(std::move(program)) {
  systemLog();  // registered so that start-up can set its verbosity
}

void P4SourceControl::setChangelist(const std::string& changelist) {
  changelist_ = changelist.empty() ? "default" : changelist;
}

std::string P4SourceControl::changelistFor(int changelist) const {
  // -1 is the run's changelist; 0 is the client's default changelist in p4 numbering.
  if (changelist < 0) return changelist_;
  if (changelist == 0) return "default";
  return std::to_string(changelist);
}

ProcessResult P4SourceControl::run(std::vector<std::string> args) {
  args.insert(args.begin(), program_);
  ProcessResult result = runProcess(args, kCallTimeout);
  logChannel("P4File").log(Severity::Detail, "%s: exit %d\n%s%s", describeCommand(args).c_str(),
                           result.exitCode, result.out.c_str(), result.err.c_str());
  std::string reason;
  if (!result.started) {
    reason = result.startError;
  } else if (result.timedOut) {
    reason = "no answer in time";
  } else {
    reason = p4::runWideFailure(result.err);
  }
  if (!reason.empty() && available_) {
    available_ = false;
    systemLog().log(Severity::Warning,
                    "p4 cannot be used (%s); files are not opened for the rest of the run\n", reason.c_str());
  }
  return result;
}

int P4SourceControl::fileState(const std::string& path, int, int) {
  if (!available_) return file_state::kNoSystem;
  ProcessResult result = run({"-ztag", "fstat", p4::escapePath(path)});
  if (!available_) return file_state::kNoSystem;
  return p4::stateFromFstat(result.out);
}

bool P4SourceControl::reportOpen(std::string_view what, const std::string& path,
                                 const ProcessResult& result) {
  if (result.ok() && result.err.empty()) return true;
  if (available_) {
    std::string why = firstLine(result.err);
    if (why.empty()) why = firstLine(result.out);
    if (why.empty()) why = "exit status " + std::to_string(result.exitCode);
    systemLog().log(Severity::Warning, "p4 %.*s of %s failed: %s\n", static_cast<int>(what.size()),
                    what.data(), path.c_str(), why.c_str());
  }
  return false;
}

// The file type is not passed on: the server's type map decides it.
bool P4SourceControl::openForEdit(const std::string& path, int, int changelist) {
  if (!available_) return false;
  return reportOpen("edit", path, run({"edit", "-c", changelistFor(changelist), p4::escapePath(path)}));
}

bool P4SourceControl::openForAdd(const std::string& path, int, int changelist) {
  if (!available_) return false;
  // "add" takes the name literally only with -f; escapes would become part of the name.
  std::vector<std::string> args{"add", "-c", changelistFor(changelist)};
  if (p4::hasWildcardCharacters(path)) args.push_back("-f");
  args.push_back(path);
  return reportOpen("add", path, run(std::move(args)));
}

}  // namespace zv::scm
