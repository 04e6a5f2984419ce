#pragma once
// Loose files under a folder on disk.

#include <filesystem>
#include <optional>

#include "fs/content_source.h"

namespace zv::fs {

// The on-disk path that relative names under root, matching each component ignoring
// case when the exact spelling does not exist; nothing when no such entry exists.
std::optional<std::filesystem::path> findOnDisk(const std::filesystem::path& root, std::string_view relative);

// Reads a whole file from disk.
Result<std::vector<uint8_t>> readDiskFile(const std::filesystem::path& file);

class DirectorySource : public ContentSource {
 public:
  explicit DirectorySource(std::filesystem::path root);

  const std::string& location() const override { return location_; }
  Result<std::vector<uint8_t>> read(std::string_view relative) const override;
  bool isFile(std::string_view relative) const override;
  bool isDirectory(std::string_view relative) const override;
  std::vector<DirEntry> list(std::string_view folder) const override;
  std::string fullPath(std::string_view relative) const override;

 private:
  std::filesystem::path root_;
  std::string location_;
};

// The entries of a folder on disk, sorted by name; empty when it cannot be listed.
std::vector<DirEntry> listDiskFolder(const std::filesystem::path& folder);

}  // namespace zv::fs
