#include "fs/game_info.h"

#include "base/log.h"
#include "base/native_path.h"
#include "base/path.h"
#include "base/strings.h"
#include "fs/directory_source.h"
#include "kv/keyvalues.h"

namespace zv::fs {
namespace stdfs = std::filesystem;

namespace {

constexpr std::string_view kEmbeddedGameInfo =
    "\"GameInfo\"\n"
    "{\n"
    "\tgame\t\"zorv\"\n"
    "\tFileSystem\n"
    "\t{\n"
    "\t\tSearchPaths\n"
    "\t\t{\n"
    "\t\t\tGame\t.\n"
    "\t\t}\n"
    "\t}\n"
    "}\n";

bool namesGameOrMod(const GameSearchPath& entry) {
  for (const std::string& id : entry.pathIds) {
    if (equalsNoCase(id, "Game") || equalsNoCase(id, "Mod")) return true;
  }
  return false;
}

}  // namespace

ModLocation locateMod(const stdfs::path& gameDirectory, const std::string& mod) {
  stdfs::path modPath = native::toPath(path::toForwardSlashes(mod));
  if (!modPath.is_absolute()) return {gameDirectory, mod};
  modPath = modPath.lexically_normal();
  if (modPath.filename().empty()) modPath = modPath.parent_path();
  stdfs::path inside = modPath.lexically_relative(gameDirectory);
  if (!inside.empty() && *inside.begin() != "..") return {gameDirectory, native::genericFromPath(inside)};
  return {modPath.parent_path(), native::fromPath(modPath.filename())};
}

Result<std::vector<GameSearchPath>> parseGameInfo(std::string_view text, std::vector<std::string>& notes) {
  // Search path values are folders that may hold back-slashes: no escapes.
  auto root = KeyValues::parse(text, notes, KeyValuesOptions{.escapes = false});
  if (!root) return root.error();
  const KeyValues* info = root->firstSection();
  const KeyValues* fileSystem = info ? info->find("FileSystem") : nullptr;
  const KeyValues* paths = fileSystem ? fileSystem->find("SearchPaths") : nullptr;
  if (!paths || !paths->isSection()) return Error{"the game information has no FileSystem/SearchPaths section"};
  std::vector<GameSearchPath> out;
  for (const KeyValues& entry : paths->children()) {
    if (entry.isSection()) continue;
    out.push_back({split(entry.name(), '+'), entry.value()});
  }
  return out;
}

Result<GameInfo> loadGameInfo(const stdfs::path& gameDirectory, const std::string& mod, bool named) {
  ModLocation where = locateMod(gameDirectory, mod);
  GameInfo info{where.gameDirectory, where.mod, where.gameDirectory / native::toPath(where.mod), {}, false, {}};
  stdfs::path file = info.modDirectory / "gameinfo.gi";
  auto bytes = readDiskFile(file);
  if (!bytes && !named) {
    auto embedded = parseGameInfo(kEmbeddedGameInfo, info.notes);
    info.searchPaths = embedded.value();
    info.embeddedDefault = true;
    return info;
  }
  std::string directory = native::genericFromPath(info.modDirectory);
  if (!bytes) {
    return Error{format("Application unable to load gameinfo.gi file from directory \"%s\"\n%s", directory.c_str(),
                        (bytes.message() + "\n").c_str())};
  }
  std::vector<std::string> notes;
  auto paths =
      parseGameInfo(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()), notes);
  if (!paths) {
    return Error{format("Application unable to load gameinfo.gi file from directory \"%s\"\n%s", directory.c_str(),
                        (paths.message() + "\n").c_str())};
  }
  info.searchPaths = std::move(paths.value());
  for (const std::string& note : notes)
    info.notes.push_back(format("gameinfo.gi in \"%s\": %s", directory.c_str(), note.c_str()));
  return info;
}

std::string resolveSearchPathValue(const GameInfo& info, std::string_view value) {
  std::string text = path::toForwardSlashes(value);
  stdfs::path resolved;
  if (startsWithNoCase(text, "|mod|")) {
    resolved = info.modDirectory / native::toPath(text.substr(5));
  } else if (native::toPath(text).is_absolute()) {
    resolved = native::toPath(text);
  } else {
    resolved = info.gameDirectory / native::toPath(text);
  }
  std::string out = native::genericFromPath(resolved.lexically_normal());
  if (out.size() > 1 && out.back() == '/') out.pop_back();
  std::string_view base = path::fileBase(out);
  bool directoryFile = base.size() >= 4 && equalsNoCase(base.substr(base.size() - 4), "_dir");
  if (equalsNoCase(path::extension(out), "qpk") && !directoryFile) out = path::stripExtension(out) + "_dir.qpk";
  return out;
}

void mountGameInfo(FileSystem& fileSystem, const GameInfo& info) {
  for (const GameSearchPath& entry : info.searchPaths) {
    if (!namesGameOrMod(entry)) continue;
    std::string location = resolveSearchPathValue(info, entry.value);
    bool archive = equalsNoCase(path::extension(location), "qpk");
    std::error_code ec;
    if (archive && !stdfs::exists(native::toPath(location), ec)) {
      warning("Search path archive %s does not exist; skipped\n", location.c_str());
      continue;
    }
    for (const std::string& id : entry.pathIds) {
      Status mounted = fileSystem.addSearchPath(location, id, Placement::Tail);
      if (!mounted) {
        warning("Search path %s cannot be mounted: %s\n", location.c_str(), mounted.message().c_str());
        break;
      }
    }
  }
}

}  // namespace zv::fs
