#pragma once
// The run report as a page people look at (-report-html FILE.html): a summary of the run,
// the messages grouped by kind, and a table of every model with its thumbnail, counts and
// messages, sortable and filterable, the filter kept in the address ("#status=failed&q=x").
// The page is one offline file: style, script and data inline; pictures sit beside it.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/model_pictures.h"
#include "app/report.h"
#include "base/result.h"

namespace zv::app {

// What the page says of the run itself.
struct RunFacts {
  std::string tool;                   // the tool's version
  std::string options;                // the command line
  std::optional<double> wallSeconds;  // unknown for merged reports
};

struct RunTotals {
  size_t converted = 0, failed = 0, skipped = 0;
  size_t files = 0;
  uint64_t bytes = 0;
};

// Messages of one kind: the text with its file names and numbers taken out.
struct MessageGroup {
  std::string kind;
  bool error = false;
  size_t count = 0;             // messages
  std::vector<size_t> models;   // positions in the report's models, each once, in order
};

RunTotals totalsOf(const RunReport& report);

// "Material \"a/b.qmt\" not found (3 times)" -> "Material %s not found (%d times)".
std::string messageKind(std::string_view message);

// Most frequent first, then by kind; errors and warnings apart.
std::vector<MessageGroup> groupMessages(const RunReport& report);

// The page's HTML; pictures and outputs linked relative to the page.
std::string reportPage(const RunReport& report, const RunFacts& facts, const PagePaths& page);

// Writes the page through the output layer, rooted at the page's folder. Pictures the
// report names elsewhere (another shard's, an earlier run's) are copied beside the page
// first, and the report is made to name the copies.
Status writeReportPage(std::string_view htmlFile, RunReport& report, const RunFacts& facts);

}  // namespace zv::app
