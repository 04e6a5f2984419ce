#include "app/command_line.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "support/test_support.h"

namespace zv::app {
namespace {

using zv::testing::writeText;
using Files = std::vector<std::string>;

// A file system like the driver's: the test folder as the current directory and "LOCAL".
struct Fixture {
  zv::testing::TempDir dir;
  fs::FileSystem fileSystem{dir.path()};
  RunOptions options;
  LogCapture log;
  Fixture() { EXPECT_TRUE(fileSystem.addSearchPath("", "LOCAL", fs::Placement::Tail)); }
  void touch(std::initializer_list<const char*> names) {
    for (const char* name : names) writeText(dir.file(name), "x");
  }
  // Full paths as the tool gives them: in the platform's own spelling.
  std::string abs(std::string_view relative) const { return zv::testing::nativeSpelling(dir.file(relative)); }
  bool parse(const std::vector<std::string>& args) { return parseCommandLine(args, options, fileSystem); }
  const LogRecord* record(std::string_view text) const {
    for (const LogRecord& r : log.records()) {
      if (r.text == text) return &r;
    }
    return nullptr;
  }
};

TEST(CommandLine, NoArgumentsOrHelpAnywherePrintTheUsageText) {
  Fixture f;
  f.touch({"a.mdl"});
  EXPECT_FALSE(f.parse({}));
  const std::vector<LogRecord>& lines = f.log.records();
  ASSERT_EQ(lines.size(), 18u);
  EXPECT_EQ(lines[0].text, "Usage: zv_mdl_import -o <path> [options] <filespecs...>\n");
  EXPECT_EQ(lines[5].text,
            "    -i <path>                  : Input path (this is replaced by the ouputpath from -o\n");
  EXPECT_EQ(lines[15].text,
            "    -header_hull_bounds        : Import mdl hull bounds from the studiohdr (typically we use we "
            "derive "
            "from physics hulls)\n");
  for (const LogRecord& r : lines) {
    EXPECT_EQ(r.severity, Severity::Message);
    EXPECT_EQ(r.channel, "ZvMdlImport");
  }
  EXPECT_FALSE(f.parse({"-o", "out", "a.mdl", "-H"}));  // even after valid options
  EXPECT_EQ(f.log.count("Usage: zv_mdl_import"), 2u);
  EXPECT_TRUE(f.options.inputFiles.empty());
}

TEST(CommandLine, ProblemsAreWarnedOfInTheirColourAndStopTheParseOrNot) {
  struct Case {
    Files args;
    bool parsed;
    std::string message;
    std::optional<Color> color;
  };
  const Case cases[] = {
      {{"a.mdl", "-v"}, false, "Must supply -o for output files\n", colors::kRed},
      {{"a.mdl", "-O"}, false, "Expected argument for -o\n", colors::kRed},
      {{"a.mdl", "-i"}, false, "Expected argument for -i\n", std::nullopt},  // the one without colour
      {{"a.mdl", "-c"}, false, "Expected argument for -c\n", colors::kRed},
      {{"a.mdl", "-Weapon_Anim_Prefab"}, false, "Expected argument for -weapon_anim_prefab\n", colors::kRed},
      {{"-o", "out", "-scm", "svn", "a.mdl"},
       false,
       "Unknown source control svn (use none, p4 or git)\n",
       colors::kRed},
      {{"-o", "out", "*.qmdl", "missing/x.mdl"}, false, "No Input files found\n", colors::kRed},
      {{"-o", "out", "-l", "nolist.txt"}, false, "Unable to read filelist -l nolist.txt\n", colors::kRed},
      // A trailing -game or -l has no value: it is an unknown option and parsing goes on.
      {{"-o", "out", "a.mdl", "-game"},
       true,
       "Unrecognised option or option parameters -game\n",
       colors::kYellow},
      {{"-o", "out", "a.mdl", "-l"}, true, "Unrecognised option or option parameters -l\n", colors::kYellow},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    Fixture f;
    f.touch({"a.mdl"});
    EXPECT_EQ(f.parse(c.args), c.parsed);
    const LogRecord* r = f.record(c.message);
    ASSERT_NE(r, nullptr) << f.log.text();
    EXPECT_EQ(r->severity, Severity::Warning);
    EXPECT_EQ(r->color, c.color);
    EXPECT_EQ(f.options.inputFiles.size(), c.parsed ? 1u : 0u);
  }
}

TEST(CommandLine, FlagsAndValuesIgnoreCase) {
  Fixture f;
  f.touch({"a.mdl"});
  ASSERT_TRUE(f.parse({"-O", "out", "-GAME", "mymod", "-yuptozup", "-LODS", "-skipCommonDmxWrite",
                       "-overridelean", "-write_weapon_anim_prefab", "-header_hull_bounds", "-c", "123",
                       "-weapon_anim_prefab", "w.qmdl_prefab", "-v", "-nop4", "-scm", "GIT", "a.mdl"}));
  const RunOptions& o = f.options;
  EXPECT_EQ(o.outputRoot, "out");
  EXPECT_EQ(o.mod, "mymod");
  EXPECT_TRUE(o.yUpToZUp && o.allLods && o.skipCommonDmxWrite && o.overrideLean && o.writeWeaponAnimPrefab &&
              o.headerHullBounds && o.verbose && o.noP4);
  EXPECT_FALSE(o.recurse);
  EXPECT_EQ(o.changelist, "123");
  EXPECT_EQ(o.weaponAnimPrefab, "w.qmdl_prefab");
  EXPECT_EQ(o.sourceControl, scm::Backend::Git);
}

TEST(CommandLine, ListFilesSplitAtCarriageReturnsAndLineFeedsAndDuplicatesAreKept) {
  Fixture f;
  f.touch({"a.mdl", "sub/b.mdl"});
  writeText(f.dir.file("list.txt"), "a.mdl\r\nsub/b.mdl\r./a.mdl\n\n");
  ASSERT_TRUE(f.parse({"-o", "out", "-l", "list.txt", f.abs("a.mdl")}));
  EXPECT_EQ(f.options.inputFiles,
            (Files{f.abs("a.mdl"), f.abs("sub/b.mdl"), f.abs("a.mdl"), f.abs("a.mdl")}));
  EXPECT_EQ(f.options.outputFolders, Files(4, "out"));
}

TEST(CommandLine, RecursionListsAFoldersOwnFilesBeforeItsSubFoldersInNameOrder) {
  Fixture f;
  f.touch({"m/b.mdl", "m/a.mdl", "m/z/c.mdl", "m/y/d.mdl", "m/y/x/e.mdl", "m/y/f.txt", "other/g.mdl"});
  ASSERT_TRUE(f.parse({"-o", "out", "-r", "m/*.mdl"}));
  EXPECT_EQ(f.options.inputFiles, (Files{f.abs("m/a.mdl"), f.abs("m/b.mdl"), f.abs("m/y/d.mdl"),
                                         f.abs("m/y/x/e.mdl"), f.abs("m/z/c.mdl")}));
  EXPECT_EQ(f.options.baseNames, (Files{"a", "b", "d", "e", "c"}));
  Fixture flat;
  flat.touch({"m/a.mdl", "m/sub/b.mdl"});
  ASSERT_TRUE(flat.parse({"-o", "out", flat.abs("m/*.MDL")}));
  EXPECT_EQ(flat.options.inputFiles, Files{flat.abs("m/a.mdl")});
}

TEST(CommandLine, InputRootMapsOutputFoldersAndIsSearchedFirst) {
  Fixture f;
  f.touch({"src/props/a.mdl", "src/b.mdl", "elsewhere/c.mdl"});
  ASSERT_TRUE(f.parse({"-i", "src", "-o", "out", "props/*.mdl", "b.mdl", f.abs("elsewhere/*.mdl")}));
  EXPECT_EQ(f.options.inputRoot, f.abs("src"));
  EXPECT_EQ(f.options.inputFiles,
            (Files{f.abs("src/props/a.mdl"), f.abs("src/b.mdl"), f.abs("elsewhere/c.mdl")}));
  EXPECT_EQ(f.options.outputFolders, (Files{"out\\props", "out", "out"}));
  ASSERT_GE(f.fileSystem.searchPaths().size(), 3u);
  EXPECT_EQ(f.fileSystem.searchPaths()[0].pathId, "IMPORT_GAME");
  EXPECT_EQ(f.fileSystem.searchPaths()[1].pathId, "LOCAL");
}

TEST(OutputFolders, MapBelowTheInputRootIgnoringCase) {
  EXPECT_EQ(mapOutputFolder("D:\\src\\props\\a.mdl", std::string("D:\\src"), "D:\\out"), "D:\\out\\props");
  EXPECT_EQ(mapOutputFolder("d:\\SRC\\props\\deep\\a.mdl", std::string("D:\\src"), "o"), "o\\props\\deep");
  EXPECT_EQ(mapOutputFolder("D:\\src\\a.mdl", std::string("D:\\src"), "o"), "o");
  EXPECT_EQ(mapOutputFolder("E:\\other\\a.mdl", std::string("D:\\src"), "o"), "o");
  EXPECT_EQ(mapOutputFolder("E:\\other\\a.mdl", std::nullopt, "o"), "o");
}

TEST(OutputFolders, ArchivePathsMapByTheirInnerFolder) {
  EXPECT_EQ(mapOutputFolder("qpk:/g/pak01_dir.qpk:models/props/a.mdl", std::string("/g"), "o"),
            "o\\models/props");
  EXPECT_EQ(mapOutputFolder("QPK:/g/PAK01_DIR.QPK:a.mdl", std::string("/x"), "o"), "o");
  // Without ".qpk:" there is no folder at all: later folders shift by one.
  EXPECT_EQ(mapOutputFolder("qpk:/g/pak01:a.mdl", std::string("/g"), "o"), std::nullopt);
  // Without an input root every file goes to the output root.
  EXPECT_EQ(mapOutputFolder("qpk:/g/pak01_dir.qpk:models/a.mdl", std::nullopt, "o"), "o");
}

TEST(GameArgument, TheLastGameWithAValueWins) {
  EXPECT_EQ(findGameArgument({"-o", "x", "-game", "a", "-GAME", "b"}), "b");
  EXPECT_EQ(findGameArgument({"-o", "x", "-game"}), std::nullopt);
}

}  // namespace
}  // namespace zv::app
