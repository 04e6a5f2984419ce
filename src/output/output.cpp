#include "output/output.h"

#include <filesystem>

#include "base/log.h"
#include "base/native_path.h"
#include "base/path.h"
#include "base/strings.h"
#include "fs/atomic_write.h"
#include "scm/p4_file.h"

namespace zv {
namespace stdfs = std::filesystem;

namespace {

std::string lexicalAbsolute(std::string_view path, const stdfs::path& currentDirectory) {
  stdfs::path p = native::toPath(path::toForwardSlashes(path));
  if (!p.is_absolute()) p = currentDirectory / p;
  std::string out = native::genericFromPath(p.lexically_normal());
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

bool unsafeCharacter(char c) {
  unsigned char u = static_cast<unsigned char>(c);
  return u < 0x20 || u == 0x7f || std::string_view("/\\:*?\"<>|").find(c) != std::string_view::npos;
}

bool trailingDotOrSpace(char c) { return c == '.' || c == ' '; }

// Windows opens a device, not a file, for these names with any extension; the three
// superscript digits count as digits there too.
bool reservedDeviceName(std::string_view name) {
  std::string_view stem = name.substr(0, name.find('.'));
  while (!stem.empty() && stem.back() == ' ') stem.remove_suffix(1);
  for (std::string_view device : {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$", "CLOCK$"}) {
    if (equalsNoCase(stem, device)) return true;
  }
  if (stem.size() < 4 || !(startsWithNoCase(stem, "COM") || startsWithNoCase(stem, "LPT"))) return false;
  std::string_view digit = stem.substr(3);
  return (digit.size() == 1 && digit[0] >= '1' && digit[0] <= '9') || digit == "\xC2\xB9" || digit == "\xC2\xB2" ||
         digit == "\xC2\xB3";
}

// Why a component of an output path below the root would not name the same plain file
// on every system, or nullptr: a colon opens a stream of another file on Windows, which
// also drops trailing dots and spaces and reads device names as devices.
const char* unportableComponent(std::string_view component) {
  if (component.find(':') != std::string_view::npos) return "holds a colon";
  if (!component.empty() && trailingDotOrSpace(component.back()) && component != "." && component != "..")
    return "ends with a dot or a space";
  if (reservedDeviceName(component)) return "is a device name";
  return nullptr;
}

}  // namespace

std::string portableFileName(std::string_view name) {
  std::string safe(name);
  for (char& c : safe) {
    if (unsafeCharacter(c)) c = '_';
  }
  for (size_t i = safe.size(); i > 0 && trailingDotOrSpace(safe[i - 1]); --i) safe[i - 1] = '_';
  if (safe.empty()) safe.assign(1, '_');
  if (reservedDeviceName(safe)) safe = "_" + safe;
  return safe;
}

std::string safeFileName(std::string_view name) {
  std::string safe = portableFileName(name);
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
  std::string key = native::genericFromPath(folder);
  if (folders_.count(key) != 0) return;
  if (folder.has_relative_path() && folder.parent_path() != folder) ensureFolder(folder.parent_path());
  std::error_code ec;
  stdfs::create_directory(folder, ec);
  if (stdfs::is_directory(folder, ec)) folders_.insert(std::move(key));
}

void Output::beginModel() {
  std::lock_guard lock(mutex_);
  claimed_.clear();
  written_.clear();
}

Result<std::string> Output::checkedPath(std::string_view path) const {
  std::string full = absolute(path);
  bool inside = full.size() > root_.size() && full.compare(0, root_.size(), root_) == 0 &&
                (root_.back() == '/' || full[root_.size()] == '/');
  if (!inside) return Error{format("%.*s lies outside the output root %s", int(path.size()), path.data(), root_.c_str())};
  for (const std::string& component : split(std::string_view(full).substr(root_.size()), '/')) {
    if (const char* why = unportableComponent(component)) {
      return Error{format("%s cannot be written: \"%s\" %s", full.c_str(), component.c_str(), why)};
    }
  }
  return full;
}

Status Output::write(std::string_view path, std::span<const uint8_t> bytes) {
  std::vector<WrittenFile> one;
  Status written = write(path, bytes, one);
  addWritten(one);
  return written;
}

Status Output::write(std::string_view path, std::span<const uint8_t> bytes, std::vector<WrittenFile>& into) {
  auto target = checkedPath(path);
  if (!target) return target.error();
  stdfs::path file = native::toPath(*target);
  {
    std::lock_guard lock(mutex_);
    if (!claimed_.insert(*target).second) {
      return Error{format("%s was already written for this model; the second write is refused", target->c_str())};
    }
    ensureFolder(file.parent_path());
  }
  scm::ScopedSourceControlWrite guard(sourceControl_, *target);
  Status written = fs::writeFileAtomic(file, bytes);
  if (!written) {
    guard.cancelAdd();
    return written;
  }
  if (folderChanged_) folderChanged_(native::genericFromPath(file.parent_path()));
  into.push_back({*target, bytes.size()});
  return Status::success();
}

void Output::addWritten(const std::vector<WrittenFile>& files) {
  std::lock_guard lock(mutex_);
  written_.insert(written_.end(), files.begin(), files.end());
}

Status Output::createFolder(std::string_view path) {
  std::string full = absolute(path);
  auto folder = full == root_ ? Result<std::string>(full) : checkedPath(path);
  if (!folder) return folder.error();
  std::lock_guard lock(mutex_);
  ensureFolder(native::toPath(*folder));
  if (folders_.count(*folder) == 0) return Error{format("cannot create the folder %s", folder->c_str())};
  return Status::success();
}

Status Output::writeText(std::string_view path, std::string_view text) {
  return write(path, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

}  // namespace zv
