#include "fs/qpk_archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "base/log.h"
#include "base/strings.h"
#include "fs/file_system.h"
#include "fs/game_info.h"
#include "fs_test_util.h"
#include "qpkpack/qpk_writer.h"
#include "qpkpack/qpkpack_main.h"
#include "support/test_support.h"

namespace zv::fs {
namespace {

using qpkpack::PackedFile;
using qpkpack::PackOptions;
using ::testing::HasSubstr;
using zv::testing::readBytes;
using zv::testing::TempDir;
using zv::testing::writeBytes;
using zv::testing::writeText;

std::vector<uint8_t> pattern(size_t size, uint8_t seed) {
  std::vector<uint8_t> out(size);
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>(seed * 31 + i * 7 + (i >> 8));
  return out;
}

// Nested folders, root files with and without extension, an empty file, files small
// enough for the directory file and large enough for two data files.
std::vector<PackedFile> sampleFiles() {
  return {{"Models/Props/Crate.MDL", pattern(3000, 1)},
          {"models/props/crate.qvd", pattern(5000, 2)},
          {"models/props/wood/plank.mdl", pattern(200, 3)},
          {"materials/a.qmt", bytesOf("shader")},
          {"README", bytesOf("no extension")},
          {"notes.txt", bytesOf("root file")},
          {"empty.bin", {}}};
}

PackOptions smallLimits(uint32_t version, uint32_t preload = 0) {
  return {.version = version, .maxDirectoryBytes = 256, .preloadBytes = preload, .maxDataFileBytes = 4096};
}

void patch32(const std::string& file, size_t offset, uint32_t value) {
  std::vector<uint8_t> bytes = readBytes(file);
  ASSERT_LE(offset + 4, bytes.size());
  for (int i = 0; i < 4; ++i) bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
  writeBytes(file, bytes);
}

class QpkArchiveTest : public ::testing::Test {
 public:
  // Packs files as <temp>/pak01_dir.qpk and opens it.
  std::shared_ptr<QpkArchive> pack(const std::vector<PackedFile>& files, const PackOptions& options) {
    auto image = qpkpack::buildQpkArchive(files, options);
    EXPECT_TRUE(image) << image.message();
    image_ = std::move(image.value());
    EXPECT_TRUE(qpkpack::writeQpkImage(image_, path_));
    auto archive = QpkArchive::open(path_);
    EXPECT_TRUE(archive) << archive.message();
    return archive ? archive.value() : nullptr;
  }
  size_t entryOffset(std::string_view file) const {
    for (const auto& p : image_.placed) {
      if (p.path == file) return p.entryOffset;
    }
    throw std::runtime_error("not packed: " + std::string(file));
  }

  TempDir dir_;
  std::string path_ = dir_.file("pak01_dir.qpk");
  qpkpack::QpkImage image_;
};

TEST_F(QpkArchiveTest, EveryFileReadsBackInBothVersionsWithAnyPreload) {
  std::vector<PackedFile> files = sampleFiles();
  for (uint32_t version : {1u, 2u}) {
    for (uint32_t preload : {0u, 16u, 0xFFFFu}) {
      SCOPED_TRACE(format("version %u, preload %u", version, preload));
      auto archive = pack(files, smallLimits(version, preload));
      ASSERT_TRUE(archive);
      EXPECT_EQ(archive->header().version, version);
      for (const PackedFile& file : files)
        EXPECT_EQ(archive->read(file.path).value(), file.bytes) << file.path;
      // Unless all is preloaded, the two large files go to one data file each.
      EXPECT_EQ(image_.dataFiles.size(), preload == 0xFFFF ? 0u : 2u);
    }
  }
}

TEST_F(QpkArchiveTest, FileSystemNamesAndListsFilesInsideArchives) {
  pack(sampleFiles(), smallLimits(1, 4));
  // A name without "_dir" means the directory file beside it.
  auto archive = QpkArchive::open(dir_.file("pak01.qpk"));
  ASSERT_TRUE(archive);
  EXPECT_EQ(archive.value()->location(), path_);
  EXPECT_THAT(asText(archive.value()->read("models/none.mdl")),
              HasSubstr(path_ + " has no file models/none.mdl"));

  FileSystem fs(dir_.path());
  const std::string inside = "qpk:pak01_dir.qpk:";  // relative to the current directory
  EXPECT_EQ(entryNames(fs.listFolder(inside + "MODELS\\props", "*", "")),
            (Names{"Crate.MDL", "crate.qvd", "wood/"}));
  EXPECT_EQ(entryNames(fs.listFolder(inside, "*", "")),
            (Names{"Models/", "README", "empty.bin", "materials/", "notes.txt"}));
  EXPECT_TRUE(fs.isDirectory(inside + "models/props/wood"));
  EXPECT_TRUE(fs.fileExists(inside + "readme"));
  EXPECT_EQ(fs.readFile(inside + "models\\props\\wood\\PLANK.mdl").value(), pattern(200, 3));
  EXPECT_EQ(fs.fullPath(inside + "models/props/crate.qvd", ""), "qpk:" + path_ + ":Models/Props/crate.qvd");
  EXPECT_FALSE(fs.fullPath(inside + "models/props/none.qvd", ""));

  // A damaged archive named on the command line says why it cannot be read.
  writeText(dir_.file("bad_dir.qpk"), "garbage, not an archive at all");
  EXPECT_THAT(asText(fs.readFile("qpk:bad_dir.qpk:models/a.mdl")),
              HasSubstr("cannot open archive " + dir_.file("bad_dir.qpk") + ": not a packed archive"));
  EXPECT_TRUE(fs.listFolder("qpk:bad_dir.qpk:models", "*", "").empty());
  patch32(path_, 8, 0xFFFFFFFF);  // a tree far larger than the file, never allocated
  EXPECT_THAT(QpkArchive::open(path_).message(),
              HasSubstr("cannot open archive " + path_ + ": the tree (4294967295 bytes) runs past the end"));
}

TEST_F(QpkArchiveTest, DamagedEntriesFailAloneNamingArchiveAndEntry) {
  std::string data0 = dir_.file("pak01_000.qpk"), data1 = dir_.file("pak01_001.qpk");
  auto field = [this](const char* entry, size_t at, uint32_t value) {
    return [=, this] { patch32(path_, entryOffset(entry) + at, value); };
  };
  struct Case {
    std::function<void()> damage;
    std::string entry, message;
  };
  const Case cases[] = {
      {[&] { patch32(data0, 100, 0xDEADBEEF); }, "Models/Props/Crate.MDL", "CRC mismatch"},
      {field("notes.txt", 0, 0xDEADBEEF), "notes.txt", "CRC mismatch"},
      {field("notes.txt", 8, 0x7FFFFFF0), "notes.txt", "lie past the end of " + path_},
      {field("models/props/crate.qvd", 12, 6000), "models/props/crate.qvd",
       "6000 bytes at offset 0 lie past the end of " + data1 + " (5000 bytes)"},
      {[&] { std::filesystem::remove(data0); }, "Models/Props/Crate.MDL", "cannot open " + data0},
  };
  std::vector<PackedFile> files = sampleFiles();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    pack(files, smallLimits(2));
    c.damage();
    auto archive = QpkArchive::open(path_);
    ASSERT_TRUE(archive);
    for (const PackedFile& file : files) {
      std::string read = asText(archive.value()->read(file.path));
      if (file.path != c.entry) {
        EXPECT_EQ(read, std::string(file.bytes.begin(), file.bytes.end())) << file.path;
      } else {
        EXPECT_THAT(read, HasSubstr("<archive " + path_ + ", entry " + c.entry + ": "));
        EXPECT_THAT(read, HasSubstr(c.message));
      }
    }
  }
}

// Every cut of a valid archive either refuses to open or fails the reads whose bytes it
// lost, cleanly; only the whole archive reads everything.
TEST_F(QpkArchiveTest, EveryPrefixOfAnArchiveFailsCleanly) {
  std::vector<PackedFile> files = {{"a/1.t", pattern(40, 1)}, {"a/2", pattern(5, 2)}, {"b", pattern(150, 3)}};
  pack(files, {.maxDirectoryBytes = 100, .preloadBytes = 3});
  for (const std::string& target : {path_, dir_.file("pak01_000.qpk")}) {
    const std::vector<uint8_t> whole = readBytes(target);
    for (size_t size = 0; size <= whole.size(); ++size) {
      writeBytes(target, std::vector<uint8_t>(whole.begin(), whole.begin() + size));
      auto archive = QpkArchive::open(path_);
      if (!archive) {
        EXPECT_NE(size, whole.size()) << archive.message();
        continue;
      }
      size_t good = 0;
      for (const PackedFile& file : files) {
        auto bytes = archive.value()->read(file.path);
        good += bytes && *bytes == file.bytes;
      }
      EXPECT_EQ(good == files.size(), size == whole.size()) << target << " cut to " << size;
    }
  }
}

TEST_F(QpkArchiveTest, DataFileHandlesAreBoundedAndSharedAcrossThreads) {
  std::vector<PackedFile> files;
  for (int i = 0; i < 40; ++i)
    files.push_back({"f/" + std::to_string(i), pattern(64 + i, static_cast<uint8_t>(i))});
  // Every file in a data file of its own.
  auto archive = pack(files, {.maxDirectoryBytes = 0, .maxDataFileBytes = 1});
  ASSERT_TRUE(archive);
  ASSERT_EQ(image_.dataFiles.size(), files.size());
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (size_t t = 1; t <= 4; ++t) {
    threads.emplace_back([&, t] {
      for (size_t k = 0; k < 5 * files.size(); ++k) {
        const PackedFile& file = files[(k * t + k / files.size()) % files.size()];
        auto bytes = archive->read(file.path);
        if (!bytes || *bytes != file.bytes) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(archive->openDataFileCount(), kQpkMaxOpenDataFiles);
}

// Search paths from game information: folders and archives in their order, under their
// IDs; a missing archive and a corrupt one are warned of and skipped.
TEST(GameInfoMount, FoldersAndArchivesServeInOrder) {
  TempDir game;
  writeText(game.file("mymod/gameinfo.gi"), R"("GameInfo" { FileSystem { SearchPaths {
    Game |mod|first
    Game |mod|pak01.qpk
    Game |mod|broken.qpk
    Game |mod|missing.qpk
    Game |mod|.
    Platform platform
    Game+Mod common
  } } })");
  std::vector<PackedFile> packed = {{"models/a.mdl", bytesOf("packed")}, {"models/b.mdl", bytesOf("packed")}};
  ASSERT_TRUE(qpkpack::writeQpkArchive(packed, game.file("mymod/pak01_dir.qpk"), {}));
  writeText(game.file("mymod/broken_dir.qpk"), "not an archive");
  writeText(game.file("mymod/first/models/B.mdl"), "folder first");
  writeText(game.file("mymod/models/a.mdl"), "loose");
  writeText(game.file("mymod/models/c.mdl"), "loose only");
  writeText(game.file("common/models/d.mdl"), "common");
  auto info = loadGameInfo(game.path(), "mymod", true);
  ASSERT_TRUE(info) << info.message();
  FileSystem fs(game.path());
  LogCapture log;
  mountGameInfo(fs, *info);
  EXPECT_EQ(log.count("missing_dir.qpk does not exist"), 1u) << log.text();
  EXPECT_EQ(log.count("broken_dir.qpk cannot be mounted: cannot open archive"), 1u) << log.text();
  for (const LogRecord& r : log.records()) EXPECT_EQ(r.severity, Severity::Warning) << r.text;
  ASSERT_EQ(fs.searchPaths().size(), 5u);  // none for Platform; common under Game and under Mod
  EXPECT_EQ(asText(fs.readFile("models/a.mdl", "Game")), "packed");
  EXPECT_EQ(asText(fs.readFile("models/b.mdl", "Game")), "folder first");
  EXPECT_EQ(asText(fs.readFile("MODELS/C.MDL", "Game")), "loose only");
  EXPECT_EQ(asText(fs.readFile("models/d.mdl", "Mod")), "common");
  EXPECT_EQ(fs.fullPath("models/a.mdl", "Game"), "qpk:" + game.file("mymod/pak01_dir.qpk") + ":models/a.mdl");
  EXPECT_EQ(entryNames(fs.listFolder("models", "*.mdl", "Game")),
            (Names{"B.mdl", "a.mdl", "c.mdl", "d.mdl"}));
}

TEST_F(QpkArchiveTest, PackerPlacesFilesAsTheLimitsSayInAFixedOrder) {
  std::vector<PackedFile> files = {
      {"a.bin", pattern(12, 1)},  // 10 after the preload: directory file
      {"b.bin", pattern(13, 2)},  // 11: first data file
      {"c.bin", pattern(21, 3)},  // 19: still fits the first data file (11 + 19 = 30)
      {"d.bin", pattern(3, 4)},   // 1: directory file
      {"e.bin", pattern(50, 5)},  // 48: past the limit alone, a data file of its own
      {"f.bin", pattern(13, 6)},  // 11: the next data file
      {"g.txt", pattern(1, 7)},   // all preload
      {"x/n", {}},
  };
  const PackOptions options{.maxDirectoryBytes = 10, .preloadBytes = 2, .maxDataFileBytes = 30};
  auto archive = pack(files, options);
  ASSERT_TRUE(archive);
  for (const PackedFile& file : files) EXPECT_EQ(archive->read(file.path).value(), file.bytes) << file.path;
  Names placed;
  for (const auto& p : image_.placed)
    placed.push_back(
        format("%s %u@%u+%u/%u", p.path.c_str(), p.archiveIndex, p.offset, p.length, p.preloadSize));
  // By extension (" " for none sorts first), then folder, then name.
  EXPECT_EQ(placed, (Names{"x/n 32767@0+0/0", "a.bin 32767@0+10/2", "b.bin 0@0+11/2", "c.bin 0@11+19/2",
                           "d.bin 32767@10+1/2", "e.bin 1@0+48/2", "f.bin 2@0+11/2", "g.txt 32767@11+0/1"}));
  EXPECT_EQ(image_.dataFiles.size(), 3u);
  std::reverse(files.begin(), files.end());
  EXPECT_EQ(qpkpack::buildQpkArchive(files, options).value().directory, image_.directory);
}

TEST(QpkPack, RefusesWhatAnArchiveCannotHold) {
  auto refusal = [](std::vector<PackedFile> files, PackOptions options = {}) {
    auto image = qpkpack::buildQpkArchive(files, options);
    return image ? std::string("accepted") : image.message();
  };
  EXPECT_THAT(refusal({{"Models/A.mdl", {}}, {"models/a.MDL", {}}}), HasSubstr("two files are named"));
  EXPECT_THAT(refusal({{"models", {}}, {"Models/a.mdl", {}}}), HasSubstr("both a file and a folder"));
  EXPECT_THAT(refusal({{"./", {}}}), HasSubstr("empty name"));
  EXPECT_THAT(refusal({{"../outside.txt", {}}}), HasSubstr("leaves the archive"));
  EXPECT_THAT(refusal({{"odd. ", {}}}), HasSubstr("single space"));
  EXPECT_THAT(refusal({{" /x.txt", {}}}), HasSubstr("single space"));
  EXPECT_THAT(refusal({}, {.version = 3}), HasSubstr("version 3"));
  // Names that merely look unusual are kept as they are.
  EXPECT_EQ(refusal({{".hidden", {}}, {"name.", {}}, {"a.b.c", {}}}), "accepted");
}

TEST(QpkPack, CommandLinePacksAFolderAndSkipsItsOwnOutput) {
  TempDir dir;
  writeText(dir.file("content/models/Crate.mdl"), std::string(5000, 'c'));
  writeText(dir.file("content/README"), "top");
  std::string out, err, archive = dir.file("content/pak01_dir.qpk");
  const std::vector<std::string> args = {"-v1",   "-preload",         "4", "-max-dir-bytes", "100",
                                         archive, dir.file("content")};
  // Packing twice into the folder itself must not pick up the first run's archive.
  for (int run = 0; run < 2; ++run) ASSERT_EQ(qpkpack::runQpkpack(args, out, err), 0) << err;
  EXPECT_THAT(out, HasSubstr("wrote " + dir.file("content/pak01_000.qpk")));
  auto opened = QpkArchive::open(archive);
  ASSERT_TRUE(opened) << opened.message();
  EXPECT_EQ(opened.value()->header().version, 1u);
  EXPECT_EQ(opened.value()->entries().size(), 2u);
  EXPECT_EQ(asText(opened.value()->read("MODELS/crate.mdl")), std::string(5000, 'c'));
  EXPECT_EQ(qpkpack::runQpkpack({}, out, err), 2);
  EXPECT_EQ(qpkpack::runQpkpack({"-preload", "70000", archive, dir.file("content")}, out, err), 2);
  EXPECT_EQ(qpkpack::runQpkpack({archive, dir.file("missing")}, out, err), 1);
  EXPECT_THAT(err, HasSubstr("no such folder: " + dir.file("missing")));
}

}  // namespace
}  // namespace zv::fs
