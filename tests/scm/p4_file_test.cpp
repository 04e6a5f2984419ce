#include "scm/p4_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zv::scm {
namespace {

using Events = std::vector<std::string>;

// Answers a fixed state and records what the write protocol asks of it, into the same
// list as the test's own "write" step, so the order is visible.
class RecordingSystem final : public SourceControl {
 public:
  RecordingSystem(int state, Events& events) : state_(state), events_(events) {}
  Backend backend() const override { return Backend::P4; }
  void setChangelist(const std::string&) override {}
  int fileState(const std::string& path, int fileType, int changelist) override {
    events_.push_back("state " + path + " " + std::to_string(fileType) + " " + std::to_string(changelist));
    return state_;
  }
  bool openForEdit(const std::string& path, int, int) override {
    events_.push_back("edit " + path);
    return false;  // a refusal must not change the protocol
  }
  bool openForAdd(const std::string& path, int, int) override {
    events_.push_back("add " + path);
    return false;
  }
  bool flush() override { return true; }

 private:
  int state_;
  Events& events_;
};

Events writeWithState(int state) {
  Events events;
  RecordingSystem system(state, events);
  {
    ScopedSourceControlWrite write(&system, "/out/a.dmx");
    events.push_back("write");
  }
  return events;
}

TEST(WriteProtocol, StepsFollowTheState) {
  EXPECT_EQ(writeWithState(file_state::kOpened), (Events{"state /out/a.dmx 2 -1", "write"}));
  EXPECT_EQ(writeWithState(file_state::kInDepot),
            (Events{"state /out/a.dmx 2 -1", "edit /out/a.dmx", "write"}));
  EXPECT_EQ(writeWithState(file_state::kNotInDepot),
            (Events{"state /out/a.dmx 2 -1", "write", "add /out/a.dmx"}));
  EXPECT_EQ(writeWithState(file_state::kNoSystem),
            (Events{"state /out/a.dmx 2 -1", "write", "add /out/a.dmx"}));
  // States the protocol does not know are added too.
  EXPECT_EQ(writeWithState(7), (Events{"state /out/a.dmx 2 -1", "write", "add /out/a.dmx"}));
}

TEST(WriteProtocol, ACancelledWriteAddsNothing) {
  Events events;
  RecordingSystem system(file_state::kNotInDepot, events);
  {
    ScopedSourceControlWrite write(&system, "/out/failed.dmx");
    EXPECT_TRUE(write.addPending());
    write.cancelAdd();
  }
  EXPECT_EQ(events, (Events{"state /out/failed.dmx 2 -1"}));
}

TEST(WriteProtocol, WithoutASystemEverythingSucceedsAndNothingIsAsked) {
  CP4File file(nullptr, "/out/a.dmx");
  EXPECT_EQ(file.GetFileState(), file_state::kNoSystem);
  EXPECT_TRUE(file.Add());
  EXPECT_TRUE(file.Edit());
  EXPECT_TRUE(file.Revert());
  EXPECT_TRUE(file.Delete());
  ScopedSourceControlWrite write(nullptr, "/out/a.dmx");
  EXPECT_EQ(write.state(), file_state::kNoSystem);
}

TEST(WriteProtocol, UnusedOperationsDoNotReachTheSystem) {
  Events events;
  RecordingSystem system(file_state::kInDepot, events);
  CP4File file(&system, "/out/a.dmx", 5, 42);
  EXPECT_FALSE(file.Revert());
  EXPECT_FALSE(file.Delete());
  EXPECT_TRUE(events.empty());
  file.GetFileState();  // the file's own type and changelist are passed on
  EXPECT_EQ(events, Events{"state /out/a.dmx 5 42"});
}

}  // namespace
}  // namespace zv::scm
