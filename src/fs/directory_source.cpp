#include "fs/directory_source.h"

#include <algorithm>
#include <fstream>

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

#ifdef _WIN32

namespace {

// The entry's name as stored. Windows finds names ignoring case by itself; asking for
// the stored spelling makes the paths the tool reports the same as on other systems.
std::optional<std::string> storedName(const stdfs::path& folder, const std::string& name) {
  if (name.find_first_of("*?") != std::string::npos) return std::nullopt;  // patterns, not names
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW((folder / native::toPath(name)).c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return std::nullopt;
  FindClose(search);
  return native::narrow(found.cFileName);
}

}  // namespace

std::optional<stdfs::path> findOnDisk(const stdfs::path& root, std::string_view relative) {
  stdfs::path at = root;
  for (const std::string& part : split(relative, '/')) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      at /= "..";
      continue;
    }
    std::optional<std::string> name = storedName(at, part);
    if (!name) return std::nullopt;
    at /= native::toPath(*name);
  }
  return at;
}

#else

std::optional<stdfs::path> findOnDisk(const stdfs::path& root, std::string_view relative) {
  std::error_code ec;
  stdfs::path exact = root / native::toPath(relative);
  if (stdfs::exists(exact, ec)) return exact;
  stdfs::path at = root;
  for (const std::string& part : split(relative, '/')) {
    if (part.empty() || part == ".") continue;
    stdfs::path next = at / native::toPath(part);
    if (!stdfs::exists(next, ec)) {
      // Names sort, so the first spelling that matches wins the same way every time.
      auto entries = listDiskFolder(at);
      auto match = std::find_if(entries.begin(), entries.end(),
                                [&](const DirEntry& e) { return equalsNoCase(e.name, part); });
      if (match == entries.end()) return std::nullopt;
      next = at / native::toPath(match->name);
    }
    at = next;
  }
  return at;
}

#endif

Result<std::vector<uint8_t>> readDiskFile(const stdfs::path& file) {
  std::error_code ec;
  if (!stdfs::is_regular_file(file, ec)) return Error{"no such file: " + native::fromPath(file)};
  std::ifstream in(file, std::ios::binary);
  if (!in) return Error{"cannot open " + native::fromPath(file)};
  std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(in), {});
  if (in.bad()) return Error{"cannot read " + native::fromPath(file)};
  return bytes;
}

DirectorySource::DirectorySource(stdfs::path root) : root_(std::move(root)), location_(native::genericFromPath(root_)) {}

Result<std::vector<uint8_t>> DirectorySource::read(std::string_view relative) const {
  auto file = findOnDisk(root_, relative);
  if (!file) return Error{"no such file: " + native::genericFromPath(root_ / native::toPath(relative))};
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
  return native::genericFromPath((file ? *file : root_ / native::toPath(relative)).lexically_normal());
}

}  // namespace zv::fs
