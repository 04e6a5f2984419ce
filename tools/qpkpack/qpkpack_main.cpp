#include "qpkpack/qpkpack_main.h"

#include <charconv>
#include <filesystem>

#include "base/strings.h"
#include "fs/qpk_archive.h"
#include "qpkpack/qpk_writer.h"

namespace zv::qpkpack {
namespace {

constexpr const char* kUsage =
    "usage: qpkpack [-v1|-v2] [-max-dir-bytes N] [-preload N] [-max-data-bytes N] OUT_dir.qpk FOLDER\n"
    "  -v1, -v2            archive version (default 2)\n"
    "  -max-dir-bytes N    files of at most N bytes (after the preload) go into the directory file (default "
    "8192)\n"
    "  -preload N          keep the first N bytes of every file in the tree (default 0, at most 65535)\n"
    "  -max-data-bytes N   start a new data file before one passes N bytes (default 268435456)\n";

bool parseNumber(const std::string& text, uint64_t& value) {
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), end, value);
  return ec == std::errc() && ptr == end && !text.empty();
}

// True for the archive being written and its numbered data files, so that packing a
// folder into itself does not swallow a previous run's output.
bool isOwnOutput(const std::filesystem::path& file, const std::filesystem::path& directoryFile) {
  std::filesystem::path absolute = std::filesystem::absolute(file).lexically_normal();
  if (absolute == directoryFile) return true;
  if (absolute.parent_path() != directoryFile.parent_path()) return false;
  std::string stem = fs::qpkDataFilePath(directoryFile.filename().string(), 0);
  stem.resize(stem.size() - std::string_view("000.qpk").size());
  std::string name = absolute.filename().string();
  if (!startsWithNoCase(name, stem) || name.size() < stem.size() + 4) return false;
  std::string_view digits = std::string_view(name).substr(stem.size(), name.size() - stem.size() - 4);
  if (!equalsNoCase(std::string_view(name).substr(name.size() - 4), ".qpk") || digits.empty()) return false;
  return digits.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

int runQpkpack(const std::vector<std::string>& args, std::string& out, std::string& err) {
  auto usage = [&](const std::string& why) {
    err = why + kUsage;
    return 2;
  };
  auto failed = [&](const std::string& why) {
    err = "qpkpack: " + why + "\n";
    return 1;
  };
  PackOptions options;
  std::vector<std::string> positional;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    uint64_t value = 0;
    auto number = [&](uint64_t limit) {
      if (i + 1 >= args.size() || !parseNumber(args[i + 1], value) || value > limit) return false;
      ++i;
      return true;
    };
    if (arg == "-v1" || arg == "-v2") {
      options.version = arg == "-v1" ? 1 : 2;
    } else if (arg == "-max-dir-bytes") {
      if (!number(UINT64_MAX)) return usage(arg + " needs a number\n");
      options.maxDirectoryBytes = value;
    } else if (arg == "-preload") {
      if (!number(0xFFFF)) return usage(arg + " needs a number from 0 to 65535\n");
      options.preloadBytes = static_cast<uint32_t>(value);
    } else if (arg == "-max-data-bytes") {
      if (!number(UINT64_MAX) || value == 0) return usage(arg + " needs a positive number\n");
      options.maxDataFileBytes = value;
    } else if (arg.size() > 1 && arg[0] == '-') {
      return usage("unknown option " + arg + "\n");
    } else {
      positional.push_back(arg);
    }
  }
  if (positional.size() != 2) return usage("");

  std::filesystem::path directoryFile = std::filesystem::absolute(positional[0]).lexically_normal();
  auto files = collectFolder(
      positional[1], [&](const std::filesystem::path& file) { return isOwnOutput(file, directoryFile); });
  if (!files) return failed(files.message());
  auto written = writeQpkArchive(*files, positional[0], options);
  if (!written) return failed(written.message());
  for (const std::string& path : *written) out += "wrote " + path + "\n";
  out += format("packed %zu files\n", files->size());
  return 0;
}

}  // namespace zv::qpkpack
