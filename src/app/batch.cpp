#include "app/batch.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "app/tool_version.h"
#include "base/hash.h"
#include "base/log.h"
#include "base/native_path.h"
#include "base/path.h"
#include "base/shared_work.h"
#include "base/strings.h"
#include "importer/converter.h"
#include "importer/qmdl_paths.h"
#include "output/output.h"

namespace zv::app {
namespace {

namespace stdfs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Finished {
  ModelReport report;
  std::vector<LogRecord> log;
};

// The last run's record of each input, looked up by every worker.
using PreviousReports = std::map<std::string, const ModelReport*, std::less<>>;

PreviousReports indexByInput(const RunReport* previous) {
  PreviousReports index;
  if (previous != nullptr) {
    for (const ModelReport& m : previous->models) index.emplace(m.input, &m);
  }
  return index;
}

// Whether the previous run's outputs of a model still stand: same settings, the same
// bytes in every file it read (and the same files missing), the same materials found,
// and its outputs where it left them.
bool upToDate(const ModelReport& previous, const std::string& settings, const fs::FileSystem& fileSystem,
              const std::string& root) {
  if ((previous.status != "converted" && previous.status != "skipped") || previous.settings != settings) return false;
  for (const ReportInput& input : previous.inputs) {
    auto bytes = fileSystem.readFile(input.path);
    if (bytes.ok() != input.exists) return false;
    if (bytes && fnv1a64(bytes->data(), bytes->size()) != input.hash) return false;
  }
  for (const ReportProbe& probe : previous.probes) {
    if (fileSystem.fileExists(probe.path) != probe.exists) return false;
  }
  for (const ReportOutput& output : previous.outputs) {
    std::error_code ec;
    auto size = stdfs::file_size(native::toPath(root) / native::toPath(output.path), ec);
    if (ec || size != output.bytes) return false;
  }
  return true;
}

// Converts (or skips) one model with the worker's own converter and output.
class Worker {
 public:
  Worker(const RunOptions& options, const fs::FileSystem& fileSystem, scm::SourceControl* sourceControl,
         ParticleResolver& particles, const PreviousReports& previous, ThumbnailPainter* thumbnails,
         SharedWork& sharing)
      : options_(options),
        fileSystem_(fileSystem),
        previous_(previous),
        output_(*options.outputRoot, sourceControl),
        converter_(fileSystem, output_, &particles),
        thumbnails_(thumbnails) {
    output_.onWrite([&fileSystem](const std::string& folder) { fileSystem.folderChanged(folder); });
    converter_.shareWorkWith(&sharing);
  }

  Finished run(size_t model) {
    LogBuffer log;  // what the model said, kept until it is printed
    ModelReport report;
    {
      ScopedThreadLogSink capture(log);
      report = convert(model);
    }
    for (const LogRecord& record : log.records) {
      if (record.severity < Severity::Warning) continue;
      (report.status == "failed" || record.severity >= Severity::Error ? report.errors : report.warnings)
          .push_back(record.text);
    }
    return {std::move(report), std::move(log.records)};
  }

 private:
  ModelReport convert(size_t model) {
    const std::string& input = options_.inputFiles[model];
    mainLog().logColor(Severity::Message, colors::kCyan, "Conversion of %s\n", input.c_str());
    ModelReport report;
    report.index = model;
    report.input = input;
    // The fingerprint hashes the program once per run: only reports keep it.
    if (options_.reportFile) report.settings = settingsFingerprint(options_, model);
    Clock::time_point start = Clock::now();
    if (const ModelReport* previous = previousReport(input);
        previous != nullptr && upToDate(*previous, report.settings, fileSystem_, output_.root())) {
      mainLog().log(Severity::Message, "Up to date since the last run: not converted again\n");
      report.status = "skipped";
      report.outputs = previous->outputs;
      report.counts = previous->counts;
      report.thumbnail = previous->thumbnail;
      report.inputs = previous->inputs;
      report.probes = previous->probes;
    } else {
      converter_.Setup(options_, model);
      report.status = converter_.Convert() ? "converted" : "failed";
      for (const WrittenFile& file : output_.written())
        report.outputs.push_back({relativeToBaseFolder(file.path, output_.root()), file.bytes});
      for (const InputFile& file : converter_.inputsRead()) report.inputs.push_back({file.path, file.exists, file.hash});
      for (const MaterialProbe& probe : converter_.materialProbes()) report.probes.push_back({probe.path, probe.exists});
      report.counts = countsOf(converter_.tables());
      // Only the page wants pictures: a run without one renders nothing.
      if (thumbnails_ && report.status == "converted")
        report.thumbnail = thumbnails_->submit(converter_.tables(), input);
      converter_.Reset();
    }
    report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return report;
  }

  const ModelReport* previousReport(const std::string& input) const {
    auto found = previous_.find(input);
    return found == previous_.end() ? nullptr : found->second;
  }

  const RunOptions& options_;
  const fs::FileSystem& fileSystem_;
  const PreviousReports& previous_;
  Output output_;
  C_ZV_MDL_Import converter_;
  ThumbnailPainter* thumbnails_;  // the run's, when it writes a page
};

// One line on standard error, rewritten in place; cleared before anything else is printed.
class StatusLine {
 public:
  StatusLine(bool enabled, size_t total) : enabled_(enabled), total_(total), start_(Clock::now()) {}
  void clear() {
    if (enabled_ && shown_) std::fputs("\r\033[K", stderr);
    shown_ = false;
  }
  void show(size_t done, size_t failed) {
    if (!enabled_) return;
    double elapsed = std::chrono::duration<double>(Clock::now() - start_).count();
    double rate = elapsed > 0 ? double(done) / elapsed : 0;
    double left = rate > 0 ? double(total_ - done) / rate : 0;
    std::fprintf(stderr, "\r\033[K%zu / %zu models, %zu failed, %.1f models/s, %.0f s left", done, total_, failed,
                 rate, left);
    std::fflush(stderr);
    shown_ = true;
  }

 private:
  bool enabled_;
  size_t total_;
  Clock::time_point start_;
  bool shown_ = false;
};

}  // namespace

std::string settingsFingerprint(const RunOptions& o, size_t model) {
  std::string text = format("tool %s\n", toolVersion().c_str());
  text += format("folder %s\nin %s\nout %s\nmod %s\nprefab %s\n",
                 model < o.outputFolders.size() ? o.outputFolders[model].c_str() : "",
                 o.inputRoot.value_or("").c_str(), o.outputRoot.value_or("").c_str(), o.mod.c_str(),
                 o.weaponAnimPrefab.c_str());
  text += format("flags %d%d%d%d%d%d\n", o.skipCommonDmxWrite, o.yUpToZUp, o.overrideLean, o.writeWeaponAnimPrefab,
                 o.headerHullBounds, o.allLods);
  return format("%016llx", static_cast<unsigned long long>(
                               fnv1a64(reinterpret_cast<const uint8_t*>(text.data()), text.size())));
}

std::vector<size_t> shardModels(const RunOptions& options, int k, int n) {
  std::vector<size_t> models;
  for (size_t i = 0; i < options.inputFiles.size(); ++i) {
    std::string key = path::toForwardSlashes(options.inputFiles[i]);
    if (options.inputRoot) key = relativeToBaseFolder(key, *options.inputRoot);
    uint64_t hash = fnv1a64(reinterpret_cast<const uint8_t*>(key.data()), key.size());
    if (hash % uint64_t(n) == uint64_t(k - 1)) models.push_back(i);
  }
  return models;
}

namespace {

// A picture that could not be written is not shown: its model's row says why instead.
void forgetUnwrittenPictures(std::vector<ModelReport>& reports, const std::vector<std::string>& unwritten) {
  if (unwritten.empty()) return;
  std::set<std::string> inputs(unwritten.begin(), unwritten.end());
  for (ModelReport& report : reports) {
    if (report.thumbnail.empty() || inputs.count(report.input) == 0) continue;
    report.warnings.push_back("Unable to write the thumbnail of " + report.input + "\n");
    report.thumbnail.clear();
  }
}

}  // namespace

std::vector<ModelReport> convertModels(const RunOptions& options, const fs::FileSystem& fileSystem,
                                       scm::SourceControl* sourceControl, ParticleResolver& particles,
                                       const BatchSettings& settings) {
  const size_t count = settings.models.size();
  std::vector<std::optional<Finished>> finished(count);
  std::mutex mutex;
  std::condition_variable ready;
  std::atomic<size_t> next{0};
  const PreviousReports previous = indexByInput(settings.previous);

  std::optional<ThumbnailPainter> thumbnails;
  if (settings.page) thumbnails.emplace(*settings.page, (size_t(std::max(settings.jobs, 1)) + 1) / 2);

  // Every thread of the run, also when there are fewer models: one that has none left
  // helps write the animation files of the models still being converted.
  size_t threads = std::max(1, settings.jobs);
  SharedWork sharing(threads);
  // Workers take models in input order, so that the printer rarely waits long.
  auto work = [&] {
    Worker worker(options, fileSystem, sourceControl, particles, previous, thumbnails ? &*thumbnails : nullptr,
                  sharing);
    for (size_t i = next++; i < count; i = next++) {
      Finished done = worker.run(settings.models[i]);
      std::lock_guard lock(mutex);
      finished[i] = std::move(done);
      ready.notify_all();
    }
    sharing.helpUntilAllDone();
  };
  std::vector<std::thread> workers;
  for (size_t t = 0; t < threads; ++t) workers.emplace_back(work);

  std::vector<ModelReport> reports;
  StatusLine status(settings.statusLine, count);
  size_t failed = 0;
  for (size_t i = 0; i < count; ++i) {
    std::unique_lock lock(mutex);
    ready.wait(lock, [&] { return finished[i].has_value(); });
    Finished done = std::move(*finished[i]);
    finished[i].reset();
    lock.unlock();
    status.clear();
    replayLog(done.log);
    failed += done.report.status == "failed";
    reports.push_back(std::move(done.report));
    status.show(i + 1, failed);
  }
  status.clear();
  for (std::thread& worker : workers) worker.join();
  if (thumbnails) forgetUnwrittenPictures(reports, thumbnails->finish());
  return reports;
}

}  // namespace zv::app
