#include "fs/qpk_archive.h"

#include <algorithm>
#include <filesystem>
#include <limits>

#include "base/crc32.h"
#include "base/native_path.h"
#include "base/strings.h"
#include "fs/positioned_file.h"

namespace zv::fs {

namespace {

bool endsWithNoCase(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && equalsNoCase(text.substr(text.size() - suffix.size()), suffix);
}

// The name without ".qpk" and without "_dir".
std::string_view archiveStem(std::string_view path) {
  if (endsWithNoCase(path, ".qpk")) path.remove_suffix(4);
  if (endsWithNoCase(path, "_dir")) path.remove_suffix(4);
  return path;
}

}  // namespace

std::string qpkDirectoryFileFor(const std::string& path) {
  if (!endsWithNoCase(path, ".qpk") || endsWithNoCase(path, "_dir.qpk")) return path;
  std::string candidate = path.substr(0, path.size() - 4) + "_dir.qpk";
  std::error_code ec;
  return std::filesystem::is_regular_file(native::toPath(candidate), ec) ? candidate : path;
}

std::string qpkDataFilePath(const std::string& directoryFile, uint16_t index) {
  return std::string(archiveStem(directoryFile)) + format("_%03u.qpk", static_cast<unsigned>(index));
}

Result<std::shared_ptr<QpkArchive>> QpkArchive::open(const std::string& path) {
  // Absolute, so that full paths name the file from anywhere.
  std::string location =
      native::genericFromPath(std::filesystem::absolute(native::toPath(qpkDirectoryFileFor(path))).lexically_normal());
  auto fail = [&](const std::string& why) { return Error{"cannot open archive " + location + ": " + why}; };
  auto file = PositionedFile::open(location);
  if (!file) return fail(file.message());
  uint64_t fileSize = file.value()->size();

  std::vector<uint8_t> head(static_cast<size_t>(std::min<uint64_t>(fileSize, kQpkHeaderSizeV2)));
  if (!file.value()->readAt(0, head.data(), head.size())) return fail("cannot read the header");
  auto header = parseQpkHeader(ByteView(head));
  if (!header) return fail(header.message());
  if (header->dataStart() > fileSize) {
    return fail(format("the tree (%u bytes) runs past the end of the file (%llu bytes)", header->treeSize,
                       static_cast<unsigned long long>(fileSize)));
  }
  if (header->treeSize > kQpkMaxTreeBytes)
    return fail(format("the tree is implausibly large (%u bytes)", header->treeSize));

  head.resize(static_cast<size_t>(header->dataStart()));
  if (!file.value()->readAt(0, head.data(), head.size())) return fail("cannot read the tree");
  auto directory = parseQpkDirectory(ByteView(head));
  if (!directory) return fail(directory.message());
  return std::shared_ptr<QpkArchive>(new QpkArchive(std::move(location), std::move(head),
                                                    std::move(directory.value()), std::move(file.value())));
}

QpkArchive::QpkArchive(std::string location, std::vector<uint8_t> head, QpkDirectory directory,
                       std::shared_ptr<PositionedFile> file)
    : location_(std::move(location)),
      head_(std::move(head)),
      directory_(std::move(directory)),
      directoryFile_(std::move(file)) {}

QpkArchive::~QpkArchive() = default;

std::string QpkArchive::describe(const QpkEntry& entry) const {
  return "archive " + location_ + ", entry " + entry.path;
}

Result<std::shared_ptr<PositionedFile>> QpkArchive::dataFile(uint16_t index) const {
  std::lock_guard lock(mutex_);
  auto it = dataFiles_.find(index);
  if (it != dataFiles_.end()) {
    it->second.lastUse = ++useClock_;
    return it->second.file;
  }
  auto file = PositionedFile::open(qpkDataFilePath(location_, index));
  if (!file) return file.error();
  if (dataFiles_.size() >= kQpkMaxOpenDataFiles) {
    // Readers hold their own reference, so closing here never pulls a file from under them.
    auto oldest = std::min_element(dataFiles_.begin(), dataFiles_.end(), [](const auto& a, const auto& b) {
      return a.second.lastUse < b.second.lastUse;
    });
    dataFiles_.erase(oldest);
  }
  dataFiles_.emplace(index, OpenFile{file.value(), ++useClock_});
  return file;
}

size_t QpkArchive::openDataFileCount() const {
  std::lock_guard lock(mutex_);
  return dataFiles_.size();
}

Result<std::vector<uint8_t>> QpkArchive::read(std::string_view relative) const {
  auto found = directory_.index.find(relative);
  if (!found) return Error{"archive " + location_ + " has no file " + std::string(relative)};
  const QpkEntry& entry = directory_.entries[*found];

  // The parser checked that the preload bytes lie inside the tree.
  const uint8_t* preload = head_.data() + directory_.header.headerSize() + entry.preloadOffset;
  std::vector<uint8_t> bytes(preload, preload + entry.preloadSize);
  if (entry.length > 0) {
    std::shared_ptr<PositionedFile> file = directoryFile_;
    uint64_t start = entry.offset;
    if (entry.archiveIndex == kQpkDirectoryArchive) {
      start += directory_.header.dataStart();
    } else {
      auto data = dataFile(entry.archiveIndex);
      if (!data) return Error{describe(entry) + ": " + data.message()};
      file = data.value();
    }
    if (start + entry.length > file->size()) {
      std::string where = entry.archiveIndex == kQpkDirectoryArchive
                              ? location_
                              : qpkDataFilePath(location_, entry.archiveIndex);
      return Error{describe(entry) +
                   format(": %u bytes at offset %llu lie past the end of ", entry.length,
                          static_cast<unsigned long long>(start)) +
                   where + format(" (%llu bytes)", static_cast<unsigned long long>(file->size()))};
    }
    bytes.resize(bytes.size() + entry.length);
    if (!file->readAt(start, bytes.data() + entry.preloadSize, entry.length)) {
      return Error{describe(entry) + ": the data cannot be read"};
    }
  }
  uint32_t crc = crc32(bytes);
  if (crc != entry.crc)
    return Error{describe(entry) + format(": CRC mismatch (stored %08X, computed %08X)", entry.crc, crc)};
  return bytes;
}

bool QpkArchive::isFile(std::string_view relative) const {
  return directory_.index.find(relative).has_value();
}

bool QpkArchive::isDirectory(std::string_view relative) const {
  return directory_.index.isDirectory(relative);
}

std::vector<DirEntry> QpkArchive::list(std::string_view folder) const {
  return directory_.index.list(folder);
}

std::string QpkArchive::fullPath(std::string_view relative) const {
  auto stored = directory_.index.storedPath(relative);
  return "qpk:" + location_ + ":" + (stored ? *stored : std::string(relative));
}

Result<std::shared_ptr<ContentSource>> openQpkArchive(const std::string& path) {
  auto archive = QpkArchive::open(path);
  if (!archive) return archive.error();
  return std::shared_ptr<ContentSource>(std::move(archive.value()));
}

}  // namespace zv::fs
