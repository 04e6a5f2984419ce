#include "base/log.h"

#include <gtest/gtest.h>

namespace zv {
namespace {

TEST(Logging, RecordsCarryChannelSeverityAndColour) {
  LogCapture capture;
  mainLog().logColor(Severity::Message, colors::kCyan, "Conversion of %s\n", "a.mdl");
  warning("plain %d\n", 3);
  ASSERT_EQ(capture.records().size(), 2u);
  EXPECT_EQ(capture.records()[0].channel, "ZvMdlImport");
  EXPECT_EQ(capture.records()[0].severity, Severity::Message);
  EXPECT_EQ(capture.records()[0].color, colors::kCyan);
  EXPECT_EQ(capture.records()[0].text, "Conversion of a.mdl\n");
  EXPECT_EQ(capture.records()[1].channel, "");
  EXPECT_EQ(capture.records()[1].severity, Severity::Warning);
  EXPECT_EQ(capture.text(), "Conversion of a.mdl\nplain 3\n");
}

TEST(Logging, VerbosityFiltersPerChannel) {
  LogCapture capture;
  LogChannel& channel = logChannel("TestQuiet");
  channel.setVerbosity(static_cast<int>(Severity::Error));
  EXPECT_FALSE(channel.isEnabled(Severity::Warning));
  channel.log(Severity::Warning, "dropped");
  channel.log(Severity::Error, "kept");
  EXPECT_EQ(capture.text(), "kept");
  EXPECT_EQ(findLogChannel("TestQuiet"), &channel);
  EXPECT_EQ(findLogChannel("NeverRegistered"), nullptr);
}

TEST(Logging, CapturesNestAndRestore) {
  LogCapture outer;
  {
    LogCapture inner;
    warning("inner");
    EXPECT_EQ(inner.text(), "inner");
  }
  warning("outer");
  EXPECT_EQ(outer.text(), "outer");
}

TEST(Logging, ColoursMapToTheBasicTerminalColours) {
  EXPECT_EQ(ansiColor(colors::kCyan), "\033[36m");
  EXPECT_EQ(ansiColor(colors::kRed), "\033[31m");
  EXPECT_EQ(ansiColor(colors::kGreen), "\033[32m");
  EXPECT_EQ(ansiColor(colors::kYellow), "\033[33m");
  EXPECT_EQ(ansiColor(std::nullopt), "");
}

}  // namespace
}  // namespace zv
