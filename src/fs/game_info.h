#pragma once
// The game information of a mod (<game dir>/<mod>/gameinfo.gi): the search paths its
// content lives in. Without a named mod and without the default mod's file, an embedded
// default (the current directory as the only search path) lets the tool run anywhere.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/result.h"
#include "fs/file_system.h"

namespace zv::fs {

inline constexpr const char* kDefaultMod = "zorv";

struct GameSearchPath {
  std::vector<std::string> pathIds;  // "Game", "Mod", ... as the key names them
  std::string value;                 // as written, "|mod|" not yet replaced
};

struct GameInfo {
  std::filesystem::path gameDirectory;
  std::string mod;
  std::filesystem::path modDirectory;
  std::vector<GameSearchPath> searchPaths;
  bool embeddedDefault = false;
  // What the file's text needed to be read (sections its end closed), for the run to say.
  std::vector<std::string> notes;
};

// Where a mod name points: the game directory and the mod's folder name. A relative
// name is a folder of the game directory; an absolute path outside it makes its parent
// the game directory and its last component the mod.
struct ModLocation {
  std::filesystem::path gameDirectory;
  std::string mod;
};
ModLocation locateMod(const std::filesystem::path& gameDirectory, const std::string& mod);

// Loads the mod's game information. named says whether the mod was named by the user
// (-game or QMOD); only then is a missing file an error, whose text is the fatal message.
Result<GameInfo> loadGameInfo(const std::filesystem::path& gameDirectory, const std::string& mod, bool named);
// Parses game information text.
Result<std::vector<GameSearchPath>> parseGameInfo(std::string_view text, std::vector<std::string>& notes);

// Mounts every search path whose IDs include Game or Mod, in order, under the IDs its key
// names. A missing archive is a warning, a corrupt one is reported and skipped.
void mountGameInfo(FileSystem& fileSystem, const GameInfo& info);

// The on-disk path a search path value names ("|mod|" replaced, archives made the
// "_dir.qpk" directory file), relative values taken from the game directory.
std::string resolveSearchPathValue(const GameInfo& info, std::string_view value);

}  // namespace zv::fs
