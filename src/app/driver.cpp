#include "app/driver.h"

#include <cstdlib>
#include <filesystem>

#include "app/command_line.h"
#include "base/log.h"
#include "fs/file_system.h"
#include "fs/game_info.h"
#include "importer/converter.h"
#include "modeldoc/model_document.h"
#include "output/output.h"
#include "scm/source_control.h"

namespace zv::app {
namespace {

// The legacy math routines were written for SSE and SSE2; an x86 processor without them
// is refused up front as the tool always did.
bool mathSupportAvailable() {
#if defined(__x86_64__) || defined(__i386__)
  return __builtin_cpu_supports("sse") && __builtin_cpu_supports("sse2");
#else
  return true;
#endif
}

// The mod named by -game, else by QMOD; nothing when neither names one.
std::optional<std::string> namedMod(const std::vector<std::string>& args) {
  if (auto mod = findGameArgument(args)) return mod;
  if (const char* env = std::getenv("QMOD"); env && *env) return std::string(env);
  return std::nullopt;
}

bool startFileSystem(const std::vector<std::string>& args, fs::FileSystem& fileSystem) {
  std::optional<std::string> mod = namedMod(args);
  auto info = fs::loadGameInfo(fileSystem.currentDirectory(), mod.value_or(fs::kDefaultMod), mod.has_value());
  if (!info) {
    mainLog().logColor(Severity::Error, colors::kRed, "%s", info.message().c_str());
    return false;
  }
  fs::mountGameInfo(fileSystem, *info);
  return fileSystem.addSearchPath("", "LOCAL", fs::Placement::Tail).ok();
}

std::unique_ptr<scm::SourceControl> startSourceControl(const RunOptions& options) {
  auto system = scm::chooseSourceControl({options.sourceControl, options.noP4});
  if (!options.changelist.empty()) system->setChangelist(options.changelist);
  if (options.verbose) mainLog().log(Severity::Message, "%s", scm::sourceControlBanner(*system).c_str());
  return system;
}

int convertAll(const RunOptions& options, const fs::FileSystem& fileSystem, Output& output) {
  int total = int(options.inputFiles.size());
  mainLog().logColor(Severity::Message, colors::kCyan, "Beginning conversion of %d models...\n", total);
  // Particle names are looked up in a table built once for the whole run.
  ParticleResolver particles(fileSystem);
  C_ZV_MDL_Import converter(fileSystem, output, &particles);
  int failed = 0;
  for (size_t n = 0; n < options.inputFiles.size(); ++n) {
    mainLog().logColor(Severity::Message, colors::kCyan, "Conversion of %s\n", options.inputFiles[n].c_str());
    converter.Setup(options, n);
    if (!converter.Convert()) ++failed;
    converter.Reset();
  }
  if (failed > 0) {
    mainLog().logColor(Severity::Message, colors::kRed, "%d mdl files failed to convert and %d mdl files successfully converted\n",
                       failed, total - failed);
    return 1;
  }
  mainLog().logColor(Severity::Message, colors::kGreen, "%d mdl files successfully converted\n", total);
  return 0;
}

}  // namespace

int runDriver(const std::vector<std::string>& args) {
  mainLog();  // the channel exists from the start
  fs::FileSystem fileSystem(std::filesystem::current_path());
  if (!startFileSystem(args, fileSystem)) return 1;

  RunOptions options;
  if (!parseCommandLine(args, options, fileSystem)) return 1;
  if (options.verbose) mainLog().setVerbosity(static_cast<int>(Severity::Detail));
  if (!mathSupportAvailable()) {
    mainLog().logColor(Severity::Error, colors::kRed, "SSE and SSE2 are required.\n");
    return 1;
  }
  if (!modeldoc::InitModelDocLib()) return 1;
  // Shut down with the run on every way out, so that a later run in the process starts it again.
  struct ModelDocLibRun {
    ~ModelDocLibRun() { modeldoc::ShutdownModelDocLib(); }
  } modelDocLibRun;
  std::unique_ptr<scm::SourceControl> sourceControl = startSourceControl(options);
  if (LogChannel* perforce = findLogChannel("Perforce")) perforce->setVerbosity(1);
  Output output(*options.outputRoot, sourceControl.get());
  int status = convertAll(options, fileSystem, output);
  sourceControl->flush();
  return status;
}

}  // namespace zv::app
