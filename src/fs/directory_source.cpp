#include "fs/directory_source.h"

#include <algorithm>
#include <fstream>

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

std::optional<stdfs::path> findOnDisk(const stdfs::path& root, std::string_view relative) {
  std::error_code ec;
  stdfs::path exact = root / stdfs::path(std::string(relative));
  if (stdfs::exists(exact, ec)) return exact;
  stdfs::path at = root;
  for (const std::string& part : split(relative, '/')) {
    if (part.empty() || part == ".") continue;
    stdfs::path next = at / part;
    if (!stdfs::exists(next, ec)) {
      // Names sort, so the first spelling that matches wins the same way every time.
      auto entries = listDiskFolder(at);
      auto match = std::find_if(entries.begin(), entries.end(),
                                [&](const DirEntry& e) { return equalsNoCase(e.name, part); });
      if (match == entries.end()) return std::nullopt;
      next = at / match->name;
    }
    at = next;
  }
  return at;
}

Result<std::vector<uint8_t>> readDiskFile(const stdfs::path& file) {
  std::error_code ec;
  if (!stdfs::is_regular_file(file, ec)) return Error{"no such file: " + file.string()};
  std::ifstream in(file, std::ios::binary);
  if (!in) return Error{"cannot open " + file.string()};
  std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(in), {});
  if (in.bad()) return Error{"cannot read " + file.string()};
  return bytes;
}

DirectorySource::DirectorySource(stdfs::path root) : root_(std::move(root)), location_(root_.generic_string()) {}

Result<std::vector<uint8_t>> DirectorySource::read(std::string_view relative) const {
  auto file = findOnDisk(root_, relative);
  if (!file) return Error{"no such file: " + (root_ / std::string(relative)).generic_string()};
  return readDiskFile(*file);
}

bool DirectorySource::isFile(std::string_view relative) const {
  std::error_code ec;
  auto file = findOnDisk(root_, relative);
  return file && stdfs::is_regular_file(*file, ec);
}

bool DirectorySource::isDirectory(std::string_view relative) const {
  std::error_code ec;
  auto folder = findOnDisk(root_, relative);
  return folder && stdfs::is_directory(*folder, ec);
}

std::vector<DirEntry> DirectorySource::list(std::string_view folder) const {
  auto dir = folder.empty() ? std::optional<stdfs::path>(root_) : findOnDisk(root_, folder);
  return dir ? listDiskFolder(*dir) : std::vector<DirEntry>();
}

std::string DirectorySource::fullPath(std::string_view relative) const {
  auto file = findOnDisk(root_, relative);
  return (file ? *file : root_ / std::string(relative)).lexically_normal().generic_string();
}

}  // namespace zv::fs
