#include "scm/p4_file.h"

#include <utility>

#include "base/log.h"
#include "base/native_path.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace zv::scm {
namespace {

LogChannel& fileLog() { return logChannel("P4File"); }

}  // namespace

std::string sourceControlPath(std::string path) {
#ifdef _WIN32
  std::wstring wide = native::widen(path);
  wchar_t shortPath[260];
  DWORD length = GetShortPathNameW(wide.c_str(), shortPath, 260);
  if (length == 0 || length >= 260) return path;
  wchar_t longPath[260];
  length = GetLongPathNameW(shortPath, longPath, 260);
  if (length == 0 || length >= 260) return path;
  return native::narrow(std::wstring_view(longPath, length));
#else
  return path;
#endif
}

CP4File::CP4File(SourceControl* system, std::string path, int fileType, int changelist)
    : system_(system),
      path_(sourceControlPath(std::move(path))),
      fileType_(fileType),
      changelist_(changelist) {}

CP4File::~CP4File() = default;

int CP4File::GetFileState() {
  if (!system_) return file_state::kNoSystem;
  int state = system_->fileState(path_, fileType_, changelist_);
  fileLog().log(Severity::Detail, "%s: state %d\n", path_.c_str(), state);
  return state;
}

bool CP4File::Add() {
  if (!system_) return true;
  bool ok = system_->openForAdd(path_, fileType_, changelist_);
  fileLog().log(Severity::Detail, "%s: add %s\n", path_.c_str(), ok ? "done" : "failed");
  return ok;
}

bool CP4File::Edit() {
  if (!system_) return true;
  bool ok = system_->openForEdit(path_, fileType_, changelist_);
  fileLog().log(Severity::Detail, "%s: edit %s\n", path_.c_str(), ok ? "done" : "failed");
  return ok;
}

bool CP4File::unsupported(const char* operation) {
  if (!system_) return true;
  fileLog().log(Severity::Detail, "%s: %s is not supported\n", path_.c_str(), operation);
  return false;
}

bool CP4File::Revert() { return unsupported("revert"); }
bool CP4File::Delete() { return unsupported("delete"); }

ScopedSourceControlWrite::ScopedSourceControlWrite(SourceControl* system, std::string path)
    : file_(system, std::move(path)), state_(file_.GetFileState()) {
  // Results of the opens are not checked: source control never stops a write.
  if (state_ == file_state::kOpened) return;
  if (state_ == file_state::kInDepot) {
    file_.Edit();
    return;
  }
  addPending_ = true;
}

ScopedSourceControlWrite::~ScopedSourceControlWrite() {
  if (addPending_) file_.Add();
}

}  // namespace zv::scm
