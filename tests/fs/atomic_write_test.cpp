#include "fs/atomic_write.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "fs/positioned_file.h"
#include "fs_test_util.h"
#include "support/test_support.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace zv::fs {
namespace {

using zv::testing::readText;
using zv::testing::TempDir;
using zv::testing::writeText;

size_t filesIn(const std::filesystem::path& dir) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir), {}));
}

std::string readWhole(const PositionedFile& file) {
  std::string text(file.size(), '\0');
  return file.readAt(0, reinterpret_cast<uint8_t*>(text.data()), text.size()) ? text : "<read failed>";
}

TEST(AtomicWrite, ReplacesTheTargetOrFailsLeavingNoTemporary) {
  TempDir dir;
  writeText(dir.file("out.txt"), "old");
  ASSERT_TRUE(writeFileAtomic(dir.path() / "out.txt", bytesOf("new contents")));
  EXPECT_EQ(readText(dir.path() / "out.txt"), "new contents");
  EXPECT_EQ(filesIn(dir.path()), 1u);

  std::filesystem::create_directory(dir.path() / "target");  // a folder cannot be replaced by a file
  EXPECT_FALSE(writeFileAtomic(dir.path() / "target", bytesOf("data")));
  EXPECT_TRUE(std::filesystem::is_directory(dir.path() / "target"));
  EXPECT_EQ(filesIn(dir.path()), 2u);
  EXPECT_FALSE(writeFileAtomic(dir.path() / "no/such/folder/file", bytesOf("data")));
}

// A reader that has the target open keeps the bytes it opened while the name moves on to
// the new ones: the tool's own readers never block a write. Windows before its POSIX-style
// rename (and wine) cannot replace an open file at all; there the write fails whole.
TEST(AtomicWrite, ReplacesAFileThatAnotherHandleHasOpen) {
  TempDir dir;
  std::filesystem::path target = dir.path() / "busy.dmx";
  writeText(target, "old bytes");
  {
    auto reader = PositionedFile::open(dir.file("busy.dmx"));
    ASSERT_TRUE(reader) << reader.message();
    Status replaced = writeFileAtomic(target, bytesOf("new bytes!"));
    EXPECT_EQ(readWhole(*reader.value()), "old bytes");
#ifdef _WIN32
    if (!replaced) {
      EXPECT_NE(replaced.message().find("cannot replace"), std::string::npos) << replaced.message();
      EXPECT_EQ(readText(target), "old bytes");
    }
#else
    ASSERT_TRUE(replaced) << replaced.message();
#endif
    if (replaced) {
      EXPECT_EQ(readText(target), "new bytes!");
    }
  }
  EXPECT_EQ(filesIn(dir.path()), 1u);
  ASSERT_TRUE(writeFileAtomic(target, bytesOf("new bytes!")));  // once the reader is gone
#ifdef _WIN32
  // A program that holds the file without sharing its deletion makes the replace fail
  // whole: the old bytes stay and no temporary is left behind.
  HANDLE holder = CreateFileW(target.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(holder, INVALID_HANDLE_VALUE);
  Status held = writeFileAtomic(target, bytesOf("newer"));
  CloseHandle(holder);
  EXPECT_FALSE(held);
  EXPECT_NE(held.message().find("cannot replace"), std::string::npos) << held.message();
  EXPECT_EQ(readText(target), "new bytes!");
  EXPECT_EQ(filesIn(dir.path()), 1u);
#endif
}

// The write runs in a child process (a fork, or on Windows a new run of this test) that
// dies between writing the temporary file and the rename. The child is told the parent's
// target through the environment, since a new run would otherwise make its own folder.
TEST(AtomicWriteDeathTest, ProcessDyingBeforeTheRenameKeepsTheOldFile) {
  std::optional<TempDir> dir;
  std::filesystem::path target;
  if (const char* inherited = std::getenv("ZV_DYING_WRITE_TARGET")) {
    target = inherited;
  } else {
    dir.emplace();
    target = dir->path() / "model.qmdl";
    writeText(target, "old document");
  }
  zv::testing::ScopedEnv shared("ZV_DYING_WRITE_TARGET", target.string().c_str());
  EXPECT_EXIT((void)writeFileAtomic(target, bytesOf("new document"), [] { std::_Exit(0); }),
              ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(readText(target), "old document");
  // The complete temporary is what the child left: it did get as far as the rename.
  ASSERT_EQ(filesIn(target.parent_path()), 2u);
  for (const auto& entry : std::filesystem::directory_iterator(target.parent_path())) {
    if (entry.path() != target) {
      EXPECT_EQ(readText(entry.path()), "new document");
    }
  }
}

}  // namespace
}  // namespace zv::fs
