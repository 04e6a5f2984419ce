#include "fs/directory_source.h"

#include <algorithm>
#include <cstdio>

#include "base/path.h"
#include "base/strings.h"

namespace zv::fs {
namespace stdfs = std::filesystem;

std::vector<DirEntry> listDiskFolder(const stdfs::path& folder) {
  std::vector<DirEntry> entries;
  std::error_code ec;
  stdfs::directory_iterator it(folder, ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    std::error_code typeError;
    entries.push_back({it->path().filename().string(), it->is_directory(typeError)});
  }
  std::sort(entries.begin(), entries.end(), [](const DirEntry& a, const DirEntry& b) { return a.name < b.name; });
  return entries;
}

std::shared_ptr<const FolderCache::Listing> FolderCache::listing(const stdfs::path& folder) {
  std::string key = folder.generic_string();
  {
    std::lock_guard lock(mutex_);
    auto found = listings_.find(key);
    if (found != listings_.end()) return found->second;
  }
  std::error_code ec;
  std::shared_ptr<Listing> listed;
  if (stdfs::is_directory(folder, ec)) {
    listed = std::make_shared<Listing>();
    listed->entries = listDiskFolder(folder);
    for (size_t i = 0; i < listed->entries.size(); ++i) {
      listed->exact.emplace(listed->entries[i].name, i);
      listed->folded.emplace(toLower(listed->entries[i].name), i);
    }
  }
  std::lock_guard lock(mutex_);
  // Another thread may have listed it meanwhile; either listing is the same folder.
  return listings_.emplace(std::move(key), std::move(listed)).first->second;
}

void FolderCache::forget(const stdfs::path& folder) {
  std::lock_guard lock(mutex_);
  for (stdfs::path at = folder;; at = at.parent_path()) {
    listings_.erase(at.generic_string());
    if (!at.has_relative_path()) break;
  }
}

std::optional<DiskEntry> findOnDisk(FolderCache& cache, const stdfs::path& root, std::string_view relative) {
  DiskEntry at{root, true};
  for (const std::string& part : split(relative, '/')) {
    if (part.empty() || part == ".") continue;
    auto listing = at.isDirectory ? cache.listing(at.path) : nullptr;
    if (!listing) return std::nullopt;
    auto found = listing->exact.find(part);
    if (found == listing->exact.end()) found = listing->folded.find(toLower(part));
    if (found == listing->folded.end()) return std::nullopt;
    const DirEntry& entry = listing->entries[found->second];
    at = {at.path / entry.name, entry.isDirectory};
  }
  if (at.path == root && !cache.listing(root)) return std::nullopt;
  return at;
}

Result<std::vector<uint8_t>> readDiskFile(const stdfs::path& file) {
  // One open, one size query and one read: files are read whole.
  std::FILE* in = std::fopen(file.string().c_str(), "rb");
  if (in == nullptr) return Error{"cannot open " + file.string()};
  std::vector<uint8_t> bytes;
  bool ok = std::fseek(in, 0, SEEK_END) == 0;
  long size = ok ? std::ftell(in) : -1;
  ok = size >= 0 && std::fseek(in, 0, SEEK_SET) == 0;
  if (ok) {
    bytes.resize(size_t(size));
    ok = std::fread(bytes.data(), 1, bytes.size(), in) == bytes.size();
  }
  std::fclose(in);
  if (!ok) return Error{"cannot read " + file.string()};
  return bytes;
}

DirectorySource::DirectorySource(stdfs::path root, std::shared_ptr<FolderCache> cache)
    : root_(std::move(root)), location_(root_.generic_string()), cache_(std::move(cache)) {}

Result<std::vector<uint8_t>> DirectorySource::read(std::string_view relative) const {
  auto file = findOnDisk(*cache_, root_, relative);
  if (!file || file->isDirectory) return Error{"no such file: " + (root_ / std::string(relative)).generic_string()};
  return readDiskFile(file->path);
}

bool DirectorySource::isFile(std::string_view relative) const {
  auto file = findOnDisk(*cache_, root_, relative);
  return file && !file->isDirectory;
}

bool DirectorySource::isDirectory(std::string_view relative) const {
  auto folder = findOnDisk(*cache_, root_, relative);
  return folder && folder->isDirectory;
}

std::vector<DirEntry> DirectorySource::list(std::string_view folder) const {
  auto dir = findOnDisk(*cache_, root_, folder);
  auto listing = dir && dir->isDirectory ? cache_->listing(dir->path) : nullptr;
  return listing ? listing->entries : std::vector<DirEntry>();
}

std::string DirectorySource::fullPath(std::string_view relative) const {
  auto file = findOnDisk(*cache_, root_, relative);
  return (file ? file->path : root_ / std::string(relative)).lexically_normal().generic_string();
}

}  // namespace zv::fs
