// Path spellings from every platform, through the one way files are written and the file
// system that reads them back: the same outcome everywhere.

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <optional>
#include <tuple>

#include "base/native_path.h"
#include "fs/file_system.h"
#include "output/output.h"
#include "support/test_support.h"

namespace zv {
namespace {

size_t filesBelow(const std::filesystem::path& dir) {
  size_t count = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) count += entry.is_regular_file();
  return count;
}

TEST(PathCases, OutputsLandInsideTheRootUnderOneNameOnEveryPlatform) {
  const std::string folder(60, 'f');
  const std::string deep = folder + "/" + folder + "/" + folder + "/" + folder + "/" + folder + "/file.dmx";
  struct Case {
    const char* what;
    std::string path;    // below the root, or absolute when it starts with "!"
    std::string stored;  // where it lands below the root; "" when it is refused
  };
  const Case cases[] = {
      {"mixed separators", "a\\b/c.dmx", "a/b/c.dmx"},
      {"doubled separators", "a//b\\\\d.dmx", "a/b/d.dmx"},
      {"dots that stay inside", "a/./b/../e.dmx", "a/e.dmx"},
      {"non-ASCII names", "\xD0\xBC\xD0\xBE\xD0\xB4/\xD1\x8F\xD1\x89\xD0\xB8\xD0\xBA \xE2\x98\x83.dmx",
       "\xD0\xBC\xD0\xBE\xD0\xB4/\xD1\x8F\xD1\x89\xD0\xB8\xD0\xBA \xE2\x98\x83.dmx"},
      {"a path past 260 characters", deep, deep},
      {"near misses of device names", "console/aux1.dmx", "console/aux1.dmx"},
      {"a device name with an extension", "aux.dmx", ""},
      {"a device name as a folder", "CON/x.dmx", ""},
      {"a numbered device", "sub/lpt1", ""},
      {"a trailing dot", "name./x.dmx", ""},
      {"a trailing space", "name /x.dmx", ""},
      {"a stream of a file", "x.dmx:hidden", ""},
      {"a drive letter below the root", "C:/x.dmx", ""},
      {"leaving the root", "../x.dmx", ""},
      {"another drive", "!Q:/x.dmx", ""},
      {"a UNC root", "!//server/share/x.dmx", ""},
      {"a UNC root with back-slashes", "!\\\\server\\share\\x.dmx", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    zv::testing::TempDir dir;
    const std::string root = dir.file("out");
    Output out(root, nullptr);
    std::string path = c.path[0] == '!' ? c.path.substr(1) : root + "/" + c.path;
    Status written = out.writeText(path, "bytes");
    if (c.stored.empty()) {
      EXPECT_FALSE(written);
      EXPECT_EQ(filesBelow(dir.path()), 0u);
      continue;
    }
    ASSERT_TRUE(written) << written.message();
    ASSERT_EQ(out.written().size(), 1u);
    EXPECT_EQ(out.written()[0].path, root + "/" + c.stored);
    // Read back through the file system, by a spelling with the other separator and case.
    fs::FileSystem fileSystem(native::toPath(root));
    ASSERT_TRUE(fileSystem.addSearchPath("", "LOCAL", fs::Placement::Tail));
    std::string asked = c.stored;
    for (char& ch : asked) ch = ch == '/' ? '\\' : char(std::toupper(static_cast<unsigned char>(ch)));
    auto bytes = fileSystem.readFile(asked, "LOCAL");
    ASSERT_TRUE(bytes) << bytes.message();
    EXPECT_EQ(std::string(bytes->begin(), bytes->end()), "bytes");
    // Listed under the name it was given, in UTF-8.
    std::string parent = c.stored.substr(0, c.stored.rfind('/') + 1);
    std::string name = c.stored.substr(parent.size());
    auto entries = fileSystem.listFolder(parent, "*", "LOCAL");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].name, name);
  }
}

TEST(PathCases, ArchiveSpecificationsTakeDriveLettersAndUncRoots) {
  const std::tuple<const char*, std::optional<std::string>, std::string> cases[] = {
      {"qpk:C:\\games\\pak01_dir.qpk:models\\props\\a.mdl", "C:\\games\\pak01_dir.qpk", "models/props/a.mdl"},
      {"qpk:\\\\server\\share\\pak01_dir.qpk:x/./y.mdl", "\\\\server\\share\\pak01_dir.qpk", "x/y.mdl"},
      {"QPK:d:/g/PAK01_DIR.QPK:a.mdl", "d:/g/PAK01_DIR.QPK", "a.mdl"},
      {"qpk:relative/pak01.qpk:models/a.mdl", "relative/pak01.qpk", "models/a.mdl"},
      {"qpk:C:/g/pak01:a.mdl", std::nullopt, ""},  // no archive name in it
      {"C:\\games\\pak01_dir.qpk", std::nullopt, ""},
  };
  for (const auto& [spec, archive, inner] : cases) {
    std::optional<fs::ArchivePath> split = fs::splitArchivePath(spec);
    ASSERT_EQ(split.has_value(), archive.has_value()) << spec;
    if (!split) continue;
    EXPECT_EQ(split->archive, *archive) << spec;
    EXPECT_EQ(split->inner, inner) << spec;
  }
}

}  // namespace
}  // namespace zv
