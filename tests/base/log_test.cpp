#include "base/log.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "base/strings.h"

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

struct Buffer : LogSink {
  void write(const LogRecord& record) override { records.push_back(record); }
  std::vector<LogRecord> records;
};

// Each worker thread keeps its own lines; replayed in order they reach the run's sink,
// where a once-per-run message said by every thread gets through once.
TEST(Logging, ThreadSinksKeepEachThreadsLinesAndOnceKeysHoldAcrossReplays) {
  LogCapture run;
  std::vector<Buffer> buffers(4);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < buffers.size(); ++t) {
    threads.emplace_back([&buffers, t] {
      ScopedThreadLogSink own(buffers[t]);
      for (int i = 0; i < 50; ++i) {
        mainLog().log(Severity::Message, "t%zu line %d\n", t, i);
        warningOnce("test-once", "said once\n");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (size_t t = 0; t < buffers.size(); ++t) {
    ASSERT_EQ(buffers[t].records.size(), 51u) << "each buffer lets its first once-record through";
    EXPECT_EQ(buffers[t].records[0].text, format("t%zu line 0\n", t));
    replayLog(buffers[t].records);
  }
  std::string text = run.text();
  size_t first = text.find("said once\n");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(text.find("said once\n", first + 1), std::string::npos);
  EXPECT_LT(text.find("t0 line 49\n"), text.find("t1 line 0\n"));
  EXPECT_EQ(run.records().size(), 4u * 50u + 1u);
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
