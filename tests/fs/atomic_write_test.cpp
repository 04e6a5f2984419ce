#include "fs/atomic_write.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include "fs_test_util.h"
#include "support/test_support.h"

namespace zv::fs {
namespace {

using zv::testing::readText;
using zv::testing::TempDir;
using zv::testing::writeText;

size_t filesIn(const std::filesystem::path& dir) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir), {}));
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

TEST(AtomicWrite, ProcessDyingBeforeTheRenameKeepsTheOldFile) {
  TempDir dir;
  writeText(dir.file("model.qmdl"), "old document");
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    (void)writeFileAtomic(dir.path() / "model.qmdl", bytesOf("new document"), [] { _exit(0); });
    _exit(1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);  // it died in the window between write and rename
  EXPECT_EQ(readText(dir.path() / "model.qmdl"), "old document");
}

}  // namespace
}  // namespace zv::fs
