#include "output/output.h"

#include <filesystem>

#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "fs/atomic_write.h"
#include "scm/p4_file.h"

namespace zv {
namespace stdfs = std::filesystem;

namespace {

std::string lexicalAbsolute(std::string_view path, const stdfs::path& currentDirectory) {
  stdfs::path p(path::toForwardSlashes(path));
  if (!p.is_absolute()) p = currentDirectory / p;
  std::string out = p.lexically_normal().generic_string();
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

bool unsafeCharacter(char c) {
  unsigned char u = static_cast<unsigned char>(c);
  return u < 0x20 || u == 0x7f || std::string_view("/\\:*?\"<>|").find(c) != std::string_view::npos;
}

}  // namespace

std::string safeFileName(std::string_view name) {
  std::string safe(name);
  for (char& c : safe) {
    if (unsafeCharacter(c)) c = '_';
  }
  if (safe.find_first_not_of('.') == std::string::npos) safe = "_" + safe;
  if (safe != name) {
    mainLog().log(Severity::Warning, "Name \"%.*s\" from the model cannot be used as a file name; using \"%s\"\n",
                  int(name.size()), name.data(), safe.c_str());
  }
  return safe;
}

// The current folder is asked once: relative output paths are common, and each lookup is
// a system call.
Output::Output(std::string outputRoot, scm::SourceControl* sourceControl)
    : currentDirectory_(stdfs::current_path()),
      sourceControl_(sourceControl) {
  root_ = absolute(outputRoot);
}

std::string Output::absolute(std::string_view path) const { return lexicalAbsolute(path, currentDirectory_); }

// A folder is made once per run: its parent first (known ones cost nothing), then itself.
void Output::ensureFolder(const stdfs::path& folder) {
  if (folders_.count(folder.generic_string()) != 0) return;
  if (folder.has_relative_path() && folder.parent_path() != folder) ensureFolder(folder.parent_path());
  std::error_code ec;
  stdfs::create_directory(folder, ec);
  if (stdfs::is_directory(folder, ec)) folders_.insert(folder.generic_string());
}

void Output::beginModel() {
  claimed_.clear();
  written_.clear();
}

Result<std::string> Output::checkedPath(std::string_view path) const {
  std::string full = absolute(path);
  bool inside = full.size() > root_.size() && full.compare(0, root_.size(), root_) == 0 &&
                (root_ == "/" || full[root_.size()] == '/');
  if (!inside) return Error{format("%.*s lies outside the output root %s", int(path.size()), path.data(), root_.c_str())};
  return full;
}

Status Output::write(std::string_view path, std::span<const uint8_t> bytes) {
  auto target = checkedPath(path);
  if (!target) return target.error();
  if (!claimed_.insert(*target).second) {
    return Error{format("%s was already written for this model; the second write is refused", target->c_str())};
  }
  stdfs::path file(*target);
  ensureFolder(file.parent_path());
  scm::ScopedSourceControlWrite guard(sourceControl_, *target);
  Status written = fs::writeFileAtomic(file, bytes);
  if (!written) {
    guard.cancelAdd();
    return written;
  }
  if (folderChanged_) folderChanged_(file.parent_path().generic_string());
  written_.push_back({*target, bytes.size()});
  return Status::success();
}

Status Output::createFolder(std::string_view path) {
  std::string full = absolute(path);
  auto folder = full == root_ ? Result<std::string>(full) : checkedPath(path);
  if (!folder) return folder.error();
  ensureFolder(*folder);
  if (folders_.count(*folder) == 0) return Error{format("cannot create the folder %s", folder->c_str())};
  return Status::success();
}

Status Output::writeText(std::string_view path, std::string_view text) {
  return write(path, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

}  // namespace zv
