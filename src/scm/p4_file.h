#pragma once
// CP4File: one output file as source control sees it, created just before the file is
// written and deleted after. The virtual operations keep their slot order (destructor,
// state query, open for add, the operations the converter does not call, open for
// edit). Without a source-control system every operation succeeds and does nothing.
//
// Write protocol: query the state; state 1 (opened by this client) needs nothing, state
// 2 (in the depot, not opened) is opened for edit before the write, anything else (0 not
// in the depot, -1 no system) is added after the write. ScopedSourceControlWrite does
// the steps before the write on construction and the add on destruction.

#include <string>

#include "scm/source_control.h"

namespace zv::scm {

// What the converter passes for every output file.
inline constexpr int kDefaultFileType = 2;
inline constexpr int kRunChangelist = -1;  // the changelist chosen for the run

class CP4File {
 public:
  // system: nullptr means no source control.
  CP4File(SourceControl* system, std::string path, int fileType = kDefaultFileType,
          int changelist = kRunChangelist);
  virtual ~CP4File();
  CP4File(const CP4File&) = delete;
  CP4File& operator=(const CP4File&) = delete;

  virtual int GetFileState();
  virtual bool Add();
  // Not used by the converter: nothing to do without a system, not supported with one.
  virtual bool Revert();
  virtual bool Delete();
  virtual bool Edit();

  const std::string& path() const { return path_; }
  int fileType() const { return fileType_; }
  int changelist() const { return changelist_; }

 private:
  bool unsupported(const char* operation);

  SourceControl* system_;
  std::string path_;
  int fileType_;
  int changelist_;
};

// The path as source control should see it. On Windows: the short form of the path, then
// the long form of that, which gives the names their letter case on disk; the path is
// kept when either step fails or does not fit 260 characters. Elsewhere: unchanged.
std::string sourceControlPath(std::string path);

class ScopedSourceControlWrite {
 public:
  ScopedSourceControlWrite(SourceControl* system, std::string path);
  ~ScopedSourceControlWrite();
  ScopedSourceControlWrite(const ScopedSourceControlWrite&) = delete;
  ScopedSourceControlWrite& operator=(const ScopedSourceControlWrite&) = delete;

  // The write did not happen: there is nothing to add.
  void cancelAdd() { addPending_ = false; }
  int state() const { return state_; }
  bool addPending() const { return addPending_; }

 private:
  CP4File file_;
  int state_;
  bool addPending_ = false;
};

}  // namespace zv::scm
