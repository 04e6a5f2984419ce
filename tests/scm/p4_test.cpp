#include "scm/p4_source_control.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "scm/p4_file.h"
#include "scm_test_helpers.h"
#include "support/test_support.h"

namespace zv::scm {
namespace {

using Calls = std::vector<std::vector<std::string>>;
using Args = std::vector<std::string>;

TEST(P4Output, StateFromFstatRecords) {
  const char* submitted =
      "... depotFile //depot/a.dmx\n... clientFile /ws/a.dmx\n... isMapped \n... headAction edit\n"
      "... headRev 3\n... haveRev 3\n\n";
  EXPECT_EQ(p4::stateFromFstat(submitted), file_state::kInDepot);
  EXPECT_EQ(p4::stateFromFstat(std::string(submitted, std::string(submitted).size() - 1) +
                               "... action edit\n... change default\n\n"),
            file_state::kOpened);
  // Opened for add: no head revision yet, but already opened by this client.
  EXPECT_EQ(p4::stateFromFstat("... depotFile //depot/n.dmx\n... action add\n\n"), file_state::kOpened);
  // Deleted at head: it has to be added again.
  EXPECT_EQ(p4::stateFromFstat("... depotFile //depot/d.dmx\n... headAction delete\n... headRev 4\n\n"),
            file_state::kNotInDepot);
  EXPECT_EQ(
      p4::stateFromFstat("... depotFile //depot/d.dmx\r\n... headAction move/delete\r\n... headRev 2\r\n"),
      file_state::kNotInDepot);
  EXPECT_EQ(p4::stateFromFstat(""), file_state::kNotInDepot);
}

TEST(P4Output, OnlyTheFirstRecordAndItsOwnFieldsCount) {
  // Another user's open action is nested; it does not make the file opened here.
  EXPECT_EQ(p4::stateFromFstat("... depotFile //depot/a\n... headRev 1\n... ... otherOpen0 bob@ws\n"
                               "... ... otherAction0 edit\n... otherOpen 1\n\n"),
            file_state::kInDepot);
  EXPECT_EQ(p4::stateFromFstat(
                "... depotFile //depot/a\n... headRev 1\n\n... depotFile //depot/b\n... action edit\n"),
            file_state::kInDepot);
}

TEST(P4Output, EscapesAndRunWideFailures) {
  EXPECT_EQ(p4::escapePath("/ws/a@b#c%d*e f.dmx"), "/ws/a%40b%23c%25d%2Ae f.dmx");
  EXPECT_EQ(p4::escapePath("/ws/plain name.dmx"), "/ws/plain name.dmx");
  EXPECT_TRUE(p4::hasWildcardCharacters("x@y"));
  EXPECT_FALSE(p4::hasWildcardCharacters("x y"));
  EXPECT_EQ(
      p4::runWideFailure("header:\n\tConnect to server failed; check $P4PORT.\n\tTCP connect failed.\n"),
      "Connect to server failed; check $P4PORT.");
  EXPECT_EQ(p4::runWideFailure("/ws/a - no such file(s).\n"), "");
}

// The p4 stand-in on a private PATH, chosen the way start-up chooses it.
class P4Client : public ::testing::Test {
 protected:
  P4Client() {
    testing::FakeEnvironment env{{{"PATH", server_.binFolder()}, {"P4PORT", "localhost:1666"}}};
    system_ = chooseSourceControl({}, env.lookup());
  }

  std::string file(const std::string& name) { return (server_.workspace() / name).string(); }

  testing::P4Double server_;
  std::unique_ptr<SourceControl> system_;
};

TEST_F(P4Client, IsChosenAndNamed) {
  ASSERT_EQ(system_->backend(), Backend::P4);
  EXPECT_EQ(sourceControlBanner(*system_), "Source control: p4\n");
}

TEST_F(P4Client, AFileAlreadyOpenedIsWrittenWithoutFurtherCalls) {
  std::string path = file("opened.dmx");
  server_.addFile(path, 3, "edit", "edit");
  {
    ScopedSourceControlWrite write(system_.get(), path);
    EXPECT_EQ(write.state(), file_state::kOpened);
    zv::testing::writeText(path, "new");
  }
  EXPECT_EQ(server_.calls(), (Calls{{"-ztag", "fstat", path}}));
}

TEST_F(P4Client, AFileInTheDepotIsOpenedForEditBeforeTheWrite) {
  std::string path = file("model.qmdl");
  server_.addFile(path, 3);
  {
    ScopedSourceControlWrite write(system_.get(), path);
    EXPECT_EQ(write.state(), file_state::kInDepot);
    EXPECT_EQ(server_.calls(), (Calls{{"-ztag", "fstat", path}, {"edit", "-c", "default", path}}));
    zv::testing::writeText(path, "new");
  }
  EXPECT_EQ(server_.calls().size(), 2u);  // nothing after the write
  // The server now reports it opened, so a second write does nothing more.
  EXPECT_EQ(CP4File(system_.get(), path).GetFileState(), file_state::kOpened);
}

TEST_F(P4Client, AnUnknownFileIsAddedAfterTheWrite) {
  std::string path = file("new_anim.dmx");
  {
    ScopedSourceControlWrite write(system_.get(), path);
    EXPECT_EQ(write.state(), file_state::kNotInDepot);
    EXPECT_EQ(server_.calls(), (Calls{{"-ztag", "fstat", path}}));
    zv::testing::writeText(path, "new");
  }
  EXPECT_EQ(server_.calls(), (Calls{{"-ztag", "fstat", path}, {"add", "-c", "default", path}}));
}

TEST_F(P4Client, UnknownFileStateDoesNotDependOnTheExitStatus) {
  // Clients differ in the exit status of fstat for an unknown file.
  for (const char* status : {"0", "1"}) {
    zv::testing::ScopedEnv exitStatus("ZV_P4_DOUBLE_MISSING_EXIT", status);
    EXPECT_EQ(CP4File(system_.get(), file("unknown.dmx")).GetFileState(), file_state::kNotInDepot) << status;
  }
}

TEST_F(P4Client, OpensGoIntoTheRunsChangelistOrTheFilesOwn) {
  std::string edited = file("edited.dmx");
  std::string added = file("added.dmx");
  server_.addFile(edited, 1);
  system_->setChangelist("4711");
  EXPECT_TRUE(CP4File(system_.get(), edited).Edit());
  EXPECT_TRUE(CP4File(system_.get(), added).Add());
  EXPECT_TRUE(CP4File(system_.get(), file("numbered.dmx"), kDefaultFileType, 12).Add());
  system_->setChangelist("");
  EXPECT_TRUE(CP4File(system_.get(), file("default.dmx")).Add());
  EXPECT_EQ(server_.calls(), (Calls{{"edit", "-c", "4711", edited},
                                    {"add", "-c", "4711", added},
                                    {"add", "-c", "12", file("numbered.dmx")},
                                    {"add", "-c", "default", file("default.dmx")}}));
}

TEST_F(P4Client, PathsWithSpacesAndQuotesArriveWhole) {
  std::string path = file("my model's \"refs\"/a b.dmx");
  server_.addFile(path, 2);
  {
    ScopedSourceControlWrite write(system_.get(), path);
    EXPECT_EQ(write.state(), file_state::kInDepot);
  }
  EXPECT_EQ(server_.calls(), (Calls{{"-ztag", "fstat", path}, {"edit", "-c", "default", path}}));
}

TEST_F(P4Client, WildcardCharactersInNamesAreEscapedOrForced) {
  std::string known = file("seq@idle#2.dmx");
  std::string fresh = file("100%.dmx");
  server_.addFile(known, 5);
  EXPECT_EQ(CP4File(system_.get(), known).GetFileState(), file_state::kInDepot);
  EXPECT_TRUE(CP4File(system_.get(), known).Edit());
  EXPECT_TRUE(CP4File(system_.get(), fresh).Add());
  std::string escaped = file("seq%40idle%232.dmx");
  EXPECT_EQ(server_.calls(), (Calls{{"-ztag", "fstat", escaped},
                                    {"edit", "-c", "default", escaped},
                                    {"add", "-c", "default", "-f", fresh}}));
}

TEST_F(P4Client, AFailedOpenIsLoggedAndTheWriteGoesOn) {
  LogCapture capture;
  // Not on the client: the server refuses the edit.
  std::string path = file("not_on_client.dmx");
  EXPECT_FALSE(CP4File(system_.get(), path).Edit());
  EXPECT_EQ(capture.count("p4 edit of " + path + " failed: " + path + " - file(s) not on client."), 1u);
  // One file's failure leaves p4 in use for the others.
  EXPECT_TRUE(CP4File(system_.get(), file("other.dmx")).Add());
}

TEST_F(P4Client, AnUnreachableServerIsReportedOnceAndThenLeftAlone) {
  LogCapture capture;
  server_.goOffline();
  for (int i = 0; i < 3; ++i) {
    ScopedSourceControlWrite write(system_.get(), file("f" + std::to_string(i) + ".dmx"));
    EXPECT_EQ(write.state(), file_state::kNoSystem);
  }
  EXPECT_EQ(server_.calls().size(), 1u);
  EXPECT_EQ(capture.count("Connect to server failed"), 1u);
  EXPECT_FALSE(CP4File(system_.get(), file("x.dmx")).Edit());
  EXPECT_EQ(server_.calls().size(), 1u);
}

TEST(P4Program, AClientThatCannotRunDisablesP4WithOneWarning) {
  LogCapture capture;
  zv::testing::TempDir dir;
  P4SourceControl system(dir.file("no-p4-here"));
  EXPECT_EQ(system.fileState(dir.file("a.dmx"), kDefaultFileType, kRunChangelist), file_state::kNoSystem);
  EXPECT_FALSE(system.available());
  EXPECT_FALSE(system.openForAdd(dir.file("a.dmx"), kDefaultFileType, kRunChangelist));
  EXPECT_EQ(capture.count("p4 cannot be used"), 1u);
}

}  // namespace
}  // namespace zv::scm
