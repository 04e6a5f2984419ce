#pragma once
// What the run report shows of a converted model, taken from the converter's tables while
// they are still there: its counts and its thumbnail. A thumbnail goes into the page's
// folder of pictures ("run_files/" beside "run.html"), named by its input so that shards,
// merges and later runs name it alike.

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

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

// What a thumbnail shows: the LOD 0 render meshes, or the skeleton when there are none.
using PictureSubject = std::variant<thumbnail::Mesh, thumbnail::Skeleton>;
PictureSubject subjectOf(const ModelTables& tables);
thumbnail::Rendered render(const PictureSubject& subject);

// Draws, encodes and writes thumbnails on threads of its own, one per run: a worker only
// takes the picture's subject out of its tables, hands it over and goes on with the next
// model. Few pictures wait at a time (a worker waits when they are many), so memory stays
// small. Every picture's bytes are the same whichever thread draws it.
class ThumbnailPainter {
 public:
  ThumbnailPainter(const PagePaths& page, size_t threads);
  ~ThumbnailPainter();
  ThumbnailPainter(const ThumbnailPainter&) = delete;
  ThumbnailPainter& operator=(const ThumbnailPainter&) = delete;

  // Queues the model's picture and gives the path it will have (see
  // PagePaths::picturePath). A picture that will be blank is still written, and the
  // warning saying why is given here, on the caller's thread, among the model's messages.
  std::string submit(const ModelTables& tables, std::string_view input);
  // Waits for every picture queued; the inputs whose picture could not be written, each
  // said in a warning.
  std::vector<std::string> finish();

 private:
  struct Job {
    PictureSubject subject;
    std::string input;
    std::string path;
  };
  void paint();

  PagePaths page_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> queue_;
  size_t capacity_;
  bool closing_ = false;
  std::vector<std::string> failed_;
  std::vector<std::thread> threads_;
};

}  // namespace zv::app
