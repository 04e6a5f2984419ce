#include "app/command_line.h"

#include <algorithm>
#include <filesystem>

#include "base/log.h"
#include "base/native_path.h"
#include "base/path.h"
#include "base/strings.h"
#include "kv/keyvalues.h"

namespace zv::app {
namespace {

constexpr std::string_view kLocal = "LOCAL";
constexpr std::string_view kImportGame = "IMPORT_GAME";
// Folder symlinks can make a tree endless; recursion stops this deep.
constexpr int kMaxFolderDepth = 128;

constexpr const char* kUsage[] = {
    "Usage: zv_mdl_import -o <path> [options] <filespecs...>\n",
    "Options:\n",
    "    -h                         : Print this message\n",
    "    -game <game>               : Override the mod (Default zorv)\n",
    "    -v                         : Verbose mode\n",
    "    -i <path>                  : Input path (this is replaced by the ouputpath from -o\n",
    "    -o <path>                  : Output path (Required)\n",
    "    -l filelist.txt            : List of files or filespecs\n",
    "    -r                         : Recurse input dirs\n",
    "    -skipcommondmxwrite        : Skip writing dmx files (anims)\n",
    "    -YupToZup                  : Change bindpose from Yup to Zup\n",
    "    -c <changelist>            : Changelist to use, \"default\" by default.\n",
    "    -overridelean              : Override \"lean\" sequence\n",
    "    -write_weapon_anim_prefab  : Write sequences & weighlists into a prefab. \n",
    "                                 All sequences & weightlists will be prefixed with the weapon filename in the prefab\n",
    "    -header_hull_bounds        : Import mdl hull bounds from the studiohdr (typically we use we derive from physics hulls)\n",
    "    -weapon_anim_prefab <path> : Path to a prefab to be included. Path relative to 'output path'.\n",
    "    -lods                      : Import all lods. By default, only lod 0 is imported.\n",
};

struct FlagOption {
  std::string_view name;
  bool RunOptions::*field;
};

constexpr FlagOption kFlags[] = {
    {"-v", &RunOptions::verbose},
    {"-r", &RunOptions::recurse},
    {"-YupToZup", &RunOptions::yUpToZUp},
    {"-skipcommondmxwrite", &RunOptions::skipCommonDmxWrite},
    {"-overridelean", &RunOptions::overrideLean},
    {"-write_weapon_anim_prefab", &RunOptions::writeWeaponAnimPrefab},
    {"-header_hull_bounds", &RunOptions::headerHullBounds},
    {"-lods", &RunOptions::allLods},
    {"-nop4", &RunOptions::noP4},
    {"-incremental", &RunOptions::incremental},
};

LogChannel& log() { return mainLog(); }

void problem(std::optional<Color> color, const char* text) {
  if (color) {
    log().logColor(Severity::Warning, *color, "%s", text);
  } else {
    log().log(Severity::Warning, "%s", text);
  }
}

// The platform's own spelling of an absolute path.
std::string nativePath(std::string_view path) {
#ifdef _WIN32
  return path::normalize(path::toBackSlashes(path));
#else
  return path::normalize(path::toForwardSlashes(path));
#endif
}

bool setValueOption(std::string_view name, const std::string& value, RunOptions& options) {
  if (equalsNoCase(name, "-o")) {
    options.outputRoot = value;
  } else if (equalsNoCase(name, "-i")) {
    options.inputRoot = value;
  } else if (equalsNoCase(name, "-c")) {
    options.changelist = value;
  } else if (equalsNoCase(name, "-weapon_anim_prefab")) {
    options.weaponAnimPrefab = value;
  } else {
    return false;
  }
  return true;
}

bool isValueOption(std::string_view arg) {
  for (std::string_view name : {"-o", "-i", "-c", "-weapon_anim_prefab"}) {
    if (equalsNoCase(arg, name)) return true;
  }
  return false;
}

constexpr int kMaxJobs = 256;

// The batch options: "-j N", "-report FILE", "-report-html FILE", "-shard K/N". False, with a message, when the
// value is missing or wrong.
bool setBatchOption(std::string_view name, const std::string* value, RunOptions& options) {
  auto fail = [&](const char* expected) {
    std::string text = value ? format("%.*s %s: %s\n", int(name.size()), name.data(), value->c_str(), expected)
                             : format("Expected argument for %.*s\n", int(name.size()), name.data());
    problem(colors::kRed, text.c_str());
    return false;
  };
  if (!value) return fail("");
  if (equalsNoCase(name, "-report")) {
    options.reportFile = *value;
    return true;
  }
  if (equalsNoCase(name, "-report-html")) {
    options.reportPageFile = *value;
    return true;
  }
  if (equalsNoCase(name, "-j")) {
    int jobs = textToInt(*value);
    if (jobs < 1 || jobs > kMaxJobs || std::to_string(jobs) != *value) return fail("expected a number of jobs from 1 to 256");
    options.jobs = jobs;
    return true;
  }
  std::vector<std::string> parts = split(*value, '/');
  int k = parts.size() == 2 ? textToInt(parts[0]) : 0, n = parts.size() == 2 ? textToInt(parts[1]) : 0;
  if (n < 1 || k < 1 || k > n || std::to_string(k) + "/" + std::to_string(n) != *value)
    return fail("expected K/N with 1 <= K <= N");
  options.shard = std::make_pair(k, n);
  return true;
}

bool isBatchOption(std::string_view arg) {
  return equalsNoCase(arg, "-j") || equalsNoCase(arg, "-report") || equalsNoCase(arg, "-report-html") ||
         equalsNoCase(arg, "-shard");
}

bool readListFile(const std::string& name, const fs::FileSystem& fileSystem, std::vector<std::string>& specs) {
  auto bytes = fileSystem.readFile(name, kLocal);
  if (!bytes) {
    std::string resolved = fileSystem.fullPath(name, kLocal).value_or(name);
    log().logColor(Severity::Warning, colors::kRed, "Unable to read filelist -l %s\n", resolved.c_str());
    return false;
  }
  std::string text = replaceAll(std::string(bytes->begin(), bytes->end()), "\r", "\n");
  for (std::string& piece : split(text, '\n')) specs.push_back(std::move(piece));
  return true;
}

// The options pass; file specifications are collected in order.
bool parseArguments(const std::vector<std::string>& args, RunOptions& options, const fs::FileSystem& fileSystem,
                    std::vector<std::string>& specs) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    bool hasNext = i + 1 < args.size();
    if (equalsNoCase(arg, "-h")) {
      printUsage();
      return false;
    }
    if (equalsNoCase(arg, "-game") && hasNext) {
      options.mod = args[++i];
      continue;
    }
    if (auto flag = std::find_if(std::begin(kFlags), std::end(kFlags), [&](const FlagOption& f) { return equalsNoCase(arg, f.name); });
        flag != std::end(kFlags)) {
      options.*(flag->field) = true;
      continue;
    }
    if (isValueOption(arg)) {
      if (!hasNext) {
        std::string text = format("Expected argument for %s\n", toLower(arg).c_str());
        problem(equalsNoCase(arg, "-i") ? std::nullopt : std::optional<Color>(colors::kRed), text.c_str());
        return false;
      }
      setValueOption(arg, args[++i], options);
      continue;
    }
    if (isBatchOption(arg)) {
      if (!setBatchOption(arg, hasNext ? &args[i + 1] : nullptr, options)) return false;
      ++i;
      continue;
    }
    if (equalsNoCase(arg, "-scm")) {
      auto choice = hasNext ? scm::parseBackend(args[i + 1]) : std::nullopt;
      if (!choice) {
        problem(colors::kRed, hasNext ? format("Unknown source control %s (use none, p4 or git)\n", args[i + 1].c_str()).c_str()
                                      : "Expected argument for -scm\n");
        return false;
      }
      options.sourceControl = *choice;
      ++i;
      continue;
    }
    if (equalsNoCase(arg, "-l") && hasNext) {
      if (!readListFile(args[++i], fileSystem, specs)) return false;
      continue;
    }
    if (!arg.empty() && arg[0] == '-') {
      log().logColor(Severity::Warning, colors::kYellow, "Unrecognised option or option parameters %s\n", arg.c_str());
      continue;
    }
    specs.push_back(arg);
  }
  return true;
}

// An archive named by a file specification is content too: its materials and included
// models are found like those of the game's search paths.
void mountArchiveOf(const std::string& filespec, fs::FileSystem& fileSystem) {
  std::optional<fs::ArchivePath> archive = fs::splitArchivePath(filespec);
  if (!archive) return;
  auto source = fileSystem.openArchive(archive->archive);
  if (!source) return;  // the listing finds nothing and says so
  for (const fs::SearchPath& mounted : fileSystem.searchPaths()) {
    if (mounted.source == source.value()) return;
  }
  fileSystem.addSource(source.value(), kImportGame, fs::Placement::Tail);
}

// The absolute path of a found name, or nothing when it cannot be resolved.
std::optional<std::string> resolveFullPath(const std::string& name, const fs::FileSystem& fileSystem) {
  if (fs::splitArchivePath(name)) return fileSystem.fullPath(name, kLocal);
  if (path::isAbsolute(name)) return nativePath(name);
  auto found = fileSystem.fullPath(name, kLocal);
  if (!found) return std::nullopt;
  if (fs::splitArchivePath(*found) || path::isAbsolute(*found)) return nativePath(*found);
  return nativePath(native::genericFromPath(fileSystem.currentDirectory() / native::toPath(*found)));
}

void gatherInto(const fs::FileSystem& fileSystem, const std::string& folder, std::string_view pattern, bool recurse,
                int depth, std::vector<std::string>& out) {
  auto joinName = [&](const std::string& name) {
    if (folder.empty()) return name;
    char last = folder.back();
    return (last == ':' || path::isSeparator(last)) ? folder + name : folder + "/" + name;
  };
  for (const fs::DirEntry& entry : fileSystem.listFolder(folder, pattern, kLocal)) {
    if (!entry.isDirectory) out.push_back(joinName(entry.name));
  }
  if (!recurse) return;
  if (depth >= kMaxFolderDepth) {
    warning("Folders nested deeper than %d levels under %s are not searched\n", kMaxFolderDepth, folder.c_str());
    return;
  }
  for (const fs::DirEntry& entry : fileSystem.listFolder(folder, "*", kLocal)) {
    if (entry.isDirectory && entry.name != "." && entry.name != "..") {
      gatherInto(fileSystem, joinName(entry.name), pattern, recurse, depth + 1, out);
    }
  }
}

}  // namespace

void printUsage() {
  for (const char* line : kUsage) log().log(Severity::Message, "%s", line);
}

std::optional<std::string> findGameArgument(const std::vector<std::string>& args) {
  std::optional<std::string> mod;
  for (size_t i = 0; i + 1 < args.size(); ++i) {
    if (equalsNoCase(args[i], "-game")) mod = args[++i];
  }
  return mod;
}

std::vector<std::string> gatherFiles(const fs::FileSystem& fileSystem, std::string_view filespec, bool recurse) {
  std::string prefix;
  std::string_view rest = filespec;
  if (fs::splitArchivePath(filespec)) {
    size_t innerStart = findNoCase(filespec, ".qpk:") + 5;
    prefix = std::string(filespec.substr(0, innerStart));
    rest = filespec.substr(innerStart);
  }
  std::string folder = prefix + std::string(path::parent(rest));
  std::string_view pattern = path::fileName(rest);
  std::vector<std::string> found;
  gatherInto(fileSystem, folder, pattern, recurse, 0, found);
  return found;
}

std::optional<std::string> mapOutputFolder(std::string_view inputFile, const std::optional<std::string>& inputRoot,
                                           std::string_view outputRoot) {
  if (!inputRoot) return std::string(outputRoot);
  if (startsWithNoCase(inputFile, "qpk:")) {
    std::string_view rest = inputFile.substr(4);
    size_t mark = findNoCase(rest, ".qpk:");
    if (mark == std::string_view::npos) return std::nullopt;
    return path::join(outputRoot, path::parent(rest.substr(mark + 5)));
  }
  if (!startsWithNoCase(inputFile, *inputRoot)) return std::string(outputRoot);
  std::string_view below = inputFile.substr(inputRoot->size());
  if (!below.empty() && path::isSeparator(below.front())) below.remove_prefix(1);
  return path::join(outputRoot, path::parent(below));
}

bool parseCommandLine(const std::vector<std::string>& args, RunOptions& options, fs::FileSystem& fileSystem) {
  if (args.empty()) {
    printUsage();
    return false;
  }
  std::vector<std::string> specs;
  if (!parseArguments(args, options, fileSystem, specs)) return false;
  if (!options.outputRoot) {
    problem(colors::kRed, "Must supply -o for output files\n");
    return false;
  }
  if (options.incremental && !options.reportFile) {
    problem(colors::kRed, "-incremental needs -report, whose file holds the last run\n");
    return false;
  }
  if (options.inputRoot) {
    // The root is compared with full input paths, so it is made full too.
    std::string root =
        nativePath(native::genericFromPath(fileSystem.currentDirectory() / native::toPath(path::toForwardSlashes(*options.inputRoot))));
    while (root.size() > 1 && path::isSeparator(root.back())) root.pop_back();
    options.inputRoot = root;
    (void)fileSystem.addSearchPath(root, kLocal, fs::Placement::Head);
    (void)fileSystem.addSearchPath(root, kImportGame, fs::Placement::Head);
  }
  for (const std::string& spec : specs) {
    mountArchiveOf(spec, fileSystem);
    for (const std::string& name : gatherFiles(fileSystem, spec, options.recurse)) {
      if (auto full = resolveFullPath(name, fileSystem)) options.inputFiles.push_back(*full);
    }
  }
  for (const std::string& file : options.inputFiles) {
    std::optional<fs::ArchivePath> archive = fs::splitArchivePath(file);
    options.baseNames.push_back(path::fitPath(path::fileBase(archive ? archive->inner : file)));
    if (auto folder = mapOutputFolder(file, options.inputRoot, *options.outputRoot)) options.outputFolders.push_back(*folder);
  }
  if (options.inputFiles.empty()) {
    problem(colors::kRed, "No Input files found\n");
    return false;
  }
  return true;
}

}  // namespace zv::app
