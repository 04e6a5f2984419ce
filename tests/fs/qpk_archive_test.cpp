#include "fs/qpk_archive.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "base/log.h"
#include "fs/file_system.h"
#include "fs/game_info.h"
#include "qpkpack/qpk_writer.h"
#include "support/test_support.h"

namespace zv::fs {
namespace {

using qpkpack::PackedFile;
using qpkpack::PackOptions;
using qpkpack::QpkImage;
using zv::testing::readBytes;
using zv::testing::TempDir;
using zv::testing::writeBytes;
using zv::testing::writeText;

std::vector<uint8_t> pattern(size_t size, uint8_t seed) {
  std::vector<uint8_t> out(size);
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>(seed * 31 + i * 7 + (i >> 8));
  return out;
}

std::vector<uint8_t> bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

std::string text(const Result<std::vector<uint8_t>>& bytes) {
  return bytes ? std::string(bytes->begin(), bytes->end()) : "<" + bytes.message() + ">";
}

std::vector<std::string> names(const std::vector<DirEntry>& entries) {
  std::vector<std::string> out;
  for (const DirEntry& e : entries) out.push_back(e.name + (e.isDirectory ? "/" : ""));
  return out;
}

// Nested folders, root files with and without extension, an empty file, files small
// enough for the directory file and large enough for two data files.
std::vector<PackedFile> sampleFiles() {
  return {
      {"Models/Props/Crate.MDL", pattern(3000, 1)},
      {"models/props/crate.qvd", pattern(5000, 2)},
      {"models/props/wood/plank.mdl", pattern(200, 3)},
      {"materials/a.qmt", bytesOf("shader")},
      {"README", bytesOf("root file without extension")},
      {"notes.txt", bytesOf("root file")},
      {"empty.bin", {}},
  };
}

PackOptions smallLimits(uint32_t version, uint32_t preload = 0) {
  PackOptions options;
  options.version = version;
  options.preloadBytes = preload;
  options.maxDirectoryBytes = 256;
  options.maxDataFileBytes = 4096;
  return options;
}

void patch32(const std::string& file, size_t offset, uint32_t value) {
  std::vector<uint8_t> bytes = readBytes(file);
  ASSERT_LE(offset + 4, bytes.size());
  for (int i = 0; i < 4; ++i) bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
  writeBytes(file, bytes);
}

class QpkArchiveTest : public ::testing::Test {
 public:
  // Packs files as <temp>/<name>_dir.qpk and returns that path.
  std::string pack(const std::vector<PackedFile>& files, const PackOptions& options,
                   std::string_view name = "pak01") {
    auto image = qpkpack::buildQpkArchive(files, options);
    EXPECT_TRUE(image) << image.message();
    image_ = std::move(image.value());
    std::string path = dir_.file(std::string(name) + "_dir.qpk");
    auto written = qpkpack::writeQpkImage(image_, path);
    EXPECT_TRUE(written) << written.message();
    return path;
  }

  std::shared_ptr<QpkArchive> open(const std::string& path) {
    auto archive = QpkArchive::open(path);
    EXPECT_TRUE(archive) << archive.message();
    return archive ? archive.value() : nullptr;
  }

  const qpkpack::PlacedFile& placed(std::string_view path) const {
    for (const auto& p : image_.placed) {
      if (p.path == path) return p;
    }
    throw std::runtime_error("not packed: " + std::string(path));
  }

  TempDir dir_;
  QpkImage image_;
};

struct Layout {
  uint32_t version;
  uint32_t preload;
};

class QpkRoundTrip : public QpkArchiveTest, public ::testing::WithParamInterface<Layout> {};

TEST_P(QpkRoundTrip, EveryFileReadsBackWhereverItIsStored) {
  auto [version, preload] = GetParam();
  std::vector<PackedFile> files = sampleFiles();
  auto archive = open(pack(files, smallLimits(version, preload)));
  ASSERT_TRUE(archive);
  EXPECT_EQ(archive->header().version, version);
  ASSERT_EQ(archive->entries().size(), files.size());
  for (const PackedFile& file : files) {
    auto bytes = archive->read(file.path);
    ASSERT_TRUE(bytes) << bytes.message();
    EXPECT_EQ(*bytes, file.bytes) << file.path;
  }
  size_t inData = 0, preloaded = 0;
  for (const QpkEntry& e : archive->entries()) {
    inData += e.archiveIndex != kQpkDirectoryArchive;
    preloaded += e.preloadSize > 0;
  }
  if (preload == 0xFFFF) {
    EXPECT_EQ(inData, 0u);
    EXPECT_TRUE(image_.dataFiles.empty());
  } else {
    EXPECT_EQ(inData, 2u);  // the two large files, one data file each
    EXPECT_EQ(image_.dataFiles.size(), 2u);
  }
  EXPECT_EQ(preloaded, preload == 0 ? 0u : files.size() - 1);  // all but the empty file
}

INSTANTIATE_TEST_SUITE_P(VersionsAndPreloads, QpkRoundTrip,
                         ::testing::Values(Layout{1, 0}, Layout{2, 0}, Layout{1, 16}, Layout{2, 16},
                                           Layout{1, 0xFFFF}, Layout{2, 0xFFFF}),
                         [](const ::testing::TestParamInfo<Layout>& layout) {
                           return "v" + std::to_string(layout.param.version) + "_preload" +
                                  std::to_string(layout.param.preload);
                         });

TEST_F(QpkArchiveTest, LookupsIgnoreCaseAndFullPathsNameTheDirectoryFile) {
  std::string path = pack(sampleFiles(), smallLimits(2));
  // A name without "_dir" means the directory file beside it.
  auto archive = open(dir_.file("pak01.qpk"));
  ASSERT_TRUE(archive);
  EXPECT_EQ(archive->location(), path);
  EXPECT_TRUE(archive->isFile("MODELS/PROPS/crate.mdl"));
  EXPECT_TRUE(archive->isFile("readme"));
  EXPECT_FALSE(archive->isFile("models/props"));
  EXPECT_TRUE(archive->isDirectory("Models/PROPS/Wood"));
  EXPECT_EQ(archive->read("models/props/CRATE.mdl").value(), pattern(3000, 1));
  EXPECT_EQ(archive->fullPath("models/props/crate.mdl"), "qpk:" + path + ":Models/Props/Crate.MDL");
  auto missing = archive->read("models/props/none.mdl");
  ASSERT_FALSE(missing);
  EXPECT_NE(missing.message().find(path), std::string::npos);
  EXPECT_NE(missing.message().find("models/props/none.mdl"), std::string::npos);
  EXPECT_EQ(qpkDataFilePath(path, 7), dir_.file("pak01_007.qpk"));

  zv::testing::ScopedCurrentDir inside(dir_.path());
  auto relative = open("pak01_dir.qpk");
  ASSERT_TRUE(relative);
  EXPECT_EQ(relative->fullPath("readme"), "qpk:" + path + ":README");
}

TEST_F(QpkArchiveTest, FileSystemNamesFilesInsideArchives) {
  pack(sampleFiles(), smallLimits(1, 4));
  FileSystem fs(dir_.path());
  const std::string spec = "qpk:pak01_dir.qpk:";  // relative to the current directory
  EXPECT_EQ(names(fs.listFolder(spec + "models/props", "*.mdl", "")),
            (std::vector<std::string>{"Crate.MDL"}));
  EXPECT_EQ(names(fs.listFolder(spec + "MODELS\\props", "*", "")),
            (std::vector<std::string>{"Crate.MDL", "crate.qvd", "wood/"}));
  EXPECT_EQ(names(fs.listFolder(spec, "*", "")),
            (std::vector<std::string>{"Models/", "README", "empty.bin", "materials/", "notes.txt"}));
  EXPECT_TRUE(fs.isDirectory(spec + "models/props/wood"));
  EXPECT_FALSE(fs.isDirectory(spec + "models/props/crate.qvd"));
  EXPECT_TRUE(fs.fileExists(spec + "models/props/crate.qvd"));
  EXPECT_EQ(fs.readFile(spec + "models\\props\\wood\\PLANK.mdl").value(), pattern(200, 3));
  EXPECT_EQ(fs.fullPath(spec + "models/props/crate.qvd", ""),
            "qpk:" + dir_.file("pak01_dir.qpk") + ":Models/Props/crate.qvd");
  EXPECT_FALSE(fs.fullPath(spec + "models/props/none.qvd", ""));

  // A damaged archive named on the command line says why it cannot be read.
  writeText(dir_.file("bad_dir.qpk"), "garbage, not an archive at all");
  auto bad = fs.readFile("qpk:bad_dir.qpk:models/a.mdl");
  ASSERT_FALSE(bad);
  EXPECT_NE(bad.message().find("cannot open archive " + dir_.file("bad_dir.qpk") + ": not a packed archive"),
            std::string::npos)
      << bad.message();
  EXPECT_TRUE(fs.listFolder("qpk:bad_dir.qpk:models", "*", "").empty());
}

TEST_F(QpkArchiveTest, DamagedEntriesFailAloneNamingArchiveAndEntry) {
  struct Case {
    const char* what;
    std::function<void(QpkArchiveTest&, const std::string&)> damage;
    const char* entry;
    const char* message;
  };
  auto entryField = [](const char* entry, size_t field, uint32_t value) {
    return [=](QpkArchiveTest& t, const std::string& path) {
      patch32(path, t.placed(entry).entryOffset + field, value);
    };
  };
  std::vector<Case> cases = {
      {"CRC mismatch in a data file",
       [](QpkArchiveTest& t, const std::string&) {
         std::string data = t.dir_.file("pak01_000.qpk");
         std::vector<uint8_t> bytes = readBytes(data);
         bytes[100] ^= 0x40;
         writeBytes(data, bytes);
       },
       "Models/Props/Crate.MDL", "CRC mismatch"},
      {"CRC mismatch in the directory file", entryField("notes.txt", 0, 0xDEADBEEF), "notes.txt",
       "CRC mismatch"},
      {"offset past the directory file", entryField("notes.txt", 8, 0x7FFFFFF0), "notes.txt",
       "past the end of"},
      {"length past the data file", entryField("models/props/crate.qvd", 12, 6000), "models/props/crate.qvd",
       "past the end of"},
      {"truncated data file",
       [](QpkArchiveTest& t, const std::string&) {
         std::vector<uint8_t> bytes = readBytes(t.dir_.file("pak01_001.qpk"));
         bytes.resize(bytes.size() - 1);
         writeBytes(t.dir_.file("pak01_001.qpk"), bytes);
       },
       "models/props/crate.qvd", "pak01_001.qpk (4999 bytes)"},
      {"missing data file",
       [](QpkArchiveTest& t, const std::string&) { std::filesystem::remove(t.dir_.file("pak01_000.qpk")); },
       "Models/Props/Crate.MDL", "pak01_000.qpk"},
      {"data file index with no file", entryField("materials/a.qmt", 6, 0x0009), "materials/a.qmt",
       "pak01_009.qpk"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<PackedFile> files = sampleFiles();
    std::string path = pack(files, smallLimits(2));
    c.damage(*this, path);
    auto archive = open(path);
    ASSERT_TRUE(archive);
    for (const PackedFile& file : files) {
      auto bytes = archive->read(file.path);
      if (file.path != c.entry) {
        EXPECT_TRUE(bytes) << file.path << ": " << bytes.message();
        continue;
      }
      ASSERT_FALSE(bytes);
      EXPECT_NE(bytes.message().find("archive " + path + ", entry " + c.entry), std::string::npos)
          << bytes.message();
      EXPECT_NE(bytes.message().find(c.message), std::string::npos) << bytes.message();
    }
  }
}

TEST_F(QpkArchiveTest, DamagedDirectoryFilesFailToOpen) {
  std::string path = pack(sampleFiles(), smallLimits(1));
  const std::vector<uint8_t> good = readBytes(path);
  auto expectOpenError = [&](const std::vector<uint8_t>& bytes, const std::string& message) {
    writeBytes(path, bytes);
    auto archive = QpkArchive::open(path);
    ASSERT_FALSE(archive) << message;
    EXPECT_NE(archive.message().find("cannot open archive " + path), std::string::npos) << archive.message();
    EXPECT_NE(archive.message().find(message), std::string::npos) << archive.message();
  };
  auto withTreeSize = [&](uint32_t size) {
    std::vector<uint8_t> bytes = good;
    for (int i = 0; i < 4; ++i) bytes[8 + i] = static_cast<uint8_t>(size >> (8 * i));
    return bytes;
  };
  expectOpenError(withTreeSize(static_cast<uint32_t>(good.size())), "runs past the end of the file");
  expectOpenError(withTreeSize(0xFFFFFFFF), "runs past the end of the file");
  expectOpenError(withTreeSize(3), "the tree is damaged");
  std::vector<uint8_t> noTerminator = good;
  size_t terminator = placed("notes.txt").entryOffset + 16;
  noTerminator[terminator] = 0;
  expectOpenError(noTerminator, "entry of notes.txt lacks its terminator");
  expectOpenError(bytesOf("PK\3\4 not an archive at all"), "not a packed archive");
  expectOpenError({}, "too short");

  std::filesystem::remove(path);
  EXPECT_NE(QpkArchive::open(path).message().find("No such file"), std::string::npos);
  std::filesystem::create_directory(path);
  EXPECT_NE(QpkArchive::open(path).message().find("is not a file"), std::string::npos);
}

// Every cut of a valid archive either refuses to open or fails the reads whose bytes it
// lost, cleanly; only the whole archive reads everything.
TEST_F(QpkArchiveTest, EveryPrefixOfAnArchiveFailsCleanly) {
  PackOptions options = smallLimits(2, 3);
  options.maxDirectoryBytes = 100;
  std::vector<PackedFile> files = {{"a/one.txt", pattern(40, 1)},
                                   {"a/two", pattern(5, 2)},
                                   {"b.bin", pattern(150, 3)},
                                   {"z.txt", pattern(30, 4)}};
  std::string path = pack(files, options);
  std::string data = dir_.file("pak01_000.qpk");
  for (const std::string& target : {path, data}) {
    const std::vector<uint8_t> whole = readBytes(target);
    for (size_t size = 0; size <= whole.size(); ++size) {
      writeBytes(target, std::vector<uint8_t>(whole.begin(), whole.begin() + size));
      auto archive = QpkArchive::open(path);
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
    files.push_back({"f/" + std::to_string(i) + ".bin", pattern(64 + i, static_cast<uint8_t>(i))});
  PackOptions options;
  options.maxDirectoryBytes = 0;
  options.maxDataFileBytes = 1;  // every file in a data file of its own
  auto archive = open(pack(files, options));
  ASSERT_TRUE(archive);
  ASSERT_EQ(image_.dataFiles.size(), files.size());

  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 5; ++round) {
        for (size_t k = 0; k < files.size(); ++k) {
          const PackedFile& file = files[(k * (t + 1) + round) % files.size()];
          auto bytes = archive->read(file.path);
          if (!bytes || *bytes != file.bytes) ++wrong;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(archive->openDataFileCount(), kQpkMaxOpenDataFiles);
}

TEST_F(QpkArchiveTest, SearchPathOrderDecidesBetweenFolderAndArchive) {
  std::string archivePath = pack(
      {{"models/a.mdl", bytesOf("archive copy")}, {"models/b.mdl", bytesOf("archive only")}}, smallLimits(2));
  TempDir loose;
  writeText(loose.file("models/A.mdl"), "folder copy");
  writeText(loose.file("models/c.mdl"), "folder only");

  for (bool folderFirst : {true, false}) {
    SCOPED_TRACE(folderFirst ? "folder first" : "archive first");
    FileSystem fs(dir_.path());
    ASSERT_TRUE(fs.addSearchPath(folderFirst ? loose.str() : archivePath, "GAME", Placement::Tail));
    ASSERT_TRUE(fs.addSearchPath(folderFirst ? archivePath : loose.str(), "GAME", Placement::Tail));
    EXPECT_EQ(text(fs.readFile("models/a.mdl", "GAME")), folderFirst ? "folder copy" : "archive copy");
    EXPECT_EQ(text(fs.readFile("MODELS/B.MDL", "GAME")), "archive only");
    EXPECT_EQ(text(fs.readFile("models/c.mdl", "GAME")), "folder only");
    EXPECT_EQ(fs.fullPath("models/b.mdl", "GAME"), "qpk:" + archivePath + ":models/b.mdl");
    EXPECT_EQ(names(fs.listFolder("models", "*.mdl", "GAME")),
              (std::vector<std::string>{folderFirst ? "A.mdl" : "a.mdl", "b.mdl", "c.mdl"}));
  }
}

TEST_F(QpkArchiveTest, GameInformationMountsArchivesAndSkipsCorruptOnes) {
  TempDir game;
  writeText(game.file("mymod/gameinfo.gi"), R"("GameInfo" { FileSystem { SearchPaths {
    Game |mod|pak01.qpk
    Game |mod|broken.qpk
    Game |mod|.
  } } })");
  auto image = qpkpack::buildQpkArchive(
      {{"models/a.mdl", bytesOf("packed")}, {"materials/m.qmt", bytesOf("mat")}}, smallLimits(1));
  ASSERT_TRUE(image);
  ASSERT_TRUE(qpkpack::writeQpkImage(*image, game.file("mymod/pak01_dir.qpk")));
  writeText(game.file("mymod/broken_dir.qpk"), "not an archive");
  writeText(game.file("mymod/models/a.mdl"), "loose");
  writeText(game.file("mymod/models/b.mdl"), "loose only");

  auto info = loadGameInfo(game.path(), "mymod", true);
  ASSERT_TRUE(info) << info.message();
  FileSystem fs(game.path());
  LogCapture log;
  mountGameInfo(fs, *info);
  EXPECT_EQ(log.count("broken_dir.qpk"), 1u) << log.text();
  EXPECT_EQ(log.count("not a packed archive"), 1u) << log.text();
  ASSERT_EQ(fs.searchPaths().size(), 2u);
  EXPECT_EQ(text(fs.readFile("models/a.mdl", "Game")), "packed");
  EXPECT_EQ(text(fs.readFile("models/b.mdl", "Game")), "loose only");
  EXPECT_EQ(text(fs.readFile("materials/M.qmt", "Game")), "mat");
}

}  // namespace
}  // namespace zv::fs
