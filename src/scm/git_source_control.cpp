#include "scm/git_source_control.h"

#include <algorithm>
#include <set>
#include <utility>

#include "base/log.h"
#include "base/native_path.h"
#include "scm/process.h"

namespace zv::scm {
namespace fs = std::filesystem;
namespace {

constexpr auto kCallTimeout = std::chrono::minutes(5);

LogChannel& systemLog() { return logChannel("Git"); }

ProcessResult runLogged(const std::vector<std::string>& argv) {
  ProcessResult result = runProcess(argv, kCallTimeout);
  systemLog().log(Severity::Detail, "%s: exit %d\n%s", describeCommand(argv).c_str(), result.exitCode,
                  result.err.c_str());
  return result;
}

std::string failureText(const ProcessResult& result) {
  if (!result.started) return result.startError;
  if (result.timedOut) return "no answer in time";
  std::string text = result.err;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text.empty() ? "exit status " + std::to_string(result.exitCode) : text;
}

std::vector<std::string> splitNul(const std::string& text) {
  std::vector<std::string> items;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = std::min(text.find('\0', start), text.size());
    if (end > start) items.emplace_back(text, start, end - start);
    start = end + 1;
  }
  return items;
}

}  // namespace

GitSourceControl::GitSourceControl(std::string program) : program_(std::move(program)) {}

GitSourceControl::~GitSourceControl() { flush(); }

// Asking git per file would cost a call per written file; the batch asks once instead.
int GitSourceControl::fileState(const std::string&, int, int) { return file_state::kNotInDepot; }

// Git sees changes to tracked files without being told.
bool GitSourceControl::openForEdit(const std::string&, int, int) { return true; }

bool GitSourceControl::openForAdd(const std::string& path, int, int) {
  std::error_code ec;
  fs::path absolute = fs::absolute(native::toPath(path), ec);
  if (ec || path.empty()) {
    systemLog().log(Severity::Warning, "git: cannot add \"%s\": %s\n", path.c_str(), ec.message().c_str());
    return false;
  }
  absolute = absolute.lexically_normal();
  queuedBytes_ += absolute.native().size() + 1;
  queue_.push_back(std::move(absolute));
  if (queue_.size() >= kBatchFiles || queuedBytes_ >= kBatchBytes) return flush();
  return true;
}

bool GitSourceControl::flush() {
  std::vector<fs::path> files;
  files.swap(queue_);
  queuedBytes_ = 0;

  // Grouped by work tree in the order the files came, each file once.
  std::vector<std::pair<fs::path, std::vector<std::string>>> groups;
  std::set<fs::path> seen;
  for (const fs::path& file : files) {
    if (!seen.insert(file).second) continue;
    const std::optional<fs::path>& top = workTreeOf(file.parent_path());
    if (!top) {
      systemLog().log(Severity::Detail, "git: %s is not in a repository\n", native::fromPath(file).c_str());
      continue;
    }
    auto group = std::find_if(groups.begin(), groups.end(), [&](const auto& g) { return g.first == *top; });
    if (group == groups.end()) group = groups.insert(groups.end(), {*top, {}});
    group->second.push_back(native::genericFromPath(file.lexically_relative(*top)));
  }

  bool ok = true;
  for (const auto& [top, relativePaths] : groups) ok = addToWorkTree(top, relativePaths) && ok;
  return ok;
}

const std::optional<fs::path>& GitSourceControl::workTreeOf(const fs::path& folder) {
  auto cached = workTrees_.find(folder);
  if (cached != workTrees_.end()) return cached->second;
  std::optional<fs::path> top;
  for (fs::path at = folder; !at.empty(); at = at.parent_path()) {
    std::error_code ec;
    if (fs::exists(at / ".git", ec)) {  // a folder, or a file in worktrees and submodules
      top = at;
      break;
    }
    if (at == at.parent_path()) break;
  }
  return workTrees_.emplace(folder, std::move(top)).first->second;
}

bool GitSourceControl::addToWorkTree(const fs::path& top, const std::vector<std::string>& relativePaths) {
  // Literal pathspecs: generated names may hold '*', '?' or '[' and still mean one file.
  const std::vector<std::string> git{program_, "-C", native::fromPath(top), "--literal-pathspecs"};
  auto command = [&](std::initializer_list<const char*> words, const std::vector<std::string>& paths) {
    std::vector<std::string> argv = git;
    argv.insert(argv.end(), words.begin(), words.end());
    argv.insert(argv.end(), paths.begin(), paths.end());
    return argv;
  };

  // Untracked files that no ignore rule excludes: exactly the ones to add. Ignored files
  // are never forced in.
  ProcessResult listed =
      runLogged(command({"ls-files", "-z", "--others", "--exclude-standard", "--"}, relativePaths));
  if (!listed.ok()) {
    systemLog().log(Severity::Warning, "git: cannot list new files in %s: %s\n", native::fromPath(top).c_str(),
                    failureText(listed).c_str());
    return false;
  }
  std::vector<std::string> untracked = splitNul(listed.out);
  if (untracked.empty()) return true;

  ProcessResult added = runLogged(command({"add", "--"}, untracked));
  if (!added.ok()) {
    systemLog().log(Severity::Warning, "git: adding %zu files in %s failed: %s\n", untracked.size(),
                    native::fromPath(top).c_str(), failureText(added).c_str());
    return false;
  }
  return true;
}

}  // namespace zv::scm
