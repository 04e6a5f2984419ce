#include "output/output.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "support/test_support.h"

namespace zv {
namespace {

using zv::testing::readText;
using zv::testing::TempDir;

// Records the protocol as source control sees it.
class RecordingSourceControl : public scm::SourceControl {
 public:
  explicit RecordingSourceControl(int state) : state_(state) {}
  scm::Backend backend() const override { return scm::Backend::P4; }
  void setChangelist(const std::string&) override {}
  int fileState(const std::string& path, int, int) override {
    calls.push_back("state " + path);
    return state_;
  }
  bool openForEdit(const std::string& path, int, int) override {
    calls.push_back("edit " + path + (std::filesystem::exists(path) ? " (exists)" : ""));
    return true;
  }
  bool openForAdd(const std::string& path, int, int) override {
    calls.push_back("add " + path + (std::filesystem::exists(path) ? " (exists)" : ""));
    return true;
  }
  bool flush() override { return true; }
  std::vector<std::string> calls;

 private:
  int state_;
};

TEST(Output, WritesInsideTheRootCreatingFolders) {
  TempDir dir;
  Output out(dir.str(), nullptr);
  ASSERT_TRUE(out.writeText(dir.file("a/b/c.txt"), "hello"));
  EXPECT_EQ(readText(dir.path() / "a/b/c.txt"), "hello");
  EXPECT_EQ(out.written(), std::vector<std::string>{dir.file("a/b/c.txt")});
}

TEST(Output, RefusesPathsThatLeaveTheRoot) {
  TempDir dir;
  Output out(dir.file("out"), nullptr);
  for (std::string path : {dir.file("out/../escape.txt"), dir.file("outside.txt"), dir.file("out"),
                           dir.file("out2/x.txt"), std::string("/etc/passwd"), dir.file("out/a/../../b.txt")}) {
    Status s = out.writeText(path, "x");
    EXPECT_FALSE(s) << path;
    if (!s) {
      EXPECT_NE(s.message().find("outside the output root"), std::string::npos);
    }
  }
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "escape.txt"));
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "b.txt"));
  EXPECT_TRUE(out.writeText(dir.file("out/a/../inside.txt"), "x"));
  EXPECT_TRUE(std::filesystem::exists(dir.path() / "out/inside.txt"));
}

TEST(Output, ASecondWriteOfOnePathInOneModelIsRefused) {
  TempDir dir;
  Output out(dir.str(), nullptr);
  ASSERT_TRUE(out.writeText(dir.file("m.dmx"), "first"));
  Status second = out.writeText(dir.file("./m.dmx"), "second");
  EXPECT_FALSE(second);
  EXPECT_EQ(readText(dir.path() / "m.dmx"), "first");
  out.beginModel();
  EXPECT_TRUE(out.writeText(dir.file("m.dmx"), "next model"));
  EXPECT_EQ(readText(dir.path() / "m.dmx"), "next model");
}

TEST(Output, SourceControlProtocolFollowsTheFileState) {
  TempDir dir;
  std::string file = dir.file("x.txt");
  {
    RecordingSourceControl opened(scm::file_state::kOpened);
    Output out(dir.str(), &opened);
    ASSERT_TRUE(out.writeText(file, "1"));
    EXPECT_EQ(opened.calls, std::vector<std::string>{"state " + file});
  }
  {
    RecordingSourceControl inDepot(scm::file_state::kInDepot);
    Output out(dir.str(), &inDepot);
    ASSERT_TRUE(out.writeText(file, "2"));
    // Opened for edit while the old file is still there, before the write replaces it.
    EXPECT_EQ(inDepot.calls, (std::vector<std::string>{"state " + file, "edit " + file + " (exists)"}));
  }
  {
    std::filesystem::remove(file);
    RecordingSourceControl unknown(scm::file_state::kNotInDepot);
    Output out(dir.str(), &unknown);
    ASSERT_TRUE(out.writeText(file, "3"));
    EXPECT_EQ(unknown.calls, (std::vector<std::string>{"state " + file, "add " + file + " (exists)"}));
  }
}

TEST(Output, AFailedWriteIsNotAddedAndLeavesNoTemporary) {
  TempDir dir;
  std::filesystem::create_directories(dir.path() / "taken.txt");  // a folder where the file should go
  RecordingSourceControl unknown(scm::file_state::kNotInDepot);
  Output out(dir.str(), &unknown);
  EXPECT_FALSE(out.writeText(dir.file("taken.txt"), "x"));
  EXPECT_EQ(unknown.calls.size(), 1u);  // the state query only
  size_t entries = 0;
  for ([[maybe_unused]] auto& e : std::filesystem::directory_iterator(dir.path())) ++entries;
  EXPECT_EQ(entries, 1u);
}

TEST(SafeNames, NamesFromFilesBecomeSingleComponents) {
  LogCapture log;
  EXPECT_EQ(safeFileName("crate_bg_body_lod0"), "crate_bg_body_lod0");
  EXPECT_EQ(log.records().size(), 0u);
  EXPECT_EQ(safeFileName("../../etc/passwd"), ".._.._etc_passwd");
  EXPECT_EQ(safeFileName("C:\\windows"), "C__windows");
  EXPECT_EQ(safeFileName(".."), "_..");
  EXPECT_EQ(safeFileName(""), "_");
  EXPECT_EQ(safeFileName("a\tb\x01"), "a_b_");
  EXPECT_EQ(safeFileName("x*?<>|\""), "x______");
  EXPECT_EQ(log.count("cannot be used as a file name"), 6u);
}

}  // namespace
}  // namespace zv
