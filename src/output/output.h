#pragma once
// The one way files leave the process. Every write is checked to stay inside the output
// root, goes to a temporary file that is renamed over the target, and is registered with
// source control (state query, edit before the write, add after it). Within one model a
// path is written once: a second write to it is refused loudly instead of silently
// replacing the first. Several threads may write for one model at once.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "base/result.h"
#include "scm/source_control.h"

namespace zv {

// A file written for the current model.
struct WrittenFile {
  std::string path;
  uint64_t bytes = 0;
  friend bool operator==(const WrittenFile&, const WrittenFile&) = default;
};

class Output {
 public:
  // sourceControl may be nullptr: no source control. Outputs of one run share it, each
  // converting its own models.
  Output(std::string outputRoot, scm::SourceControl* sourceControl);

  const std::string& root() const { return root_; }
  scm::SourceControl* sourceControl() const { return sourceControl_; }

  // Starts a new model: forgets which paths the previous one wrote.
  void beginModel();

  // Writes a whole file. Missing folders below the root are created.
  Status write(std::string_view path, std::span<const uint8_t> bytes);
  // The same, for writers running at once: the file is listed in `into`, not in
  // written(), and the caller hands the lists over with addWritten in an order that does
  // not depend on which writer finished first.
  Status write(std::string_view path, std::span<const uint8_t> bytes, std::vector<WrittenFile>& into);
  void addWritten(const std::vector<WrittenFile>& files);
  Status writeText(std::string_view path, std::string_view text);
  // Creates a folder and its missing parents, inside the output root only.
  Status createFolder(std::string_view path);

  // The path with "/" separators and "." and ".." resolved, when it lies inside the
  // output root; an error otherwise.
  Result<std::string> checkedPath(std::string_view path) const;

  // Files written for the current model, in order.
  const std::vector<WrittenFile>& written() const { return written_; }

  // Called with the folder of every file written, so that a cache of folder listings can
  // forget what the write changed.
  void onWrite(std::function<void(const std::string& folder)> changed) { folderChanged_ = std::move(changed); }

 private:
  // Creates the folder of a file once for the run; called with the lock held.
  void ensureFolder(const std::filesystem::path& folder);
  std::string absolute(std::string_view path) const;

  std::string root_;
  std::filesystem::path currentDirectory_;
  scm::SourceControl* sourceControl_;
  std::mutex mutex_;  // over the claimed paths, the folders made and the written files
  std::set<std::string> claimed_;
  std::set<std::string> folders_;
  std::vector<WrittenFile> written_;
  std::function<void(const std::string&)> folderChanged_;
};

// A name taken from file contents, made usable as a single file-name component:
// separators, drive colons, wildcard and control characters become "_", and names that
// are empty or all dots are replaced.
std::string portableFileName(std::string_view name);
// portableFileName, with a message when the name changes.
std::string safeFileName(std::string_view name);

}  // namespace zv
