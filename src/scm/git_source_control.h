#pragma once
// Source control through git: a written file that git does not track yet is added to
// the index. Git needs nothing before a write, so every file answers "add after the
// write" without asking git; the adds are queued and done in batches, a couple of git
// calls per repository per batch, where git itself drops files that are tracked already
// or ignored. Files outside any repository are left alone.

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "scm/source_control.h"

namespace zv::scm {

class GitSourceControl final : public SourceControl {
 public:
  // Queued files are handed to git when this many are waiting (and at flush). The bound
  // on bytes keeps one batch's command line well inside every system's limit (Windows
  // takes 32767 UTF-16 units, which UTF-8 bytes never undercount).
  static constexpr size_t kBatchFiles = 256;
#ifdef _WIN32
  static constexpr size_t kBatchBytes = 24 * 1024;
#else
  static constexpr size_t kBatchBytes = 64 * 1024;
#endif

  // program: the git to run, a full path or a name looked up on the PATH.
  explicit GitSourceControl(std::string program);
  ~GitSourceControl() override;
  GitSourceControl(const GitSourceControl&) = delete;
  GitSourceControl& operator=(const GitSourceControl&) = delete;

  Backend backend() const override { return Backend::Git; }
  void setChangelist(const std::string&) override {}  // git has no changelists
  int fileState(const std::string& path, int fileType, int changelist) override;
  bool openForEdit(const std::string& path, int fileType, int changelist) override;
  bool openForAdd(const std::string& path, int fileType, int changelist) override;
  bool flush() override;

  size_t queuedFiles() const { return queue_.size(); }

 private:
  // The work tree holding the folder: the nearest folder upwards with a ".git" entry.
  const std::optional<std::filesystem::path>& workTreeOf(const std::filesystem::path& folder);
  bool addToWorkTree(const std::filesystem::path& top, const std::vector<std::string>& relativePaths);

  std::string program_;
  std::vector<std::filesystem::path> queue_;
  size_t queuedBytes_ = 0;
  std::map<std::filesystem::path, std::optional<std::filesystem::path>> workTrees_;
};

}  // namespace zv::scm
