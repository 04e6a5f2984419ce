#pragma once
// The run report (-report FILE.json): per model its input, status, time, the files written
// and the messages said, and what its conversion read (for -incremental); a summary of the
// run. Keys are stable; models come in the order of the whole input list ("index"), so the
// reports of the shards of a run merge into the report of the run.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace zv::app {

struct ReportOutput {
  std::string path;  // relative to the output root, "/" separated
  uint64_t bytes = 0;
};

struct ReportInput {
  std::string path;
  bool exists = false;
  uint64_t hash = 0;
};

struct ReportProbe {
  std::string path;
  bool exists = false;
};

// What a converted model holds: its LOD 0 render meshes, skeleton, animations, sequences
// and collision pieces.
struct ModelCounts {
  uint64_t bodyParts = 0;
  uint64_t meshes = 0;
  uint64_t vertices = 0;
  uint64_t triangles = 0;
  uint64_t bones = 0;
  uint64_t animations = 0;
  uint64_t sequences = 0;
  uint64_t collisionPieces = 0;
  friend bool operator==(const ModelCounts&, const ModelCounts&) = default;
};

struct ModelReport {
  size_t index = 0;  // in the whole input list
  std::string input;
  std::string status;  // "converted", "failed" or "skipped"
  double seconds = 0;
  std::vector<ReportOutput> outputs;
  std::vector<std::string> warnings;
  std::vector<std::string> errors;
  ModelCounts counts;
  std::string thumbnail;  // the picture's file as the run wrote it; empty for none
  // What decides whether a later run would give the same outputs.
  std::string settings;  // the tool version and the options that shape the outputs
  std::vector<ReportInput> inputs;
  std::vector<ReportProbe> probes;
};

struct RunReport {
  std::string outputRoot;  // as the command line gave it; outputs are relative to it
  std::vector<ModelReport> models;
};

inline constexpr std::string_view kReportFormat = "zv_mdl_import report 1";

// The report as JSON text: the same report gives the same bytes. Names of any bytes are
// escaped so that the text is valid JSON; a byte that is not part of UTF-8 is written as
// the escape of U+DC00 + byte, which parseReport turns back into that byte.
std::string reportJson(const RunReport& report);

// Text as a JSON string (quotes included), escaped the way the report escapes it.
std::string jsonString(std::string_view text);

// Reads a report this tool wrote.
Result<RunReport> parseReport(std::string_view json);

// The reports of the shards of one run as the run's report: models in input order.
Result<RunReport> mergeReports(std::vector<RunReport> shards);

}  // namespace zv::app
