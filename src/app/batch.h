#pragma once
// A run over many models: N converted at once, each model's lines kept together and
// printed in input order, a status line on a terminal, and what each model did for the
// run report. Up-to-date models of an incremental run are skipped.

#include <optional>
#include <vector>

#include "app/model_pictures.h"
#include "app/report.h"
#include "fs/file_system.h"
#include "importer/particles.h"
#include "importer/run_options.h"
#include "scm/source_control.h"

namespace zv::app {

struct BatchSettings {
  int jobs = 1;                             // models converted at once
  bool statusLine = false;                  // keep a status line on standard error
  std::vector<size_t> models;               // indices into the options' input files, in order
  const RunReport* previous = nullptr;      // for an incremental run: the report of the last one
  std::optional<PagePaths> page;            // with a report page: where thumbnails go
};

// Converts the models and returns one report entry per model, in order. Prints each
// model's lines ("Conversion of ..." and what its conversion said) whole, in input order.
std::vector<ModelReport> convertModels(const RunOptions& options, const fs::FileSystem& fileSystem,
                                       scm::SourceControl* sourceControl, ParticleResolver& particles,
                                       const BatchSettings& settings);

// The fingerprint of what shapes a model's outputs besides its input files: the tool's
// version and the options. Equal fingerprints and inputs give equal outputs.
std::string settingsFingerprint(const RunOptions& options, size_t model);

// The models of slice k (1-based) of n: by a stable hash of each input path (relative to
// the input root when under it), so that adding models moves few of the others.
std::vector<size_t> shardModels(const RunOptions& options, int k, int n);

}  // namespace zv::app
