#pragma once
// What the run report shows of a converted model, taken from the converter's tables while
// they are still there: its counts and its thumbnail. A thumbnail goes into the page's
// folder of pictures ("run_files/" beside "run.html"), named by its input so that shards,
// merges and later runs name it alike.

#include <string>
#include <string_view>

#include "app/report.h"
#include "importer/tables.h"
#include "output/output.h"
#include "thumbnail/thumbnail.h"

namespace zv::app {

// Where a report page and its pictures go.
struct PagePaths {
  std::string folder;       // the page's folder, "." for the current one
  std::string pageName;     // "run.html"
  std::string filesFolder;  // "run_files", relative to folder

  static PagePaths of(std::string_view htmlFile);
  // A picture's path from the current folder, and from the page.
  std::string picturePath(std::string_view name) const;
  std::string pictureLink(std::string_view name) const;
  std::string pagePath() const;
};

ModelCounts countsOf(const ModelTables& tables);

// The LOD 0 render meshes in the bind pose, or the skeleton when there are none.
thumbnail::Rendered pictureOf(const ModelTables& tables);

// The picture's file name for a model's input path.
std::string pictureName(std::string_view input);

// Renders and writes each model's thumbnail; one per worker.
class ThumbnailWriter {
 public:
  explicit ThumbnailWriter(const PagePaths& page);
  // The path written (see PagePaths::picturePath), or empty when the write failed. A
  // blank picture is still written, and a warning says why it is blank.
  std::string write(const ModelTables& tables, std::string_view input);

 private:
  PagePaths page_;
  Output output_;
};

}  // namespace zv::app
