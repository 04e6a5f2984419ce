#include "app/command_line.h"

#include <gtest/gtest.h>

#include "base/log.h"
#include "base/strings.h"
#include "support/test_support.h"

namespace zv::app {
namespace {

using zv::testing::TempDir;
using zv::testing::writeText;

// A file system like the driver's: the test folder as the current directory and "LOCAL".
struct Fixture {
  TempDir dir;
  fs::FileSystem fileSystem{dir.path()};
  Fixture() { EXPECT_TRUE(fileSystem.addSearchPath("", "LOCAL", fs::Placement::Tail)); }
  void touch(std::string_view relative) { writeText(dir.file(relative), "x"); }
  std::string abs(std::string_view relative) const { return dir.file(relative); }
};

const LogRecord* findRecord(const LogCapture& log, std::string_view text) {
  for (const LogRecord& r : log.records()) {
    if (r.text == text) return &r;
  }
  return nullptr;
}

TEST(CommandLine, NoArgumentsPrintsTheUsageText) {
  Fixture f;
  LogCapture log;
  RunOptions options;
  EXPECT_FALSE(parseCommandLine({}, options, f.fileSystem));
  ASSERT_EQ(log.records().size(), 18u);
  EXPECT_EQ(log.records()[0].text, "Usage: zv_mdl_import -o <path> [options] <filespecs...>\n");
  EXPECT_EQ(log.records()[5].text, "    -i <path>                  : Input path (this is replaced by the ouputpath from -o\n");
  EXPECT_EQ(log.records()[15].text,
            "    -header_hull_bounds        : Import mdl hull bounds from the studiohdr (typically we use we derive from "
            "physics hulls)\n");
  for (const LogRecord& r : log.records()) {
    EXPECT_EQ(r.severity, Severity::Message);
    EXPECT_EQ(r.channel, "ZvMdlImport");
  }
}

TEST(CommandLine, HelpAnywhereStopsEvenAfterValidOptions) {
  Fixture f;
  f.touch("a.mdl");
  LogCapture log;
  RunOptions options;
  EXPECT_FALSE(parseCommandLine({"-o", "out", "a.mdl", "-H"}, options, f.fileSystem));
  EXPECT_EQ(log.count("Usage: zv_mdl_import"), 1u);
  EXPECT_TRUE(options.inputFiles.empty());
}

TEST(CommandLine, OutputRootIsRequired) {
  Fixture f;
  f.touch("a.mdl");
  LogCapture log;
  RunOptions options;
  EXPECT_FALSE(parseCommandLine({"a.mdl", "-v"}, options, f.fileSystem));
  const LogRecord* r = findRecord(log, "Must supply -o for output files\n");
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->severity, Severity::Warning);
  EXPECT_EQ(r->color, colors::kRed);
  EXPECT_TRUE(options.inputFiles.empty());
}

TEST(CommandLine, MissingOptionValuesStopTheParse) {
  for (const char* option : {"-o", "-i", "-c", "-weapon_anim_prefab", "-O"}) {
    Fixture f;
    LogCapture log;
    RunOptions options;
    EXPECT_FALSE(parseCommandLine({"a.mdl", option}, options, f.fileSystem)) << option;
    std::string expected = std::string("Expected argument for ") + toLower(option) + "\n";
    const LogRecord* r = findRecord(log, expected);
    ASSERT_NE(r, nullptr) << log.text();
    EXPECT_EQ(r->severity, Severity::Warning);
    // The -i message alone has no colour.
    EXPECT_EQ(r->color.has_value(), std::string(option) != "-i") << option;
  }
}

TEST(CommandLine, TrailingGameOrListIsAnUnrecognisedOptionAndParsingGoesOn) {
  for (const char* option : {"-game", "-l"}) {
    Fixture f;
    f.touch("a.mdl");
    LogCapture log;
    RunOptions options;
    EXPECT_TRUE(parseCommandLine({"-o", "out", "a.mdl", option}, options, f.fileSystem)) << option;
    const LogRecord* r = findRecord(log, std::string("Unrecognised option or option parameters ") + option + "\n");
    ASSERT_NE(r, nullptr) << log.text();
    EXPECT_EQ(r->color, colors::kYellow);
    EXPECT_EQ(options.inputFiles.size(), 1u);
  }
}

TEST(CommandLine, FlagsAndValuesIgnoreCase) {
  Fixture f;
  f.touch("a.mdl");
  RunOptions options;
  ASSERT_TRUE(parseCommandLine({"-O", "out", "-GAME", "mymod", "-yuptozup", "-LODS", "-skipCommonDmxWrite",
                                "-overridelean", "-write_weapon_anim_prefab", "-header_hull_bounds", "-c", "123",
                                "-weapon_anim_prefab", "w.qmdl_prefab", "-v", "-nop4", "-scm", "git", "a.mdl"},
                               options, f.fileSystem));
  EXPECT_EQ(options.outputRoot, "out");
  EXPECT_EQ(options.mod, "mymod");
  EXPECT_TRUE(options.yUpToZUp && options.allLods && options.skipCommonDmxWrite && options.overrideLean &&
              options.writeWeaponAnimPrefab && options.headerHullBounds && options.verbose && options.noP4);
  EXPECT_FALSE(options.recurse);
  EXPECT_EQ(options.changelist, "123");
  EXPECT_EQ(options.weaponAnimPrefab, "w.qmdl_prefab");
  EXPECT_EQ(options.sourceControl, scm::Backend::Git);
}

TEST(CommandLine, UnknownSourceControlIsRefused) {
  Fixture f;
  LogCapture log;
  RunOptions options;
  EXPECT_FALSE(parseCommandLine({"-o", "out", "-scm", "svn", "a.mdl"}, options, f.fileSystem));
  EXPECT_EQ(log.count("svn"), 1u);
}

TEST(CommandLine, NothingFoundIsAFailure) {
  Fixture f;
  LogCapture log;
  RunOptions options;
  EXPECT_FALSE(parseCommandLine({"-o", "out", "*.mdl", "missing/x.mdl"}, options, f.fileSystem));
  const LogRecord* r = findRecord(log, "No Input files found\n");
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->color, colors::kRed);
}

TEST(CommandLine, ListFilesSplitAtCarriageReturnsAndLineFeeds) {
  Fixture f;
  f.touch("a.mdl");
  f.touch("sub/b.mdl");
  f.touch("c.mdl");
  writeText(f.dir.file("list.txt"), "a.mdl\r\nsub/b.mdl\rc.mdl\n\n");
  RunOptions options;
  ASSERT_TRUE(parseCommandLine({"-o", "out", "-l", "list.txt"}, options, f.fileSystem));
  EXPECT_EQ(options.inputFiles, (std::vector<std::string>{f.abs("a.mdl"), f.abs("sub/b.mdl"), f.abs("c.mdl")}));
}

TEST(CommandLine, UnreadableListFileIsNamedAndStops) {
  Fixture f;
  LogCapture log;
  RunOptions options;
  EXPECT_FALSE(parseCommandLine({"-o", "out", "-l", "nolist.txt"}, options, f.fileSystem));
  EXPECT_EQ(log.count("Unable to read filelist -l nolist.txt\n"), 1u);
}

TEST(CommandLine, RecursionListsAFoldersOwnFilesBeforeItsSubFoldersInNameOrder) {
  Fixture f;
  for (const char* name : {"m/b.mdl", "m/a.mdl", "m/z/c.mdl", "m/y/d.mdl", "m/y/x/e.mdl", "m/y/f.txt", "other/g.mdl"}) f.touch(name);
  RunOptions options;
  ASSERT_TRUE(parseCommandLine({"-o", "out", "-r", "m/*.mdl"}, options, f.fileSystem));
  EXPECT_EQ(options.inputFiles, (std::vector<std::string>{f.abs("m/a.mdl"), f.abs("m/b.mdl"), f.abs("m/y/d.mdl"),
                                                          f.abs("m/y/x/e.mdl"), f.abs("m/z/c.mdl")}));
  EXPECT_EQ(options.baseNames, (std::vector<std::string>{"a", "b", "d", "e", "c"}));
}

TEST(CommandLine, WithoutRecursionOnlyTheFolderItselfIsListed) {
  Fixture f;
  f.touch("m/a.mdl");
  f.touch("m/sub/b.mdl");
  RunOptions options;
  ASSERT_TRUE(parseCommandLine({"-o", "out", f.abs("m/*.MDL")}, options, f.fileSystem));
  EXPECT_EQ(options.inputFiles, std::vector<std::string>{f.abs("m/a.mdl")});
}

TEST(CommandLine, DuplicatesAreKeptInOrder) {
  Fixture f;
  f.touch("a.mdl");
  RunOptions options;
  ASSERT_TRUE(parseCommandLine({"-o", "out", "a.mdl", "./a.mdl", f.abs("a.mdl")}, options, f.fileSystem));
  EXPECT_EQ(options.inputFiles, std::vector<std::string>(3, f.abs("a.mdl")));
  EXPECT_EQ(options.outputFolders, std::vector<std::string>(3, "out"));
}

TEST(CommandLine, InputRootMapsOutputFoldersAndIsSearchedFirst) {
  Fixture f;
  f.touch("src/props/a.mdl");
  f.touch("src/b.mdl");
  f.touch("elsewhere/c.mdl");
  RunOptions options;
  ASSERT_TRUE(parseCommandLine({"-i", "src", "-o", "out", "props/*.mdl", "b.mdl", f.abs("elsewhere/*.mdl")},
                               options, f.fileSystem));
  EXPECT_EQ(options.inputRoot, f.abs("src"));
  EXPECT_EQ(options.inputFiles, (std::vector<std::string>{f.abs("src/props/a.mdl"), f.abs("src/b.mdl"), f.abs("elsewhere/c.mdl")}));
  EXPECT_EQ(options.outputFolders, (std::vector<std::string>{"out\\props", "out", "out"}));
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
  EXPECT_EQ(mapOutputFolder("qpk:/g/pak01_dir.qpk:models/props/a.mdl", std::string("/g"), "o"), "o\\models/props");
  EXPECT_EQ(mapOutputFolder("QPK:/g/PAK01_DIR.QPK:a.mdl", std::string("/x"), "o"), "o");
  // Without ".qpk:" there is no folder at all: later folders shift by one.
  EXPECT_EQ(mapOutputFolder("qpk:/g/pak01:a.mdl", std::string("/g"), "o"), std::nullopt);
  // Without an input root every file goes to the output root.
  EXPECT_EQ(mapOutputFolder("qpk:/g/pak01_dir.qpk:models/a.mdl", std::nullopt, "o"), "o");
}

TEST(GameArgument, TheLastGameWithAValueWins) {
  EXPECT_EQ(findGameArgument({"-o", "x", "-game", "a", "-GAME", "b"}), "b");
  EXPECT_EQ(findGameArgument({"-o", "x", "-game"}), std::nullopt);
  EXPECT_EQ(findGameArgument({}), std::nullopt);
}

}  // namespace
}  // namespace zv::app
