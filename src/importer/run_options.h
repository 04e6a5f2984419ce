#pragma once
// The options of one run, filled by the command line and read by the converter. The three
// lists run parallel: entry n of each belongs to input file n.

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "scm/source_control.h"

namespace zv {

// What every model's conversion follows, the same for all models of a run: the converter
// takes it whole for each model.
struct ConversionOptions {
  std::string weaponAnimPrefab;
  bool verbose = false;
  bool skipCommonDmxWrite = false;
  bool yUpToZUp = false;
  bool overrideLean = false;
  bool writeWeaponAnimPrefab = false;
  bool headerHullBounds = false;
  bool allLods = false;
};

struct RunOptions : ConversionOptions {
  std::vector<std::string> inputFiles;     // full paths
  std::vector<std::string> baseNames;      // file name without folder and extension
  std::vector<std::string> outputFolders;  // may be shorter than inputFiles (see the command line)
  std::optional<std::string> inputRoot;
  std::optional<std::string> outputRoot;
  std::string mod;
  std::string changelist;
  bool recurse = false;
  std::optional<scm::Backend> sourceControl;  // -scm; nothing chooses automatically
  bool noP4 = false;
  // Batches: models converted at once (-j; 0: one per core), the run report (-report), a
  // slice of the input list (-shard k/n, k from 1) and skipping what is up to date.
  int jobs = 0;
  std::optional<std::string> reportFile;
  std::optional<std::string> reportPageFile;  // -report-html: the page and its thumbnails
  std::optional<std::pair<int, int>> shard;
  bool incremental = false;
};

}  // namespace zv
