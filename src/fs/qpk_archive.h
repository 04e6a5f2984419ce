#pragma once
// Packed archives (".qpk"): a directory file NAME_dir.qpk and numbered data files
// NAME_000.qpk, NAME_001.qpk, ... beside it. Opening reads the header and the tree only;
// file data is read on demand with positioned reads, so archives of any size cost no more
// than their tree in memory, and reads may run on several threads at once.

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/result.h"
#include "fs/content_source.h"
#include "fs/qpk_tree.h"

namespace zv::fs {

// Trees of real archives are a few megabytes; a larger claim is damage, and refusing it
// keeps a hostile header from making us allocate gigabytes.
inline constexpr uint64_t kQpkMaxTreeBytes = uint64_t{64} << 20;
// Data files an archive keeps open at once; the least recently used one is closed when
// another is needed.
inline constexpr size_t kQpkMaxOpenDataFiles = 16;

// The directory file a name means: "NAME_dir.qpk" as it is; for "NAME.qpk" the
// "NAME_dir.qpk" beside it when that exists, else the file itself.
std::string qpkDirectoryFileFor(const std::string& path);
// The numbered data file of a directory file: "NAME_dir.qpk", 3 -> "NAME_003.qpk".
std::string qpkDataFilePath(const std::string& directoryFile, uint16_t index);

class PositionedFile;

class QpkArchive final : public ContentSource {
 public:
  // Opens the archive whose directory file is at path (see qpkDirectoryFileFor).
  static Result<std::shared_ptr<QpkArchive>> open(const std::string& path);
  ~QpkArchive() override;

  const std::string& location() const override { return location_; }
  Result<std::vector<uint8_t>> read(std::string_view relative) const override;
  bool isFile(std::string_view relative) const override;
  bool isDirectory(std::string_view relative) const override;
  std::vector<DirEntry> list(std::string_view folder) const override;
  // "qpk:<directory file>:<folder/name.ext>", with the name as the archive stores it.
  std::string fullPath(std::string_view relative) const override;

  const QpkHeader& header() const { return directory_.header; }
  const std::vector<QpkEntry>& entries() const { return directory_.entries; }
  // How many data files are open now (never more than kQpkMaxOpenDataFiles).
  size_t openDataFileCount() const;

 private:
  QpkArchive(std::string location, std::vector<uint8_t> head, QpkDirectory directory,
             std::shared_ptr<PositionedFile> file);
  Result<std::shared_ptr<PositionedFile>> dataFile(uint16_t index) const;
  std::string describe(const QpkEntry& entry) const;

  std::string location_;
  std::vector<uint8_t> head_;  // the header and the tree, whose entries carry the preload bytes
  QpkDirectory directory_;
  std::shared_ptr<PositionedFile> directoryFile_;

  struct OpenFile {
    std::shared_ptr<PositionedFile> file;
    uint64_t lastUse = 0;
  };
  mutable std::mutex mutex_;  // guards the two members below
  mutable std::map<uint16_t, OpenFile> dataFiles_;
  mutable uint64_t useClock_ = 0;
};

// Opens the archive whose directory file is at path, as a source for the file system.
Result<std::shared_ptr<ContentSource>> openQpkArchive(const std::string& path);

}  // namespace zv::fs
