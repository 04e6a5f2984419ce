#include "app/driver.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "app/batch.h"
#include "app/command_line.h"
#include "app/report.h"
#include "app/report_page.h"
#include "app/tool_version.h"
#include "base/log.h"
#include "base/native_path.h"
#include "base/strings.h"
#include "fs/atomic_write.h"
#include "fs/directory_source.h"
#include "fs/file_system.h"
#include "fs/game_info.h"
#include "importer/particles.h"
#include "modeldoc/model_document.h"
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
  for (const std::string& note : info->notes) warning("%s\n", note.c_str());
  fs::mountGameInfo(fileSystem, *info);
  return fileSystem.addSearchPath("", "LOCAL", fs::Placement::Tail).ok();
}

std::unique_ptr<scm::SourceControl> startSourceControl(const RunOptions& options) {
  auto system = scm::chooseSourceControl({options.sourceControl, options.noP4});
  if (!options.changelist.empty()) system->setChangelist(options.changelist);
  if (options.verbose) mainLog().log(Severity::Message, "%s", scm::sourceControlBanner(*system).c_str());
  return system;
}

// A report file as the tool wrote it; found tells a missing file from a broken one.
Result<RunReport> readReportFile(const std::string& file, bool& found) {
  auto bytes = fs::readDiskFile(native::toPath(file));
  found = bytes.ok();
  if (!bytes) return bytes.error();
  return parseReport(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
}

bool readPreviousReport(const std::string& file, RunReport& previous) {
  bool found = false;
  Result<RunReport> report = readReportFile(file, found);
  if (!found) {
    mainLog().log(Severity::Message, "No report of an earlier run in %s: every model is converted\n", file.c_str());
    return true;
  }
  if (!report) {
    mainLog().logColor(Severity::Warning, colors::kRed, "%s: %s\n", file.c_str(), report.message().c_str());
    return false;
  }
  previous = std::move(report.value());
  return true;
}

Status writeReport(const std::string& file, const RunReport& report) {
  std::string text = reportJson(report);
  auto bytes = std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size());
  return fs::writeFileAtomic(native::toPath(file), bytes);
}

// The command line as one line of the page, arguments with spaces quoted.
std::string commandLineText(const std::vector<std::string>& args) {
  std::string text;
  for (const std::string& arg : args) {
    if (!text.empty()) text += ' ';
    text += arg.find_first_of(" \t\"") == std::string::npos ? arg : "\"" + arg + "\"";
  }
  return text;
}

void writePage(const std::string& file, RunReport& report, const RunFacts& facts) {
  if (Status written = writeReportPage(file, report, facts); !written)
    mainLog().logColor(Severity::Warning, colors::kRed, "Unable to write the report page: %s\n", written.message().c_str());
}

int convertAll(const std::vector<std::string>& args, const RunOptions& options, const fs::FileSystem& fileSystem,
               scm::SourceControl& sourceControl) {
  const auto start = std::chrono::steady_clock::now();
  BatchSettings batch;
  if (options.reportPageFile) batch.page = PagePaths::of(*options.reportPageFile);
  batch.jobs = options.jobs > 0 ? options.jobs : int(std::max(1u, std::thread::hardware_concurrency()));
  batch.statusLine = standardErrorIsTerminal();
  if (options.shard) {
    batch.models = shardModels(options, options.shard->first, options.shard->second);
  } else {
    for (size_t n = 0; n < options.inputFiles.size(); ++n) batch.models.push_back(n);
  }
  RunReport previous;
  if (options.incremental) {
    if (!readPreviousReport(*options.reportFile, previous)) return 1;
    batch.previous = &previous;
  }
  int total = int(batch.models.size());
  mainLog().logColor(Severity::Message, colors::kCyan, "Beginning conversion of %d models...\n", total);
  // Particle names are looked up in a table built once for the whole run.
  ParticleResolver particles(fileSystem);
  scm::SynchronizedSourceControl shared(sourceControl);
  RunReport report{*options.outputRoot, convertModels(options, fileSystem, &shared, particles, batch)};
  int failed = int(std::count_if(report.models.begin(), report.models.end(),
                                 [](const ModelReport& m) { return m.status == "failed"; }));
  // The page first: it may bring pictures beside it, which the report then names.
  if (options.reportPageFile) {
    double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    writePage(*options.reportPageFile, report, {toolVersion(), commandLineText(args), wall});
  }
  if (options.reportFile) {
    if (Status written = writeReport(*options.reportFile, report); !written)
      mainLog().logColor(Severity::Warning, colors::kRed, "Unable to write the report: %s\n", written.message().c_str());
  }
  if (failed > 0) {
    mainLog().logColor(Severity::Message, colors::kRed, "%d mdl files failed to convert and %d mdl files successfully converted\n",
                       failed, total - failed);
    return 1;
  }
  mainLog().logColor(Severity::Message, colors::kGreen, "%d mdl files successfully converted\n", total);
  return 0;
}

// Takes "-report-html FILE" out of the arguments; false when its file is missing.
bool takePageOption(std::vector<std::string>& args, std::optional<std::string>& page) {
  for (size_t i = 0; i < args.size(); ++i) {
    if (!equalsNoCase(args[i], "-report-html")) continue;
    if (i + 1 >= args.size()) return false;
    page = args[i + 1];
    args.erase(args.begin() + long(i), args.begin() + long(i) + 2);
    return true;
  }
  return true;
}

// zv_mdl_import -merge-reports OUT.json [-report-html FILE.html] IN.json...: the shards'
// reports as one run's, and its page.
int mergeReportsCommand(const std::vector<std::string>& commandLine) {
  std::vector<std::string> args = commandLine;
  std::optional<std::string> page;
  if (!takePageOption(args, page) || args.size() < 3) {
    mainLog().logColor(Severity::Warning, colors::kRed,
                       "Usage: zv_mdl_import -merge-reports OUT.json [-report-html FILE.html] IN.json...\n");
    return 1;
  }
  std::vector<RunReport> shards;
  for (size_t i = 2; i < args.size(); ++i) {
    bool found = false;
    Result<RunReport> parsed = readReportFile(args[i], found);
    if (!parsed) {
      mainLog().logColor(Severity::Warning, colors::kRed, "%s: %s\n", args[i].c_str(), parsed.message().c_str());
      return 1;
    }
    shards.push_back(std::move(parsed.value()));
  }
  auto merged = mergeReports(std::move(shards));
  if (merged && page) writePage(*page, *merged, {toolVersion(), commandLineText(commandLine), std::nullopt});
  Status written = merged ? writeReport(args[1], *merged) : Status(merged.error());
  if (!written) {
    mainLog().logColor(Severity::Warning, colors::kRed, "%s: %s\n", args[1].c_str(), written.message().c_str());
    return 1;
  }
  mainLog().log(Severity::Message, "%zu models merged into %s\n", merged->models.size(), args[1].c_str());
  return 0;
}

}  // namespace

int runDriver(const std::vector<std::string>& args) {
  mainLog();  // the channel exists from the start
  if (!args.empty() && equalsNoCase(args[0], "-merge-reports")) return mergeReportsCommand(args);
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
  int status = convertAll(args, options, fileSystem, *sourceControl);
  sourceControl->flush();
  return status;
}

}  // namespace zv::app
