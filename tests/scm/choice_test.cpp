#include <gtest/gtest.h>

#include "base/log.h"
#include "scm/source_control.h"
#include "scm_test_helpers.h"
#include "support/test_support.h"

namespace zv::scm {
namespace {

// A PATH with executable "p4" and "git" programs, and one with neither.
class SourceControlChoice : public ::testing::Test {
 protected:
  SourceControlChoice() {
    testing::writeScript(dir_.path() / "tools" / "p4", "#!/bin/sh\nexit 0\n");
    testing::writeScript(dir_.path() / "tools" / "git", "#!/bin/sh\nexit 0\n");
    std::filesystem::create_directories(dir_.path() / "empty");
  }

  Backend choose(Choice choice, std::map<std::string, std::string> values, bool withTools = true) {
    values["PATH"] = dir_.file(withTools ? "tools" : "empty");
    return chooseSourceControl(choice, testing::FakeEnvironment{values}.lookup())->backend();
  }

  zv::testing::TempDir dir_;
};

TEST_F(SourceControlChoice, P4OnlyWhenTheClientIsOnThePathAndConfigured) {
  EXPECT_EQ(choose({}, {}), Backend::None);
  EXPECT_EQ(choose({}, {{"P4PORT", "ssl:server:1666"}}), Backend::P4);
  EXPECT_EQ(choose({}, {{"P4CONFIG", ".p4config"}}), Backend::P4);
  EXPECT_EQ(choose({}, {{"P4PORT", ""}}), Backend::None);  // set but empty is not configured
  EXPECT_EQ(choose({}, {{"P4PORT", "server:1666"}}, /*withTools=*/false), Backend::None);
}

TEST_F(SourceControlChoice, GitIsNeverChosenWithoutBeingAskedFor) {
  // Only p4 is detected; a git checkout alone does not turn adding on.
  EXPECT_EQ(choose({}, {{"GIT_DIR", "/somewhere"}}), Backend::None);
}

TEST_F(SourceControlChoice, NoP4TurnsP4Off) {
  EXPECT_EQ(choose({.forced = std::nullopt, .noP4 = true}, {{"P4PORT", "server:1666"}}), Backend::None);
  EXPECT_EQ(choose({.forced = Backend::P4, .noP4 = true}, {{"P4PORT", "server:1666"}}), Backend::None);
  // It is about p4 only.
  EXPECT_EQ(choose({.forced = Backend::Git, .noP4 = true}, {}), Backend::Git);
}

TEST_F(SourceControlChoice, ScmOverridesDetection) {
  EXPECT_EQ(choose({.forced = Backend::None}, {{"P4PORT", "server:1666"}}), Backend::None);
  EXPECT_EQ(choose({.forced = Backend::Git}, {{"P4PORT", "server:1666"}}), Backend::Git);
  // Asked for explicitly, p4 may rely on its own defaults for the server.
  EXPECT_EQ(choose({.forced = Backend::P4}, {}), Backend::P4);
}

TEST_F(SourceControlChoice, AForcedClientMissingFromThePathGivesNoneAndAWarning) {
  LogCapture capture;
  EXPECT_EQ(choose({.forced = Backend::Git}, {}, /*withTools=*/false), Backend::None);
  EXPECT_EQ(capture.count("no git program is on the PATH"), 1u);
  EXPECT_EQ(choose({.forced = Backend::P4}, {}, /*withTools=*/false), Backend::None);
  EXPECT_EQ(capture.count("no p4 program is on the PATH"), 1u);
}

TEST(SourceControlNames, ParseAndPrint) {
  EXPECT_EQ(parseBackend("git"), Backend::Git);
  EXPECT_EQ(parseBackend("P4"), Backend::P4);
  EXPECT_EQ(parseBackend("None"), Backend::None);
  EXPECT_EQ(parseBackend("svn"), std::nullopt);
  EXPECT_EQ(parseBackend(""), std::nullopt);
  EXPECT_EQ(sourceControlBanner(NoSourceControl()), "Source control: none\n");
}

}  // namespace
}  // namespace zv::scm
