#pragma once
// Writes packed archives (".qpk") of either version: a directory file holding the tree,
// small files and optional preload bytes, and numbered data files beside it for larger
// files. Used by the qpkpack tool and by tests that need real archives.
//
// Version 2 archives get the extended header; their archive-checksum, other-checksum and
// signature sections are all written empty (size 0): readers do not need them.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/result.h"

namespace zv::qpkpack {

struct PackedFile {
  std::string path;  // "folder/name.ext"; either separator
  std::vector<uint8_t> bytes;
};

struct PackOptions {
  uint32_t version = 2;
  // A file whose bytes after the preload number at most this goes into the directory
  // file; a larger one into a numbered data file.
  uint64_t maxDirectoryBytes = 8192;
  // Leading bytes of every file kept in the tree itself (capped at 65535 and at the
  // file's size).
  uint32_t preloadBytes = 0;
  // A data file is closed before a file would take it past this size; a file larger than
  // the limit gets a data file of its own.
  uint64_t maxDataFileBytes = uint64_t{256} << 20;
};

// Where a file went; lets tests damage one particular entry.
struct PlacedFile {
  std::string path;
  size_t entryOffset = 0;  // of its 18-byte entry, from the start of the directory file
  uint16_t archiveIndex = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
  uint16_t preloadSize = 0;
};

struct QpkImage {
  std::vector<uint8_t> directory;
  std::vector<std::vector<uint8_t>> dataFiles;  // [i] is NAME_00i.qpk
  std::vector<PlacedFile> placed;               // in tree order
};

// The archive in memory. Files are ordered by extension, folder and name (byte order), so
// the same files always give the same bytes. Fails on names an archive cannot hold, on
// two files whose names differ only in case, and on sizes past the format's limits.
Result<QpkImage> buildQpkArchive(const std::vector<PackedFile>& files, const PackOptions& options);

// Writes the image: its data files beside directoryFile (see fs::qpkDataFilePath) and the
// directory file last. Returns the paths written, directory file first.
Result<std::vector<std::string>> writeQpkImage(const QpkImage& image, const std::string& directoryFile);
Result<std::vector<std::string>> writeQpkArchive(const std::vector<PackedFile>& files,
                                                 const std::string& directoryFile,
                                                 const PackOptions& options);

// Every regular file below folder, named relative to it with "/", sorted by name; files
// for which skip returns true are left out.
Result<std::vector<PackedFile>> collectFolder(
    const std::filesystem::path& folder, const std::function<bool(const std::filesystem::path&)>& skip = {});

}  // namespace zv::qpkpack
