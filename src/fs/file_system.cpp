#include "fs/file_system.h"

#include <algorithm>

#include "base/native_path.h"
#include "base/path.h"
#include "base/strings.h"
#include "fs/directory_source.h"
#include "fs/qpk_archive.h"
#include "fs/wildcard.h"

namespace zv::fs {
namespace stdfs = std::filesystem;

namespace {


bool isArchiveName(std::string_view path) { return equalsNoCase(path::extension(path), "qpk"); }

}  // namespace

std::string normalizeRelative(std::string_view path) {
  return path::normalize(path::toForwardSlashes(path));
}

std::optional<ArchivePath> splitArchivePath(std::string_view path) {
  if (!startsWithNoCase(path, "qpk:")) return std::nullopt;
  std::string_view rest = path.substr(4);
  size_t mark = findNoCase(rest, ".qpk:");
  if (mark == std::string_view::npos) return std::nullopt;
  return ArchivePath{std::string(rest.substr(0, mark + 4)), normalizeRelative(rest.substr(mark + 5))};
}

FileSystem::FileSystem(stdfs::path currentDirectory)
    : currentDirectory_(std::move(currentDirectory)), folders_(std::make_shared<FolderCache>()) {}

void FileSystem::folderChanged(const std::string& folder) const { folders_->forget(native::toPath(folder)); }

stdfs::path FileSystem::absolute(std::string_view path) const {
  stdfs::path p = native::toPath(path::toForwardSlashes(path));
  return (p.is_absolute() ? p : currentDirectory_ / p).lexically_normal();
}

Status FileSystem::addSearchPath(std::string_view path, std::string_view pathId, Placement placement) {
  if (isArchiveName(path)) {
    auto archive = openArchive(path);
    if (!archive) return archive.error();
    addSource(archive.value(), pathId, placement);
    return Status::success();
  }
  addSource(std::make_shared<DirectorySource>(absolute(path), folders_), pathId, placement);
  return Status::success();
}

void FileSystem::addSource(std::shared_ptr<ContentSource> source, std::string_view pathId, Placement placement) {
  SearchPath entry{std::string(pathId), std::move(source)};
  if (placement == Placement::Head) {
    searchPaths_.insert(searchPaths_.begin(), std::move(entry));
  } else {
    searchPaths_.push_back(std::move(entry));
  }
}

Result<std::shared_ptr<ContentSource>> FileSystem::openArchive(std::string_view archivePath) const {
  std::string key = native::genericFromPath(absolute(archivePath));
  std::lock_guard lock(archivesMutex_);
  auto it = archives_.find(key);
  if (it == archives_.end()) it = archives_.emplace(key, openQpkArchive(key)).first;
  return it->second;
}

std::vector<const SearchPath*> FileSystem::pathsWithId(std::string_view pathId) const {
  std::vector<const SearchPath*> paths;
  for (const SearchPath& p : searchPaths_) {
    if (pathId.empty() || equalsNoCase(p.pathId, pathId)) paths.push_back(&p);
  }
  return paths;
}

std::optional<FileSystem::Located> FileSystem::locateDirect(std::string_view path) const {
  if (auto archivePath = splitArchivePath(path)) {
    auto archive = openArchive(archivePath->archive);
    if (!archive) return std::nullopt;
    return Located{archive.value(), archivePath->inner};
  }
  if (!path::isAbsolute(path)) return std::nullopt;
  stdfs::path full = absolute(path);
  // A whole-disk source for absolute names: "/" (or a drive root) as its root.
  return Located{std::make_shared<DirectorySource>(full.root_path(), folders_), native::genericFromPath(full.relative_path())};
}

Result<std::vector<uint8_t>> FileSystem::readFile(std::string_view path, std::string_view pathId) const {
  if (auto archivePath = splitArchivePath(path)) {
    // Opened here rather than through locateDirect, so the reason an archive fails reaches the user.
    auto archive = openArchive(archivePath->archive);
    if (!archive) return archive.error();
    return archive.value()->read(archivePath->inner);
  }
  if (auto direct = locateDirect(path)) return direct->source->read(direct->relative);
  std::string relative = normalizeRelative(path);
  for (const SearchPath* p : pathsWithId(pathId)) {
    if (p->source->isFile(relative)) return p->source->read(relative);
  }
  return Error{"no search path holds " + std::string(path)};
}

bool FileSystem::fileExists(std::string_view path, std::string_view pathId) const {
  if (auto direct = locateDirect(path)) return direct->source->isFile(direct->relative);
  if (splitArchivePath(path)) return false;
  std::string relative = normalizeRelative(path);
  for (const SearchPath* p : pathsWithId(pathId)) {
    if (p->source->isFile(relative)) return true;
  }
  return false;
}

bool FileSystem::isDirectory(std::string_view path, std::string_view pathId) const {
  if (auto direct = locateDirect(path)) return direct->source->isDirectory(direct->relative);
  if (splitArchivePath(path)) return false;
  std::string relative = normalizeRelative(path);
  for (const SearchPath* p : pathsWithId(pathId)) {
    if (p->source->isDirectory(relative)) return true;
  }
  return false;
}

std::vector<DirEntry> FileSystem::listFolder(std::string_view folder, std::string_view pattern,
                                             std::string_view pathId) const {
  std::vector<DirEntry> merged;
  auto take = [&](const ContentSource& source, const std::string& relative) {
    for (DirEntry& entry : source.list(relative)) {
      if (!wildcardMatch(pattern, entry.name)) continue;
      bool seen = std::any_of(merged.begin(), merged.end(), [&](const DirEntry& e) { return equalsNoCase(e.name, entry.name); });
      if (!seen) merged.push_back(std::move(entry));
    }
  };
  if (auto direct = locateDirect(folder)) {
    take(*direct->source, direct->relative);
  } else if (!splitArchivePath(folder)) {
    std::string relative = normalizeRelative(folder);
    for (const SearchPath* p : pathsWithId(pathId)) take(*p->source, relative);
  }
  std::sort(merged.begin(), merged.end(), [](const DirEntry& a, const DirEntry& b) { return a.name < b.name; });
  return merged;
}

std::optional<std::string> FileSystem::fullPath(std::string_view path, std::string_view pathId) const {
  if (auto direct = locateDirect(path)) {
    if (!direct->source->isFile(direct->relative) && !direct->source->isDirectory(direct->relative)) return std::nullopt;
    return direct->source->fullPath(direct->relative);
  }
  if (splitArchivePath(path)) return std::nullopt;
  std::string relative = normalizeRelative(path);
  for (const SearchPath* p : pathsWithId(pathId)) {
    if (p->source->isFile(relative) || p->source->isDirectory(relative)) return p->source->fullPath(relative);
  }
  return std::nullopt;
}

bool FileSystem::createDirHierarchy(std::string_view path) {
  std::error_code ec;
  stdfs::path folder = native::toPath(path::toForwardSlashes(path));
  stdfs::create_directories(folder, ec);
  return stdfs::is_directory(folder, ec);
}

}  // namespace zv::fs
