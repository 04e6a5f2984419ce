#include "fs/qpk_tree.h"

#include <algorithm>

#include "base/strings.h"
#include "fs/file_system.h"

namespace zv::fs {
namespace {

// Walks the tree front to back; every step either consumes bytes or fails, so the
// loops that drive it end after at most tree-size steps.
class TreeCursor {
 public:
  explicit TreeCursor(ByteView tree) : tree_(tree) {}

  size_t position() const { return pos_; }

  std::optional<std::string_view> string() {
    auto text = tree_.cstr(pos_);
    if (text) pos_ += text->size() + 1;
    return text;
  }

  std::optional<ByteView> bytes(size_t count) {
    auto view = tree_.sub(pos_, count);
    if (view) pos_ += count;
    return view;
  }

 private:
  ByteView tree_;
  size_t pos_ = 0;
};

Error damaged(std::string_view what, size_t offset) {
  return Error{format("the tree is damaged: %.*s at tree offset %zu", static_cast<int>(what.size()),
                      what.data(), offset)};
}

// "folder/name.ext" from the three tree strings; " " stands for the root folder and for
// "no extension".
std::string joinName(std::string_view folder, std::string_view name, std::string_view extension) {
  std::string full;
  if (folder != " ") {
    full.append(folder);
    full.push_back('/');
  }
  full.append(name);
  if (extension != " ") {
    full.push_back('.');
    full.append(extension);
  }
  return normalizeQpkPath(full);
}

}  // namespace

std::string normalizeQpkPath(std::string_view path) {
  std::string normal = normalizeRelative(path);
  size_t lead = normal.find_first_not_of('/');
  return lead == std::string::npos ? std::string() : normal.substr(lead);
}

Result<QpkHeader> parseQpkHeader(ByteView bytes) {
  auto signature = bytes.read<uint32_t>(0);
  auto version = bytes.read<uint32_t>(4);
  auto treeSize = bytes.read<uint32_t>(8);
  if (!signature || !version || !treeSize) return Error{"the file is too short for an archive header"};
  if (*signature != kQpkSignature)
    return Error{format("not a packed archive (signature 0x%08X)", *signature)};
  if (*version != 1 && *version != 2) return Error{format("unsupported archive version %u", *version)};
  QpkHeader header;
  header.version = *version;
  header.treeSize = *treeSize;
  if (header.version == 2) {
    if (!bytes.contains(0, kQpkHeaderSizeV2))
      return Error{"the file is too short for a version 2 archive header"};
    header.dataSectionSize = bytes.readOr<uint32_t>(12, 0);
    header.archiveChecksumSize = bytes.readOr<uint32_t>(16, 0);
    header.otherChecksumSize = bytes.readOr<uint32_t>(20, 0);
    header.signatureSize = bytes.readOr<uint32_t>(24, 0);
  }
  return header;
}

Result<std::vector<QpkEntry>> parseQpkTree(ByteView tree) {
  std::vector<QpkEntry> entries;
  TreeCursor at(tree);
  for (;;) {
    size_t extensionAt = at.position();
    auto extension = at.string();
    if (!extension) return damaged("unterminated extension", extensionAt);
    if (extension->empty()) return entries;
    for (;;) {
      size_t folderAt = at.position();
      auto folder = at.string();
      if (!folder) return damaged("unterminated folder name", folderAt);
      if (folder->empty()) break;
      for (;;) {
        size_t nameAt = at.position();
        auto name = at.string();
        if (!name) return damaged("unterminated file name", nameAt);
        if (name->empty()) break;
        std::string path = joinName(*folder, *name, *extension);
        if (path.size() > kQpkMaxPathLength) return damaged("file name too long", nameAt);
        size_t entryAt = at.position();
        auto record = at.bytes(kQpkEntrySize);
        if (!record) return damaged("entry of " + path + " cut off", entryAt);
        QpkEntry entry;
        entry.path = std::move(path);
        entry.crc = record->readOr<uint32_t>(0, 0);
        entry.preloadSize = record->readOr<uint16_t>(4, 0);
        entry.archiveIndex = record->readOr<uint16_t>(6, 0);
        entry.offset = record->readOr<uint32_t>(8, 0);
        entry.length = record->readOr<uint32_t>(12, 0);
        if (record->readOr<uint16_t>(16, 0) != kQpkEntryTerminator) {
          return damaged("entry of " + entry.path + " lacks its terminator", entryAt);
        }
        entry.preloadOffset = at.position();
        if (!at.bytes(entry.preloadSize))
          return damaged("preload bytes of " + entry.path + " cut off", entryAt);
        entries.push_back(std::move(entry));
      }
    }
  }
}

QpkIndex::QpkIndex() : nodes_(1) {}

QpkIndex::QpkIndex(const std::vector<QpkEntry>& entries)
    : nodes_(1), nodeLimit_(1 + 2 * entries.size() + kQpkMaxExtraFolders) {
  for (size_t i = 0; i < entries.size() && complete_; ++i) add(entries[i].path, i);
}

void QpkIndex::add(std::string_view path, size_t entry) {
  if (path.empty()) return;
  uint32_t at = 0;
  for (;;) {
    size_t slash = path.find('/');
    std::string_view piece = path.substr(0, slash);
    bool last = slash == std::string_view::npos;
    auto [it, added] = nodes_[at].children.try_emplace(toLower(piece), static_cast<uint32_t>(nodes_.size()));
    uint32_t child = it->second;
    if (added && nodes_.size() >= nodeLimit_) {
      nodes_[at].children.erase(it);
      complete_ = false;
      return;
    }
    if (added) {
      nodes_.push_back(Node{std::string(piece), last ? entry : kNoEntry, {}});
      if (last) return;
    } else if (last || nodes_[child].isFile()) {
      return;  // the name is taken: the first entry keeps it
    }
    at = child;
    path.remove_prefix(slash + 1);
  }
}

std::optional<uint32_t> QpkIndex::walk(std::string_view relative, std::string* spelled) const {
  uint32_t at = 0;
  while (!relative.empty()) {
    size_t slash = relative.find('/');
    std::string_view piece = relative.substr(0, slash);
    if (!piece.empty()) {
      const Node& node = nodes_[at];
      auto it = node.children.find(toLower(piece));
      if (it == node.children.end()) return std::nullopt;
      at = it->second;
      if (spelled) {
        if (!spelled->empty()) spelled->push_back('/');
        spelled->append(nodes_[at].name);
      }
    }
    if (slash == std::string_view::npos) break;
    relative.remove_prefix(slash + 1);
  }
  return at;
}

std::optional<std::string> QpkIndex::storedPath(std::string_view relative) const {
  std::string spelled;
  if (!walk(relative, &spelled)) return std::nullopt;
  return spelled;
}

std::optional<size_t> QpkIndex::find(std::string_view relative) const {
  auto node = walk(relative);
  if (!node || !nodes_[*node].isFile()) return std::nullopt;
  return nodes_[*node].entry;
}

bool QpkIndex::isDirectory(std::string_view relative) const {
  auto node = walk(relative);
  return node && !nodes_[*node].isFile();
}

std::vector<DirEntry> QpkIndex::list(std::string_view folder) const {
  std::vector<DirEntry> entries;
  auto node = walk(folder);
  if (!node || nodes_[*node].isFile()) return entries;
  for (const auto& [key, child] : nodes_[*node].children) {
    entries.push_back({nodes_[child].name, !nodes_[child].isFile()});
  }
  std::sort(entries.begin(), entries.end(),
            [](const DirEntry& a, const DirEntry& b) { return a.name < b.name; });
  return entries;
}

Result<QpkDirectory> parseQpkDirectory(ByteView bytes) {
  auto header = parseQpkHeader(bytes);
  if (!header) return header.error();
  auto tree = bytes.sub(header->headerSize(), header->treeSize);
  if (!tree) {
    return Error{format("the tree (%u bytes) runs past the end of the file (%zu bytes)", header->treeSize,
                        bytes.size())};
  }
  auto entries = parseQpkTree(*tree);
  if (!entries) return entries.error();
  QpkIndex index(entries.value());
  if (!index.complete()) return Error{"the tree is damaged: its names make implausibly many folders"};
  return QpkDirectory{*header, std::move(entries.value()), std::move(index)};
}

}  // namespace zv::fs
