// Batches: models converted several at once give what one at a time gives (files, console
// and report); shards cover the input list once and their reports merge into the run's;
// incremental runs skip what is up to date; reports stay valid JSON whatever the names.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <regex>

#include "app/batch.h"
#include "app/driver.h"
#include "app/report.h"
#include "base/log.h"
#include "base/native_path.h"
#include "base/strings.h"
#include "support/model_fixtures.h"
#include "support/test_support.h"
#include "thumbnail/thumbnail.h"

namespace zv::app {
namespace {

namespace stdfs = std::filesystem;
using Files = std::map<std::string, std::vector<uint8_t>>;

// A library of forged models in a game folder (the current directory): props in nested
// folders, animated ones, a model that fails, and a name of awkward bytes.
struct Library {
  zv::testing::TempDir dir;
  zv::testing::ScopedCurrentDir cwd{dir.path()};
  zv::testing::ScopedEnv noMod{"QMOD", nullptr};
  zv::testing::ScopedEnv noScm{"P4PORT", nullptr};

  Library() {
    for (int i = 0; i < 9; ++i) {
      mdlforge::Description d = zv::testing::crateModel();
      d.name = "models/set/crate" + std::to_string(i) + ".mdl";
      if (i % 3 == 0) {
        mdlforge::RleTrack root;
        root.rawPosition = Vector3{float(i), 0, 0};
        mdlforge::Animation walk;
        walk.name = "walk";
        walk.frames = 4 + i;
        walk.tracks = mdlforge::AnimationTracks{{root}, std::nullopt};
        d.animations = {walk};
        mdlforge::Sequence seq;
        seq.name = "walk";
        d.sequences = {seq};
      }
      if (i == 4) d.bodyParts[0].models[0].meshes[0].vertices[0].position = {NAN, 0, 0};  // said once per run
      zv::testing::writeFamily(zv::testing::buildFiles(d), dir.file(i < 5 ? "models/a" : "models/b/deep"),
                               "crate" + std::to_string(i));
    }
    zv::testing::writeText(dir.path() / "models/a/broken.mdl", "not a model");
    zv::testing::writeFamily(zv::testing::buildFiles(zv::testing::crateModel()), dir.file("models/b"), kOddName);
  }

  // A name the report has to escape, as far as the platform's file names allow: Windows
  // refuses quotes and control characters in them, and takes names as UTF-8 only.
#ifdef _WIN32
  static constexpr const char* kOddName = "odd 'name' \xC3\xA9\xF0\x9F\x98\x80";
#else
  static constexpr const char* kOddName = "odd \"name\"\t\xE9";
#endif

  int run(std::vector<std::string> extra, std::string* console = nullptr) {
    std::vector<std::string> args = {"-i", ".", "-o", "out", "-r"};
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back("models/*.mdl");
    LogCapture log;
    int status = runDriver(args);
    if (console) *console = log.text();
    return status;
  }

  Files outputs() const {
    Files files;
    for (const auto& entry : stdfs::recursive_directory_iterator(dir.path() / "out")) {
      if (entry.is_regular_file()) files[stdfs::relative(entry.path(), dir.path()).generic_string()] = zv::testing::readBytes(entry.path());
    }
    return files;
  }
};

// The report without its times, which are the one thing a run cannot repeat.
std::string withoutTimes(const std::string& report) {
  return std::regex_replace(report, std::regex("\"seconds\": [0-9.]+"), "\"seconds\": T");
}

RunReport readReport(const stdfs::path& file) {
  auto report = parseReport(zv::testing::readText(file));
  EXPECT_TRUE(report) << report.message();
  return report ? std::move(report.value()) : RunReport{};
}

size_t countOf(const std::vector<std::string>& statuses, const std::string& status) {
  return size_t(std::count(statuses.begin(), statuses.end(), status));
}

std::vector<std::string> statuses(const RunReport& report) {
  std::vector<std::string> out;
  for (const ModelReport& m : report.models) out.push_back(m.status);
  return out;
}

TEST(Batch, SeveralAtOnceGiveWhatOneAtATimeGives) {
  Library library;
  std::string console1, console4;
  EXPECT_EQ(library.run({"-j", "1", "-report", "one.json"}, &console1), 1);
  Files one = library.outputs();
  stdfs::remove_all(library.dir.path() / "out");
  EXPECT_EQ(library.run({"-j", "4", "-report", "four.json"}, &console4), 1);
  EXPECT_EQ(library.outputs(), one);
  EXPECT_EQ(console4, console1);
  std::string report = zv::testing::readText(library.dir.path() / "one.json");
  EXPECT_EQ(withoutTimes(zv::testing::readText(library.dir.path() / "four.json")), withoutTimes(report));
  // Each model's lines together, in input order; the once-per-run warning once.
  EXPECT_NE(console1.find("Beginning conversion of 11 models...\nConversion of " +
                          zv::testing::nativeSpelling(library.dir.file("models/a/broken.mdl"))),
            std::string::npos);
  size_t first = console1.find("mdl to dmx: zeroing out invalid vertices");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(console1.find("mdl to dmx: zeroing out invalid vertices", first + 1), std::string::npos);
  RunReport parsed = readReport(library.dir.path() / "one.json");
  ASSERT_EQ(parsed.models.size(), 11u);
  EXPECT_EQ(parsed.models[0].status, "failed");
  EXPECT_FALSE(parsed.models[0].errors.empty());
  EXPECT_EQ(countOf(statuses(parsed), "converted"), 10u);
}

// One model of many animations and more threads than models: the idle threads write
// some of its animation files, and files, console and report stay those of one thread.
TEST(Batch, ThreadsWithoutAModelHelpWriteAnotherModelsAnimationsAndChangeNoByte) {
  zv::testing::TempDir dir;
  zv::testing::ScopedCurrentDir cwd{dir.path()};
  zv::testing::ScopedEnv noMod{"QMOD", nullptr};
  zv::testing::ScopedEnv noScm{"P4PORT", nullptr};
  mdlforge::Description d = zv::testing::crateModel();
  d.name = "models/hero.mdl";
  for (int i = 0; i < 40; ++i) {
    mdlforge::RleTrack root;
    root.rawPosition = Vector3{float(i), 0, 1};
    mdlforge::Animation anim;
    // Every seventh name makes a file name warning, every eleventh animation's data does
    // not decode: what each file says must print under its own progress mark.
    anim.name = i % 7 == 3 ? format("run:%d", i) : format("anim%d", i);
    anim.frames = 3 + i % 5;
    if (i % 11 == 5) {
      anim.data = std::vector<uint8_t>{0, 0x3f, 0xff, 0xff, 0xff, 0xff};
    } else {
      anim.tracks = mdlforge::AnimationTracks{{root}, std::nullopt};
    }
    d.animations.push_back(anim);
    mdlforge::Sequence seq;
    seq.name = anim.name;
    seq.animations = {int16_t(i)};
    d.sequences.push_back(seq);
  }
  zv::testing::writeFamily(zv::testing::buildFiles(d), dir.file("models"), "hero");
  auto run = [&](const char* jobs, const char* report, std::string& console) {
    LogCapture log;
    EXPECT_EQ(runDriver({"-i", ".", "-o", "out", "-j", jobs, "-report", report, "models/hero.mdl"}), 0);
    console = log.text();
    Files files;
    for (const auto& entry : stdfs::recursive_directory_iterator(dir.path() / "out")) {
      if (entry.is_regular_file()) files[stdfs::relative(entry.path(), dir.path()).generic_string()] = zv::testing::readBytes(entry.path());
    }
    stdfs::remove_all(dir.path() / "out");
    return files;
  };
  std::string console1, console3;
  Files one = run("1", "one.json", console1);
  Files three = run("3", "three.json", console3);
  EXPECT_EQ(three, one);
  EXPECT_EQ(console3, console1);
  EXPECT_EQ(withoutTimes(zv::testing::readText(dir.path() / "three.json")),
            withoutTimes(zv::testing::readText(dir.path() / "one.json")));
  // What each file said comes after the mark of its tenth of the files (four files each).
  EXPECT_NE(console1.find("Writing 40 Animations:0..Name \"run:3_3.dmx\" from the model cannot be used as a file "
                          "name; using \"run_3_3.dmx\"\n1.."),
            std::string::npos)
      << console1;
  size_t writing = console1.find("Writing 40 Animations:");
  size_t mark1 = console1.find("1..", writing), mark2 = console1.find("2..", writing);
  size_t fault = console1.find("hero.mdl: animation \"anim5\"");
  EXPECT_TRUE(mark1 < fault && fault < mark2) << console1;
  size_t animationFiles = 0;
  for (const auto& [name, bytes] : one) animationFiles += name.find("/anim/") != std::string::npos;
  EXPECT_EQ(animationFiles, 40u);
  RunReport report = readReport(dir.path() / "one.json");
  ASSERT_EQ(report.models.size(), 1u);
  EXPECT_EQ(report.models[0].outputs.size(), one.size());
}

TEST(Batch, ShardsCoverTheInputListOnceAndTheirReportsMergeIntoTheRunsReport) {
  RunOptions options;
  for (int i = 0; i < 500; ++i) options.inputFiles.push_back(format("/lib/models/m%03d.mdl", i));
  std::vector<int> seen(options.inputFiles.size(), 0);
  for (int k = 1; k <= 7; ++k) {
    std::vector<size_t> slice = shardModels(options, k, 7);
    EXPECT_GT(slice.size(), 40u);  // a hash spreads them
    for (size_t model : slice) ++seen[model];
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), 500);
  // Adding a model moves none of the others.
  std::vector<size_t> before = shardModels(options, 3, 7);
  options.inputFiles.push_back("/lib/models/new.mdl");
  std::vector<size_t> after = shardModels(options, 3, 7);
  after.erase(std::remove(after.begin(), after.end(), size_t(500)), after.end());
  EXPECT_EQ(after, before);

  Library library;
  library.run({"-j", "2", "-report", "whole.json"});
  stdfs::remove_all(library.dir.path() / "out");
  for (int k = 1; k <= 3; ++k) library.run({"-shard", format("%d/3", k), "-report", format("part%d.json", k)});
  LogCapture log;
  EXPECT_EQ(runDriver({"-merge-reports", "merged.json", "part3.json", "part1.json", "part2.json"}), 0);
  EXPECT_EQ(withoutTimes(zv::testing::readText(library.dir.path() / "merged.json")),
            withoutTimes(zv::testing::readText(library.dir.path() / "whole.json")));
  // A model in two reports is refused.
  EXPECT_EQ(runDriver({"-merge-reports", "twice.json", "part1.json", "part1.json"}), 1);
  EXPECT_FALSE(stdfs::exists(library.dir.path() / "twice.json"));
}

// The shards of a run spread over processes by GNU parallel, as on a cluster.
TEST(Batch, ShardsRunByGnuParallel) {
  if (std::system("command -v parallel >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "GNU parallel is not installed (make deps installs it)";
  }
  Library library;
  std::string tool = ZV_TOOL_PATH;
  // The whole run by the same program, since the report names the program's build.
  ASSERT_EQ(std::system(("cd '" + library.dir.str() + "' && '" + tool +
                         "' -report whole.json -i . -o out -r 'models/*.mdl' >/dev/null 2>&1")
                            .c_str()) >> 8,
            1);
  stdfs::remove_all(library.dir.path() / "out");
  std::string command = "cd '" + library.dir.str() + "' && parallel --will-cite '" + tool +
                        "' -shard {}/4 -report shard{}.json -i . -o out -r 'models/*.mdl' '>' shard{}.log '2>&1' ::: 1 2 3 4";
  ASSERT_EQ(std::system(command.c_str()) >> 8, 1) << "the failed model fails its shard";
  ASSERT_EQ(std::system(("cd '" + library.dir.str() + "' && '" + tool +
                         "' -merge-reports merged.json shard1.json shard2.json shard3.json shard4.json >/dev/null")
                            .c_str()),
            0);
  EXPECT_EQ(withoutTimes(zv::testing::readText(library.dir.path() / "merged.json")),
            withoutTimes(zv::testing::readText(library.dir.path() / "whole.json")));
}

TEST(Batch, IncrementalRunsSkipWhatIsUpToDateAndConvertWhatChanged) {
  Library library;
  library.run({"-incremental", "-report", "run.json"});
  std::vector<std::string> first = statuses(readReport(library.dir.path() / "run.json"));
  EXPECT_EQ(std::count(first.begin(), first.end(), "skipped"), 0);
  std::string console;
  library.run({"-incremental", "-report", "run.json"}, &console);
  RunReport second = readReport(library.dir.path() / "run.json");
  // The failed model is tried again; the others are skipped and keep their outputs listed.
  EXPECT_EQ(statuses(second)[0], "failed");
  EXPECT_EQ(countOf(statuses(second), "skipped"), 10u);
  EXPECT_FALSE(second.models[1].outputs.empty());
  EXPECT_NE(console.find("Up to date since the last run: not converted again\n"), std::string::npos);

  // A changed input, a deleted output and a material that appeared each bring one back.
  zv::testing::writeBytes(library.dir.path() / "models/a/crate1.dx90.vtx",
                          zv::testing::buildFiles([] {
                            mdlforge::Description d = zv::testing::crateModel();
                            d.name = "models/set/crate1.mdl";
                            d.strip.vertexCacheSize = 99;
                            return d;
                          }()).vtx.value());
  stdfs::remove(library.dir.path() / "out/models/a/crate2.qmdl");
  zv::testing::writeText(library.dir.path() / "materials/models/props/crate.qmt", "");
  library.run({"-incremental", "-report", "run.json"});
  std::vector<std::string> third = statuses(readReport(library.dir.path() / "run.json"));
  EXPECT_EQ(third[2], "converted");  // crate1: its strip file changed
  EXPECT_EQ(third[3], "converted");  // crate2: an output went missing
  EXPECT_TRUE(stdfs::exists(library.dir.path() / "out/models/a/crate2.qmdl"));
  // Every crate looks its material up: all of them now find it.
  EXPECT_EQ(std::count(third.begin(), third.end(), "skipped"), 0);
  // A changed option converts everything again.
  library.run({"-incremental", "-report", "run.json"});
  library.run({"-incremental", "-lods", "-report", "run.json"});
  std::vector<std::string> fourth = statuses(readReport(library.dir.path() / "run.json"));
  EXPECT_EQ(std::count(fourth.begin(), fourth.end(), "skipped"), 0);
}

TEST(Report, NamesOfAnyBytesStayValidJsonAndReadBackTheSame) {
  RunReport report;
  ModelReport m;
  m.index = 3;
  m.input = std::string("models/odd \"quote\"\\back\tslash\n\x01\xE9\xC3\xA9\xF0\x9F\x98\x80\xFF.mdl");
  m.status = "converted";
  m.outputs = {{"out/\xE9.dmx", 12}};
  m.warnings = {"bad \x80 byte\n"};
  m.inputs = {{m.input, true, 0xfedcba9876543210ull}};
  m.probes = {{"materials\\x.qmt", false}};
  report.models = {m};
  std::string json = reportJson(report);
  auto back = parseReport(json);
  ASSERT_TRUE(back) << back.message();
  EXPECT_EQ(back->models[0].input, m.input);
  EXPECT_EQ(back->models[0].outputs[0].path, m.outputs[0].path);
  EXPECT_EQ(back->models[0].warnings, m.warnings);
  EXPECT_EQ(back->models[0].inputs[0].hash, 0xfedcba9876543210ull);
  EXPECT_EQ(reportJson(*back), json);
  zv::testing::TempDir dir;
  zv::testing::writeText(dir.path() / "r.json", json);
  if (std::system("python3 -c pass") == 0) {
    EXPECT_EQ(std::system(("python3 -c \"import json,sys; r=json.load(open(sys.argv[1])); "
                           "assert r['summary']['models']==1 and r['models'][0]['index']==3\" '" +
                           dir.file("r.json") + "'")
                              .c_str()),
              0);
  }
  for (const char* bad : {"", "{", "[1,2]", "{\"format\": \"other\"}", "{\"format\": \"zv_mdl_import report 1\", \"models\": [{\"index\": \"x\\u12\"}]}"}) {
    EXPECT_FALSE(parseReport(bad)) << bad;
  }
}

TEST(ReportPage, APictureThatCannotBeWrittenIsLeftOutOfItsRowWithAWarning) {
  Library library;
  // A file where the pictures' folder should be: no picture can be written.
  zv::testing::writeText(library.dir.path() / "run_files", "in the way");
  EXPECT_EQ(library.run({"-j", "2", "-report", "run.json", "-report-html", "run.html"}), 1);
  RunReport report = readReport(library.dir.path() / "run.json");
  size_t converted = 0;
  for (const ModelReport& m : report.models) {
    if (m.status != "converted") continue;
    ++converted;
    EXPECT_TRUE(m.thumbnail.empty()) << m.input;
    EXPECT_EQ(std::count(m.warnings.begin(), m.warnings.end(),
                         "Unable to write the thumbnail of " + m.input + "\n"),
              1)
        << m.input;
  }
  EXPECT_EQ(converted, 10u);
  EXPECT_TRUE(stdfs::exists(library.dir.path() / "run.html"));  // the page itself is still written
}

// The pictures a page's folder holds, by file name.
Files picturesIn(const stdfs::path& folder) {
  Files files;
  if (!stdfs::exists(folder)) return files;
  for (const auto& entry : stdfs::directory_iterator(folder)) files[entry.path().filename().string()] = zv::testing::readBytes(entry.path());
  return files;
}

TEST(ReportPage, ARunWritesThePageAndOneThumbnailPerConvertedModel) {
  Library library;
  EXPECT_EQ(library.run({"-j", "1", "-report", "one.json"}), 1);
  EXPECT_FALSE(stdfs::exists(library.dir.path() / "one_files"));  // nothing rendered without a page
  stdfs::remove_all(library.dir.path() / "out");
  EXPECT_EQ(library.run({"-j", "4", "-report", "run.json", "-report-html", "pages/run.html"}), 1);
  std::string page = zv::testing::readText(library.dir.path() / "pages/run.html");
  Files pictures = picturesIn(library.dir.path() / "pages/run_files");
  RunReport report = readReport(library.dir.path() / "run.json");
  ASSERT_EQ(report.models.size(), 11u);
  EXPECT_EQ(pictures.size(), 10u);
  for (const ModelReport& m : report.models) {
    if (m.status != "converted") {
      EXPECT_TRUE(m.thumbnail.empty());
      continue;
    }
    ASSERT_FALSE(m.thumbnail.empty()) << m.input;
    EXPECT_TRUE(stdfs::exists(library.dir.path() / native::toPath(m.thumbnail))) << m.thumbnail;
    EXPECT_EQ(m.counts.bodyParts, 1u);
    EXPECT_EQ(m.counts.meshes, 1u);
    EXPECT_GT(m.counts.triangles, 0u);
    EXPECT_GT(m.counts.vertices, 2u);
    EXPECT_GE(m.counts.bones, 1u);
  }
  // Animated ones count their animation and sequence; the page holds every model.
  EXPECT_EQ(std::count_if(report.models.begin(), report.models.end(), [](const ModelReport& m) { return m.counts.sequences == 1; }), 3);
  EXPECT_NE(page.find("\"totals\":{\"converted\":10,\"failed\":1,\"skipped\":0"), std::string::npos);
  size_t rows = 0;  // each model's row of the page's data starts a line
  for (size_t at = page.find("\n["); at != std::string::npos; at = page.find("\n[", at + 1)) ++rows;
  EXPECT_EQ(rows, 11u);
  // Pictures are the same bytes one model at a time: -j does not change them.
  stdfs::remove_all(library.dir.path() / "out");
  EXPECT_EQ(library.run({"-j", "1", "-report-html", "again.html"}), 1);
  Files again = picturesIn(library.dir.path() / "again_files");
  EXPECT_EQ(again, pictures);
  for (const auto& [name, png] : pictures) EXPECT_EQ(std::string(png.begin() + 1, png.begin() + 4), "PNG") << name;
}

TEST(ReportPage, ShardsMergeIntoOnePageAndIncrementalRunsKeepTheirPictures) {
  Library library;
  for (int k = 1; k <= 3; ++k)
    library.run({"-shard", format("%d/3", k), "-report", format("part%d.json", k), "-report-html", format("part%d.html", k)});
  LogCapture log;
  ASSERT_EQ(runDriver({"-merge-reports", "merged.json", "-report-html", "all/merged.html", "part1.json", "part2.json", "part3.json"}), 0);
  Files merged = picturesIn(library.dir.path() / "all/merged_files");
  EXPECT_EQ(merged.size(), 10u);
  RunReport report = readReport(library.dir.path() / "merged.json");
  for (const ModelReport& m : report.models) {
    if (!m.thumbnail.empty()) {
      EXPECT_EQ(m.thumbnail.rfind("all/merged_files/", 0), 0u) << m.thumbnail;
    }
  }
  std::string page = zv::testing::readText(library.dir.path() / "all/merged.html");
  EXPECT_NE(page.find("\"wall\":null"), std::string::npos);
  EXPECT_EQ(runDriver({"-merge-reports", "x.json", "part1.json", "-report-html"}), 1);

  // An up-to-date model keeps last run's picture on a page of the next run.
  stdfs::remove_all(library.dir.path() / "out");
  EXPECT_EQ(library.run({"-report", "inc.json", "-report-html", "inc.html"}), 1);
  EXPECT_EQ(library.run({"-report", "inc.json", "-incremental", "-report-html", "later/inc.html"}), 1);
  RunReport later = readReport(library.dir.path() / "inc.json");
  size_t skipped = 0;
  for (const ModelReport& m : later.models) skipped += m.status == "skipped" && !m.thumbnail.empty();
  EXPECT_EQ(skipped, 10u);
  EXPECT_EQ(picturesIn(library.dir.path() / "later/inc_files"), merged);
}

// A model whose mesh has a coordinate too far out to frame still converts, and gets a
// blank (fully transparent) picture and a warning saying why, in the console and in its
// row of the report. One with a coordinate that is not a number has it zeroed by the
// converter (with the converter's own warning), so its picture is of the repaired mesh:
// drawn, and unlike the sound model's.
TEST(ReportPage, AModelWithABadVertexGetsABlankThumbnailOrItsRepairedOneAndTheWarning) {
  zv::testing::TempDir dir;
  zv::testing::ScopedCurrentDir cwd{dir.path()};
  zv::testing::ScopedEnv noMod{"QMOD", nullptr};
  zv::testing::ScopedEnv noScm{"P4PORT", nullptr};
  const std::vector<std::pair<std::string, Vector3>> models = {
      {"sound", {}}, {"nan", {0, NAN, 8}}, {"huge", {0, 8, 3e30f}}};
  for (const auto& [name, corner] : models) {
    mdlforge::Description d = zv::testing::crateModel();
    d.name = "models/bad/" + name + ".mdl";
    if (name != "sound") d.bodyParts[0].models[0].meshes[0].vertices[1].position = corner;
    zv::testing::writeFamily(zv::testing::buildFiles(d), dir.file("models/bad"), name);
  }
  LogCapture log;
  ASSERT_EQ(runDriver({"-i", ".", "-o", "out", "-r", "-j", "2", "-report", "run.json", "-report-html", "run.html",
                       "models/bad/*.mdl"}),
            0)
      << log.text();
  RunReport report = readReport(dir.path() / "run.json");
  ASSERT_EQ(report.models.size(), 3u);
  thumbnail::Image nothing{thumbnail::kDefaultSize, thumbnail::kDefaultSize,
                           std::vector<uint8_t>(size_t(thumbnail::kDefaultSize) * thumbnail::kDefaultSize * 4, 0)};
  const std::vector<uint8_t> blank = thumbnail::encodePng(nothing);
  std::map<std::string, std::vector<uint8_t>> pictures;
  std::map<std::string, std::vector<std::string>> warnings;
  for (const ModelReport& m : report.models) {
    EXPECT_EQ(m.status, "converted") << m.input;
    ASSERT_FALSE(m.thumbnail.empty()) << m.input;
    std::string name = stdfs::path(m.input).stem().string();
    pictures[name] = zv::testing::readBytes(dir.path() / native::toPath(m.thumbnail));
    warnings[name] = m.warnings;
  }
  auto saying = [&](const std::string& model, const std::string& text) {
    const std::vector<std::string>& w = warnings[model];
    auto found = std::find_if(w.begin(), w.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; });
    return found == w.end() ? std::string() : *found;
  };
  EXPECT_NE(pictures["sound"], blank);
  EXPECT_EQ(saying("sound", "thumbnail"), "");

  EXPECT_EQ(pictures["huge"], blank);
  std::string said = saying("huge", "thumbnail");
  EXPECT_NE(said.find("huge.mdl is blank: a coordinate is out of range ("), std::string::npos) << said;
  EXPECT_NE(said, "");
  EXPECT_NE(log.text().find(said), std::string::npos) << log.text();

  EXPECT_NE(pictures["nan"], blank);
  EXPECT_NE(pictures["nan"], pictures["sound"]);
  EXPECT_NE(saying("nan", "zeroing out invalid vertices"), "");
  EXPECT_EQ(saying("nan", "thumbnail"), "");
}

TEST(Batch, CommandLineProblemsAreRefused) {
  Library library;
  for (std::vector<std::string> args : std::vector<std::vector<std::string>>{
           {"-j", "0"}, {"-j", "x"}, {"-j", "300"}, {"-shard", "4/3"}, {"-shard", "0/3"}, {"-shard", "1"}, {"-incremental"}, {"-report"}, {"-report-html"}}) {
    std::string console;
    EXPECT_EQ(library.run(args, &console), 1) << args[0];
    EXPECT_EQ(console.find("Beginning conversion"), std::string::npos) << console;
  }
}

}  // namespace
}  // namespace zv::app
