#include "fs/directory_source.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "base/native_path.h"
#include "base/path.h"
#include "base/strings.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace zv::fs {
namespace stdfs = std::filesystem;

#ifdef _WIN32

// Listed with the system's own calls: the C library's folder reading under MinGW stops at
// 260 characters.
std::vector<DirEntry> listDiskFolder(const stdfs::path& folder) {
  std::vector<DirEntry> entries;
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileExW((folder / L"*").c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
  if (search == INVALID_HANDLE_VALUE) return entries;
  do {
    std::wstring_view name = found.cFileName;
    if (name == L"." || name == L"..") continue;
    entries.push_back({native::narrow(name), (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0});
  } while (FindNextFileW(search, &found));
  FindClose(search);
  std::sort(entries.begin(), entries.end(), [](const DirEntry& a, const DirEntry& b) { return a.name < b.name; });
  return entries;
}

#else

std::vector<DirEntry> listDiskFolder(const stdfs::path& folder) {
  std::vector<DirEntry> entries;
  std::error_code ec;
  stdfs::directory_iterator it(folder, ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    std::error_code typeError;
    entries.push_back({native::fromPath(it->path().filename()), it->is_directory(typeError)});
  }
  std::sort(entries.begin(), entries.end(), [](const DirEntry& a, const DirEntry& b) { return a.name < b.name; });
  return entries;
}

#endif

std::shared_ptr<const FolderCache::Listing> FolderCache::listing(const stdfs::path& folder) {
  std::string key = native::genericFromPath(folder);
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
    listings_.erase(native::genericFromPath(at));
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
    at = {at.path / native::toPath(entry.name), entry.isDirectory};
  }
  if (at.path == root && !cache.listing(root)) return std::nullopt;
  return at;
}

namespace {

#ifdef _WIN32
std::FILE* openForReading(const stdfs::path& file) { return _wfopen(file.c_str(), L"rb"); }
// 64-bit positions: long is 32 bits on Windows.
bool seekTo(std::FILE* in, int origin) { return _fseeki64(in, 0, origin) == 0; }
int64_t position(std::FILE* in) { return _ftelli64(in); }
#else
std::FILE* openForReading(const stdfs::path& file) { return std::fopen(file.c_str(), "rb"); }
bool seekTo(std::FILE* in, int origin) { return std::fseek(in, 0, origin) == 0; }
int64_t position(std::FILE* in) { return std::ftell(in); }
#endif

}  // namespace

Result<std::vector<uint8_t>> readDiskFile(const stdfs::path& file) {
  // One open, one size query and one read: files are read whole.
  std::FILE* in = openForReading(file);
  if (in == nullptr) return Error{"cannot open " + native::fromPath(file)};
  std::vector<uint8_t> bytes;
  int64_t size = seekTo(in, SEEK_END) ? position(in) : -1;
  bool ok = size >= 0 && seekTo(in, SEEK_SET);
  if (ok) {
    bytes.resize(size_t(size));
    ok = std::fread(bytes.data(), 1, bytes.size(), in) == bytes.size();
  }
  std::fclose(in);
  if (!ok) return Error{"cannot read " + native::fromPath(file)};
  return bytes;
}

DirectorySource::DirectorySource(stdfs::path root, std::shared_ptr<FolderCache> cache)
    : root_(std::move(root)), location_(native::genericFromPath(root_)), cache_(std::move(cache)) {}

Result<std::vector<uint8_t>> DirectorySource::read(std::string_view relative) const {
  auto file = findOnDisk(*cache_, root_, relative);
  if (!file || file->isDirectory) return Error{"no such file: " + native::genericFromPath(root_ / native::toPath(relative))};
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
  return native::genericFromPath((file ? file->path : root_ / native::toPath(relative)).lexically_normal());
}

}  // namespace zv::fs
