#pragma once
// The one way files leave the process. Every write is checked to stay inside the output
// root, goes to a temporary file that is renamed over the target, and is registered with
// source control (state query, edit before the write, add after it). Within one model a
// path is written once: a second write to it is refused loudly instead of silently
// replacing the first.

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "base/result.h"
#include "scm/source_control.h"

namespace zv {

class Output {
 public:
  // sourceControl may be nullptr: no source control.
  Output(std::string outputRoot, scm::SourceControl* sourceControl);

  const std::string& root() const { return root_; }
  scm::SourceControl* sourceControl() const { return sourceControl_; }

  // Starts a new model: forgets which paths the previous one wrote.
  void beginModel();

  // Writes a whole file. Missing folders below the root are created.
  Status write(std::string_view path, std::span<const uint8_t> bytes);
  Status writeText(std::string_view path, std::string_view text);
  // Creates a folder and its missing parents, inside the output root only.
  Status createFolder(std::string_view path);

  // The path with "/" separators and "." and ".." resolved, when it lies inside the
  // output root; an error otherwise.
  Result<std::string> checkedPath(std::string_view path) const;

  // Paths written for the current model, in order.
  const std::vector<std::string>& written() const { return written_; }

 private:
  std::string root_;
  scm::SourceControl* sourceControl_;
  std::set<std::string> claimed_;
  std::vector<std::string> written_;
};

// A name taken from file contents, made usable as a single file-name component:
// separators, drive colons, wildcard and control characters become "_", and names that
// are empty or all dots are replaced. When the name changes, a message says so.
std::string safeFileName(std::string_view name);

}  // namespace zv
