#pragma once
// The source-control system of a run: every written file is opened for edit or added
// through it. One object per run, chosen at start-up; "none" makes every operation
// succeed without doing anything, so the tool also works without source control.

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace zv::scm {

enum class Backend { None, P4, Git };

// File states as the write protocol reads them.
namespace file_state {
inline constexpr int kNoSystem = -1;   // no source control: add after the write (a no-op)
inline constexpr int kNotInDepot = 0;  // unknown to source control: add after the write
inline constexpr int kOpened = 1;      // already opened by this client: nothing to do
inline constexpr int kInDepot = 2;     // known but not opened: open for edit before the write
}  // namespace file_state

class SourceControl {
 public:
  virtual ~SourceControl() = default;
  virtual Backend backend() const = 0;
  // The changelist files are opened in; "" means "default".
  virtual void setChangelist(const std::string& changelist) = 0;
  virtual int fileState(const std::string& path, int fileType, int changelist) = 0;
  virtual bool openForEdit(const std::string& path, int fileType, int changelist) = 0;
  virtual bool openForAdd(const std::string& path, int fileType, int changelist) = 0;
  // Finishes batched work. Called at the end of the run; safe to call at any time.
  virtual bool flush() = 0;
};

// Every operation succeeds and does nothing; the state is kNoSystem.
class NoSourceControl final : public SourceControl {
 public:
  Backend backend() const override { return Backend::None; }
  void setChangelist(const std::string&) override {}
  int fileState(const std::string&, int, int) override { return file_state::kNoSystem; }
  bool openForEdit(const std::string&, int, int) override { return true; }
  bool openForAdd(const std::string&, int, int) override { return true; }
  bool flush() override { return true; }
};

// One source-control system shared by threads that convert models side by side: each
// operation runs alone, in the order the threads ask.
class SynchronizedSourceControl final : public SourceControl {
 public:
  explicit SynchronizedSourceControl(SourceControl& inner) : inner_(inner) {}
  Backend backend() const override { return inner_.backend(); }
  void setChangelist(const std::string& changelist) override {
    std::lock_guard lock(mutex_);
    inner_.setChangelist(changelist);
  }
  int fileState(const std::string& path, int fileType, int changelist) override {
    std::lock_guard lock(mutex_);
    return inner_.fileState(path, fileType, changelist);
  }
  bool openForEdit(const std::string& path, int fileType, int changelist) override {
    std::lock_guard lock(mutex_);
    return inner_.openForEdit(path, fileType, changelist);
  }
  bool openForAdd(const std::string& path, int fileType, int changelist) override {
    std::lock_guard lock(mutex_);
    return inner_.openForAdd(path, fileType, changelist);
  }
  bool flush() override {
    std::lock_guard lock(mutex_);
    return inner_.flush();
  }

 private:
  SourceControl& inner_;
  std::mutex mutex_;
};

// "none", "p4", "git".
std::string_view backendName(Backend backend);
// The backend named by an "-scm" value (any case), or nothing when unknown.
std::optional<Backend> parseBackend(std::string_view name);

// From the command line: "-scm <name>" and "-nop4".
struct Choice {
  std::optional<Backend> forced;
  bool noP4 = false;
};

// Looks an environment variable up; nothing when it is not set.
using EnvironmentLookup = std::function<std::optional<std::string>(const std::string& name)>;
std::optional<std::string> processEnvironment(const std::string& name);

// "-scm" decides when given, except that "-nop4" always keeps p4 out. Without "-scm",
// p4 is used when the p4 client is on the PATH and configured (P4PORT or P4CONFIG set)
// and "-nop4" is not given; otherwise none. A forced client that is not on the PATH
// gives none, with a warning.
std::unique_ptr<SourceControl> chooseSourceControl(const Choice& choice,
                                                   const EnvironmentLookup& environment = processEnvironment);

// The line printed once at start in verbose mode, e.g. "Source control: git\n".
std::string sourceControlBanner(const SourceControl& system);

}  // namespace zv::scm
