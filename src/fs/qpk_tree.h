#pragma once
// The directory of a packed archive, parsed from bytes: the header, the tree of
// extensions / folders / file names with an 18-byte entry per file, and a case-insensitive
// index over the names. Nothing here touches the disk, so the parser can be driven
// straight from memory (tests, fuzzing).

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/byte_view.h"
#include "base/result.h"
#include "fs/content_source.h"

namespace zv::fs {

inline constexpr uint32_t kQpkSignature = 0x55AA1234;
// The archive index of an entry whose data lies in the directory file itself.
inline constexpr uint16_t kQpkDirectoryArchive = 0x7FFF;
inline constexpr uint16_t kQpkEntryTerminator = 0xFFFF;
inline constexpr size_t kQpkEntrySize = 18;
inline constexpr size_t kQpkHeaderSizeV1 = 12;
inline constexpr size_t kQpkHeaderSizeV2 = 28;
// No real name comes near this; a longer one is damage.
inline constexpr size_t kQpkMaxPathLength = 1024;
// Real archives hold far fewer folders than files. The index allows one folder per file
// plus this many, so that a tree of distinct deep names cannot make it tens of times
// larger than the tree itself.
inline constexpr size_t kQpkMaxExtraFolders = 65536;

struct QpkHeader {
  uint32_t version = 0;
  uint32_t treeSize = 0;
  // Version 2 only: the sections after the tree.
  uint32_t dataSectionSize = 0;
  uint32_t archiveChecksumSize = 0;
  uint32_t otherChecksumSize = 0;
  uint32_t signatureSize = 0;

  size_t headerSize() const { return version == 1 ? kQpkHeaderSizeV1 : kQpkHeaderSizeV2; }
  // Where data stored in the directory file starts.
  uint64_t dataStart() const { return headerSize() + uint64_t{treeSize}; }
};

struct QpkEntry {
  std::string path;  // "folder/name.ext" as stored, "/"-separated, normalised
  uint32_t crc = 0;
  uint16_t archiveIndex = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
  size_t preloadOffset = 0;  // where the preload bytes start in the tree
  uint16_t preloadSize = 0;

  uint64_t totalSize() const { return uint64_t{preloadSize} + length; }
};

// A name as the archive index keys it: "/"-separated, normalised, no leading separator.
std::string normalizeQpkPath(std::string_view path);

// The header at the start of bytes; bytes may be longer than the header.
Result<QpkHeader> parseQpkHeader(ByteView bytes);

// The entries of a tree, in tree order. Fails on any string, entry or preload run that
// crosses the end of the tree, a missing entry terminator, or an unterminated list.
Result<std::vector<QpkEntry>> parseQpkTree(ByteView tree);

// Finds files and folders by name ignoring case. When two entries share a name, the
// first in tree order wins; an entry below a name that is already a file is unreachable
// and left out. Kept as a tree of nodes, one per name piece, so building it costs time
// and memory linear in the tree size whatever the names look like.
class QpkIndex {
 public:
  QpkIndex();
  explicit QpkIndex(const std::vector<QpkEntry>& entries);

  // The index of the entry named relative (normalised, "/"-separated).
  std::optional<size_t> find(std::string_view relative) const;
  bool isDirectory(std::string_view relative) const;
  // The folder's files and sub-folders, sorted by name; empty for an unknown folder.
  std::vector<DirEntry> list(std::string_view folder) const;
  // relative with each piece spelled as the archive stores it, when it names something.
  std::optional<std::string> storedPath(std::string_view relative) const;
  // False when the names made more folders than kQpkMaxExtraFolders allows; entries past
  // that point were left out.
  bool complete() const { return complete_; }

 private:
  static constexpr size_t kNoEntry = static_cast<size_t>(-1);
  struct Node {
    std::string name;                          // as stored
    size_t entry = kNoEntry;                   // files only
    std::map<std::string, uint32_t> children;  // by lower-cased name; folders only
    bool isFile() const { return entry != kNoEntry; }
  };
  void add(std::string_view path, size_t entry);
  // The node that relative names, or nothing; spelled gets the stored spelling.
  std::optional<uint32_t> walk(std::string_view relative, std::string* spelled = nullptr) const;

  std::vector<Node> nodes_;  // [0] is the root folder
  size_t nodeLimit_ = 0;
  bool complete_ = true;
};

// A directory file's header, tree and index from its first bytes (at least header and
// tree; more is fine). The in-memory entry point used by the archive reader's tests and
// by fuzzing.
struct QpkDirectory {
  QpkHeader header;
  std::vector<QpkEntry> entries;
  QpkIndex index;
};
Result<QpkDirectory> parseQpkDirectory(ByteView bytes);

}  // namespace zv::fs
