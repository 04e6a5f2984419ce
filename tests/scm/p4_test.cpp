#include "scm/p4_source_control.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "scm/p4_file.h"
#include "scm_test_helpers.h"

namespace zv::scm {
namespace {

using testing::Calls;
using Events = std::vector<std::string>;

// Answers a fixed state and records what is asked of it into the same list as the test's
// own "write" step, so the order shows. Every open is refused, which must not change the
// protocol.
class RecordingSystem final : public SourceControl {
 public:
  RecordingSystem(int state, Events& events) : state_(state), events_(events) {}
  Backend backend() const override { return Backend::P4; }
  void setChangelist(const std::string&) override {}
  int fileState(const std::string& path, int fileType, int changelist) override {
    events_.push_back(format("state %s %d %d", path.c_str(), fileType, changelist));
    return state_;
  }
  bool openForEdit(const std::string& path, int, int) override { return refuse("edit " + path); }
  bool openForAdd(const std::string& path, int, int) override { return refuse("add " + path); }
  bool flush() override { return true; }

 private:
  bool refuse(const std::string& event) {
    events_.push_back(event);
    return false;
  }
  int state_;
  Events& events_;
};

TEST(WriteProtocol, StepsFollowTheStateInOrder) {
  auto steps = [](int state, bool writeFails = false) {
    Events events;
    RecordingSystem system(state, events);
    {
      ScopedSourceControlWrite write(&system, "/out/a.dmx");
      events.push_back("write");
      if (writeFails) write.cancelAdd();
    }
    return events;
  };
  const std::string query = "state /out/a.dmx 2 -1";
  EXPECT_EQ(steps(file_state::kOpened), (Events{query, "write"}));
  EXPECT_EQ(steps(file_state::kInDepot), (Events{query, "edit /out/a.dmx", "write"}));
  for (int state : {file_state::kNotInDepot, file_state::kNoSystem, 7})  // unknown states are added too
    EXPECT_EQ(steps(state), (Events{query, "write", "add /out/a.dmx"})) << state;
  EXPECT_EQ(steps(file_state::kNotInDepot, true), (Events{query, "write"}));

  // Without a system every operation succeeds.
  CP4File none(nullptr, "/out/a.dmx");
  EXPECT_EQ(none.GetFileState(), file_state::kNoSystem);
  EXPECT_TRUE(none.Add() && none.Edit() && none.Revert() && none.Delete());
  NoSourceControl noSystem;
  EXPECT_EQ(noSystem.fileState("/out/a.dmx", 2, -1), file_state::kNoSystem);
  EXPECT_TRUE(noSystem.openForEdit("/out/a.dmx", 2, -1) && noSystem.openForAdd("/out/a.dmx", 2, -1));
}

TEST(P4Output, StateFromTheFirstFstatRecordOnly) {
  // Opened for add (no head yet); deleted at head (to be added again); another user's
  // open, nested; a second record.
  const std::pair<const char*, int> cases[] = {
      {"... depotFile //n\n... action add\n\n", file_state::kOpened},
      {"... depotFile //d\r\n... headAction move/delete\r\n... headRev 2\r\n", file_state::kNotInDepot},
      {"... depotFile //a\n... headRev 1\n... ... otherOpen0 bob@ws\n... ... otherAction0 edit\n\n",
       file_state::kInDepot},
      {"... depotFile //a\n... headRev 1\n\n... depotFile //b\n... action edit\n", file_state::kInDepot},
  };
  for (const auto& [output, state] : cases) EXPECT_EQ(p4::stateFromFstat(output), state) << output;
  EXPECT_EQ(p4::escapePath("/ws/a@b#c%d*e f.dmx"), "/ws/a%40b%23c%25d%2Ae f.dmx");
}

// The p4 stand-in on a private PATH, chosen the way start-up chooses it.
class P4Client : public ::testing::Test {
 protected:
  testing::P4Double server_;
  std::unique_ptr<SourceControl> system_ = chooseSourceControl(
      {}, testing::fixedEnvironment({{"PATH", server_.binFolder()}, {"P4PORT", "localhost:1666"}}));
};

TEST_F(P4Client, CallsFollowTheStateOfEachFile) {
  ASSERT_EQ(sourceControlBanner(*system_), "Source control: p4\n");
  // Quotes in arguments, where the platform's file names may hold them.
#ifdef _WIN32
  const char* spaced = "my model's [refs]/a b.dmx";
#else
  const char* spaced = "my model's \"refs\"/a b.dmx";
#endif
  std::string opened = server_.file("opened.dmx"), known = server_.file(spaced),
              fresh = server_.file("new_anim.dmx");
  server_.addFile(opened, 3, "edit");
  server_.addFile(known, 3);
  struct Step {
    std::string path;
    int state;
    Calls beforeWrite, afterWrite;
  };
  const Step steps[] = {
      {opened, file_state::kOpened, {{"-ztag", "fstat", opened}}, {}},
      {known, file_state::kInDepot, {{"-ztag", "fstat", known}, {"edit", "-c", "default", known}}, {}},
      {fresh, file_state::kNotInDepot, {{"-ztag", "fstat", fresh}}, {{"add", "-c", "default", fresh}}},
  };
  for (const Step& step : steps) {
    {
      ScopedSourceControlWrite write(system_.get(), step.path);
      EXPECT_EQ(write.state(), step.state) << step.path;
      EXPECT_EQ(server_.takeCalls(), step.beforeWrite);
      testing::writeText(step.path, "new");
    }
    EXPECT_EQ(server_.takeCalls(), step.afterWrite);
  }
  // Clients differ in the exit status of fstat for an unknown file.
  for (const char* status : {"0", "1"}) {
    zv::testing::ScopedEnv exitStatus("ZV_P4_DOUBLE_MISSING_EXIT", status);
    EXPECT_EQ(CP4File(system_.get(), server_.file("unknown.dmx")).GetFileState(), file_state::kNotInDepot);
  }
}

TEST_F(P4Client, OpensGoIntoTheRunsChangelistOrTheFilesOwn) {
  std::string edited = server_.file("e"), added = server_.file("a"), own = server_.file("n"),
              plain = server_.file("d");
  server_.addFile(edited, 1);
  system_->setChangelist("4711");
  EXPECT_TRUE(CP4File(system_.get(), edited).Edit());
  EXPECT_TRUE(CP4File(system_.get(), added).Add());
  EXPECT_TRUE(CP4File(system_.get(), own, kDefaultFileType, 12).Add());
  system_->setChangelist("");
  EXPECT_TRUE(CP4File(system_.get(), plain).Add());
  EXPECT_EQ(server_.takeCalls(), (Calls{{"edit", "-c", "4711", edited},
                                        {"add", "-c", "4711", added},
                                        {"add", "-c", "12", own},
                                        {"add", "-c", "default", plain}}));
}

TEST_F(P4Client, WildcardCharactersAreEscapedOrForcedAndAFailedOpenIsLogged) {
  std::string known = server_.file("seq@idle#2.dmx"), fresh = server_.file("100%.dmx");
  server_.addFile(known, 5);
  EXPECT_EQ(CP4File(system_.get(), known).GetFileState(), file_state::kInDepot);
  EXPECT_TRUE(CP4File(system_.get(), known).Edit());
  EXPECT_TRUE(CP4File(system_.get(), fresh).Add());
  std::string escaped = server_.file("seq%40idle%232.dmx");
  EXPECT_EQ(server_.takeCalls(), (Calls{{"-ztag", "fstat", escaped},
                                        {"edit", "-c", "default", escaped},
                                        {"add", "-c", "default", "-f", fresh}}));
  // One file's failure leaves p4 in use for the others.
  LogCapture capture;
  std::string path = server_.file("not_on_client.dmx");
  EXPECT_FALSE(CP4File(system_.get(), path).Edit());
  EXPECT_EQ(capture.count("p4 edit of " + path + " failed: " + path + " - file(s) not on client."), 1u);
  EXPECT_TRUE(CP4File(system_.get(), server_.file("other.dmx")).Add());
}

TEST_F(P4Client, AnUnreachableServerIsReportedOnceAndThenLeftAlone) {
  LogCapture capture;
  server_.goOffline();
  for (int i = 0; i < 3; ++i) {
    ScopedSourceControlWrite write(system_.get(), server_.file(std::to_string(i)));
    EXPECT_EQ(write.state(), file_state::kNoSystem);
  }
  EXPECT_FALSE(CP4File(system_.get(), server_.file("x.dmx")).Edit());
  EXPECT_EQ(server_.takeCalls().size(), 1u);
  EXPECT_EQ(capture.count("p4 cannot be used (Connect to server failed; check $P4PORT.)"), 1u)
      << capture.text();
}

}  // namespace
}  // namespace zv::scm
