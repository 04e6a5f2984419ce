#include "output/output.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "support/test_support.h"

namespace zv {
namespace {

using zv::testing::readText;
using zv::testing::TempDir;
using Calls = std::vector<std::string>;

// Records the protocol as source control sees it, with what the file holds at the time.
class RecordingSourceControl : public scm::SourceControl {
 public:
  explicit RecordingSourceControl(int state) : state_(state) {}
  scm::Backend backend() const override { return scm::Backend::P4; }
  void setChangelist(const std::string&) override {}
  int fileState(const std::string& path, int, int) override {
    calls.push_back("state " + path);
    return state_;
  }
  bool openForEdit(const std::string& path, int, int) override { return record("edit", path); }
  bool openForAdd(const std::string& path, int, int) override { return record("add", path); }
  bool flush() override { return true; }
  Calls calls;

 private:
  bool record(const char* what, const std::string& path) {
    calls.push_back(what + (" " + path) +
                    (std::filesystem::is_regular_file(path) ? " holding " + readText(path) : ""));
    return true;
  }
  int state_;
};

TEST(Output, WritesInsideTheRootOnlyAndOncePerModel) {
  TempDir dir;
  Output out(dir.file("out"), nullptr);
  ASSERT_TRUE(out.writeText(dir.file("out/a/b/c.txt"), "hello"));
  EXPECT_EQ(readText(dir.path() / "out/a/b/c.txt"), "hello");
  EXPECT_TRUE(out.writeText(dir.file("out/a/../inside.txt"), "x"));
  EXPECT_EQ(out.written(), (std::vector<WrittenFile>{{dir.file("out/a/b/c.txt"), 5}, {dir.file("out/inside.txt"), 1}}));
  for (std::string path :
       {dir.file("out/../escape.txt"), dir.file("outside.txt"), dir.file("out"), dir.file("out2/x.txt"),
        std::string("/etc/passwd"), dir.file("out/a/../../b.txt")}) {
    Status s = out.writeText(path, "x");
    ASSERT_FALSE(s) << path;
    EXPECT_NE(s.message().find("outside the output root"), std::string::npos) << s.message();
  }
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "escape.txt"));
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "b.txt"));
  // Folders obey the same root: names from an archive could hold "..".
  EXPECT_TRUE(out.createFolder(dir.file("out")));
  EXPECT_TRUE(out.createFolder(dir.file("out/x/../y/z")));
  EXPECT_TRUE(std::filesystem::is_directory(dir.path() / "out/y/z"));
  EXPECT_FALSE(out.createFolder(dir.file("out/../../escaped")));
  EXPECT_FALSE(std::filesystem::exists(dir.path().parent_path() / "escaped"));

  EXPECT_FALSE(out.writeText(dir.file("out/./a/b/c.txt"), "second"));
  EXPECT_EQ(readText(dir.path() / "out/a/b/c.txt"), "hello");
  out.beginModel();
  EXPECT_TRUE(out.writeText(dir.file("out/a/b/c.txt"), "next model"));
  EXPECT_EQ(readText(dir.path() / "out/a/b/c.txt"), "next model");
}

TEST(Output, SourceControlProtocolFollowsTheFileState) {
  TempDir dir;
  std::string file = dir.file("x.txt");
  // Opened for edit while the old file is still there, added once the new one is.
  const std::pair<int, Calls> cases[] = {
      {scm::file_state::kOpened, {"state " + file}},
      {scm::file_state::kInDepot, {"state " + file, "edit " + file + " holding old"}},
      {scm::file_state::kNotInDepot, {"state " + file, "add " + file + " holding new"}},
  };
  for (const auto& [state, calls] : cases) {
    zv::testing::writeText(file, "old");
    RecordingSourceControl system(state);
    ASSERT_TRUE(Output(dir.str(), &system).writeText(file, "new"));
    EXPECT_EQ(system.calls, calls);
  }
}

TEST(Output, AFailedWriteIsNotAddedAndLeavesNoTemporary) {
  TempDir dir;
  std::filesystem::create_directories(dir.path() / "taken.txt");  // a folder where the file should go
  RecordingSourceControl unknown(scm::file_state::kNotInDepot);
  Output out(dir.str(), &unknown);
  EXPECT_FALSE(out.writeText(dir.file("taken.txt"), "x"));
  EXPECT_EQ(unknown.calls, Calls{"state " + dir.file("taken.txt")});
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST(SafeNames, NamesFromFilesBecomeSingleComponents) {
  LogCapture log;
  EXPECT_EQ(safeFileName("crate_bg_body_lod0"), "crate_bg_body_lod0");
  EXPECT_EQ(log.records().size(), 0u);
  // Names a file system on some platform would read as something else than one plain
  // file are changed on every platform, so that outputs are the same everywhere.
  const std::pair<const char*, const char*> cases[] = {
      {"../../etc/passwd", ".._.._etc_passwd"},
      {"C:\\windows", "C__windows"},
      {"D:stream", "D_stream"},
      {"..", "__"},
      {"", "_"},
      {"a\tb\x01", "a_b_"},
      {"x*?<>|\"", "x______"},
      {"CON", "_CON"},
      {"aux.dmx", "_aux.dmx"},
      {"nul.tar.gz", "_nul.tar.gz"},
      {"Com1", "_Com1"},
      {"LPT9.txt", "_LPT9.txt"},
      {"com\xC2\xB9.dmx", "_com\xC2\xB9.dmx"},
      {"con .dmx", "_con .dmx"},
      {"CONOUT$", "_CONOUT$"},
      {"body.", "body_"},
      {"body. . ", "body____"},
      {"con.", "con_"},
  };
  for (const auto& [name, safe] : cases) EXPECT_EQ(safeFileName(name), safe) << name;
  EXPECT_EQ(log.count("cannot be used as a file name"), std::size(cases));
  // Near misses are left alone.
  for (const char* name : {"console", "auxiliary.dmx", "com10", "lpt", "nul_body", ".hidden", "a.b"}) {
    EXPECT_EQ(safeFileName(name), name);
  }
  EXPECT_EQ(log.count("cannot be used as a file name"), std::size(cases));
}

}  // namespace
}  // namespace zv
