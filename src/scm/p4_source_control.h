#pragma once
// Source control through the p4 command-line client: "fstat" for the state, "edit" and
// "add" into the run's changelist. A failed call is logged and never stops a write; when
// the server cannot be reached at all, p4 is left alone for the rest of the run so that
// thousands of files do not each wait for a connection.

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "scm/process.h"
#include "scm/source_control.h"

namespace zv::scm {

class P4SourceControl final : public SourceControl {
 public:
  // program: the client to run, a full path or a name looked up on the PATH.
  explicit P4SourceControl(std::string program);

  Backend backend() const override { return Backend::P4; }
  void setChangelist(const std::string& changelist) override;
  int fileState(const std::string& path, int fileType, int changelist) override;
  bool openForEdit(const std::string& path, int fileType, int changelist) override;
  bool openForAdd(const std::string& path, int fileType, int changelist) override;
  bool flush() override { return true; }

  const std::string& changelist() const { return changelist_; }
  // False once the server turned out to be unreachable or the client unusable.
  bool available() const { return available_; }

 private:
  ProcessResult run(std::vector<std::string> args);
  bool reportOpen(std::string_view what, const std::string& path, const ProcessResult& result);
  std::string changelistFor(int changelist) const;

  std::string program_;
  std::string changelist_ = "default";
  bool available_ = true;
};

namespace p4 {

// p4 reads '@', '#', '%' and '*' in file arguments as revision and wildcard syntax; the
// client's escapes (%40, %23, %25, %2A) name such a file literally.
std::string escapePath(std::string_view path);
bool hasWildcardCharacters(std::string_view path);

// The state of the first record of "p4 -ztag fstat" output: kOpened when the record has
// an open action, kInDepot when it has a head revision that is not deleted, otherwise
// kNotInDepot (no record: "no such file(s)", "not in client view").
int stateFromFstat(std::string_view output);

// The line of a client message that means no later call can succeed either (no
// connection, no login), or "" for any other message.
std::string runWideFailure(std::string_view errorText);

}  // namespace p4
}  // namespace zv::scm
