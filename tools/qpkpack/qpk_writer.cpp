#include "qpkpack/qpk_writer.h"

#include <algorithm>
#include <limits>
#include <set>
#include <tuple>

#include "base/crc32.h"
#include "base/path.h"
#include "base/strings.h"
#include "fs/atomic_write.h"
#include "fs/directory_source.h"
#include "fs/file_system.h"
#include "fs/qpk_archive.h"
#include "fs/qpk_tree.h"

namespace zv::qpkpack {
namespace {

constexpr uint64_t kMaxU32 = std::numeric_limits<uint32_t>::max();
// Numbered data files run from 000 up to just below the directory file's own index.
constexpr size_t kMaxDataFiles = fs::kQpkDirectoryArchive;

void put16(std::vector<uint8_t>& out, uint16_t v) {
  out.push_back(static_cast<uint8_t>(v));
  out.push_back(static_cast<uint8_t>(v >> 8));
}

void put32(std::vector<uint8_t>& out, uint32_t v) {
  put16(out, static_cast<uint16_t>(v));
  put16(out, static_cast<uint16_t>(v >> 16));
}

void putString(std::vector<uint8_t>& out, std::string_view text) {
  out.insert(out.end(), text.begin(), text.end());
  out.push_back(0);
}

// A file's name as the tree spells it: three strings, " " for the root folder and for
// "no extension".
struct TreeName {
  std::string extension;
  std::string folder;
  std::string name;
  std::string path;  // normalised, as the reader will name it
  const PackedFile* file = nullptr;

  auto key() const { return std::tie(extension, folder, name); }
};

Result<TreeName> treeName(const PackedFile& file) {
  std::string path = fs::normalizeQpkPath(file.path);
  auto refuse = [&](const char* why) { return Error{"cannot pack \"" + file.path + "\": " + why}; };
  if (path.empty()) return refuse("empty name");
  if (path == ".." || path.starts_with("../")) return refuse("the name leaves the archive");
  if (path.find('\0') != std::string::npos) return refuse("the name holds a NUL character");
  if (path.size() > fs::kQpkMaxPathLength) return refuse("the name is too long");

  TreeName out{"", " ", "", path, &file};
  size_t slash = path.rfind('/');
  if (slash != std::string::npos) out.folder = path.substr(0, slash);
  std::string fileName = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = fileName.rfind('.');
  // ".hidden" and "name." have no extension: an empty string would end a tree list.
  if (dot == std::string::npos || dot == 0 || dot + 1 == fileName.size()) {
    out.name = fileName;
    out.extension = " ";
  } else {
    out.name = fileName.substr(0, dot);
    out.extension = fileName.substr(dot + 1);
    if (out.extension == " ") return refuse("an extension of a single space reads back as no extension");
  }
  if (out.folder == " " && slash != std::string::npos)
    return refuse("a folder named by a single space reads back as the root");
  return out;
}

// Places a file's bytes after its preload: in the directory file's data section or in the
// current numbered data file, starting a new one at the size limit.
class DataPlanner {
 public:
  DataPlanner(const PackOptions& options, QpkImage& image)
      : options_(options),
        image_(image),
        dataLimit_(std::clamp<uint64_t>(options.maxDataFileBytes, 1, kMaxU32)) {}

  Status place(std::span<const uint8_t> rest, PlacedFile& placed) {
    if (rest.size() > kMaxU32) return Error{"cannot pack \"" + placed.path + "\": larger than 4 GiB"};
    placed.length = static_cast<uint32_t>(rest.size());
    if (rest.size() <= options_.maxDirectoryBytes) {
      if (embedded_.size() + rest.size() > kMaxU32) return Error{"the directory file's data passes 4 GiB"};
      placed.archiveIndex = fs::kQpkDirectoryArchive;
      placed.offset = static_cast<uint32_t>(embedded_.size());
      embedded_.insert(embedded_.end(), rest.begin(), rest.end());
      return Status::success();
    }
    auto& files = image_.dataFiles;
    if (files.empty() || (!files.back().empty() && files.back().size() + rest.size() > dataLimit_)) {
      if (files.size() >= kMaxDataFiles) return Error{"too many data files"};
      files.emplace_back();
    }
    placed.archiveIndex = static_cast<uint16_t>(files.size() - 1);
    placed.offset = static_cast<uint32_t>(files.back().size());
    files.back().insert(files.back().end(), rest.begin(), rest.end());
    return Status::success();
  }

  std::vector<uint8_t>& embedded() { return embedded_; }

 private:
  const PackOptions& options_;
  QpkImage& image_;
  uint64_t dataLimit_;
  std::vector<uint8_t> embedded_;
};

std::vector<uint8_t> header(const PackOptions& options, size_t treeSize, size_t embeddedSize) {
  std::vector<uint8_t> out;
  put32(out, fs::kQpkSignature);
  put32(out, options.version);
  put32(out, static_cast<uint32_t>(treeSize));
  if (options.version == 2) {
    put32(out, static_cast<uint32_t>(embeddedSize));
    put32(out, 0);  // archive checksums
    put32(out, 0);  // other checksums
    put32(out, 0);  // signature
  }
  return out;
}

}  // namespace

Result<QpkImage> buildQpkArchive(const std::vector<PackedFile>& files, const PackOptions& options) {
  if (options.version != 1 && options.version != 2)
    return Error{format("no archive version %u", options.version)};
  std::vector<TreeName> names;
  std::set<std::string> seen;
  for (const PackedFile& file : files) {
    auto name = treeName(file);
    if (!name) return name.error();
    std::string key = toLower(name->path);
    if (!seen.insert(key).second) return Error{"two files are named \"" + file.path + "\" (ignoring case)"};
    names.push_back(std::move(name.value()));
  }
  // A name that is a file and also a folder of another file would hide one of the two.
  for (const std::string& key : seen) {
    for (size_t slash = key.find('/'); slash != std::string::npos; slash = key.find('/', slash + 1)) {
      if (seen.count(key.substr(0, slash)))
        return Error{"\"" + key.substr(0, slash) + "\" is both a file and a folder"};
    }
  }
  std::sort(names.begin(), names.end(),
            [](const TreeName& a, const TreeName& b) { return a.key() < b.key(); });

  size_t headerSize = options.version == 1 ? fs::kQpkHeaderSizeV1 : fs::kQpkHeaderSizeV2;
  uint16_t preloadLimit = static_cast<uint16_t>(std::min<uint32_t>(options.preloadBytes, 0xFFFF));
  QpkImage image;
  DataPlanner planner(options, image);
  std::vector<uint8_t> tree;
  for (size_t i = 0; i < names.size(); ++i) {
    const TreeName& n = names[i];
    bool newExtension = i == 0 || names[i - 1].extension != n.extension;
    bool newFolder = newExtension || names[i - 1].folder != n.folder;
    if (newExtension) putString(tree, n.extension);
    if (newFolder) putString(tree, n.folder);
    putString(tree, n.name);

    const std::vector<uint8_t>& bytes = n.file->bytes;
    PlacedFile placed;
    placed.path = n.file->path;
    placed.entryOffset = headerSize + tree.size();
    placed.preloadSize = static_cast<uint16_t>(std::min<size_t>(preloadLimit, bytes.size()));
    Status status = planner.place(std::span(bytes).subspan(placed.preloadSize), placed);
    if (!status) return status.error();

    put32(tree, crc32(bytes));
    put16(tree, placed.preloadSize);
    put16(tree, placed.archiveIndex);
    put32(tree, placed.offset);
    put32(tree, placed.length);
    put16(tree, fs::kQpkEntryTerminator);
    tree.insert(tree.end(), bytes.begin(), bytes.begin() + placed.preloadSize);
    image.placed.push_back(std::move(placed));

    bool lastInFolder =
        i + 1 == names.size() || names[i + 1].extension != n.extension || names[i + 1].folder != n.folder;
    bool lastInExtension = i + 1 == names.size() || names[i + 1].extension != n.extension;
    if (lastInFolder) tree.push_back(0);
    if (lastInExtension) tree.push_back(0);
  }
  tree.push_back(0);
  if (tree.size() > kMaxU32) return Error{"the tree passes 4 GiB"};

  image.directory = header(options, tree.size(), planner.embedded().size());
  image.directory.insert(image.directory.end(), tree.begin(), tree.end());
  image.directory.insert(image.directory.end(), planner.embedded().begin(), planner.embedded().end());
  return image;
}

Result<std::vector<std::string>> writeQpkImage(const QpkImage& image, const std::string& directoryFile) {
  std::vector<std::string> written{directoryFile};
  std::string folder(path::parent(directoryFile));
  if (!folder.empty() && !fs::FileSystem::createDirHierarchy(folder))
    return Error{"cannot create the folder " + folder};
  for (size_t i = 0; i < image.dataFiles.size(); ++i) {
    std::string path = fs::qpkDataFilePath(directoryFile, static_cast<uint16_t>(i));
    Status status = fs::writeFileAtomic(path, image.dataFiles[i]);
    if (!status) return Error{"cannot write " + path + ": " + status.message()};
    written.push_back(path);
  }
  // Last, so the directory never names data files that are not there yet.
  Status status = fs::writeFileAtomic(directoryFile, image.directory);
  if (!status) return Error{"cannot write " + directoryFile + ": " + status.message()};
  return written;
}

Result<std::vector<std::string>> writeQpkArchive(const std::vector<PackedFile>& files,
                                                 const std::string& directoryFile,
                                                 const PackOptions& options) {
  auto image = buildQpkArchive(files, options);
  if (!image) return image.error();
  return writeQpkImage(*image, directoryFile);
}

Result<std::vector<PackedFile>> collectFolder(const std::filesystem::path& folder,
                                              const std::function<bool(const std::filesystem::path&)>& skip) {
  namespace stdfs = std::filesystem;
  std::error_code ec;
  if (!stdfs::is_directory(folder, ec)) return Error{"no such folder: " + folder.string()};
  std::vector<stdfs::path> found;
  stdfs::recursive_directory_iterator it(folder, stdfs::directory_options::skip_permission_denied, ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    std::error_code typeError;
    if (it->is_regular_file(typeError) && !(skip && skip(it->path()))) found.push_back(it->path());
  }
  if (ec) return Error{"cannot list " + folder.string() + ": " + ec.message()};
  std::vector<PackedFile> files;
  for (const stdfs::path& file : found) {
    auto bytes = fs::readDiskFile(file);
    if (!bytes) return bytes.error();
    files.push_back({file.lexically_relative(folder).generic_string(), std::move(bytes.value())});
  }
  std::sort(files.begin(), files.end(),
            [](const PackedFile& a, const PackedFile& b) { return a.path < b.path; });
  return files;
}

}  // namespace zv::qpkpack
