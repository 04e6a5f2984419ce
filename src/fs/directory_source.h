#pragma once
// Loose files under a folder on disk. Names are matched ignoring case, as the legacy tools
// did on every platform; to do that without listing folders again and again, the folders
// a run looks into are listed once and kept in a cache that the run's own writes update.

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "fs/content_source.h"

namespace zv::fs {

// Reads a whole file from disk.
Result<std::vector<uint8_t>> readDiskFile(const std::filesystem::path& file);

// The entries of a folder on disk, sorted by name; empty when it cannot be listed.
std::vector<DirEntry> listDiskFolder(const std::filesystem::path& folder);

// Folder listings of one run, shared by its threads.
class FolderCache {
 public:
  struct Listing {
    std::vector<DirEntry> entries;  // sorted by name
    std::unordered_map<std::string, size_t> exact;
    std::unordered_map<std::string, size_t> folded;  // lower case; the first in name order wins
  };

  // The folder's listing, read on first use; nullptr when it cannot be listed.
  std::shared_ptr<const Listing> listing(const std::filesystem::path& folder);
  // Forgets the listings of a folder and of every folder above it, whose entries a write
  // into it may have changed (a new file, new sub-folders).
  void forget(const std::filesystem::path& folder);

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, std::shared_ptr<const Listing>> listings_;
};

// Where a relative name lies on disk under root (each component matched exactly, else
// ignoring case), and whether it is a folder; nothing when no such entry exists.
struct DiskEntry {
  std::filesystem::path path;
  bool isDirectory = false;
};
std::optional<DiskEntry> findOnDisk(FolderCache& cache, const std::filesystem::path& root, std::string_view relative);

class DirectorySource : public ContentSource {
 public:
  DirectorySource(std::filesystem::path root, std::shared_ptr<FolderCache> cache);

  const std::string& location() const override { return location_; }
  Result<std::vector<uint8_t>> read(std::string_view relative) const override;
  bool isFile(std::string_view relative) const override;
  bool isDirectory(std::string_view relative) const override;
  std::vector<DirEntry> list(std::string_view folder) const override;
  std::string fullPath(std::string_view relative) const override;

 private:
  std::filesystem::path root_;
  std::string location_;
  std::shared_ptr<FolderCache> cache_;
};

}  // namespace zv::fs
