#pragma once
// The file system of a run: search paths, each a folder or an archive mounted under a
// path ID ("LOCAL", "IMPORT_GAME", the game's "Game" and "Mod" paths). Relative names are
// looked up through the search paths in order, the first that has the file winning;
// absolute names go straight to disk; "qpk:<archive>:<path>" names a file inside an
// archive. Both separators are accepted, and names match ignoring case.

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "fs/content_source.h"

namespace zv::fs {

class FolderCache;

// Where addSearchPath puts a path: after the others (0) or before them (1).
enum class Placement { Tail = 0, Head = 1 };

struct SearchPath {
  std::string pathId;
  std::shared_ptr<ContentSource> source;
};

// "qpk:<archive>:<path>" split into its archive and inner path.
struct ArchivePath {
  std::string archive;
  std::string inner;
};
std::optional<ArchivePath> splitArchivePath(std::string_view path);

class FileSystem {
 public:
  explicit FileSystem(std::filesystem::path currentDirectory = std::filesystem::current_path());

  // Mounts a folder, or an archive for a name ending in ".qpk"; relative paths are taken
  // from the current directory. An archive that cannot be opened is an error.
  Status addSearchPath(std::string_view path, std::string_view pathId, Placement placement);
  void addSource(std::shared_ptr<ContentSource> source, std::string_view pathId, Placement placement);
  const std::vector<SearchPath>& searchPaths() const { return searchPaths_; }
  const std::filesystem::path& currentDirectory() const { return currentDirectory_; }

  // An empty pathId searches every search path.
  Result<std::vector<uint8_t>> readFile(std::string_view path, std::string_view pathId = {}) const;
  bool fileExists(std::string_view path, std::string_view pathId = {}) const;
  bool isDirectory(std::string_view path, std::string_view pathId = {}) const;
  // The entries of folder whose names match pattern, merged over the search paths (the
  // first path that has a name wins), sorted by name.
  std::vector<DirEntry> listFolder(std::string_view folder, std::string_view pattern, std::string_view pathId) const;
  // The path that names the file from anywhere: absolute on disk, or "qpk:..." for a file
  // in an archive. Nothing when no search path has it.
  std::optional<std::string> fullPath(std::string_view path, std::string_view pathId) const;

  // Opens an archive once per run; later calls share it.
  Result<std::shared_ptr<ContentSource>> openArchive(std::string_view archivePath) const;

  // Creates a folder and its missing parents.
  static bool createDirHierarchy(std::string_view path);

  // The run wrote into this folder (absolute): folder listings it cached are read again.
  void folderChanged(const std::string& folder) const;

 private:
  struct Located {
    std::shared_ptr<ContentSource> source;
    std::string relative;
  };
  // The source and relative name that path refers to, without search-path lookup for
  // absolute and archive paths.
  std::optional<Located> locateDirect(std::string_view path) const;
  std::vector<const SearchPath*> pathsWithId(std::string_view pathId) const;
  std::filesystem::path absolute(std::string_view path) const;

  std::filesystem::path currentDirectory_;
  std::vector<SearchPath> searchPaths_;
  std::shared_ptr<FolderCache> folders_;
  // Archives by absolute path, failures included, so a corrupt archive is parsed and
  // reported once however many paths name it. Models converted in parallel share it.
  mutable std::mutex archivesMutex_;
  mutable std::map<std::string, Result<std::shared_ptr<ContentSource>>> archives_;
};

// Normalises a relative name: "\" becomes "/", "." pieces and doubled separators go,
// "x/.." pairs cancel.
std::string normalizeRelative(std::string_view path);

}  // namespace zv::fs
